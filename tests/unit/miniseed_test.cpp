#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "miniseed.h"
#include "settings.h"

namespace {

struct codes {
    std::string net, sta, loc, chan;
};

codes name_of(const std::string& station) {
    codes c{"x", "x", "x", "x"};
    miniseed_name(station, &c.net, &c.sta, &c.loc, &c.chan);
    return c;
}

class MiniseedTest : public ::testing::Test {
protected:
    void SetUp() override { reset_settings(); }
    void TearDown() override { reset_settings(); }
};

} // namespace

TEST_F(MiniseedTest, KnownStations) {
    const struct {
        const char* name;
        const char* code;
    } table[] = {
        {"arvola", "RAA"},   {"arvola2", "RAA"},  {"bredmo", "RBA"},   {"bredmo2", "RBA"}, {"corsund", "RCA"},
        {"corsund2", "RCA"}, {"dovmark", "RDA"},  {"dovmark2", "RDA"}, {"ensholm", "REA"},
    };
    for (const auto& row : table) {
        const codes c = name_of(row.name);
        EXPECT_EQ(c.sta, row.code) << row.name;
        EXPECT_EQ(c.net, "ZEK");
        EXPECT_EQ(c.loc, "test");
        EXPECT_EQ(c.chan, "BDF");
    }
}

TEST_F(MiniseedTest, Ensholm2HasNoCode) {
    const codes c = name_of("ensholm2");
    EXPECT_EQ(c.sta, "test");
    const std::string series = c.net + "_" + c.sta + std::to_string(0 + 1) + "_" + c.loc + "_" + c.chan;
    EXPECT_EQ(series, "ZEK_test1_test_BDF");
}

TEST_F(MiniseedTest, UnknownStationsKeepTheDefaults) {
    for (const char* name : {"", "Arvola", "arvola3", "arvola ", "unknown"}) {
        const codes c = name_of(name);
        EXPECT_EQ(c.net, "ZEK") << name;
        EXPECT_EQ(c.sta, "test") << name;
        EXPECT_EQ(c.loc, "test") << name;
        EXPECT_EQ(c.chan, "BDF") << name;
    }
}

TEST_F(MiniseedTest, FirstChannelNameOfArvola) {
    const codes c = name_of("arvola");
    EXPECT_EQ(c.net + "_" + c.sta + "1_" + c.loc + "_" + c.chan, "ZEK_RAA1_test_BDF");
}

TEST_F(MiniseedTest, TimeConvertByUnit) {
    const double t = 1700000123.5;
    time_in_minutes = TIME_SECONDS;
    EXPECT_EQ(time_convert(t), t);
    time_in_minutes = TIME_MINUTES;
    EXPECT_EQ(time_convert(t), t / 60.0);
    EXPECT_EQ(time_convert(1.0), 1.0 / 60.0);
    time_in_minutes = TIME_SECONDS_DAY;
    EXPECT_EQ(time_convert(t), std::fmod(t, 86400.0));
    EXPECT_EQ(time_convert(86400.0 * 3 + 12.25), 12.25);
    time_in_minutes = TIME_MINUTES_DAY;
    EXPECT_EQ(time_convert(t), std::fmod(t / 60.0, 1440.0));
    EXPECT_EQ(time_convert(86400.0 * 5 + 90.0), 1.5);
}

TEST_F(MiniseedTest, TimeConvertKeepsTheSignOfFmod) {
    time_in_minutes = TIME_SECONDS_DAY;
    EXPECT_EQ(time_convert(-10.0), -10.0);
    time_in_minutes = TIME_MINUTES_DAY;
    EXPECT_EQ(time_convert(-120.0), -2.0);
}
