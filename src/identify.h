// --identify: one tab-separated line per file on standard output, telling
// what kind of recording it is and what its header says, without converting.
//
//   path, kind, version, station, sample rate, start, channels, block length,
//   sample count
//
// Kinds: vx24, vx16-binary, vx16-text, tm4; "-" stands for a field the format
// does not have. A file whose first bytes are of the family but whose reader
// fails is "damaged" and its line ends with the reader's message instead of
// the header fields; a file whose first bytes are of no format of the family
// (no vx24 magic, no comment line of a comment-headed recording, no TM4 data
// line) is "not-a-recording". The classifying options of a conversion
// (--legacy, --station) apply: with them the first line of the oldest
// recorders ("Tidserier 18 2") heads a recording, and recordings that name no
// station take the station a conversion with the same options would give. The
// recording library describes each file
// (vxfil/header_description.h); this prints the lines.
//
// With --by-header only the path and the kind, told by the first bytes
// alone: a file is not read past them, so a recording damaged further on
// keeps its kind (its conversion tells of the damage). A file that cannot be
// opened is "damaged" with its message. The archive driver sorts the files
// of a large tree so, where reading each one whole would cost as much as
// converting it.
#pragma once

// Describes every file; returns the exit status: 1 when any file is damaged
// or not a recording, else 0.
int identify_files(int count, char **paths);
