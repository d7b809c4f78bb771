// brantel --sds end to end: the built tool files recordings that the tests
// generate into SDS trees of day files, and every tree is walked and read
// back (sds_tree_check.h). The samples of a tree must be the union of the
// direct --mseed conversions of the recordings it holds, whatever the order
// of the files, the number of runs, concurrent runs or a killed run; a
// conflicting recording is refused whole; options that would shape the
// samples per recording are refused before anything is written.
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "child_process.h"
#include "fixture_registry.h"
#include "sac_file.h"
#include "sds_tree_check.h"
#include "seed_record_reader.h"
#include "temp_dir.h"
#include "tm4_fixture.h"
#include "vx16_fixture.h"
#include "vx24_fixture.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

constexpr int64_t HOUR = 3600;
const int64_t MAY_4 = fixtures::day_epoch("2016-05-04");  // day 125 of a leap year
const int64_t DEC_31 = fixtures::day_epoch("2016-12-31"); // day 366

std::string two_digits(int v) {
    return (v < 10 ? "0" : "") + std::to_string(v);
}

// A vx24 recording: three channels of a sine with noise, both tied to the
// sample time, so that two recordings of the same instants hold the same
// samples.
fixtures::vx24_params vx24(uint8_t station, int64_t start, double rate, double seconds,
                           uint32_t nanoseconds = 0) {
    fixtures::vx24_params p;
    p.station = station;
    p.seconds = static_cast<uint32_t>(start);
    p.nanoseconds = nanoseconds;
    p.rate = rate;
    p.samples = static_cast<uint64_t>(std::llround(seconds * rate));
    p.wave.wave = "sine";
    p.wave.amp = 3000;
    p.wave.noise = 40;
    return p;
}

// A comment-headed half-hour of 64 blocks at 18 Hz (1820.4 s: its last 20 s
// overlap the next half-hour), named as the recorders name them.
fixtures::vx16_recipe half_hour(const std::string &station, const std::string &date, int index,
                                double amplitude = 1000) {
    fixtures::vx16_recipe r;
    r.kind = "S512";
    r.freq = 18.0;
    r.station = station;
    r.date = date;
    r.time = two_digits(index / 2) + ":" + (index % 2 ? "30" : "00") + ":00";
    r.start = index * 1800;
    r.blocks = 64;
    r.pattern = "clock";
    r.amplitude = amplitude;
    return r;
}
std::string half_hour_name(const std::string &station, const std::string &date, int index) {
    return station + date.substr(3, 1) + date.substr(5, 2) + date.substr(8, 2) + two_digits(index);
}

// Every recording of the suite, written once, with the samples of its direct
// --mseed conversion.
struct suite_data {
    temp_dir dir;
    fs::path rec; // the recordings; the runs start here and name them relative to it
    std::map<std::string, sds::channel_samples> reference;
    std::vector<std::string> consistent; // recordings without any conflict among them
    std::vector<std::string> concurrent; // half-hours of one day for two concurrent runs
    std::vector<std::string> killed;     // a larger conversion for the kill points
    std::string error;                   // set when the suite could not be prepared
};

void add_recording(suite_data &s, const std::string &path, const std::string &bytes) {
    fixtures::write_file((s.rec / path).string(), bytes);
    // The reference: the recording converted on its own with --mseed, in a
    // folder of its own, in records of 256 bytes. Every record states its
    // first sample's own time and the rest follow at the rate; where a time
    // axis runs a little off its nominal rate (the comment-headed readers
    // add 1 / rate to a running time, which gains about 0.03 microseconds a
    // sample at 18 Hz), short records keep every sample within a few
    // microseconds of its own time.
    const fs::path folder = s.dir.path / "ref" / std::to_string(s.reference.size());
    fs::create_directories(folder);
    const std::string name = fs::path(path).filename().string();
    fs::copy_file(s.rec / path, folder / name);
    const child_result r =
        run_child(folder, BRANTEL_BIN, {"--quiet", "--mseed", "--record-length", "256", name});
    const fs::path out = folder / fs::path(name).replace_extension(".mseed");
    if (r.status != 0 || !fs::exists(out)) {
        s.error +=
            "brantel --mseed " + path + " ended with status " + std::to_string(r.status) + ": " + r.err;
        return;
    }
    s.reference[path] = sds::read_mseed(out);
    fs::remove_all(folder);
}

