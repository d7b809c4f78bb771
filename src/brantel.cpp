// Entry point: process environment, argument lists, run log, options, and
// the calls of the conversion run.
#include <getopt.h>

#include <cctype>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "at_file.h"
#include "brantel.h"
#include "brantel_version.h"
#include "entry.h"
#include "err_printf.h"
#include "identify.h"
#include "logfile.h"
#include "mseed_codes.h"
#include "output_name.h"
#include "settings.h"
#include "start_time_option.h"
#include "station_option.h"
#include "write_plot.h"
#include "process_exit.h"
#include "sds_run.h"
#include "kept_facts.h"
#include "file_by_file.h"
#include "freed_memory.h"

namespace {

// Codes returned by the long options that are not plain flags.
enum {
    OPT_NO_TIME = 256,
    OPT_TIME = 257,
    OPT_ONE_FILE = 258,
    OPT_AMPLITUDE = 259,
    OPT_AVERAGE = 260,
    OPT_VXDAT = 261,
    OPT_SEC_DECIMALS = 262,
    OPT_SLIST = 263,
    OPT_TSPAIR = 264,
    OPT_STATION = 265,
    OPT_TARGET_DIRECTORY = 266,
    OPT_MSEED = 267,
    OPT_NETWORK = 268,
    OPT_RECORD_LENGTH = 269,
    OPT_SDS = 270,
    OPT_SDS_STAGE = 271,
    OPT_SDS_MERGE = 272,
    OPT_FACTS = 273,
    OPT_DONE_LIST = 274,
    OPT_CATALOG = 275
};

const char short_opts[] = "1246CFL:N:S:THOU:Z:?cfl:n:s:thou:z:?";

const struct option long_opts[] = {
    {"no_comments", no_argument, &no_comment, 1},
    {"no-comments", no_argument, &no_comment, 1},
    {"nocomments", no_argument, &no_comment, 1},
    {"no_time", no_argument, nullptr, OPT_NO_TIME},
    {"notime", no_argument, nullptr, OPT_NO_TIME},
    {"no-time", no_argument, nullptr, OPT_NO_TIME},
    {"time", no_argument, nullptr, OPT_TIME},
    {"one-file", no_argument, nullptr, OPT_ONE_FILE},
    {"onefile", no_argument, nullptr, OPT_ONE_FILE},
    {"amplitude", no_argument, nullptr, OPT_AMPLITUDE},
    {"average", no_argument, nullptr, OPT_AVERAGE},
    {"vxdat", no_argument, nullptr, OPT_VXDAT},
    {"nrsamples", no_argument, &nrsamples, 1},
    {"minutes", no_argument, &time_in_minutes, TIME_MINUTES},
    {"seconds", no_argument, &time_in_minutes, TIME_SECONDS},
    {"minutes-in-day", no_argument, &time_in_minutes, TIME_MINUTES_DAY},
    {"seconds-in-day", no_argument, &time_in_minutes, TIME_SECONDS_DAY},
    {"sec-decimals", required_argument, nullptr, OPT_SEC_DECIMALS},
    {"slist", no_argument, nullptr, OPT_SLIST},
    {"tspair", no_argument, nullptr, OPT_TSPAIR},
    {"debug", no_argument, &debug, 1},
    {"quiet", no_argument, &quiet, 1},
    {"help", no_argument, nullptr, 'h'},
    {"disable-globbing", no_argument, &_CRT_glob, 0},
    {"enable-globbing", no_argument, &_CRT_glob, 1},
    // Added later; none of them changes what a prefix of the options above
    // means (the prefix table of the unit tests keeps it so).
    {"legacy", no_argument, &legacy, 1},
    {"station", required_argument, nullptr, OPT_STATION},
    {"sample-times", no_argument, &sample_times, 1},
    {"target-directory", required_argument, nullptr, OPT_TARGET_DIRECTORY},
    {"identify", no_argument, &identify, 1},
    {"plot", no_argument, &plot, 1},
    {"mseed", no_argument, nullptr, OPT_MSEED},
    {"network", required_argument, nullptr, OPT_NETWORK},
    {"record-length", required_argument, nullptr, OPT_RECORD_LENGTH},
    {"sds", required_argument, nullptr, OPT_SDS},
    {"sds-stage", required_argument, nullptr, OPT_SDS_STAGE},
    {"sds-merge", required_argument, nullptr, OPT_SDS_MERGE},
    {"facts", required_argument, nullptr, OPT_FACTS},
    {"keep-going", no_argument, &keep_going, 1},
    {"done-list", required_argument, nullptr, OPT_DONE_LIST},
    {"catalog", required_argument, nullptr, OPT_CATALOG},
    {"by-header", no_argument, &identify_by_header, 1},
    {nullptr, 0, nullptr, 0},
};

const char* const help_lines[] = {
    " [-1|-2|-4] <fil.ext> [-c][-s][-r#]\n",
    " -c                    Combines files to a timeserie.\n",
    " -1                    1 column files, 3 files with time for each channel + 3 files with samples.\n",
    " -2                    2 column files with time & chX.\n",
    " -4                    4 column file, time, ch1, ch2 & ch3 (default).\n",
    " --slist               MSEED SLIST ascii format\n",
    " --tspair              MSEED TSPAIR ascii format\n",
    " --average             2 column file, time, (ch1+ch2+ch3)/3.\n",
    " --vxdat               write old zek-infrasound dat file\n",
    " -s m.s                Start time (default: start of file)\n",
    " -l #                  Length # (default: to the end of the file)\n",
    " -n #                  Number of snippets\n",
    " --no-time             No time column in file\n",
    " --no-comments         No comments in file\n",
    " --nrsamples           Place number of samples on first line\n",
    " --minutes             Time is in minutes instead of seconds\n",
    " --minutes-in-day      Time is in minutes of day [0-1440)\n",
    " --seconds             Time is in seconds (default)\n",
    " --seconds-in-day      Time is in seconds of day [0-86400)\n",
    " --quiet               No informative output\n",
};

[[noreturn]] void usage_and_exit(char* name, int status) {
    Usage(name);
    std::fflush(stdout);
    process_exit(status);
}

// Prints an exception that escaped a conversion run and ends with status 1.
[[noreturn]] void report_exception(const char* text) {
    std::string line = text;
    if (line.empty() || line.back() != '\n') line += '\n';
    exit_with_line(line);
}

void run_conversion(std::vector<std::filesystem::path>& names, int argc) {
    try {
        brantel(names, optind, argc);
    } catch (const std::exception& e) {
        report_exception(e.what());
    }
}

// Applies one option; bad values end the process.
void apply_option(int c, char* prog) {
    switch (c) {
    case 0: break; // a flag entry stored its value itself
    case '1':
    case '6': // deliberately the same as -1
    case OPT_NO_TIME: output_type = OT_ONECOLUMN; break;
    case '2':
    case 't':
    case OPT_TIME: output_type = OT_TWOCOLUMNS; break;
    case '4':
    case OPT_ONE_FILE: output_type = OT_FOURCOLUMNS; break;
    case OPT_AMPLITUDE:
        output_type = OT_AMPLITUDE;
        remove_offset = 1;
        break;
    case OPT_AVERAGE: output_type = OT_AVERAGE; break;
    case OPT_VXDAT:
        output_type = OT_VXDAT;
        if (sec_decimals < 0) sec_decimals = 0;
        break;
    case OPT_SLIST: output_type = OT_SLIST; break;
    case OPT_TSPAIR: output_type = OT_TSPAIR; break;
    case OPT_MSEED:
        output_type = OT_MSEED;
        break;
    case OPT_NETWORK:
        if (!valid_network_code(optarg))
            exit_with_line(std::string("Error: network code (--network) must be 1 or 2 upper-case letters or "
                                       "digits, not \"") +
                           optarg + "\"\n");
        mseed_network = optarg;
        break;
    case OPT_RECORD_LENGTH: {
        char *end = nullptr;
        errno = 0;
        const long length = std::strtol(optarg, &end, 10);
        if (end == optarg || *end != '\0' || errno != 0 || !valid_record_length(length))
            exit_with_line(
                std::string("Error: record length (--record-length) must be a power of two from 256 "
                            "to 65536, not \"") +
                optarg + "\"\n");
        mseed_record_length = length;
        break;
    }
    case OPT_TARGET_DIRECTORY: target_directory = optarg; break;
    case OPT_SDS:
        sds_directory = optarg;
        output_type = OT_MSEED; // an SDS archive holds miniSEED records
        break;
    case OPT_SDS_STAGE: sds_stage_run = optarg; break;
    case OPT_SDS_MERGE: sds_merge_run = optarg; break;
    case OPT_FACTS: facts_directory = optarg; break;
    case OPT_DONE_LIST: done_list = optarg; break;
    case OPT_CATALOG: catalog_directory = optarg; break;
    case 'c': combine = 1; break;
    case 'f': need_filter = 1; break;
    case 'o': remove_offset = 1; break;
    case 'u': upsample = std::strtol(optarg, nullptr, 10); break;
    case 'z': global_scale = std::strtol(optarg, nullptr, 10); break;
    case 'h':
    case '?': usage_and_exit(prog, 0);
    case 'n':
        snippets = std::strtol(optarg, nullptr, 10);
        if (snippets < 1 || snippets > 26) {
            std::fprintf(stderr, "Error: Snippets (-n) out of range ( 1 <= %ld <= %d).\n", snippets, 26);
            usage_and_exit(prog, 1);
        }
        break;
    case 'l':
        snippet_length = std::strtol(optarg, nullptr, 10);
        if (snippet_length < 1) {
            std::fputs("Error: Length (-l) must be positive and larger than 0.\n", stderr);
            usage_and_exit(prog, 1);
        }
        break;
    case OPT_SEC_DECIMALS:
        sec_decimals = std::strtol(optarg, nullptr, 10);
        if (sec_decimals < 0) sec_decimals = -1;
        if (sec_decimals >= 21) {
            std::fputs("too many decimal\n", stderr);
            process_exit(1);
        }
        break;
    case OPT_STATION:
        legacy_station = station_number_of_name(optarg);
        if (legacy_station < 0)
            exit_with_line("Error: unknown station \"" + std::string(optarg) +
                           "\" for --station; the station names are " + accepted_station_names() + "\n");
        legacy = 1; // a station for recordings that name none is a first-generation reading
        break;
    case 's': {
        std::string errors;
        long seconds = 0;
        if (!parse_start_time(optarg, seconds, errors)) {
            std::fputs(errors.c_str(), stderr);
            usage_and_exit(prog, 1);
        }
        global_start_time = seconds;
        break;
    }
    default: std::printf("?? getopt returned character code %d ??\n", c); break;
    }
}

} // namespace

