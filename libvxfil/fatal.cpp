#include "vxfil/fatal.h"

#include <cstdio>
#include <cstdlib>

namespace VxFil {

namespace {
fatal_handler current_handler = nullptr;
}

fatal_handler set_fatal_handler(fatal_handler handler) {
    fatal_handler previous = current_handler;
    current_handler = handler;
    return previous;
}

void fatal_exit(int status) {
    if (current_handler) current_handler(status);
    std::fflush(stdout);
    std::fflush(stderr);
    std::exit(status);
}

void throwing_fatal_handler(int status) { throw fatal_exit_called{status}; }

} // namespace VxFil
