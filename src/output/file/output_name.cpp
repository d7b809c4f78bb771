#include "output_name.h"

#include <map>
#include <system_error>

#include "process_exit.h"
#include "settings.h"

namespace fs = std::filesystem;

namespace {

std::string quoted(const fs::path &p) {
    return "\"" + p.string() + "\"";
}

} // namespace

fs::path output_name(const fs::path &input, const std::string &extension) {
    fs::path p = input;
    p.replace_extension(extension);
    if (target_directory != nullptr) return fs::path(target_directory) / p.filename();
    return p;
}

void refuse_clashing_outputs(const std::vector<fs::path> &inputs) {
    if (target_directory == nullptr) return;
    // Every layout's names differ only in the extension, so one stands for all.
    std::map<fs::path, const fs::path *> seen;
    for (const fs::path &input : inputs) {
        auto [it, fresh] = seen.emplace(output_name(input, "tm4"), &input);
        if (!fresh)
            exit_with_line("Error: inputs " + quoted(*it->second) + " and " + quoted(input) +
                           " would write the same output files in " + quoted(target_directory) + "\n");
    }
}

void make_target_directory() {
    if (target_directory == nullptr) return;
    std::error_code ec;
    fs::create_directories(target_directory, ec);
    if (ec || !fs::is_directory(target_directory))
        exit_with_line("Error: can't create target directory " + quoted(target_directory) + ": " +
                       (ec ? ec.message() : std::string("not a directory")) + "\n");
}
