// The fields of an SPS record by name, to tell where two records differ.
#pragma once

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "format_text.h"
#include "h264.h"

namespace test {

using Fields = std::vector<std::pair<std::string, long long>>;

inline void add_fields(Fields& out, const std::string& path, const scaling_list_t& sl) {
    out.emplace_back(path + "seq_scaling_list_present_flag", sl.seq_scaling_list_present_flag);
    for (std::size_t j = 0; j < SCALINGLIST_8X8_SIZE; ++j)
        out.emplace_back(path + text("delta_scale[%zu]", j), sl.delta_scale[j]);
}

inline void add_fields(Fields& out, const std::string& path, const hrd_t& hrd) {
    const auto add = [&](const std::string& name, auto value) { out.emplace_back(path + name, value); };
    add("cpb_cnt_minus1", hrd.cpb_cnt_minus1);
    add("bit_rate_scale", hrd.bit_rate_scale);
    add("cpb_size_scale", hrd.cpb_size_scale);
    for (std::size_t i = 0; i < MAX_CPB_CNT; ++i) {
        add(text("bit_rate_value_minus1[%zu]", i), hrd.bit_rate_value_minus1[i]);
        add(text("cpb_size_value_minus1[%zu]", i), hrd.cpb_size_value_minus1[i]);
        add(text("cbr_flag[%zu]", i), hrd.cbr_flag[i]);
    }
    add("initial_cpb_removal_delay_length_minus1", hrd.initial_cpb_removal_delay_length_minus1);
    add("cpb_removal_delay_length_minus1", hrd.cpb_removal_delay_length_minus1);
    add("dpb_output_delay_length_minus1", hrd.dpb_output_delay_length_minus1);
    add("time_offset_length", hrd.time_offset_length);
}

inline void add_fields(Fields& out, const std::string& path, const vui_t& vui) {
    const auto add = [&](const char* name, auto value) { out.emplace_back(path + name, value); };
    add("aspect_ratio_info_present_flag", vui.aspect_ratio_info_present_flag);
    add("aspect_ratio_idc", vui.aspect_ratio_idc);
    add("sar_width", vui.sar_width);
    add("sar_height", vui.sar_height);
    add("overscan_info_present_flag", vui.overscan_info_present_flag);
    add("overscan_appropriate_flag", vui.overscan_appropriate_flag);
    add("video_signal_type_present_flag", vui.video_signal_type_present_flag);
    add("video_format", vui.video_format);
    add("video_full_range_flag", vui.video_full_range_flag);
    add("colour_description_present_flag", vui.colour_description_present_flag);
    add("colour_primaries", vui.colour_primaries);
    add("transfer_characteristics", vui.transfer_characteristics);
    add("matrix_coefficients", vui.matrix_coefficients);
    add("chroma_loc_info_present_flag", vui.chroma_loc_info_present_flag);
    add("chroma_sample_loc_type_top_field", vui.chroma_sample_loc_type_top_field);
    add("chroma_sample_loc_type_bottom_field", vui.chroma_sample_loc_type_bottom_field);
    add("timing_info_present_flag", vui.timing_info_present_flag);
    add("timing_info_offset", vui.timing_info_offset);
    add("num_units_in_tick", vui.num_units_in_tick);
    add("time_scale", vui.time_scale);
    add("MaxFPS", vui.MaxFPS);
    add("MaxFPSminus1", vui.MaxFPSminus1);
    add("fixed_frame_rate_flag", vui.fixed_frame_rate_flag);
    add("nal_hrd_parameters_present_offset", vui.nal_hrd_parameters_present_offset);
    add("nal_hrd_parameters_present_flag", vui.nal_hrd_parameters_present_flag);
    add_fields(out, path + "nal_hrd.", vui.nal_hrd);
    add("vcl_hrd_parameters_present_flag", vui.vcl_hrd_parameters_present_flag);
    add_fields(out, path + "vcl_hrd.", vui.vcl_hrd);
    add("CpbDpbDelaysPresentFlag", vui.CpbDpbDelaysPresentFlag);
    add("low_delay_hrd_flag", vui.low_delay_hrd_flag);
    add("pic_struct_present_flag", vui.pic_struct_present_flag);
    add("pic_struct_present_offset", vui.pic_struct_present_offset);
    add("bitstream_restriction_flag", vui.bitstream_restriction_flag);
    add("motion_vectors_over_pic_boundaries_flag", vui.motion_vectors_over_pic_boundaries_flag);
    add("max_bytes_per_pic_denom", vui.max_bytes_per_pic_denom);
    add("max_bits_per_mb_denom", vui.max_bits_per_mb_denom);
    add("log2_max_mv_length_horizontal", vui.log2_max_mv_length_horizontal);
    add("log2_max_mv_length_vertical", vui.log2_max_mv_length_vertical);
    add("num_reorder_frames", vui.num_reorder_frames);
    add("max_decoder_frame_buffering", vui.max_decoder_frame_buffering);
}

inline Fields fields(const sps_t& sps) {
    Fields out;
    const auto add = [&](const char* name, auto value) { out.emplace_back(name, value); };
    add("profile_idc", sps.profile_idc);
    add("constraint_flags", sps.constraint_flags);
    add("level_idc", sps.level_idc);
    add("seq_parameter_set_id", sps.seq_parameter_set_id);
    add("chroma_format_idc", sps.chroma_format_idc);
    add("ChromaArrayType", sps.ChromaArrayType);
    add("separate_colour_plane_flag", sps.separate_colour_plane_flag);
    add("bit_depth_luma_minus8", sps.bit_depth_luma_minus8);
    add("bit_depth_chroma_minus8", sps.bit_depth_chroma_minus8);
    add("qpprime_y_zero_transform_bypass_flag", sps.qpprime_y_zero_transform_bypass_flag);
    add("seq_scaling_matrix_present_flag", sps.seq_scaling_matrix_present_flag);
    for (std::size_t i = 0; i < MAX_SCALING_LISTS; ++i)
        add_fields(out, text("scaling_list[%zu].", i), sps.scaling_list[i]);
    add("log2_max_frame_num_minus4", sps.log2_max_frame_num_minus4);
    add("pic_order_cnt_type", sps.pic_order_cnt_type);
    add("log2_max_pic_order_cnt_lsb_minus4", sps.log2_max_pic_order_cnt_lsb_minus4);
    add("delta_pic_order_always_zero_flag", sps.delta_pic_order_always_zero_flag);
    add("offset_for_non_ref_pic", sps.offset_for_non_ref_pic);
    add("offset_for_top_to_bottom_field", sps.offset_for_top_to_bottom_field);
    add("num_ref_frames_in_pic_order_cnt_cycle", sps.num_ref_frames_in_pic_order_cnt_cycle);
    for (std::size_t i = 0; i < MAX_REF_FRAMES_IN_POC_CYCLE; ++i)
        out.emplace_back(text("offset_for_ref_frame[%zu]", i), sps.offset_for_ref_frame[i]);
    add("max_num_ref_frames_bitoffset", sps.max_num_ref_frames_bitoffset);
    add("max_num_ref_frames", sps.max_num_ref_frames);
    add("gaps_in_frame_num_value_allowed_flag", sps.gaps_in_frame_num_value_allowed_flag);
    add("pic_width_in_mbs_minus1", sps.pic_width_in_mbs_minus1);
    add("pic_height_in_map_units_minus1", sps.pic_height_in_map_units_minus1);
    add("frame_mbs_only_flag", sps.frame_mbs_only_flag);
    add("frame_mbs_only_flag_offset", sps.frame_mbs_only_flag_offset);
    add("mb_adaptive_frame_field_flag", sps.mb_adaptive_frame_field_flag);
    add("direct_8x8_inference_flag", sps.direct_8x8_inference_flag);
    add("frame_cropping_flag", sps.frame_cropping_flag);
    add("frame_cropping_offset", sps.frame_cropping_offset);
    add("frame_crop_left_offset", sps.frame_crop_left_offset);
    add("frame_crop_right_offset", sps.frame_crop_right_offset);
    add("frame_crop_top_offset", sps.frame_crop_top_offset);
    add("frame_crop_bottom_offset", sps.frame_crop_bottom_offset);
    add("vui_parameters_present_flag", sps.vui_parameters_present_flag);
    add("vui_parameters_present_offset", sps.vui_parameters_present_offset);
    add_fields(out, "vui.", sps.vui);
    return out;
}

// Empty when the records are the same in every byte.
inline std::string difference(const sps_t& actual, const sps_t& expected) {
    if (std::memcmp(&actual, &expected, sizeof actual) == 0) return "";
    const Fields got = fields(actual);
    const Fields wanted = fields(expected);
    std::string differences;
    int found = 0;
    for (std::size_t i = 0; i < got.size(); ++i) {
        if (got[i] == wanted[i] || ++found > 5) continue;
        differences += got[i].first + " is " + std::to_string(got[i].second) + ", expected " +
                       std::to_string(wanted[i].second) + "; ";
    }
    return found == 0 ? "the bytes between the fields differ" : differences;
}

}  // namespace test
