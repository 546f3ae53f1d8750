// The slice entries' one piece of memory: what it costs, and that it is given back.
#include <gtest/gtest.h>

#include "allocation_watch.h"
#include "h264d/h264d.h"
#include "script_check.h"
#include "slice_builder.h"

namespace {

using test::AllocationWatch;
using test::Bytes;
using test::filled;
using test::GuardedBuffer;
using test::SliceSyntax;

// As many as are looked at when a header is short.
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

// first_mb_in_slice with more zeros than any code has: they are counted to the end.
Bytes unit_of_zeros(std::size_t size) { return test::nal_unit(0x41, Bytes(size, 0)); }

class SliceMemory : public testing::TestWithParam<Entry> {};

INSTANTIATE_TEST_SUITE_P(Entries, SliceMemory, testing::Values(Entry::kHeader, Entry::kTypeOnly),
                         [](const auto& entry) { return name_of(entry.param); });

TEST_P(SliceMemory, OnePieceOfTheSizeOfTheUnit) {
    const SliceSyntax slice = test::slice_variants()[1].slice;
    for (const std::size_t data : {10U, 200U, 20000U, 1000000U}) {
        const Bytes unit = slice.unit(4, Bytes(data, 0x99));
        GuardedBuffer memory(unit);
        for (const int level : {0, 3, 6, 7, 8}) {
            slice_header_t record = slice.record_before();
            test::reset(level);
            const AllocationWatch watch;
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
                                      test::long_slice().unit(),
                                      unit_of_zeros(40000)};
    for (const Bytes& unit : units)
        for (const int level : {0, 6, 8}) {
            GuardedBuffer memory(unit);
            slice_header_t record = filled<slice_header_t>(0);
            test::reset(level);
            const AllocationWatch watch;
            call(GetParam(), slice, memory.data(), unit.size(), record);
            EXPECT_EQ(watch.sizes(), std::vector<std::size_t>{unit.size() + 32});
            EXPECT_EQ(watch.not_freed(), 0U);
        }
    slice_header_t record = filled<slice_header_t>(0);
    test::reset(8);
    const AllocationWatch watch;
    call(GetParam(), slice, nullptr, 100, record);
    EXPECT_TRUE(watch.sizes().empty());
}

}  // namespace
