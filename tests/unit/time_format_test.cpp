#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "settings.h"
#include "time_format.h"

namespace {

class TimeFormat : public testing::Test {
protected:
    void SetUp() override { reset_settings(); }
    void TearDown() override { reset_settings(); }
};

int decimals(double last, double before_last) {
    int dec = 12345;
    determine_format(last, before_last, dec);
    return dec;
}

std::string stamp(double whence, const char* fmt = "%H:%M:%S") {
    char buf[160];
    std::memset(buf, 'x', sizeof buf);
    unsigned n = strftime_us(buf, sizeof buf, fmt, whence);
    EXPECT_EQ(std::strlen(buf), n);
    return std::string(buf, n);
}

const double INF = std::numeric_limits<double>::infinity();
const double NaN = std::numeric_limits<double>::quiet_NaN();

} // namespace

TEST_F(TimeFormat, ZeroStepAutomaticGivesNoDecimals) {
    EXPECT_EQ(decimals(5.0, 5.0), 0);
}

TEST_F(TimeFormat, FixedSecDecimalsWinWhateverTheStep) {
    sec_decimals = 3;
    EXPECT_EQ(decimals(5.0, 5.0), 3);
    EXPECT_EQ(decimals(5.0, 4.95), 3);
    EXPECT_EQ(decimals(2000.0, 1000.0), 3);
    EXPECT_EQ(decimals(NaN, 1.0), 3);
    sec_decimals = 0;
    EXPECT_EQ(decimals(5.0, 4.95), 0);
}

TEST_F(TimeFormat, AutomaticDecimalsFromTheStep) {
    EXPECT_EQ(decimals(0.1, 0.05), 4);   // ceil(1.301) + 2
    EXPECT_EQ(decimals(2.0, 1.0), 0);    // ceil(0) = 0
    EXPECT_EQ(decimals(1.0, 0.5), 3);    // 1 + 2
    EXPECT_EQ(decimals(20.0, 10.0), 1);  // -1 + 2
    EXPECT_EQ(decimals(200.0, 100.0), 0);
    EXPECT_EQ(decimals(1.0, 2.0), 0); // the step's sign does not matter
    EXPECT_EQ(decimals(1700000000.05, 1700000000.0), 4);
}

TEST_F(TimeFormat, StepOfThousandSecondsGivesMinusOne) {
    EXPECT_EQ(decimals(2000.0, 1000.0), -1);
}

TEST_F(TimeFormat, NonFiniteStepsGiveNegativeDecimals) {
    EXPECT_EQ(decimals(NaN, 1.0), -1);
    EXPECT_EQ(decimals(INF, 1.0), -1);
    EXPECT_EQ(decimals(1.0, -INF), -1);
    EXPECT_EQ(decimals(DBL_TRUE_MIN * 4, 0.0), -1); // the inverse overflows
    EXPECT_EQ(decimals(1e-300, 0.0), 302);
    EXPECT_EQ(decimals(DBL_MAX, -DBL_MAX), -1); // the step overflows to infinity
    EXPECT_LT(decimals(DBL_MAX, 0.0), 0);
}

TEST_F(TimeFormat, DigitCountOfTheLastTime) {
    int dec = 0;
    EXPECT_EQ(determine_format(1500.0, 1499.0, dec), 4);
    EXPECT_EQ(determine_format(1000.0, 999.0, dec), 3);
    EXPECT_EQ(determine_format(0.5, 0.0, dec), 0);
    EXPECT_EQ(determine_format(1.7e9, 1.7e9, dec), 10);
    // Not finite: no digit count, and no conversion of a non-finite value.
    EXPECT_EQ(determine_format(0.0, 0.0, dec), 0);
    EXPECT_EQ(determine_format(-5.0, 0.0, dec), 0);
    EXPECT_EQ(determine_format(NaN, 0.0, dec), 0);
    EXPECT_EQ(determine_format(INF, 0.0, dec), 0);
}

TEST_F(TimeFormat, HugeSecDecimalsStayDefined) {
    sec_decimals = LONG_MAX;
    EXPECT_EQ(decimals(1.0, 0.5), INT_MAX);
}

TEST_F(TimeFormat, WindowDecimalsReadTheLastTwoTimes) {
    series_t t = {0.0, 0.05, 0.1, 10.0, 20.0};
    EXPECT_EQ(window_decimals(t, 3), 4);
    EXPECT_EQ(window_decimals(t, 5), 1);
    EXPECT_EQ(window_decimals(t, 2), 4);
    // Before index 2 there is no step: that of a zero step.
    EXPECT_EQ(window_decimals(t, 1), 0);
    EXPECT_EQ(window_decimals(t, 0), 0);
    EXPECT_EQ(window_decimals(t, -4), 0);
    EXPECT_EQ(window_decimals(t, 6), 0); // beyond the series: not read
    sec_decimals = 2;
    EXPECT_EQ(window_decimals(t, 1), 2);
}

TEST_F(TimeFormat, StrftimeUsHalfSecond) {
    EXPECT_EQ(stamp(0.5), "00:00:00.500000");
}

