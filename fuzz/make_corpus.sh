#!/usr/bin/env bash
# Rebuilds the seed corpora under fuzz/corpus/ from the fixture command and
# the small examples. Usage: fuzz/make_corpus.sh path/to/brantel-fixture
# Seeds stay small (a few KB each) so that the fuzzers mutate quickly.
set -euo pipefail
fixture=$(realpath "$1")
root=$(cd "$(dirname "$0")/.." && pwd)
out="$root/fuzz/corpus"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

rm -rf "$out"
for t in vx24 probe tm4 comment_reader vx16 comment_grammar file_name_date argument_list run station_table; do
  mkdir -p "$out/$t"
done

# Recordings of every format, small.
"$fixture" vx24 out=v1.vx24 samples=10
"$fixture" vx24 out=v2.vx24 channels=2 channel_numbers=0,2 samples=10
"$fixture" vx24 out=v3.vx24 samples=40 host_timestamp=1500000001
"$fixture" vx24 out=v4.vx24 rate=0 samples=4
"$fixture" vx24 out=v5.vx24 samples=0
"$fixture" vx24 out=v6.vx24 samples=200 wave=sine amp=300 offset=50
"$fixture" vx16bin out=b1.dat kind=S128 freq=18 gain=3 station=d date=2016-05-05 time=05:00:00 blocks=4 start=18000 pattern=ramp
"$fixture" vx16bin out=b2.dat kind=S512 freq=18 gain=2 station=e date=2016-05-04 time=13:30:00 blocks=1 start=48600 pattern=sine amp=200
"$fixture" vx16bin out=b3.dat kind=S128 freq=18 gain=2 station=e date=2016-05-04 time=13:30:00 blocks=6 start=48600 gaps=3:60 pattern=ramp
"$fixture" vx16bin out=b4.dat kind=T blocks=2 pattern=ramp
"$fixture" vx16bin out=b5.dat kind=U512 freq=18 gain=1 station=e date=2016-05-04 time=13:30:00 blocks=1 pattern=ramp
"$fixture" vx16txt out=t1.txt kind=S128 freq=18 gain=3 station=d date=2016-05-05 time=05:00:00 blocks=2 start=18000 pattern=ramp eol=crlf
"$fixture" vx16txt out=t2.txt kind=S128 freq=18 gain=2 station=e date=2016-05-04 time=13:30:00 blocks=1 start=48600 pattern=sine amp=200
"$fixture" tm4 out=m1.tm4 lines=20
"$fixture" tm4 out=m2.tm4 lines=10 channels=5
"$fixture" tm4 out=m3.tm4 lines=5 rate=4 comment_rate=unknown
"$fixture" tm4 out=m4.tm4 lines=1
head -c 1500 "$root/examples/tm4/dovmark_20170714_024000.tm4" > m5.tm4

seed() { # seed <target> <name> <prefix bytes as printf escapes> <file>
  { printf "$3"; cat "$4"; } > "$out/$1/$2"
}

for f in v*.vx24; do cp "$f" "$out/vx24/$f"; done
for f in v*.vx24 b*.dat t*.txt m*.tm4; do head -c 3072 "$f" > "$out/probe/$f"; done
for f in m*.tm4; do seed tm4 "$f" '\001' "$f"; done
for f in b*.dat t*.txt; do
  seed comment_reader "$f" '\000' "$f"
  seed comment_reader "$f.concat" '\011' "$f"
  seed vx16 "$f" '\000' "$f"
  seed vx16 "$f.base" '\005' "$f"
done
seed comment_reader b4.dat.old '\002' b4.dat

