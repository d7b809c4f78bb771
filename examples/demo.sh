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
if ls vx16 >/dev/null 2>&1; then
    run --quiet vx16/2016/05/20160504/e6050427.dat
    show vx16/2016/05/20160504/e6050427.tm4
    run --quiet --average --minutes-in-day vx16/2016/05/20160504/e6050427.txt
    show vx16/2016/05/20160504/e6050427.avg
    run --quiet --slist vx16/2016/05/20160505/d6050510.dat
    show vx16/2016/05/20160505/d6050510.channel0.slist.ascii
    # First-generation recordings: station, start and gain as the archive knows them.
    run --quiet --legacy vx16/1993/11/19931102/b3110214.dat
    show vx16/1993/11/19931102/b3110214.tm4
    run --quiet --station arvola --sample-times -2 vx16/1995/06/19950617/c5061733.txt
    show vx16/1995/06/19950617/c5061733.channel0
fi
if ls tm4/*.tm4 >/dev/null 2>&1; then
    # A TM4 input already has the four-column extension, so pick another layout.
    tm4=$(ls tm4/*.tm4 | head -n 1)
    run --quiet -2 "$tm4"
    show "${tm4%.*}.channel0"
fi
echo
echo "demo outputs were written to a temporary directory and removed"
