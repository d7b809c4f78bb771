#!/bin/bash
# The archive driver's batches: many recordings converted by one brantel run.
# A damaged recording in the middle of a batch is reported with its own
# message, exactly as a run on it alone prints it, and the other recordings
# of the batch are converted as they would be alone (mirror and --sds). A
# batch killed part way is resumed without converting a finished recording
# again, and loses none.
#
#   brantel_archive_batch_test.sh BRANTEL_ARCHIVE BRANTEL BRANTEL_FIXTURE BRANTEL_LOCK BRANTEL_REPORT
WORK_NAME="brantel archive's batches"
. "$(dirname "$0")/archive_run_support.sh"

# ---- a damaged recording in the middle of a batch ------------------------------
# Twelve recordings of one directory; with --jobs 1 the driver makes batches
# of four, so the two damaged ones are each in the middle of one.
src=$work/src
d=$src/2016/05/04
day=1462320000
for i in 01 02 04 05 07 08 09 10 11 12; do
    "$fixture" vx24 out="$d/r$i.vx24" station=4 wave=sine amp=1000 seconds=$((day + 10#$i * 1800)) duration=600
done
# Its reader ends without a message.
printf 'vx24xx' > "$d/r03.vx24"
# A comment-headed recording cut short in its first block.
printf '!S512Tidserier sampfrek: 20 gain: 2 station: e date: 2016-05-04 time: 03:00:00\r12' > "$d/r06.dat"

"$archive" --jobs 1 "$src" "$work/out" -- --quiet > "$work/mirror.stdout" 2> "$work/mirror.stderr"
check "damaged recordings: status 1" [ $? -eq 1 ]
book=$work/out/.brantel-archive
check "damaged recordings: summary" grep -qx 'brantel-archive: 10 converted, 2 failed, 0 skipped' "$work/mirror.stdout"
(cd "$work/run" && "$brantel" --quiet --target-directory "$work/alone" "$d/r06.dat" > /dev/null 2> "$work/r06.alone")
last=$(grep -v '^$' "$work/r06.alone" | tail -n 1)
check "the damaged recording's message is its own" [ -n "$last" ]
check "the damaged recording is reported with it" grep -qxF "failed: 2016/05/04/r06.dat: $last" "$work/mirror.stdout"
check "one without a message is reported so" \
    grep -qx 'failed: 2016/05/04/r03.vx24: failed with no message' "$work/mirror.stdout"
check "report: two failures" [ "$(wc -l < "$book/report")" -eq 2 ]
check "its messages are those of a run on it alone" diff "$work/r06.alone" "$book/messages/6"
check "no message of another recording kept" [ "$(ls "$book/messages")" = "$(printf '3\n6')" ]
# brantel's run log in the bookkeeping folder has a line per run.
check "the batches: three brantel runs" [ "$(grep -c -- --done-list "$book/logfile")" -eq 3 ]
check "the job log: a line per recording" [ "$(awk 'NR > 1' "$book/joblog" | wc -l)" -eq 12 ]
check "the job log: two failures" [ "$(awk -F'\t' 'NR > 1 && $7 != 0' "$book/joblog" | cut -f9 | tr '\n' ' ')" = \
    "2016/05/04/r03.vx24 2016/05/04/r06.dat " ]
for i in 01 02 04 05 07 08 09 10 11 12; do
    (cd "$work/run" && "$brantel" --quiet --target-directory "$work/ref/2016/05/04" "$d/r$i.vx24" > /dev/null 2>&1)
done
check "the other recordings converted as alone" diff -r -x .brantel-archive -x index.html -x report "$work/ref" "$work/out"
check "no batch left behind" [ -z "$(ls -A "$book/batches")" ]
"$archive" --jobs 1 "$src" "$work/out" -- --quiet > "$work/again.stdout" 2>&1
check "run again: only the failures run again" [ "$(awk 'NR > 1' "$book/joblog" | wc -l)" -eq 14 ]
check "run again: the same report" diff <(grep '^failed' "$work/mirror.stdout") <(grep '^failed' "$work/again.stdout")

# The same archive into an SDS tree: the staging goes on past the damaged
# recordings, which are reported with their messages.
"$archive" --sds --jobs 1 "$src" "$work/sds" -- --quiet > "$work/sds.stdout" 2>&1
check "--sds: status 1" [ $? -eq 1 ]
check "--sds: summary" grep -qx 'brantel-archive: 10 converted, 2 failed, 0 skipped' "$work/sds.stdout"
check "--sds: the damaged recording is reported with its message" \
    grep -qxF "failed: 2016/05/04/r06.dat: $last" "$work/sds.stdout"
check "--sds: one without a message is reported so" \
    grep -qx 'failed: 2016/05/04/r03.vx24: failed with no message' "$work/sds.stdout"
"$brantel" --quiet --sds "$work/sds-ref" "$d"/r*.vx24 > /dev/null 2>&1
same_day_files() {
    diff -r -x .brantel-archive -x index.html -x report "$work/sds-ref" "$work/sds" > /dev/null
}
check "--sds: the same day files as brantel --sds by hand" same_day_files

# ---- a batch killed part way -------------------------------------------------------
# A stand-in for brantel that converts a batch's first two recordings with
# the real one (the same options and done list) and then, instead of going
# on, says so and waits to be killed, as a brantel killed while converting
# the third would leave the batch; the test then kills the driver and all
# its jobs. (Stopping the real brantel once its done list holds two lines
# raced with it: it converts an hour's recording in a few milliseconds.)
src2=$work/src2
for i in 01 02 03 04 05 06 07 08 09 10 11 12; do
    "$fixture" vx24 out="$src2/2016/05/05/h$i.vx24" station=4 wave=sine amp=1000 seconds=$((day + 86400 + 10#$i * 3600)) \
        duration=3600
done
stopped=$work/stopped
cat > "$work/bin dir/stopping brantel" <<STOPPING
#!/bin/bash
# The recordings follow --target-directory DIR, the last option the driver gives.
args=("\$@")
first=
for ((k = 0; k < \${#args[@]}; ++k)); do
    [ "\${args[k]}" = --target-directory ] && first=\$((k + 2))
done
if [ -z "\$first" ] || [ -e $(printf '%q' "$stopped") ]; then
    exec $(printf '%q' "$brantel") "\$@"
fi
$(printf '%q' "$brantel") "\${args[@]:0:first + 2}"
: > $(printf '%q' "$stopped")
while :; do sleep 1; done
STOPPING
chmod +x "$work/bin dir/stopping brantel"
BRANTEL="$work/bin dir/stopping brantel" setsid "$archive" --jobs 1 "$src2" "$work/out2" -- --quiet \
    > /dev/null 2>&1 &
driver=$!
for _ in $(seq 1 1200); do
    [ -e "$stopped" ] && break
    sleep 0.05
done
# The driver leads its own session: end it and every job it started.
pkill -KILL -s "$driver"
wait "$driver" 2>/dev/null
book2=$work/out2/.brantel-archive
check "the batch was stopped" [ -e "$stopped" ]
# What the killed batch's brantel run had finished.
cat "$book2"/batches/*.done 2>/dev/null | sed "s|^$src2/||" | sort > "$work/finished"
check "killed part way: some recordings finished" [ "$(wc -l < "$work/finished")" -ge 2 ]
check "killed part way: the batch was not" [ "$(wc -l < "$work/finished")" -lt 4 ]
outputs() { # outputs: each finished recording's output with its inode and time
    while read -r rel; do
        stat -c '%n %i %Y.%y' "$work/out2/${rel%.vx24}.tm4"
    done < "$work/finished"
}
before=$(outputs)
"$archive" --jobs 1 "$src2" "$work/out2" -- --quiet > "$work/resumed.stdout" 2>&1
check "resumed: status 0" [ $? -eq 0 ]
check "resumed: all converted" grep -qx 'brantel-archive: 12 converted, 0 failed, 0 skipped' "$work/resumed.stdout"
awk -F'\t' 'NR > 1 { print $9 }' "$book2/joblog" | sort > "$work/rerun"
check "resumed: no finished recording converted again" [ -z "$(comm -12 "$work/finished" "$work/rerun")" ]
check "resumed: every other one converted" \
    diff <(cd "$src2" && find . -type f | sed 's|^\./||' | sort) <(sort "$work/finished" "$work/rerun")
check "resumed: the finished outputs untouched" [ "$before" = "$(outputs)" ]
for i in 01 02 03 04 05 06 07 08 09 10 11 12; do
    (cd "$work/run" && "$brantel" --quiet --target-directory "$work/ref2/2016/05/05" "$src2/2016/05/05/h$i.vx24" \
        > /dev/null 2>&1)
done
check "resumed: outputs equal direct conversions" diff -r -x .brantel-archive -x index.html -x report "$work/ref2" "$work/out2"
check "resumed: no temporary left" [ -z "$(find "$work/out2" -name '.brantel-tmp.*')" ]

finish_checks "brantel-archive batches"
