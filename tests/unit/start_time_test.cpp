// Recording start time: file-name patterns, the half-hour time base, the
// comment date, stamps to Unix seconds and the forced UTC zone.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "vx16_fixture.h"
#include "vx16_test_support.h"
#include "vxfil/vxfil.h"

using namespace VxFil;
using namespace vx16_test;

namespace {

constexpr time_t may4_2016 = 1462320000; // 2016-05-04 00:00:00 UTC

class StartTime : public ::testing::Test {
  protected:
    void SetUp() override {
        force_utc_env();
        VXFIL_arguments a = quiet_args();
        // A neutral object whose start-time members the tests drive directly.
        reader =
            std::make_unique<AsciiVXFIL>(dir.write("plain.txt", "!S512Tidserier sampfrek: 18\n").c_str(), &a);
        reader->m_station.clear();
        reader->m_start_of_day = 0;
        reader->m_time_base = 0;
        reader->m_uncertain_year = false;
    }
    throwing_fatal fatal_guard; // a stray library end fails the test instead of ending the run
    scratch_dir dir;
    std::unique_ptr<VXFIL> reader;
};

// Changes the working directory for one test.
class working_dir {
  public:
    explicit working_dir(const std::filesystem::path& p) : m_old(std::filesystem::current_path()) {
        std::filesystem::current_path(p);
    }
    ~working_dir() { std::filesystem::current_path(m_old); }

  private:
    std::filesystem::path m_old;
};

} // namespace

TEST_F(StartTime, ArchiveNameWithoutDirectories) {
    EXPECT_TRUE(reader->set_time_start_of_day("e6050427.dat"));
    reader->set_time_base("e6050427.dat");
    EXPECT_EQ(reader->m_start_of_day, may4_2016);
    EXPECT_TRUE(reader->m_uncertain_year);
    EXPECT_EQ(reader->m_time_base, 46800);
    EXPECT_EQ(reader->m_station, "e");
}

TEST_F(StartTime, UncertainYearWarningUnlessCommentDate) {
    working_dir cwd(dir.path());
    fixtures::write_file("e6050427.dat", "!S512Tidserier sampfrek: 18 gain: 2 station: e\r");
    fixtures::write_file("e6050428.dat", "!S512Tidserier sampfrek: 18 gain: 2 station: e date: 2016-05-04\r");
    VXFIL_arguments a = quiet_args(); // printed even when quiet
    std::unique_ptr<VXFIL> r;
    std::string err = capture_stderr([&] { r = std::make_unique<BinaryVXFIL>("e6050427.dat", &a); });
    EXPECT_EQ(err, "Warning: year parsed from filename, e6050427.dat, is uncertain\n");
    EXPECT_EQ(r->m_start_of_day, may4_2016);
    EXPECT_EQ(r->m_time_base, 46800);
    EXPECT_EQ(r->m_station, "e");

    err = capture_stderr([&] { r = std::make_unique<BinaryVXFIL>("e6050428.dat", &a); });
    EXPECT_EQ(err, "");
    EXPECT_FALSE(r->m_uncertain_year);
    EXPECT_EQ(r->m_time_base, 0);
}

TEST_F(StartTime, DayDirectoryGivesACertainYear) {
    for (const char* path : {"2016/05/20160504/e6050427.dat", "/data/2016/05/20160504/e6050427.dat",
                             "20160504/e6050427.dat", "/archive/20160504/e6050427.dat"}) {
        reader->m_start_of_day = 0;
        reader->m_uncertain_year = true;
        EXPECT_TRUE(reader->set_time_start_of_day(path)) << path;
        EXPECT_EQ(reader->m_start_of_day, may4_2016) << path;
        EXPECT_FALSE(reader->m_uncertain_year) << path;
        reader->m_time_base = 0;
        reader->set_time_base(path);
        EXPECT_EQ(reader->m_time_base, 46800) << path;
    }
    // A day joined to the name by another character is matched too; the base
    // name then starts with the day, so the time base comes from its digits.
    EXPECT_TRUE(reader->set_time_start_of_day("20160504-e6050427.dat"));
    EXPECT_EQ(reader->m_start_of_day, may4_2016);
    reader->set_time_base("20160504-e6050427.dat");
    EXPECT_EQ(reader->m_time_base, 2 * 3600); // "2", "0", "16", "05", "04": half-hour 4
}

