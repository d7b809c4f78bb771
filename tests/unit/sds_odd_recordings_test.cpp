// brantel --sds on recordings and archives that are odd or damaged: a clock a
// little off its stated rate, two rates within half the slower interval, a
// time axis that steps back, a staged copy cut short, a day file whose
// record states an absurd rate, a damaged index entry.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "child_process.h"
#include "temp_dir.h"

namespace fs = std::filesystem;

namespace {

child_result brantel(const fs::path &cwd, const std::vector<std::string> &args) {
    return run_child(cwd, BRANTEL_BIN, args);
}

void fixture(const fs::path &cwd, const std::vector<std::string> &args) {
    const child_result r = run_child(cwd, FIXTURE_BIN, args);
    ASSERT_EQ(r.status, 0) << r.err;
}

// Bytes and modification time of every file below `dir` outside the
// bookkeeping.
std::map<std::string, std::string> day_files(const fs::path &dir) {
    std::map<std::string, std::string> files;
    for (auto it = fs::recursive_directory_iterator(dir); it != fs::recursive_directory_iterator(); ++it) {
        if (it->path().filename() == ".brantel-archive") {
            it.disable_recursion_pending();
            continue;
        }
        if (!it->is_regular_file()) continue;
        const auto stamp = fs::last_write_time(it->path()).time_since_epoch().count();
        files[fs::relative(it->path(), dir).string()] = file_bytes(it->path()) + std::to_string(stamp);
    }
    return files;
}

} // namespace

TEST(SdsOddRecordings, ClockOffItsRateFilesOnceAndRerunsQuietly) {
    temp_dir t;
    // Stated 20 Hz, really 19.995 Hz: the samples drift 12.5 us a sample away
    // from where a record's rate puts them.
    fixture(t.path, {"tm4", "out=drift.tm4", "rate=19.995", "comment_rate=20", "lines=6000", "time_decimals=4",
                     "wave=sine", "amp=2000", "noise=20", "value_decimals=0"});
    const child_result first = brantel(t.path, {"--sds", "tree", "drift.tm4"});
    ASSERT_EQ(first.status, 0) << first.err;
    const auto before = day_files(t.path / "tree");
    const child_result again = brantel(t.path, {"--sds", "tree", "drift.tm4"});
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(again.err, "");
    EXPECT_EQ(again.out, "SDS: 0 day files written, 0 channels, 0 gaps, 0 conflicts\n");
    EXPECT_EQ(day_files(t.path / "tree"), before);
}

