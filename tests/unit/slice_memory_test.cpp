// The slice entries' one piece of memory: what it costs, that it is given back, and what happens when there is none.
#include <gtest/gtest.h>

#include "calloc_watch.h"
#include "h264d/h264d.h"
#include "script_check.h"
#include "slice_builder.h"

namespace {

using test::Bytes;
using test::CallocWatch;
using test::filled;
using test::GuardedBuffer;
using test::Log;
using test::SliceSyntax;
using test::text;

// The size of any first piece that does not grow with the slice.
constexpr std::size_t kFewBytes = 1024;

enum class Entry { kHeader, kTypeOnly };

int call(Entry entry, const SliceSyntax& sets, const unsigned char* buffer, std::size_t size, slice_header_t& record) {
    return entry == Entry::kHeader
               ? parse_slice_header_nal(buffer, static_cast<int>(size), &sets.sps, &sets.pps, &record)
               : parse_slice_type_only_nal(buffer, static_cast<int>(size), &sets.sps, &record);
}

std::string name_of(Entry entry) {
    return entry == Entry::kHeader ? "parse_slice_header_nal" : "parse_slice_type_only_nal";
}

test::LogLine out_of_memory(Entry entry, std::size_t buffer_len) {
    return {3, name_of(entry),
            text("Failed to allocate memory for nal_sodb_buffer. Size requested:%zu.", buffer_len + 32)};
}

// A header of some thousand bytes.
SliceSyntax long_header() {
    SliceSyntax slice;
    slice.slice_type = 5;
    slice.ref_pic_list_modification_flag_l0 = true;
    slice.modifications_l0.assign(3000, {1, 20});
    return slice;
}

// first_mb_in_slice with more zeros than any code has: they are counted to the end.
Bytes unit_of_zeros(std::size_t size) { return test::nal_unit(0x41, Bytes(size, 0)); }

class SliceMemory : public testing::TestWithParam<Entry> {};

INSTANTIATE_TEST_SUITE_P(Entries, SliceMemory, testing::Values(Entry::kHeader, Entry::kTypeOnly),
                         [](const auto& entry) { return name_of(entry.param); });

TEST_P(SliceMemory, CostDoesNotGrowWithTheSlice) {
    const SliceSyntax slice = test::slice_variants()[1].slice;
    for (const std::size_t data : {10U, 200U, 20000U, 1000000U}) {
        const Bytes unit = slice.unit(4, Bytes(data, 0x99));
        GuardedBuffer memory(unit);
        for (const int level : {0, 3, 6}) {
            slice_header_t record = slice.record_before();
            test::reset(level);
            const CallocWatch watch;
            EXPECT_EQ(call(GetParam(), slice, memory.data(), unit.size(), record), 1);
            ASSERT_EQ(watch.sizes().size(), 1U);
            EXPECT_LE(watch.sizes()[0], std::min(unit.size() + 32, kFewBytes));
            EXPECT_EQ(watch.not_freed(), 0U);
        }
        for (const int level : {7, 8}) {
            slice_header_t record = slice.record_before();
            test::reset(level);
            const CallocWatch watch;
            EXPECT_EQ(call(GetParam(), slice, memory.data(), unit.size(), record), 1);
            EXPECT_EQ(watch.sizes(), std::vector<std::size_t>{unit.size() + 32});
            EXPECT_EQ(watch.not_freed(), 0U);
        }
    }
}

// The bytes behind the header are not looked at: here they are not there.
TEST_P(SliceMemory, TheSliceDataIsNotTouched) {
    const SliceSyntax slice = test::slice_variants()[1].slice;
    Bytes unit = slice.unit(4, Bytes(4096, 0x99));
    unit.resize(kFewBytes);
    GuardedBuffer memory(unit);
    slice_header_t expected = slice.record_before();
    slice_header_t record = expected;
    test::reset(6);
    EXPECT_EQ(call(GetParam(), slice, memory.data(), unit.size(), expected), 1);
    EXPECT_EQ(call(GetParam(), slice, memory.data(), 100'000'000, record), 1);
    EXPECT_EQ(test::difference(record, expected), "");
}

TEST_P(SliceMemory, EveryWayOutGivesItBack) {
    const SliceSyntax slice;
    const std::vector<Bytes> units = {slice.unit(),
                                      {0, 0, 0, 1},
                                      {0, 0, 1, 0x65},
                                      {0x65, 1, 2, 3, 4},
                                      {0, 0, 1, 0x74, 1, 2, 3},
                                      {0, 0, 1, 0x65, 0, 0, 0},
                                      {0, 0, 1, 0x65, 0x88, 0x80},
                                      test::slice_variants()[4].slice.unit(),
                                      long_header().unit(),
                                      unit_of_zeros(40000)};
    for (const Bytes& unit : units)
        for (const int level : {0, 6, 8}) {
            GuardedBuffer memory(unit);
            slice_header_t record = filled<slice_header_t>(0);
            test::reset(level);
            const CallocWatch watch;
            call(GetParam(), slice, memory.data(), unit.size(), record);
            EXPECT_GE(watch.sizes().size(), 1U);
            EXPECT_EQ(watch.not_freed(), 0U);
            for (const std::size_t size : watch.sizes()) EXPECT_LE(size, unit.size() + 32);
        }
    slice_header_t record = filled<slice_header_t>(0);
    test::reset(8);
    const CallocWatch watch;
    call(GetParam(), slice, nullptr, 100, record);
    EXPECT_TRUE(watch.sizes().empty());
}

TEST_P(SliceMemory, WithoutMemoryNothingIsRead) {
    const SliceSyntax slice;
    // Whether there is a start code is not known yet.
    for (const Bytes& unit : {slice.unit(), Bytes{1, 2, 3, 4, 5, 6}, slice.unit(3, Bytes(100000, 0x77))})
        for (const int level : {3, 6, 8}) {
            GuardedBuffer memory(unit);
            slice_header_t record = filled<slice_header_t>(0x11);
            test::reset(level);
            const CallocWatch watch(1);
            EXPECT_EQ(call(GetParam(), slice, memory.data(), unit.size(), record), 0);
            EXPECT_EQ(test::recorded_log(), Log{out_of_memory(GetParam(), unit.size())});
            EXPECT_EQ(watch.sizes().size(), 1U);
            EXPECT_EQ(test::difference(record, filled<slice_header_t>(0x11)), "");
        }
}

// A header that runs on asks for more memory: whenever there is none, the result is that of a call without memory.
TEST_P(SliceMemory, MemoryMayRunOutLater) {
    const SliceSyntax slice = long_header();
    const Bytes unit = GetParam() == Entry::kHeader ? slice.unit() : unit_of_zeros(40000);
    GuardedBuffer memory(unit);
    std::size_t calls = 0;
    for (int failing = 0; failing <= static_cast<int>(calls); ++failing)
        for (const int level : {3, 6}) {
            SCOPED_TRACE(failing);
            slice_header_t record = slice.record_before();
            test::reset(level);
            const CallocWatch watch(failing);
            const int result = call(GetParam(), slice, memory.data(), unit.size(), record);
            EXPECT_EQ(watch.not_freed(), 0U);
            if (failing == 0) {
                calls = watch.sizes().size();
                ASSERT_GE(calls, 2U) << "the header does not run on";
                EXPECT_EQ(result, GetParam() == Entry::kHeader ? 1 : 0);
                continue;
            }
            EXPECT_EQ(watch.sizes().size(), static_cast<std::size_t>(failing)) << "no further attempt";
            EXPECT_EQ(result, 0);
            const Log log = test::up_to_level(test::recorded_log(), 3);
            ASSERT_FALSE(log.empty());
            EXPECT_EQ(log.back(), out_of_memory(GetParam(), unit.size()));
        }
}

// Missing memory is no missing element, and is not reported as one.
TEST(SliceMemory, OnlyTheLackOfMemoryIsReported) {
    SliceSyntax slice = long_header();
    const Bytes unit = slice.unit();
    GuardedBuffer memory(unit);
    slice_header_t record = slice.record_before();
    test::reset(3);
    const CallocWatch watch(2);
    EXPECT_EQ(call(Entry::kHeader, slice, memory.data(), unit.size(), record), 0);
    EXPECT_EQ(test::recorded_log(), Log{out_of_memory(Entry::kHeader, unit.size())});
}

// In a prediction weight table, whose failure is ignored otherwise.
TEST(SliceMemory, MemoryMayRunOutInsideAPredictionWeightTable) {
    SliceSyntax slice;
    slice.slice_type = 5;
    slice.pps.weighted_pred_flag = 1;
    slice.num_ref_idx_active_override_flag = true;
    slice.weights_l0.assign(800, {true, 100, -100, false});
    for (const unsigned nal_ref_idc : {0U, 1U})
        for (const bool entropy_coding : {false, true}) {
            slice.nal_ref_idc = nal_ref_idc;
            slice.pps.entropy_coding_mode_flag = entropy_coding ? 1 : 0;
            const Bytes unit = slice.unit();
            GuardedBuffer memory(unit);
            for (const int failing : {2, 3}) {
                slice_header_t record = slice.record_before();
                test::reset(3);
                const CallocWatch watch(failing);
                EXPECT_EQ(call(Entry::kHeader, slice, memory.data(), unit.size(), record), 0);
                EXPECT_EQ(watch.not_freed(), 0U);
                EXPECT_EQ(watch.sizes().size(), static_cast<std::size_t>(failing));
                EXPECT_EQ(test::recorded_log().back(), out_of_memory(Entry::kHeader, unit.size()));
                EXPECT_EQ(record.slice_header_end_bitoffset, slice.record_before().slice_header_end_bitoffset);
            }
        }
}

}  // namespace
