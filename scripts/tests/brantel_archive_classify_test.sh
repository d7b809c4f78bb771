#!/bin/bash
# brantel-archive with the classifying options --legacy and --station: the
# driver classifies with them (brantel --identify), so first-generation
# recordings are converted instead of skipped; a later run that adds them
# classifies again the files skipped or failed before, without --restart;
# one that drops or changes them is refused. In a mirror and in an SDS tree,
# with the options in every form brantel takes (abbreviated, NAME joined by
# '=').
#
#   brantel_archive_classify_test.sh BRANTEL_ARCHIVE BRANTEL BRANTEL_FIXTURE BRANTEL_LOCK BRANTEL_REPORT
WORK_NAME="brantel archive classify"
. "$(dirname "$0")/archive_run_support.sh"

# ---- the archive -------------------------------------------------------------
# A first-generation day: the oldest kind ("Tidserier 18 2", no stamps) with
# the station letter a in its name, a type 1 recording whose name carries no
# station letter, and a vx24 recording that needs neither option.
src=$work/src
day=$src/1994/03/19940312
mkdir -p "$day"
"$fixture" vx16bin out="$day/a4031227.dat" kind=T blocks=2 >/dev/null
"$fixture" vx16txt out="$day/x4031228.txt" kind=1 blocks=2 >/dev/null
"$fixture" vx24 out="$src/2017/r.vx24" samples=200 >/dev/null

summary() { head -n 1 "$work/$1.stdout"; }
kind_of() { # kind_of BOOKKEEPING FILE
    awk -F'\t' -v f="$2" '$1 == f { print $2 }' "$1/classified"
}
refused_alone() { # refused_alone NAME OUTPUT DRIVER-ARGS...: status 1, one line, OUTPUT unchanged
    local name=$1 out=$2 was
    shift 2
    was=$(cd "$out" && find . -path ./.brantel-archive -prune -o -print | sort | xargs -d '\n' stat -c '%n %s %Y')
    run "$name" "$@"
    [ "$status" -eq 1 ] && [ "$(wc -l < "$work/$name.stderr")" -eq 1 ] && [ ! -s "$work/$name.stdout" ] &&
        [ "$was" = "$(cd "$out" && find . -path ./.brantel-archive -prune -o -print | sort |
            xargs -d '\n' stat -c '%n %s %Y')" ]
}

# ---- mirror --------------------------------------------------------------------
out=$work/mirror
run plain "$src" "$out"
check "plain: status 1" [ "$status" -eq 1 ]
check "plain: the oldest kind skipped, the type 1 failed" \
    [ "$(summary plain)" = "brantel-archive: 1 converted, 1 failed, 1 skipped" ]
check "plain: classified as no recording" [ "$(kind_of "$out/.brantel-archive" 1994/03/19940312/a4031227.dat)" = not-a-recording ]

# --legacy added: the oldest kind is a recording now; the type 1 file names
# no station and fails with the message that says so.
run legacy "$src" "$out" -- --leg
check "--legacy added: status 1" [ "$status" -eq 1 ]
check "--legacy added: no --restart needed" [ -z "$(grep -e restart -e settings "$work/legacy.stderr")" ]
check "--legacy added: the oldest kind converted" \
    [ "$(summary legacy)" = "brantel-archive: 2 converted, 1 failed, 0 skipped" ]
check "--legacy added: classified again" \
    [ "$(kind_of "$out/.brantel-archive" 1994/03/19940312/a4031227.dat)" = vx16-binary ]
check "--legacy added: the station is asked for" \
    grep -q '^failed: 1994/03/19940312/x4031228.txt: Error: ".*x4031228.txt" names no station, .* give one with --station NAME$' \
    "$work/legacy.stdout"
(cd "$work/run" && "$brantel" --quiet --legacy --target-directory "$work/ref" "$day/a4031227.dat" >/dev/null 2>&1)
check "--legacy added: the output equals brantel --legacy's" cmp -s "$work/ref/a4031227.tm4" "$out/1994/03/19940312/a4031227.tm4"

# A station added too (abbreviated, its name joined by '='): nothing fails.
run station "$src" "$out" -- --leg --st=arvola
check "--station added: status 0" [ "$status" -eq 0 ]
check "--station added: everything converted" \
    [ "$(summary station)" = "brantel-archive: 3 converted, 0 failed, 0 skipped" ]
(cd "$work/run" && "$brantel" --quiet --station arvola --target-directory "$work/ref" "$day/x4031228.txt" >/dev/null 2>&1)
check "--station added: the output equals brantel --station's" cmp -s "$work/ref/x4031228.tm4" "$out/1994/03/19940312/x4031228.tm4"
run again "$src" "$out" -- --legacy --station arvola
check "the same options spelt out: nothing to do" \
    [ "$status" -eq 0 ] && [ "$(summary again)" = "brantel-archive: 3 converted, 0 failed, 0 skipped" ]

check "--station dropped: refused" refused_alone dropped "$out" "$src" "$out" -- --legacy
check "--station dropped: the message" grep -qx "brantel-archive: $out was converted with other settings; give --restart to start afresh" \
    "$work/dropped.stderr"
check "--station changed: refused" refused_alone changed "$out" "$src" "$out" -- --station bredmo
check "another option added beside: refused" refused_alone other "$out" "$src" "$out" -- --legacy --station arvola --quiet

# ---- SDS tree --------------------------------------------------------------------
tree=$work/tree
run sds --sds "$src" "$tree" -- --legacy
check "SDS --legacy: status 1" [ "$status" -eq 1 ]
check "SDS --legacy: the oldest kind filed from the first run" \
    [ "$(summary sds)" = "brantel-archive: 2 converted, 1 failed, 0 skipped" ]
check "SDS --legacy: its day files" [ -n "$(find "$tree/1994" -name 'XX.RAA1..*.1994.071' 2>/dev/null)" ]
run sds_station --sds "$src" "$tree" -- --legacy --station=arvola
check "SDS --station added: status 0" [ "$status" -eq 0 ]
check "SDS --station added: everything filed" \
    [ "$(summary sds_station)" = "brantel-archive: 3 converted, 0 failed, 0 skipped" ]
check "SDS --station dropped: refused" refused_alone sds_dropped "$tree" --sds "$src" "$tree" -- --legacy

# Without the options, a fresh tree skips the oldest kind as before.
run sds_plain --sds "$src" "$work/tree2"
check "SDS plain: the oldest kind skipped" \
    [ "$(summary sds_plain)" = "brantel-archive: 1 converted, 1 failed, 1 skipped" ]

echo "$passed checks passed, $failed failed"
[ "$failed" -eq 0 ]
