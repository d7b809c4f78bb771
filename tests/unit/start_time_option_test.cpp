#include <gtest/gtest.h>

#include <string>

#include "start_time_option.h"

namespace {

struct parsed {
    bool ok;
    long seconds;
    std::string errors;
};

parsed parse(const char* arg) {
    parsed p{false, -12345, ""};
    p.ok = parse_start_time(arg, p.seconds, p.errors);
    return p;
}

TEST(StartTimeOption, HoursMinutesSeconds) {
    auto p = parse("1.2.3");
    EXPECT_TRUE(p.ok);
    EXPECT_EQ(p.seconds, 3723);
}

TEST(StartTimeOption, TwoNumbersAreMinutesAndSeconds) { EXPECT_EQ(parse("12.30").seconds, 750); }

TEST(StartTimeOption, LastMinuteOfTheDayIsAccepted) { EXPECT_EQ(parse("1439.59").seconds, 1439 * 60 + 59); }

TEST(StartTimeOption, MinuteOfDay1440IsRefused) {
    auto p = parse("1440.0");
    EXPECT_FALSE(p.ok);
    EXPECT_EQ(p.errors, "Error: Minutes out of range ( 0 <= 1440 < 1440 ).\n");
}

TEST(StartTimeOption, Hour24IsRefused) {
    auto p = parse("24.0.0");
    EXPECT_FALSE(p.ok);
    EXPECT_EQ(p.errors, "Error: Hours out of range ( 0 <= 24 < 24 ).\n");
}

TEST(StartTimeOption, AllThreeMessages) {
    EXPECT_EQ(parse("25.61.61").errors, "Error: Hours out of range ( 0 <= 25 < 24 ).\n"
                                        "Error: Minutes out of range ( 0 <= 61 < 60 ).\n"
                                        "Error: Seconds out of range ( 0 <= 61 < 60 ).\n");
}

TEST(StartTimeOption, NegativeFieldsAreRefused) {
    EXPECT_EQ(parse("1.-1.0").errors, "Error: Minutes out of range ( 0 <= -1 < 60 ).\n");
    EXPECT_EQ(parse("-1.0.0").errors, "Error: Hours out of range ( 0 <= -1 < 24 ).\n");
    EXPECT_EQ(parse("0.-5").errors, "Error: Seconds out of range ( 0 <= -5 < 60 ).\n");
}

TEST(StartTimeOption, SingleNumberIsUncheckedHours) {
    EXPECT_EQ(parse("30").seconds, 30 * 3600);
    EXPECT_EQ(parse("999999").seconds, 999999L * 3600);
}

TEST(StartTimeOption, NoNumberIsZero) {
    EXPECT_EQ(parse("").seconds, 0);
    EXPECT_EQ(parse("abc").seconds, 0);
}

TEST(StartTimeOption, TrailingTextEndsTheScan) { EXPECT_EQ(parse("1.2x").seconds, 62); }

TEST(StartTimeOption, HugeHoursDoNotWrap) {
    auto p = parse("9999999999999999999");
    EXPECT_FALSE(p.ok);
    EXPECT_EQ(p.errors, "Error: Start time (-s) out of range.\n");
}

} // namespace
