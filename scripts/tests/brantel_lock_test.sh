#!/bin/bash
# brantel-lock: runs a command under a POSIX record lock, refuses at once
# while another process holds it, and passes on the command's status and the
# signals that end it.
#
#   brantel_lock_test.sh BRANTEL_LOCK
set -u
export LC_ALL=C
lock=$(readlink -f "$1")
work=$(mktemp -d "${TMPDIR:-/tmp}/brantel lock's.XXXXXX")
trap 'rm -rf "$work"' EXIT

. "$(cd "$(dirname "$0")" && pwd)/check_support.sh"
status_of() { # status_of EXPECTED COMMAND...
    local expected=$1
    shift
    "$@" > "$work/stdout" 2> "$work/stderr"
    [ $? -eq "$expected" ]
}

file="$work/the lock"
check "runs the command" status_of 0 "$lock" "$file" sh -c 'echo ran > "$1"' sh "$work/ran"
check "the command ran" grep -qx ran "$work/ran"
check "the file is created" test -f "$file"
check "the command's status" status_of 3 "$lock" "$file" sh -c 'exit 3'
check "usage without a command" status_of 125 "$lock" "$file"
check "usage line" grep -qx 'Usage: brantel-lock \[-q\] FILE COMMAND \[ARG\]...' "$work/stderr"
check "help on stdout" status_of 0 "$lock" --help
check "a file that can't be opened" status_of 125 "$lock" "$work/no such dir/lock" true
check "one line naming it" [ "$(wc -l < "$work/stderr")" -eq 1 ]
check "a command that isn't there" status_of 127 "$lock" "$file" "$work/no such program"

# Held by another process: refused at once with 75, with one line or none.
hold_lock "$lock" "$file"
start=$(date +%s)
check "held: status 75" status_of 75 "$lock" "$file" true
check "held: one line" grep -qx "brantel-lock: $file is locked by another process" "$work/stderr"
check "held: -q says nothing" status_of 75 "$lock" -q "$file" true
check "held: -q stderr empty" [ ! -s "$work/stderr" ]
check "held: no waiting" [ $(($(date +%s) - start)) -lt 2 ]
release_lock
check "free again after the command" status_of 0 "$lock" -q "$file" true

# SIGTERM to brantel-lock ends the command too, and the lock with it.
hold_lock "$lock" "$file"
kill -TERM "$lock_holder"
wait "$lock_holder"
check "signal passed on: status 128 + 15" [ $? -eq 143 ]
check "free after the signal" status_of 0 "$lock" -q "$file" true

echo "brantel-lock: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
