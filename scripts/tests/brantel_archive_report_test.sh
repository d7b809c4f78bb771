#!/bin/bash
# The report page that brantel-archive writes at the end of every run, in
# both modes, on a generated archive: two vx24 stations of half-hour
# recordings 8 s apart, a 30 s gap, a gain change and a damaged file. The
# page must carry one row per channel, every gap with its exact times, the
# damaged file by its path, links that resolve to files, and nothing from
# elsewhere. A mirror's SOURCE with recordings in a top-level folder report
# is refused before anything is written.
#
#   brantel_archive_report_test.sh BRANTEL_ARCHIVE BRANTEL BRANTEL_FIXTURE BRANTEL_LOCK BRANTEL_REPORT
WORK_NAME="brantel archive's report"
. "$(dirname "$0")/archive_run_support.sh"
here=$(cd "$(dirname "$0")" && pwd)
cd "$work" || exit 1

# ---- the archive -------------------------------------------------------------
# Station byte 4 (codes REA1..REA3): five half hours of 1792 s, the fifth 30 s
# late and at external gain 2. Station byte 2 (RCA1..RCA3): three half hours.
day=1462320000 # 2016-05-04T00:00:00Z
src="$work/src dir"
for i in 0 1 2 3; do
    "$fixture" vx24 out="$src/vx24/e/rec $i.vx24" station=4 seconds=$((day + i * 1800)) duration=1792 wave=sine amp=900
done
"$fixture" vx24 out="$src/vx24/e/rec 4.vx24" station=4 seconds=$((day + 4 * 1800 + 30)) duration=1792 wave=sine \
    amp=900 ext_gain=2
for i in 0 1 2; do
    "$fixture" vx24 out="$src/vx24/b/b$i.vx24" station=2 seconds=$((day + i * 1800)) duration=1792 wave=sine amp=900
done
printf 'vx24xx' > "$src/vx24/b/broken.vx24"
echo "station notes" > "$src/README.txt"

# The gaps: the last sample before (1791.95 s into a recording) and the first after.
hook() { # hook SECONDS MILLISECONDS
    printf '%s.%03dZ' "$(date -u -d "@$1" +%Y-%m-%dT%H:%M:%S)" "$2"
}
{
    for s in REA1 REA2 REA3; do
        for i in 0 1 2; do
            echo "XX.$s..BDF $(hook $((day + i * 1800 + 1791)) 950) $(hook $((day + (i + 1) * 1800)) 0)"
        done
        echo "XX.$s..BDF $(hook $((day + 3 * 1800 + 1791)) 950) $(hook $((day + 4 * 1800 + 30)) 0)"
    done
    for s in RCA1 RCA2 RCA3; do
        for i in 0 1; do
            echo "XX.$s..BDF $(hook $((day + i * 1800 + 1791)) 950) $(hook $((day + (i + 1) * 1800)) 0)"
        done
    done
} | sort > expected-gaps
channels=$(printf 'XX.%s..BDF\n' RCA1 RCA2 RCA3 REA1 REA2 REA3)

