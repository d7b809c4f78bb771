#!/bin/bash
# brantel-archive --sds on a generated archive: recordings of every kind, one
# station and day spread over several files (vx24 half-hours and a one-day
# file, comment-headed .dat and .txt half-hours, TM4), the same samples twice,
# one recording whose samples conflict with another's, a damaged file and a
# foreign one. The tree's day files must equal those of brantel --sds run by
# hand over the same files; a rerun changes nothing; a run killed part way
# and run again ends with the same day files and no temporary; jobs through
# a stand-in for ssh give the same day files; a second SOURCE merges into the
# tree; --restart loses nothing; refused options and a second driver leave
# OUTPUT as it was.
#
#   brantel_archive_sds_test.sh BRANTEL_ARCHIVE BRANTEL BRANTEL_FIXTURE BRANTEL_LOCK BRANTEL_REPORT
WORK_NAME="brantel archive's sds"
. "$(dirname "$0")/archive_run_support.sh"
here=$(cd "$(dirname "$0")" && pwd)
lock="$work/bin dir/$(basename "$lock")"

# ---- the archive -------------------------------------------------------------
# Station ensholm (vx24 station byte 4, letter e, name ensholm), 20 Hz. The
# vx24 sine is a function of the sample time, so two files that cover the
# same instants hold the same samples there.
src=$work/src
day4=1462320000 # 2016-05-04T00:00:00Z
ensholm_vx24() { "$fixture" vx24 station=4 wave=sine amp=1000 "$@"; }
ensholm_vx24 out="$src/2016/05/04/h10.vx24" seconds=$((day4 + 36000)) duration=1800
ensholm_vx24 out="$src/2016/05/04/h1030.vx24" seconds=$((day4 + 37800)) duration=1800
# Across midnight: its last quarter hour is also in the one-day file.
ensholm_vx24 out="$src/2016/05/04/h2345.vx24" seconds=$((day4 + 85500)) duration=1800
ensholm_vx24 out="$src/2016/05/05/day.vx24" seconds=$((day4 + 86400)) duration=86400
d=$src/2016/05/20160504
"$fixture" vx16bin out="$d/e6050427.dat" blocks=70 date=2016-05-04 start=48600 freq=20 station=e
"$fixture" vx16txt out="$d/e6050428.txt" blocks=70 date=2016-05-04 start=50400 freq=20 station=e
"$fixture" tm4 out="$d/day's t.tm4" duration=1800 start=$((day4 + 18000)) station=ensholm rate=20
# The same recording twice: its samples are kept once.
mkdir -p "$src/copies"
cp "$src/2016/05/04/h10.vx24" "$src/copies/h10.vx24"
# Other values at the instants of h10.vx24: refused, as the later path.
"$fixture" vx24 out="$src/2016/05/04/x-conflict.vx24" station=4 seconds=$((day4 + 36000)) samples=200 wave=ramp
# Many small jobs of another station, so that a run can be killed among them.
for i in 00 01 02 03 04 05 06 07 08 09 10 11; do
    "$fixture" vx24 out="$src/2016/05/06/a$i.vx24" seconds=$((day4 + 2 * 86400 + 10#$i * 1800)) duration=1800 \
        wave=sine amp=500
done
printf 'vx24xx' > "$src/2016/broken.vx24"
echo "station notes" > "$src/README.txt"

# A second SOURCE: the same day file gains a recording, a new year begins,
# and one relative path is the same as in the first.
src2=$work/src2
ensholm_vx24 out="$src2/2016/05/04/h10.vx24" seconds=$((day4 + 72000)) duration=1800
ensholm_vx24 out="$src2/2017/01/01/h00.vx24" seconds=1483228800 duration=1800
"$fixture" tm4 out="$src2/2016/05/20160504/late.tm4" duration=600 start=$((day4 + 75600)) station=ensholm rate=20

recordings_of() { # recordings_of SOURCE: absolute paths, byte order
    (cd "$1" && find . -type f ! -name README.txt ! -name broken.vx24 | sed 's|^\./||' | sort) |
        awk -v s="$1/" '{ print s $0 }'
}
mapfile -t good < <(recordings_of "$src")
mapfile -t good2 < <(recordings_of "$src2")
check "21 recordings in the first SOURCE" [ "${#good[@]}" -eq 21 ]

# By hand: brantel --sds over the same files, one run per SOURCE (the first
# without --quiet, for its line on what the tree gained).
(cd "$work/run" && "$brantel" --sds "$work/ref" "${good[@]}" > "$work/ref.stdout" 2> "$work/ref.stderr")
check "by hand: the conflict ends with status 1" [ $? -eq 1 ]
cp -a "$work/ref" "$work/ref2"
(cd "$work/run" && "$brantel" --quiet --sds "$work/ref2" "${good2[@]}" > "$work/ref2.stdout" 2> "$work/ref2.stderr")
check "by hand: the second SOURCE is filed" [ $? -eq 0 ]

day_files() { # day_files TREE: relative paths of everything outside the tree's bookkeeping and report page
    (cd "$1" && find . -path ./.brantel-archive -prune -o -path ./report -prune -o -type f ! -path ./index.html -print |
        sed 's|^\./||' | sort)
}
same_day_files() { # same_day_files REF OUT: byte for byte
    [ "$(day_files "$1")" = "$(day_files "$2")" ] &&
        diff -r -x .brantel-archive -x index.html -x report "$1" "$2" >/dev/null
}
sds_names() { # sds_names TREE: every file is YEAR/NET/STA/CHAN.D/NET.STA.LOC.CHAN.D.YEAR.DOY
    [ -n "$(day_files "$1")" ] &&
        day_files "$1" | awk -F/ '
            NF != 5 { bad = 1; next }
            {
                chan = $4; sub(/\.D$/, "", chan)
                name = $2 "." $3 "." "[A-Z0-9]*" "." chan ".D." $1 ".[0-9][0-9][0-9]"
                if ($1 !~ /^[0-9][0-9][0-9][0-9]$/ || $4 !~ /^[A-Z0-9]+\.D$/ || $5 !~ ("^" name "$")) bad = 1
            }
            END { exit bad }'
}
samples() { # samples TREE DIR: the samples of every day file, as SAC files from an independent reader
    local files=()
    rm -rf "$2"
    mkdir -p "$2"
    mapfile -t files < <(day_files "$1")
    files=("${files[@]/#/$1/}")
    (cd "$2" && mseed2sac "${files[@]}" >/dev/null 2>&1)
    [ -n "$(ls "$2")" ]
}
same_samples() { # same_samples TREE1 TREE2
    samples "$1" "$work/samples1" && samples "$2" "$work/samples2" && diff -r "$work/samples1" "$work/samples2" >/dev/null
}
snapshot() { # snapshot TREE: every file with its inode, size and mtime
    (cd "$1" && find . -type f ! -name driver-lock -printf '%p %i %s %T@\n' | sort)
}
day_files_only() { # lines of a snapshot outside the bookkeeping and the report page, which every run rewrites
    grep -v -e '^\./\.brantel-archive/' -e '^\./index\.html ' -e '^\./report/'
}
no_temporary() { [ -z "$(find "$1" -name '.brantel-tmp.*')" ]; }
sds_line_of() { sed -n 's/^SDS: /brantel-archive: sds: /p' "$1"; }

# ---- a first run ---------------------------------------------------------------
out=$work/out
"$archive" --sds --jobs 2 "$src" "$out" -- --quiet > "$work/first.stdout" 2> "$work/first.stderr"
check "first run ends with status 1" [ $? -eq 1 ]
check "first run summary" grep -qx 'brantel-archive: 20 converted, 2 failed, 1 skipped' "$work/first.stdout"
check "first run says what the tree gained" grep -qxF "$(sds_line_of "$work/ref.stdout")" "$work/first.stdout"
check "sds line second" [ "$(sed -n 2p "$work/first.stdout" | cut -d: -f1,2)" = 'brantel-archive: sds' ]
check "conflict named" grep -q '^failed: 2016/05/04/x-conflict\.vx24: .*conflict' "$work/first.stdout"
check "damaged file named" grep -q '^failed: 2016/broken\.vx24: ' "$work/first.stdout"
book=$(echo "$out"/.brantel-archive/sources/src-*)
check "bookkeeping of the source" [ -f "$book/jobs" ]
check "report holds the conflict, tab-separated" grep -q $'^2016/05/04/x-conflict\\.vx24\t.*conflict' "$book/report"
check "only SDS day files outside the bookkeeping" sds_names "$out"
check "day files equal brantel --sds by hand" same_day_files "$work/ref" "$out"
check "a day of one station from several files" test -f "$out/2016/XX/REA1/BDF.D/XX.REA1..BDF.D.2016.125" \
    -a -f "$out/2016/XX/REA1/BDF.D/XX.REA1..BDF.D.2016.126"

# ---- a rerun changes nothing (--plot and no --quiet: no --restart needed) --------
# (--plot draws the quick-looks that are missing, in report/, beside the day
# files.)
before=$(snapshot "$out")
tree_before=$(day_files "$out" | (cd "$out" && xargs -d '\n' stat -c '%n %i %s %Y'))
"$archive" --sds --jobs 2 "$src" "$out" -- --plot > "$work/rerun.stdout" 2> "$work/rerun.stderr"
check "rerun ends with status 1" [ $? -eq 1 ]
check "rerun summary" grep -qx 'brantel-archive: 20 converted, 2 failed, 1 skipped' "$work/rerun.stdout"
check "rerun: nothing written" grep -qx 'brantel-archive: sds: 0 day files written, .*' "$work/rerun.stdout"
check "rerun: the conflict is still reported" grep -q '^failed: 2016/05/04/x-conflict\.vx24: .*conflict' "$work/rerun.stdout"
check "rerun touches no day file" \
    [ "$tree_before" = "$(day_files "$out" | (cd "$out" && xargs -d '\n' stat -c '%n %i %s %Y'))" ]
check "rerun touches no day file (mtimes to the nanosecond)" \
    [ "$(echo "$before" | day_files_only)" = "$(snapshot "$out" | day_files_only)" ]

# ---- refused before anything is written ---------------------------------------------
refused_alone() { # refused_alone OUTPUT DRIVER-ARGS...: status 1, one line, OUTPUT as before
    local o=$1 was
    shift
    was=$( [ -e "$o" ] && snapshot "$o")
    "$archive" "$@" > "$work/refused.stdout" 2> "$work/refused.stderr"
    local status=$?
    [ "$status" -eq 1 ] && [ "$(wc -l < "$work/refused.stderr")" -eq 1 ] && [ ! -s "$work/refused.stdout" ] &&
        if [ -n "$was" ]; then [ "$was" = "$(snapshot "$o")" ]; else [ ! -e "$o" ]; fi
}
for opts in -c -1 -2 -4 --average --amplitude --vxdat --slist --tspair --nrsamples --no-comments \
    '--sec-decimals 2' --sample-times --minutes --seconds-in-day '-s 1.0' '-l 10' '-n 2' -o '-z 0' '-u 2' -f \
    '--target-directory x' '--quiet --plot -c'; do
    # shellcheck disable=SC2086
    check "refused on a new OUTPUT: $opts" refused_alone "$work/new" --sds "$src" "$work/new" -- $opts
done
check "--per-directory refused" refused_alone "$work/new" --sds --per-directory "$src" "$work/new" -- --quiet
check "--per-directory message" \
    grep -qx 'brantel-archive: --sds cannot be used with --per-directory' "$work/refused.stderr"
check "-c refused on the tree" refused_alone "$out" --sds "$src" "$out" -- --quiet -c
check "other record length refused" refused_alone "$out" --sds "$src" "$out" -- --quiet --record-length 512
check "record length message names both" grep -q -- '--record-length 4096.*--record-length 512' "$work/refused.stderr"
check "other -z refused" refused_alone "$out" --sds "$src" "$out" -- --quiet -z 3
check "-z message" grep -q -- '-z' "$work/refused.stderr"

"$archive" "$src2" "$work/mirror" -- --quiet > /dev/null 2>&1
check "a mirror OUTPUT refused" refused_alone "$work/mirror" --sds "$src2" "$work/mirror" -- --quiet
check "an SDS tree refused to a mirror run" refused_alone "$out" "$src2" "$out" -- --quiet

# ---- a second driver on the tree is refused ------------------------------------------
hold_lock "$lock" "$out/.brantel-archive/driver-lock"
check "second driver refused" refused_alone "$out" --sds "$src" "$out" -- --quiet
check "second driver message" grep -q 'another brantel-archive is working on' "$work/refused.stderr"
release_lock

# ---- killed part way, then run again ------------------------------------------------------
out2=$work/out2
# Staging is quick: each job of the killed run lingers a little after its
# brantel, so that the kill falls among the jobs on a quiet machine too.
cat > "$work/bin dir/slow brantel" <<SLOW
#!/bin/bash
$(printf '%q' "$brantel") "\$@"
status=\$?
case " \$* " in *" --sds-stage "*) sleep 0.2 ;; esac
exit \$status
SLOW
chmod +x "$work/bin dir/slow brantel"
BRANTEL="$work/bin dir/slow brantel" setsid "$archive" --sds --jobs 2 "$src" "$out2" -- --quiet > /dev/null 2>&1 &
driver=$!
for _ in $(seq 1 1200); do
    [ "$(find "$out2/.brantel-archive/sources" -path '*/done/*' 2>/dev/null | wc -l)" -ge 4 ] && break
    sleep 0.05
done
# The driver leads its own session: end it and every job it started.
pkill -KILL -s "$driver"
wait "$driver" 2>/dev/null
check "killed run was part way" [ "$(find "$out2/.brantel-archive/sources" -path '*/done/*' | wc -l)" -lt 20 ]
"$archive" --sds --jobs 2 "$src" "$out2" -- --quiet > "$work/killed.stdout" 2>&1
check "rerun after a kill ends with status 1" [ $? -eq 1 ]
check "rerun after a kill summary" grep -qx 'brantel-archive: 20 converted, 2 failed, 1 skipped' "$work/killed.stdout"
check "rerun after a kill: the same day files" same_day_files "$work/ref" "$out2"
check "rerun after a kill leaves no temporary" no_temporary "$out2"

# ---- jobs on another host: a stand-in for ssh ------------------------------------------------
# As in the mirror mode's test: the remote side's job files go to a TMPDIR
# without a quote in its path.
ssh_tmp=$(mktemp -d)
trap '[ -n "${KEEP_WORK:-}" ] || rm -rf "$work" "$ssh_tmp"' EXIT
TMPDIR=$ssh_tmp "$archive" --sds --jobs 2 --ssh "$(printf '%q' "$here/local_ssh")" --sshlogin 2/stand-in \
    "$src" "$work/out3" -- --quiet > "$work/ssh.stdout" 2>&1
check "ssh run ends with status 1" [ $? -eq 1 ]
check "ssh run summary" grep -qx 'brantel-archive: 20 converted, 2 failed, 1 skipped' "$work/ssh.stdout"
check "ssh run: the same day files" same_day_files "$work/ref" "$work/out3"

# ---- a second SOURCE merges into the tree ---------------------------------------------------
facts_before=$(ls "$out/.brantel-archive/recordings" | wc -l)
"$archive" --sds --jobs 2 "$src2" "$out" -- --quiet > "$work/second.stdout" 2> "$work/second.stderr"
check "second SOURCE ends with status 0" [ $? -eq 0 ]
check "second SOURCE summary" grep -qx 'brantel-archive: 3 converted, 0 failed, 0 skipped' "$work/second.stdout"
check "each SOURCE's bookkeeping apart" [ "$(ls "$out/.brantel-archive/sources" | wc -l)" -eq 2 ]
check "second SOURCE: samples equal brantel --sds by hand" same_samples "$work/ref2" "$out"
check "a new year" [ -d "$out/2017" ]
check "still only SDS day files" sds_names "$out"
check "the facts of the first SOURCE stay" [ "$(ls "$out/.brantel-archive/recordings" | wc -l)" -gt "$facts_before" ]
before=$(snapshot "$out")
jobs_before=$(wc -l < "$book/joblog")
"$archive" --sds --jobs 2 "$src" "$out" -- --quiet > "$work/resume.stdout" 2>&1
# Only the two failures run again.
check "first SOURCE again: nothing converted again" [ "$(wc -l < "$book/joblog")" -eq $((jobs_before + 2)) ]
check "first SOURCE again: summary" grep -qx 'brantel-archive: 20 converted, 2 failed, 1 skipped' "$work/resume.stdout"
check "first SOURCE again: no day file changed" \
    [ "$(echo "$before" | day_files_only)" = "$(snapshot "$out" | day_files_only)" ]

# ---- --restart converts all again and loses nothing ------------------------------------------
samples "$out" "$work/samples.before" >/dev/null
facts_before=$(ls "$out/.brantel-archive/recordings" | wc -l)
"$archive" --sds --restart --jobs 2 "$src" "$out" -- --quiet > "$work/restart.stdout" 2>&1
check "restart ends with status 1" [ $? -eq 1 ]
check "restart converts all again" grep -qx 'brantel-archive: 20 converted, 2 failed, 1 skipped' "$work/restart.stdout"
check "restart: the first run's jobs ran again" [ "$(awk 'NR > 1' "$book/joblog" | wc -l)" -eq 22 ]
samples "$out" "$work/samples.after" >/dev/null
check "restart loses no sample and adds none" diff -r "$work/samples.before" "$work/samples.after"
check "restart keeps the tree's facts" [ "$(ls "$out/.brantel-archive/recordings" | wc -l)" -eq "$facts_before" ]
check "restart: the other SOURCE's bookkeeping stays" [ "$(ls "$out/.brantel-archive/sources" | wc -l)" -eq 2 ]
check "no temporary in the tree" no_temporary "$out"

finish_checks "brantel-archive --sds"
