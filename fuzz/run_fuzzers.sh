#!/usr/bin/env bash
# Runs every fuzz target for a while on a copy of its seed corpus.
# Usage: fuzz/run_fuzzers.sh <build-dir> <seconds per target> [target...]
# Each target works in a fresh temporary directory, so the seeds in the
# repository are never written. A crash, a sanitizer report, a hang beyond
# 10 s or more than 2 GB of memory fails the run; the input that caused it is
# kept under <build-dir>/fuzz-artifacts/. FUZZ_EXTRA adds libFuzzer options
# (e.g. -runs=10000000).
set -uo pipefail
build=$(realpath "$1")
seconds=$2
shift 2
root=$(cd "$(dirname "$0")/.." && pwd)
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in "$build"/fuzz/fuzz_*; do targets+=("$(basename "$f")"); done
fi
artifacts="$build/fuzz-artifacts"
mkdir -p "$artifacts"

failed=()
for t in "${targets[@]}"; do
  name=${t#fuzz_}
  work=$(mktemp -d)
  mkdir -p "$work/corpus"
  if [ -d "$root/fuzz/corpus/$name" ]; then cp -r "$root/fuzz/corpus/$name/." "$work/corpus/"; fi
  echo "== $t: ${seconds}s"
  (cd "$work" && TMPDIR="$work" "$build/fuzz/$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -max_len=16384 ${FUZZ_EXTRA:-} -close_fd_mask=3 -print_final_stats=1 -artifact_prefix="$artifacts/$t-" "$work/corpus" \
      > "$work/log" 2>&1)
  rc=$?
  grep -E '^stat::number_of_executed_units|^stat::peak_rss_mb|^#[0-9]+.*DONE' "$work/log" | sed "s/^/   /"
  if [ $rc -ne 0 ]; then
    failed+=("$t")
    tail -n 60 "$work/log"
  fi
  rm -rf "$work"
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzzing found problems in: ${failed[*]} (inputs in $artifacts)"
  exit 1
fi
echo "fuzzing: no problems found"
