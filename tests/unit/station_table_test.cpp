// The station table: comma-separated text as spreadsheets export it, read
// into rows, and every fault of a bad table named by file, line and column.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "csv_records.h"
#include "station_table.h"

namespace {

using stationxml::read_station_table;
using stationxml::station_row;
using stationxml::station_table;

const std::string HEADER = "network,station,location,latitude,longitude,elevation,depth,azimuth,dip,"
                           "sensitivity,frequency,start,end,site\n";

std::vector<std::string> faults_of(const std::string &text) {
    station_table table;
    std::vector<std::string> faults;
    const bool good = read_station_table("t.csv", text, table, faults);
    EXPECT_EQ(good, faults.empty());
    return faults;
}

TEST(StationTable, ReadsEveryColumn) {
    station_table table;
    std::vector<std::string> faults;
    const std::string text = HEADER + "XX,REA1,,60.5,-17.25,40,1.5,90,-90,0.0025,1,2016-05-04T13:33:00.5Z,"
                                      "2017-01-01T00:00:00Z,Old hut\n"
                                      ",REA2,01,-60,180,-3,,,,2e-3,0.5,,,\n";
    ASSERT_TRUE(read_station_table("t.csv", text, table, faults)) << faults.at(0);
    ASSERT_EQ(table.rows.size(), 2u);
    const station_row &a = table.rows[0];
    EXPECT_EQ(a.line, 2);
    EXPECT_EQ(a.network, "XX");
    EXPECT_EQ(a.station, "REA1");
    EXPECT_EQ(a.location, "");
    EXPECT_EQ(a.latitude, 60.5);
    EXPECT_EQ(a.longitude, -17.25);
    EXPECT_EQ(a.elevation, 40.0);
    EXPECT_EQ(a.depth, 1.5);
    EXPECT_EQ(a.azimuth, 90.0);
    EXPECT_EQ(a.dip, -90.0);
    EXPECT_EQ(a.sensitivity, 0.0025);
    EXPECT_EQ(a.frequency, 1.0);
    EXPECT_FALSE(a.counts_per_volt);
    EXPECT_EQ(a.start, 1462368780500000LL);
    EXPECT_EQ(a.end, 1483228800000000LL);
    EXPECT_EQ(a.site, "Old hut");
    const station_row &b = table.rows[1];
    EXPECT_EQ(b.network, "");
    EXPECT_EQ(b.location, "01");
    EXPECT_EQ(b.depth, 0.0);
    EXPECT_FALSE(b.azimuth);
    EXPECT_FALSE(b.dip);
    EXPECT_EQ(b.start, stationxml::OPEN_START);
    EXPECT_EQ(b.end, stationxml::OPEN_END);
    EXPECT_EQ(b.site, "");
    EXPECT_TRUE(b.applies_to("XX", "REA2", "01"));
    EXPECT_TRUE(b.applies_to("AB", "REA2", "01"));
    EXPECT_FALSE(b.applies_to("XX", "REA2", ""));
    EXPECT_FALSE(a.applies_to("AB", "REA1", ""));
}

TEST(StationTable, ColumnsInAnyOrderOthersIgnoredCountsPerVolt) {
    station_table table;
    std::vector<std::string> faults;
    const std::string text =
        "site,End,start,frequency,sensitivity,dip,azimuth,depth,elevation,longitude,latitude,"
        "location,station,network,comment,counts_per_volt\n"
        ",,,1,0.002,,,,12,17,60,,REA1,XX,anything at all,3276.8\n";
    ASSERT_TRUE(read_station_table("t.csv", text, table, faults)) << faults.at(0);
    ASSERT_EQ(table.rows.size(), 1u);
    EXPECT_EQ(table.rows[0].station, "REA1");
    EXPECT_EQ(table.rows[0].latitude, 60.0);
    EXPECT_EQ(table.rows[0].counts_per_volt, 3276.8);
}

TEST(StationTable, ByteOrderMarkAndCrlfReadLikePlainText) {
    const std::string plain = HEADER +
                              "XX,REA1,,60.5,17.25,40,,,,0.0025,1,,2016-05-04T13:33:00Z,\"Hut, north\"\n"
                              "XX,REA1,,60.6,17.5,41,,,,0.0025,1,2016-05-04T13:33:00Z,,\n";
    std::string excel = "\xEF\xBB\xBF";
    for (char c : plain)
        excel += c == '\n' ? std::string("\r\n") : std::string(1, c);
    station_table a, b;
    std::vector<std::string> fa, fb;
    ASSERT_TRUE(read_station_table("t.csv", plain, a, fa));
    ASSERT_TRUE(read_station_table("t.csv", excel, b, fb)) << fb.at(0);
    ASSERT_EQ(a.rows.size(), 2u);
    ASSERT_EQ(b.rows.size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(a.rows[i].line, b.rows[i].line);
        EXPECT_EQ(a.rows[i].network, b.rows[i].network);
        EXPECT_EQ(a.rows[i].station, b.rows[i].station);
        EXPECT_EQ(a.rows[i].latitude, b.rows[i].latitude);
        EXPECT_EQ(a.rows[i].start, b.rows[i].start);
        EXPECT_EQ(a.rows[i].end, b.rows[i].end);
        EXPECT_EQ(a.rows[i].site, b.rows[i].site);
    }
    EXPECT_EQ(b.rows[0].site, "Hut, north");
}

TEST(StationTable, QuotedFieldsLineEndsAndBlankRows) {
    std::vector<stationxml::csv_record> records;
    int bad = 0;
    ASSERT_TRUE(stationxml::read_csv("a,\"b,\"\"c\"\"\r\nd\",e\r\n\r\n,,\nx", records, bad));
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].line, 1);
    EXPECT_EQ(records[0].fields, (std::vector<std::string>{"a", "b,\"c\"\nd", "e"}));
    EXPECT_EQ(records[1].line, 4);
    EXPECT_EQ(records[1].fields, (std::vector<std::string>{"", "", ""}));
    EXPECT_EQ(records[2].line, 5);
    EXPECT_FALSE(stationxml::read_csv("a,\"b\n", records, bad));
    EXPECT_EQ(bad, 1);
    // A row of empty fields, as spreadsheets write for an empty line, is passed over.
    station_table table;
    std::vector<std::string> faults;
    EXPECT_TRUE(read_station_table("t.csv", HEADER + ",,,,,,,,,,,,,\n", table, faults));
    EXPECT_TRUE(table.rows.empty());
}