std::unique_ptr<suite_data> make_suite() {
    auto s = std::make_unique<suite_data>();
    s->rec = s->dir.path / "rec";
    auto consistent = [&](const std::string &path, const std::string &bytes) {
        add_recording(*s, path, bytes);
        s->consistent.push_back(path);
    };
    // Across midnight: vx24 from 23:00:00.025 for two hours, at 20 Hz and at
    // 18 Hz, and an identical copy of the first under another name.
    consistent("vx24/arvola_20160504_230000.vx24",
               fixtures::make_vx24(vx24(0, MAY_4 + 23 * HOUR, 20.0, 2 * HOUR, 25000000)));
    consistent("vx24/bredmo_20160504_230000.vx24",
               fixtures::make_vx24(vx24(1, MAY_4 + 23 * HOUR, 18.0, 2 * HOUR, 25000000)));
    consistent("copies/arvola_20160504_230000_again.vx24",
               fixtures::make_vx24(vx24(0, MAY_4 + 23 * HOUR, 20.0, 2 * HOUR, 25000000)));
    // Binary comment-headed half-hours from 22:00 to 02:00, each overlapping
    // the next by 20 s with the same samples.
    for (int index = 44; index < 52; ++index) {
        const std::string date = index < 48 ? "2016-05-04" : "2016-05-05";
        const std::string folder = index < 48 ? "2016/05/20160504/" : "2016/05/20160505/";
        consistent(folder + half_hour_name("e", date, index % 48) + ".dat",
                   fixtures::make_vx16_binary(half_hour("e", date, index % 48)));
    }
    // Text comment-headed half-hours over midnight, the same kind of overlap.
    consistent("text/" + half_hour_name("c", "2016-05-04", 47) + ".txt",
               fixtures::make_vx16_text(half_hour("c", "2016-05-04", 47)));
    consistent("text/" + half_hour_name("c", "2016-05-05", 0) + ".txt",
               fixtures::make_vx16_text(half_hour("c", "2016-05-05", 0)));
    // TM4 text over midnight.
    fixtures::tm4_params tm4;
    tm4.station = "dovmark";
    tm4.start = static_cast<double>(MAY_4 + 23 * HOUR + 40 * 60);
    tm4.lines = 40 * 60 * 20;
    tm4.wave.wave = "sine";
    tm4.wave.amp = 2000;
    tm4.wave.noise = 30;
    consistent("tm4/dovmark_20160504_234000.tm4", fixtures::make_tm4(tm4));
    // A gap of 30 s between two recordings of one station.
    consistent("vx24/test_20160504_120000.vx24",
               fixtures::make_vx24(vx24(254, MAY_4 + 12 * HOUR, 20.0, 600)));
    consistent("vx24/test_20160504_121030.vx24",
               fixtures::make_vx24(vx24(254, MAY_4 + 12 * HOUR + 630, 20.0, 570)));
    // The year's end of a leap year: day 366 into day 1.
    consistent("vx24/corsund_20161231_235000.vx24",
               fixtures::make_vx24(vx24(2, DEC_31 + 23 * HOUR + 50 * 60, 20.0, 1200)));
    // A rate change within a day: 20 Hz, then 18 Hz on the same channels.
    consistent("vx24/ensholm_20160504_100000.vx24",
               fixtures::make_vx24(vx24(4, MAY_4 + 10 * HOUR, 20.0, 600)));
    consistent("vx24/ensholm_20160504_102000.vx24",
               fixtures::make_vx24(vx24(4, MAY_4 + 10 * HOUR + 1200, 18.0, 600)));

    // The next text half-hour with other values in its first 20 s.
    add_recording(*s, "text/" + half_hour_name("c", "2016-05-05", 1) + ".txt",
                  fixtures::make_vx16_text(half_hour("c", "2016-05-05", 1, 1500)));
    // Two recordings of one station that overlap by 60 s with other values;
    // the second has a fourth channel and reaches beyond the first.
    add_recording(*s, "conflict/a/rec.vx24",
                  fixtures::make_vx24(vx24(0, MAY_4 + 2 * 86400 + 6 * HOUR, 20.0, 600)));
    fixtures::vx24_params wider = vx24(0, MAY_4 + 2 * 86400 + 6 * HOUR + 540, 20.0, 360);
    wider.channels = 4;
    wider.wave.offset = 500;
    add_recording(*s, "conflict/B/rec.vx24", fixtures::make_vx24(wider));
    // Other values within the first recording of the gap pair.
    fixtures::vx24_params other = vx24(254, MAY_4 + 12 * HOUR + 300, 20.0, 60);
    other.wave.offset = 777;
    add_recording(*s, "conflict/test_20160504_120500.vx24", fixtures::make_vx24(other));
    // A flat signal over midnight: Steim-2 would fit far more than 32767
    // samples into a record of 65536 bytes.
    fixtures::vx24_params flat = vx24(3, MAY_4 + 22 * HOUR, 20.0, 4 * HOUR);
    flat.wave.wave = "const";
    flat.wave.amp = 7;
    flat.wave.noise = 0;
    add_recording(*s, "flat/dovmark_20160504_220000.vx24", fixtures::make_vx24(flat));
    // Six half-hours of one day for two concurrent runs.
    for (int index = 0; index < 6; ++index) {
        const std::string path = "concurrent/" + half_hour_name("d", "2016-05-06", index) + ".dat";
        add_recording(*s, path, fixtures::make_vx16_binary(half_hour("d", "2016-05-06", index)));
        s->concurrent.push_back(path);
    }
    // Six hours over midnight in one-hour files, for the kill points.
    for (int hour = 21; hour < 27; ++hour) {
        const int64_t start = MAY_4 + 6 * 86400 + hour * HOUR;
        const std::string path = "killed/arvola_201605" + std::to_string(10 + hour / 24) + "_" +
                                 two_digits(hour % 24) + "0000.vx24";
        add_recording(*s, path, fixtures::make_vx24(vx24(0, start, 20.0, HOUR)));
        s->killed.push_back(path);
    }
    return s;
}

const suite_data &suite() {
    static std::unique_ptr<suite_data> s = make_suite();
    return *s;
}

// The union of the direct conversions of some recordings; a conflict among
// them is a mistake of the test.
sds::channel_samples union_of(const std::vector<std::string> &paths) {
    sds::channel_samples all;
    for (const std::string &p : paths) {
        auto it = suite().reference.find(p);
        if (it == suite().reference.end()) {
            ADD_FAILURE() << "no reference for " << p;
            continue;
        }
        const std::vector<std::string> conflicts = sds::add_samples(all, it->second);
        if (!conflicts.empty()) ADD_FAILURE() << "the test's recordings conflict: " << conflicts.front();
    }
    return all;
}

// The day files that the union of some recordings makes, kept for the next
// test that files the same recordings.
const std::map<std::string, std::vector<sds::sample>> &expected_days(std::vector<std::string> recordings) {
    static std::map<std::vector<std::string>, std::map<std::string, std::vector<sds::sample>>> known;
    std::sort(recordings.begin(), recordings.end());
    auto it = known.find(recordings);
    if (it == known.end()) it = known.emplace(recordings, sds::split_into_days(union_of(recordings))).first;
    return it->second;
}

std::string describe(const child_result &r) {
    return "status " + std::to_string(r.status) + "\nstdout:\n" + r.out + "stderr:\n" + r.err;
}

std::vector<std::string> sds_args(const fs::path &tree, const std::vector<std::string> &files,
                                  const std::vector<std::string> &options = {"--quiet"}) {
    std::vector<std::string> args{"--sds", tree.string()};
    args.insert(args.end(), options.begin(), options.end());
    args.insert(args.end(), files.begin(), files.end());
    return args;
}

// Runs brantel --sds TREE FILE... from the recordings' folder.
child_result file_into(const fs::path &tree, const std::vector<std::string> &files,
                       const std::vector<std::string> &options = {"--quiet"}) {
    return run_child(suite().rec, BRANTEL_BIN, sds_args(tree, files, options));
}

