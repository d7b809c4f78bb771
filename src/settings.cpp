#include "settings.h"

OUTPUT_TYPE output_type;
int time_in_minutes;
long sec_decimals;
long snippets;
long snippet_length;
long global_start_time;
int combine;
int remove_offset;
long upsample;
int need_filter;
long global_scale;
int quiet;
int debug;
int no_comment;
int nrsamples;
int plot;
int _CRT_glob;
int legacy;
int legacy_station;
int sample_times;
int oldfiles = 0;
int __reads = 0;
char TZ[7] = "TZ=UTC";
const char* default_time_format;
const char* target_directory;
int identify;
int identify_by_header;
std::string mseed_network;
long mseed_record_length;
const char* sds_directory;
const char* sds_stage_run;
const char* sds_merge_run;
const char* facts_directory;
int keep_going;
const char* done_list;
const char* catalog_directory;

// The one list of defaults: applied once before main runs, and again by tests.
void reset_settings() {
    output_type = OT_FOURCOLUMNS;
    time_in_minutes = TIME_SECONDS;
    sec_decimals = -1;
    snippets = 1;
    snippet_length = 0;
    global_start_time = 0;
    combine = 0;
    remove_offset = 0;
    upsample = 0;
    need_filter = 0;
    global_scale = 1;
    quiet = 0;
    debug = 0;
    no_comment = 0;
    nrsamples = 0;
    plot = 0;
    _CRT_glob = 1;
    legacy = 0;
    legacy_station = -1;
    sample_times = 0;
    default_time_format = "%Y-%m-%d %H:%M:%S %Z";
    target_directory = nullptr;
    identify = 0;
    identify_by_header = 0;
    // "XX" is the network code for test and unregistered data.
    mseed_network = "XX";
    mseed_record_length = 4096;
    sds_directory = nullptr;
    sds_stage_run = nullptr;
    sds_merge_run = nullptr;
    facts_directory = nullptr;
    keep_going = 0;
    done_list = nullptr;
    catalog_directory = nullptr;
}

namespace {
const bool defaults_applied = (reset_settings(), true);
}
