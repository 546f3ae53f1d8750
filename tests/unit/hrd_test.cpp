#include <gtest/gtest.h>

#include "h264d/h264d.h"
#include "sps_builder.h"
#include "sps_check.h"
#include "sps_variants.h"

namespace {

using test::HrdSyntax;
using test::SyntaxScript;

SyntaxScript script_of(const HrdSyntax& hrd, hrd_t vui_t::*which = &vui_t::nal_hrd, unsigned bits_before = 0) {
    SyntaxScript s(bits_before);
    s.call("_parse_hrd", {}, [&] { hrd.write(s, which); });
    return s;
}

int read_nal_hrd(bitbuffer_t& bb, sps_t& sps) { return _parse_hrd(&bb, &sps.vui.nal_hrd); }
int read_vcl_hrd(bitbuffer_t& bb, sps_t& sps) { return _parse_hrd(&bb, &sps.vui.vcl_hrd); }

TEST(Hrd, ElementsAndMessagesInOrder) {
    HrdSyntax hrd;
    hrd.bit_rate_scale = 9;
    hrd.cpb_size_scale = 6;
    hrd.schedules = {{11, 22, true}, {4294967294, 3, false}};
    hrd.initial_cpb_removal_delay_length_minus1 = 1;
    hrd.cpb_removal_delay_length_minus1 = 2;
    hrd.dpb_output_delay_length_minus1 = 30;
    hrd.time_offset_length = 31;
    const SyntaxScript script = script_of(hrd);
    test::ScriptBits bits(script, script.bits().bits());
    const auto record = test::filled_record(0);
    test::reset(7);
    ASSERT_EQ(_parse_hrd(&bits.bb(), &record->vui.nal_hrd), 0);

    const hrd_t& read = record->vui.nal_hrd;
    EXPECT_EQ(read.cpb_cnt_minus1, 1U);
    EXPECT_EQ(read.bit_rate_scale, 9);
    EXPECT_EQ(read.cpb_size_scale, 6);
    EXPECT_EQ(read.bit_rate_value_minus1[0], 11U);
    EXPECT_EQ(read.cpb_size_value_minus1[0], 22U);
    EXPECT_EQ(read.cbr_flag[0], 1);
    EXPECT_EQ(read.bit_rate_value_minus1[1], 4294967294U);
    EXPECT_EQ(read.cpb_size_value_minus1[1], 3U);
    EXPECT_EQ(read.cbr_flag[1], 0);
    EXPECT_EQ(read.initial_cpb_removal_delay_length_minus1, 1);
    EXPECT_EQ(read.cpb_removal_delay_length_minus1, 2);
    EXPECT_EQ(read.dpb_output_delay_length_minus1, 30);
    EXPECT_EQ(read.time_offset_length, 31);

    const std::string cursor =
        test::text("hrd after cpb_cnt_minus1 BB Addr=%p, NumBits=%zu Current Bit Offset=3 (Byte=0, BitOfByte=3).",
                   bits.area(), script.bits().bits());
    EXPECT_EQ(test::recorded_log(), (test::Log{{7, "_parse_hrd", "Called."},
                                               {7, "_parse_hrd", "cpb_cnt_minus1:1."},
                                               {5, "_DisplayBitBuffer", cursor, "bitbuffer.c"},
                                               {7, "_parse_hrd", "bit_rate_value_minus1[0]:11."},
                                               {7, "_parse_hrd", "cpb_size_value_minus1[0]:22."},
                                               {7, "_parse_hrd", "cbr_flag[0]:1."},
                                               {7, "_parse_hrd", "bit_rate_value_minus1[1]:-2."},
                                               {7, "_parse_hrd", "cpb_size_value_minus1[1]:3."},
                                               {7, "_parse_hrd", "cbr_flag[1]:0."},
                                               {7, "_parse_hrd", "Done."}}));
}

TEST(Hrd, EndsAtEveryBit) {
    test::expect_reads_at_every_length(script_of(HrdSyntax{}), read_nal_hrd);
    test::expect_reads_at_every_length(script_of(test::full_hrd(3, 5), &vui_t::nal_hrd, 3), read_nal_hrd);
    test::expect_reads_at_every_length(script_of(test::full_hrd(4, 1u << 31), &vui_t::vcl_hrd), read_vcl_hrd);
}

TEST(Hrd, AllSchedulesThatFitAreStored) {
    test::expect_reads_at_every_length(script_of(test::full_hrd(32, 1)), read_nal_hrd);
}

// The records of the script have no room for more either: they say what is dropped.
TEST(Hrd, SchedulesBehindThe32ndAreReadAndDropped) {
    for (const std::size_t schedules : {33U, 41U, 300U}) {
        const SyntaxScript script = script_of(test::full_hrd(schedules, 7));
        test::expect_read(script, script.bits().bits(), 7, 0xA5, read_nal_hrd);
        const auto record = test::filled_record(0);
        test::ScriptBits bits(script, script.bits().bits());
        ASSERT_EQ(read_nal_hrd(bits.bb(), *record), 0);
        EXPECT_EQ(record->vui.nal_hrd.cpb_cnt_minus1, schedules - 1);
        EXPECT_EQ(record->vui.nal_hrd.bit_rate_value_minus1[31], 7U + 62);
        EXPECT_EQ(record->vui.nal_hrd.cpb_size_value_minus1[31], 7U + 63);
        EXPECT_EQ(record->vui.nal_hrd.cbr_flag[31], 0);
        EXPECT_EQ(record->vui.nal_hrd.initial_cpb_removal_delay_length_minus1, 31);
        EXPECT_EQ(record->vui.nal_hrd.time_offset_length, 24);
    }
    test::expect_reads_at_every_length(script_of(test::full_hrd(41, 0), &vui_t::vcl_hrd), read_vcl_hrd);
}

TEST(Hrd, AHugeCountFailsWhereTheBitsEnd) {
    test::BitWriter bits;
    bits.ue(4294967294).u(8, 0x12);
    for (unsigned i = 0; i < 34; ++i) bits.ue(i).ue(i).flag(true);
    const auto record = test::filled_record(0);
    test::GuardedBuffer memory(bits.bytes());
    bitbuffer_t bb{memory.data(), 0, static_cast<unsigned>(bits.bits())};
    test::reset(3);
    EXPECT_EQ(_parse_hrd(&bb, &record->vui.nal_hrd), -1);
    EXPECT_EQ(test::recorded_log(), (test::Log{{3, "_parse_hrd", "cannot parse bit_rate_value_minus1[34]."}}));
    EXPECT_EQ(record->vui.nal_hrd.cpb_cnt_minus1, 4294967294U);
}

TEST(HrdDisplay, PrintsEveryElementAtLevel6) {
    const SyntaxScript script = script_of(test::full_hrd(2, 70));
    test::ScriptBits bits(script, script.bits().bits());
    const auto record = test::filled_record(0);
    ASSERT_EQ(read_nal_hrd(bits.bb(), *record), 0);
    test::reset(6);
    _display_hrd(&record->vui.nal_hrd);
    test::Log expected;
    for (const char* line :
         {"cpb_cnt_minus1=1.", "bit_rate_scale=4.", "cpb_size_scale=15.", "bit_rate_value_minus1[0]=70.",
          "cpb_size_value_minus1[0]=71.", "cbr_flag[0]=1.", "bit_rate_value_minus1[1]=72.",
          "cpb_size_value_minus1[1]=73.", "cbr_flag[1]=0.", "initial_cpb_removal_delay_length_minus1=31.",
          "cpb_removal_delay_length_minus1=16.", "dpb_output_delay_length_minus1=5.", "time_offset_length=24."})
        expected.push_back({6, "_display_hrd", line});
    EXPECT_EQ(test::recorded_log(), expected);
    test::reset(5);
    _display_hrd(&record->vui.nal_hrd);
    EXPECT_EQ(test::recorded_log(), test::Log{});
}

TEST(HrdDisplay, StopsAtTheCapacityAndPrintsLow32Bits) {
    const auto record = test::filled_record(0);
    hrd_t& hrd = record->vui.nal_hrd;
    for (const unsigned long count : {32UL, 40UL, 4294967294UL, ~0UL}) {
        hrd.cpb_cnt_minus1 = count;
        hrd.bit_rate_value_minus1[31] = 0x1234567FFFFFFFFEUL;
        hrd.cbr_flag[31] = -1;
        test::reset(6);
        _display_hrd(&hrd);
        const test::Log log = test::recorded_log();
        ASSERT_EQ(log.size(), 3U + 3 * 32 + 4);
        EXPECT_EQ(log[0].text, test::text("cpb_cnt_minus1=%u.", static_cast<unsigned>(count)));
        EXPECT_EQ(log[3 + 3 * 31].text, "bit_rate_value_minus1[31]=4294967294.");
        EXPECT_EQ(log[3 + 3 * 31 + 2].text, "cbr_flag[31]=-1.");
        EXPECT_EQ(log[3 + 3 * 32].text, "initial_cpb_removal_delay_length_minus1=0.");
    }
}

}  // namespace
