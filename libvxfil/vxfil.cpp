// The comment-headed recording object: construction, block hand-out and the
// joining of consecutive blocks whose time stamps continue.
#include "vxfil/vxfil.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <stdexcept>

#include "common.h"
#include "vxfil/fatal.h"

namespace VxFil {

char TZ[7] = "TZ=UTC";

VXFIL::VXFIL(const char* path, VXFIL_arguments* args) : m_fd(std::fopen(path, "rb")) {
    prepare(path, args);
}

VXFIL::VXFIL(FILE* stream, const char* path, VXFIL_arguments* args) : m_fd(stream) {
    prepare(path, args);
}

void VXFIL::prepare(const char* path, VXFIL_arguments* args) {
    try {
        VXFIL_arguments defaults;
        if (!args) args = &defaults;
        m_concat = args->m_concat;
        m_old_file_type = args->m_old_file_type;
        m_quiet = args->m_quiet;
        m_legacy = args->m_legacy;
        m_firstline.reserve(120);
        for (auto& v : current)
            v.assign(2 * Max, 0.0);
        for (auto& v : next)
            v.assign(2 * Max, 0.0);

        force_utc();
        if (!set_time_start_of_day(path) && args->m_fail_parse_path) {
            std::cerr << "Can't parse date & time from path (" << path << ") & fail_parse_path == " << 1
                      << "\n";
            fatal_exit(1);
        }
        set_time_base(path);
        if (!m_fd) {
            std::cerr << "Can't open " << path << "\n";
            fatal_exit(1);
        }
        VX_TRACE("opened " << path << "\n");
    } catch (const std::exception& e) {
        std::cerr << "Standard exception: " << e.what() << "\n";
        fatal_exit(1);
    }
}

void VXFIL::force_utc() const {
    const char* tz = std::getenv("TZ");
    if (tz == nullptr || std::strcmp(tz, "UTC") != 0) {
        if (!m_quiet) std::cerr << "Info: setting TZ=UTC\n";
        putenv(TZ);
        tzset();
    }
}

void VXFIL::open_recording(const char* path) {
    if (!m_quiet) std::cerr << "File: " << path << " Type:" << type() << "\n";
    readcomment();
    parse_comment(firstline());
    if (m_uncertain_year) std::cerr << "Warning: year parsed from filename, " << path << ", is uncertain\n";
}

VXFIL::~VXFIL() {
    if (m_timegaps == 1)
        std::cerr << "TIMEGAP in data\n";
    else if (m_timegaps > 1)
        std::cerr << "Warning: TIMEGAPs in data\n";
}

void VXFIL::set_micorder(unsigned a, unsigned b, unsigned c) {
    if (a > 2 || b > 2 || c > 2) throw std::out_of_range("set_micorder: channel index above 2");
    m_micorder = {a, b, c};
}

short VXFIL::le16toh16(short word) {
    // Assemble from the bytes as they lie in memory, low byte first.
    unsigned char bytes[2];
    std::memcpy(bytes, &word, 2);
    return static_cast<short>(static_cast<unsigned short>(bytes[0] | (bytes[1] << 8)));
}

int VXFIL::readnext(atype& next_block) {
    if (!m_concat) return 1;
    int r = read(next_block, &m_time[2]);
    m_is_next = (r == 0);
    return r;
}

// Named for what it checks, but true means the stamps do NOT continue: the
// callers depend on this sense.
bool VXFIL::time_is_ok() {
    time_t cur = get_vxtime(0);
    time_t nxt = get_vxtimenext();
    double diff = static_cast<double>(nxt) - static_cast<double>(cur);
    // Minute stamps restart at midnight while the day stays the same.
    if (diff < -86000) diff += static_cast<double>(SECS_PER_DAY);
    diff = std::fabs(diff);
    if (diff > static_cast<double>(m_length) / m_frequency + 2.0) {
        ++m_timegaps;
        VX_TRACE("time gap of " << diff << " s\n");
        return true;
    }
    return false;
}

void VXFIL::extend_current() {
    for (size_t ch = 0; ch < 3; ++ch)
        std::copy(next[ch].begin(), next[ch].begin() + static_cast<std::ptrdiff_t>(m_length),
                  current[ch].begin() + static_cast<std::ptrdiff_t>(m_length));
}

bool VXFIL::can_we_use_next() {
    if (time_is_ok()) return false;
    extend_current();
    return true;
}

void VXFIL::copy_next_to_current() {
    for (size_t ch = 0; ch < 3; ++ch)
        std::copy(next[ch].begin(), next[ch].begin() + static_cast<std::ptrdiff_t>(m_length),
                  current[ch].begin());
    m_time[0] = m_time[2];
    m_time[1] = m_time[3];
}

int VXFIL::getdata() {
    std::fflush(stderr);
    if (m_is_next) {
        copy_next_to_current();
        m_is_next = false;
        readnext(next);
        m_use_next = false;
        if (m_is_next) m_use_next = can_we_use_next();
        return 0;
    }
    int r = read(current, m_time);
    if (r != 0) return r;
    readnext(next);
    m_use_next = false;
    if (m_is_next) m_use_next = can_we_use_next();
    return 0;
}

} // namespace VxFil
