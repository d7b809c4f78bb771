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
