#!/bin/bash
# brantel-archive --sds --stations on a generated archive: comment-headed
# recordings of three elements at gain setting 2 and then 3, one element
# re-sited in the middle of a recording. OUTPUT/stations.xml must be valid
# StationXML 1.2 (where the schema is at hand) with the epochs of the gain
# change and the re-siting; a rerun leaves it as it is; an edited table takes
# effect without --restart; a bad table is refused before anything is
# written; samples no row covers are named and leave no document; options
# that change the samples are refused; a mirror converted with --mseed gets
# the same document.
#
#   brantel_archive_stations_test.sh BRANTEL_ARCHIVE BRANTEL BRANTEL_FIXTURE BRANTEL_LOCK BRANTEL_STATIONXML SCHEMA
#                                    BRANTEL_REPORT
set -u
export LC_ALL=C
archive=$(readlink -f "$1")
brantel=$(readlink -f "$2")
fixture=$(readlink -f "$3")
lock=$(readlink -f "$4")
stationxml=$(readlink -f "$5")
schema=$6
report=$(readlink -f "$7")
work=$(mktemp -d "${TMPDIR:-/tmp}/brantel archive's stations.XXXXXX")
trap '[ -n "${KEEP_WORK:-}" ] || rm -rf "$work"' EXIT
# The driver finds its programs beside itself, as when installed.
mkdir -p "$work/bin dir"
cp "$archive" "$brantel" "$lock" "$stationxml" "$report" "$work/bin dir/"
archive="$work/bin dir/$(basename "$archive")"
cd "$work" || exit 1

. "$(cd "$(dirname "$0")" && pwd)/check_support.sh"

# Four recordings of 64 s at 16 Hz from 2016-05-04T13:30:00Z, one after the
# other: gain setting 2 (external gain 20), then 3 (external gain 30).
t0=1462368600
for i in 0 1 2 3; do
    gain=2
    [ $i -ge 2 ] && gain=3
    "$fixture" vx16bin out="src/2016/05/04/r$i.dat" kind=U512 freq=16 gain=$gain date=2016-05-04 blocks=2 \
        start=$((t0 + 64 * i))
done
echo "station notes" > src/README.txt

header=network,station,location,latitude,longitude,elevation,depth,azimuth,dip,sensitivity,frequency,start,end,site
# REA1 moves at 13:33:00, inside the third recording.
cat > "table one.csv" <<TABLE
$header
XX,REA1,,60.1,17.5,40,,,,0.0025,1,,2016-05-04T13:33:00Z,Old hut
XX,REA1,,60.2,17.625,41,0.5,,,0.005,1,2016-05-04T13:33:00Z,,
,REA2,,60.3,17.75,42,,0,-90,0.0025,2,,,
,REA3,,60.4,17.875,43,,,,0.004,1,,,"Field, north"
TABLE

run() { # run OUTPUT-NAME EXTRA-ARGS...: the driver's stdout, stderr and status in run.out, run.err, $status
    "$archive" "$@" >run.out 2>run.err
    status=$?
}

# ---- the document ------------------------------------------------------------
run --sds --stations "table one.csv" src out -- --quiet
check "first run succeeds" [ "$status" -eq 0 ]
check "the run reports the document" grep -qx \
    "brantel-archive: stations: 7 channel epochs of 3 channels written to $work/out/stations.xml" run.out
check "stations.xml at OUTPUT's top" test -f out/stations.xml
if [ -f "$schema" ] && command -v xmllint >/dev/null; then
    check "valid against the StationXML 1.2 schema" xmllint --noout --schema "$schema" out/stations.xml
else
    echo "SKIPPED: no StationXML schema at $schema (or no xmllint): the document is not validated"
fi
# Channel epochs in document order: REA1 gain 20, gain 30 at the first site,
# gain 30 at the second; REA2 and REA3 gain 20 and 30.
dates=$(grep -o '<Channel code="BDF" startDate="[^"]*" endDate="[^"]*"' out/stations.xml |
    sed 's/.*startDate="\([^"]*\)" endDate="\([^"]*\)"/\1 \2/')
expected="2016-05-04T13:30:00.000000Z 2016-05-04T13:32:08.000000Z
2016-05-04T13:32:08.000000Z 2016-05-04T13:33:00.000000Z
2016-05-04T13:33:00.000000Z 2016-05-04T13:34:16.000000Z
2016-05-04T13:30:00.000000Z 2016-05-04T13:32:08.000000Z
2016-05-04T13:32:08.000000Z 2016-05-04T13:34:16.000000Z
2016-05-04T13:30:00.000000Z 2016-05-04T13:32:08.000000Z
2016-05-04T13:32:08.000000Z 2016-05-04T13:34:16.000000Z"
check "epochs of the gain change and the re-siting" [ "$dates" = "$expected" ]
check "two Station epochs of REA1" [ "$(grep -c '<Station code="REA1"' out/stations.xml)" -eq 2 ]
# 0.0025 V/Pa / (10 V per count x external gain 20), and x 30.
check "sensitivity at gain setting 2" grep -q '<Value>1.25e-05</Value>' out/stations.xml
check "sensitivity at gain setting 3" grep -q '<Value>8.333333333333334e-06</Value>' out/stations.xml

