// The comment line of comment-headed recordings: its three grammars.
//
// Type 1: "!Tidserier <frequency> <gain>"
// Type 2: "!Tidserier  sampfrek: <frequency> gain: <gain>" (two blanks)
// Type 3: "!<kind><length>Tidserier sampfrek: <frequency> gain: <gain> station: <name>
//          date: <yyyy-mm-dd> time: <hh:mm:ss>", the fields after the frequency optional
//          from the right; kind "S" (minute and second stamps) or "U" (Unix seconds).
#pragma once

#include <cstddef>
#include <string>

namespace VxFil {

// The results of one comment parser, written through references so that one
// call fills either a recording object or a caller's locals.
struct arguments {
    arguments(double& frequency, int& gain, std::string& station, char& c, int& len, bool& unixtime,
              std::string& date_from_comment, std::string& time_from_comment)
        : m_frequency(frequency), m_gain(gain), m_station(station), m_c(c), m_len(len), m_unixtime(unixtime),
          m_date_from_comment(date_from_comment), m_time_from_comment(time_from_comment) {}

    double& m_frequency;
    int& m_gain;
    std::string& m_station;
    char& m_c;   // sample kind letter
    int& m_len;  // block length
    bool& m_unixtime;
    std::string& m_date_from_comment;
    std::string& m_time_from_comment;
};

// Each tries one grammar with the C library's scanf rules and writes what it
// parsed through a.
bool valid_comment_type1(const char* line, arguments& a);
bool valid_comment_type2(const char* line, arguments& a);
bool valid_comment_type3(const char* line, arguments& a);

} // namespace VxFil