// The tree holds exactly the union of the recordings' direct conversions, in
// the day files that their channels and days make, and no temporary file.
sds::day_files expect_tree_holds(const fs::path &tree, const std::vector<std::string> &recordings,
                                 const std::string &what) {
    SCOPED_TRACE(what);
    const sds::day_files files = sds::read_tree(tree);
    sds::channels_of(files); // each sample once
    sds::expect_same_day_files(files, expected_days(recordings), what);
    EXPECT_EQ(sds::temporaries(tree), std::vector<std::string>{}) << what << ": temporary files left";
    return files;
}

// mseed2sac reads a miniSEED file: status 0 and, over its SAC files, as many
// samples as the file holds; the SAC files of a day file carry its codes.
void expect_mseed2sac_reads(const fs::path &file, size_t samples, const fs::path &scratch,
                            bool day_file = true) {
    fs::remove_all(scratch);
    fs::create_directories(scratch);
    const child_result r = run_child(scratch, "/usr/bin/env", {"mseed2sac", "-f", "3", file.string()});
    EXPECT_EQ(r.status, 0) << file << ": " << describe(r);
    size_t total = 0;
    const std::string name = file.filename().string();
    for (const auto &e : fs::directory_iterator(scratch)) {
        if (e.path().extension() != ".SAC") continue;
        const sac_file sac = read_sac(file_bytes(e.path()));
        if (day_file) {
            EXPECT_EQ(name.rfind(sac.network + "." + sac.station + ".", 0), 0u) << e.path() << " of " << file;
        }
        total += static_cast<size_t>(sac.npts);
    }
    EXPECT_EQ(total, samples) << "samples that mseed2sac writes of " << file;
    fs::remove_all(scratch);
}

// Microseconds of an ISO time 2016-05-04T22:29:40.025 (Z optional).
int64_t parse_iso(const std::smatch &m, size_t first) {
    const int64_t seconds =
        fixtures::day_epoch(m[first].str() + "-" + m[first + 1].str() + "-" + m[first + 2].str()) +
        std::stoll(m[first + 3]) * 3600 + std::stoll(m[first + 4]) * 60 + std::stoll(m[first + 5]);
    std::string fraction = m[first + 6].str();
    fraction.resize(6, '0');
    return seconds * 1000000 + std::stoll(fraction);
}

struct conflict_report {
    std::string line, channel;
    int64_t from_us = 0, to_us = 0;
};

// The one line of stderr that names the recording `path`: it must name a
// channel NET.STA.LOC.CHAN and a span of two times.
std::optional<conflict_report> conflict_line(const std::string &err, const std::string &path) {
    std::vector<std::string> naming;
    for (const std::string &line : lines_of(err))
        if (line.find(path) != std::string::npos) naming.push_back(line);
    EXPECT_EQ(naming.size(), 1u) << "lines naming " << path << " in:\n" << err;
    if (naming.size() != 1) return std::nullopt;
    static const std::regex channel(
        R"((^|[^A-Za-z0-9.])([A-Z0-9]{1,2}\.[A-Z0-9]{1,5}\.[A-Z0-9]{0,2}\.[A-Z0-9]{3})([^A-Za-z0-9.]|$))");
    static const std::regex span(R"((\d{4})-(\d\d)-(\d\d)T(\d\d):(\d\d):(\d\d)(?:\.(\d{1,6}))?Z?.*?)"
                                 R"((\d{4})-(\d\d)-(\d\d)T(\d\d):(\d\d):(\d\d)(?:\.(\d{1,6}))?Z?)");
    conflict_report r;
    r.line = naming[0];
    std::smatch m;
    if (!std::regex_search(r.line, m, channel)) {
        ADD_FAILURE() << "no channel NET.STA.LOC.CHAN in: " << r.line;
        return std::nullopt;
    }
    r.channel = m[2];
    if (!std::regex_search(r.line, m, span)) {
        ADD_FAILURE() << "no span of two times in: " << r.line;
        return std::nullopt;
    }
    r.from_us = parse_iso(m, 1);
    r.to_us = parse_iso(m, 8);
    return r;
}

// The conflict line of `path` names one of `channels` and a span within
// [from, to] (Unix seconds, with a fifth of a second to spare).
void expect_conflict_reported(const child_result &r, const std::string &path,
                              const std::vector<std::string> &channels, double from, double to) {
    const std::optional<conflict_report> c = conflict_line(r.err, path);
    if (!c) return;
    EXPECT_NE(std::find(channels.begin(), channels.end(), c->channel), channels.end())
        << "the channel " << c->channel << " is not one that conflicts: " << c->line;
    EXPECT_LE(c->from_us, c->to_us) << c->line;
    EXPECT_GE(c->from_us, std::llround((from - 0.2) * 1e6))
        << c->line << "\nthe overlap begins at " << sds::iso_time(std::llround(from * 1e6));
    EXPECT_LE(c->to_us, std::llround((to + 0.2) * 1e6))
        << c->line << "\nthe overlap ends at " << sds::iso_time(std::llround(to * 1e6));
}

// The paths (as given) of the recordings that the tree's facts files name.
std::vector<std::string> filed_recordings(const fs::path &tree) {
    std::vector<std::string> paths;
    std::error_code ec;
    for (const auto &e : fs::directory_iterator(tree / ".brantel-archive" / "recordings", ec))
        for (const std::string &line : lines_of(file_bytes(e.path())))
            if (line.rfind("path\t", 0) == 0) paths.push_back(line.substr(5));
    std::sort(paths.begin(), paths.end());
    return paths;
}

std::vector<std::string> sorted(std::vector<std::string> v) {
    std::sort(v.begin(), v.end());
    return v;
}

class SdsArchive : public ::testing::Test {
  protected:
    temp_dir work;

    void SetUp() override { ASSERT_EQ(suite().error, "") << "the recordings could not be prepared"; }
};

} // namespace

