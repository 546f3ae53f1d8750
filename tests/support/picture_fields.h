// The fields of the records of a picture parameter set and a slice header by name, to tell where two records differ.
#pragma once

#include <cstring>
#include <string>

#include "sps_fields.h"

namespace test {

template <typename T, std::size_t N>
void add_array(Fields& out, const std::string& name, const T (&array)[N]) {
    for (std::size_t i = 0; i < N; ++i) out.emplace_back(name + "[" + std::to_string(i) + "]", array[i]);
}

inline Fields fields(const pps_t& pps) {
    Fields out;
    const auto add = [&](const char* name, auto value) { out.emplace_back(name, value); };
    add("picture_parameter_set_id", pps.picture_parameter_set_id);
    add("seq_parameter_set_id", pps.seq_parameter_set_id);
    add("entropy_coding_mode_flag", pps.entropy_coding_mode_flag);
    add("bottom_field_pic_order_in_frame_present_flag", pps.bottom_field_pic_order_in_frame_present_flag);
    add("num_slice_groups_minus1", pps.num_slice_groups_minus1);
    add("slice_group_map_type", pps.slice_group_map_type);
    add_array(out, "run_length_minus1", pps.run_length_minus1);
    add_array(out, "top_left", pps.top_left);
    add_array(out, "bottom_right", pps.bottom_right);
    add("slice_group_change_direction_flag", pps.slice_group_change_direction_flag);
    add("slice_group_change_rate_minus1", pps.slice_group_change_rate_minus1);
    add("pic_size_in_map_units_minus1", pps.pic_size_in_map_units_minus1);
    add_array(out, "slice_group_id", pps.slice_group_id);
    add("num_ref_idx_l0_default_active_minus1", pps.num_ref_idx_l0_default_active_minus1);
    add("num_ref_idx_l1_default_active_minus1", pps.num_ref_idx_l1_default_active_minus1);
    add("weighted_pred_flag", pps.weighted_pred_flag);
    add("weighted_bipred_idc", pps.weighted_bipred_idc);
    add("pic_init_qp_minus26", pps.pic_init_qp_minus26);
    add("pic_init_qs_minus26", pps.pic_init_qs_minus26);
    add("chroma_qp_index_offset", pps.chroma_qp_index_offset);
    add("deblocking_filter_control_present_flag", pps.deblocking_filter_control_present_flag);
    add("constrained_intra_pred_flag", pps.constrained_intra_pred_flag);
    add("redundant_pic_cnt_present_flag", pps.redundant_pic_cnt_present_flag);
    add("transform_8x8_mode_flag", pps.transform_8x8_mode_flag);
    add("pic_scaling_matrix_present_flag", pps.pic_scaling_matrix_present_flag);
    for (std::size_t i = 0; i < MAX_SCALING_LISTS; ++i)
        add_fields(out, "scaling_list[" + std::to_string(i) + "].", pps.scaling_list[i]);
    add("second_chroma_qp_index_offset", pps.second_chroma_qp_index_offset);
    return out;
}

inline void add_fields(Fields& out, const pred_weight_table_t& pwt) {
    const auto add = [&](const char* name, auto value) { out.emplace_back(name, value); };
    const auto add_pairs = [&](const std::string& name, const long(&array)[MAX_REF_IDX][2]) {
        for (std::size_t i = 0; i < MAX_REF_IDX; ++i) add_array(out, name + "[" + std::to_string(i) + "]", array[i]);
    };
    add("luma_log2_weight_denom", pwt.luma_log2_weight_denom);
    add("chroma_log2_weight_denom", pwt.chroma_log2_weight_denom);
    add("luma_weight_l0_flag", pwt.luma_weight_l0_flag);
    add_array(out, "luma_weight_l0", pwt.luma_weight_l0);
    add_array(out, "luma_offset_l0", pwt.luma_offset_l0);
    add("chroma_weight_l0_flag", pwt.chroma_weight_l0_flag);
    add_pairs("chroma_weight_l0", pwt.chroma_weight_l0);
    add_pairs("chroma_offset_l0", pwt.chroma_offset_l0);
    add("luma_weight_l1_flag", pwt.luma_weight_l1_flag);
    add_array(out, "luma_weight_l1", pwt.luma_weight_l1);
    add_array(out, "luma_offset_l1", pwt.luma_offset_l1);
    add("chroma_weight_l1_flag", pwt.chroma_weight_l1_flag);
    add_pairs("chroma_weight_l1", pwt.chroma_weight_l1);
    add_pairs("chroma_offset_l1", pwt.chroma_offset_l1);
}

inline void add_fields(Fields& out, const dec_ref_pic_marking_t& drpm) {
    const auto add = [&](const std::string& name, auto value) { out.emplace_back(name, value); };
    add("no_output_of_prior_pics_flag", drpm.no_output_of_prior_pics_flag);
    add("long_term_reference_flag", drpm.long_term_reference_flag);
    add("adaptive_ref_pic_marking_mode_flag", drpm.adaptive_ref_pic_marking_mode_flag);
    for (std::size_t i = 0; i < MAX_MARKING_OPERATIONS; ++i) {
        const adaptive_ref_pic_marking_mode_t& mode = drpm.arpmm[i];
        const std::string path = "arpmm[" + std::to_string(i) + "].";
        add(path + "memory_management_control_operation", mode.memory_management_control_operation);
        add(path + "difference_of_pic_nums_minus1", mode.difference_of_pic_nums_minus1);
        add(path + "long_term_pic_num", mode.long_term_pic_num);
        add(path + "long_term_frame_idx", mode.long_term_frame_idx);
        add(path + "max_long_term_frame_idx_plus1", mode.max_long_term_frame_idx_plus1);
    }
}

inline Fields fields(const slice_header_t& sh) {
    Fields out;
    const auto add = [&](const char* name, auto value) { out.emplace_back(name, value); };
    add("first_mb_in_slice", sh.first_mb_in_slice);
    add("slice_type", sh.slice_type);
    add("pic_parameter_set_id", sh.pic_parameter_set_id);
    add("colour_plane_id", sh.colour_plane_id);
    add("frame_num_bitoffset", sh.frame_num_bitoffset);
    add("frame_num_bitlength", sh.frame_num_bitlength);
    add("frame_num", sh.frame_num);
    add("field_pic_flag", sh.field_pic_flag);
    add("bottom_field_flag", sh.bottom_field_flag);
    add("idr_pic_id", sh.idr_pic_id);
    add("pic_order_cnt_lsb", sh.pic_order_cnt_lsb);
    add("delta_pic_order_cnt_bottom", sh.delta_pic_order_cnt_bottom);
    add_array(out, "delta_pic_order_cnt", sh.delta_pic_order_cnt);
    add("redundant_pic_cnt", sh.redundant_pic_cnt);
    add("direct_spatial_mv_pred_flag", sh.direct_spatial_mv_pred_flag);
    add("num_ref_idx_active_override_flag", sh.num_ref_idx_active_override_flag);
    add("num_ref_idx_l0_active_minus1", sh.num_ref_idx_l0_active_minus1);
    add("num_ref_idx_l1_active_minus1", sh.num_ref_idx_l1_active_minus1);
    add("cabac_init_idc", sh.cabac_init_idc);
    add("slice_qp_delta", sh.slice_qp_delta);
    add("sp_for_switch_flag", sh.sp_for_switch_flag);
    add("slice_qs_delta", sh.slice_qs_delta);
    add("disable_deblocking_filter_idc", sh.disable_deblocking_filter_idc);
    add("slice_alpha_c0_offset_div2", sh.slice_alpha_c0_offset_div2);
    add("slice_beta_offset_div2", sh.slice_beta_offset_div2);
    add("slice_group_change_cycle", sh.slice_group_change_cycle);
    add("rplm_bitoffset", sh.rplm_bitoffset);
    add("ref_pic_list_modification_flag_l0", sh.rplm.ref_pic_list_modification_flag_l0);
    add("modification_of_pic_nums_idc", sh.rplm.modification_of_pic_nums_idc);
    add("abs_diff_pic_num_minus1", sh.rplm.abs_diff_pic_num_minus1);
    add("long_term_pic_num", sh.rplm.long_term_pic_num);
    add("ref_pic_list_modification_flag_l1", sh.rplm.ref_pic_list_modification_flag_l1);
    add_fields(out, sh.pwt);
    add("drpm_bitoffset", sh.drpm_bitoffset);
    add_fields(out, sh.drpm);
    add("slice_header_end_bitoffset", sh.slice_header_end_bitoffset);
    return out;
}

// Empty when the records are the same in every byte.
template <typename Record>
std::string difference(const Record& actual, const Record& expected) {
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