TEST_F(StartTime, DirectoryYearMustAgreeWithTheYearDigit) {
    EXPECT_FALSE(reader->set_time_start_of_day("2015/05/20150504/e6050427.dat"));
    EXPECT_FALSE(reader->set_time_start_of_day("/x/20150504/e6050427.dat"));
    EXPECT_EQ(reader->m_start_of_day, 0);
    // Without a directory part the name alone is accepted.
    EXPECT_TRUE(reader->set_time_start_of_day("e6050427.dat"));
    EXPECT_TRUE(reader->m_uncertain_year);
}

TEST_F(StartTime, FourDigitYearInTheName) {
    EXPECT_TRUE(reader->set_time_start_of_day("e2016050427.dat"));
    EXPECT_EQ(reader->m_start_of_day, may4_2016);
    EXPECT_FALSE(reader->m_uncertain_year);
}

TEST_F(StartTime, HalfHour48RejectsEveryPattern) {
    reader->m_time_base = 7200;
    for (const char* path : {"e6050448.dat", "/x/20160504/e6050448.dat", "/x/2016/05/20160504/e6050448.dat",
                             "e2016050448.dat"}) {
        EXPECT_FALSE(reader->set_time_start_of_day(path)) << path;
        reader->set_time_base(path);
        EXPECT_EQ(reader->m_time_base, 7200) << path;
    }
    EXPECT_EQ(reader->m_start_of_day, 0);
    reader->set_time_base("e6050447.dat");
    EXPECT_EQ(reader->m_time_base, 23 * 3600);
}

TEST_F(StartTime, MinuteStampsOfTheHourAndOfTheDay) {
    reader->m_start_of_day = may4_2016;
    reader->set_time_base("e6050427.dat");
    reader->m_time[0] = 59;
    reader->m_time[1] = 30;
    EXPECT_EQ(reader->get_vxtime(0), may4_2016 + 13 * 3600 + 59 * 60 + 30);
    reader->m_time[2] = 839;
    reader->m_time[3] = 30;
    EXPECT_EQ(reader->get_vxtimenext(), may4_2016 + 13 * 3600 + 59 * 60 + 30);
}

TEST_F(StartTime, CommentDateMakesStampsCountFromMidnight) {
    std::string path =
        dir.write("2016/05/20160504/e6050427.dat",
                  "!S512Tidserier sampfrek: 18 gain: 2 station: e date: 2016-05-05 time: 13:30:00\r");
    VXFIL_arguments a = quiet_args();
    BinaryVXFIL r(path.c_str(), &a);
    EXPECT_EQ(r.m_time_base, 0);
    EXPECT_EQ(r.m_start_of_day, may4_2016 + 86400); // the comment wins over the path
    EXPECT_EQ(r.get_start_of_day(), may4_2016 + 86400);
    r.m_time[0] = 59;
    r.m_time[1] = 0;
    EXPECT_EQ(r.get_vxtime(0), may4_2016 + 86400 + 59 * 60);
}

TEST_F(StartTime, MalformedCommentDateKeepsTheName) {
    std::string path = dir.write("2016/05/20160504/e6050427.dat",
                                 "!S512Tidserier sampfrek: 18 gain: 2 station: e date: yesterday\r");
    VXFIL_arguments a = quiet_args();
    BinaryVXFIL r(path.c_str(), &a);
    EXPECT_EQ(r.m_start_of_day, may4_2016);
    EXPECT_EQ(r.m_time_base, 46800);
    EXPECT_EQ(r.get_start_of_day(), 0); // a comment date that does not scan
    EXPECT_EQ(r.get_frequency(), 18.0);
}

TEST_F(StartTime, UnixStampsCombineWithoutOverflow) {
    reader->m_unixtime = true;
    reader->m_time[0] = 0x5678;
    reader->m_time[1] = 0x1234;
    EXPECT_EQ(reader->get_vxtime(0), 0x12345678);
    reader->m_time[0] = 0xffff;
    reader->m_time[1] = 0xffff;
    EXPECT_EQ(reader->get_vxtime(0), static_cast<time_t>(0xffffffffLL));
    // Text stamps may hold anything an int holds.
    reader->m_time[2] = 2147483647;
    reader->m_time[3] = 2147483647;
    EXPECT_EQ(reader->get_vxtimenext(), static_cast<time_t>(2147483647LL * 65536 + 2147483647LL));
}

