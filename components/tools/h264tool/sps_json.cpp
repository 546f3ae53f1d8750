#include "sps_json.h"

#include <cstdint>
#include <string>

#include "sps_properties.h"
#include "syntax_json.h"

namespace h264tool {
namespace {

using Json = nlohmann::ordered_json;

// hrd_parameters(), ITU-T H.264 E.1.2.
Json hrd_to_json(const hrd_t& hrd) {
    const std::uint64_t count = std::uint64_t{hrd.cpb_cnt_minus1} + 1;
    Json json;
    json["cpb_cnt_minus1"] = hrd.cpb_cnt_minus1;
    json["bit_rate_scale"] = hrd.bit_rate_scale;
    json["cpb_size_scale"] = hrd.cpb_size_scale;
    json["bit_rate_value_minus1"] = array_to_json(hrd.bit_rate_value_minus1, count);
    json["cpb_size_value_minus1"] = array_to_json(hrd.cpb_size_value_minus1, count);
    json["cbr_flag"] = array_to_json(hrd.cbr_flag, count);
    json["initial_cpb_removal_delay_length_minus1"] = hrd.initial_cpb_removal_delay_length_minus1;
    json["cpb_removal_delay_length_minus1"] = hrd.cpb_removal_delay_length_minus1;
    json["dpb_output_delay_length_minus1"] = hrd.dpb_output_delay_length_minus1;
    json["time_offset_length"] = hrd.time_offset_length;
    return json;
}

// vui_parameters(), ITU-T H.264 E.1.1.
Json vui_to_json(const vui_t& vui) {
    Json json;
    json["aspect_ratio_info_present_flag"] = vui.aspect_ratio_info_present_flag;
    if (vui.aspect_ratio_info_present_flag != 0) {
        json["aspect_ratio_idc"] = vui.aspect_ratio_idc;
        if (vui.aspect_ratio_idc == 255) {
            json["sar_width"] = vui.sar_width;
            json["sar_height"] = vui.sar_height;
        }
    }
    json["overscan_info_present_flag"] = vui.overscan_info_present_flag;
    if (vui.overscan_info_present_flag != 0) json["overscan_appropriate_flag"] = vui.overscan_appropriate_flag;
    json["video_signal_type_present_flag"] = vui.video_signal_type_present_flag;
    if (vui.video_signal_type_present_flag != 0) {
        json["video_format"] = vui.video_format;
        json["video_full_range_flag"] = vui.video_full_range_flag;
        json["colour_description_present_flag"] = vui.colour_description_present_flag;
        if (vui.colour_description_present_flag != 0) {
            json["colour_primaries"] = vui.colour_primaries;
            json["transfer_characteristics"] = vui.transfer_characteristics;
            json["matrix_coefficients"] = vui.matrix_coefficients;
        }
    }
    json["chroma_loc_info_present_flag"] = vui.chroma_loc_info_present_flag;
    if (vui.chroma_loc_info_present_flag != 0) {
        json["chroma_sample_loc_type_top_field"] = vui.chroma_sample_loc_type_top_field;
        json["chroma_sample_loc_type_bottom_field"] = vui.chroma_sample_loc_type_bottom_field;
    }
    json["timing_info_present_flag"] = vui.timing_info_present_flag;
    if (vui.timing_info_present_flag != 0) {
        json["num_units_in_tick"] = vui.num_units_in_tick;
        json["time_scale"] = vui.time_scale;
        json["fixed_frame_rate_flag"] = vui.fixed_frame_rate_flag;
    }
    json["nal_hrd_parameters_present_flag"] = vui.nal_hrd_parameters_present_flag;
    if (vui.nal_hrd_parameters_present_flag != 0) json["nal_hrd_parameters"] = hrd_to_json(vui.nal_hrd);
    json["vcl_hrd_parameters_present_flag"] = vui.vcl_hrd_parameters_present_flag;
    if (vui.vcl_hrd_parameters_present_flag != 0) json["vcl_hrd_parameters"] = hrd_to_json(vui.vcl_hrd);
    if (vui.nal_hrd_parameters_present_flag != 0 || vui.vcl_hrd_parameters_present_flag != 0)
        json["low_delay_hrd_flag"] = vui.low_delay_hrd_flag;
    json["pic_struct_present_flag"] = vui.pic_struct_present_flag;
    json["bitstream_restriction_flag"] = vui.bitstream_restriction_flag;
    if (vui.bitstream_restriction_flag != 0) {
        json["motion_vectors_over_pic_boundaries_flag"] = vui.motion_vectors_over_pic_boundaries_flag;
        json["max_bytes_per_pic_denom"] = vui.max_bytes_per_pic_denom;
        json["max_bits_per_mb_denom"] = vui.max_bits_per_mb_denom;
        json["log2_max_mv_length_horizontal"] = vui.log2_max_mv_length_horizontal;
        json["log2_max_mv_length_vertical"] = vui.log2_max_mv_length_vertical;
        json["num_reorder_frames"] = vui.num_reorder_frames;
        json["max_decoder_frame_buffering"] = vui.max_decoder_frame_buffering;
    }
    return json;
}

Json derived_to_json(const sps_t& sps) {
    Json json = Json::object();
    if (has_chroma_format(sps)) json["ChromaArrayType"] = sps.ChromaArrayType;
    if (const auto size = picture_size(sps)) {
        json["width"] = size->width;
        json["height"] = size->height;
    }
    if (sps.vui_parameters_present_flag != 0 && sps.vui.timing_info_present_flag != 0) json["MaxFPS"] = sps.vui.MaxFPS;
    return json;
}

// The elements from chroma_format_idc to the scaling lists.
void add_chroma_format(Json& json, const sps_t& sps) {
    json["chroma_format_idc"] = sps.chroma_format_idc;
    if (sps.chroma_format_idc == 3) json["separate_colour_plane_flag"] = sps.separate_colour_plane_flag;
    json["bit_depth_luma_minus8"] = sps.bit_depth_luma_minus8;
    json["bit_depth_chroma_minus8"] = sps.bit_depth_chroma_minus8;
    json["qpprime_y_zero_transform_bypass_flag"] = sps.qpprime_y_zero_transform_bypass_flag;
    json["seq_scaling_matrix_present_flag"] = sps.seq_scaling_matrix_present_flag;
    if (sps.seq_scaling_matrix_present_flag != 0)
        json["scaling_list"] = scaling_lists_to_json(sps.scaling_list, sps, "seq_scaling_list_present_flag");
}

void add_picture_order_count(Json& json, const sps_t& sps) {
    json["pic_order_cnt_type"] = sps.pic_order_cnt_type;
    if (sps.pic_order_cnt_type == 0) {
        json["log2_max_pic_order_cnt_lsb_minus4"] = sps.log2_max_pic_order_cnt_lsb_minus4;
    } else if (sps.pic_order_cnt_type == 1) {
        json["delta_pic_order_always_zero_flag"] = sps.delta_pic_order_always_zero_flag;
        json["offset_for_non_ref_pic"] = sps.offset_for_non_ref_pic;
        json["offset_for_top_to_bottom_field"] = sps.offset_for_top_to_bottom_field;
        json["num_ref_frames_in_pic_order_cnt_cycle"] = sps.num_ref_frames_in_pic_order_cnt_cycle;
        json["offset_for_ref_frame"] =
            array_to_json(sps.offset_for_ref_frame, sps.num_ref_frames_in_pic_order_cnt_cycle);
    }
}

}  // namespace

Json sps_to_json(const sps_t& sps) {
    Json json;
    json["profile_idc"] = sps.profile_idc;
    for (int i = 0; i < 6; ++i)
        json["constraint_set" + std::to_string(i) + "_flag"] = sps.constraint_flags >> (7 - i) & 1;
    json["reserved_zero_2bits"] = sps.constraint_flags & 3;
    json["level_idc"] = sps.level_idc;
    json["seq_parameter_set_id"] = sps.seq_parameter_set_id;
    if (has_chroma_format(sps)) add_chroma_format(json, sps);
    json["log2_max_frame_num_minus4"] = sps.log2_max_frame_num_minus4;
    add_picture_order_count(json, sps);
    json["max_num_ref_frames"] = sps.max_num_ref_frames;
    json["gaps_in_frame_num_value_allowed_flag"] = sps.gaps_in_frame_num_value_allowed_flag;
    json["pic_width_in_mbs_minus1"] = sps.pic_width_in_mbs_minus1;
    json["pic_height_in_map_units_minus1"] = sps.pic_height_in_map_units_minus1;
    json["frame_mbs_only_flag"] = sps.frame_mbs_only_flag;
    if (sps.frame_mbs_only_flag == 0) json["mb_adaptive_frame_field_flag"] = sps.mb_adaptive_frame_field_flag;
    json["direct_8x8_inference_flag"] = sps.direct_8x8_inference_flag;
    json["frame_cropping_flag"] = sps.frame_cropping_flag;
    if (sps.frame_cropping_flag != 0) {
        json["frame_crop_left_offset"] = sps.frame_crop_left_offset;
        json["frame_crop_right_offset"] = sps.frame_crop_right_offset;
        json["frame_crop_top_offset"] = sps.frame_crop_top_offset;
        json["frame_crop_bottom_offset"] = sps.frame_crop_bottom_offset;
    }
    json["vui_parameters_present_flag"] = sps.vui_parameters_present_flag;
    if (sps.vui_parameters_present_flag != 0) json["vui_parameters"] = vui_to_json(sps.vui);
    json["derived"] = derived_to_json(sps);
    return json;
}

}  // namespace h264tool