TEST(StationTable, MissingColumnNamed) {
    const std::string header =
        "network,station,location,latitude,longitude,elevation,depth,azimuth,sensitivity,"
        "frequency,start,end\n";
    const std::vector<std::string> faults = faults_of(header + "XX,REA1,,60,17,40,,,0.002,1,,\n");
    ASSERT_EQ(faults.size(), 2u);
    EXPECT_EQ(faults[0], "Error: \"t.csv\" line 1, column dip: the table has no such column");
    EXPECT_EQ(faults[1], "Error: \"t.csv\" line 1, column site: the table has no such column");
}

TEST(StationTable, SemicolonExportNamedAsSuch) {
    const std::vector<std::string> faults = faults_of(
        "network;station;location;latitude;longitude;elevation;depth;azimuth;dip;sensitivity;frequency;"
        "start;end;site\nXX;REA1;;60,5;17;40;;;;0,002;1;;;\n");
    ASSERT_EQ(faults.size(), 1u);
    EXPECT_EQ(faults[0],
              "Error: \"t.csv\" line 1: the columns are separated by semicolons; save the table with "
              "commas between columns (CSV, comma-separated)");
}

TEST(StationTable, EveryBadFieldOneLine) {
    const std::vector<std::string> faults =
        faults_of(HEADER + "XX,REA1,,91,17,40,,,,0.002,1,,,\n"                     // line 2: latitude
                           "XX,REA2,,60,-180.5,40,,,,0.002,1,,,\n"                 // line 3: longitude
                           "XX,REA3,,60,17,forty,,,,0.002,1,,,\n"                  // line 4: elevation
                           "XX,REA4,,60,17,40,,,,0.002,1,2016-02-30T00:00:00Z,,\n" // line 5: start
                           "XX,REA5,,60,17,40,,,,0.002,1,,2016-05-04 13:00:00,\n"  // line 6: end
                           "XX,REA6,,60,17,40,,,,,1,,,\n"                          // line 7: sensitivity
                           "XX,REA7,,90,17,40,,360,,0.002,1,,,\n" // line 8: latitude, azimuth
                           "XX,REA8,,60,17,40,,,,0.002,1\n");     // line 9: too few fields
    const std::vector<std::string> expected = {
        "Error: \"t.csv\" line 2, column latitude: \"91\" is outside the range from -90 up to (not "
        "including) 90",
        "Error: \"t.csv\" line 3, column longitude: \"-180.5\" is outside the range from -180 to 180",
        "Error: \"t.csv\" line 4, column elevation: \"forty\" is not a number",
        "Error: \"t.csv\" line 5, column start: \"2016-02-30T00:00:00Z\" is not a UTC time of the form "
        "YYYY-MM-DDThh:mm:ssZ",
        "Error: \"t.csv\" line 6, column end: \"2016-05-04 13:00:00\" is not a UTC time of the form "
        "YYYY-MM-DDThh:mm:ssZ",
        "Error: \"t.csv\" line 7, column sensitivity: is empty",
        "Error: \"t.csv\" line 8, column latitude: \"90\" is outside the range from -90 up to (not "
        "including) 90",
        "Error: \"t.csv\" line 8, column azimuth: \"360\" is outside the range from 0 up to (not including) "
        "360",
        "Error: \"t.csv\" line 9: 11 fields where the header has 14",
    };
    EXPECT_EQ(faults, expected);
}

