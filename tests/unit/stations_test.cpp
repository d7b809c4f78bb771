#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "vxfil/stations.h"

using namespace VxFil;

namespace {
std::string at_error_text(auto &&lookup) {
    try {
        lookup();
    } catch (const std::out_of_range &e) {
        return e.what();
    }
    return "no exception";
}
} // namespace

TEST(Stations, EnumeratorValues) {
    EXPECT_EQ(arvola, 0);
    EXPECT_EQ(bredmo, 1);
    EXPECT_EQ(corsund, 2);
    EXPECT_EQ(dovmark, 3);
    EXPECT_EQ(ensholm, 4);
    EXPECT_EQ(arvola2, 5);
    EXPECT_EQ(bredmo2, 6);
    EXPECT_EQ(corsund2, 7);
    EXPECT_EQ(dovmark2, 8);
    EXPECT_EQ(test, 254);
    EXPECT_EQ(unknown, 255);
    EXPECT_EQ(sizeof(STATIONS), 1u);
}

TEST(Stations, SecondGenerationStringsAndTheDovmarkQuirk) {
    EXPECT_EQ(station_string2stationid.at("dovmark2"), dovmark);
    EXPECT_EQ(station_string2stationid.at("d2"), dovmark);
    EXPECT_EQ(station_string2stationid.at("arvola2"), arvola2);
    EXPECT_EQ(station_string2stationid.at("arvola2"), 5);
}

TEST(Stations, StringKeysAreCaseSensitive) {
    EXPECT_EQ(station_string2stationid.count("Arvola"), 0u);
    EXPECT_EQ(station_string2stationid.count("Dovmark2"), 0u);
    EXPECT_EQ(station_string2stationid.count("D"), 0u);
    EXPECT_EQ(at_error_text([] { return station_string2stationid.at("Arvola"); }), "map::at");
}

TEST(Stations, StringTableIsComplete) {
    const std::map<std::string, int> expected = {
        {"arvola2", 5}, {"bredmo2", 6}, {"corsund2", 7}, {"dovmark2", 3}, {"arvola", 0}, {"bredmo", 1},
        {"corsund", 2}, {"dovmark", 3}, {"ensholm", 4},  {"a2", 5},       {"b2", 6},     {"c2", 7},
        {"d2", 3},      {"a", 0},       {"b", 1},        {"c", 2},        {"d", 3},      {"e", 4},
    };
    ASSERT_EQ(station_string2stationid.size(), 18u);
    for (const auto &[key, value] : expected)
        EXPECT_EQ(station_string2stationid.at(key), value) << key;
    EXPECT_EQ(station_string2stationid.count("test"), 0u);
    EXPECT_EQ(station_string2stationid.count("unknown"), 0u);
    EXPECT_EQ(station_string2stationid.count("e2"), 0u);
    EXPECT_EQ(station_string2stationid.count("ensholm2"), 0u);
}

TEST(Stations, LetterCodesIgnoreCase) {
    EXPECT_EQ(old_station2new_station('D'), 3);
    EXPECT_EQ(old_station2new_station('d'), 3);
    const char *upper = "ABCDE";
    const char *lower = "abcde";
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(old_station2new_station(upper[i]), i);
        EXPECT_EQ(old_station2new_station(lower[i]), i);
    }
    EXPECT_EQ(station_char2stationid.size(), 10u);
}

TEST(Stations, UnknownLetterRaisesMapAt) {
    EXPECT_THROW(old_station2new_station('F'), std::out_of_range);
    EXPECT_EQ(at_error_text([] { return old_station2new_station('F'); }), "map::at");
    EXPECT_EQ(at_error_text([] { return old_station2new_station('T'); }), "map::at");
}

TEST(Stations, NumberToName) {
    EXPECT_STREQ(stationid2stationname.at(dovmark2), "dovmark2");
    EXPECT_STREQ(stationid2stationname.at(static_cast<STATIONS>(255)), "unknown");
    EXPECT_STREQ(stationid2stationname.at(static_cast<STATIONS>(254)), "test");
    EXPECT_EQ(at_error_text([] { return stationid2stationname.at(static_cast<STATIONS>(9)); }), "map::at");
}

TEST(Stations, NameTableIsComplete) {
    const char *names[] = {"arvola",  "bredmo",  "corsund",  "dovmark", "ensholm",
                           "arvola2", "bredmo2", "corsund2", "dovmark2"};
    ASSERT_EQ(stationid2stationname.size(), 11u);
    for (int i = 0; i < 9; ++i)
        EXPECT_STREQ(stationid2stationname.at(static_cast<STATIONS>(i)), names[i]);
    for (int i = 9; i < 254; ++i)
        EXPECT_EQ(stationid2stationname.count(static_cast<STATIONS>(i)), 0u) << i;
}