// Every kind of recording in one run: day files at the right paths, cut at
// midnight, holding each sample of the direct conversions once; libmseed, the
// tests' reader and mseed2sac read every day file.
TEST_F(SdsArchive, OneRunFilesEveryRecordingOnce) {
    const fs::path tree = work.path / "sds";
    std::vector<std::string> files = suite().consistent;
    std::reverse(files.begin(), files.end());
    const child_result r = file_into(tree, files);
    ASSERT_EQ(r.status, 0) << describe(r);
    const sds::day_files days = expect_tree_holds(tree, files, "one run");

    // Across midnight, the year's end and day 366.
    for (const char *path :
         {"2016/XX/RAA1/BDF.D/XX.RAA1..BDF.D.2016.125", "2016/XX/RAA3/BDF.D/XX.RAA3..BDF.D.2016.126",
          "2016/XX/RBA2/BDF.D/XX.RBA2..BDF.D.2016.126", "2016/XX/REA1/BDF.D/XX.REA1..BDF.D.2016.126",
          "2016/XX/RCA1/BDF.D/XX.RCA1..BDF.D.2016.366", "2017/XX/RCA1/BDF.D/XX.RCA1..BDF.D.2017.001",
          "2016/XX/RDA1/BDF.D/XX.RDA1..BDF.D.2016.126", "2016/XX/TEST3/BDF.D/XX.TEST3..BDF.D.2016.125"})
        EXPECT_TRUE(days.count(path)) << path;
    // The rate change within a day is in one day file.
    auto rates = days.find("2016/XX/REA1/BDF.D/XX.REA1..BDF.D.2016.125");
    ASSERT_NE(rates, days.end());
    EXPECT_NE(std::find(rates->second.rates.begin(), rates->second.rates.end(), 20.0),
              rates->second.rates.end());
    EXPECT_NE(std::find(rates->second.rates.begin(), rates->second.rates.end(), 18.0),
              rates->second.rates.end());

    for (const auto &[path, f] : days)
        expect_mseed2sac_reads(tree / path, f.samples.size(), work.path / "sac");
    // One facts file per recording, the copy included.
    EXPECT_EQ(filed_recordings(tree), sorted(files));
}

// A rerun of the same command changes no day file: neither bytes nor
// modification times, and adds none.
TEST_F(SdsArchive, RerunChangesNothing) {
    const fs::path tree = work.path / "sds";
    const child_result first = file_into(tree, suite().consistent);
    ASSERT_EQ(first.status, 0) << describe(first);
    const auto before = sds::snapshot(tree, false);
    ASSERT_FALSE(before.empty());
    std::this_thread::sleep_for(20ms); // a rewritten file would get a later time
    const child_result again = file_into(tree, suite().consistent);
    EXPECT_EQ(again.status, 0) << describe(again);
    sds::expect_unchanged(before, sds::snapshot(tree, false), "rerun");
    EXPECT_EQ(sds::temporaries(tree), std::vector<std::string>{});
}

// A subset first and the rest later ends with the same day files and samples.
TEST_F(SdsArchive, SubsetThenTheRest) {
    const fs::path tree = work.path / "sds";
    std::vector<std::string> first, rest;
    for (size_t i = 0; i < suite().consistent.size(); ++i)
        (i % 3 == 1 ? first : rest).push_back(suite().consistent[i]);
    const child_result a = file_into(tree, first);
    ASSERT_EQ(a.status, 0) << describe(a);
    expect_tree_holds(tree, first, "after the subset");
    const child_result b = file_into(tree, rest);
    ASSERT_EQ(b.status, 0) << describe(b);
    expect_tree_holds(tree, suite().consistent, "after the rest");
}

// One file per run, in reverse byte order of the paths: the same day files
// and samples as one run, each same sample kept once at the earlier time.
TEST_F(SdsArchive, OneFileAtATimeInReverseOrder) {
    const fs::path tree = work.path / "sds";
    std::vector<std::string> files = suite().consistent;
    std::sort(files.begin(), files.end());
    std::reverse(files.begin(), files.end());
    for (const std::string &f : files) {
        const child_result r = file_into(tree, {f});
        ASSERT_EQ(r.status, 0) << f << ": " << describe(r);
    }
    expect_tree_holds(tree, files, "one file at a time");
}

// Two recordings that conflict in one run: the one whose path comes first in
// byte order is filed ("conflict/B/..." before "conflict/a/...", though the
// command line names it second and a dictionary order would put it second),
// the other is refused whole and named in one line with a channel and the
// span of the conflict.
TEST_F(SdsArchive, ConflictInOneRunFilesThePathFirstInByteOrder) {
    const fs::path tree = work.path / "sds";
    const child_result r = file_into(tree, {"conflict/a/rec.vx24", "conflict/B/rec.vx24"});
    EXPECT_EQ(r.status, 1) << describe(r);
    const double overlap = static_cast<double>(MAY_4 + 2 * 86400 + 6 * HOUR + 540);
    expect_conflict_reported(r, "conflict/a/rec.vx24", {"XX.RAA1..BDF", "XX.RAA2..BDF", "XX.RAA3..BDF"},
                             overlap, overlap + 60);
    expect_tree_holds(tree, {"conflict/B/rec.vx24"}, "the path first in byte order");
    EXPECT_EQ(filed_recordings(tree), std::vector<std::string>{"conflict/B/rec.vx24"});
}

// A recording that conflicts with the tree is refused whole (its fourth
// channel, which conflicts with nothing, included); the tree's day files stay
// as they were, and the other recording of the run is still filed.
TEST_F(SdsArchive, ConflictWithTheTreeKeepsTheTree) {
    const fs::path tree = work.path / "sds";
    const child_result first = file_into(tree, {"conflict/a/rec.vx24"});
    ASSERT_EQ(first.status, 0) << describe(first);
    const auto before = sds::snapshot(tree, false);
    std::this_thread::sleep_for(20ms);
    const child_result second = file_into(tree, {"conflict/B/rec.vx24", "vx24/test_20160504_120000.vx24"});
    EXPECT_EQ(second.status, 1) << describe(second);
    const double overlap = static_cast<double>(MAY_4 + 2 * 86400 + 6 * HOUR + 540);
    expect_conflict_reported(second, "conflict/B/rec.vx24", {"XX.RAA1..BDF", "XX.RAA2..BDF", "XX.RAA3..BDF"},
                             overlap, overlap + 60);
    expect_tree_holds(tree, {"conflict/a/rec.vx24", "vx24/test_20160504_120000.vx24"}, "the tree wins");
    auto after = sds::snapshot(tree, false);
    for (auto it = after.begin(); it != after.end();)
        it = before.count(it->first) ? std::next(it) : after.erase(it); // the new station's day files
    sds::expect_unchanged(before, after, "the tree's day files");
    EXPECT_EQ(filed_recordings(tree),
              (std::vector<std::string>{"conflict/a/rec.vx24", "vx24/test_20160504_120000.vx24"}));
}

