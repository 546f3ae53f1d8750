#include <gtest/gtest.h>

#include "fake_clock.h"
#include "h264d/h264d.h"
#include "sps_builder.h"
#include "sps_check.h"
#include "sps_variants.h"
#include "test_clock.h"

namespace {

using test::Log;
using test::SyntaxScript;
using test::VuiSyntax;

SyntaxScript script_of(const VuiSyntax& vui, unsigned bits_before = 0) {
    SyntaxScript s(bits_before);
    s.call("_parse_vui", {}, [&] { vui.write(s); });
    return s;
}

int read_vui(bitbuffer_t& bb, sps_t& sps) { return _parse_vui(&bb, &sps.vui); }

// The record of a VUI that was read over bytes of one value.
std::unique_ptr<sps_t> record_of(const VuiSyntax& vui, int fill = 0, int level = 3) {
    const SyntaxScript script = script_of(vui);
    test::ScriptBits bits(script, script.bits().bits());
    auto record = test::filled_record(fill);
    test::reset(level);
    EXPECT_EQ(read_vui(bits.bb(), *record), 0);
    return record;
}

TEST(Vui, EndsAtEveryBit) {
    for (const test::SpsVariant& variant : test::sps_variants()) {
        if (!variant.sps.vui_parameters_present_flag) continue;
        SCOPED_TRACE(variant.name);
        test::expect_reads_at_every_length(script_of(variant.sps.vui), read_vui);
        test::expect_reads_at_every_length(script_of(variant.sps.vui, 13), read_vui);
    }
}

// Each flag alone switches its own part and no other.
TEST(Vui, EachPartAlone) {
    const std::vector<bool VuiSyntax::*> flags = {
        &VuiSyntax::aspect_ratio_info_present_flag,  &VuiSyntax::overscan_info_present_flag,
        &VuiSyntax::video_signal_type_present_flag,  &VuiSyntax::chroma_loc_info_present_flag,
        &VuiSyntax::timing_info_present_flag,        &VuiSyntax::nal_hrd_parameters_present_flag,
        &VuiSyntax::vcl_hrd_parameters_present_flag, &VuiSyntax::pic_struct_present_flag,
        &VuiSyntax::bitstream_restriction_flag};
    for (const auto flag : flags) {
        VuiSyntax only = test::full_vui();
        for (const auto other : flags) only.*other = other == flag;
        test::expect_reads_at_every_length(script_of(only), read_vui);
        VuiSyntax without = test::full_vui();
        without.*flag = false;
        test::expect_reads_at_every_length(script_of(without), read_vui);
    }
    VuiSyntax no_colours = test::full_vui();
    no_colours.colour_description_present_flag = false;
    test::expect_reads_at_every_length(script_of(no_colours), read_vui);
}

TEST(Vui, MessagesInOrder) {
    VuiSyntax vui;
    vui.video_signal_type_present_flag = true;
    vui.video_format = 6;
    vui.timing_info_present_flag = true;
    record_of(vui, 0, 7);
    EXPECT_EQ(test::recorded_log(),
              (Log{{7, "_parse_vui", "Called."},
                   {7, "_parse_vui", "video_format:6."},
                   {7, "_parse_vui", "timing_info_present_flag:1."},
                   {7, "getMAXFPSForVUI", "About to divide by 1000 both timescale and num_unit_in_ticks."},
                   {7, "getMAXFPSForVUI", "Returning MAXFPS:30 for Timescale:60, NumTicks:1"},
                   {7, "_parse_vui", "Sucessfully filled MAXFPS:30 from VUI timescale:60000 and numTicks:1001."},
                   {7, "_parse_vui", "nal_hrd_parameters_present_flag:0."},
                   {7, "_parse_vui", "vcl_hrd_parameters_present_flag:0."},
                   {7, "_parse_vui", "bitstream_restriction_flag:0."},
                   {7, "_parse_vui", "Done."}}));
}

TEST(Vui, OnlyAspectRatio255HasASampleAspectRatio) {
    for (unsigned idc = 0; idc < 256; ++idc) {
        VuiSyntax vui;
        vui.aspect_ratio_info_present_flag = true;
        vui.aspect_ratio_idc = idc;
        vui.sar_width = 64;
        vui.sar_height = 33;
        const auto record = record_of(vui);
        EXPECT_EQ(record->vui.aspect_ratio_idc, idc);
        EXPECT_EQ(record->vui.sar_width, idc == 255 ? 64 : 0);
        EXPECT_EQ(record->vui.sar_height, idc == 255 ? 33 : 0);
    }
}

TEST(Vui, WithoutTimingTheOffsetIsMinusOneAndTheFrameRateUntouched) {
    const auto record = record_of({}, 0x11);
    EXPECT_EQ(record->vui.timing_info_present_flag, 0);
    EXPECT_EQ(record->vui.timing_info_offset, -1);
    EXPECT_EQ(record->vui.MaxFPS, 0x11111111);
    EXPECT_EQ(record->vui.MaxFPSminus1, 0x11111111);
    EXPECT_EQ(record->vui.time_scale, 0x1111111111111111U);
}

TEST(Vui, TimingGivesTheFrameRate) {
    VuiSyntax vui;
    vui.timing_info_present_flag = true;
    auto record = record_of(vui);
    EXPECT_EQ(record->vui.num_units_in_tick, 1001U);
    EXPECT_EQ(record->vui.time_scale, 60000U);
    EXPECT_EQ(record->vui.MaxFPS, 30);
    EXPECT_EQ(record->vui.MaxFPSminus1, 29);
    EXPECT_EQ(record->vui.timing_info_offset, 5);

    vui.num_units_in_tick = 0;
    vui.time_scale = 100;
    record = record_of(vui);
    EXPECT_EQ(record->vui.MaxFPS, 50);
    EXPECT_EQ(record->vui.num_units_in_tick, 0U);

    vui.num_units_in_tick = 0xFFFFFFFF;
    vui.time_scale = 0xFFFFFFFE;
    record = record_of(vui, 0, 7);
    EXPECT_EQ(record->vui.num_units_in_tick, 0xFFFFFFFFU);
    EXPECT_EQ(record->vui.time_scale, 0xFFFFFFFEU);
    EXPECT_EQ(record->vui.MaxFPS, 0);
    EXPECT_EQ(record->vui.MaxFPSminus1, -1);
    EXPECT_EQ(test::count("Sucessfully filled MAXFPS:0 from VUI timescale:-2 and numTicks:-1."), 1);
}

TEST(Vui, AnHrdSetsTheDelaysFlagAndNothingClearsIt) {
    VuiSyntax vui;
    EXPECT_EQ(record_of(vui, 0)->vui.CpbDpbDelaysPresentFlag, 0);
    EXPECT_EQ(record_of(vui, 0x11)->vui.CpbDpbDelaysPresentFlag, 0x11111111);
    EXPECT_EQ(record_of(vui, 0x11)->vui.low_delay_hrd_flag, 0x11111111);
    vui.nal_hrd_parameters_present_flag = true;
    EXPECT_EQ(record_of(vui, 0x11)->vui.CpbDpbDelaysPresentFlag, 1);
    EXPECT_EQ(record_of(vui, 0x11)->vui.low_delay_hrd_flag, 0);
    vui.nal_hrd_parameters_present_flag = false;
    vui.vcl_hrd_parameters_present_flag = true;
    EXPECT_EQ(record_of(vui, 0)->vui.CpbDpbDelaysPresentFlag, 1);
}

TEST(Vui, ATruncatedHrdIsTheResultMinusTwo) {
    for (const bool nal : {true, false}) {
        VuiSyntax vui;
        vui.nal_hrd_parameters_present_flag = nal;
        vui.vcl_hrd_parameters_present_flag = !nal;
        const SyntaxScript script = script_of(vui);
        // Five flags, two HRD flags, then cpb_cnt_minus1 in one bit.
        const std::size_t cut = nal ? 6 + 1 : 7 + 1;
        test::ScriptBits bits(script, cut);
        const auto record = test::filled_record(0);
        test::reset(3);
        EXPECT_EQ(read_vui(bits.bb(), *record), -2);
        EXPECT_EQ(test::recorded_log(),
                  (Log{{3, "_parse_hrd", "cannot parse bit_rate_scale."},
                       {3, "_parse_vui", nal ? "cannot parse nal_hrd." : "cannot parse vcl_hrd."}}));
        EXPECT_EQ(record->vui.CpbDpbDelaysPresentFlag, 0);
    }
}

TEST(Vui, TheDelaysFlagIsStoredBeforeLowDelayIsRead) {
    VuiSyntax vui;
    vui.nal_hrd_parameters_present_flag = true;
    const SyntaxScript script = script_of(vui);
    test::ScriptBits bits(script, script.bits().bits() - 3);
    const auto record = test::filled_record(0);
    test::reset(3);
    EXPECT_EQ(read_vui(bits.bb(), *record), -1);
    EXPECT_EQ(test::texts(3), std::vector<std::string>{"cannot parse low_delay_hrd_flag."});
    EXPECT_EQ(record->vui.CpbDpbDelaysPresentFlag, 1);
}

TEST(Vui, SchedulesBehindThe32ndLeaveTheNeighboursAlone) {
    VuiSyntax vui = test::full_vui();
    vui.nal_hrd = test::full_hrd(41, 9);
    vui.vcl_hrd = test::full_hrd(40, 90);
    test::expect_reads_at_every_length(script_of(vui), read_vui);
}

class TimescaleWarning : public testing::Test {
protected:
    void SetUp() override { start_ = test::later_than_all_tests(); }
    void TearDown() override { test::use_system_time(); }

