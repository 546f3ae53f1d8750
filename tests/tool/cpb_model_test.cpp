#include "cpb_model.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace h264tool {
namespace {

// At this bit rate a bit takes 1/90000 s, the unit of initial delays.
constexpr std::uint64_t kBitRate = 90000;
constexpr std::uint64_t kLarge = 10000000;

CpbAccessUnit unit(const CpbSchedule& schedule, double tick, std::uint64_t bits, std::uint64_t cpb_removal_delay) {
    return {bits, {}, cpb_removal_delay, tick, schedule, false};
}

CpbAccessUnit first_unit(const CpbSchedule& schedule, double tick, std::uint64_t bits, CpbInitialDelay delay,
                         std::uint64_t cpb_removal_delay = 0) {
    return {bits, delay, cpb_removal_delay, tick, schedule, false};
}

void expect_times(const CpbTimes& times, double initial_arrival, double final_arrival, double removal,
                  double fullness) {
    EXPECT_DOUBLE_EQ(times.initial_arrival, initial_arrival);
    EXPECT_DOUBLE_EQ(times.final_arrival, final_arrival);
    EXPECT_DOUBLE_EQ(times.removal, removal);
    EXPECT_NEAR(times.fullness, fullness, 1e-6);
}

TEST(CpbModel, AtAConstantRateUnitsArriveWithoutAPause) {
    const CpbSchedule cbr{kBitRate, 90000, true};
    const std::vector<CpbAccessUnit> units{first_unit(cbr, 0.5, 45000, {90000, 0}), unit(cbr, 0.5, 45000, 1),
                                           unit(cbr, 0.5, 45000, 2)};
    const std::vector<CpbTimes> times = run_cpb(units);
    expect_times(times[0], 0, 0.5, 1, 90000);
    expect_times(times[1], 0.5, 1, 1.5, 90000);
    expect_times(times[2], 1, 1.5, 2, 45000);
    for (const CpbTimes& one : times) EXPECT_FALSE(one.underflow || one.overflow);
}

TEST(CpbModel, AtAConstantRateABufferThatIsABitTooSmallOverflows) {
    const CpbSchedule cbr{kBitRate, 89999, true};
    const std::vector<CpbAccessUnit> units{first_unit(cbr, 0.5, 45000, {90000, 0}), unit(cbr, 0.5, 45000, 1),
                                           unit(cbr, 0.5, 45000, 2)};
    const std::vector<CpbTimes> times = run_cpb(units);
    EXPECT_TRUE(times[0].overflow);
    EXPECT_TRUE(times[1].overflow);
    EXPECT_FALSE(times[2].overflow);
}

TEST(CpbModel, AtAVariableRateAUnitArrivesItsDelaysBeforeItsRemoval) {
    const CpbSchedule vbr{2 * kBitRate, kLarge, false};
    for (const std::uint64_t offset : {0U, 45000U}) {
        const std::vector<CpbAccessUnit> units{first_unit(vbr, 1, 45000, {45000, offset}), unit(vbr, 1, 45000, 1)};
        const std::vector<CpbTimes> times = run_cpb(units);
        expect_times(times[0], 0, 0.25, 0.5, 45000);
        const double arrival = offset == 0 ? 1 : 0.5;
        expect_times(times[1], arrival, arrival + 0.25, 1.5, 45000);
    }
}

TEST(CpbModel, AUnitDoesNotArriveBeforeTheOneInFrontOfIt) {
    const CpbSchedule vbr{kBitRate, kLarge, false};
    const std::vector<CpbAccessUnit> units{first_unit(vbr, 0.5, 90000, {90000, 0}), unit(vbr, 0.5, 9000, 1)};
    expect_times(run_cpb(units)[1], 1, 1.1, 1.5, 9000);
}

TEST(CpbModel, ABufferingPeriodCountsFromTheOneBeforeItAndSetsNewDelays) {
    const CpbSchedule vbr{2 * kBitRate, kLarge, false};
    const std::vector<CpbAccessUnit> units{first_unit(vbr, 1, 4500, {45000, 45000}), unit(vbr, 1, 4500, 1),
                                           first_unit(vbr, 1, 4500, {22500, 9000}, 2),  // removed 2 ticks behind unit 0
                                           unit(vbr, 1, 4500, 1),                       // 1 tick behind unit 2
                                           first_unit(vbr, 1, 4500, {22500, 9000}, 2)};
    const std::vector<CpbTimes> times = run_cpb(units);
    EXPECT_DOUBLE_EQ(times[2].removal, 2.5);
    EXPECT_DOUBLE_EQ(times[2].initial_arrival, 2.25);  // the offset does not count for it
    EXPECT_DOUBLE_EQ(times[3].removal, 3.5);
    EXPECT_DOUBLE_EQ(times[3].initial_arrival, 3.15);
    EXPECT_DOUBLE_EQ(times[4].removal, 4.5);
}

TEST(CpbModel, AUnitThatIsNotThereAtItsTimeIsAnUnderflow) {
    const CpbSchedule cbr{kBitRate, kLarge, true};
    std::vector<CpbAccessUnit> units{first_unit(cbr, 0.5, 45000, {45000, 0}), unit(cbr, 0.5, 90000, 1)};
    std::vector<CpbTimes> times = run_cpb(units);
    EXPECT_FALSE(times[0].underflow);  // just in time
    EXPECT_TRUE(times[1].underflow);
    expect_times(times[1], 0.5, 1.5, 1, 45000);
    units[0].bits = 45001;
    EXPECT_TRUE(run_cpb(units)[0].underflow);
}

TEST(CpbModel, WithLowDelayALateUnitIsRemovedAtATickBehindItsArrival) {
    const CpbSchedule cbr{kBitRate, kLarge, true};
    std::vector<CpbAccessUnit> units{first_unit(cbr, 0.5, 45000, {45000, 0}), unit(cbr, 0.5, 63000, 1),
                                     unit(cbr, 0.5, 4500, 3)};
    for (CpbAccessUnit& one : units) one.low_delay = true;
    const std::vector<CpbTimes> times = run_cpb(units);
    expect_times(times[1], 0.5, 1.2, 1.5, 67500);
    EXPECT_FALSE(times[1].underflow);
    EXPECT_DOUBLE_EQ(times[2].removal, 2);  // delays count from nominal times
}

TEST(CpbModel, AtAVariableRateABufferOverflowsWhenUnitsArriveEarly) {
    for (const std::uint64_t size : {180000U, 179999U}) {
        const CpbSchedule vbr{2 * kBitRate, size, false};
        std::vector<CpbAccessUnit> units{first_unit(vbr, 0.25, 45000, {90000, 0})};
        for (std::uint64_t i = 1; i < 8; ++i) units.push_back(unit(vbr, 0.25, 45000, i));
        const std::vector<CpbTimes> times = run_cpb(units);
        expect_times(times[3], 0.75, 1, 1.75, 180000);
        EXPECT_EQ(times[0].overflow, size < 180000);
        EXPECT_FALSE(times[7].overflow);
    }
}

TEST(CpbModel, TheRateMayChangeFromUnitToUnit) {
    const CpbSchedule slow{kBitRate, kLarge, true};
    const CpbSchedule fast{2 * kBitRate, kLarge, true};
    const std::vector<CpbAccessUnit> units{first_unit(slow, 0.5, 45000, {90000, 0}), unit(fast, 0.5, 45000, 1)};
    expect_times(run_cpb(units)[1], 0.5, 0.75, 1.5, 45000);
}

TEST(CpbModel, NothingGivesNothing) { EXPECT_TRUE(run_cpb({}).empty()); }

}  // namespace
}  // namespace h264tool
