// The one way the recording library ends the process.
//
// A few damaged inputs are not recoverable by design (a truncated comment
// line, an unknown vx24 header version, a file that cannot be opened by a
// comment-headed reader). The library ends the process for them through
// fatal_exit, so that tests and fuzzers can install a handler that throws
// instead and keep running.
#pragma once

namespace VxFil {

// A handler receives the exit status. It must not return: it either ends the
// process or throws.
using fatal_handler = void (*)(int status);

// Installs a handler and returns the previous one; nullptr restores the
// default, which flushes the standard streams and calls exit(status).
fatal_handler set_fatal_handler(fatal_handler handler);

[[noreturn]] void fatal_exit(int status);

// Exception thrown by the test handler below.
struct fatal_exit_called {
    int status;
};

// A ready-made handler for tests: throws fatal_exit_called{status}.
[[noreturn]] void throwing_fatal_handler(int status);

} // namespace VxFil
