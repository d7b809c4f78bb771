// Names of the quick-looks of an SDS archive and of its day files, and the
// removal of a day's pictures when a day file changes.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "sds_paths.h"
#include "sds_quicklooks.h"
#include "temp_dir.h"

namespace fs = std::filesystem;

namespace {

TEST(SdsQuicklooks, DayFileNamesGiveCodesAndDay) {
    channel_codes codes;
    int64_t day = 0;
    ASSERT_TRUE(parse_day_file_name("XX.REA1..BDF.D.2016.125", codes, day));
    EXPECT_EQ(codes, (channel_codes{"XX", "REA1", "", "BDF"}));
    EXPECT_EQ(day, 1462320000 / 86400); // 2016-05-04
    EXPECT_EQ(day_file_name(codes, day), "XX.REA1..BDF.D.2016.125");
    ASSERT_TRUE(parse_day_file_name("XX.RAA2.00.HDF.D.2016.366", codes, day));
    EXPECT_EQ(codes, (channel_codes{"XX", "RAA2", "00", "HDF"}));
    EXPECT_EQ(day_file_name(codes, day), "XX.RAA2.00.HDF.D.2016.366");
    // Not a day of its year, not of the form, not digits.
    EXPECT_FALSE(parse_day_file_name("XX.RAA2..BDF.D.2017.366", codes, day));
    EXPECT_FALSE(parse_day_file_name("XX.RAA2..BDF.D.2017.000", codes, day));
    EXPECT_FALSE(parse_day_file_name("XX.RAA2..BDF.D.2017", codes, day));
    EXPECT_FALSE(parse_day_file_name("XX.RAA2..BDF.D.20x7.001", codes, day));
    EXPECT_FALSE(parse_day_file_name("XX.RAA2..BDF.Q.2017.001", codes, day));
}

TEST(SdsQuicklooks, ElementsOfARecorderShareItsName) {
    const channel_codes second{"XX", "RAA2", "", "BDF"};
    EXPECT_EQ(sds::element_id(second), "XX.RAA2.");
    EXPECT_EQ(sds::recorder_id(second), "XX.RAA.");
    EXPECT_EQ(sds::recorder_id({"XX", "RAA12", "00", "HDF"}), "XX.RAA.00");
    EXPECT_NE(sds::recorder_id({"XX", "RAA1", "", "BDF"}), sds::recorder_id({"XX", "RBA1", "", "BDF"}));
    EXPECT_EQ(sds::quicklook_path("/t", second, 1462320000 / 86400),
              fs::path("/t/report/quicklooks/XX.RAA2./2016-05-04.png"));
}

TEST(SdsQuicklooks, AChangedDayLosesThePicturesOfEveryElementOfItsRecorder) {
    temp_dir dir;
    const int64_t day = 1462320000 / 86400;
    auto picture = [&](const std::string &element, const std::string &date) {
        const fs::path p = dir.path / "report" / "quicklooks" / element / (date + ".png");
        fs::create_directories(p.parent_path());
        std::ofstream(p) << "picture";
        return p;
    };
    const fs::path first = picture("XX.RAA1.", "2016-05-04"), second = picture("XX.RAA2.", "2016-05-04");
    const fs::path other_day = picture("XX.RAA1.", "2016-05-05");
    const fs::path other_recorder = picture("XX.RBA1.", "2016-05-04");
    const fs::path other_location = picture("XX.RAA1.00", "2016-05-04");
    sds::forget_quicklook(dir.path, {"XX", "RAA2", "", "BDF"}, day);
    EXPECT_FALSE(fs::exists(first));
    EXPECT_FALSE(fs::exists(second));
    EXPECT_TRUE(fs::exists(other_day));
    EXPECT_TRUE(fs::exists(other_recorder));
    EXPECT_TRUE(fs::exists(other_location));
    // Nothing to remove, and no pictures at all: no fault.
    EXPECT_NO_THROW(sds::forget_quicklook(dir.path, {"XX", "RAA2", "", "BDF"}, day));
    EXPECT_NO_THROW(sds::forget_quicklook(dir.path / "none", {"XX", "RAA2", "", "BDF"}, day));
}

} // namespace