// A 64-block half-hour whose first 20 s hold other values than the end of the
// half-hour before: the later one is refused, whatever the order on the
// command line.
TEST_F(SdsArchive, HalfHourWithOtherValuesInTheOverlapIsRefused) {
    const std::vector<std::string> files = {"text/c6050447.txt", "text/c6050500.txt", "text/c6050501.txt"};
    const double overlap = static_cast<double>(MAY_4 + 86400 + 1800);
    for (bool reversed : {false, true}) {
        SCOPED_TRACE(reversed ? "reversed" : "in order");
        std::vector<std::string> args = files;
        if (reversed) std::reverse(args.begin(), args.end());
        const fs::path tree = work.path / (reversed ? "reversed" : "in-order");
        const child_result r = file_into(tree, args);
        EXPECT_EQ(r.status, 1) << describe(r);
        expect_conflict_reported(r, "text/c6050501.txt", {"XX.RCA1..BDF", "XX.RCA2..BDF", "XX.RCA3..BDF"},
                                 overlap, overlap + 20.5);
        expect_tree_holds(tree, {"text/c6050447.txt", "text/c6050500.txt"}, "the earlier half-hours");
    }
}

// Every option that shapes the layout or the samples of one recording is
// refused with exactly one line, status 1, and nothing written: the tree is
// not created, nothing appears beside the recording, and an existing tree
// stays as it is.
TEST_F(SdsArchive, RefusedOptionsWriteNothing) {
    fs::copy_file(suite().rec / "vx24/test_20160504_120000.vx24", work.path / "rec.vx24");
    const std::vector<std::vector<std::string>> refused = {{"-1"},
                                                           {"-2"},
                                                           {"-4"},
                                                           {"--average"},
                                                           {"--amplitude"},
                                                           {"--vxdat"},
                                                           {"--slist"},
                                                           {"--tspair"},
                                                           {"--nrsamples"},
                                                           {"--no-comments"},
                                                           {"--sec-decimals", "3"},
                                                           {"--sample-times"},
                                                           {"--minutes"},
                                                           {"-s", "1.0"},
                                                           {"-l", "100"},
                                                           {"-n", "2"},
                                                           {"-c"},
                                                           {"--target-directory", "X"},
                                                           {"-o"},
                                                           {"-z", "0"},
                                                           {"-u", "2"},
                                                           {"-f"}};
    auto listing = [&] {
        std::vector<std::string> names;
        for (const auto &e : fs::recursive_directory_iterator(work.path))
            if (e.path().filename() != "logfile") names.push_back(fs::relative(e.path(), work.path).string());
        std::sort(names.begin(), names.end());
        return names;
    };
    const std::vector<std::string> before = listing();
    // A tree made before, which a refused run leaves alone.
    const fs::path made = suite().dir.path / "refused-options-tree";
    fs::remove_all(made);
    const child_result setup = file_into(made, {"vx24/test_20160504_121030.vx24"});
    ASSERT_EQ(setup.status, 0) << describe(setup);
    const auto made_before = sds::snapshot(made, true);

    for (const auto &option : refused) {
        const std::string name = option[0];
        const std::regex named("(^|[^A-Za-z0-9-])" + name + "([^A-Za-z0-9-]|$)");
        for (int place = 0; place < 3; ++place) {
            std::vector<std::string> args;
            const fs::path tree = place == 2 ? made : fs::path("archive");
            if (place == 0) args.insert(args.end(), option.begin(), option.end());
            args.insert(args.end(), {"--sds", tree.string()});
            if (place != 0) args.insert(args.end(), option.begin(), option.end());
            args.push_back("rec.vx24");
            std::string shown;
            for (const std::string &a : args)
                shown += " " + a;
            SCOPED_TRACE("brantel" + shown);
            const child_result r = run_child(work.path, BRANTEL_BIN, args);
            EXPECT_EQ(r.status, 1) << describe(r);
            const std::vector<std::string> lines = lines_of(r.err);
            EXPECT_EQ(lines.size(), 1u) << describe(r);
            if (!lines.empty()) {
                EXPECT_TRUE(std::regex_search(lines[0], named))
                    << "the line names " << name << ": " << lines[0];
            }
            EXPECT_EQ(r.out, "");
            EXPECT_FALSE(fs::exists(work.path / "archive")) << "the tree was created";
            EXPECT_EQ(listing(), before) << "something was written beside the recording";
        }
    }
    sds::expect_unchanged(made_before, sds::snapshot(made, true), "a tree with refused options");
    fs::remove_all(made);
}

