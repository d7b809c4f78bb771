#!/bin/bash
# brantel-archive --sds with -- --plot: one quick-look per recorder and UTC
# day in OUTPUT/report/quicklooks/NET.STA.LOC/YYYY-MM-DD.png, under the name
# of each element of the recorder. Pictures appear for every day of the tree;
# a rerun that changes nothing redraws nothing; a run that files samples of
# one day redraws that day alone; a run without --plot that changes a day
# removes its picture, and the next run with --plot draws it and the days
# that never had one; --plot added to a tree made without it draws every
# day. brantel --sds --plot without gnuplot is refused before anything is
# written.
#
#   brantel_archive_quicklooks_test.sh BRANTEL_ARCHIVE BRANTEL BRANTEL_FIXTURE BRANTEL_LOCK BRANTEL_REPORT
WORK_NAME="brantel archive quick-looks"
. "$(dirname "$0")/archive_run_support.sh"

# ---- the archive -------------------------------------------------------------
# Two vx24 recorders of three elements each: ensholm (station byte 4, codes
# REA1 to REA3) and arvola (station byte 1, RAA1 to RAA3), 20 Hz.
src=$work/src
day4=1462320000 # 2016-05-04T00:00:00Z
rec() { # rec NAME STATION SECONDS
    "$fixture" vx24 out="$src/$1.vx24" station="$2" seconds="$3" duration=600 wave=sine amp=1000 >/dev/null
}
rec 2016-05-04/e10 4 $((day4 + 36000))
rec 2016-05-05/e10 4 $((day4 + 86400 + 36000))
rec 2016-05-04/a10 1 $((day4 + 36000))

