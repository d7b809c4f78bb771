#!/bin/bash
# The archive driver on a generated archive: 65 recordings of every format in
# nested dated directories, with damaged and foreign files and one clashing
# pair among them. Its outputs must equal direct conversions byte for byte;
# a second run converts nothing again; a run killed part way (the driver and
# all its jobs) and run again ends complete with no stray file; changed
# options are refused; a run through a stand-in for ssh gives the same
# outputs, and jobs that a remote host never ran are failures run again;
# --per-directory equals combined direct runs.
#
#   brantel_archive_test.sh BRANTEL_ARCHIVE BRANTEL BRANTEL_FIXTURE BRANTEL_LOCK BRANTEL_REPORT
WORK_NAME="brantel archive's"
. "$(dirname "$0")/archive_run_support.sh"
here=$(cd "$(dirname "$0")" && pwd)
src=$work/src

# ---- the archive -------------------------------------------------------------
for day in 01 02 03 04 05 06 07 08 09 10 11 12 13; do
    d=$src/2016/05/201605$day
    start=$((1462060800 + (10#$day - 1) * 86400))
    "$fixture" vx24 out="$d/a.vx24" samples=400 seconds=$start wave=sine
    "$fixture" vx24 out="$d/b.vx24" samples=300 version=2 seconds=$((start + 1800))
    "$fixture" vx16bin out="$d/e605${day}27.dat" blocks=2 date=2016-05-$day time=13:30:00
    "$fixture" vx16txt out="$d/e605${day}28.dat" blocks=2 date=2016-05-$day time=14:00:00
    "$fixture" tm4 out="$d/day's t.tm4" lines=200 start=$((start + 3600))
done
printf 'vx24xx' > "$src/2016/05/20160503/broken.vx24"
printf '!S512Tidserier sampfrek: 18.0 gain: 2 station: e\r123' > "$src/2016/05/20160504/e6050499.dat"
echo "station notes" > "$src/README.txt"
printf 'a,b\n1,2\n' > "$src/2016/notes.csv"
"$fixture" vx24 out="$src/2016/05/20160505/x.vx24" samples=50
"$fixture" vx16bin out="$src/2016/05/20160505/x.dat" blocks=1

# Direct conversions, one run per recording, into ref/.
mkdir -p "$work/run"
(cd "$src" && find . -type f \( -name '*.vx24' -o -name '*.dat' -o -name '*.tm4' \) | sed 's|^\./||' | sort) |
    grep -v -e broken -e e6050499 -e /x\\. > "$work/good"
while read -r rel; do
    (cd "$work/run" && "$brantel" --quiet --target-directory "$work/ref/$(dirname "$rel")" "$src/$rel" >/dev/null 2>&1)
done < "$work/good"
check "65 recordings to convert" [ "$(wc -l < "$work/good")" -eq 65 ]

same_outputs() { # same_outputs REF OUT: the report page aside
    diff -r -x .brantel-archive -x index.html -x report "$1" "$2" >/dev/null
}
no_stray_file() { # no_stray_file OUT
    [ -z "$(find "$1" -name '.brantel-tmp.*')" ]
}

# ---- a first run ---------------------------------------------------------------
"$archive" --jobs 2 "$src" "$work/out1" -- --quiet > "$work/out1.stdout" 2> "$work/out1.stderr"
status=$?
check "first run ends with status 1" [ "$status" -eq 1 ]
check "first run summary" grep -qx 'brantel-archive: 65 converted, 4 failed, 2 skipped' "$work/out1.stdout"
check "outputs equal direct conversions" same_outputs "$work/ref" "$work/out1"
check "damaged vx24 named" grep -qx 'failed: 2016/05/20160503/broken.vx24: failed with no message' "$work/out1.stdout"
check "damaged vx16 named with its message" grep -qx 'failed: 2016/05/20160504/e6050499.dat: fread: EOF ' "$work/out1.stdout"
check "clash listed" grep -qx 'failed: 2016/05/20160505/x.dat: output clashes with 2016/05/20160505/x.vx24' "$work/out1.stdout"
check "report holds the failures" [ "$(wc -l < "$work/out1/.brantel-archive/report")" -eq 4 ]
check "report is tab-separated" grep -qP '^2016/05/20160504/e6050499.dat\tfread: EOF $' "$work/out1/.brantel-archive/report"
check "skipped files listed" diff <(printf '2016/notes.csv\nREADME.txt\n') "$work/out1/.brantel-archive/skipped"
check "nothing but outputs and the report page outside the bookkeeping" \
    [ -z "$(find "$work/out1" -path "$work/out1/.brantel-archive" -prune -o -path "$work/out1/report" -prune -o \
        -type f ! -name '*.tm4' ! -path "$work/out1/index.html" -print)" ]
check "the report page is written" [ -s "$work/out1/index.html" ]
check "the summary names the report page" grep -qx "brantel-archive: report: $work/out1/index.html" "$work/out1.stdout"
check "the report line follows the counts" \
    [ "$(sed -n 2p "$work/out1.stdout")" = "brantel-archive: report: $work/out1/index.html" ]

# ---- a second run converts nothing again --------------------------------------
before=$(find "$work/out1" -name '*.tm4' -printf '%p %i %T@\n' | sort)
ok_before=$(awk -F'\t' 'NR > 1 && $7 == 0' "$work/out1/.brantel-archive/joblog" | wc -l)
"$archive" --jobs 2 "$src" "$work/out1" -- --quiet > "$work/out1b.stdout" 2>&1
check "second run ends with status 1" [ $? -eq 1 ]
check "second run touches no output" [ "$before" = "$(find "$work/out1" -name '*.tm4' -printf '%p %i %T@\n' | sort)" ]
check "second run converts nothing" \
    [ "$ok_before" -eq "$(awk -F'\t' 'NR > 1 && $7 == 0' "$work/out1/.brantel-archive/joblog" | wc -l)" ]

# ---- a file added since becomes a new job -----------------------------------------
"$fixture" vx24 out="$src/2016/05/20160514/late.vx24" samples=100
"$archive" "$src" "$work/out1" -- --quiet > "$work/out1c.stdout" 2>&1
check "added file converted" grep -qx 'brantel-archive: 66 converted, 4 failed, 2 skipped' "$work/out1c.stdout"
(cd "$work/run" && "$brantel" --quiet --target-directory "$work/ref/2016/05/20160514" "$src/2016/05/20160514/late.vx24" >/dev/null 2>&1)

# ---- changed options are refused without --restart -------------------------------
"$archive" "$src" "$work/out1" -- --quiet -2 > /dev/null 2> "$work/changed.stderr"
check "changed options refused" [ $? -eq 1 ]
check "changed options message" grep -q 'converted with other settings; give --restart' "$work/changed.stderr"
check "refused run touches no output" [ "$before" = "$(find "$work/out1" -name '*.tm4' ! -name late.tm4 -printf '%p %i %T@\n' | sort)" ]

# ---- a second driver on the same OUTPUT waits for none -----------------------------
hold_lock "$lock" "$work/out1/.brantel-archive/driver-lock"
"$archive" "$src" "$work/out1" -- --quiet > /dev/null 2> "$work/locked.stderr"
check "locked OUTPUT refused" [ $? -eq 1 ]
check "lock message" grep -q 'another brantel-archive is working on' "$work/locked.stderr"
release_lock

mkdir -p "$work/other bin"
printf '#!/bin/sh\necho "parallel: another program"\n' > "$work/other bin/parallel"
chmod +x "$work/other bin/parallel"
PATH="$work/other bin:$PATH" "$archive" "$src" "$work/out9" -- --quiet > /dev/null 2> "$work/other.stderr"
check "another parallel refused" [ $? -eq 1 ]
check "another parallel named" \
    diff <(echo 'brantel-archive: needs GNU parallel (Debian package parallel) on the PATH') "$work/other.stderr"
check "refused run writes nothing" [ ! -e "$work/out9" ]

refused_inside() { ! "$archive" "$src" "$src/out" 2>/dev/null; }
check "OUTPUT inside SOURCE refused" refused_inside

# ---- killed part way, then run again ------------------------------------------------
setsid "$archive" --jobs 2 "$src" "$work/out2" -- --quiet > /dev/null 2>&1 &
driver=$!
for _ in $(seq 1 600); do
    [ "$(find "$work/out2" -name '*.tm4' 2>/dev/null | wc -l)" -ge 12 ] && break
    sleep 0.05
done
# The driver leads its own session: end it and every job it started.
pkill -KILL -s "$driver"
wait "$driver" 2>/dev/null
check "killed run was part way" [ "$(find "$work/out2" -name '*.tm4' | wc -l)" -lt 66 ]
"$archive" --jobs 2 "$src" "$work/out2" -- --quiet > "$work/out2.stdout" 2>&1
check "rerun after a kill ends with status 1" [ $? -eq 1 ]
check "rerun after a kill is complete" same_outputs "$work/ref" "$work/out2"
check "rerun after a kill leaves no stray file" no_stray_file "$work/out2"
check "rerun summary" grep -qx 'brantel-archive: 66 converted, 4 failed, 2 skipped' "$work/out2.stdout"

# ---- --restart with other options --------------------------------------------------
"$archive" --restart "$src" "$work/out2" -- --quiet --sec-decimals 2 > /dev/null 2>&1
check "restart runs everything again" \
    grep -q '^[0-9.]*[0-9]\.[0-9][0-9] ' "$work/out2/2016/05/20160501/a.tm4"

# ---- several machines: a stand-in for ssh --------------------------------------------
# --ssh takes a shell command line, as GNU parallel's option does: the
# stand-in's path is quoted within it.
# The remote side's job files go to its TMPDIR; GNU parallel quotes that path
# with plain single quotes, so it gets a folder of its own without a quote.
ssh_tmp=$(mktemp -d)
trap '[ -n "${KEEP_WORK:-}" ] || rm -rf "$work" "$ssh_tmp"' EXIT
ssh_run() { # ssh_run NAME: converts into $work/out3
    TMPDIR=$ssh_tmp "$archive" --jobs 2 --ssh "$(printf '%q' "$here/local_ssh")" --sshlogin 2/stand-in "$src" "$work/out3" -- --quiet \
        > "$work/$1.stdout" 2>&1
}
# On a host whose logins have no SHELL, GNU parallel's remote jobs run nothing
# and end with status 0: the driver counts them as failures, and the next run
# converts them.
LOCAL_SSH_WITHOUT_SHELL=1 ssh_run out3-no-shell
check "jobs that never ran end with status 1" [ $? -eq 1 ]
check "jobs that never ran are failures" grep -qx 'brantel-archive: 0 converted, 70 failed, 2 skipped' "$work/out3-no-shell.stdout"
check "a job that never ran named" \
    grep -qx "failed: 2016/05/20160501/day's t.tm4: ended with status 0 but never ran (no SHELL on the host?)" \
    "$work/out3-no-shell.stdout"
check "jobs that never ran wrote nothing" [ -z "$(find "$work/out3" -name '*.tm4')" ]
ssh_run out3
check "ssh run ends with status 1" [ $? -eq 1 ]
check "ssh run summary" grep -qx 'brantel-archive: 66 converted, 4 failed, 2 skipped' "$work/out3.stdout"
check "ssh run gives the same outputs" same_outputs "$work/ref" "$work/out3"

# ---- one combined run per directory ------------------------------------------------------
"$archive" --per-directory "$src" "$work/out4" -- --quiet > "$work/out4.stdout" 2>&1
(cd "$src" && find . -type f | sed 's|^\./||' | sort) > "$work/all"
grep -v -e broken -e e6050499 -e README -e notes "$work/all" | sed 's|/[^/]*$||' | uniq |
    while read -r dir; do
        files=()
        while read -r f; do files+=("$src/$f"); done < <(grep "^$dir/[^/]*$" "$work/all" | grep -v -e notes)
        (cd "$work/run" && "$brantel" --quiet -c --target-directory "$work/ref4/$dir" "${files[@]}" >/dev/null 2>&1)
    done
check "per-directory outputs equal combined direct runs" same_outputs "$work/ref4" "$work/out4"

finish_checks "brantel-archive"