// The tree keeps the --record-length and -z of its first run; a run with
// another value is refused with one line naming the option and both values,
// and changes nothing.
TEST_F(SdsArchive, OtherRecordLengthOrScaleIsRefused) {
    const fs::path tree = work.path / "sds";
    const std::vector<std::string> settings = {"--quiet", "--record-length", "512", "-z", "2"};
    const child_result first = file_into(tree, {"vx24/test_20160504_120000.vx24"}, settings);
    ASSERT_EQ(first.status, 0) << describe(first);
    // The samples are scaled as --mseed -z 2 scales them, in records of 512 bytes.
    fs::copy_file(suite().rec / "vx24/test_20160504_120000.vx24", work.path / "rec.vx24");
    const child_result direct = run_child(
        work.path, BRANTEL_BIN, {"--quiet", "--mseed", "--record-length", "512", "-z", "2", "rec.vx24"});
    ASSERT_EQ(direct.status, 0) << describe(direct);
    const sds::day_files files = sds::read_tree(tree);
    ASSERT_FALSE(files.empty());
    for (const auto &[path, f] : files)
        EXPECT_EQ(f.record_length, 512) << path;
    sds::expect_same_samples(sds::channels_of(files), sds::read_mseed(work.path / "rec.mseed"), "-z 2");

    const auto before = sds::snapshot(tree, true);
    struct other_run {
        std::vector<std::string> options;
        std::string tree_value, run_value;
    };
    const other_run others[] = {
        {{"--quiet", "--record-length", "1024", "-z", "2"}, "--record-length 512", "--record-length 1024"},
        {{"--quiet", "--record-length", "512", "-z", "3"}, "-z 2", "-z 3"},
        {{"--quiet", "--record-length", "4096", "-z", "5"}, "--record-length 512", "--record-length 4096"},
    };
    for (const other_run &o : others) {
        SCOPED_TRACE(o.run_value);
        const child_result r = file_into(tree, {"vx24/test_20160504_121030.vx24"}, o.options);
        EXPECT_EQ(r.status, 1) << describe(r);
        const std::vector<std::string> lines = lines_of(r.err);
        ASSERT_EQ(lines.size(), 1u) << describe(r);
        EXPECT_NE(lines[0].find(o.tree_value), std::string::npos) << lines[0];
        EXPECT_NE(lines[0].find(o.run_value), std::string::npos) << lines[0];
        EXPECT_EQ(r.out, "");
        sds::expect_unchanged(before, sds::snapshot(tree, true), "a refused run");
    }
    const child_result same = file_into(tree, {"vx24/test_20160504_121030.vx24"}, settings);
    EXPECT_EQ(same.status, 0) << describe(same);
}

// Steim-2 packs a flat signal far beyond 32767 samples in a record of 65536
// bytes; the sample count is 16 bits and taken as signed by some readers, so
// records stop at 32767, in --mseed and in the day files.
TEST_F(SdsArchive, FlatSignalRecordsHoldAtMost32767Samples) {
    const std::string flat = "flat/dovmark_20160504_220000.vx24";
    fs::copy_file(suite().rec / flat, work.path / "flat.vx24");
    const child_result direct =
        run_child(work.path, BRANTEL_BIN, {"--quiet", "--mseed", "--record-length", "65536", "flat.vx24"});
    EXPECT_EQ(direct.status, 0) << describe(direct);
    if (direct.status == 0) {
        const std::vector<seed::record> records = seed::read_records(file_bytes(work.path / "flat.mseed"));
        size_t total = 0;
        for (const seed::record &r : records) {
            EXPECT_LE(r.sample_count, 32767);
            EXPECT_EQ(r.record_length, 65536);
            total += static_cast<size_t>(r.sample_count);
        }
        EXPECT_EQ(total, 3u * 4 * 3600 * 20);
        sds::expect_same_samples(sds::read_mseed(work.path / "flat.mseed"), suite().reference.at(flat),
                                 "--mseed --record-length 65536");
        expect_mseed2sac_reads(work.path / "flat.mseed", total, work.path / "sac", false);
    }

    const fs::path tree = work.path / "sds";
    const child_result r = file_into(tree, {flat}, {"--quiet", "--record-length", "65536"});
    ASSERT_EQ(r.status, 0) << describe(r);
    const sds::day_files days = expect_tree_holds(tree, {flat}, "--record-length 65536");
    size_t full = 0;
    for (const auto &[path, f] : days) {
        EXPECT_EQ(f.record_length, 65536) << path;
        for (const seed::record &rec : seed::read_records(file_bytes(tree / path)))
            full += rec.sample_count == 32767;
        expect_mseed2sac_reads(tree / path, f.samples.size(), work.path / "sac");
    }
    EXPECT_GT(full, 0u) << "no record was filled to 32767 samples: the test shows nothing";
}

// Two runs that file half-hours of one day into one tree at the same time:
// the tree ends with both (three rounds, each on a fresh tree).
TEST_F(SdsArchive, ConcurrentRunsLoseNothing) {
    const std::vector<std::string> &all = suite().concurrent;
    std::vector<std::string> even, odd;
    for (size_t i = 0; i < all.size(); ++i)
        (i % 2 ? odd : even).push_back(all[i]);
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const fs::path tree = work.path / ("sds" + std::to_string(round));
        const fs::path logs = work.path / ("logs" + std::to_string(round));
        fs::create_directories(logs);
        const pid_t a =
            start_child(suite().rec, BRANTEL_BIN, sds_args(tree, even), logs / "a.out", logs / "a.err");
        const pid_t b =
            start_child(suite().rec, BRANTEL_BIN, sds_args(tree, odd), logs / "b.out", logs / "b.err");
        const int status_a = wait_child(a), status_b = wait_child(b);
        EXPECT_EQ(status_a, 0) << file_bytes(logs / "a.err");
        EXPECT_EQ(status_b, 0) << file_bytes(logs / "b.err");
        expect_tree_holds(tree, all, "two runs at once");
    }
}

