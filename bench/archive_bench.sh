#!/bin/bash
# Speed of the archive driver on an archive of about a thousand recordings:
# 20 days, each day a folder of 48 comment-headed half-hours of one station
# and a one-day vx24 of another (20 Hz, three channels; 980 files, about
# 600 MB; no two recordings alike, so that --sds merges every one). Each run
# converts them to miniSEED: a plain shell loop of one brantel run per file,
# brantel-archive with --jobs 1 and --jobs 2, and brantel-archive --sds with
# --jobs 2, RUNS times, interleaved; medians are reported, with the ratios to
# the loop beside their goals. The archive is generated once and kept in
# bench-archive/ beside BRANTEL (the build folder; bench-archive.complete
# marks it whole). With
# BENCH_BASELINE_ARCHIVE naming another driver (an earlier one, say), that
# one is timed in the same rounds and its ratios printed too.
# Then the SDS tree against the mirror: the --sds run may take at most 1.5
# times as long as the mirror with --jobs 2 (status 1 if not).
#
#   archive_bench.sh BRANTEL_ARCHIVE BRANTEL BRANTEL_FIXTURE [RUNS]
set -eu
export LC_ALL=C
archive=$(readlink -f "$1")
brantel=$(readlink -f "$2")
fixture=$(readlink -f "$3")
runs=${4:-3}
baseline=${BENCH_BASELINE_ARCHIVE:+$(readlink -f "$BENCH_BASELINE_ARCHIVE")}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# ---- the archive (generated once) ---------------------------------------------
days=20
src=$(dirname "$brantel")/bench-archive
day0=1462060800 # 2016-05-01T00:00:00Z
if [ ! -f "$src.complete" ]; then
    echo "archive_bench: generating $days days of recordings in $src (once)" >&2
    rm -rf "$src"
    for d in $(seq 0 $((days - 1))); do
        start=$((day0 + d * 86400))
        date=$(date -u -d "@$start" +%Y-%m-%d)
        dir=$src/${date//-//}
        for i in $(seq 0 47); do
            "$fixture" vx16bin out="$dir/e${date:3:1}${date:5:2}${date:8:2}$(printf %02d "$i").dat" kind=S512 \
                freq=20 station=e date="$date" start=$((i * 1800)) blocks=70 pattern=sine amp=1000
        done
        "$fixture" vx24 out="$dir/day.vx24" station=0 seconds="$start" duration=86400 wave=sine amp=1000 noise=50
    done
    touch "$src.complete"
fi
(cd "$src" && find . -type f | sed 's|^\./||' | sort) > "$work/files"
files=$(wc -l < "$work/files")
megabytes=$(du -sm --apparent-size "$src" | cut -f1)

now() { date +%s.%N; }
plain_loop() (
    cd "$work/run"
    while IFS= read -r rel; do
        "$brantel" --quiet --mseed --target-directory "$work/out/${rel%/*}" "$src/$rel" >/dev/null 2>&1
    done < "$work/files"
)
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
converted() { # converted NAME: every recording has its miniSEED file
    [ "$(find "$work/out" -name '*.mseed' | wc -l)" -eq "$files" ] ||
        { echo "archive_bench: $1 did not convert every file" >&2; exit 1; }
}
filed() { # filed NAME: both stations' three channels on every day
    [ "$(find "$work/out" -path '*/BDF.D/*' -type f | wc -l)" -eq $((2 * 3 * days)) ] ||
        { echo "archive_bench: $1 did not write every day file" >&2; exit 1; }
}
mkdir -p "$work/run"
load_before=$(cut -d' ' -f1-3 /proc/loadavg)
for _ in $(seq 1 "$runs"); do
    time_one loop plain_loop
    converted "the plain loop"
    for driver in archive ${baseline:+baseline}; do
        program=${!driver}
        time_one "$driver-jobs1" "$program" --jobs 1 "$src" "$work/out" -- --quiet --mseed
        converted "$driver --jobs 1"
        time_one "$driver-jobs2" "$program" --jobs 2 "$src" "$work/out" -- --quiet --mseed
        converted "$driver --jobs 2"
        time_one "$driver-sds" "$program" --sds --jobs 2 "$src" "$work/out" -- --quiet
        filed "$driver --sds"
    done
done
load_after=$(cut -d' ' -f1-3 /proc/loadavg)
median() { grep "^$1 " "$work/times" | cut -d' ' -f2 | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
calc() { awk "BEGIN { print $1 }"; }
loop=$(median loop)
printf 'archive: %d recordings (%d days of 48 half-hours and a one-day vx24), %d MB, to miniSEED;\n' \
    "$files" "$days" "$megabytes"
printf '  medians of %d interleaved runs; load average before %s, after %s\n' "$runs" "$load_before" "$load_after"
printf '  plain loop of brantel runs       : %6.2f s\n' "$loop"
for driver in archive ${baseline:+baseline}; do
    [ "$driver" = baseline ] && printf '  the baseline driver (%s):\n' "$baseline"
    j1=$(median "$driver-jobs1")
    j2=$(median "$driver-jobs2")
    sds=$(median "$driver-sds")
    printf '  brantel-archive --jobs 1         : %6.2f s  %5.2fx the loop (goal: at least 0.9)\n' "$j1" "$(calc "$loop / $j1")"
    printf '  brantel-archive --jobs 2         : %6.2f s  %5.2fx the loop (goal: at least 1.7)\n' "$j2" "$(calc "$loop / $j2")"
    printf '  brantel-archive --sds --jobs 2   : %6.2f s  %5.2fx the loop (goal: at least 1.3)\n' "$sds" "$(calc "$loop / $sds")"
done
mirror=$(median archive-jobs2)
sds=$(median archive-sds)
ratio=$(calc "$sds / $mirror")
printf '  --sds / mirror, --jobs 2         : %6.2f    (at most 1.50)\n' "$ratio"
awk -v r="$ratio" 'BEGIN { exit !(r <= 1.5) }'