    // Whether a VUI with this timing, read at this many seconds, gives the warning.
    bool warns_at(int seconds, std::uint64_t time_scale = 1001, std::uint64_t num_units_in_tick = 999, int level = 4) {
        test::set_time(start_ + seconds);
        VuiSyntax vui;
        vui.timing_info_present_flag = true;
        vui.time_scale = time_scale;
        vui.num_units_in_tick = num_units_in_tick;
        record_of(vui, 0, level);
        return !test::recorded_log().empty();
    }

private:
    std::time_t start_ = 0;
};

TEST_F(TimescaleWarning, TellsBothValues) {
    EXPECT_TRUE(warns_at(0, 4294967295, 0));
    EXPECT_EQ(test::recorded_log(),
              (Log{{4, "_parse_vui", "VUI timescale:-1 is greater than 1000 while numTicks:0 is small."}}));
    EXPECT_TRUE(warns_at(11));
    EXPECT_EQ(test::recorded_log(),
              (Log{{4, "_parse_vui", "VUI timescale:1001 is greater than 1000 while numTicks:999 is small."}}));
}

TEST_F(TimescaleWarning, ComesBeforeTheFrameRateTraces) {
    warns_at(0, 60000, 1, 7);
    const Log log = test::recorded_log();
    ASSERT_GE(log.size(), 5U);
    EXPECT_EQ(log[1].text, "timing_info_present_flag:1.");
    EXPECT_EQ(log[2].text, "VUI timescale:60000 is greater than 1000 while numTicks:1 is small.");
    EXPECT_EQ(log[3].text, "Returning MAXFPS:30000 for Timescale:60000, NumTicks:1");
}

TEST_F(TimescaleWarning, NeedsALargeScaleAndFewUnits) {
    EXPECT_FALSE(warns_at(0, 1000, 999));
    EXPECT_FALSE(warns_at(0, 1001, 1000));
    EXPECT_FALSE(warns_at(0, 1000, 1));
    EXPECT_TRUE(warns_at(0, 1001, 999)) << "the others have not counted";
}

TEST_F(TimescaleWarning, IsRepeatedAfterMoreThanTenSecondsOnly) {
    EXPECT_TRUE(warns_at(0));
    EXPECT_FALSE(warns_at(0));
    EXPECT_FALSE(warns_at(6));
    EXPECT_FALSE(warns_at(10));
    EXPECT_TRUE(warns_at(11));
    EXPECT_FALSE(warns_at(21));
    EXPECT_TRUE(warns_at(22));
}

TEST_F(TimescaleWarning, CountsAlsoWhereTheLevelSuppressesIt) {
    EXPECT_FALSE(warns_at(0, 1001, 999, 3));
    EXPECT_FALSE(warns_at(10));
    EXPECT_TRUE(warns_at(11));
    {
        const test::WithoutHandle silent;
        EXPECT_FALSE(warns_at(22));
    }
    EXPECT_FALSE(warns_at(32));
    EXPECT_TRUE(warns_at(33));
}

}  // namespace
