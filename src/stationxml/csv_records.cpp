// Comma-separated records (see csv_records.h).
#include "csv_records.h"

namespace stationxml {

bool read_csv(const std::string &text, std::vector<csv_record> &records, int &bad_line) {
    records.clear();
    std::size_t i = 0;
    const std::size_t n = text.size();
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) i = 3;
    int line = 1;
    csv_record record;
    record.line = line;
    std::string field;
    bool any = false; // the record holds a character (or a quoted field)

    const auto end_record = [&] {
        if (any) {
            record.fields.push_back(field);
            records.push_back(record);
        }
        record = csv_record{};
        field.clear();
        any = false;
    };
    // Past a line end at text[i] (CRLF, LF or CR).
    const auto skip_line_end = [&] {
        if (text[i] == '\r' && i + 1 < n && text[i + 1] == '\n') ++i;
        ++i;
        ++line;
    };

    while (i < n) {
        const char c = text[i];
        if (c == '"' && field.empty()) {
            const int start_line = line;
            any = true;
            ++i;
            for (;;) {
                if (i >= n) {
                    bad_line = start_line;
                    return false;
                }
                if (text[i] == '"') {
                    if (i + 1 < n && text[i + 1] == '"') {
                        field += '"';
                        i += 2;
                        continue;
                    }
                    ++i;
                    break;
                }
                if (text[i] == '\r' || text[i] == '\n') {
                    // A line end inside quotes is kept as a line feed.
                    field += '\n';
                    skip_line_end();
                    continue;
                }
                field += text[i++];
            }
            if (i < n && text[i] != ',' && text[i] != '\r' && text[i] != '\n') {
                bad_line = line;
                return false;
            }
            continue;
        }
        if (c == ',') {
            if (record.fields.empty() && !any) record.line = line;
            any = true;
            record.fields.push_back(field);
            field.clear();
            ++i;
            continue;
        }
        if (c == '\r' || c == '\n') {
            end_record();
            skip_line_end();
            record.line = line;
            continue;
        }
        if (!any) record.line = line;
        any = true;
        field += c;
        ++i;
    }
    end_record();
    return true;
}

} // namespace stationxml
