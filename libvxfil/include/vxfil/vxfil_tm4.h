// TM4 text recordings: a time column and one column per channel.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "vxfil/vxfil_base.h"

namespace VxFil {

class VXFIL_TM4 : public Vxfil_Base {
  public:
    // initial_basetime: a precise start time in Unix seconds (0 when unknown),
    // taken only when it lies within 2 s of the first data line's time.
    // A file that cannot be opened yields a recording without samples.
    VXFIL_TM4(const char *filename, double initial_basetime);
    // Parses TM4 text already held in memory; name is only for messages.
    VXFIL_TM4(std::string_view text, const char *name, double initial_basetime);
    ORIGIN get_origin() const override { return ORIGIN_TM4; }

  private:
    class line_reader;
};

// A data line holds a time and up to 8 values: at most 9 numbers.
inline constexpr int tm4_max_numbers = 9;
// Answer of tm4_scan_simple for a line outside its grammar.
inline constexpr int tm4_declined = -2;

// Reads the numbers of one data line (without its line feed) exactly as
// sscanf(line, "%lf %lf %lf %lf %lf %lf %lf %lf %lf", ...) reads them, for
// lines in a simple grammar: blanks and tabs around numbers of the form
// [-]digits[.digits][(e|E)[+-]digits] (or [-].digits...), trailing blanks and
// carriage returns, at most 9 numbers, each in the range of a double without
// underflow. Returns what sscanf returns (the count of numbers, or -1 for a
// line of nothing but blanks) and fills that many values; returns
// tm4_declined for every other line. Assumes "." as the decimal point.
int tm4_scan_simple(const char *line, std::size_t length, double (&values)[tm4_max_numbers]);

// The same scan for every line: the simple grammar through tm4_scan_simple
// (when fast is true), anything else through sscanf itself on a copy of the
// line in scratch (so a NUL byte ends the line as it ends a C string).
int tm4_scan_line(std::string_view line, double (&values)[tm4_max_numbers], std::string &scratch,
                  bool fast = true);

} // namespace VxFil
