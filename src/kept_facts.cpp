// --facts DIR and --catalog DIR (see kept_facts.h).
#include "kept_facts.h"

#include <exception>
#include <filesystem>
#include <string>

#include "process_exit.h"
#include "settings.h"

void refuse_options_beside_facts() {
    const std::string why = ": the facts describe the recordings' own samples\n";
    if (sds_directory != nullptr)
        exit_with_line("Error: --facts cannot be used with --sds, whose archive keeps its facts itself\n");
    if (output_type != OT_MSEED) exit_with_line("Error: --facts goes with --mseed\n");
    if (remove_offset) exit_with_line("Error: --facts cannot be used with -o" + why);
    if (global_scale != 1) exit_with_line("Error: --facts cannot be used with -z" + why);
    if (upsample != 0) exit_with_line("Error: --facts cannot be used with -u" + why);
    if (need_filter) exit_with_line("Error: --facts cannot be used with -f" + why);
    if (global_start_time != 0 || snippet_length != 0 || snippets != 1)
        exit_with_line("Error: --facts cannot be used with -s, -l or -n" + why);
}

namespace {

void write_facts_into(const std::filesystem::path &folder, const std::vector<sds::recording_facts> &facts) {
    try {
        std::filesystem::create_directories(folder);
        for (const sds::recording_facts &f : facts) sds::write_text(folder / sds::recording_key(f.path), sds::facts_text(f));
    } catch (const std::exception &e) {
        exit_with_line(std::string("Error: ") + e.what() + "\n");
    }
}

} // namespace

void keep_facts(const std::vector<sds::recording_facts> &facts) {
    if (facts_directory != nullptr) write_facts_into(sds::book_of(facts_directory) / "recordings", facts);
    if (catalog_directory != nullptr) write_facts_into(sds::catalog_of(catalog_directory), facts);
}
