// Process-wide settings of brantel: written by option parsing only, read by
// the conversion run, the conditioning steps and the writers.
#pragma once

#include <string>
#include <vector>

// Output layout.
enum OUTPUT_TYPE {
    OT_ONECOLUMN = 0,   // per channel a file of samples, plus time files
    OT_TWOCOLUMNS = 1,  // time and one channel
    OT_FOURCOLUMNS = 2, // time and all channels in one file (default)
    OT_AMPLITUDE = 3,   // time and the sum of the channels
    OT_AVERAGE = 4,     // time and the mean of the channels
    OT_VXDAT = 5,       // legacy dat file of 512-sample blocks
    OT_SLIST = 6,       // miniSEED ASCII SLIST
    OT_TSPAIR = 7,      // miniSEED ASCII TSPAIR
    OT_MSEED = 8,       // binary miniSEED 2 records, every channel in one file
    OT_LAST = 9         // end marker, never selected
};

// Unit of the time column, held in time_in_minutes.
enum {
    TIME_SECONDS = 0,      // seconds (default)
    TIME_MINUTES = 1,      // minutes instead of seconds
    TIME_SECONDS_DAY = 2,  // seconds of the day, [0, 86400)
    TIME_MINUTES_DAY = 3   // minutes of the day, [0, 1440)
};

// Length of fixed text buffers such as the comment line.
enum { STRLEN = 256 };

extern OUTPUT_TYPE output_type;
extern int time_in_minutes;
extern long sec_decimals; // negative: choose the time decimals automatically
extern long snippets;
extern long snippet_length; // 0: to the end of the data
extern long global_start_time; // seconds of the day; 0: start of file
extern int combine;
extern int remove_offset;
extern long upsample;
extern int need_filter;
extern long global_scale;
extern int quiet;
extern int debug;
extern int no_comment;
extern int nrsamples;
extern int plot; // also draw a PNG quick-look of every window
extern int _CRT_glob;
// First-generation recordings read as their users know them (--legacy).
extern int legacy;
// Station number for recordings that name none (--station); -1: none given.
extern int legacy_station;
// Each row's time from the series' own time axis instead of the running sum
// of the time step (--sample-times).
extern int sample_times;
extern int oldfiles;
extern int __reads;
extern char TZ[7];
extern const char* default_time_format;
// --target-directory: the directory that receives every output; null: beside
// the first input.
extern const char* target_directory;
// --identify: describe the named files instead of converting them.
extern int identify;
// --by-header (with --identify): only each file's kind, from its first bytes.
extern int identify_by_header;
// Network code of the binary miniSEED layout (--network), 1 or 2 characters.
extern std::string mseed_network;
// Length of its records in bytes (--record-length), a power of two.
extern long mseed_record_length;
// --sds: the top of the SDS archive that the recordings are filed into;
// null: no archive.
extern const char* sds_directory;
// --sds-stage RUN / --sds-merge RUN: only convert and stage the recordings
// for RUN's merge, or only merge what RUN staged; null: both in one go.
extern const char* sds_stage_run;
extern const char* sds_merge_run;
// --facts DIR: keep the facts of every converted recording in DIR's
// bookkeeping (DIR/.brantel-archive/recordings/), as an SDS archive keeps
// them, for the station metadata of a mirrored archive; null: keep none.
extern const char* facts_directory;
// --keep-going: a file that fails does not end the run; the next one is
// converted, each line of a failed file's messages is put after its path and
// ": ", and the run ends with status 1.
extern int keep_going;
// --done-list FILE: the path of every named file whose conversion ended well
// is appended to FILE as a line as soon as its outputs are complete, so that
// a script can resume a run that was killed; null: no list.
extern const char* done_list;
// --catalog DIR: keep the facts of every recording as read (whatever the
// layout and options) in DIR/.brantel-archive/catalog/, for the report page
// of a mirrored archive; null: keep none.
extern const char* catalog_directory;

// Restores every setting to its start-up default (for tests that parse
// several command lines in one process).
void reset_settings();
