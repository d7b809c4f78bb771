// The file of a staged recording: what is encoded decodes to the same times
// and value bits (integer and double channels, a channel shorter than the
// times, a channel without values), and damaged bytes are refused with the
// reason rather than read past their end.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "sds_staged_file.h"

namespace {

staged_content sample_content() {
    staged_content c;
    for (int64_t t : {1462060800000000LL, 1462060800050000LL, 1462060800100000LL, 1462060800150001LL})
        c.times.push_back(t);
    staged_channel counts{"XX.STA..BDF", {}};
    for (double v : {12.0, -40000.0, 2147483647.0, -2147483648.0}) counts.values.push_back(v);
    staged_channel doubles{"XX.STA..BDG", {}};
    for (double v : {0.5, -0.0, std::numeric_limits<double>::quiet_NaN()}) doubles.values.push_back(v);
    c.channels.push_back(counts);
    c.channels.push_back(doubles);
    return c;
}

bool same_bits(const big_list<double>& a, const big_list<double>& b) {
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0);
}

TEST(StagedFile, WhatIsEncodedDecodesBitForBit) {
    const staged_content c = sample_content();
    staged_content back;
    std::string why;
    ASSERT_TRUE(decode_staged(encode_staged(c), back, why)) << why;
    EXPECT_EQ(back.times, c.times);
    ASSERT_EQ(back.channels.size(), 2u);
    for (std::size_t k = 0; k < 2; ++k) {
        EXPECT_EQ(back.channels[k].id, c.channels[k].id);
        EXPECT_TRUE(same_bits(back.channels[k].values, c.channels[k].values)) << k;
    }
    EXPECT_TRUE(std::signbit(back.channels[1].values[1])); // -0.0 stays a double
}

TEST(StagedFile, AChannelWithoutValuesDecodes) {
    // One channel of doubles, no times, no values: the smallest file there is.
    const std::string bytes("BRSTAGE2\x01\x00\x00\x02\x00", 13);
    staged_content back;
    std::string why;
    ASSERT_TRUE(decode_staged(bytes, back, why)) << why;
    EXPECT_TRUE(back.times.empty());
    ASSERT_EQ(back.channels.size(), 1u);
    EXPECT_TRUE(back.channels[0].values.empty());
    // And as encoded from such content.
    staged_content c;
    c.channels.push_back({"XX.STA..BDF", {}});
    ASSERT_TRUE(decode_staged(encode_staged(c), back, why)) << why;
    ASSERT_EQ(back.channels.size(), 1u);
    EXPECT_TRUE(back.channels[0].values.empty());
}

TEST(StagedFile, DamagedBytesAreRefusedWithTheReason) {
    const std::string whole = encode_staged(sample_content());
    staged_content back;
    std::string why;
    for (std::size_t cut = 0; cut < whole.size(); ++cut) {
        EXPECT_FALSE(decode_staged(whole.substr(0, cut), back, why)) << cut;
        EXPECT_FALSE(why.empty()) << cut;
    }
    EXPECT_FALSE(decode_staged(whole + "x", back, why));
    EXPECT_EQ(why, "holds more than its samples");
    std::string other = whole;
    other[7] = '1';
    EXPECT_FALSE(decode_staged(other, back, why));
    EXPECT_EQ(why, "is not a staged recording");
}

} // namespace
