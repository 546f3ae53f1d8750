#include <gtest/gtest.h>

#include "h264.h"
#include "sps_check.h"

namespace {

int fps(unsigned long time_scale, unsigned long num_units_in_tick) {
    int value = -77;
    EXPECT_EQ(getMAXFPSForVUI(time_scale, num_units_in_tick, &value), TRUE);
    return value;
}

TEST(MaxFps, WorkedValues) {
    test::reset(0);
    EXPECT_EQ(fps(60000, 1001), 30);
    EXPECT_EQ(fps(50, 1), 25);
    EXPECT_EQ(fps(30000, 1001), 15);
    EXPECT_EQ(fps(25, 1), 12);
    EXPECT_EQ(fps(60000, 0), 30000);
    EXPECT_EQ(fps(0, 0), 0);
    EXPECT_EQ(fps(2000, 999), 1);
}

TEST(MaxFps, DividesWhenBothAreAbove999) {
    test::reset(0);
    EXPECT_EQ(fps(1000, 1000), 0);
    EXPECT_EQ(fps(1000, 999), 0);
    EXPECT_EQ(fps(999, 1000), 0);
    EXPECT_EQ(fps(2000, 1000), 1);
    EXPECT_EQ(fps(59999, 1001), 29);
    EXPECT_EQ(fps(120000, 1999), 60);
    EXPECT_EQ(fps(999, 1), 499);
}

TEST(MaxFps, TheQuotientIsCutTo32BitsBeforeItIsHalved) {
    test::reset(0);
    EXPECT_EQ(fps(4294967295, 1), 0);   // -1 / 2
    EXPECT_EQ(fps(4294967293, 1), -1);  // -3 / 2
    EXPECT_EQ(fps(4000000000, 1), -147483648);
    EXPECT_EQ(fps(2147483648, 1), -1073741824);
    EXPECT_EQ(fps(4294967295, 2), 1073741823);
    EXPECT_EQ(fps(1UL << 40, 1), 0);
    EXPECT_EQ(fps((1UL << 40) + 10, 1), 5);
    EXPECT_EQ(fps(~0UL, ~0UL), 0);
}

TEST(MaxFps, Traces) {
    test::reset(7);
    fps(60000, 1001);
    EXPECT_EQ(test::recorded_log(),
              (test::Log{{7, "getMAXFPSForVUI", "About to divide by 1000 both timescale and num_unit_in_ticks."},
                         {7, "getMAXFPSForVUI", "Returning MAXFPS:30 for Timescale:60, NumTicks:1"}}));
    test::reset(7);
    fps(1000, 1000);
    EXPECT_EQ(test::recorded_log(),
              (test::Log{{7, "getMAXFPSForVUI", "About to divide by 1000 both timescale and num_unit_in_ticks."},
                         {7, "getMAXFPSForVUI", "Returning MAXFPS:0 for Timescale:1, NumTicks:1"}}));
    test::reset(7);
    fps(1000, 999);
    fps(999, 1000);
    EXPECT_EQ(test::recorded_log(),
              (test::Log{{7, "getMAXFPSForVUI", "Returning MAXFPS:0 for Timescale:1000, NumTicks:999"},
                         {7, "getMAXFPSForVUI", "Returning MAXFPS:0 for Timescale:999, NumTicks:1000"}}));
    test::reset(7);
    fps(60000, 0);
    EXPECT_EQ(test::recorded_log(),
              (test::Log{{7, "getMAXFPSForVUI", "Returning MAXFPS:30000 for Timescale:60000, NumTicks:1"}}));
    test::reset(7);
    fps(0x1FFFFFFFDUL, 3);  // 8589934589 / 3 is 2863311529, as a signed number -1431655767
    EXPECT_EQ(test::recorded_log(),
              (test::Log{{7, "getMAXFPSForVUI", "Returning MAXFPS:-715827883 for Timescale:-3, NumTicks:3"}}));
    test::reset(6);
    fps(60000, 1001);
    EXPECT_EQ(test::recorded_log(), test::Log{});
}

TEST(MaxFps, ANullResultIsRefused) {
    test::reset(8);
    EXPECT_EQ(getMAXFPSForVUI(60000, 1001, nullptr), FALSE);
    EXPECT_EQ(test::recorded_log(),
              (test::Log{{3, "getMAXFPSForVUI", test::text("MAXFPS:%p is NULL!", static_cast<void*>(nullptr))}}));
    test::reset(2);
    EXPECT_EQ(getMAXFPSForVUI(60000, 1001, nullptr), FALSE);
    EXPECT_EQ(test::recorded_log(), test::Log{});
}

}  // namespace
