#include "at_file.h"
#include "process_exit.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

// Lines are read with a buffer of this size; a longer line becomes several
// arguments, split at the buffer boundary. Kept as it always was.
constexpr int line_buffer_size = 4096;

using sink_t = std::function<void(const char*)>;

// Identity of an open argument file, to catch files that include themselves.
using file_id = std::pair<dev_t, ino_t>;

// Closes an argument file also when a refusal unwinds through the expansion
// (tests and fuzzers turn the process end into an exception).
struct file_closer {
    void operator()(FILE* f) const { std::fclose(f); }
};

[[noreturn]] void refuse(const char* message, const char* name) {
    exit_with_line(std::string("Error: ") + message + ": " + name + "\n");
}

int expand(const char* arg, const sink_t& sink, std::vector<file_id>& open_files) {
    if (arg[0] == '@' || arg[0] == '$') {
        const char* name = arg + 1;
        if (std::unique_ptr<FILE, file_closer> file{std::fopen(name, "r")}) {
            FILE* f = file.get();
            struct stat st {};
            bool tracked = false;
            if (fstat(fileno(f), &st) == 0) {
                file_id id{st.st_dev, st.st_ino};
                for (const file_id& open : open_files)
                    if (open == id) refuse("argument file includes itself", name);
                if (static_cast<int>(open_files.size()) >= max_at_file_depth)
                    refuse("argument files nested too deeply", name);
                open_files.push_back(id);
                tracked = true;
            }
            int count = 0;
            char line[line_buffer_size];
            while (std::fgets(line, sizeof line, f)) {
                if (char* nl = std::strchr(line, '\n')) *nl = '\0';
                count += 1 + expand(line, sink, open_files);
            }
            file.reset();
            if (tracked) open_files.pop_back();
            return count;
        }
        // A file that does not open is kept as an ordinary argument.
    }
    if (arg[0] == '#') return 0;
    sink(arg);
    return 0;
}

} // namespace

int add_arg_to_argv(int* argc, char** argv, const char* arg) {
    std::vector<file_id> open_files;
    return expand(
        arg,
        [&](const char* a) {
            if (argv) {
                argv[*argc] = strdup(a);
                argv[*argc + 1] = nullptr;
            }
            ++*argc;
        },
        open_files);
}

int rebuild_argv(int* argc, char*** argv) {
    // One pass that keeps the arguments, so that the files are read once and
    // a file changing under us cannot make the vector overflow.
    std::vector<std::string> args;
    int expanded = 0;
    std::vector<file_id> open_files;
    for (int i = 0; i < *argc; ++i)
        expanded += expand((*argv)[i], [&](const char* a) { args.emplace_back(a); }, open_files);
    if (static_cast<int>(args.size()) == *argc && expanded == 0) return 0;

    char** out = static_cast<char**>(std::malloc((args.size() + 2) * sizeof(char*)));
    if (!out) return 0;
    for (size_t i = 0; i < args.size(); ++i) out[i] = strdup(args[i].c_str());
    out[args.size()] = nullptr;
    *argc = static_cast<int>(args.size());
    *argv = out;
    return 0;
}

int restore_argv(int* argc, char*** argv, int old_argc, char** old_argv) {
    if (*argv != old_argv) {
        for (int i = 0; i < *argc; ++i) std::free((*argv)[i]);
        std::free(*argv);
        *argc = old_argc;
        *argv = old_argv;
    }
    return 0;
}
