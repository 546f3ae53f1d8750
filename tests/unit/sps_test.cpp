#include <gtest/gtest.h>

#include <algorithm>

#include "h264d/h264d.h"
#include "sps_builder.h"
#include "sps_check.h"
#include "sps_variants.h"

namespace {

using test::Log;
using test::read_sps;
using test::SpsSyntax;
using test::SyntaxScript;

class SpsVariants : public testing::TestWithParam<test::SpsVariant> {};

TEST_P(SpsVariants, EndsAtEveryBit) { test::expect_reads_at_every_length(GetParam().sps.script(), read_sps); }

TEST_P(SpsVariants, PositionsCountFromTheFirstBitOfTheBuffer) {
    const SyntaxScript script = GetParam().sps.script(11);
    test::expect_read(script, script.bits().bits(), 7, 0xA5, read_sps);
}

INSTANTIATE_TEST_SUITE_P(Sps, SpsVariants, testing::ValuesIn(test::sps_variants()),
                         [](const auto& variant) { return variant.param.name; });

// What parse_sps makes of a whole stream.
std::unique_ptr<sps_t> record_of(const SyntaxScript& script, int fill = 0, int level = 3) {
    test::ScriptBits bits(script, script.bits().bits());
    auto record = test::filled_record(fill);
    test::reset(level);
    EXPECT_EQ(parse_sps(&bits.bb(), record.get()), 0);
    EXPECT_EQ(bits.bb().bit_offset, script.bits().bits());
    return record;
}
std::unique_ptr<sps_t> record_of(const SpsSyntax& sps, int fill = 0) { return record_of(sps.script(), fill); }

// Made by x264 for 1920 x 1080 at 30 frames per second, High profile, level 4.0; the values and positions below are
// those that ffmpeg's trace_headers shows. Emulation prevention is removed.
TEST(Sps, OfARealStream) {
    test::GuardedBuffer rbsp(std::vector<unsigned char>{0x64, 0x00, 0x28, 0xAC, 0xD9, 0x40, 0x78, 0x02,
                                                        0x27, 0xE5, 0xC0, 0x44, 0x00, 0x00, 0x00, 0x04,
                                                        0x00, 0x00, 0x00, 0xF0, 0x3C, 0x60, 0xC6, 0x58});
    bitbuffer_t bb{rbsp.data(), 0, 8 * 24};
    const auto record = test::filled_record(0);
    test::reset(3);
    ASSERT_EQ(parse_sps(&bb, record.get()), 0);
    EXPECT_EQ(record->profile_idc, 100);
    EXPECT_EQ(record->level_idc, 40);
    EXPECT_EQ(record->seq_parameter_set_id, 0U);
    EXPECT_EQ(record->chroma_format_idc, 1U);
    EXPECT_EQ(record->ChromaArrayType, 1U);
    EXPECT_EQ(record->log2_max_frame_num_minus4, 0U);
    EXPECT_EQ(record->pic_order_cnt_type, 0U);
    EXPECT_EQ(record->log2_max_pic_order_cnt_lsb_minus4, 2U);
    EXPECT_EQ(record->max_num_ref_frames, 4U);
    EXPECT_EQ(record->pic_width_in_mbs_minus1, 119U);
    EXPECT_EQ(record->pic_height_in_map_units_minus1, 67U);
    EXPECT_EQ(record->frame_mbs_only_flag, 1);
    EXPECT_EQ(record->frame_cropping_flag, 1);
    EXPECT_EQ(record->frame_crop_bottom_offset, 4U);
    EXPECT_EQ(record->vui_parameters_present_flag, 1);
    EXPECT_EQ(record->vui.video_signal_type_present_flag, 0);
    EXPECT_EQ(record->vui.timing_info_present_flag, 1);
    EXPECT_EQ(record->vui.num_units_in_tick, 1U);
    EXPECT_EQ(record->vui.time_scale, 60U);
    EXPECT_EQ(record->vui.MaxFPS, 30);
    EXPECT_EQ(record->vui.bitstream_restriction_flag, 1);
    EXPECT_EQ(record->vui.log2_max_mv_length_horizontal, 11U);
    EXPECT_EQ(record->vui.num_reorder_frames, 2U);
    EXPECT_EQ(record->vui.max_decoder_frame_buffering, 4U);
    EXPECT_EQ(record->max_num_ref_frames_bitoffset, 37);
    EXPECT_EQ(record->frame_mbs_only_flag_offset, 69);
    EXPECT_EQ(record->frame_cropping_offset, 71);
    EXPECT_EQ(record->vui_parameters_present_offset, 80);
    EXPECT_EQ(record->vui.timing_info_offset, 94);
    EXPECT_EQ(record->vui.nal_hrd_parameters_present_offset, 159);
    EXPECT_EQ(record->vui.pic_struct_present_offset, 161);
}

TEST(Sps, MessagesInOrder) {
    SpsSyntax sps;
    const SyntaxScript script = sps.script();
    test::ScriptBits bits(script, script.bits().bits());
    const auto record = test::filled_record(0);
    test::reset(7);
    ASSERT_EQ(parse_sps(&bits.bb(), record.get()), 0);
    const std::size_t size = script.bits().bits();
    const std::string before = test::text(
        "Before log2_max_pic_order_cnt_lsb_minus4. BB Addr=%p, NumBits=%zu Current Bit Offset=27 (Byte=3, "
        "BitOfByte=3).",
        bits.area(), size);
    const std::string after = test::text(
        "After log2_max_pic_order_cnt_lsb_minus4. BB Addr=%p, NumBits=%zu Current Bit Offset=30 (Byte=3, BitOfByte=6).",
        bits.area(), size);
    EXPECT_EQ(test::recorded_log(), (Log{{7, "parse_sps", "Called."},
                                         {7, "parse_sps", "Half done."},
                                         {5, "_DisplayBitBuffer", before, "bitbuffer.c"},
                                         {5, "_DisplayBitBuffer", after, "bitbuffer.c"},
                                         {7, "parse_sps", "75 % done."},
                                         {7, "parse_sps", "Done."}}));
}

// Elements are read in the order of the source, and each failure tells the line of its own element.
TEST(Sps, EachFailureTellsItsSourceLine) {
    SpsSyntax sps;
    sps.profile_idc = 100;
    sps.frame_cropping_flag = true;
    const SyntaxScript script = sps.script();
    std::vector<int> lines;
    std::size_t cuts = 0;
    for (const std::size_t cut : script.element_cuts()) {
        test::ScriptBits bits(script, cut);
        const auto record = test::filled_record(0);
        test::reset(3);
        EXPECT_EQ(parse_sps(&bits.bb(), record.get()), -1);
        ASSERT_EQ(test::records().messages.size(), 1U);
        ++cuts;
        if (lines.empty() || lines.back() != test::records().messages[0].line)
            lines.push_back(test::records().messages[0].line);
    }
    EXPECT_GT(cuts, lines.size());
    EXPECT_EQ(lines.size(), 24U);
    EXPECT_TRUE(std::is_sorted(lines.begin(), lines.end()));
}

TEST(Sps, TheCursorLinesBelongToOrderCountType0) {
    SpsSyntax sps;
    sps.pic_order_cnt_type = 2;
    record_of(sps.script(), 0, 5);
    EXPECT_EQ(test::recorded_log(), Log{});
}

TEST(Sps, AFailedVuiIsNamedBeforeDone) {
    SpsSyntax sps;
    sps.vui_parameters_present_flag = true;
    sps.vui.nal_hrd_parameters_present_flag = true;
    const SyntaxScript script = sps.script();
    const auto log_of = [&](std::size_t bits_missing, int expected) {
        test::ScriptBits bits(script, script.bits().bits() - bits_missing);
        const auto record = test::filled_record(0);
        test::reset(7);
        EXPECT_EQ(parse_sps(&bits.bb(), record.get()), expected);
        Log log = test::recorded_log();
        log.erase(log.begin(), std::find(log.begin(), log.end(), test::LogLine{7, "_parse_hrd", "cbr_flag[0]:0."}) + 1);
        return log;
    };
    // The end of the stream: time_offset_length, then vcl_hrd_parameters_present_flag and three more flags.
    EXPECT_EQ(log_of(5, -2), (Log{{3, "_parse_hrd", "cannot parse time_offset_length."},
                                  {3, "_parse_vui", "cannot parse nal_hrd."},
                                  {3, "parse_sps", "cannot parse vui. Return code is -2."},
                                  {7, "parse_sps", "Done."}}));
    EXPECT_EQ(log_of(4, -1), (Log{{7, "_parse_hrd", "Done."},
                                  {3, "_parse_vui", "cannot parse vcl_hrd_parameters_present_flag."},
                                  {7, "parse_sps", "Done."}}));
}

TEST(Sps, ChromaIsReadForTheHighProfilesOnly) {
    const std::vector<unsigned> with_chroma = {44, 83, 86, 100, 110, 118, 122, 128, 244};
    for (unsigned profile = 0; profile < 256; ++profile) {
        const bool high = std::find(with_chroma.begin(), with_chroma.end(), profile) != with_chroma.end();
        test::BitWriter bits;
        bits.u(8, profile).u(8, 0).u(8, 30).ue(0);
        if (high) bits.ue(2).ue(1).ue(3).flag(true).flag(false);
        bits.ue(9).ue(2).ue(1).flag(false).ue(44).ue(35).flag(true).flag(true).flag(false).flag(false);
        test::GuardedBuffer memory(bits.bytes());
        bitbuffer_t bb{memory.data(), 0, static_cast<unsigned>(bits.bits())};
        const auto record = test::filled_record(0);
        record->chroma_format_idc = 77;
        record->ChromaArrayType = 88;
        test::reset(3);
        ASSERT_EQ(parse_sps(&bb, record.get()), 0) << profile;
        EXPECT_EQ(bb.bit_offset, bits.bits()) << profile;
        EXPECT_EQ(record->profile_idc, profile);
        EXPECT_EQ(record->chroma_format_idc, high ? 2U : 77U) << profile;
        EXPECT_EQ(record->ChromaArrayType, high ? 2U : 88U) << profile;
        EXPECT_EQ(record->bit_depth_luma_minus8, high ? 1U : 0U) << profile;
        EXPECT_EQ(record->bit_depth_chroma_minus8, high ? 3U : 0U) << profile;
        EXPECT_EQ(record->qpprime_y_zero_transform_bypass_flag, high ? 1 : 0) << profile;
        EXPECT_EQ(record->log2_max_frame_num_minus4, 9U) << profile;
        EXPECT_EQ(record->pic_width_in_mbs_minus1, 44U) << profile;
    }
}

TEST(Sps, EveryHighProfileEndsAtEveryBit) {
    for (const unsigned profile :
         {100U, 110U, 122U, 244U, 44U, 83U, 86U, 118U, 128U, 138U, 139U, 134U, 135U, 77U, 66U}) {
        SpsSyntax sps;
        sps.profile_idc = profile;
        test::expect_reads_at_every_length(sps.script(), read_sps);
    }
}

// The stereo and depth profiles are read like Baseline, so that their chroma_format_idc is taken for the next element.
TEST(Sps, TheChromaFormatOfOtherProfilesIsMisread) {
    for (const unsigned profile : {138U, 139U, 134U, 135U}) {
        test::BitWriter bits;
        bits.u(8, profile).u(8, 0).u(8, 30).ue(0).ue(1).ue(0).ue(0).flag(false).flag(false).ue(4);
        bits.u(64, 0xFFFFFFFFFFFFFFFF);
        test::GuardedBuffer memory(bits.bytes());
        bitbuffer_t bb{memory.data(), 0, static_cast<unsigned>(bits.bits())};
        const auto record = test::filled_record(0);
        test::reset(3);
        parse_sps(&bb, record.get());
        EXPECT_EQ(record->chroma_format_idc, 0U);
        EXPECT_EQ(record->log2_max_frame_num_minus4, 1U);
        EXPECT_EQ(record->pic_order_cnt_type, 0U);
    }
}

TEST(Sps, ScalingListsByChromaFormat) {
    for (const std::uint64_t format : {0U, 1U, 2U, 3U, 4U, 9U}) {
        SpsSyntax sps;
        sps.profile_idc = 100;
        sps.chroma_format_idc = format;
        sps.seq_scaling_matrix_present_flag = true;
        for (std::size_t i = 0; i < 12; ++i) sps.scaling_list[i] = test::flat_list(i < 6 ? 16 : 64);
        const SyntaxScript script = sps.script();
        test::expect_read(script, script.bits().bits(), 7, 0xA5, read_sps);
        const auto record = record_of(sps, 0x11);
        EXPECT_EQ(record->scaling_list[7].seq_scaling_list_present_flag, 1);
        EXPECT_EQ(record->scaling_list[8].seq_scaling_list_present_flag, format == 3 ? 1 : 0x11111111);
        EXPECT_EQ(record->scaling_list[11].delta_scale[63], format == 3 ? 0 : 0x1111111111111111);
    }
}

TEST(Sps, ChromaArrayTypeFollowsTheFlagOfTheRecord) {
    SpsSyntax sps;
    sps.profile_idc = 244;
    sps.chroma_format_idc = 3;
    EXPECT_EQ(record_of(sps)->ChromaArrayType, 3U);
    sps.separate_colour_plane_flag = true;
    EXPECT_EQ(record_of(sps)->ChromaArrayType, 0U);
    EXPECT_EQ(record_of(sps)->chroma_format_idc, 3U);

    sps.chroma_format_idc = 1;
    EXPECT_EQ(record_of(sps)->ChromaArrayType, 1U);
    EXPECT_EQ(record_of(sps, 0x11)->ChromaArrayType, 0U) << "a flag left from an earlier parse";
    EXPECT_EQ(record_of(sps, 0x11)->separate_colour_plane_flag, 0x11111111);
}

TEST(Sps, OrderCountTypesAbove1HaveNoElements) {
    for (const std::uint64_t type : {2U, 3U, 7U, 4294967294U}) {
        SpsSyntax sps;
        sps.pic_order_cnt_type = type;
        const auto record = record_of(sps, 0x11);
        EXPECT_EQ(record->pic_order_cnt_type, type);
        EXPECT_EQ(record->log2_max_pic_order_cnt_lsb_minus4, 0x1111111111111111U);
        EXPECT_EQ(record->num_ref_frames_in_pic_order_cnt_cycle, 0x1111111111111111U);
        EXPECT_EQ(record->max_num_ref_frames, 1U);
    }
}

TEST(Sps, OffsetsBehindThe256thAreReadAndDropped) {
    for (const std::size_t count : {0U, 1U, 255U, 256U, 257U, 300U, 1000U}) {
        SpsSyntax sps;
        sps.pic_order_cnt_type = 1;
        for (std::size_t i = 0; i < count; ++i)
            sps.offset_for_ref_frame.push_back(static_cast<std::int64_t>(i) * (i % 2 == 0 ? 7 : -7) + 1);
        sps.max_num_ref_frames = 13;
        const SyntaxScript script = sps.script();
        test::expect_read(script, script.bits().bits(), 7, 0xA5, read_sps);
        const auto record = record_of(sps);
        EXPECT_EQ(record->num_ref_frames_in_pic_order_cnt_cycle, count);
        EXPECT_EQ(record->offset_for_ref_frame[255], count > 255 ? -7 * 255 + 1 : 0);
        EXPECT_EQ(record->max_num_ref_frames, 13U);
        EXPECT_EQ(record->pic_width_in_mbs_minus1, 44U);
    }
    SpsSyntax sps;
    sps.pic_order_cnt_type = 1;
    sps.offset_for_ref_frame.assign(300, -5);
    test::expect_reads_at_every_length(sps.script(), read_sps);
}

TEST(Sps, AHugeCountOfOffsetsFailsWhereTheBitsEnd) {
    test::BitWriter bits;
    bits.u(8, 77).u(8, 0).u(8, 30).ue(0).ue(0).ue(1).flag(false).se(0).se(0).ue(4294967294).se(9);
    test::GuardedBuffer memory(bits.bytes());
    bitbuffer_t bb{memory.data(), 0, static_cast<unsigned>(bits.bits())};
    const auto record = test::filled_record(0);
    test::reset(3);
    EXPECT_EQ(parse_sps(&bb, record.get()), -1);
    EXPECT_EQ(test::recorded_log(), (Log{{3, "parse_sps", "cannot parse offset_for_ref_frame[1]."}}));
    EXPECT_EQ(record->num_ref_frames_in_pic_order_cnt_cycle, 4294967294U);
    EXPECT_EQ(record->offset_for_ref_frame[0], 9);
}

// 32 leading zeros are one too many for ue(v), though enough bits follow.
TEST(Sps, ACodeThatIsTooLongFails) {
    test::BitWriter bits;
    bits.u(8, 77).u(8, 0).u(8, 30).u(32, 0).u(33, 1ULL << 32).u(64, 0xFFFFFFFFFFFFFFFF);
    test::GuardedBuffer memory(bits.bytes());
    bitbuffer_t bb{memory.data(), 0, static_cast<unsigned>(bits.bits())};
    const auto record = test::filled_record(0x11);
    test::reset(3);
    EXPECT_EQ(parse_sps(&bb, record.get()), -1);
    EXPECT_EQ(test::recorded_log(), (Log{{3, "parse_sps", "cannot parse seq_parameter_set_id."}}));
    EXPECT_EQ(record->level_idc, 30);
    EXPECT_EQ(record->seq_parameter_set_id, 0x1111111111111111U);
}

TEST(Sps, WithoutVuiTheOffsetsAreMinusOneFromTheStart) {
    const auto record = record_of(SpsSyntax{}, 0x11);
    EXPECT_EQ(record->vui.timing_info_offset, -1);
    EXPECT_EQ(record->vui.nal_hrd_parameters_present_offset, -1);
    EXPECT_EQ(record->vui.pic_struct_present_offset, 0x11111111);

    SpsSyntax sps;
    sps.vui_parameters_present_flag = true;
    EXPECT_EQ(record_of(sps, 0x11)->vui.timing_info_offset, -1);
    EXPECT_GT(record_of(sps, 0x11)->vui.nal_hrd_parameters_present_offset, 0);

    test::GuardedBuffer nothing(0);
    bitbuffer_t bb{nothing.data(), 0, 0};
    const auto untouched = test::filled_record(0x11);
    test::reset(3);
    EXPECT_EQ(parse_sps(&bb, untouched.get()), -1);
    EXPECT_EQ(untouched->vui.timing_info_offset, -1);
    EXPECT_EQ(untouched->vui.nal_hrd_parameters_present_offset, -1);
}

// A record that goes from parse to parse keeps what the later units do not carry.
TEST(Sps, RecordsAreNeverCleared) {
    const auto record = test::filled_record(0);
    const auto expected = test::filled_record(0);
    for (int round = 0; round < 2; ++round) {
        for (const test::SpsVariant& variant : test::sps_variants()) {
            SCOPED_TRACE(variant.name);
            const SyntaxScript script = variant.sps.script();
            test::ScriptBits bits(script, script.bits().bits());
            EXPECT_EQ(script.run(script.bits().bits(), bits.area(), *expected).result, 0);
            test::reset(3);
            EXPECT_EQ(parse_sps(&bits.bb(), record.get()), 0);
            ASSERT_EQ(test::difference(*record, *expected), "");
        }
    }
}

TEST(Sps, NothingIsCheckedBehindTheLastElement) {
    for (const unsigned tail : {0x00U, 0x80U, 0xFFU}) {
        test::BitWriter bits = SpsSyntax{}.script().bits();
        const std::size_t end = bits.bits();
        bits.u(8, tail);
        test::GuardedBuffer memory(bits.bytes());
        bitbuffer_t bb{memory.data(), 0, static_cast<unsigned>(bits.bits())};
        const auto record = test::filled_record(0);
        test::reset(7);
        EXPECT_EQ(parse_sps(&bb, record.get()), 0);
        EXPECT_EQ(bb.bit_offset, end);
    }
}

TEST(Sps, NullArgumentsAreAsserted) {
    const SyntaxScript script = SpsSyntax{}.script();
    test::ScriptBits bits(script, script.bits().bits());
    const auto record = test::filled_record(0);
    test::reset(3);
    EXPECT_EQ(parse_sps(nullptr, record.get()), -1);
    EXPECT_FALSE(test::assertions().empty());
    test::reset(3);
    EXPECT_EQ(parse_sps(&bits.bb(), nullptr), -1);
    EXPECT_FALSE(test::assertions().empty());
}

}  // namespace
