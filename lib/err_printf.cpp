#include "err_printf.h"

#include <cstdarg>
#include <cstdio>

void err__printf(const char* file, int line, const char* format, ...) {
    std::fflush(stdout);
    std::fflush(stderr);
    std::fprintf(stderr, "%s:%d:: error: ", file, line);
    va_list ap;
    va_start(ap, format);
    std::vfprintf(stderr, format, ap);
    va_end(ap);
    std::fflush(stderr);
}
