// The built tools as child processes of a test: started in a directory with
// standard input from /dev/null and standard output and error into files,
// waited for, or killed part way.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

struct child_result {
    int status = -1; // exit status; -N when ended by signal N
    std::string out, err;
};

// Starts `program` with `args` in `cwd`; its standard output and error go to
// the files `out` and `err` (created or truncated).
pid_t start_child(const std::filesystem::path &cwd, const std::string &program,
                  const std::vector<std::string> &args, const std::filesystem::path &out,
                  const std::filesystem::path &err);

// Waits for a started child: its exit status, or -N when signal N ended it.
int wait_child(pid_t pid);

// Runs a program to its end and returns its status and outputs.
child_result run_child(const std::filesystem::path &cwd, const std::string &program,
                       const std::vector<std::string> &args);

// The lines of a text, without their line ends (no empty last line).
std::vector<std::string> lines_of(const std::string &text);

// The whole content of a file (empty when it cannot be read).
std::string file_bytes(const std::filesystem::path &path);
