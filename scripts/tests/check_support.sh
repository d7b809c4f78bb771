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
