// SEED codes, segment finding and the choice of encoding of the binary
// miniSEED layout.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "mseed_codes.h"
#include "mseed_records.h"
#include "mseed_segments.h"

TEST(MseedCodes, BandCodesOfBroadbandSensors) {
    const struct {
        double rate;
        char code;
    } table[] = {
        {20.0, 'B'},    {10.0, 'B'},    {79.999, 'B'},   {80.0, 'H'},     {249.9, 'H'},
        {250.0, 'C'},   {999.0, 'C'},   {1000.0, 'F'},   {4999.0, 'F'},   {5000.0, 'J'},
        {9.99, 'M'},    {1.01, 'M'},    {1.0, 'L'},      {0.5, 'L'},      {0.1, 'V'},
        {0.05, 'V'},    {0.01, 'U'},    {0.001, 'U'},    {0.0009, 'R'},   {0.0001, 'R'},
        {0.00005, 'P'}, {0.00001, 'P'}, {0.000005, 'T'}, {0.000001, 'T'}, {0.0000009, 'Q'},
    };
    for (const auto &row : table)
        EXPECT_EQ(band_code(row.rate), row.code) << row.rate;
    EXPECT_EQ(band_code(std::nan("")), 'Q');
    EXPECT_EQ(channel_code(20.0), "BDF");
    EXPECT_EQ(channel_code(18.0), "BDF");
    EXPECT_EQ(channel_code(80.0), "HDF");
}

TEST(MseedCodes, StationCodePerChannel) {
    EXPECT_EQ(station_code("arvola", 0), "RAA1");
    EXPECT_EQ(station_code("arvola2", 2), "RAA3");
    EXPECT_EQ(station_code("ensholm", 1), "REA2");
    EXPECT_EQ(station_code("test", 0), "TEST1");
    EXPECT_EQ(station_code("unknown", 8), "TEST9");
    EXPECT_EQ(station_code("test", 9), "TEST10"); // too long: the caller refuses it
    EXPECT_EQ(station_code("dovmark", 9), "RDA10");
}

TEST(MseedCodes, NetworkCodes) {
    for (const char *good : {"XX", "X", "9", "AB", "Z9", "00"})
        EXPECT_TRUE(valid_network_code(good)) << good;
    for (const char *bad : {"", "xx", "Xx", "ABC", "A-", " A", "A ", "Ä"})
        EXPECT_FALSE(valid_network_code(bad)) << bad;
}

TEST(MseedCodes, RecordLengths) {
    for (long n : {256L, 512L, 1024L, 4096L, 65536L})
        EXPECT_TRUE(valid_record_length(n)) << n;
    for (long n : {0L, -256L, 128L, 255L, 257L, 3000L, 131072L, 65535L})
        EXPECT_FALSE(valid_record_length(n)) << n;
}

TEST(MseedSegments, BreaksAtGapsAndOverlaps) {
    const double f = 20.0;
    series_t t;
    for (int i = 0; i < 10; ++i)
        t.push_back(100.0 + i * 0.05);
    EXPECT_TRUE(segment_breaks(t, f).empty());
    t[5] += 0.024; // less than half an interval early or late: no break
    t[6] += 0.0;
    EXPECT_TRUE(segment_breaks(t, f).empty());
    t[5] = 100.0 + 5 * 0.05 + 0.026; // the step before 5 is too long, the one after too short
    EXPECT_EQ(segment_breaks(t, f), (std::vector<long>{5, 6}));
    t[5] = 100.0 + 5 * 0.05;
    for (int i = 7; i < 10; ++i)
        t[i] += 10.0; // a gap of 10 s before sample 7
    EXPECT_EQ(segment_breaks(t, f), (std::vector<long>{7}));
    for (int i = 7; i < 10; ++i)
        t[i] -= 11.0; // an overlap
    EXPECT_EQ(segment_breaks(t, f), (std::vector<long>{7}));
    t[3] = std::nan("");
    EXPECT_EQ(segment_breaks(t, f), (std::vector<long>{3, 4, 7}));
    EXPECT_TRUE(segment_breaks(series_t{}, f).empty());
    EXPECT_TRUE(segment_breaks(series_t{5.0}, f).empty());
}

