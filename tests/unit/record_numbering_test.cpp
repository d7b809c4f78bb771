// Records packed from number 1 and renumbered against the records libmseed
// numbers itself from the same start: the same bytes, including the turn
// from 999999 back to 1, and the same number for the record after them.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "mseed_records.h"
#include "record_numbering.h"

namespace {

std::string packed_from(int &sequence, const std::vector<double> &values, const std::vector<double> &times) {
    std::string records;
    std::vector<int32_t> scratch(values.size());
    const mseed_stream stream{"XX", "RAA1", "", "BDF", 20.0, 512};
    pack_segment(stream, values.data(), times.data(), values.size(), scratch.data(), sequence,
                 [&records](const char *bytes, std::size_t length) { records.append(bytes, length); });
    return records;
}

TEST(RecordNumbering, AsLibmseedNumbersThemAcrossTheTurn) {
    std::vector<double> values, times;
    for (int i = 0; i < 20000; ++i) {
        values.push_back(std::round(3000 * std::sin(i * 0.01)) + (i * 7919 % 41));
        times.push_back(1500000000.0 + i / 20.0);
    }
    for (int start : {1, 17, 999990, 999999}) {
        int theirs = start;
        const std::string expected = packed_from(theirs, values, times);
        int from_one = 1;
        std::string ours = packed_from(from_one, values, times);
        int sequence = start;
        renumber_records(ours, 512, sequence);
        ASSERT_GT(expected.size(), 512u * 12);
        EXPECT_EQ(ours, expected) << "start " << start;
        EXPECT_EQ(sequence, theirs) << "start " << start;
    }
}

} // namespace