TEST(SdsOddRecordings, SlowerRateSeenFirstStillConflicts) {
    temp_dir t;
    // A sample of a 50 Hz recording 30 ms after one of a 10 Hz recording:
    // closer than half the 10 Hz interval.
    fixture(t.path, {"tm4", "out=a.tm4", "rate=10", "lines=5"});
    fixture(t.path, {"tm4", "out=b.tm4", "rate=50", "lines=5", "offset=100", "start=1500000000.43"});
    const child_result r = brantel(t.path, {"--sds", "tree", "a.tm4", "b.tm4"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("Error: \"b.tm4\": XX.RDA1..BDF conflicts with \"a.tm4\""), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "SDS: 3 day files written, 3 channels, 0 gaps, 1 conflicts\n");
    // The same in two runs: the archive's slower samples are found too.
    const child_result one = brantel(t.path, {"--sds", "tree2", "a.tm4"});
    ASSERT_EQ(one.status, 0) << one.err;
    const child_result two = brantel(t.path, {"--sds", "tree2", "b.tm4"});
    EXPECT_EQ(two.status, 1);
    EXPECT_NE(two.err.find("Error: \"b.tm4\": XX.RDA1..BDF conflicts with the archive"), std::string::npos)
        << two.err;
}

TEST(SdsOddRecordings, TimeAxisSteppingBackIsCompared) {
    temp_dir t;
    fixture(t.path, {"tm4", "out=a.tm4", "rate=10", "lines=5"});
    // Ten seconds later, then back to the first samples of a.tm4 with other values.
    std::ifstream in(t.path / "a.tm4");
    std::string comment;
    std::getline(in, comment);
    std::ofstream(t.path / "x.tm4") << comment << "\n"
                                    << "1500000010.000 50 51 52\n1500000010.100 53 54 55\n"
                                    << "1500000010.200 56 57 58\n1500000000.000 60 61 62\n"
                                    << "1500000000.100 63 64 65\n";
    const child_result r = brantel(t.path, {"--sds", "tree", "a.tm4", "x.tm4"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("Error: \"x.tm4\": XX.RDA1..BDF conflicts with \"a.tm4\""), std::string::npos) << r.err;
}

TEST(SdsOddRecordings, DamagedStagedCopyIsRefusedByNameAndBlocksNothing) {
    temp_dir t;
    fixture(t.path, {"tm4", "out=m.tm4", "lines=2000"});
    fixture(t.path, {"tm4", "out=later.tm4", "lines=200", "start=1500001000"});
    ASSERT_EQ(brantel(t.path, {"--sds", "tree", "--sds-stage", "R1", "m.tm4"}).status, 0);
    for (const auto &e : fs::directory_iterator(t.path / "tree/.brantel-archive/staging/R1"))
        if (e.path().extension() == ".samples") fs::resize_file(e.path(), 100);
    const child_result merge = brantel(t.path, {"--sds", "tree", "--sds-merge", "R1"});
    EXPECT_EQ(merge.status, 1);
    EXPECT_EQ(merge.err, "Error: \"m.tm4\": its staged copy is missing or damaged; the recording is not filed, "
                         "convert it again\n");
    EXPECT_EQ(file_bytes(t.path / "tree/.brantel-archive/staging/R1/refused"),
              "m.tm4\tError: \"m.tm4\": its staged copy is missing or damaged; the recording is not filed, "
              "convert it again\n");
    const child_result next = brantel(t.path, {"--sds", "tree", "later.tm4"});
    EXPECT_EQ(next.status, 0) << next.err;
    EXPECT_EQ(next.out, "SDS: 3 day files written, 3 channels, 0 gaps, 0 conflicts\n");
}

TEST(SdsOddRecordings, DayFileWithAbsurdRateIsNotMergedInto) {
    temp_dir t;
    fixture(t.path, {"tm4", "out=m.tm4", "lines=2000"});
    fixture(t.path, {"tm4", "out=other.tm4", "lines=2000", "offset=7"});
    ASSERT_EQ(brantel(t.path, {"--sds", "tree", "m.tm4"}).status, 0);
    // The rate field of the first record (Blockette 100 at byte 48: its
    // float rate at 52) made 1e-30.
    const fs::path day = t.path / "tree/2017/XX/RDA1/BDF.D/XX.RDA1..BDF.D.2017.195";
    std::string bytes = file_bytes(day);
    ASSERT_GT(bytes.size(), 64u);
    const unsigned char tiny[4] = {0x0D, 0xA2, 0x4E, 0x00}; // 1e-30 as a big-endian float, about
    for (int i = 0; i < 4; ++i) bytes[52 + i] = static_cast<char>(tiny[i]);
    std::ofstream(day, std::ios::binary) << bytes;
    const auto before = day_files(t.path / "tree");
    const child_result r = brantel(t.path, {"--sds", "tree", "other.tm4"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("Error: \"other.tm4\": XX.RDA1..BDF cannot be merged"), std::string::npos) << r.err;
    // Nothing of the refused recording went in, on any channel.
    const auto after = day_files(t.path / "tree");
    for (const auto &[path, content] : before) {
        if (path.find("RDA1") == std::string::npos) {
            EXPECT_EQ(after.at(path), content) << path;
        }
    }
}
