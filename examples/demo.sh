#!/usr/bin/env bash
# Converts the bundled example recordings with a few option sets, each into a
# folder of its own under the demo directory (default build/demo), with a
# PNG quick-look of every window, shows the beginning of each result, and
# keeps everything for a look afterwards. It ends by filing all of them into
# one SDS tree with the archive driver (brantel-archive beside BRANTEL, else
# on the PATH), first-generation recordings included, with a quick-look per
# recorder and day, and names the tree's report. The source tree is left
# untouched: each folder gets copies of the recordings it converts.
#
#   examples/demo.sh [BRANTEL [DEMO_DIR]]
set -euo pipefail
bin=$(realpath "${1:-build/brantel}")
examples=$(realpath "$(dirname "$0")")
demo=${2:-build/demo}
rm -rf "$demo"
mkdir -p "$demo"
demo=$(realpath "$demo")

show() {
    for f in "$@"; do
        echo "---- $f ($(wc -l <"$f") lines)"
        head -n 4 "$f" | cut -c 1-160
    done
}

# step FOLDER RECORDING... : a fresh folder holding copies of the recordings
# (paths below examples/, their directories kept); later calls of run and
# show work inside it.
step() {
    local folder=$1
    shift
    mkdir -p "$demo/$folder"
    cd "$demo/$folder"
    for r in "$@"; do
        mkdir -p "$(dirname "$r")"
        cp "$examples/$r" "$r"
    done
    echo
    echo "== $folder"
}

run() {
    echo "\$ brantel $*"
    "$bin" "$@" || echo "(exit status $?)"
}

vx24a=vx24/arvola_20170714_024000.vx24
vx24b=vx24/arvola_20170714_024530.vx24
vx16=vx16/2016/05/20160504/e6050427
s128=vx16/2016/05/20160505/d6050510.dat
tm4=tm4/dovmark_20170714_024000.tm4
legacy=vx16/1993/11/19931102/b3110214.dat
type1=vx16/1995/06/19950617/c5061733.txt

step four-columns "$vx24a"
run --quiet --plot "$vx24a"
show "${vx24a%.*}.tm4"

step combined "$vx24a" "$vx24b"
run --quiet --plot -c "$vx24a" "$vx24b"
show "${vx24a%.*}.tm4"

step snippets "$vx24a"
run --quiet --plot -2 -n 2 -l 1200 "$vx24a"
show "${vx24a%.*}.channel0a"

step tspair "$vx24a"
run --quiet --plot --tspair "$vx24a"
show "${vx24a%.*}.channel0.tspair.ascii"

step filtered "$vx24a"
run --quiet --plot -o -u 4 -f --minutes-in-day "$vx24a"
show "${vx24a%.*}.tm4"

step vx16-binary "$vx16.dat"
run --quiet --plot "$vx16.dat"
show "$vx16.tm4"

step vx16-text-average "$vx16.txt"
run --quiet --plot --average --minutes-in-day "$vx16.txt"
show "$vx16.avg"

step vx16-s128-slist "$s128"
run --quiet --plot --slist "$s128"
show "${s128%.*}.channel0.slist.ascii"

# First-generation recordings: station, start and gain as the archive knows them.
step vx16-legacy "$legacy"
run --quiet --plot --legacy "$legacy"
show "${legacy%.*}.tm4"

step vx16-station-sample-times "$type1"
run --quiet --plot --station arvola --sample-times -2 "$type1"
show "${type1%.*}.channel0"

# A TM4 input already has the four-column extension, so pick another layout.
step tm4-two-columns "$tm4"
run --quiet --plot -2 "$tm4"
show "${tm4%.*}.channel0"

cd "$demo"
echo
echo "The demo outputs are kept in $demo, one folder per example; the quick-looks:"
find . -path ./sds -prune -o -name '*.png' -print | sort | sed 's|^\./|  |'

# Every example in one SDS tree: the driver classifies with --legacy, so the
# first-generation recordings are filed too, and the recording that is there
# twice (e6050427 as .dat and as .txt) is kept once.
archive=$(dirname "$bin")/brantel-archive
[ -x "$archive" ] || archive=brantel-archive
mkdir -p "$demo/sds-source"
cp -r "$examples/vx16" "$examples/vx24" "$examples/tm4" "$demo/sds-source/"
echo
echo "== sds"
echo "\$ brantel-archive --sds sds-source sds -- --legacy --plot"
(cd "$demo" && "$archive" --sds sds-source sds -- --legacy --plot)
echo
if [ -f "$demo/sds/index.html" ]; then
    echo "The archive's report: $demo/sds/index.html"
else
    echo "The SDS tree: $demo/sds; the quick-looks of its days: $demo/sds/report/quicklooks/"
fi
