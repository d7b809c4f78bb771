// Comma-separated text as spreadsheets export it: fields separated by
// commas, records by CRLF, LF or a lone CR; a field in double quotes may hold
// commas, line ends and doubled quotes (""), which stand for one quote. A
// UTF-8 byte-order mark at the start is passed over. Text outside quotes is
// taken as it stands, so a hand-written file with a stray quote in the middle
// of a field still reads.
#pragma once

#include <string>
#include <vector>

namespace stationxml {

struct csv_record {
    int line = 0; // the line of the text where the record starts, from 1
    std::vector<std::string> fields;
};

// The records of `text`; records without any character (blank lines) are
// left out. False, with `bad_line` set to the line where the quoted field
// starts, when a quote is not closed before the end of the text or a closing
// quote is followed by something other than a comma or a line end.
bool read_csv(const std::string &text, std::vector<csv_record> &records, int &bad_line);

} // namespace stationxml
