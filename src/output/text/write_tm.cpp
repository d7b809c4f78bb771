// The single-series writer: the samples of one series in one of the column
// layouts.
#include "row_writer.h"
#include "settings.h"
#include "writers.h"

namespace {

// TSPAIR time stamp: the date and time to the second, then the microseconds.
constexpr const char* TSPAIR_TIME_FORMAT = "%Y-%m-%dT%H:%M:%S";
// SLIST values per line.
constexpr long SLIST_PER_LINE = 6;

} // namespace

double write_tm(const std::filesystem::path& s, const series_t& values, const series_t& time, long start_i,
                long size, double stm, double freq, const char* comment) {
    check_window("write_tm", values, start_i, size);
    check_window("write_tm", time, start_i, size);
    const OUTPUT_TYPE type = output_type;
    TimeStamper stamp(TSPAIR_TIME_FORMAT);
    auto head = [&](OutFile& out) {
        if ((type == OT_TWOCOLUMNS || type == OT_AVERAGE) && nrsamples) {
            out.put_ld(size > 0 ? size : 0);
            out.put('\n');
        }
    };
    auto row = [&](OutFile& out, std::size_t k, double t, FixedColumn& column, long row_number) {
        const double value = values[k];
        switch (type) {
        case OT_ONECOLUMN:
            out.put_f(value);
            out.put('\n');
            break;
        case OT_TWOCOLUMNS:
        case OT_AVERAGE:
            out.put_fixed(column, t);
            out.put(' ');
            out.put_g(value);
            out.put('\n');
            break;
        case OT_TSPAIR:
            out.put(stamp(t));
            out.put(' ');
            out.put_f0(value);
            out.put('\n');
            break;
        case OT_SLIST:
            // The last line deliberately ends without a line break when the
            // count is not a multiple of six.
            out.put_f12_0(value);
            if (row_number % SLIST_PER_LINE == 0) out.put('\n');
            break;
        default:
            // The other layouts have their own writers; here they get only
            // the comment line.
            break;
        }
    };
    return write_window_rows(s, time, start_i, size, stm, freq, comment, head, row);
}
