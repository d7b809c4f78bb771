// brantel --sds: the command-line side of filing recordings into an SDS
// archive.
#include "sds_run.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string_view>

#include "file_by_file.h"
#include "process_exit.h"
#include "sds_index.h"
#include "sds_merge.h"
#include "sds_quicklooks.h"
#include "sds_stage.h"
#include "settings.h"

namespace {

namespace fs = std::filesystem;

// Long options that may go with --sds: they change neither the layout nor
// the samples (--plot draws the quick-looks of the days a merge changed).
// Every other option, and every short one but -z, is refused.
constexpr std::string_view ALLOWED_LONG[] = {
    "--network", "--record-length", "--legacy", "--station", "--quiet", "--debug",
    "--mseed",   "--sds",           "--sds-stage", "--sds-merge", "--disable-globbing", "--enable-globbing",
    "--identify", "--keep-going", "--done-list", "--plot",
};

bool allowed(const given_option& o) {
    if (o.name == "-z") return true;
    return std::find(std::begin(ALLOWED_LONG), std::end(ALLOWED_LONG), o.name) != std::end(ALLOWED_LONG);
}

// A run's name is a folder name of the archive's bookkeeping.
bool valid_run_name(const char* run) {
    if (run == nullptr || *run == '\0' || *run == '.') return false;
    for (const char* p = run; *p; ++p)
        if (!std::isalnum(static_cast<unsigned char>(*p)) && *p != '.' && *p != '_' && *p != '-') return false;
    return true;
}

// A run by hand stages under a name of its own and holds a lock on its
// owner file while it lives, so that a later merge can tell a run whose
// process died (its staging is then removed) from one still converting.
class hand_run {
  public:
    explicit hand_run(const fs::path& top) {
        m_name = "hand-" + std::to_string(::getpid()) + "-" + std::to_string(std::time(nullptr));
        // The folder gets its name only once its owner file is locked, so
        // that no merge of another run can take it for abandoned meanwhile.
        const fs::path dir = sds::staging_dir(top, m_name);
        const fs::path making = sds::staging_dir(top, ".making-" + m_name);
        fs::create_directories(making);
        m_fd = ::open((making / "owner").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        struct flock lk {};
        lk.l_type = F_WRLCK;
        lk.l_whence = SEEK_SET;
        if (m_fd < 0 || ::fcntl(m_fd, F_SETLK, &lk) != 0)
            throw std::runtime_error("can't lock \"" + (making / "owner").string() + "\": " + std::strerror(errno));
        fs::rename(making, dir);
    }
    ~hand_run() {
        if (m_fd >= 0) ::close(m_fd);
    }
    const std::string& name() const { return m_name; }

  private:
    std::string m_name;
    int m_fd = -1;
};

// Stages every file; false when any failed (its message printed).
bool stage_all(const fs::path& top, const std::string& run, int count, char** files) {
    const sds::conversion_request request{mseed_network, global_scale};
    bool all = true;
    for (int i = 0; i < count; ++i) {
        const bool ok = convert_one_file(files[i], [&] {
            sds::stage_recording(top, run, files[i], request);
            if (debug) std::cerr << "staged \"" << files[i] << "\" for " << run << "\n";
        });
        all = all && ok;
    }
    return all;
}

// With --plot: the quick-looks that are missing (those of the days that
// this merge or an earlier one without --plot changed, and every day of a
// tree that had none), drawn under the merge lock so that no day file
// changes meanwhile. False when any could not be drawn (its message
// printed).
bool draw_quicklooks(const fs::path& top) {
    sds::quicklook_outcome drawn;
    {
        sds::merge_lock lock(top);
        drawn = sds::draw_missing_quicklooks(top);
    }
    std::fflush(stdout);
    for (const std::string& line : drawn.failures) std::cerr << line;
    if (!quiet || sds_merge_run)
        std::printf("Quick-looks: %zu drawn, %zu failed\n", drawn.drawn, drawn.failures.size());
    return drawn.failures.empty();
}

} // namespace

void refuse_options_beside_sds(const std::vector<given_option>& given) {
    for (const given_option& o : given) {
        if (!allowed(o)) exit_with_line("Error: --sds cannot be used with " + o.name + "\n");
    }
    if (global_scale <= 0)
        exit_with_line("Error: --sds needs -z N with N above 0, not -z " + std::to_string(global_scale) + "\n");
    if (sds_stage_run && sds_merge_run) exit_with_line("Error: --sds-stage and --sds-merge cannot be used together\n");
    for (const char* run : {sds_stage_run, sds_merge_run})
        if (run && !valid_run_name(run))
            exit_with_line("Error: a run name is letters, digits, '.', '_' and '-', not \"" + std::string(run) +
                           "\"\n");
}

int sds_main(int count, char** files) {
    if (sds_merge_run && count > 0) exit_with_line("Error: --sds-merge takes no recording\n");
    if (!sds_merge_run && count == 0) exit_with_line("Error: --sds needs at least one recording to file\n");
    // The quick-looks need gnuplot: refused at once, before anything is
    // filed, when it is missing.
    if (plot && !sds_stage_run) check_plot_tool();
    const fs::path top = sds_directory;
    const sds::tree_settings settings{mseed_record_length, global_scale};
    try {
        std::error_code ec;
        fs::create_directories(sds::book_of(top), ec);
        if (ec) exit_with_line("Error: can't create \"" + sds::book_of(top).string() + "\": " + ec.message() + "\n");
        {
            sds::merge_lock lock(top);
            const std::string refusal = sds::check_tree_settings(top, settings, true);
            if (!refusal.empty()) exit_with_line(refusal);
        }
        bool all = true;
        std::string run;
        std::unique_ptr<hand_run> by_hand;
        if (sds_stage_run || sds_merge_run) {
            run = sds_stage_run ? sds_stage_run : sds_merge_run;
            fs::create_directories(sds::staging_dir(top, run));
        } else {
            by_hand = std::make_unique<hand_run>(top);
            run = by_hand->name();
        }
        if (!sds_merge_run) all = stage_all(top, run, count, files);
        if (sds_stage_run) return all ? 0 : 1;

        const sds::merge_outcome outcome = sds::merge_run(top, run, static_cast<int>(mseed_record_length));
        if (by_hand) fs::remove_all(sds::staging_dir(top, run), ec);
        if (!quiet || sds_merge_run)
            std::printf("SDS: %zu day files written, %zu channels, %zu gaps, %zu conflicts\n",
                        outcome.day_files_written, outcome.channels, outcome.gaps, outcome.conflicts);
        if (plot && !draw_quicklooks(top)) all = false;
        return all && outcome.refused.empty() ? 0 : 1;
    } catch (const std::exception& e) {
        exit_with_line(std::string("Error: ") + e.what() + "\n");
    }
}
