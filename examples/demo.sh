#!/usr/bin/env bash
# Converts the bundled example recordings with a few option sets and shows the
# beginning of each result. Everything is written to a temporary directory;
# the source tree is left untouched.
set -euo pipefail
bin=$(realpath "${1:-build/brantel}")
examples=$(realpath "$(dirname "$0")")
work=$(mktemp -d "${TMPDIR:-/tmp}/brantel-demo.XXXXXX")
trap 'rm -rf "$work"' EXIT
cp -r "$examples"/. "$work"/
cd "$work"

show() {
    for f in "$@"; do
        echo "---- $f ($(wc -l <"$f") lines)"
        head -n 4 "$f" | cut -c 1-160
    done
}

run() {
    echo
    echo "\$ brantel $*"
    "$bin" "$@" || echo "(exit status $?)"
}

if ls vx24/*.vx24 >/dev/null 2>&1; then
    first=$(ls vx24/*.vx24 | head -n 1)
    run --quiet "$first"
    show "${first%.*}.tm4"
    run --quiet -c -s 0.0.0 vx24/*.vx24
    show "${first%.*}.tm4"
    run --quiet -2 -n 2 -l 1200 "$first"
    show "${first%.*}.channel0a"
    run --quiet --tspair "$first"
    show "${first%.*}.channel0.tspair.ascii"
    run --quiet -o -u 4 -f --minutes-in-day "$first"
    show "${first%.*}.tm4"
fi
for f in $(find vx16 tm4 -type f \( -name '*.dat' -o -name '*.txt' -o -name '*.tm4' -o -name '*.asc' \) 2>/dev/null | sort); do
    out="$work/out/$(basename "${f%.*}")"
    mkdir -p "$(dirname "$out")"
    run --quiet "$f"
    ls "${f%.*}".* | grep -v -x "$f" | head -n 3 | while read -r o; do show "$o"; done
done
echo
echo "demo outputs were written to a temporary directory and removed"
