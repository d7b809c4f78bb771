// Channel epochs from the facts of an archive's recordings and the station
// table: a new epoch where the rate, the factors or the row change, the
// boundaries of rows inside a stretch, and the samples no row covers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "channel_epochs.h"
#include "stationxml_document.h"

namespace {

using namespace stationxml;

constexpr int64_t S = 1000000; // one second in microseconds

// A recording of one channel at 16 Hz: `n` samples from `first` seconds.
sds::recording_facts recording(const std::string &id, double first_s, uint64_t n, double gain,
                               double rate = 16) {
    sds::recording_facts f;
    f.path = id + "@" + std::to_string(first_s);
    sds::recording_channel c;
    parse_channel_id(id, c.codes);
    c.rate = rate;
    c.volts_per_count = 10;
    c.gain = gain;
    c.first = static_cast<int64_t>(first_s * S);
    c.last = c.first + static_cast<int64_t>((n - 1) * S / rate);
    c.samples = c.filed = n;
    c.spans.push_back({c.first, c.last, n});
    f.channels.push_back(c);
    return f;
}

station_row row(const std::string &net, const std::string &sta, int line, int64_t start, int64_t end) {
    station_row r;
    r.line = line;
    r.network = net;
    r.station = sta;
    r.start = start;
    r.end = end;
    r.sensitivity = 0.0025;
    r.frequency = 1;
    return r;
}

TEST(ChannelEpochs, GainChangeAndRowBoundaryInsideAStretch) {
    station_table table;
    table.rows.push_back(row("XX", "REA1", 2, OPEN_START, 100 * S));
    table.rows.push_back(row("", "REA1", 3, 100 * S, OPEN_END));
    // Out of order on purpose, and a gap between the last two.
    const std::vector<sds::recording_facts> facts = {recording("XX.REA1..BDF", 64, 1024, 30),
                                                     recording("XX.REA1..BDF", 0, 1024, 20),
                                                     recording("XX.REA1..BDF", 200, 160, 30)};
    const epoch_plan plan = plan_epochs(facts, table);
    EXPECT_TRUE(plan.uncovered.empty());
    ASSERT_EQ(plan.channels.size(), 1u);
    const std::vector<channel_epoch> &e = plan.channels[0].epochs;
    ASSERT_EQ(e.size(), 3u);
    EXPECT_EQ(e[0].start, 0);
    EXPECT_EQ(e[0].end, 64 * S);
    EXPECT_EQ(e[0].gain, 20);
    EXPECT_EQ(e[0].row->line, 2);
    EXPECT_EQ(e[1].start, 64 * S);
    EXPECT_EQ(e[1].end, 100 * S); // the sample at 100 s belongs to the next row
    EXPECT_EQ(e[1].gain, 30);
    EXPECT_EQ(e[1].row->line, 2);
    EXPECT_EQ(e[2].start, 100 * S);
    EXPECT_EQ(e[2].end, 210 * S); // a gap starts no epoch; one interval after the last sample
    EXPECT_EQ(e[2].row->line, 3);
    for (const channel_epoch &x : e)
        EXPECT_EQ(x.rate, 16);
    EXPECT_DOUBLE_EQ(counts_per_volt(e[0]), 1.0 / 200);
}

TEST(ChannelEpochs, RateChangeStartsAnEpochAndCountsPerVoltFromTheRow) {
    station_table table;
    table.rows.push_back(row("XX", "REA1", 2, OPEN_START, OPEN_END));
    table.rows[0].counts_per_volt = 4000;
    const std::vector<sds::recording_facts> facts = {recording("XX.REA1..BDF", 0, 160, 20, 16),
                                                     recording("XX.REA1..BDF", 10, 200, 20, 20)};
    const epoch_plan plan = plan_epochs(facts, table);
    ASSERT_EQ(plan.channels.size(), 1u);
    ASSERT_EQ(plan.channels[0].epochs.size(), 2u);
    EXPECT_EQ(plan.channels[0].epochs[0].end, 10 * S);
    EXPECT_EQ(plan.channels[0].epochs[1].rate, 20);
    EXPECT_EQ(counts_per_volt(plan.channels[0].epochs[1]), 4000);
}

TEST(ChannelEpochs, UncoveredSpansPerElement) {
    station_table table;
    table.rows.push_back(row("XX", "REA1", 2, 10 * S, 50 * S));
    table.rows.push_back(row("XX", "REA1", 3, 60 * S, 100 * S));
    table.rows.push_back(row("YY", "REA2", 4, OPEN_START, OPEN_END)); // another network
    const std::vector<sds::recording_facts> facts = {recording("XX.REA1..BDF", 0, 1024, 20),
                                                     recording("XX.REA1..BDF", 64, 1024, 20),
                                                     recording("XX.REA2..BDF", 0, 16, 20)};
    const epoch_plan plan = plan_epochs(facts, table);
    ASSERT_EQ(plan.uncovered.size(), 4u);
    EXPECT_EQ(plan.uncovered[0].element, "XX.REA1");
    EXPECT_EQ(plan.uncovered[0].first, 0);
    EXPECT_EQ(plan.uncovered[0].last, 10 * S - S / 16);
    EXPECT_EQ(plan.uncovered[1].first, 50 * S);
    EXPECT_EQ(plan.uncovered[1].last, 60 * S - S / 16);
    EXPECT_EQ(plan.uncovered[2].first, 100 * S); // to the end of the second recording
    EXPECT_EQ(plan.uncovered[2].last, 64 * S + 1023 * S / 16);
    EXPECT_EQ(plan.uncovered[3].element, "XX.REA2");
    EXPECT_EQ(plan.uncovered[3].last, 15 * S / 16);
}

TEST(ChannelEpochs, RepeatedRecordingAddsNoEpoch) {
    station_table table;
    table.rows.push_back(row("", "REA1", 2, OPEN_START, OPEN_END));
    const std::vector<sds::recording_facts> facts = {recording("XX.REA1..BDF", 0, 160, 20),
                                                     recording("XX.REA1..BDF", 0, 160, 20),
                                                     recording("XX.REA1..BDF", 5, 160, 20)};
    const epoch_plan plan = plan_epochs(facts, table);
    ASSERT_EQ(plan.channels.size(), 1u);
    ASSERT_EQ(plan.channels[0].epochs.size(), 1u);
    EXPECT_EQ(plan.channels[0].epochs[0].start, 0);
    EXPECT_EQ(plan.channels[0].epochs[0].end, 15 * S);
}

TEST(ChannelEpochs, ShortestNumbers) {
    EXPECT_EQ(shortest(0.1), "0.1");
    EXPECT_EQ(shortest(0.0025 / 200), "1.25e-05");
    EXPECT_EQ(shortest(16), "16");
    EXPECT_EQ(shortest(-0.0), "0");
    EXPECT_EQ(shortest(60.123456789), "60.123456789");
}

} // namespace