TEST_F(StartTime, ParseDateAndMyTimegm) {
    double f = 0;
    int g = 0, len = 0;
    char c = 0;
    bool u = false;
    std::string station, date = "2016-05-04", time = "13:30:15";
    arguments a(f, g, station, c, len, u, date, time);
    time_t day = 0, start = 0;
    EXPECT_TRUE(parse_date(a, day, start));
    EXPECT_EQ(day, may4_2016);
    EXPECT_EQ(start, may4_2016 + 13 * 3600 + 30 * 60 + 15);
    time = "";
    EXPECT_TRUE(parse_date(a, day, start));
    EXPECT_EQ(start, day);
    date = "2016";
    EXPECT_FALSE(parse_date(a, day, start));

    tm t{};
    t.tm_year = 70;
    t.tm_mday = 1;
    EXPECT_EQ(my_timegm(&t), 0);
    t = tm{};
    t.tm_year = 116;
    t.tm_mon = 4;
    t.tm_mday = 35; // normalised to June 4
    EXPECT_EQ(my_timegm(&t), may4_2016 + 31 * 86400);
}

TEST_F(StartTime, GetStartOfDayChecksTheCommentDate) {
    reader->m_start_of_day = 12345;
    EXPECT_EQ(reader->get_start_of_day(), 12345);
    reader->m_date_from_comment = "2016-05-04";
    EXPECT_EQ(reader->get_start_of_day(), may4_2016);
    reader->m_date_from_comment = "1969-05-04";
    EXPECT_EQ(reader->get_start_of_day(), 0);
    reader->m_date_from_comment = "2016-13-04";
    EXPECT_EQ(reader->get_start_of_day(), 0);
    reader->m_date_from_comment = "2016-05-32";
    EXPECT_EQ(reader->get_start_of_day(), 0);
}

TEST_F(StartTime, TimeZoneAlreadyUtcIsLeftAlone) {
    std::string path = dir.write("a.txt", "!S512Tidserier sampfrek: 18\n");
    VXFIL_arguments a; // not quiet
    const char* before = std::getenv("TZ");
    std::string err = capture_stderr([&] { AsciiVXFIL r(path.c_str(), &a); });
    EXPECT_EQ(err, "File: " + path + " Type:text\n");
    EXPECT_EQ(std::getenv("TZ"), before); // the very same environment entry
}

TEST_F(StartTime, OtherTimeZoneIsForcedToUtc) {
    std::string path = dir.write("a.txt", "!S512Tidserier sampfrek: 18\n");
    ::setenv("TZ", "CET-1CEST", 1);
    ::tzset();
    VXFIL_arguments a;
    std::string err = capture_stderr([&] { AsciiVXFIL r(path.c_str(), &a); });
    EXPECT_EQ(err, "Info: setting TZ=UTC\nFile: " + path + " Type:text\n");
    EXPECT_STREQ(std::getenv("TZ"), "UTC");
    EXPECT_EQ(std::getenv("TZ"), VxFil::TZ + 3); // our own writable array

    ::unsetenv("TZ");
    a.m_quiet = true;
    err = capture_stderr([&] { AsciiVXFIL r(path.c_str(), &a); });
    EXPECT_EQ(err, ""); // unset counts as different, but quiet
    EXPECT_STREQ(std::getenv("TZ"), "UTC");
}

TEST_F(StartTime, PathWithoutDateIsFatalWhenAsked) {
    std::string path = dir.write("nodate.txt", "!S512Tidserier sampfrek: 18\n");
    throwing_fatal guard;
    VXFIL_arguments a = quiet_args();
    a.m_fail_parse_path = true;
    testing::internal::CaptureStderr();
    try {
        AsciiVXFIL r(path.c_str(), &a);
        ADD_FAILURE() << "no fatal end";
    } catch (const fatal_exit_called& e) {
        EXPECT_EQ(e.status, 1);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Can't parse date & time from path (" + path + ") & fail_parse_path == 1\n");
    // Without the flag the failure is silent and the day stays 1970-01-01.
    a.m_fail_parse_path = false;
    std::string err = capture_stderr([&] {
        AsciiVXFIL r(path.c_str(), &a);
        EXPECT_EQ(r.m_start_of_day, 0);
    });
    EXPECT_EQ(err, "");
}
