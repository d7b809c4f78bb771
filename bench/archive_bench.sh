#!/bin/bash
# Overhead and throughput of the archive driver. One set of generated
# recordings (half-hour and one-day vx24 files, 20 Hz, three channels) is
# converted by a plain loop of brantel runs and by brantel-archive with
# --jobs 1 and --jobs 2, each RUNS times, interleaved; medians are reported.
# Then the SDS tree against the mirror: two days of half-hour recordings of
# one station and one-day recordings of another on the same days, filed by
# brantel-archive --sds and converted file by file with --mseed, both with
# --jobs 2; the SDS run may take at most 1.5 times as long (status 1 if not).
#
#   archive_bench.sh BRANTEL_ARCHIVE BRANTEL BRANTEL_FIXTURE [RUNS] [HALF_HOURS] [DAYS]
#
# Overhead per job: (driver with --jobs 1 - plain loop) / number of files.
# Throughput: recorded samples (per channel) per second of wall time.
set -eu
export LC_ALL=C
archive=$(readlink -f "$1")
brantel=$(readlink -f "$2")
fixture=$(readlink -f "$3")
runs=${4:-3}
half_hours=${5:-24}
days=${6:-2}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for i in $(seq 1 "$half_hours"); do
    "$fixture" vx24 out="$work/src/2016/05/04/h$(printf %02d "$i").vx24" duration=1800 wave=sine amp=1000 \
        seconds=$((1462320000 + i * 1800))
done
for i in $(seq 1 "$days"); do
    "$fixture" vx24 out="$work/src/2016/05/$(printf %02d "$((10 + i))")/day.vx24" duration=86400 wave=sine \
        amp=1000 seconds=$((1462924800 + i * 86400))
done
files=$((half_hours + days))
samples=$((half_hours * 36000 + days * 1728000))

now() { date +%s.%N; }
plain_loop() {
    mkdir -p "$work/run"
    (cd "$work/src" && find . -type f | sed 's|^\./||' | sort) | while read -r rel; do
        (cd "$work/run" && "$brantel" --quiet --target-directory "$work/out/$(dirname "$rel")" "$work/src/$rel" \
            >/dev/null 2>&1)
    done
}
time_one() { # time_one NAME COMMAND...
    local name=$1
    shift
    rm -rf "$work/out"
    local t0 t1
    t0=$(now)
    "$@" >/dev/null 2>&1 || true
    t1=$(now)
    awk -v n="$name" -v a="$t0" -v b="$t1" 'BEGIN { print n, b - a }' >> "$work/times"
}
for _ in $(seq 1 "$runs"); do
    time_one loop plain_loop
    time_one jobs1 "$archive" --jobs 1 "$work/src" "$work/out" -- --quiet
    time_one jobs2 "$archive" --jobs 2 "$work/src" "$work/out" -- --quiet
done
median() { grep "^$1 " "$work/times" | cut -d' ' -f2 | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
loop=$(median loop)
j1=$(median jobs1)
j2=$(median jobs2)
calc() { awk "BEGIN { print $1 }"; }
printf 'archive: %d files (%d half-hour, %d one-day), %d samples per channel, medians of %d interleaved runs\n' \
    "$files" "$half_hours" "$days" "$samples" "$runs"
printf '  plain loop of brantel runs : %6.2f s  %10.0f samples/s\n' "$loop" "$(calc "$samples / $loop")"
printf '  brantel-archive --jobs 1   : %6.2f s  %10.0f samples/s\n' "$j1" "$(calc "$samples / $j1")"
printf '  brantel-archive --jobs 2   : %6.2f s  %10.0f samples/s\n' "$j2" "$(calc "$samples / $j2")"
printf '  driver overhead per job    : %6.3f s  ((--jobs 1 - plain loop) / files)\n' \
    "$(calc "($j1 - $loop) / $files")"

# ---- SDS tree against the mirror -----------------------------------------------
for day in 0 1; do
    for i in $(seq 0 47); do
        "$fixture" vx24 out="$work/sds-src/2016/05/$((5 + day))/h$(printf %02d "$i").vx24" station=4 duration=1800 \
            wave=sine amp=1000 seconds=$((1462406400 + day * 86400 + i * 1800))
    done
    "$fixture" vx24 out="$work/sds-src/2016/05/$((5 + day))/day.vx24" station=0 duration=86400 wave=sine \
        amp=1000 seconds=$((1462406400 + day * 86400))
done
sds_files=$((2 * 48 + 2))
sds_samples=$((2 * 48 * 36000 + 2 * 1728000))
for _ in $(seq 1 "$runs"); do
    time_one mirror "$archive" --jobs 2 "$work/sds-src" "$work/out" -- --quiet --mseed
    [ "$(find "$work/out" -name '*.mseed' | wc -l)" -eq "$sds_files" ] ||
        { echo "archive_bench: the mirror run did not convert every file" >&2; exit 1; }
    time_one sds "$archive" --sds --jobs 2 "$work/sds-src" "$work/out" -- --quiet
    # Two stations of three channels on two days.
    [ "$(find "$work/out" -path '*/BDF.D/*' -type f | wc -l)" -eq 12 ] ||
        { echo "archive_bench: the --sds run did not write every day file" >&2; exit 1; }
done
mirror=$(median mirror)
sds=$(median sds)
ratio=$(calc "$sds / $mirror")
printf 'sds: %d files (96 half-hour of one station, 2 one-day of another), %d samples per channel, --jobs 2\n' \
    "$sds_files" "$sds_samples"
printf '  brantel-archive -- --mseed (mirror) : %6.2f s  %10.0f samples/s\n' "$mirror" "$(calc "$sds_samples / $mirror")"
printf '  brantel-archive --sds               : %6.2f s  %10.0f samples/s\n' "$sds" "$(calc "$sds_samples / $sds")"
printf '  sds / mirror                        : %6.2f    (at most 1.50)\n' "$ratio"
awk -v r="$ratio" 'BEGIN { exit !(r <= 1.5) }'
