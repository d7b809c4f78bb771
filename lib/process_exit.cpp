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

void exit_with_line(const std::string& line) {
    std::fflush(stdout);
    std::fputs(line.c_str(), stderr);
    process_exit(1);
}

void process_exit(int status) {
    if (current_handler) current_handler(status);
    std::fflush(nullptr);
    std::exit(status);
}
