#include <gtest/gtest.h>

#include "station_option.h"
#include "vxfil/stations.h"

TEST(StationOption, NamesOfTheStationNumberTable) {
    EXPECT_EQ(station_number_of_name("arvola"), VxFil::arvola);
    EXPECT_EQ(station_number_of_name("ensholm"), VxFil::ensholm);
    EXPECT_EQ(station_number_of_name("arvola2"), VxFil::arvola2);
    // Here dovmark2 is station 8, unlike the TM4 station strings.
    EXPECT_EQ(station_number_of_name("dovmark2"), VxFil::dovmark2);
    EXPECT_EQ(station_number_of_name("test"), VxFil::test);
}

TEST(StationOption, OtherNamesAreRefused) {
    EXPECT_EQ(station_number_of_name("unknown"), -1);
    EXPECT_EQ(station_number_of_name("Arvola"), -1);
    EXPECT_EQ(station_number_of_name("a"), -1);
    EXPECT_EQ(station_number_of_name("d2"), -1);
    EXPECT_EQ(station_number_of_name(""), -1);
}

TEST(StationOption, AcceptedNamesInTableOrder) {
    EXPECT_EQ(accepted_station_names(),
              "arvola, bredmo, corsund, dovmark, ensholm, arvola2, bredmo2, corsund2, dovmark2, test");
}