TEST_F(TimeFormat, StrftimeUsHasNoCarry) {
    EXPECT_EQ(stamp(0.9999996), "00:00:00.1000000");
}

TEST_F(TimeFormat, StrftimeUsNegativeFraction) {
    EXPECT_EQ(stamp(-0.5), "00:00:00.-500000");
    EXPECT_EQ(stamp(-1.25), "23:59:59.-250000");
    EXPECT_EQ(stamp(-1.000001), "23:59:59.-00001");
}

TEST_F(TimeFormat, StrftimeUsTspairStamp) {
    EXPECT_EQ(stamp(1700000000.25, "%Y-%m-%dT%H:%M:%S"), "2023-11-14T22:13:20.250000");
    EXPECT_EQ(stamp(1700000000.0, "%Y-%m-%dT%H:%M:%S"), "2023-11-14T22:13:20.000000");
}

TEST_F(TimeFormat, StrftimeUsAbsurdTimes) {
    EXPECT_EQ(stamp(NaN), "00:00:00.000000");
    // Beyond what the C library can break down: only the fraction.
    EXPECT_EQ(stamp(INF), ".000000");
    EXPECT_EQ(stamp(-INF), ".000000");
    EXPECT_EQ(stamp(1e300), ".000000");
    EXPECT_EQ(stamp(-DBL_MAX), ".000000");
}

TEST_F(TimeFormat, StrftimeUsKeepsWithinSize) {
    char buf[140];
    std::memset(buf, 'x', sizeof buf);
    // Room for the time but not for the fraction: the fraction is left out.
    unsigned n = strftime_us(buf, 10, "%H:%M:%S", 0.5);
    EXPECT_EQ(n, 8u);
    EXPECT_STREQ(buf, "00:00:00");
    EXPECT_EQ(buf[9], 'x');
}

TEST_F(TimeFormat, ToTimeTClamps) {
    EXPECT_EQ(to_time_t(1.9), 1);
    EXPECT_EQ(to_time_t(-1.9), -1);
    EXPECT_EQ(to_time_t(NaN), 0);
    EXPECT_EQ(to_time_t(INF), INT64_MAX);
    EXPECT_EQ(to_time_t(-INF), INT64_MIN);
    EXPECT_EQ(to_time_t(0x1p63), INT64_MAX);
    EXPECT_EQ(to_time_t(-0x1p63), INT64_MIN);
}

TEST_F(TimeFormat, MyTimeToTm) {
    tm t = my_time_t(86400 + 3661);
    EXPECT_EQ(t.tm_year, 70);
    EXPECT_EQ(t.tm_mday, 2);
    EXPECT_EQ(t.tm_hour, 1);
    EXPECT_EQ(t.tm_min, 1);
    EXPECT_EQ(t.tm_sec, 1);
    // A copy: a later conversion does not change it.
    tm u = my_time_t(0);
    EXPECT_EQ(t.tm_mday, 2);
    EXPECT_EQ(u.tm_mday, 1);
    tm absurd = my_time_t(INT64_MAX);
    EXPECT_EQ(absurd.tm_year, 0);
}

TEST_F(TimeFormat, TmPrinterUsesDefaultTimeFormat) {
    std::ostringstream os;
    os << my_time_t(1700000000);
    tm t = my_time_t(1700000000);
    char zone[16];
    std::strftime(zone, sizeof zone, "%Z", &t);
    EXPECT_EQ(os.str(), std::string("2023-11-14 22:13:20 ") + zone);
    default_time_format = "%H:%M";
    std::ostringstream os2;
    os2 << t;
    EXPECT_EQ(os2.str(), "22:13");
}

TEST_F(TimeFormat, TmPrinterPrintsNothingForAbsurdTimes) {
    std::ostringstream os;
    os << "[" << my_time_t(INT64_MAX) << "]";
    EXPECT_EQ(os.str(), "[]");
}

TEST_F(TimeFormat, TmPrinterDropsTextLongerThanItsBuffer) {
    default_time_format = "%Y-%m-%d %H:%M:%S %Y-%m-%d %H:%M:%S %Y-%m-%d %H:%M:%S %Y-%m-%d";
    std::ostringstream os;
    os << my_time_t(0);
    EXPECT_EQ(os.str(), "");
}

TEST_F(TimeFormat, TimeStamperMatchesStrftimeUs) {
    const char* fmt = "%Y-%m-%dT%H:%M:%S";
    TimeStamper stamper(fmt);
    std::vector<double> times = {NaN, INF, 0.5, 0.9999996, -0.5, -1.25, 1e300, -INF};
    for (double t = 1699999990.0; t < 1700000010.0; t += 0.05) times.push_back(t);
    for (double t = -3.0; t < 3.0; t += 0.07) times.push_back(t);
    times.push_back(1700000000.0);
    for (double t : times) {
        char buf[160];
        unsigned n = strftime_us(buf, sizeof buf, fmt, t);
        EXPECT_EQ(stamper(t), std::string_view(buf, n)) << t;
    }
}
