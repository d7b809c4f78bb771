#include "process_exit.h"

#include <cstdio>
#include <cstdlib>

namespace {
exit_handler current_handler = nullptr;
}

exit_handler set_exit_handler(exit_handler handler) {
    exit_handler previous = current_handler;
    current_handler = handler;
    return previous;
}

void process_exit(int status) {
    if (current_handler) current_handler(status);
    std::fflush(nullptr);
    std::exit(status);
}