line_of() { # line_of NAME: the quick-looks line of a run
    sed -n 's/^brantel-archive: quick-looks: //p' "$work/$1.stdout"
}
pictures() { # pictures TREE: the pictures, relative to report/quicklooks
    [ -d "$1/report/quicklooks" ] || return 0
    (cd "$1/report/quicklooks" && find . -type f | sed 's|^\./||' | sort)
}
# The pictures that the day files call for: NET.STA.LOC/YYYY-MM-DD.png of
# every day file YEAR/NET/STA/CHAN.D/NET.STA.LOC.CHAN.D.YEAR.DOY.
expected_pictures() { # expected_pictures TREE
    (cd "$1" && find . -path ./.brantel-archive -prune -o -path ./report -prune -o -type f -name '*.D.*' -print) |
        while read -r f; do
            name=${f##*/}
            IFS=. read -r net sta loc chan d year doy <<< "$name"
            printf '%s.%s.%s/%s.png\n' "$net" "$sta" "$loc" "$(date -u -d "$year-01-01 +$((10#$doy - 1)) days" +%F)"
        done | sort -u
}
stamps() { # stamps TREE [PATTERN]: inode, size and mtime of each picture
    [ -d "$1/report/quicklooks" ] || return 0
    (cd "$1/report/quicklooks" && find . -type f -path "./${2:-*}" -printf '%p %i %s %T@\n' | sort)
}
all_png() { # all_png TREE: every picture is a PNG
    local f
    for f in $(pictures "$1"); do
        [ "$(head -c 8 "$1/report/quicklooks/$f" | od -An -tx1 | tr -d ' \n')" = 89504e470d0a1a0a ] || return 1
    done
}
one_picture_per_recorder_day() { # every element's name of a recorder's day is the same file
    local tree=$1 day
    for day in $(pictures "$tree" | sed 's|.*/||' | sort -u); do
        for recorder in REA RAA; do
            [ -e "$tree/report/quicklooks/XX.${recorder}1./$day" ] || continue
            [ "$(stat -c %i "$tree/report/quicklooks/XX.${recorder}"[123]./"$day" | sort -u | wc -l)" -eq 1 ] || return 1
        done
    done
}

# ---- --plot from the first run -----------------------------------------------------
tree=$work/tree
run first --sds "$src" "$tree" -- --plot
check "first: status 0" [ "$status" -eq 0 ]
check "first: one picture per recorder and day" [ "$(line_of first)" = "3 drawn, 0 failed" ]
check "first: a name for every element and day of the day files" \
    [ "$(pictures "$tree")" = "$(expected_pictures "$tree")" ]
check "first: nine names" [ "$(pictures "$tree" | wc -l)" -eq 9 ]
check "first: the names of a day of ensholm" [ "$(pictures "$tree" | grep 2016-05-04 | grep REA)" = \
    "$(printf 'XX.REA1./2016-05-04.png\nXX.REA2./2016-05-04.png\nXX.REA3./2016-05-04.png')" ]
check "first: PNG pictures" all_png "$tree"
check "first: the elements of a recorder share one picture" one_picture_per_recorder_day "$tree"
check "first: no temporary left" [ -z "$(find "$tree" -name '.brantel-tmp.*')" ]

before=$(stamps "$tree")
run rerun --sds "$src" "$tree" -- --plot
check "rerun: status 0" [ "$status" -eq 0 ]
check "rerun: nothing drawn" [ "$(line_of rerun)" = "0 drawn, 0 failed" ]
check "rerun: no picture touched" [ "$before" = "$(stamps "$tree")" ]

# A recording of ensholm's second day: that day alone is drawn again.
rec 2016-05-05/e12 4 $((day4 + 86400 + 43200))
run changed --sds "$src" "$tree" -- --plot
check "one day changed: status 0" [ "$status" -eq 0 ]
check "one day changed: one picture drawn" [ "$(line_of changed)" = "1 drawn, 0 failed" ]
check "one day changed: its names are new" [ "$(stamps "$tree" 'XX.REA?./2016-05-05.png')" != \
    "$(echo "$before" | grep 'XX.REA[123]\./2016-05-05.png')" ]
check "one day changed: the other days untouched" [ "$(stamps "$tree" | grep -v 'XX.REA[123]\./2016-05-05')" = \
    "$(echo "$before" | grep -v 'XX.REA[123]\./2016-05-05')" ]
check "one day changed: still one picture per recorder and day" one_picture_per_recorder_day "$tree"

# Without --plot: a changed day loses its picture, a new day gets none.
before=$(stamps "$tree")
rec 2016-05-04/e12 4 $((day4 + 43200))
rec 2016-05-06/e10 4 $((day4 + 2 * 86400 + 36000))
run noplot --sds "$src" "$tree"
check "without --plot: status 0" [ "$status" -eq 0 ]
check "without --plot: no quick-looks line" [ -z "$(line_of noplot)" ]
check "without --plot: the changed day's pictures removed, the others kept" \
    [ "$(stamps "$tree")" = "$(echo "$before" | grep -v 'XX.REA[123]\./2016-05-04')" ]
check "without --plot: the new day has none" [ -z "$(pictures "$tree" | grep 2016-05-06)" ]
run missing --sds "$src" "$tree" -- --plot
check "--plot again: the two days without a picture drawn" [ "$(line_of missing)" = "2 drawn, 0 failed" ]
check "--plot again: every day has its pictures" [ "$(pictures "$tree")" = "$(expected_pictures "$tree")" ]
check "--plot again: the others untouched" [ "$(stamps "$tree" | grep -v -e 'XX.REA[123]\./2016-05-04' -e 2016-05-06)" = \
    "$(echo "$before" | grep -v 'XX.REA[123]\./2016-05-04')" ]

# ---- --plot added to a tree made without it ------------------------------------------
tree2=$work/tree2
run plain --sds "$src" "$tree2"
check "made without --plot: no picture" [ -z "$(pictures "$tree2")" ]
run added --sds "$src" "$tree2" -- --plot
check "--plot added: status 0" [ "$status" -eq 0 ]
check "--plot added: no --restart needed, nothing filed" \
    grep -qx 'brantel-archive: sds: 0 day files written, .*' "$work/added.stdout"
check "--plot added: every recorder and day drawn" [ "$(line_of added)" = "4 drawn, 0 failed" ]
check "--plot added: a name for every element and day" [ "$(pictures "$tree2")" = "$(expected_pictures "$tree2")" ]
check "--plot added: the same pictures as a tree drawn all along" \
    diff -r "$tree/report/quicklooks" "$tree2/report/quicklooks"

# ---- without gnuplot ------------------------------------------------------------------
# A PATH of every program but gnuplot.
mkdir -p "$work/no gnuplot"
for f in /usr/local/bin/* /usr/bin/* /bin/*; do
    name=${f##*/}
    [ "$name" = gnuplot ] || [ -e "$work/no gnuplot/$name" ] || ln -s "$f" "$work/no gnuplot/$name"
done
rec 2016-05-07/e10 4 $((day4 + 3 * 86400 + 36000))
before=$(cd "$tree" && find . -printf '%p %i %s %T@\n' | sort)
PATH=$work/no\ gnuplot run nognuplot_driver --sds "$src" "$tree" -- --plot
check "driver without gnuplot: status 1" [ "$status" -eq 1 ]
check "driver without gnuplot: one line" [ "$(cat "$work/nognuplot_driver.stderr")" = \
    "brantel-archive: --plot needs gnuplot, which is not on the PATH; install it (Debian: apt-get install gnuplot-nox)" ]
check "driver without gnuplot: nothing written" [ "$before" = "$(cd "$tree" && find . -printf '%p %i %s %T@\n' | sort)" ]

# brantel --sds --plot by hand.
mkdir -p "$work/empty"
(cd "$work/run" && PATH=$work/empty "$brantel" --sds "$work/tree3" --plot "$src/2016-05-04/e10.vx24" \
    > "$work/nognuplot.stdout" 2> "$work/nognuplot.stderr")
check "no gnuplot: status 1" [ $? -eq 1 ]
check "no gnuplot: one line" [ "$(cat "$work/nognuplot.stderr")" = \
    "Error: --plot needs gnuplot, which is not on the PATH; install it (Debian: apt-get install gnuplot-nox)" ]
check "no gnuplot: nothing written" [ ! -e "$work/tree3" ]
# By hand with gnuplot: the run's own merge draws.
(cd "$work/run" && "$brantel" --quiet --sds "$work/tree3" --plot "$src/2016-05-04/e10.vx24" > "$work/hand.stdout" 2>&1)
check "by hand: status 0" [ $? -eq 0 ]
check "by hand: the day's pictures" [ "$(pictures "$work/tree3")" = \
    "$(printf 'XX.REA1./2016-05-04.png\nXX.REA2./2016-05-04.png\nXX.REA3./2016-05-04.png')" ]

echo "$passed checks passed, $failed failed"
[ "$failed" -eq 0 ]
