// brantel --identify over every recording the tests know: the recordings of
// every end-to-end case (their input folders and fixture calls), the
// examples, the seeds of the reader fuzzers, and a corpus written here of
// good recordings of every kind and damaged ones: vx24 files cut short at
// every byte of their header and first samples, with each magic, the
// version, the station byte, the channel count and the rate spoilt, and
// comment-headed and TM4 recordings cut or garbled. The lines must be the
// ones stored in identify_every_recording.txt, damaged files named by the
// same message (a recording of an end-to-end case added later has no stored
// line and is not compared); the stored lines were written by a build that
// read every recording whole to describe it, and so was its standard error
// (identify_every_recording_stderr.txt: the notes that the comment-headed
// reader prints of time gaps once it is done with a file).
//
// The run's own output goes to BUILD_DIR/identify_every_recording.out and
// .err, so that a difference can be looked at whole.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "child_process.h"
#include "temp_dir.h"
#include "tm4_fixture.h"
#include "vx16_fixture.h"
#include "vx24_fixture.h"

namespace {

namespace fs = std::filesystem;

void put(const fs::path &path, const std::string &bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
}

std::vector<std::string> words_of(const std::string &line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    std::string w;
    while (in >> w)
        words.push_back(w);
    return words;
}

// Every case folder's recordings below dir/CASE: input/ copied, then the
// fixture calls, symbolic links and named pipes of its setup file.
void end_to_end_recordings(const fs::path &dir) {
    std::vector<fs::path> cases;
    for (const auto &e : fs::directory_iterator(fs::path(SOURCE_DIR) / "tests/e2e/cases"))
        if (e.is_directory()) cases.push_back(e.path());
    std::sort(cases.begin(), cases.end());
    for (const fs::path &c : cases) {
        const fs::path work = dir / c.filename();
        fs::create_directories(work);
        if (fs::exists(c / "input")) fs::copy(c / "input", work, fs::copy_options::recursive);
        std::ifstream setup(c / "setup");
        std::string line;
        while (std::getline(setup, line)) {
            const std::vector<std::string> words = words_of(line);
            if (words.empty()) continue;
            if (words[0] == "symlink" && words.size() == 3) {
                fs::create_directories((work / words[2]).parent_path());
                fs::create_symlink(words[1], work / words[2]);
                continue;
            }
            if (words[0] == "fifo" && words.size() == 2) {
                ASSERT_EQ(::mkfifo((work / words[1]).c_str(), 0644), 0) << c << ": " << line;
                continue;
            }
            const child_result r = run_child(work, FIXTURE_BIN, words);
            ASSERT_EQ(r.status, 0) << c << ": " << line << "\n" << r.err;
        }
    }
}

void copy_tree(const fs::path &from, const fs::path &to) {
    fs::create_directories(to);
    fs::copy(from, to, fs::copy_options::recursive);
}

// A vx24 file cut after every length up to its first samples, and with each
// field that the reader checks spoilt in turn.
void damaged_vx24(const fs::path &dir, const std::string &stem, const fixtures::vx24_params &p) {
    const std::string good = fixtures::make_vx24(p);
    put(dir / (stem + ".vx24"), good);
    const size_t data = fixtures::vx24_data_offset(p.version, p.channels);
    const size_t end = std::min(good.size(), data + 4 * static_cast<size_t>(p.channels) * 2 + 3);
    for (size_t n = 0; n <= end; ++n)
        put(dir / (stem + "_cut" + std::to_string(n) + ".vx24"), good.substr(0, n));
    auto spoilt = [&](const std::string &what, size_t at, char byte) {
        if (at >= good.size()) return;
        std::string bytes = good;
        bytes[at] = byte;
        put(dir / (stem + "_" + what + ".vx24"), bytes);
    };
    const size_t h = fixtures::vx24_header_size(p.version);
    spoilt("magic", 3, '5');
    spoilt("version3", 4, 3);
    spoilt("version255", 4, static_cast<char>(255));
    spoilt("chns", h, 'C');
    spoilt("chan", h + 8, 'C');
    if (p.channels > 1) spoilt("lastchan", h + 8 + 32 * (static_cast<size_t>(p.channels) - 1) + 3, 'N');
    spoilt("data", data - 8, 'D');
    spoilt("station9", 5, 9);
    spoilt("station253", 5, static_cast<char>(253));
    spoilt("channels_more", 20, static_cast<char>(p.channels + 1));
    spoilt("channels_fewer", 20, static_cast<char>(p.channels > 0 ? p.channels - 1 : 0));
    spoilt("channels_255", 20, static_cast<char>(255));
}

void vx24_corpus(const fs::path &dir) {
    for (int version = 0; version <= 2; ++version)
        for (int channels : {0, 1, 3}) {
            fixtures::vx24_params p;
            p.version = version;
            p.channels = channels;
            p.samples = 4;
            damaged_vx24(dir, "v" + std::to_string(version) + "_n" + std::to_string(channels), p);
        }
    struct variant {
        const char *name;
        void (*change)(fixtures::vx24_params &);
    };
    const variant variants[] = {
        {"rate0", [](fixtures::vx24_params &p) { p.rate = 0; }},
        {"rate_negative", [](fixtures::vx24_params &p) { p.rate = -20; }},
        {"rate_tiny", [](fixtures::vx24_params &p) { p.rate = 1e-300; }},
        {"rate_huge", [](fixtures::vx24_params &p) { p.rate = 1e300; }},
        {"rate_odd", [](fixtures::vx24_params &p) { p.rate = 19.99999237; }},
        {"rate_inf", [](fixtures::vx24_params &p) { p.rate = 1.0 / 0.0; }},
        {"rate_nan", [](fixtures::vx24_params &p) { p.rate = 0.0 / 0.0; }},
        {"rate_nan_empty",
         [](fixtures::vx24_params &p) {
             p.rate = 0.0 / 0.0;
             p.samples = 0;
         }},
        {"rate0_empty",
         [](fixtures::vx24_params &p) {
             p.rate = 0;
             p.samples = 0;
         }},
        {"nanoseconds_big", [](fixtures::vx24_params &p) { p.nanoseconds = 4294967295u; }},
        {"nanoseconds_half", [](fixtures::vx24_params &p) { p.nanoseconds = 999999999u; }},
        {"nanoseconds_big_empty",
         [](fixtures::vx24_params &p) {
             p.nanoseconds = 4294967295u;
             p.samples = 0;
         }},
        {"seconds_max", [](fixtures::vx24_params &p) { p.seconds = 4294967295u; }},
        {"seconds_zero", [](fixtures::vx24_params &p) { p.seconds = 0; }},
        {"empty", [](fixtures::vx24_params &p) { p.samples = 0; }},
        {"extra_values", [](fixtures::vx24_params &p) { p.extra_values = 2; }},
        {"extra_values_only",
         [](fixtures::vx24_params &p) {
             p.samples = 0;
             p.extra_values = 2;
         }},
        {"extra_bytes", [](fixtures::vx24_params &p) { p.extra_bytes = 3; }},
        {"header_length_odd", [](fixtures::vx24_params &p) { p.header_length = 7; }},
        {"bits_bytes_odd",
         [](fixtures::vx24_params &p) {
             p.bits_per_sample = 16;
             p.bytes_per_sample = 2;
         }},
        {"channels_255",
         [](fixtures::vx24_params &p) {
             p.channels = 255;
             p.samples = 2;
         }},
        {"station_test", [](fixtures::vx24_params &p) { p.station = 254; }},
        {"station_unknown", [](fixtures::vx24_params &p) { p.station = 255; }},
        {"station_dovmark2", [](fixtures::vx24_params &p) { p.station = 8; }},
        {"station_none", [](fixtures::vx24_params &p) { p.station = 100; }},
        {"version2_device",
         [](fixtures::vx24_params &p) {
             p.version = 2;
             p.device_id = 77;
             p.host_timestamp = 1500000001;
         }},
    };
    for (const variant &v : variants) {
        fixtures::vx24_params p;
        v.change(p);
        put(dir / (std::string("var_") + v.name + ".vx24"), fixtures::make_vx24(p));
    }
    // Version 3 and above with a whole recording behind the header.
    for (int version : {3, 4, 200}) {
        fixtures::vx24_params p;
        p.version = version;
        put(dir / ("version" + std::to_string(version) + ".vx24"), fixtures::make_vx24(p));
    }
    put(dir / "magic_only.vx24", "vx24");
    put(dir / "magic_and_a_byte.vx24", std::string("vx24\0", 5));
    put(dir / "magic_line.vx24", "vx24\n1 2 3 4\n");
}

// Comment-headed recordings of every kind, whole, cut, and garbled.
void vx16_corpus(const fs::path &dir) {
    const char *kinds[] = {"S512", "S128", "U512", "U128", "T", "1", "2"};
    for (const char *kind : kinds) {
        fixtures::vx16_recipe s;
        s.kind = kind;
        s.blocks = 3;
        s.date = "2016-05-04";
        s.time = "13:30:00";
        if (s.kind[0] == 'U') s.start = fixtures::day_epoch(s.date) + s.start;
        const std::string bin = fixtures::make_vx16_binary(s);
        const std::string txt = fixtures::make_vx16_text(s);
        const fs::path sub = dir / "2016/05/20160504";
        const std::string stem = std::string("e60504") + (kind[0] == 'U' ? "2" : "1") + kind;
        put(sub / (stem + ".dat"), bin);
        put(sub / (stem + "_text.dat"), txt);
        for (size_t n : {size_t{0}, size_t{3}, size_t{20}, bin.size() / 3, bin.size() - 1, bin.size() - 600})
            put(sub / (stem + "_cut" + std::to_string(n) + ".dat"), bin.substr(0, std::min(n, bin.size())));
        for (size_t n : {size_t{30}, txt.size() / 2, txt.size() - 2})
            put(sub / (stem + "_text_cut" + std::to_string(n) + ".dat"),
                txt.substr(0, std::min(n, txt.size())));
        std::string garbled = txt;
        garbled[garbled.size() / 2] = 'x';
        put(sub / (stem + "_text_garbled.dat"), garbled);
    }
    fixtures::vx16_recipe gaps;
    gaps.blocks = 4;
    gaps.gaps = {{2, 600}};
    put(dir / "2016/05/20160504/e6050412.dat", fixtures::make_vx16_binary(gaps));
    fixtures::vx16_recipe unknown_station;
    unknown_station.station = "q";
    unknown_station.blocks = 2;
    put(dir / "2016/05/20160504/q6050412.dat", fixtures::make_vx16_binary(unknown_station));
    fixtures::vx16_recipe odd_rate;
    odd_rate.freq = 0;
    odd_rate.blocks = 2;
    put(dir / "2016/05/20160504/e6050413.dat", fixtures::make_vx16_binary(odd_rate));
    put(dir / "comment_only.dat", "!S512Tidserier sampfrek: 18.000000 gain: 2 station: e\r");
    put(dir / "remark.txt", "!just a remark\nand more\n");
    put(dir / "empty.dat", "");
}

void tm4_corpus(const fs::path &dir) {
    fixtures::tm4_params p;
    const std::string good = fixtures::make_tm4(p);
    put(dir / "good.tm4", good);
    for (size_t n : {size_t{10}, good.size() / 2, good.size() - 1})
        put(dir / ("cut" + std::to_string(n) + ".tm4"), good.substr(0, n));
    fixtures::tm4_params bare;
    bare.comment = false;
    put(dir / "bare.tm4", fixtures::make_tm4(bare));
    fixtures::tm4_params stranger;
    stranger.station = "nowhere";
    put(dir / "stranger.tm4", fixtures::make_tm4(stranger));
    fixtures::tm4_params wide;
    wide.channels = 8;
    wide.lines = 5;
    put(dir / "wide.tm4", fixtures::make_tm4(wide));
    fixtures::tm4_params one;
    one.lines = 1;
    put(dir / "one_line.tm4", fixtures::make_tm4(one));
    std::string garbled = good;
    garbled[garbled.size() / 2] = 'z';
    put(dir / "garbled.tm4", garbled);
}

// Every file and symbolic link below dir, relative to it, in order.
std::vector<std::string> every_file(const fs::path &dir) {
    std::vector<std::string> names;
    for (const auto &e : fs::recursive_directory_iterator(dir))
        if (e.is_symlink() || e.is_regular_file()) names.push_back(fs::relative(e.path(), dir).string());
    std::sort(names.begin(), names.end());
    return names;
}

TEST(IdentifyEveryRecording, LinesAsStored) {
    temp_dir tmp;
    const fs::path root = tmp.path;
    end_to_end_recordings(root / "e2e");
    copy_tree(fs::path(SOURCE_DIR) / "examples", root / "examples");
    for (const char *seeds : {"probe", "vx16", "vx24", "tm4", "comment_reader", "run"})
        copy_tree(fs::path(SOURCE_DIR) / "fuzz/corpus" / seeds, root / "seeds" / seeds);
    vx24_corpus(root / "made/vx24");
    vx16_corpus(root / "made/vx16");
    tm4_corpus(root / "made/tm4");

    std::vector<std::string> names = every_file(root);
    names.push_back("made/no such file.vx24");
    names.push_back("made");
    const child_result r = run_child(root, BRANTEL_BIN, [&] {
        std::vector<std::string> args{"--identify"};
        args.insert(args.end(), names.begin(), names.end());
        return args;
    }());
    put(fs::path(BUILD_DIR) / "identify_every_recording.out", r.out);
    put(fs::path(BUILD_DIR) / "identify_every_recording.err", r.err);

    const fs::path stored = fs::path(SOURCE_DIR) / "tests/unit";
    const std::string expected = file_bytes(stored / "identify_every_recording.txt");
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, file_bytes(stored / "identify_every_recording_stderr.txt"));
    // Lines are matched by path: an end-to-end case added since the lines
    // were stored brings recordings that have none, and those are left out.
    // Every stored line of the recordings made here, the examples and the
    // seeds must be met again, and nearly all of the others.
    std::map<std::string, std::string> want;
    for (const std::string &line : lines_of(expected))
        want[line.substr(0, line.find('\t'))] = line;
    std::size_t met = 0;
    for (const std::string &line : lines_of(r.out)) {
        const auto it = want.find(line.substr(0, line.find('\t')));
        if (it == want.end()) continue;
        EXPECT_EQ(line, it->second);
        ++met;
        want.erase(it);
    }
    for (const auto &[path, line] : want)
        EXPECT_EQ(path.rfind("e2e/", 0), 0u) << "no line for " << path << "; stored: " << line;
    EXPECT_GE(met * 10, (met + want.size()) * 9);
}

} // namespace