// A run killed with SIGKILL at several points, then the same command again:
// the same samples in the same day files as an uninterrupted run, and no
// temporary file anywhere under the tree.
TEST_F(SdsArchive, KilledRunFinishesWithTheSameCommand) {
    const std::vector<std::string> &files = suite().killed;
    // The kills are timed by the shorter of two uninterrupted runs: the
    // first, with cold caches or beside other busy tests, can take twice as
    // long as those that follow, which then end before their kills.
    auto duration = std::chrono::steady_clock::duration::max();
    for (const char *name : {"uninterrupted", "uninterrupted again"}) {
        const fs::path base = work.path / name;
        const auto t0 = std::chrono::steady_clock::now();
        const child_result whole = file_into(base, files);
        duration = std::min(duration, std::chrono::steady_clock::now() - t0);
        ASSERT_EQ(whole.status, 0) << describe(whole);
        expect_tree_holds(base, files, name);
    }
    std::printf("[ note     ] the uninterrupted run took %.0f ms\n",
                std::chrono::duration<double, std::milli>(duration).count());

    auto has_day_file = [](const fs::path &tree) {
        std::error_code ec;
        for (auto it = fs::recursive_directory_iterator(tree, ec);
             !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
            if (it.depth() == 0 && it->path().filename() == ".brantel-archive") {
                it.disable_recursion_pending();
                continue;
            }
            if (it->is_regular_file(ec)) return true;
        }
        return false;
    };
    auto has_staging = [](const fs::path &tree) {
        std::error_code ec;
        const fs::path staging = tree / ".brantel-archive" / "staging";
        return fs::is_directory(staging, ec) && !fs::is_empty(staging, ec);
    };
    struct kill_point {
        std::string name;
        double fraction; // of the uninterrupted run's duration; < 0: on an event
        int event;       // 1: staging has begun, 2: the first day file is there
    };
    const kill_point points[] = {
        {"at once", 0.0, 0}, {"staging begun", -1, 1}, {"first day file", -1, 2},
        {"at 40%", 0.4, 0},  {"at 60%", 0.6, 0},       {"at 80%", 0.8, 0},
    };
    int landed = 0;
    for (const kill_point &k : points) {
        SCOPED_TRACE("killed " + k.name);
        const fs::path tree = work.path / ("killed " + k.name);
        const pid_t pid = start_child(suite().rec, BRANTEL_BIN, sds_args(tree, files),
                                      work.path / "killed.out", work.path / "killed.err");
        if (k.event == 0) {
            std::this_thread::sleep_for(
                std::chrono::duration_cast<std::chrono::microseconds>(duration * k.fraction));
        } else {
            const auto give_up = std::chrono::steady_clock::now() + 3 * duration + 2s;
            while (std::chrono::steady_clock::now() < give_up &&
                   !(k.event == 1 ? has_staging(tree) : has_day_file(tree)))
                std::this_thread::sleep_for(200us);
        }
        kill(pid, SIGKILL);
        const int status = wait_child(pid);
        if (status == -SIGKILL)
            ++landed;
        else
            std::printf("[ note     ] the run had ended (status %d) before the kill %s\n", status,
                        k.name.c_str());
        const child_result again = file_into(tree, files);
        EXPECT_EQ(again.status, 0) << describe(again);
        expect_tree_holds(tree, files, "after the kill " + k.name + " and the same command again");
    }
    EXPECT_GE(landed, 4) << "too few kills came while the run was going on";
}

// The archive driver's way: jobs of one RUN stage at the same time, one merge
// files them and prints one line; a conflicting recording of another run is
// listed in that run's refused file; a second merge of a run writes nothing.
TEST_F(SdsArchive, StagedJobsAndOneMerge) {
    const fs::path tree = work.path / "sds";
    const std::vector<std::string> job1 = {"vx24/test_20160504_120000.vx24",
                                           "vx24/ensholm_20160504_100000.vx24"};
    const std::vector<std::string> job2 = {"vx24/test_20160504_121030.vx24",
                                           "vx24/ensholm_20160504_102000.vx24"};
    const pid_t a =
        start_child(suite().rec, BRANTEL_BIN, sds_args(tree, job1, {"--quiet", "--sds-stage", "run-1"}),
                    work.path / "a.out", work.path / "a.err");
    const pid_t b =
        start_child(suite().rec, BRANTEL_BIN, sds_args(tree, job2, {"--quiet", "--sds-stage", "run-1"}),
                    work.path / "b.out", work.path / "b.err");
    EXPECT_EQ(wait_child(a), 0) << file_bytes(work.path / "a.err");
    EXPECT_EQ(wait_child(b), 0) << file_bytes(work.path / "b.err");
    EXPECT_TRUE(sds::read_tree(tree).empty()) << "staging wrote day files";

    static const std::regex summary(
        R"(^SDS: (\d+) day files written, (\d+) channels, (\d+) gaps, (\d+) conflicts$)");
    std::smatch m;
    const child_result merge = file_into(tree, {}, {"--quiet", "--sds-merge", "run-1"});
    EXPECT_EQ(merge.status, 0) << describe(merge);
    std::vector<std::string> all = job1;
    all.insert(all.end(), job2.begin(), job2.end());
    const sds::day_files days = expect_tree_holds(tree, all, "merged");
    std::vector<std::string> out = lines_of(merge.out);
    ASSERT_EQ(out.size(), 1u) << describe(merge);
    ASSERT_TRUE(std::regex_match(out[0], m, summary)) << out[0];
    EXPECT_EQ(std::stoul(m[1]), days.size()) << out[0];
    EXPECT_EQ(std::stoul(m[2]), 6u) << out[0]; // TEST1-3 and REA1-3
    EXPECT_EQ(std::stoul(m[4]), 0u) << out[0];
    const auto before = sds::snapshot(tree, false);

    const std::string refused = "conflict/test_20160504_120500.vx24";
    const child_result stage = file_into(tree, {refused}, {"--quiet", "--sds-stage", "run-2"});
    EXPECT_EQ(stage.status, 0) << describe(stage);
    const child_result conflict = file_into(tree, {}, {"--quiet", "--sds-merge", "run-2"});
    EXPECT_EQ(conflict.status, 1) << describe(conflict);
    const double from = static_cast<double>(MAY_4 + 12 * HOUR + 300);
    expect_conflict_reported(conflict, refused, {"XX.TEST1..BDF", "XX.TEST2..BDF", "XX.TEST3..BDF"}, from,
                             from + 60);
    out = lines_of(conflict.out);
    ASSERT_EQ(out.size(), 1u) << describe(conflict);
    ASSERT_TRUE(std::regex_match(out[0], m, summary)) << out[0];
    EXPECT_EQ(std::stoul(m[1]), 0u) << out[0];
    EXPECT_EQ(std::stoul(m[4]), 1u) << out[0];
    const std::vector<std::string> listed =
        lines_of(file_bytes(tree / ".brantel-archive" / "staging" / "run-2" / "refused"));
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_EQ(listed[0].rfind(refused + "\t", 0), 0u) << listed[0];
    EXPECT_TRUE(std::regex_search(listed[0], std::regex(R"(XX\.TEST[123]\.\.BDF)"))) << listed[0];
    sds::expect_unchanged(before, sds::snapshot(tree, false), "a refused recording");

    const child_result again = file_into(tree, {}, {"--quiet", "--sds-merge", "run-1"});
    EXPECT_EQ(again.status, 0) << describe(again);
    out = lines_of(again.out);
    ASSERT_EQ(out.size(), 1u) << describe(again);
    ASSERT_TRUE(std::regex_match(out[0], m, summary)) << out[0];
    EXPECT_EQ(std::stoul(m[1]), 0u) << out[0];
    sds::expect_unchanged(before, sds::snapshot(tree, false), "a second merge of a run");
    expect_tree_holds(tree, all, "after everything");
}

