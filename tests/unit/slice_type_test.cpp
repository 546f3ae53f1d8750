#include <gtest/gtest.h>

#include "h264d/slice_header.h"
#include "script_check.h"
#include "slice_builder.h"

namespace {

using test::filled;
using test::Log;
using test::text;

const sps_t kSps = test::SliceSyntax{}.sps;

int read_type(bitbuffer_t& bb, slice_header_t& record) { return _parse_slice_type(&bb, &kSps, &record); }

TEST(SliceType, EndsAtEveryBit) {
    test::SliceScript script("Failed to parse");
    script.call("_parse_slice_type", {}, [&] {
        script.ue("", 8159, test::field(&slice_header_t::first_mb_in_slice));
        script.ue("", 9, test::field(&slice_header_t::slice_type));
    });
    test::expect_reads_at_every_length(script, filled<slice_header_t>(0xA5), read_type);
}

TEST(SliceType, NullArguments) {
    test::GuardedBuffer memory(test::Bytes{0xFF});
    bitbuffer_t bb{memory.data(), 0, 8};
    slice_header_t record = filled<slice_header_t>(0x11);
    const auto log_of = [](bitbuffer_t* bits, const sps_t* sps, slice_header_t* pSh) {
        test::reset(8);
        EXPECT_EQ(_parse_slice_type(bits, sps, pSh), -1);
        EXPECT_TRUE(test::assertions().empty());
        return test::recorded_log();
    };
    const auto line = [](void* bits, void* pSh) {
        return Log{
            {3, "_parse_slice_type", text("pNal_bb:%p or sliceheader:%p are NULL this should not happen!", bits, pSh)}};
    };
    EXPECT_EQ(log_of(nullptr, &kSps, &record), line(nullptr, &record));
    EXPECT_EQ(log_of(&bb, &kSps, nullptr), line(&bb, nullptr));
    EXPECT_EQ(log_of(nullptr, nullptr, nullptr), line(nullptr, nullptr));
    EXPECT_EQ(
        log_of(&bb, nullptr, &record),
        (Log{{3, "_parse_slice_type", text("sps:%p is NULL this should not happen!", static_cast<void*>(nullptr))}}));
    EXPECT_EQ(test::difference(record, filled<slice_header_t>(0x11)), "");
    EXPECT_EQ(bb.bit_offset, 0U);
}

}  // namespace
