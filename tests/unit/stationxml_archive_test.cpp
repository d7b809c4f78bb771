// brantel-stationxml on a generated SDS archive: comment-headed recordings
// of three elements, gain setting 2 and then 3, one element re-sited in the
// middle of a recording (two table rows). The document must be valid
// StationXML 1.2, every sample of every day file must lie in exactly one
// channel epoch with its rate and the coordinates of the row for its time,
// and the response must match the recordings and the table.
#include <sys/stat.h>
#include <sys/wait.h>

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "seed_record_reader.h"
#include "station_table.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

// 13:30:00 on 2016-05-04, the first recording's first sample.
constexpr int64_t T0 = 1462368600;
constexpr int64_t S = 1000000;

struct command_result {
    int status = -1;
    std::string out, err;
};

std::string sh_quote(const std::string &s) {
    std::string q = "'";
    for (char c : s)
        q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

command_result run(const temp_dir &dir, const std::string &command, const std::string &env = "") {
    const std::string line = "cd " + sh_quote(dir.path.string()) + " && " + env + " " + command +
                             " </dev/null >command.out 2>command.err";
    const int rc = std::system(line.c_str());
    command_result r;
    if (rc != -1 && WIFEXITED(rc)) r.status = WEXITSTATUS(rc);
    r.out = dir.read("command.out");
    r.err = dir.read("command.err");
    return r;
}

const std::string HEADER = "network,station,location,latitude,longitude,elevation,depth,azimuth,dip,"
                           "sensitivity,frequency,start,end,site\n";

// REA1 moves at 13:33:00, inside the third recording; REA2 and REA3 stay.
const std::string TABLE = HEADER + "XX,REA1,,60.1,17.5,40,,,,0.0025,1,,2016-05-04T13:33:00Z,Old hut\n"
                                   "XX,REA1,,60.2,17.625,41,0.5,,,0.005,1,2016-05-04T13:33:00Z,,\n"
                                   ",REA2,,60.3,17.75,42,,0,-90,0.0025,2,,,\n"
                                   ",REA3,,60.4,17.875,43,,,,0.004,1,,,\"Field, north\"\n";

// Four recordings of 64 s at 16 Hz, one after the other: gain setting 2
// (external gain 20) for the first two, 3 (external gain 30) for the others.
void make_archive(const temp_dir &dir) {
    for (int i = 0; i < 4; ++i) {
        const std::string cmd = sh_quote(FIXTURE_BIN) + " vx16bin out=r" + std::to_string(i) +
                                ".dat kind=U512 freq=16 gain=" + (i < 2 ? "2" : "3") +
                                " date=2016-05-04 blocks=2 start=" + std::to_string(T0 + 64 * i);
        ASSERT_EQ(run(dir, cmd).status, 0);
    }
    const command_result r =
        run(dir, sh_quote(BRANTEL_BIN) + " --quiet --sds arch r0.dat r1.dat r2.dat r3.dat");
    ASSERT_EQ(r.status, 0) << r.err;
}

command_result stationxml(const temp_dir &dir, const std::string &table, const std::string &env = "") {
    return run(dir, sh_quote(STATIONXML_BIN) + " " + table + " arch", env);
}

// ---- the document, read back with libxml2's tree ----

std::string text_of(xmlNode *n) {
    xmlChar *c = xmlNodeGetContent(n);
    std::string s = c ? reinterpret_cast<const char *>(c) : "";
    xmlFree(c);
    return s;
}

std::string attr(xmlNode *n, const char *name) {
    xmlChar *c = xmlGetProp(n, BAD_CAST name);
    std::string s = c ? reinterpret_cast<const char *>(c) : "";
    xmlFree(c);
    return s;
}

std::vector<xmlNode *> children(xmlNode *n, const char *name) {
    std::vector<xmlNode *> out;
    for (xmlNode *c = n->children; c; c = c->next)
        if (c->type == XML_ELEMENT_NODE && std::string(reinterpret_cast<const char *>(c->name)) == name)
            out.push_back(c);
    return out;
}

xmlNode *child(xmlNode *n, const char *name) {
    const std::vector<xmlNode *> c = children(n, name);
    return c.empty() ? nullptr : c[0];
}

double number(xmlNode *n, const char *name) {
    xmlNode *c = child(n, name);
    EXPECT_NE(c, nullptr) << name;
    return c ? std::strtod(text_of(c).c_str(), nullptr) : NAN;
}

int64_t when(const std::string &text) {
    int64_t t = 0;
    EXPECT_TRUE(stationxml::parse_utc_time(text, t)) << text;
    return t;
}

struct epoch {
    std::string network, station, location, channel;
    int64_t start, end;
    double rate, latitude, longitude, elevation, depth;
    double sensitivity, sensitivity_frequency, stage1, stage2, decimation_rate;
    std::string site;
    int64_t station_start, station_end;
};

std::vector<epoch> epochs_of(const std::string &document) {
    std::vector<epoch> out;
    xmlDoc *doc =
        xmlReadMemory(document.data(), static_cast<int>(document.size()), "stations.xml", nullptr, 0);
    EXPECT_NE(doc, nullptr);
    if (!doc) return out;
    xmlNode *root = xmlDocGetRootElement(doc);
    for (xmlNode *net : children(root, "Network"))
        for (xmlNode *sta : children(net, "Station"))
            for (xmlNode *cha : children(sta, "Channel")) {
                epoch e;
                e.network = attr(net, "code");
                e.station = attr(sta, "code");
                e.site = text_of(child(child(sta, "Site"), "Name"));
                e.station_start = when(attr(sta, "startDate"));
                e.station_end = when(attr(sta, "endDate"));
                e.location = attr(cha, "locationCode");
                e.channel = attr(cha, "code");
                e.start = when(attr(cha, "startDate"));
                e.end = when(attr(cha, "endDate"));
                e.rate = number(cha, "SampleRate");
                e.latitude = number(cha, "Latitude");
                e.longitude = number(cha, "Longitude");
                e.elevation = number(cha, "Elevation");
                e.depth = number(cha, "Depth");
                EXPECT_EQ(number(sta, "Latitude"), e.latitude);
                xmlNode *response = child(cha, "Response");
                xmlNode *sens = child(response, "InstrumentSensitivity");
                e.sensitivity = number(sens, "Value");
                e.sensitivity_frequency = number(sens, "Frequency");
                EXPECT_EQ(text_of(child(child(sens, "InputUnits"), "Name")), "Pa");
                EXPECT_EQ(text_of(child(child(sens, "OutputUnits"), "Name")), "count");
                const std::vector<xmlNode *> stages = children(response, "Stage");
                EXPECT_EQ(stages.size(), 2u);
                if (stages.size() != 2) continue;
                xmlNode *pz = child(stages[0], "PolesZeros");
                EXPECT_NE(pz, nullptr);
                EXPECT_EQ(text_of(child(child(pz, "InputUnits"), "Name")), "Pa");
                EXPECT_EQ(text_of(child(child(pz, "OutputUnits"), "Name")), "V");
                xmlNode *cf = child(stages[1], "Coefficients");
                EXPECT_NE(cf, nullptr);
                EXPECT_EQ(text_of(child(child(cf, "InputUnits"), "Name")), "V");
                EXPECT_EQ(text_of(child(child(cf, "OutputUnits"), "Name")), "count");
                e.stage1 = number(child(stages[0], "StageGain"), "Value");
                e.stage2 = number(child(stages[1], "StageGain"), "Value");
                e.decimation_rate = number(child(stages[1], "Decimation"), "InputSampleRate");
                out.push_back(e);
            }
    xmlFreeDoc(doc);
    return out;
}

// The table row in force for an element at time t.
const stationxml::station_row *row_at(const stationxml::station_table &table, const epoch &e, int64_t t) {
    for (const stationxml::station_row &r : table.rows)
        if (r.applies_to(e.network, e.station, e.location) && r.covers(t)) return &r;
    return nullptr;
}

struct sample_time {
    std::string network, station, location, channel;
    int64_t t;
    double rate;
};

// Every sample of every day file, with its time and rate from its record.
std::vector<sample_time> archived_samples(const fs::path &top) {
    std::vector<sample_time> out;
    for (auto it = fs::recursive_directory_iterator(top); it != fs::recursive_directory_iterator(); ++it) {
        if (it->path().filename() == ".brantel-archive") {
            it.disable_recursion_pending();
            continue;
        }
        if (!it->is_regular_file() || it->path().filename() == "stations.xml") continue;
        std::ifstream in(it->path(), std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        for (const seed::record &r : seed::read_records(bytes))
            for (int i = 0; i < r.sample_count; ++i)
                out.push_back({r.network, r.station, r.location, r.channel,
                               r.start_us + std::llround(i * 1e6 / r.header_rate), r.header_rate});
    }
    return out;
}

int64_t mtime_ns(const fs::path &p) {
    struct stat st {};
    EXPECT_EQ(::stat(p.c_str(), &st), 0);
    return static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
}

TEST(StationXmlArchive, EpochsCoverEverySampleOnceWithRowAndGain) {
    temp_dir dir;
    make_archive(dir);
    dir.write("stations.csv", TABLE);
    const command_result r = stationxml(dir, "stations.csv");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    const std::string document = dir.read("arch/stations.xml");
    const std::vector<epoch> epochs = epochs_of(document);
    stationxml::station_table table;
    std::vector<std::string> faults;
    ASSERT_TRUE(stationxml::read_station_table("stations.csv", TABLE, table, faults));

    // REA1: gain 20 then 30 under the first row, then the second row; REA2
    // and REA3: the gain change alone.
    std::map<std::string, int> per_channel;
    for (const epoch &e : epochs)
        ++per_channel[e.network + "." + e.station + "." + e.location + "." + e.channel];
    EXPECT_EQ(per_channel,
              (std::map<std::string, int>{{"XX.REA1..BDF", 3}, {"XX.REA2..BDF", 2}, {"XX.REA3..BDF", 2}}));

    const std::vector<sample_time> samples = archived_samples(dir.path / "arch");
    ASSERT_EQ(samples.size(), 3u * 4 * 1024);
    for (const sample_time &s : samples) {
        const epoch *in = nullptr;
        int count = 0;
        for (const epoch &e : epochs)
            if (e.network == s.network && e.station == s.station && e.location == s.location &&
                e.channel == s.channel && e.start <= s.t && s.t < e.end) {
                ++count;
                in = &e;
            }
        ASSERT_EQ(count, 1) << s.station << " " << stationxml::utc_time_text(s.t);
        EXPECT_EQ(in->rate, s.rate);
        const stationxml::station_row *row = row_at(table, *in, s.t);
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(in->latitude, row->latitude);
        EXPECT_EQ(in->longitude, row->longitude);
        EXPECT_EQ(in->elevation, row->elevation);
        EXPECT_EQ(in->depth, row->depth);
        EXPECT_EQ(in->site, row->site.empty() ? in->station : row->site);
        // vx16: 10 V per count times the external gain of the gain setting.
        const double external_gain = s.t < (T0 + 128) * S ? 20 : 30;
        EXPECT_NEAR(in->sensitivity, row->sensitivity / (10 * external_gain), 1e-15 * in->sensitivity);
        EXPECT_EQ(in->stage1, row->sensitivity);
        EXPECT_NEAR(in->stage1 * in->stage2, in->sensitivity, 1e-15 * in->sensitivity);
        EXPECT_EQ(in->sensitivity_frequency, row->frequency);
        EXPECT_EQ(in->decimation_rate, s.rate);
        EXPECT_LE(in->station_start, in->start);
        EXPECT_GE(in->station_end, in->end);
    }

    // The epochs themselves: from the first sample to one interval after
    // the last, the gain change and the re-siting each starting one.
    std::vector<std::pair<int64_t, int64_t>> rea1;
    for (const epoch &e : epochs)
        if (e.station == "REA1") rea1.emplace_back(e.start, e.end);
    const std::vector<std::pair<int64_t, int64_t>> expected = {
        {T0 * S, (T0 + 128) * S}, {(T0 + 128) * S, (T0 + 180) * S}, {(T0 + 180) * S, (T0 + 256) * S}};
    EXPECT_EQ(rea1, expected);

    // Nothing of the run in the document but Created.
    EXPECT_EQ(document.find("stations.csv"), std::string::npos);
    EXPECT_EQ(document.find(dir.path.string()), std::string::npos);
    EXPECT_NE(document.find("<Source>brantel "), std::string::npos);
}

TEST(StationXmlArchive, ValidAgainstTheSchema) {
    const fs::path schema = fs::path(SOURCE_DIR) / ".." / "shared" / "stationxml" / "fdsn-station-1.2.xsd";
    if (!fs::exists(schema))
        GTEST_SKIP() << "no StationXML schema at " << schema << "; the document is not validated";
    if (std::system("command -v xmllint >/dev/null 2>&1") != 0) GTEST_SKIP() << "xmllint is not installed";
    temp_dir dir;
    make_archive(dir);
    dir.write("stations.csv", TABLE);
    ASSERT_EQ(stationxml(dir, "stations.csv").status, 0);
    const command_result v =
        run(dir, "xmllint --noout --schema " + sh_quote(schema.string()) + " arch/stations.xml");
    EXPECT_EQ(v.status, 0) << v.err;
}

TEST(StationXmlArchive, ExcelSavedTableGivesTheSameDocument) {
    temp_dir dir;
    make_archive(dir);
    std::string excel = "\xEF\xBB\xBF";
    for (char c : TABLE)
        excel += c == '\n' ? std::string("\r\n") : std::string(1, c);
    dir.write("plain.csv", TABLE);
    dir.write("excel.csv", excel);
    ASSERT_EQ(stationxml(dir, "plain.csv", "SOURCE_DATE_EPOCH=1700000000").status, 0);
    const std::string plain = dir.read("arch/stations.xml");
    fs::remove(dir.path / "arch" / "stations.xml");
    const command_result r = stationxml(dir, "excel.csv", "SOURCE_DATE_EPOCH=1700000000");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(dir.read("arch/stations.xml"), plain);
    EXPECT_NE(plain.find("<Created>2023-11-14T22:13:20Z</Created>"), std::string::npos);
}

TEST(StationXmlArchive, RerunLeavesTheFileAsItIs) {
    temp_dir dir;
    make_archive(dir);
    dir.write("stations.csv", TABLE);
    ASSERT_EQ(stationxml(dir, "stations.csv", "SOURCE_DATE_EPOCH=1700000000").status, 0);
    const fs::path file = dir.path / "arch" / "stations.xml";
    const std::string before = dir.read("arch/stations.xml");
    const int64_t mtime = mtime_ns(file);
    // Another Created time would be all that changes: the file stays.
    const command_result again = stationxml(dir, "stations.csv", "SOURCE_DATE_EPOCH=1800000000");
    ASSERT_EQ(again.status, 0) << again.err;
    EXPECT_NE(again.out.find("unchanged"), std::string::npos) << again.out;
    EXPECT_EQ(dir.read("arch/stations.xml"), before);
    EXPECT_EQ(mtime_ns(file), mtime);
    // The archive converted again (same recordings) changes nothing either.
    ASSERT_EQ(run(dir, sh_quote(BRANTEL_BIN) + " --quiet --sds arch r0.dat r1.dat r2.dat r3.dat").status, 0);
    ASSERT_EQ(stationxml(dir, "stations.csv", "SOURCE_DATE_EPOCH=1800000000").status, 0);
    EXPECT_EQ(dir.read("arch/stations.xml"), before);
    EXPECT_EQ(mtime_ns(file), mtime);
    // An edited table takes effect, with a new Created.
    std::string edited = TABLE;
    edited.replace(edited.find("Old hut"), 7, "Old barn");
    dir.write("stations.csv", edited);
    ASSERT_EQ(stationxml(dir, "stations.csv", "SOURCE_DATE_EPOCH=1800000000").status, 0);
    const std::string after = dir.read("arch/stations.xml");
    EXPECT_NE(after.find("Old barn"), std::string::npos);
    EXPECT_NE(after.find("<Created>2027-01-15T08:00:00Z</Created>"), std::string::npos);
}

TEST(StationXmlArchive, UncoveredSamplesNamedAndNoDocument) {
    temp_dir dir;
    make_archive(dir);
    dir.write("stations.csv", TABLE);
    ASSERT_EQ(stationxml(dir, "stations.csv").status, 0);
    ASSERT_TRUE(fs::exists(dir.path / "arch" / "stations.xml"));
    // REA3 has no row; REA1's first row ends a minute early, before 13:31:00.
    std::string partial = HEADER + "XX,REA1,,60.1,17.5,40,,,,0.0025,1,,2016-05-04T13:31:00Z,Old hut\n"
                                   "XX,REA1,,60.2,17.625,41,0.5,,,0.005,1,2016-05-04T13:32:00Z,,\n"
                                   ",REA2,,60.3,17.75,42,,0,-90,0.0025,2,,,\n";
    dir.write("partial.csv", partial);
    const command_result r = stationxml(dir, "partial.csv");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Error: no row of \"partial.csv\" covers XX.REA1 from 2016-05-04T13:31:00.000Z to "
                     "2016-05-04T13:31:59.937Z\n"
                     "Error: no row of \"partial.csv\" covers XX.REA3 from 2016-05-04T13:30:00.000Z to "
                     "2016-05-04T13:34:15.937Z\n"
                     "Error: no arch/stations.xml written\n");
    EXPECT_FALSE(fs::exists(dir.path / "arch" / "stations.xml"));
}

TEST(StationXmlArchive, CheckRefusesABadTableWithOneLinePerFault) {
    temp_dir dir;
    dir.write("bad.csv",
              HEADER + "XX,REA1,,91,17.5,40,,,,0.0025,1,,,\nXX,REA2,,60,17.5,forty,,,,0.0025,1,,,\n");
    const command_result r = run(dir, sh_quote(STATIONXML_BIN) + " --check bad.csv");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err,
              "Error: \"bad.csv\" line 2, column latitude: \"91\" is outside the range from -90 up to (not "
              "including) 90\n"
              "Error: \"bad.csv\" line 3, column elevation: \"forty\" is not a number\n");
    dir.write("good.csv", TABLE);
    const command_result g = run(dir, sh_quote(STATIONXML_BIN) + " --check good.csv");
    EXPECT_EQ(g.status, 0) << g.err;
    EXPECT_EQ(g.err, "");
    const command_result m = run(dir, sh_quote(STATIONXML_BIN) + " --check missing.csv");
    EXPECT_EQ(m.status, 1);
    EXPECT_EQ(m.err, "Error: can't read the station table \"missing.csv\": No such file or directory\n");
}

TEST(StationXmlArchive, ScaledArchiveRefused) {
    temp_dir dir;
    ASSERT_EQ(run(dir, sh_quote(FIXTURE_BIN) +
                           " vx16bin out=r0.dat kind=U512 freq=16 gain=2 date=2016-05-04 "
                           "blocks=1 start=" +
                           std::to_string(T0))
                  .status,
              0);
    ASSERT_EQ(run(dir, sh_quote(BRANTEL_BIN) + " --quiet --sds arch -z 2 r0.dat").status, 0);
    dir.write("stations.csv", TABLE);
    const command_result r = stationxml(dir, "stations.csv");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Error: the archive \"arch\" was made with -z 2: its samples are not counts, which the "
                     "response would misstate\n");
    EXPECT_FALSE(fs::exists(dir.path / "arch" / "stations.xml"));
}

} // namespace
