#include <gtest/gtest.h>

#include "h264d/h264d.h"
#include "sps_check.h"

namespace {

using test::Log;
using Lines = std::vector<std::string>;

// The lines printed at a level; each must come from the function and the level that lines of its kind belong to.
Lines displayed(const sps_t& sps, int level) {
    test::reset(level);
    H264LIB_Display_sps(&sps);
    EXPECT_EQ(test::assertions(), Lines{});
    Lines lines;
    for (const test::LogLine& line : test::recorded_log()) {
        EXPECT_EQ(line.file, "h264d.c") << line;
        const bool deep = line.func == "_display_hrd" || line.func == "_display_scalingList";
        EXPECT_TRUE(deep || line.func == "H264LIB_Display_sps" || line.func == "_display_vui") << line;
        EXPECT_EQ(line.level, deep ? 6 : 5) << line;
        lines.push_back(line.text);
    }
    return lines;
}

Lines functions_of(const Lines& starts) {
    Lines functions;
    for (const std::string& start : starts)
        for (const test::LogLine& line : test::recorded_log())
            if (line.text.rfind(start, 0) == 0) {
                functions.push_back(line.func);
                break;
            }
    return functions;
}

std::unique_ptr<sps_t> main_profile() {
    auto sps = test::filled_record(0);
    sps->profile_idc = 77;
    sps->constraint_flags = 0xA6;
    sps->level_idc = 30;
    sps->seq_parameter_set_id = 31;
    sps->log2_max_frame_num_minus4 = 11;
    sps->log2_max_pic_order_cnt_lsb_minus4 = 12;
    sps->max_num_ref_frames = 13;
    sps->gaps_in_frame_num_value_allowed_flag = 1;
    sps->pic_width_in_mbs_minus1 = 119;
    sps->pic_height_in_map_units_minus1 = 67;
    sps->frame_mbs_only_flag = 1;
    sps->mb_adaptive_frame_field_flag = 77;
    sps->direct_8x8_inference_flag = 1;
    sps->vui_parameters_present_offset = 99;
    return sps;
}

const Lines kHead = {"SPS structure:",
                     "++++++++++++++++++",
                     "profile_idc=77.",
                     "constraint_set0_flags=1.",
                     "constraint_set1_flags=0.",
                     "constraint_set2_flags=1.",
                     "constraint_set3_flags=0.",
                     "constraint_set4_flags=0.",
                     "constraint_set5_flags=1.",
                     "reserved_zero_2bits=2.",
                     "level_idc=30.",
                     "seq_parameter_set_id=31."};

Lines with_profile(const char* profile) {
    Lines head = kHead;
    head[2] = profile;
    return head;
}

Lines joined(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

const Lines kFrameNum = {"log2_max_frame_num_minus4=11."};
const Lines kOrderCount0 = {"pic_order_cnt_type=0.", "log2_max_pic_order_cnt_lsb_minus4=12."};
const Lines kSize = {"max_num_ref_frames=13.", "gaps_in_frame_num_value_allowed_flag=1.",
                     "pic_width_in_mbs_minus1=119.", "pic_height_in_map_units_minus1=67."};
const Lines kFrames = {"frame_mbs_only_flag=1.", "direct_8x8_inference_flag=1."};
const Lines kNoCropping = {"frame_cropping_flag=0."};
const Lines kNoVui = {"vui_parameters_present_flag=0.", "vui_parameters_present_offset=99."};
const Lines kVui = {"vui_parameters_present_flag=1.", "vui_parameters_present_offset=99."};
const Lines kEnd = {"+++++++++++++++++++++++++++++"};

TEST(SpsDisplay, MainProfile) {
    const auto sps = main_profile();
    const Lines expected = joined({kHead, kFrameNum, kOrderCount0, kSize, kFrames, kNoCropping, kNoVui, kEnd});
    for (const int level : {5, 6, 8}) EXPECT_EQ(displayed(*sps, level), expected);
    EXPECT_EQ(displayed(*sps, 4), Lines{});
    const test::WithoutHandle silent;
    EXPECT_EQ(displayed(*sps, 8), Lines{});
}

TEST(SpsDisplay, EachConstraintFlag) {
    const auto sps = main_profile();
    for (int bit = 0; bit < 8; ++bit) {
        sps->constraint_flags = static_cast<unsigned char>(1 << bit);
        const Lines lines = displayed(*sps, 5);
        for (int flag = 0; flag < 6; ++flag)
            EXPECT_EQ(lines[static_cast<std::size_t>(3 + flag)],
                      test::text("constraint_set%d_flags=%d.", flag, bit == 7 - flag ? 1 : 0));
        EXPECT_EQ(lines[9], test::text("reserved_zero_2bits=%d.", bit < 2 ? 1 << bit : 0));
    }
}

TEST(SpsDisplay, FieldsCroppingAndOrderCountType1) {
    const auto sps = main_profile();
    sps->pic_order_cnt_type = 1;
    sps->delta_pic_order_always_zero_flag = 1;
    sps->offset_for_non_ref_pic = -7;
    sps->offset_for_top_to_bottom_field = 8;
    sps->num_ref_frames_in_pic_order_cnt_cycle = 2;
    sps->offset_for_ref_frame[0] = -1000;
    sps->offset_for_ref_frame[1] = 2147483647;
    sps->frame_mbs_only_flag = 0;
    sps->mb_adaptive_frame_field_flag = 1;
    sps->frame_cropping_flag = 1;
    sps->frame_crop_left_offset = 1;
    sps->frame_crop_right_offset = 2;
    sps->frame_crop_top_offset = 3;
    sps->frame_crop_bottom_offset = 4;
    const Lines order_count = {"pic_order_cnt_type=1.",
                               "delta_pic_order_always_zero_flag=1.",
                               "offset_for_non_ref_pic=-7.",
                               "offset_for_top_to_bottom_field=8.",
                               "num_ref_frames_in_pic_order_cnt_cycle=2.",
                               "offset_for_ref_frame[0]=-1000.",
                               "offset_for_ref_frame[1]=2147483647."};
    const Lines picture = {"frame_mbs_only_flag=0.",       "mb_adaptive_frame_field_flag=1.",
                           "direct_8x8_inference_flag=1.", "frame_cropping_flag=1.",
                           "frame_crop_left_offset=1.",    "frame_crop_right_offset=2.",
                           "frame_crop_top_offset=3.",     "frame_crop_bottom_offset=4."};
    EXPECT_EQ(displayed(*sps, 5), joined({kHead, kFrameNum, order_count, kSize, picture, kNoVui, kEnd}));
}

TEST(SpsDisplay, OtherOrderCountTypes) {
    const auto sps = main_profile();
    sps->pic_order_cnt_type = 7;
    EXPECT_EQ(displayed(*sps, 5),
              joined({kHead, kFrameNum, {"pic_order_cnt_type=7."}, kSize, kFrames, kNoCropping, kNoVui, kEnd}));
}

TEST(SpsDisplay, OffsetsUpToTheCapacity) {
    const auto sps = main_profile();
    sps->pic_order_cnt_type = 1;
    for (const unsigned long count : {256UL, 300UL, ~0UL}) {
        sps->num_ref_frames_in_pic_order_cnt_cycle = count;
        sps->offset_for_ref_frame[255] = -3;
        const Lines lines = displayed(*sps, 5);
        ASSERT_EQ(lines.size(), 18U + 256 + 10);
        EXPECT_EQ(lines[17], test::text("num_ref_frames_in_pic_order_cnt_cycle=%u.", static_cast<unsigned>(count)));
        EXPECT_EQ(lines[18], "offset_for_ref_frame[0]=0.");
        EXPECT_EQ(lines[18 + 255], "offset_for_ref_frame[255]=-3.");
        EXPECT_EQ(lines[18 + 256], "max_num_ref_frames=13.");
    }
}

Lines chroma_lines(unsigned format) {
    Lines lines = {test::text("chroma_format_idc=%u.", format)};
    if (format == 3) lines.push_back("separate_colour_plane_flag=1.");
    lines.insert(lines.end(),
                 {"bit_depth_luma_minus8=2.", "bit_depth_chroma_minus8=4.", "qpprime_y_zero_transform_bypass_flag=1."});
    return lines;
}

std::unique_ptr<sps_t> high_profile(unsigned char profile, unsigned format) {
    auto sps = main_profile();
    sps->profile_idc = profile;
    sps->chroma_format_idc = format;
    sps->separate_colour_plane_flag = 1;
    sps->bit_depth_luma_minus8 = 2;
    sps->bit_depth_chroma_minus8 = 4;
    sps->qpprime_y_zero_transform_bypass_flag = 1;
    return sps;
}

TEST(SpsDisplay, ChromaIsPrintedForEveryHighProfileBut128) {
    for (int profile = 0; profile < 256; ++profile) {
        const auto sps = high_profile(static_cast<unsigned char>(profile), 1);
        bool high = false;
        for (const int with_chroma : {100, 110, 122, 244, 44, 83, 86, 118}) high = high || profile == with_chroma;
        const Lines chroma = high ? joined({chroma_lines(1), {"seq_scaling_matrix_present_flag=0."}}) : Lines{};
        ASSERT_EQ(displayed(*sps, 5), joined({with_profile(test::text("profile_idc=%d.", profile).c_str()), chroma,
                                              kFrameNum, kOrderCount0, kSize, kFrames, kNoCropping, kNoVui, kEnd}));
    }
}

TEST(SpsDisplay, Profile128PrintsNoScalingListsEither) {
    const auto sps = high_profile(128, 3);
    sps->seq_scaling_matrix_present_flag = 1;
    sps->scaling_list[0].seq_scaling_list_present_flag = 1;
    EXPECT_EQ(displayed(*sps, 8), joined({with_profile("profile_idc=128."), kFrameNum, kOrderCount0, kSize, kFrames,
                                          kNoCropping, kNoVui, kEnd}));
}

TEST(SpsDisplay, ScalingListsByChromaFormat) {
    for (const unsigned format : {0U, 1U, 2U, 3U, 4U, 100U}) {
        const auto sps = high_profile(244, format);
        sps->seq_scaling_matrix_present_flag = 1;
        for (const int i : {1, 5, 6, 7, 11}) {
            sps->scaling_list[i].seq_scaling_list_present_flag = 1;
            for (int j = 0; j < 64; ++j) sps->scaling_list[i].delta_scale[j] = 100 * i - j;
        }
        Lines flags;
        Lines flags_and_lists;
        for (int i = 0; i < (format < 3 ? 8 : 12); ++i) {
            const int present = sps->scaling_list[i].seq_scaling_list_present_flag;
            flags.push_back(test::text("seq_scaling_list_present_flag[%d]=%d.", i, present));
            flags_and_lists.push_back(flags.back());
            for (int j = 0; present != 0 && j < (i < 6 ? 16 : 64); ++j)
                flags_and_lists.push_back(test::text("delta_scale[%d]=%d.", j, 100 * i - j));
        }
        const Lines before =
            joined({with_profile("profile_idc=244."), chroma_lines(format), {"seq_scaling_matrix_present_flag=1."}});
        const Lines after = joined({kFrameNum, kOrderCount0, kSize, kFrames, kNoCropping, kNoVui, kEnd});
        EXPECT_EQ(displayed(*sps, 5), joined({before, flags, after}));
        EXPECT_EQ(displayed(*sps, 6), joined({before, flags_and_lists, after}));
    }
}

TEST(SpsDisplay, EmptyVui) {
    const auto sps = main_profile();
    sps->vui_parameters_present_flag = 1;
    sps->vui.nal_hrd_parameters_present_offset = -1;
    const Lines vui = {
        "aspect_ratio_info_present_flag=0.",  "overscan_info_present_flag=0.",
        "video_signal_type_present_flag=0.",  "chroma_loc_info_present_flag=0.",
        "timing_info_present_flag=0",         "MaxFPS=0",
        "nal_hrd_parameters_present_flag=0.", "vcl_hrd_parameters_present_flag=0, hrd_present_bitoffset:-1.",
        "CpbDpbDelaysPresentFlag=0.",         "pic_struct_present_flag=0.",
        "bitstream_restriction_flag=0."};
    EXPECT_EQ(displayed(*sps, 6),
              joined({kHead, kFrameNum, kOrderCount0, kSize, kFrames, kNoCropping, kVui, vui, kEnd}));
    EXPECT_EQ(functions_of({"profile_idc", "aspect", "vcl_hrd", "++"}),
              (Lines{"H264LIB_Display_sps", "_display_vui", "_display_vui", "H264LIB_Display_sps"}));
}

std::unique_ptr<sps_t> with_full_vui() {
    auto sps = main_profile();
    sps->vui_parameters_present_flag = 1;
    vui_t& vui = sps->vui;
    vui.aspect_ratio_info_present_flag = vui.overscan_info_present_flag = vui.video_signal_type_present_flag = 1;
    vui.colour_description_present_flag = vui.chroma_loc_info_present_flag = vui.timing_info_present_flag = 1;
    vui.nal_hrd_parameters_present_flag = vui.vcl_hrd_parameters_present_flag = vui.bitstream_restriction_flag = 1;
    vui.aspect_ratio_idc = 255;
    vui.sar_width = 65535;
    vui.sar_height = 2;
    vui.overscan_appropriate_flag = 1;
    vui.video_format = 5;
    vui.video_full_range_flag = 1;
    vui.colour_primaries = 9;
    vui.transfer_characteristics = 16;
    vui.matrix_coefficients = 255;
    vui.chroma_sample_loc_type_top_field = 4;
    vui.chroma_sample_loc_type_bottom_field = 5;
    vui.num_units_in_tick = 1001;
    vui.time_scale = 4294967295;
    vui.MaxFPS = -2;
    vui.fixed_frame_rate_flag = 1;
    vui.nal_hrd_parameters_present_offset = 321;
    vui.CpbDpbDelaysPresentFlag = 1;
    vui.low_delay_hrd_flag = 1;
    vui.pic_struct_present_flag = 1;
    vui.motion_vectors_over_pic_boundaries_flag = 1;
    vui.max_bytes_per_pic_denom = 2;
    vui.max_bits_per_mb_denom = 3;
    vui.log2_max_mv_length_horizontal = 14;
    vui.log2_max_mv_length_vertical = 15;
    vui.num_reorder_frames = 6;
    vui.max_decoder_frame_buffering = 7;
    vui.nal_hrd.time_offset_length = 24;
    vui.vcl_hrd.time_offset_length = 25;
    return sps;
}

Lines empty_hrd(const char* last) {
    return {"cpb_cnt_minus1=0.",
            "bit_rate_scale=0.",
            "cpb_size_scale=0.",
            "bit_rate_value_minus1[0]=0.",
            "cpb_size_value_minus1[0]=0.",
            "cbr_flag[0]=0.",
            "initial_cpb_removal_delay_length_minus1=0.",
            "cpb_removal_delay_length_minus1=0.",
            "dpb_output_delay_length_minus1=0.",
            last};
}

const Lines kVuiToNalHrd = {"aspect_ratio_info_present_flag=1.",
                            "aspect_ratio_idc=255.",
                            "sar_width=65535.",
                            "sar_height=2.",
                            "overscan_info_present_flag=1.",
                            "overscan_appropriate_flag=1.",
                            "video_signal_type_present_flag=1.",
                            "video_format=5.",
                            "video_full_range_flag=1.",
                            "colour_description_present_flag=1.",
                            "colour_primaries=9.",
                            "transfer_characteristics=16.",
                            "matrix_coefficients=255.",
                            "chroma_loc_info_present_flag=1.",
                            "chroma_sample_loc_type_top_field=4.",
                            "chroma_sample_loc_type_bottom_field=5.",
                            "timing_info_present_flag=1",
                            "num_units_in_tick=1001.",
                            "time_scale=4294967295.",
                            "fixed_frame_rate_flag=1.",
                            "MaxFPS=-2",
                            "nal_hrd_parameters_present_flag=1."};
const Lines kVclHrd = {"vcl_hrd_parameters_present_flag=1, hrd_present_bitoffset:321."};
const Lines kVuiFromDelays = {"CpbDpbDelaysPresentFlag=1.",
                              "low_delay_hrd_flag=1.",
                              "pic_struct_present_flag=1.",
                              "bitstream_restriction_flag=1.",
                              "motion_vectors_over_pic_boundaries_flag=1.",
                              "max_bytes_per_pic_denom=2.",
                              "max_bits_per_mb_denom=3.",
                              "log2_max_mv_length_horizontal=14.",
                              "log2_max_mv_length_vertical=15.",
                              "num_reorder_frames=6.",
                              "max_decoder_frame_buffering=7."};

TEST(SpsDisplay, FullVui) {
    const auto sps = with_full_vui();
    const Lines before = joined({kHead, kFrameNum, kOrderCount0, kSize, kFrames, kNoCropping, kVui});
    EXPECT_EQ(displayed(*sps, 5), joined({before, kVuiToNalHrd, kVclHrd, kVuiFromDelays, kEnd}));
    EXPECT_EQ(displayed(*sps, 6), joined({before, kVuiToNalHrd, empty_hrd("time_offset_length=24."), kVclHrd,
                                          empty_hrd("time_offset_length=25."), kVuiFromDelays, kEnd}));
    EXPECT_EQ(functions_of({"cpb_cnt_minus1", "time_offset_length"}), (Lines{"_display_hrd", "_display_hrd"}));
}

// The VUI lines that a change of the full record takes away.
Lines lost_by(const std::function<void(vui_t&)>& change) {
    const auto sps = with_full_vui();
    Lines before = displayed(*sps, 5);
    change(sps->vui);
    const Lines after = displayed(*sps, 5);
    Lines lost;
    std::size_t kept = 0;
    for (const std::string& line : before) {
        const std::string name = line.substr(0, line.find('='));
        if (kept < after.size() && after[kept].substr(0, after[kept].find('=')) == name)
            ++kept;
        else
            lost.push_back(name);
    }
    EXPECT_EQ(kept, after.size());
    return lost;
}

TEST(SpsDisplay, EachVuiConditionTakesItsLines) {
    EXPECT_EQ(lost_by([](vui_t& vui) { vui.aspect_ratio_info_present_flag = 0; }),
              (Lines{"aspect_ratio_idc", "sar_width", "sar_height"}));
    EXPECT_EQ(lost_by([](vui_t& vui) { vui.aspect_ratio_idc = 254; }), (Lines{"sar_width", "sar_height"}));
    EXPECT_EQ(lost_by([](vui_t& vui) { vui.overscan_info_present_flag = 0; }), (Lines{"overscan_appropriate_flag"}));
    EXPECT_EQ(lost_by([](vui_t& vui) { vui.video_signal_type_present_flag = 0; }),
              (Lines{"video_format", "video_full_range_flag", "colour_description_present_flag", "colour_primaries",
                     "transfer_characteristics", "matrix_coefficients"}));
    EXPECT_EQ(lost_by([](vui_t& vui) { vui.colour_description_present_flag = 0; }),
              (Lines{"colour_primaries", "transfer_characteristics", "matrix_coefficients"}));
    EXPECT_EQ(lost_by([](vui_t& vui) { vui.chroma_loc_info_present_flag = 0; }),
              (Lines{"chroma_sample_loc_type_top_field", "chroma_sample_loc_type_bottom_field"}));
    EXPECT_EQ(lost_by([](vui_t& vui) { vui.timing_info_present_flag = 0; }),
              (Lines{"num_units_in_tick", "time_scale", "fixed_frame_rate_flag"}));
    EXPECT_EQ(lost_by([](vui_t& vui) { vui.nal_hrd_parameters_present_flag = 0; }), Lines{});
    EXPECT_EQ(lost_by([](vui_t& vui) { vui.vcl_hrd_parameters_present_flag = 0; }), Lines{});
    EXPECT_EQ(
        lost_by([](vui_t& vui) { vui.nal_hrd_parameters_present_flag = vui.vcl_hrd_parameters_present_flag = 0; }),
        (Lines{"low_delay_hrd_flag"}));
    EXPECT_EQ(lost_by([](vui_t& vui) { vui.bitstream_restriction_flag = 0; }),
              (Lines{"motion_vectors_over_pic_boundaries_flag", "max_bytes_per_pic_denom", "max_bits_per_mb_denom",
                     "log2_max_mv_length_horizontal", "log2_max_mv_length_vertical", "num_reorder_frames",
                     "max_decoder_frame_buffering"}));
}

TEST(SpsDisplay, HugeValuesShowTheirLow32Bits) {
    const auto sps = main_profile();
    sps->seq_parameter_set_id = 0xABCDEF00FFFFFFFFUL;
    sps->pic_order_cnt_type = 1;
    sps->offset_for_non_ref_pic = 0x700000000L - 9;
    sps->num_ref_frames_in_pic_order_cnt_cycle = 0;
    sps->max_num_ref_frames = 1UL << 32;
    sps->vui_parameters_present_offset = -1;
    const Lines lines = displayed(*sps, 5);
    EXPECT_EQ(lines[11], "seq_parameter_set_id=4294967295.");
    EXPECT_EQ(lines[15], "offset_for_non_ref_pic=-9.");
    EXPECT_EQ(lines[18], "max_num_ref_frames=0.");
    EXPECT_EQ(lines[lines.size() - 2], "vui_parameters_present_offset=4294967295.");
}

TEST(SpsDisplay, ANullRecordIsAsserted) {
    test::reset(8);
    H264LIB_Display_sps(nullptr);
    EXPECT_FALSE(test::assertions().empty());
    EXPECT_EQ(test::recorded_log(), Log{});
}

}  // namespace