gaps_of() { # gaps_of PAGE: channel, start and end of every gap element
    grep -o 'data-channel="[^"]*" data-gap-start="[^"]*" data-gap-end="[^"]*"' "$1" |
        sed 's/data-channel="\([^"]*\)" data-gap-start="\([^"]*\)" data-gap-end="\([^"]*\)"/\1 \2 \3/' | sort
}
rows_of() { # rows_of PAGE: the channel of every element with data-channel and no gap
    grep -o '<[a-z]* data-channel="[^"]*"[^>]*>' "$1" | grep -v 'data-gap-start' |
        sed 's/.*data-channel="\([^"]*\)".*/\1/'
}
links_resolve() { # links_resolve OUTPUT: every href and src is a relative path to a file of OUTPUT
    local ref bad=0
    while read -r ref; do
        case $ref in
        /* | *:* | '') bad=1 ;;
        *) [ -f "$1/$(printf '%b' "${ref//%/\\x}")" ] || bad=1 ;;
        esac
    done < <(grep -o '\(href\|src\)="[^"]*"' "$1/index.html" | sed 's/^[a-z]*="\(.*\)"$/\1/')
    [ "$bad" = 0 ]
}
nothing_from_elsewhere() { # nothing_from_elsewhere PAGE
    ! grep -qi -e 'https\?:' -e '//' -e 'fetch(' -e 'console' -e '@import' -e 'url(' "$1"
}
check_page() { # check_page NAME OUTPUT
    local page=$2/index.html
    check "$1: index.html written" [ -s "$page" ]
    check "$1: one row per channel" [ "$(rows_of "$page")" = "$channels" ]
    check "$1: every gap with its times" diff expected-gaps <(gaps_of "$page")
    check "$1: the damaged file" [ "$(grep -o 'data-failed="[^"]*"' "$page")" = 'data-failed="vx24/b/broken.vx24"' ]
    check "$1: the gain change" grep -q '<td>2016-05-04T02:00:30.000Z</td><td>20 Hz, gain 1, 10 V/count</td><td>20 Hz, gain 2, 10 V/count</td>' "$page"
    check "$1: links resolve" links_resolve "$2"
    check "$1: nothing from elsewhere" nothing_from_elsewhere "$page"
    check "$1: no script needed" [ -z "$(grep -o '<script' "$page")" ]
    check_in_browser "$1" "$2"
}

# The page as a browser sees it: headless Chromium opens it from file://
# (tests/browser/open_page.py), nothing may reach its console and no request
# may leave OUTPUT, every link and picture must resolve, and the DOM after
# loading carries the same rows, gaps and failed file. Without a chromium the
# checks are left out on a developer's machine but fail under CI, which
# installs one (tools/install_deps.sh --browser).
harness=$here/../../tests/browser/open_page.py
check_in_browser() { # check_in_browser NAME OUTPUT
    if ! command -v chromium >/dev/null; then
        if [ -n "${CI:-}" ]; then
            check "$1 in the browser: chromium on the PATH" false
        else
            echo "note: no chromium on the PATH: the page is not opened in a browser"
        fi
        return
    fi
    /usr/bin/python3 "$harness" --timeout 120 --links --full-page --dom "$1.dom.html" --screenshot "$1.png" \
        "$2/index.html" > "$1.browser.stdout" 2> "$1.browser.stderr"
    check "$1 in the browser: loads cleanly from file://" [ $? -eq 0 ]
    check "$1 in the browser: nothing on the console" grep -q '"console": \[\]' "$1.browser.stdout"
    check "$1 in the browser: no request outside OUTPUT" grep -q '"outside": \[\]' "$1.browser.stdout"
    check "$1 in the browser: one row per channel" [ "$(rows_of "$1.dom.html")" = "$channels" ]
    check "$1 in the browser: every gap with its times" diff expected-gaps <(gaps_of "$1.dom.html")
    check "$1 in the browser: the damaged file" \
        [ "$(grep -o 'data-failed="[^"]*"' "$1.dom.html")" = 'data-failed="vx24/b/broken.vx24"' ]
    check "$1 in the browser: a screenshot" [ -s "$1.png" ]
}

# ---- SDS tree ------------------------------------------------------------------
# Without HOME (cron, env -i) as with it: GNU parallel must not warn.
env -u HOME "$archive" --sds --jobs 2 "$src" "$work/sds out" -- --quiet > sds.stdout 2> sds.stderr
check "sds: status 1 for the damaged file" [ $? -eq 1 ]
check "sds: summary" diff - sds.stdout <<SUMMARY
brantel-archive: 8 converted, 1 failed, 1 skipped
brantel-archive: sds: 6 day files written, 6 channels, 18 gaps, 0 conflicts
brantel-archive: report: $work/sds out/index.html
failed: vx24/b/broken.vx24: failed with no message
SUMMARY
check "sds: nothing on stderr" [ ! -s sds.stderr ]
check_page sds "$work/sds out"
# A quick-look picture of a recorder's day is linked once it exists.
mkdir -p "$work/sds out/report/quicklooks/XX.REA1."
printf 'png' > "$work/sds out/report/quicklooks/XX.REA1./2016-05-04.png"
"$archive" --sds "$src" "$work/sds out" -- --quiet > sds2.stdout 2>&1
check "sds: the picture linked" grep -q '<a href="report/quicklooks/XX.REA1./2016-05-04.png">' "$work/sds out/index.html"
check "sds: links resolve with a picture" links_resolve "$work/sds out"
# A damaged facts file: one warning, named in the summary and on the page.
facts=$(ls "$work/sds out/.brantel-archive/recordings" | head -n 1)
printf 'garbage\n' > "$work/sds out/.brantel-archive/recordings/$facts"
"$archive" --sds "$src" "$work/sds out" -- --quiet > sds3.stdout 2> sds3.stderr
book=$(ls -d "$work/sds out/.brantel-archive/sources/"*)
check "sds: a damaged facts file is a warning" \
    grep -qx "brantel-archive: report: $work/sds out/index.html (1 warnings in $book/report-messages)" sds3.stdout
check "sds: the warning line" grep -qx "brantel-report: warning: damaged facts file .*/$facts: its recording is not drawn" \
    "$book/report-messages"
check "sds: shown on the page" grep -q "<li>damaged facts file .*/$facts: its recording is not drawn</li>" \
    "$work/sds out/index.html"

# ---- mirror ----------------------------------------------------------------------
"$archive" --jobs 2 "$src" "$work/mirror out" -- --quiet --plot > mirror.stdout 2> mirror.stderr
check "mirror: status 1 for the damaged file" [ $? -eq 1 ]
check "mirror: summary" diff - mirror.stdout <<SUMMARY
brantel-archive: 8 converted, 1 failed, 1 skipped
brantel-archive: report: $work/mirror out/index.html
failed: vx24/b/broken.vx24: failed with no message
SUMMARY
check_page mirror "$work/mirror out"
check "mirror: each recording's picture linked from each of its channels" \
    [ "$(grep -o '<a href="vx24/[eb]/[^"]*\.png">' "$work/mirror out/index.html" | wc -l)" -eq 24 ]
check "mirror: the catalog holds every recording" [ "$(ls "$work/mirror out/.brantel-archive/catalog" | wc -l)" -eq 8 ]
# An output removed since: its recording is not drawn, and said so.
rm "$work/mirror out/vx24/e/rec 4.tm4" "$work/mirror out/vx24/e/rec 4.png"
"$report" "$work/mirror out" > report.stdout 2> report.stderr
check "mirror: a missing output is a warning" diff - report.stderr <<'WARNING'
brantel-report: warning: the outputs of vx24/e/rec 4.vx24 are missing: not drawn
WARNING
check "mirror: its gap is gone" diff <(grep -v " $(hook $((day + 4 * 1800 + 30)) 0)\$" expected-gaps) \
    <(gaps_of "$work/mirror out/index.html")
# Any layout: the codes are those of --mseed.
"$archive" "$src" "$work/slist out" -- --quiet --slist > slist.stdout 2>&1
check "mirror --slist: one row per channel" [ "$(rows_of "$work/slist out/index.html")" = "$channels" ]
check "mirror --slist: every gap" diff expected-gaps <(gaps_of "$work/slist out/index.html")
"$archive" --per-directory "$src" "$work/combined out" -- --quiet > combined.stdout 2>&1
# The damaged file fails its directory's combined run: each of its files is named.
check "mirror --per-directory: every gap of the directory converted" \
    diff <(grep '\.REA' expected-gaps) <(gaps_of "$work/combined out/index.html")
check "mirror --per-directory: the files of the failed directory" diff - <(grep -o 'data-failed="[^"]*"' "$work/combined out/index.html") <<'FAILED'
data-failed="vx24/b/b0.vx24"
data-failed="vx24/b/b1.vx24"
data-failed="vx24/b/b2.vx24"
data-failed="vx24/b/broken.vx24"
FAILED

# ---- a SOURCE with recordings in a top-level folder report ------------------------
mkdir -p "$work/src2/report" "$work/src3/report"
"$fixture" vx24 out="$work/src2/report/x.vx24" samples=50
"$archive" "$work/src2" "$work/out2" > refused.stdout 2> refused.stderr
check "report folder with recordings: refused" [ $? -eq 1 ]
check "report folder with recordings: one line" diff - refused.stderr <<LINE
brantel-archive: SOURCE $work/src2 has a folder report holding recordings, whose outputs would mix with the report page's files in OUTPUT/report; give --sds, or move them
LINE
check "report folder with recordings: nothing written" [ ! -e "$work/out2" ]
check "report folder with recordings: fine with --sds" "$archive" --sds "$work/src2" "$work/out2" -- --quiet
echo notes > "$work/src3/report/notes.txt"
"$fixture" vx24 out="$work/src3/a.vx24" samples=50
"$archive" "$work/src3" "$work/out3" > plain.stdout 2>&1
check "report folder without recordings: skipped as before" grep -qx 'brantel-archive: 1 converted, 0 failed, 1 skipped' plain.stdout

finish_checks "brantel-archive report"
