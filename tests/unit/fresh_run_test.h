// A test fixture that starts and ends every test with the settings, the
// run's series and the shared filter as a fresh process has them.
#pragma once

#include <gtest/gtest.h>

#include "filter.h"
#include "series.h"
#include "settings.h"

class FreshRunTest : public ::testing::Test {
  protected:
    void SetUp() override { reset_all(); }
    void TearDown() override { reset_all(); }

    static void reset_all() {
        reset_settings();
        data.clear();
        time_array.clear();
        samples = 0;
        reset_filter_state_for_tests();
    }
};
