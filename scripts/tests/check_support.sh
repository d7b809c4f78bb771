# Sourced by the shell tests of the scripts: counts the checks that pass and
# names those that fail on standard error.
passed=0
failed=0
check() { # check DESCRIPTION COMMAND...
    local what=$1
    shift
    if "$@"; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
        echo "FAILED: $what" >&2
    fi
}

# finish_checks NAME: the counts; after a failure also the first lines of what
# each run printed ($work/*.stdout and *.stderr), for a failure seen only in a
# CI log. Status 0 when every check passed.
finish_checks() {
    echo "$1: $passed passed, $failed failed"
    if [ "$failed" -ne 0 ]; then
        local f
        for f in "$work"/*.stdout "$work"/*.stderr; do
            echo "--- ${f#"$work"/}"
            head -n 20 "$f"
        done
    fi
    [ "$failed" -eq 0 ]
}

# hold_lock LOCK FILE: a stand-in driver holds FILE's lock until release_lock.
# It returns only once the lock is held: the stand-in's command makes a mark
# that only a holder can make, so no probe ever competes with it for the lock.
hold_lock() {
    local lock_program=$1 file=$2
    local mark="$work/lock held"
    rm -f "$mark"
    "$lock_program" "$file" sh -c 'touch "$1"; exec sleep 600' sh "$mark" &
    lock_holder=$!
    while [ ! -e "$mark" ]; do
        kill -0 "$lock_holder" 2>/dev/null || { echo "hold_lock: the stand-in ended" >&2; return 1; }
        sleep 0.02
    done
}
release_lock() {
    kill "$lock_holder"  # passed on to the stand-in's command
    wait "$lock_holder" 2>/dev/null
}
