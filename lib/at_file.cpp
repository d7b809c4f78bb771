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

// State of one expansion: the argument files open at the moment and the
// arguments produced so far, against the limits.
struct expansion {
    std::vector<file_id> open_files;
    long arguments = 0;
};

// Reads one line as fgets would (at most size - 1 bytes, up to and including
// a line feed) and adds the bytes taken to *taken. False at the end.
bool read_line(FILE* f, char* line, int size, std::size_t* taken) {
    int n = 0;
    while (n < size - 1) {
        const int c = getc_unlocked(f);
        if (c == EOF) break;
        line[n++] = static_cast<char>(c);
        if (c == '\n') break;
    }
    line[n] = '\0';
    *taken += static_cast<std::size_t>(n);
    return n > 0;
}

// Closes an argument file also when a refusal unwinds through the expansion
// (tests and fuzzers turn the process end into an exception).
struct file_closer {
    void operator()(FILE* f) const { std::fclose(f); }
};

[[noreturn]] void refuse(const char* message, const char* name) {
    exit_with_line(std::string("Error: ") + message + ": " + name + "\n");
}

int expand(const char* arg, const sink_t& sink, expansion& state) {
    std::vector<file_id>& open_files = state.open_files;
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
            std::size_t taken = 0;
            while (read_line(f, line, sizeof line, &taken)) {
                if (taken > max_at_file_bytes) refuse("argument file larger than 64 MiB", name);
                if (char* nl = std::strchr(line, '\n')) *nl = '\0';
                count += 1 + expand(line, sink, state);
                if (state.arguments > max_arguments)
                    refuse("more than a million arguments from argument file", name);
            }
            file.reset();
            if (tracked) open_files.pop_back();
            return count;
        }
        // A file that does not open is kept as an ordinary argument.
    }
    if (arg[0] == '#') return 0;
    ++state.arguments;
    sink(arg);
    return 0;
}

} // namespace

int add_arg_to_argv(int* argc, char** argv, const char* arg) {
    expansion state;
    return expand(
        arg,
        [&](const char* a) {
            if (argv) {
                argv[*argc] = strdup(a);
                argv[*argc + 1] = nullptr;
            }
            ++*argc;
        },
        state);
}

int rebuild_argv(int* argc, char*** argv) {
    // One pass that keeps the arguments, so that the files are read once and
    // a file changing under us cannot make the vector overflow.
    std::vector<std::string> args;
    int expanded = 0;
    expansion state;
    for (int i = 0; i < *argc; ++i)
        expanded += expand((*argv)[i], [&](const char* a) { args.emplace_back(a); }, state);
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
