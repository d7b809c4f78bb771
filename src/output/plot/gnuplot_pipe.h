// Running gnuplot: the script goes to its standard input through a pipe, the
// picture comes from its standard output straight into a file, and its own
// messages (warnings as well as errors) are kept aside, to be shown only when
// it fails.
#pragma once

#include <signal.h>

#include <string>

// Whether an executable "gnuplot" lies in a directory of the PATH (searched
// as the exec functions search it: an empty entry is the current directory,
// an unset PATH the system's default path).
bool gnuplot_on_path();

struct gnuplot_result {
    bool ok = false;      // gnuplot ran and ended with status 0
    std::string messages; // what it wrote to standard error, or why it did not run
};

// Runs "gnuplot -d /dev/stdin" (no initialisation files; the script through
// a pipe on its standard input) on `script`, with its standard output on the
// open file descriptor `out_fd`.
gnuplot_result run_gnuplot(const std::string &script, int out_fd);

// A write into a pipe whose reader has ended must fail with EPIPE rather
// than end the process: SIGPIPE is ignored for the lifetime of the object,
// and the previous disposition comes back afterwards. Drawings on several
// threads at once hold one around all of them, so that no thread restores
// the disposition while another still writes.
class ignore_sigpipe {
  public:
    ignore_sigpipe();
    ~ignore_sigpipe();
    ignore_sigpipe(const ignore_sigpipe &) = delete;
    ignore_sigpipe &operator=(const ignore_sigpipe &) = delete;

  private:
    struct sigaction m_previous {};
};
