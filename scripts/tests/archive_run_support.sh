# Sourced by the shell tests of the archive driver that take the arguments
#   BRANTEL_ARCHIVE BRANTEL BRANTEL_FIXTURE BRANTEL_LOCK BRANTEL_REPORT
# and the work folder's name (after mktemp's template) in WORK_NAME: sets
# archive, brantel, fixture, lock and report (absolute paths), work (a fresh folder
# with a blank in its name, removed at the end unless KEEP_WORK is set) with
# the programs copied into "$work/bin dir", and the check counter.
set -u
export LC_ALL=C
archive=$(readlink -f "$1")
brantel=$(readlink -f "$2")
fixture=$(readlink -f "$3")
lock=$(readlink -f "$4")
report=$(readlink -f "$5")
work=$(mktemp -d "${TMPDIR:-/tmp}/$WORK_NAME.XXXXXX")
trap '[ -n "${KEEP_WORK:-}" ] || rm -rf "$work"' EXIT
mkdir -p "$work/bin dir" "$work/run"
cp "$archive" "$brantel" "$lock" "$report" "$work/bin dir/"
archive="$work/bin dir/$(basename "$archive")"

. "$(dirname "${BASH_SOURCE[0]}")/check_support.sh"

run() { # run NAME DRIVER-ARGS...: stdout and stderr in $work/NAME.*, status in $status
    local name=$1
    shift
    "$archive" "$@" > "$work/$name.stdout" 2> "$work/$name.stderr" < /dev/null
    status=$?
}