# Comment lines of the three grammars and a few broken ones.
for f in b*.dat t*.txt m*.tm4; do head -n 1 "$f" | tr -d '\r\n' > "$out/comment_grammar/$f"; done
printf '!S512Tidserier sampfrek: 18.000000 gain: 2 station: e date: 2016-05-04 time: 13:30:00' > "$out/comment_grammar/s512"
printf '!S128Tidserier sampfrek: 18 gain: 3 station: d date: 16-05-05 time: 05:00' > "$out/comment_grammar/short_date"
printf '!U512Tidserier sampfrek: 18 gain: 1 station: e date: 1462368600 time: 0' > "$out/comment_grammar/unix"

# Paths with dates in the directories and the name.
printf '2016/05/20160504/e6050427.dat' > "$out/file_name_date/tree"
printf '/archive/2017/12/20171231/z7123147.dat' > "$out/file_name_date/absolute"
printf 'd6050510.dat' > "$out/file_name_date/name_only"
printf 'e6050427.txt' > "$out/file_name_date/text"
printf '\001recording.dat' > "$out/file_name_date/no_date"

# Argument lists.
printf -- '-c\na.dat\n#note\nb.dat\n' > "$out/argument_list/list"
printf -- '-2\r\n\n--quiet\n$args\n' > "$out/argument_list/crlf_and_self"
printf -- '@missing\n-l\n100\n' > "$out/argument_list/missing"

# Station tables: plain, and as a spreadsheet saves them (byte-order mark,
# CRLF, quotes), with the optional column and open and closed rows.
header=network,station,location,latitude,longitude,elevation,depth,azimuth,dip,sensitivity,frequency,start,end,site
printf '%s\n' "$header" 'XX,REA1,,60.1,17.5,40,,,,0.0025,1,,2016-05-04T13:31:00Z,Old hut' \
  'XX,REA1,,60.2,17.6,41,0.5,,,0.005,1,2016-05-04T13:31:00Z,,' ',REA2,,60.3,17.7,42,,0,-90,0.0025,2,,,' \
  ',REA3,,60.4,17.8,43,,,,0.004,1,,,' > "$out/station_table/plain"
printf '\357\273\277%s,counts_per_volt\r\n' "$header" > "$out/station_table/spreadsheet"
printf '%s\r\n' ',REA1,,60.1,17.5,40,,,,0.0025,1,,,"Hut, ""north""",3276.8' \
  ',REA2,,60.2,17.5,40,,,,0.0025,1,2016-05-04T13:30:30.25Z,,,' ',REA3,,60.3,17.5,40,,,,0.0025,1,,,,' \
  >> "$out/station_table/spreadsheet"

# Conversion runs: six option bytes, then the recording. Byte 5 bits 3 to 5
# pick the input name (0 rec.vx24, 1 tree .dat, 2 .txt, 3 rec.tm4, 4 .dat);
# byte 4 with both low bits set picks the binary miniSEED layout.
seed run vx24_four '\002\000\000\000\000\000' v6.vx24
seed run vx24_vxdat_offset '\045\004\000\000\000\000' v6.vx24
seed run vx24_snippets '\001\000\310\202\000\000' v6.vx24
seed run vx24_avg_combined '\204\202\000\000\300\000' v3.vx24
seed run vx24_slist_minutes '\016\000\000\000\000\000' v2.vx24
seed run vx24_tspair_filter '\107\001\000\000\000\007' v6.vx24
seed run vx16_tree_one '\000\000\000\000\000\010' b2.dat
seed run vx16_amplitude '\003\000\000\000\000\040' b1.dat
seed run text_two_days '\031\000\000\000\000\020' t1.txt
seed run tm4_refused '\002\000\000\000\000\030' m1.tm4
seed run tm4_avg_two '\004\200\000\000\000\030' m2.tm4
seed run vx24_mseed '\002\000\000\000\003\000' v6.vx24
seed run vx24_mseed_combined_upsampled '\202\202\000\000\007\000' v3.vx24
seed run vx16_mseed_gap '\000\000\000\000\003\010' b3.dat
seed run tm4_mseed_snippets '\000\000\310\202\043\030' m1.tm4
du -sh "$out"