// Every record of a day file starts at its first sample's own time, as in
// --mseed, and every sample lies in the day file of its own time's UTC day.
// The recording is TM4 text whose times wander by up to a fifth of an
// interval around the rate (one stretch for --mseed), over midnight; its
// values name the line they come from, so each sample's own time is known.
TEST_F(SdsArchive, RecordsStartAtTheirFirstSamplesOwnTime) {
    fixtures::tm4_params p;
    p.station = "bredmo";
    p.start = static_cast<double>(MAY_4 + 23 * HOUR + 50 * 60);
    const int lines = 20 * 60 * 20;
    std::vector<int64_t> own(lines);
    std::string text = fixtures::tm4_comment(p) + "\n";
    for (int i = 0; i < lines; ++i) {
        own[i] = (MAY_4 + 23 * HOUR + 50 * 60) * 1000000LL + i * 50000LL +
                 std::llround(10000.0 * std::sin(i * 0.1));
        char line[128];
        std::snprintf(line, sizeof line, "%lld.%06lld %d %d %d\n", static_cast<long long>(own[i] / 1000000),
                      static_cast<long long>(own[i] % 1000000), i, 100000 + i, 200000 + i);
        text += line;
    }
    work.write("wander.tm4", text);

    // Checks records read from one file: returns the farthest start, in us.
    auto check = [&](const std::vector<sds::sample> &samples, const std::string &what, int64_t day) {
        int64_t worst = 0;
        size_t starts = 0, elsewhere = 0;
        std::string first_elsewhere;
        for (const sds::sample &s : samples) {
            const auto line = static_cast<size_t>(std::llround(s.value)) % 100000;
            if (line >= own.size()) {
                ADD_FAILURE() << what << ": a value that no line holds: " << s.value;
                return;
            }
            if (day >= 0 && sds::utc_day(own[line]) != day && elsewhere++ == 0)
                first_elsewhere = "line " + std::to_string(line) + ", at " + sds::iso_time(own[line]) +
                                  ", is in this file at " + sds::iso_time(s.t_us);
            if (s.in_record != 0) continue;
            ++starts;
            worst = std::max<int64_t>(worst, std::llabs(s.t_us - own[line]));
        }
        EXPECT_LE(worst, 100) << what << ": of " << starts << " records, one starts " << worst
                              << " us away from its first sample's own time";
        EXPECT_EQ(elsewhere, 0u) << what << ": samples whose own time lies in another day; "
                                 << first_elsewhere;
    };

    const child_result direct = run_child(work.path, BRANTEL_BIN, {"--quiet", "--mseed", "wander.tm4"});
    ASSERT_EQ(direct.status, 0) << describe(direct);
    for (const auto &[id, samples] : sds::read_mseed(work.path / "wander.mseed"))
        check(samples, "--mseed " + id, -1);

    const fs::path tree = work.path / "sds";
    const child_result r =
        run_child(work.path, BRANTEL_BIN, {"--quiet", "--sds", tree.string(), "wander.tm4"});
    ASSERT_EQ(r.status, 0) << describe(r);
    const sds::day_files days = sds::read_tree(tree);
    EXPECT_EQ(days.size(), 6u);
    size_t total = 0;
    for (const auto &[path, f] : days) {
        const int64_t day = fixtures::day_epoch(std::to_string(f.year) + "-01-01") / 86400 + f.doy - 1;
        check(f.samples, path, day);
        total += f.samples.size();
    }
    EXPECT_EQ(total, 3u * lines);
}

// A day file removed by hand, or cut short, since the archive wrote it: the
// next run names it in one warning line and takes it as it is, and the same
// recordings converted again fill it again; the run after that is quiet and
// changes nothing.
TEST_F(SdsArchive, DayFileRemovedOrCutShortIsNamedAndFilledAgain) {
    const fs::path tree = work.path / "sds";
    const std::vector<std::string> files = {"vx24/test_20160504_120000.vx24",
                                            "vx24/test_20160504_121030.vx24"};
    const child_result first = file_into(tree, files);
    ASSERT_EQ(first.status, 0) << describe(first);
    const std::string removed = "2016/XX/TEST2/BDF.D/XX.TEST2..BDF.D.2016.125";
    const std::string cut = "2016/XX/TEST3/BDF.D/XX.TEST3..BDF.D.2016.125";
    ASSERT_TRUE(fs::exists(tree / removed));
    ASSERT_TRUE(fs::exists(tree / cut));
    fs::remove(tree / removed);
    const std::vector<seed::record> records = seed::read_records(file_bytes(tree / cut));
    ASSERT_GT(records.size(), 1u);
    fs::resize_file(tree / cut, static_cast<uintmax_t>(records[0].record_length));

    const child_result again = file_into(tree, files);
    EXPECT_EQ(again.status, 0) << describe(again);
    for (const std::string &path : {removed, cut}) {
        const std::string name = fs::path(path).filename().string();
        size_t naming = 0;
        for (const std::string &line : lines_of(again.err))
            naming += line.find(name) != std::string::npos;
        EXPECT_EQ(naming, 1u) << "lines naming " << name << ":\n" << again.err;
    }
    expect_tree_holds(tree, files, "filled again");

    const auto before = sds::snapshot(tree, false);
    const child_result quiet = file_into(tree, files);
    EXPECT_EQ(quiet.status, 0) << describe(quiet);
    EXPECT_EQ(quiet.err.find("day file"), std::string::npos) << describe(quiet);
    sds::expect_unchanged(before, sds::snapshot(tree, false), "the run after");
}