TEST(StationTable, OverlappingRowsOfOneElement) {
    const std::vector<std::string> faults =
        faults_of(HEADER + "XX,REA1,,60,17,40,,,,0.002,1,,2016-05-04T13:33:00Z,\n"
                           "XX,REA1,,60,17,40,,,,0.002,1,2016-05-04T13:32:59.9Z,,\n" // overlaps line 2
                           ",REA2,,60,17,40,,,,0.002,1,2016-05-04T00:00:00Z,,\n"
                           "XX,REA2,,60,17,40,,,,0.002,1,,2016-05-05T00:00:00Z,\n" // overlaps line 4
                           "XX,REA3,,60,17,40,,,,0.002,1,,2016-05-04T13:33:00Z,\n"
                           "XX,REA3,,60,17,40,,,,0.002,1,2016-05-04T13:33:00Z,,\n" // touches: fine
                           "XX,REA3,01,60,17,40,,,,0.002,1,,,\n"                   // other location: fine
                           "XX,REA4,,60,17,40,,,,0.002,1,2016-05-04T13:33:00Z,2016-05-04T13:33:00Z,\n");
    const std::vector<std::string> expected = {
        "Error: \"t.csv\" line 9, column end: \"2016-05-04T13:33:00.000000Z\" is not after the start "
        "\"2016-05-04T13:33:00.000000Z\"",
        "Error: \"t.csv\" line 3, column start: the row of XX.REA1 overlaps the row of line 2",
        "Error: \"t.csv\" line 5, column start: the row of XX.REA2 overlaps the row of line 4",
    };
    EXPECT_EQ(faults, expected);
}

TEST(StationTable, CodesAndText) {
    const std::vector<std::string> faults =
        faults_of(HEADER + "XXX,REA1,,60,17,40,,,,0.002,1,,,\n"
                           "XX,,,60,17,40,,,,0.002,1,,,\n"
                           "XX,REA3,,60,17,40,,,,0.002,1,,,Caf\xE9\n" // Latin-1, not UTF-8
                           "XX,REA4,,60,17,40,,,,0.002,1,,,Caf\xC3\xA9 & <bar>\n");
    const std::vector<std::string> expected = {
        "Error: \"t.csv\" line 2, column network: \"XXX\" is longer than 2 characters",
        "Error: \"t.csv\" line 3, column station: is empty",
        "Error: \"t.csv\" line 4, column site: is not UTF-8 text (save the table as UTF-8)",
    };
    EXPECT_EQ(faults, expected);
}

TEST(StationTable, HeaderOnlyAndEmpty) {
    EXPECT_TRUE(faults_of(HEADER).empty());
    const std::vector<std::string> faults = faults_of("");
    ASSERT_EQ(faults.size(), 1u);
    EXPECT_EQ(faults[0],
              "Error: \"t.csv\" line 1: the header line is missing (network,station,location,...)");
}

TEST(StationTable, UtcTimes) {
    int64_t t = 0;
    ASSERT_TRUE(stationxml::parse_utc_time("1970-01-01T00:00:00Z", t));
    EXPECT_EQ(t, 0);
    ASSERT_TRUE(stationxml::parse_utc_time("2016-02-29T23:59:59.1234567Z", t));
    EXPECT_EQ(t, 1456790399123456LL);
    ASSERT_TRUE(stationxml::parse_utc_time("1969-12-31T23:59:59.5Z", t));
    EXPECT_EQ(t, -500000);
    EXPECT_EQ(stationxml::utc_time_text(-500000), "1969-12-31T23:59:59.500000Z");
    EXPECT_EQ(stationxml::utc_time_text(1456790399123456LL), "2016-02-29T23:59:59.123456Z");
    for (const char *bad : {"2015-02-29T00:00:00Z", "2016-05-04T24:00:00Z", "2016-05-04T13:60:00Z",
                            "2016-05-04T13:00:60Z", "2016-05-04T13:00:00", "2016-05-04T13:00:00.Z",
                            "2016-05-04T13:00:00+01:00", "2016-5-4T13:00:00Z", "2016-13-04T13:00:00Z", ""})
        EXPECT_FALSE(stationxml::parse_utc_time(bad, t)) << bad;
}

// The table that the README shows reads as it is.
TEST(StationTable, ReadmeExampleReads) {
    std::ifstream in(std::string(SOURCE_DIR) + "/README.md");
    std::string line, table;
    bool inside = false;
    while (std::getline(in, line)) {
        if (line.rfind("## ", 0) == 0) inside = line == "## Station metadata";
        if (!inside) continue;
        if (line.rfind("    network,station,", 0) == 0 || (!table.empty() && line.rfind("    ", 0) == 0))
            table += line.substr(4) + "\n";
        else if (!table.empty())
            break;
    }
    ASSERT_FALSE(table.empty());
    station_table t;
    std::vector<std::string> faults;
    EXPECT_TRUE(read_station_table("README.md", table, t, faults)) << faults.at(0);
    EXPECT_EQ(t.rows.size(), 4u);
}

} // namespace
