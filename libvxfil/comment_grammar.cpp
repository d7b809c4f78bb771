#include <cstdio>
#include <cstring>
#include <iostream>

#include "vxfil/comment.h"

namespace VxFil {

bool valid_comment_type1(const char* line, arguments& a) {
    return std::sscanf(line, "!Tidserier %lf %d", &a.m_frequency, &a.m_gain) >= 1;
}

bool valid_comment_type2(const char* line, arguments& a) {
    return std::sscanf(line, "!Tidserier  sampfrek: %lf gain: %d", &a.m_frequency, &a.m_gain) >= 1;
}

bool valid_comment_oldest(const char *line, arguments &a) {
    return std::sscanf(line, "Tidserier %lf %d", &a.m_frequency, &a.m_gain) >= 1;
}

namespace {
// Shrinks a string that was scanned into as a C buffer to the C string it holds.
void shrink_to_c_string(std::string& s) { s.resize(std::strlen(s.c_str())); }
} // namespace

bool valid_comment_type3(const char* line, arguments& a) {
    // The text fields take at most 255 characters and a terminator.
    a.m_station.assign(256, '\0');
    a.m_date_from_comment.assign(256, '\0');
    a.m_time_from_comment.assign(256, '\0');
    int n = 0;
    int conversions = std::sscanf(line,
                                  "!%c%dTidserier sampfrek: %lf%n gain: %d%n station: %255[^ ]%n date: "
                                  "%255[^ ]%n time: %255[^ ]%n",
                                  &a.m_c, &a.m_len, &a.m_frequency, &n, &a.m_gain, &n, a.m_station.data(), &n,
                                  a.m_date_from_comment.data(), &n, a.m_time_from_comment.data(), &n);
    shrink_to_c_string(a.m_station);
    shrink_to_c_string(a.m_date_from_comment);
    shrink_to_c_string(a.m_time_from_comment);
    if (conversions < 3) return false;
    if (a.m_len != 512 && a.m_len != 128) std::cerr << "WARNING: nonstandard length: " << a.m_len << "\n";
    a.m_unixtime = (a.m_c == 'U');
    return a.m_c == 'S' || a.m_c == 'U';
}

} // namespace VxFil