const struct option *brantel_long_options() {
    return long_opts;
}
const char *brantel_short_options() {
    return short_opts;
}

void Usage(char* name) {
    const char* prog = std::strrchr(name, '\\');
    prog = prog ? prog + 1 : name;
    std::fputs(Version, stdout);
    std::fputs("\n\n", stdout);
    std::fputs("Usage:", stdout);
    std::fputs(prog, stdout);
    for (const char* line : help_lines) std::fputs(line, stdout);
    std::fputs("\n", stdout);
    std::fputs(notice, stdout);
    std::fputs("\n", stdout);
    std::fputs(Bugs, stdout);
    std::fputs("\n", stdout);
}

int brantel_main(int argc, char** argv) {
    std::setlocale(LC_TIME, "C");
    putenv(TZ);
    tzset();
    const int given_argc = argc;
    char** const given_argv = argv;
    rebuild_argv(&argc, &argv);
    logfile(argc, argv);
    global_scale = 1;
    if (argc == 1) usage_and_exit(argv[0], 0);

    int c;
    int index = -1;
    std::vector<given_option> given;
    while ((c = getopt_long(argc, argv, short_opts, long_opts, &index)) != -1) {
        if (c >= 0 && c < 256 && std::isalpha(c)) c = std::tolower(c);
        given.push_back({c, index >= 0 ? std::string("--") + long_opts[index].name
                                       : std::string("-") + static_cast<char>(c)});
        index = -1;
        apply_option(c, argv[0]);
    }
    if (sds_directory != nullptr) refuse_options_beside_sds(given);
    if (facts_directory != nullptr) refuse_options_beside_facts();
    // They follow the files of a run one by one; -c makes one conversion of
    // them all, and --identify converts none.
    if ((keep_going || done_list != nullptr) && (combine || identify))
        exit_with_line(std::string("Error: --keep-going and --done-list cannot be used with ") +
                       (combine ? "-c" : "--identify") + "\n");
    if (identify_by_header && !identify) exit_with_line("Error: --by-header goes with --identify\n");
    if ((sds_stage_run != nullptr || sds_merge_run != nullptr) && sds_directory == nullptr)
        exit_with_line("Error: --sds-stage and --sds-merge go with --sds DIR\n");

    // The binary miniSEED layout carries absolute times; a time column in
    // minutes or of the day has no place in it.
    if (output_type == OT_MSEED && time_in_minutes != TIME_SECONDS)
        exit_with_line("Error: --mseed writes absolute times; --minutes, --seconds-in-day and "
                       "--minutes-in-day cannot be used with it\n");
    if (snippets >= 2 && snippet_length == 0) {
        ERR_PRINTF("Error: You need to supply the length of each snippet (-l #)\n");
        process_exit(1);
    }
    if (debug)
        std::fprintf(stderr, "%s:%d:: debug: Globbing is %s\n", source_base_name(__FILE__), __LINE__,
                     _CRT_glob ? "enabled" : "disabled");

    if (identify) process_exit(identify_files(argc - optind, argv + optind));
    keep_freed_memory();
    if (done_list != nullptr) open_done_list();
    if (sds_directory != nullptr) process_exit(sds_main(argc - optind, argv + optind));
    if (plot) check_plot_tool();

    std::vector<std::filesystem::path> names;
    if (target_directory != nullptr) {
        if (!combine) refuse_clashing_outputs({argv + optind, argv + argc});
        make_target_directory();
    }
    if (combine) {
        std::printf("Combining\n");
        for (; optind < argc; ++optind) names.emplace_back(argv[optind]);
        run_conversion(names, argc);
    } else if (keep_going || done_list != nullptr) {
        int status = 0;
        for (; optind < argc; ++optind) {
            names.assign(1, argv[optind]);
            if (!convert_one_file(argv[optind], [&] { brantel(names, optind, argc); })) {
                status = 1;
                if (!keep_going) break;
            }
        }
        restore_argv(&argc, &argv, given_argc, given_argv);
        return status;
    } else {
        while (optind < argc) {
            names.emplace_back(argv[optind]);
            run_conversion(names, argc);
            names.pop_back();
            optind = optind + 1;
        }
    }
    restore_argv(&argc, &argv, given_argc, given_argv);
    return 0;
}
