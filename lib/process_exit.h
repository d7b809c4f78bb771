// The one way the tool and its utilities end the process early: a rejected
// option, a refused input or output, a window error, a write error, an
// argument file that includes itself.
//
// Tests and fuzzers install a handler that throws instead, so that one process
// can go through many runs. The installed binary never installs one.
#pragma once

#include <string>

// A handler receives the exit status. It must not return: it either ends the
// process or throws.
using exit_handler = void (*)(int status);

// Installs a handler and returns the previous one; nullptr restores the
// default, which flushes every output stream and calls exit(status).
exit_handler set_exit_handler(exit_handler handler);

[[noreturn]] void process_exit(int status);

// The common early end: standard output is flushed first (so that progress
// words come before the message), then `line` (which carries its own line
// end) goes to standard error, and the process ends with status 1.
[[noreturn]] void exit_with_line(const std::string& line);
