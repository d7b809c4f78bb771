#include "settings.h"

OUTPUT_TYPE output_type = OT_FOURCOLUMNS;
int time_in_minutes = TIME_SECONDS;
long sec_decimals = -1;
long snippets = 1;
long snippet_length = 0;
long global_start_time = 0;
int combine = 0;
int remove_offset = 0;
long upsample = 0;
int need_filter = 0;
long global_scale = 1;
int quiet = 0;
int debug = 0;
int no_comment = 0;
int nrsamples = 0;
int _CRT_glob = 1;
int oldfiles = 0;
int __reads = 0;
char TZ[7] = "TZ=UTC";
const char* default_time_format = "%Y-%m-%d %H:%M:%S %Z";

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
    _CRT_glob = 1;
    default_time_format = "%Y-%m-%d %H:%M:%S %Z";
}