TEST(MseedSegments, WindowSegmentsWithoutResampling) {
    const std::vector<long> breaks{100, 250};
    EXPECT_EQ(window_segments(breaks, 1, 400, 0, 400),
              (std::vector<sample_range>{{0, 100}, {100, 250}, {250, 400}}));
    EXPECT_EQ(window_segments(breaks, 1, 400, 50, 100), (std::vector<sample_range>{{50, 100}, {100, 150}}));
    EXPECT_EQ(window_segments(breaks, 1, 400, 100, 150), (std::vector<sample_range>{{100, 250}}));
    EXPECT_EQ(window_segments({}, 1, 400, 10, 20), (std::vector<sample_range>{{10, 30}}));
}

TEST(MseedSegments, WindowSegmentsLeaveOutTheBridgeAfterResampling) {
    // 200 input samples, a break at 100, up 4: 800 written samples; input
    // sample 99 is written sample 396, 100 is 400.
    const std::vector<long> breaks{100};
    EXPECT_EQ(window_segments(breaks, 4, 800, 0, 800), (std::vector<sample_range>{{0, 397}, {400, 800}}));
    // A window that starts or ends inside the bridge.
    EXPECT_EQ(window_segments(breaks, 4, 800, 398, 10), (std::vector<sample_range>{{400, 408}}));
    EXPECT_EQ(window_segments(breaks, 4, 800, 390, 9), (std::vector<sample_range>{{390, 397}}));
    EXPECT_TRUE(window_segments(breaks, 4, 800, 397, 3).empty());
}

TEST(MseedEncoding, Choice) {
    auto pick = [](std::vector<double> v) {
        std::vector<int32_t> integers(v.size());
        const mseed_encoding e = choose_encoding(v.data(), v.size(), integers.data());
        if (e != mseed_encoding::FLOAT64) {
            for (size_t i = 0; i < v.size(); ++i)
                EXPECT_EQ(integers[i], v[i]);
        }
        return e;
    };
    const double big = 536870911.0; // 2^29 - 1
    EXPECT_EQ(pick({}), mseed_encoding::STEIM2);
    EXPECT_EQ(pick({1, 2, -3}), mseed_encoding::STEIM2);
    EXPECT_EQ(pick({0, big}), mseed_encoding::STEIM2);
    EXPECT_EQ(pick({0, big + 1}), mseed_encoding::INT32);
    EXPECT_EQ(pick({0, -big - 1}), mseed_encoding::STEIM2);
    EXPECT_EQ(pick({0, -big - 2}), mseed_encoding::INT32);
    EXPECT_EQ(pick({2147483647.0, -2147483648.0}), mseed_encoding::INT32);
    EXPECT_EQ(pick({2147483648.0}), mseed_encoding::FLOAT64);
    EXPECT_EQ(pick({-2147483649.0}), mseed_encoding::FLOAT64);
    EXPECT_EQ(pick({1, 2.5}), mseed_encoding::FLOAT64);
    EXPECT_EQ(pick({-0.0, 1}), mseed_encoding::STEIM2);
    EXPECT_EQ(pick({std::nan("")}), mseed_encoding::FLOAT64);
    EXPECT_EQ(pick({std::numeric_limits<double>::infinity()}), mseed_encoding::FLOAT64);
    // A float anywhere decides, even after a difference too large for Steim-2.
    EXPECT_EQ(pick({0, 2e9, 0.5}), mseed_encoding::FLOAT64);
}

TEST(MseedTimes, WritableRates) {
    for (double r : {1e-9, 0.001, 1.0, 18.0, 20.0, 80.0, 1e6, 1e9}) EXPECT_TRUE(writable_rate(r)) << r;
    for (double r : {0.0, -20.0, 9e-10, 1.1e9, 1e300, std::nan("")}) EXPECT_FALSE(writable_rate(r)) << r;
}

TEST(MseedTimes, WritableYearsAndMicroseconds) {
    EXPECT_TRUE(writable_time(0.0));
    EXPECT_TRUE(writable_time(-2208988800.0)); // 1900-01-01
    EXPECT_FALSE(writable_time(-2208988800.001));
    EXPECT_TRUE(writable_time(4133980799.999)); // the last moment of 2100
    EXPECT_FALSE(writable_time(4133980800.0));
    EXPECT_FALSE(writable_time(std::nan("")));
    EXPECT_EQ(microseconds_of(1500000000.05), 1500000000050000);
    EXPECT_EQ(microseconds_of(1500000000.123457), 1500000000123457);
    EXPECT_EQ(microseconds_of(-0.5), -500000);
}
