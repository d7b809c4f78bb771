#include "start_time_option.h"

#include <cstdio>

namespace {

void out_of_range(std::string& errors, const char* what, long long value, long long limit) {
    errors += "Error: ";
    errors += what;
    errors += " out of range ( 0 <= " + std::to_string(value) + " < " + std::to_string(limit) + " ).\n";
}

} // namespace

bool parse_start_time(const char* argument, long& seconds, std::string& errors) {
    // The fields are scanned as 64-bit numbers so that large values never
    // wrap; the scan otherwise follows "%d.%d.%d".
    long long h = 0, m = 0, s = 0;
    int ret = std::sscanf(argument, "%lld.%lld.%lld", &h, &m, &s);
    bool err = false;
    if (ret == 2) {
        s = m;
        m = h;
        h = 0;
        if (m < 0 || m > 1439) {
            out_of_range(errors, "Minutes", m, 1440);
            err = true;
        }
    }
    if (ret == 3) {
        if (h < 0 || h > 23) {
            out_of_range(errors, "Hours", h, 24);
            err = true;
        }
        if (m < 0 || m > 59) {
            out_of_range(errors, "Minutes", m, 60);
            err = true;
        }
    }
    if (s < 0 || s > 59) {
        out_of_range(errors, "Seconds", s, 60);
        err = true;
    }
    if (err) return false;

    // A single number is hours and is deliberately not range checked (-s 30
    // means 30 hours); only a sum that no longer fits is refused.
    long long total = 0;
    if (__builtin_mul_overflow(h, 3600LL, &total) || __builtin_add_overflow(total, m * 60 + s, &total)) {
        errors += "Error: Start time (-s) out of range.\n";
        return false;
    }
    seconds = static_cast<long>(total);
    return true;
}
