// Reading the first (comment) line of a comment-headed recording and deciding
// which of the three comment grammars it follows.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

#include "common.h"
#include "vxfil/fatal.h"
#include "vxfil/vxfil.h"

namespace VxFil {

namespace {

void invalid_comment_message(const char* who) {
    std::cerr << who << ": Invalid comment line\n"
              << "Couldn't determine sampling frequency\n"
              << "defaulting to 18.0Hz\n";
}

// A comment line cut short is not recoverable: the rest of the file cannot be
// trusted to start where the blocks should.
[[noreturn]] void comment_line_ended(FILE* fd) {
    if (std::ferror(fd)) std::cerr << "fgetc:" << std::strerror(errno) << "\n";
    std::cerr << "fgetc: EOF \n";
    fatal_exit(1);
}

} // namespace

int VXFIL::read_comment_line(bool binary) {
    FILE* fd = m_fd.get();
    errno = 0;
    int c = std::fgetc(fd);
    if (c == EOF) comment_line_ended(fd);
    if (c != '!' && c != 'T') {
        std::ungetc(c, fd);
        VX_TRACE("no comment line\n");
        return 0;
    }
    m_firstline.push_back(static_cast<char>(c));
    if (c == 'T') m_old_file_type = true;
    // Binary files end the comment at a carriage return and keep a line feed
    // in it; text files end it at a line feed and drop carriage returns. The
    // recorders wrote them so, and both kinds are still read this way.
    const int end = binary ? '\r' : '\n';
    for (;;) {
        c = std::fgetc(fd);
        if (c == EOF) comment_line_ended(fd);
        if (c == end) break;
        if (!binary && c == '\r') continue;
        m_firstline.push_back(static_cast<char>(c));
    }
    m_firstline.push_back('\0');

    size_t length = 0;
    if (std::sscanf(m_firstline.c_str(), "!%*[!SUsu]%zu", &length) != 1 || (length != 128 && length != 512))
        length = 128;
    m_length = length;
    VX_TRACE("comment line " << m_firstline.c_str() << ", block length " << m_length << "\n");
    return 1;
}

bool VXFIL::parse_comment(const char* line) {
    m_frequency = -1.0;
    m_gain = -1;
    m_station.clear();
    m_date_from_comment.clear();
    m_time_from_comment.clear();
    // The block length in the comment does not overwrite m_length, which
    // readcomment decided.
    char kind = 0;
    int len = 0;
    arguments a(m_frequency, m_gain, m_station, kind, len, m_unixtime, m_date_from_comment,
                m_time_from_comment);
    if (valid_comment_type1(line, a) || valid_comment_type2(line, a)) {
        VX_TRACE("comment type 1 or 2, frequency " << m_frequency << "\n");
        return true;
    }
    if (m_legacy && m_old_file_type && valid_comment_oldest(line, a)) {
        VX_TRACE("oldest kind, frequency " << m_frequency << "\n");
        return true;
    }
    if (!valid_comment_type3(line, a)) {
        invalid_comment_message("parse_comment");
        m_frequency = 18.0;
        return false;
    }
    time_t start_of_day = 0, start = 0;
    if (!parse_date(a, start_of_day, start)) {
        VX_TRACE("comment type 3 without date, frequency " << m_frequency << "\n");
        return true;
    }
    // The comment date wins over the file name, and stamps then count from midnight.
    m_start_of_day = start_of_day;
    if (start_of_day <= start) m_time_base = 0;
    m_uncertain_year = false;
    VX_TRACE("comment type 3, start of day " << m_start_of_day << "\n");
    return true;
}

bool validate_comment(const char* line) {
    double frequency = -1.0;
    int gain = -1;
    std::string station(512, '\0'), date(512, '\0'), time(512, '\0');
    char kind = 0;
    int len = 0;
    bool unixtime = false;
    arguments a(frequency, gain, station, kind, len, unixtime, date, time);
    if (valid_comment_type1(line, a) || valid_comment_type2(line, a)) return true;
    if (valid_comment_type3(line, a)) {
        time_t start_of_day = 0, start = 0;
        parse_date(a, start_of_day, start);
        return true;
    }
    invalid_comment_message("validate_comment");
    return false;
}

} // namespace VxFil
