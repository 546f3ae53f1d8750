#include "sps_variants.h"

namespace test {
namespace {

SpsSyntax main_frames() {
    SpsSyntax sps;
    sps.constraint_flags = 0x43;
    sps.seq_parameter_set_id = 5;
    sps.log2_max_frame_num_minus4 = 12;
    sps.max_num_ref_frames = 4;
    return sps;
}

SpsSyntax order_count_1() {
    SpsSyntax sps;
    sps.profile_idc = 88;
    sps.pic_order_cnt_type = 1;
    sps.delta_pic_order_always_zero_flag = true;
    sps.offset_for_non_ref_pic = -2147483647;
    sps.offset_for_top_to_bottom_field = 2147483647;
    sps.offset_for_ref_frame = {1, -1, 300};
    sps.gaps_in_frame_num_value_allowed_flag = true;
    return sps;
}

SpsSyntax order_count(unsigned type) {
    SpsSyntax sps;
    sps.profile_idc = 66;
    sps.pic_order_cnt_type = type;
    return sps;
}

SpsSyntax fields_with_cropping() {
    SpsSyntax sps = main_frames();
    sps.frame_mbs_only_flag = false;
    sps.mb_adaptive_frame_field_flag = true;
    sps.direct_8x8_inference_flag = false;
    sps.frame_cropping_flag = true;
    sps.frame_crop_left_offset = 1;
    sps.frame_crop_right_offset = 22;
    sps.frame_crop_top_offset = 333;
    sps.frame_crop_bottom_offset = 4;
    sps.pic_width_in_mbs_minus1 = 4294967294;
    return sps;
}

SpsSyntax high() {
    SpsSyntax sps = main_frames();
    sps.profile_idc = 100;
    sps.bit_depth_luma_minus8 = 2;
    sps.bit_depth_chroma_minus8 = 6;
    sps.qpprime_y_zero_transform_bypass_flag = true;
    return sps;
}

SpsSyntax high_with_lists() {
    SpsSyntax sps = high();
    sps.chroma_format_idc = 2;
    sps.seq_scaling_matrix_present_flag = true;
    sps.scaling_list[0] = flat_list(16);
    sps.scaling_list[2] = default_list();
    sps.scaling_list[5] = {true, {1, -2, 3, -10}};  // 9, 7, 10, then 0: the list ends
    sps.scaling_list[7] = flat_list(64);
    return sps;
}

SpsSyntax high_444_with_lists() {
    SpsSyntax sps = high();
    sps.profile_idc = 244;
    sps.chroma_format_idc = 3;
    sps.separate_colour_plane_flag = true;
    sps.seq_scaling_matrix_present_flag = true;
    for (std::size_t i = 0; i < 12; i += 3) sps.scaling_list[i] = default_list();
    sps.scaling_list[11] = flat_list(64);
    return sps;
}

SpsSyntax with_vui(const VuiSyntax& vui) {
    SpsSyntax sps = main_frames();
    sps.vui_parameters_present_flag = true;
    sps.vui = vui;
    return sps;
}

VuiSyntax some_vui() {
    VuiSyntax vui;
    vui.aspect_ratio_info_present_flag = true;
    vui.aspect_ratio_idc = 254;
    vui.video_signal_type_present_flag = true;
    vui.video_full_range_flag = true;
    vui.bitstream_restriction_flag = false;
    vui.pic_struct_present_flag = true;
    return vui;
}

VuiSyntax vui_with_nal_hrd() {
    VuiSyntax vui;
    vui.timing_info_present_flag = true;
    vui.num_units_in_tick = 1;
    vui.time_scale = 50;
    vui.nal_hrd_parameters_present_flag = true;
    vui.nal_hrd = full_hrd(1, 1000);
    return vui;
}

VuiSyntax vui_with_vcl_hrd() {
    VuiSyntax vui;
    vui.vcl_hrd_parameters_present_flag = true;
    vui.vcl_hrd = full_hrd(2, 70000);
    vui.low_delay_hrd_flag = true;
    return vui;
}

}  // namespace

HrdSyntax full_hrd(std::size_t schedules, unsigned first_value) {
    HrdSyntax hrd;
    hrd.bit_rate_scale = 4;
    hrd.cpb_size_scale = 15;
    hrd.schedules.clear();
    for (unsigned i = 0; i < schedules; ++i)
        hrd.schedules.push_back({first_value + 2 * i, first_value + 2 * i + 1, i % 2 == 0});
    hrd.initial_cpb_removal_delay_length_minus1 = 31;
    hrd.cpb_removal_delay_length_minus1 = 16;
    hrd.dpb_output_delay_length_minus1 = 5;
    hrd.time_offset_length = 24;
    return hrd;
}

VuiSyntax full_vui() {
    VuiSyntax vui;
    vui.aspect_ratio_info_present_flag = true;
    vui.aspect_ratio_idc = 255;
    vui.sar_width = 0x8123;
    vui.sar_height = 0x4567;
    vui.overscan_info_present_flag = true;
    vui.overscan_appropriate_flag = true;
    vui.video_signal_type_present_flag = true;
    vui.video_format = 2;
    vui.video_full_range_flag = true;
    vui.colour_description_present_flag = true;
    vui.colour_primaries = 0x81;
    vui.transfer_characteristics = 0x42;
    vui.matrix_coefficients = 0x24;
    vui.chroma_loc_info_present_flag = true;
    vui.chroma_sample_loc_type_top_field = 3;
    vui.chroma_sample_loc_type_bottom_field = 5;
    vui.timing_info_present_flag = true;
    vui.fixed_frame_rate_flag = true;
    vui.nal_hrd_parameters_present_flag = true;
    vui.nal_hrd = full_hrd(3, 100);
    vui.vcl_hrd_parameters_present_flag = true;
    vui.vcl_hrd = full_hrd(2, 200);
    vui.low_delay_hrd_flag = true;
    vui.pic_struct_present_flag = true;
    vui.bitstream_restriction_flag = true;
    vui.num_reorder_frames = 2;
    vui.max_decoder_frame_buffering = 4;
    return vui;
}

Bytes sps_unit_of_size(std::size_t behind_start_code, int start_code_length, unsigned level_idc) {
    SpsSyntax sps;
    sps.level_idc = level_idc;
    sps.pic_order_cnt_type = 1;
    const std::size_t size = behind_start_code + static_cast<std::size_t>(start_code_length);
    while (sps.unit(start_code_length).size() + 4 < size)
        sps.offset_for_ref_frame.push_back(sps.offset_for_ref_frame.size() % 2 == 0 ? 77 : -33);
    while (sps.unit(start_code_length).size() < size) sps.offset_for_ref_frame.push_back(0);
    return sps.unit(start_code_length);
}

const std::vector<SpsVariant>& sps_variants() {
    static const std::vector<SpsVariant> variants = {
        {"MainFrames", main_frames()},
        {"OrderCountType1", order_count_1()},
        {"OrderCountType2", order_count(2)},
        {"OrderCountType7", order_count(7)},
        {"FieldsWithCropping", fields_with_cropping()},
        {"High", high()},
        {"HighWithLists", high_with_lists()},
        {"High444WithLists", high_444_with_lists()},
        {"EmptyVui", with_vui({})},
        {"SomeVui", with_vui(some_vui())},
        {"VuiWithNalHrd", with_vui(vui_with_nal_hrd())},
        {"VuiWithVclHrd", with_vui(vui_with_vcl_hrd())},
        {"FullVui", with_vui(full_vui())},
    };
    return variants;
}

}  // namespace test
