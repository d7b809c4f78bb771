#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "vx24_fixture.h"
#include "vxfil/vxfil24.h"
#include "vxfil/vxfil_base.h"
#include "vxfil/vxfil_tm4.h"

using namespace VxFil;

namespace {
vx_channel channel(double v_min, double v_max, double ext_gain, uint16_t gain = 1) {
    vx_channel ch;
    ch.m_magic = magic_chan;
    ch.m_gain = gain;
    ch.m_v_min = v_min;
    ch.m_v_max = v_max;
    ch.m_ext_gain = ext_gain;
    return ch;
}
} // namespace

TEST(VxfilBase, Raw2VoltOfZeroIsZeroForEveryChannel) {
    Vxfil_Base base("none");
    for (const vx_channel &ch : {channel(-10, 10, 1), channel(-1, 1, 20), channel(0, 2.5e-6, 1e3),
                                 channel(-5, -3, -7), channel(0, 0, 0)})
        EXPECT_EQ(base.raw2volt(0, ch), 0.0);
}

TEST(VxfilBase, Raw2VoltMultipliesByVmaxAndExternalGain) {
    Vxfil_Base base("none");
    EXPECT_EQ(base.raw2volt(-5, channel(-10.0, 10.0, 20.0)), -1000.0);
    EXPECT_EQ(base.raw2volt(3, channel(-10.0, 10.0, 1.0)), 30.0);
}

TEST(VxfilBase, Raw2VoltIgnoresVminAndGain) {
    Vxfil_Base base("none");
    EXPECT_EQ(base.raw2volt(7, channel(-10.0, 0.5, 2.0, 1)), base.raw2volt(7, channel(99.0, 0.5, 2.0, 64)));
    EXPECT_EQ(base.raw2volt(7, channel(-10.0, 0.5, 2.0, 1)), 7.0);
}

TEST(VxfilBase, Raw2VoltExtremeCounts) {
    Vxfil_Base base("none");
    EXPECT_EQ(base.raw2volt(INT32_MIN, channel(0, 1.0, 1.0)), -2147483648.0);
    EXPECT_EQ(base.raw2volt(INT32_MAX, channel(0, 1.0, 1.0)), 2147483647.0);
}

TEST(VxfilBase, StationNameUsesTheCheckedLookup) {
    Vxfil_Base base("none");
    base.m_header.header.m_station = 9;
    try {
        base.station_name();
        FAIL() << "station 9 has a name";
    } catch (const std::out_of_range &e) {
        EXPECT_STREQ(e.what(), "map::at");
    }
    base.m_header.header.m_station = 254;
    EXPECT_STREQ(base.station_name(), "test");
    base.m_header.header.m_station = 255;
    EXPECT_STREQ(base.station_name(), "unknown");
    base.m_header.header.m_station = 3;
    EXPECT_STREQ(base.station_name(), "dovmark");
}

TEST(VxfilBase, EveryStationByteNamesOrThrows) {
    Vxfil_Base base("none");
    for (int s = 0; s < 256; ++s) {
        base.m_header.header.m_station = static_cast<uint8_t>(s);
        if (s <= 8 || s >= 254)
            EXPECT_NO_THROW(base.station_name()) << s;
        else
            EXPECT_THROW(base.station_name(), std::out_of_range) << s;
    }
}

TEST(VxfilBase, OriginThroughTheBaseReference) {
    Vxfil_Base base("none");
    EXPECT_EQ(static_cast<const Vxfil_Base &>(base).get_origin(), ORIGIN_UNDEFINED);

    const std::string bytes = fixtures::make_vx24(fixtures::vx24_params{});
    VXFIL24 vx24(reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size(), "mem");
    const Vxfil_Base &as_base24 = vx24;
    EXPECT_EQ(as_base24.get_origin(), ORIGIN_VX24);

    VXFIL_TM4 tm4(std::string_view("1 2 3 4\n"), "mem", 0.0);
    const Vxfil_Base &as_base_tm4 = tm4;
    EXPECT_EQ(as_base_tm4.get_origin(), ORIGIN_TM4);

    EXPECT_EQ(ORIGIN_UNDEFINED, 0);
    EXPECT_EQ(ORIGIN_VX24, 1);
    EXPECT_EQ(ORIGIN_VX16, 2);
    EXPECT_EQ(ORIGIN_TM4, 3);
}

TEST(VxfilBase, HeaderHelpers) {
    vx_header h;
    h.common.m_seconds = 1500000000;
    h.common.m_nanoseconds = 500000000;
    h.common.m_sample_freq_hz = 20.0;
    h.common.m_num_channels = 3;
    EXPECT_EQ(h.time(), 1500000000.5);
    EXPECT_EQ(h.delta_t(), 0.05);
    EXPECT_EQ(h.num_channels(), 3u);
}

TEST(VxfilBase, AccessorsReadTheMembers) {
    Vxfil_Base base("none");
    EXPECT_TRUE(base.get_channels().empty());
    EXPECT_TRUE(base.get_time().empty());
    base.m_header.common.m_sample_freq_hz = 18.0;
    base.m_channels.push_back(channel(-1, 1, 1));
    base.m_data.push_back({1, 2, 3});
    base.m_time = {10.0, 11.0, 12.0};
    EXPECT_EQ(base.get_frequency(), 18.0);
    EXPECT_EQ(base.get_channel_info(0).m_v_max, 1.0);
    EXPECT_EQ(base.get_data(0)[2], 3);
    EXPECT_EQ(base.get_time(1), 11.0);
    EXPECT_EQ(&base.get_header(), &base.m_header);
}