stamp() { find out/stations.xml -printf '%T@ %s\n'; }
before=$(stamp)
cp out/stations.xml first.xml
run --sds --stations "table one.csv" src out -- --quiet
check "rerun succeeds" [ "$status" -eq 0 ]
check "rerun leaves stations.xml as it is" cmp -s first.xml out/stations.xml
check "rerun leaves its modification time" [ "$(stamp)" = "$before" ]
check "rerun says so" grep -q "^brantel-archive: stations: 7 channel epochs of 3 channels unchanged in " run.out

# An edited table takes effect at the next run, without --restart.
sed 's/Old hut/Old barn/' "table one.csv" > edited.csv
run --sds --stations edited.csv src out -- --quiet
check "edited table accepted without --restart" [ "$status" -eq 0 ]
check "edited table takes effect" grep -q '<Name>Old barn</Name>' out/stations.xml

# ---- refusals ------------------------------------------------------------------
# A bad table: one line per fault, before anything is written.
printf '%s\r\n' "$header" "XX,REA1,,91,17.5,40,,,,0.0025,1,,," "XX,REA2,,60,17.5,forty,,,,0.0025,1,,," > bad.csv
run --sds --stations bad.csv src fresh -- --quiet
check "bad table refused" [ "$status" -eq 1 ]
check "one line per fault" [ "$(cat run.err)" = "Error: \"bad.csv\" line 2, column latitude: \"91\" is outside the range from -90 up to (not including) 90
Error: \"bad.csv\" line 3, column elevation: \"forty\" is not a number" ]
check "bad table writes nothing" [ ! -e fresh ]

# Samples no row covers: named, no document, an old one removed.
head -n 3 "table one.csv" > partial.csv
run --sds --stations partial.csv src out -- --quiet
check "uncovered samples fail the run" [ "$status" -eq 1 ]
check "uncovered element named" grep -qx 'Error: no row of "partial.csv" covers XX.REA2 from 2016-05-04T13:30:00.000Z to 2016-05-04T13:34:15.937Z' run.err
check "uncovered: no stations.xml" [ ! -e out/stations.xml ]
check "uncovered: reported" grep -qx "brantel-archive: stations: not written" run.out

for opt in "-z 2" "-u 2" "-f" "-of"; do
    letter=${opt:1:1}
    [ "$opt" = -of ] && letter=f
    run --sds --stations "table one.csv" src refused -- $opt
    check "--stations refuses $opt" [ "$status" -eq 1 ]
    check "--stations refuses $opt in one line" [ "$(cat run.err)" = "brantel-archive: --stations cannot be used with -$letter: the samples would not be the counts that stations.xml describes" ]
done
run --stations "table one.csv" src refused -- --slist
check "--stations refused without miniSEED" [ "$status" -eq 1 ]
check "miniSEED refusal in one line" [ "$(cat run.err)" = "brantel-archive: --stations needs miniSEED output: give --sds, or -- --mseed for a mirror" ]
run --stations "table one.csv" src refused -- --mseed -o
check "--stations refuses -o in a mirror" [ "$status" -eq 1 ]
check "-o refusal in one line" [ "$(cat run.err)" = "brantel-archive: --stations in a mirror needs the recordings' own samples: -o, -s, -l and -n cannot be used with it" ]
check "refusals write nothing" [ ! -e refused ]

# Mirror mode: the same recordings converted file by file with --mseed give
# the same document, at OUTPUT's top beside the outputs.
run --stations "table one.csv" src mirror -- --quiet --mseed
check "mirror run succeeds" [ "$status" -eq 0 ]
check "mirror: stations.xml at OUTPUT's top" test -f mirror/stations.xml
check "mirror: the document equals the tree's but for Created" \
    cmp -s <(grep -v '<Created>' first.xml) <(grep -v '<Created>' mirror/stations.xml)
check "mirror: nothing but outputs, the document and the report page outside the bookkeeping" \
    [ -z "$(cd mirror && find . -path ./.brantel-archive -prune -o -path ./report -prune -o -type f ! -name '*.mseed' \
        ! -path ./stations.xml ! -path ./index.html -print)" ]
# --stations added to a later run of a mirror converted without it.
run src mirror2 -- --quiet --mseed
run --stations "table one.csv" src mirror2 -- --quiet --mseed
check "mirror: --stations added later needs no --restart" [ "$status" -eq 0 ]
check "mirror: the later document equals the first" \
    cmp -s <(grep -v '<Created>' first.xml) <(grep -v '<Created>' mirror2/stations.xml)

# A run without --stations that files new samples removes the document that
# no longer covers the tree.
run --sds --stations "table one.csv" src out -- --quiet
check "document back" test -f out/stations.xml
"$fixture" vx16bin out="src/2016/05/04/r4.dat" kind=U512 freq=16 gain=3 date=2016-05-04 blocks=2 start=$((t0 + 256))
run --sds src out -- --quiet
check "run without --stations succeeds" [ "$status" -eq 0 ]
check "a stale document is removed" [ ! -e out/stations.xml ]
check "and said so" grep -qx "brantel-archive: stations: $work/out/stations.xml removed: this run filed samples without --stations" run.out

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
