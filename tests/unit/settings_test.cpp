#include <gtest/gtest.h>

#include "settings.h"

TEST(Settings, DefaultsAfterReset) {
    output_type = OT_VXDAT;
    sec_decimals = 4;
    reset_settings();
    EXPECT_EQ(output_type, OT_FOURCOLUMNS);
    EXPECT_EQ(sec_decimals, -1);
    EXPECT_EQ(snippets, 1);
    EXPECT_EQ(global_scale, 1);
    EXPECT_EQ(_CRT_glob, 1);
}
