#include "pps_json.h"

#include <cstdint>

#include "syntax_json.h"

namespace h264tool {
namespace {

using Json = nlohmann::ordered_json;

void add_slice_groups(Json& json, const Pps& set) {
    const pps_t& pps = set.pps;
    const std::uint64_t groups_minus1 = pps.num_slice_groups_minus1;
    json["slice_group_map_type"] = pps.slice_group_map_type;
    if (pps.slice_group_map_type == 0) {
        json["run_length_minus1"] = array_to_json(pps.run_length_minus1, groups_minus1 + 1);
    } else if (pps.slice_group_map_type == 2) {
        json["top_left"] = array_to_json(pps.top_left, groups_minus1);
        json["bottom_right"] = array_to_json(pps.bottom_right, groups_minus1);
    } else if (pps.slice_group_map_type >= 3 && pps.slice_group_map_type <= 5) {
        json["slice_group_change_direction_flag"] = pps.slice_group_change_direction_flag;
        json["slice_group_change_rate_minus1"] = pps.slice_group_change_rate_minus1;
    } else if (pps.slice_group_map_type == 6) {
        json["pic_size_in_map_units_minus1"] = pps.pic_size_in_map_units_minus1;
        json["slice_group_id"] = array_to_json(pps.slice_group_id, set.slice_group_ids);
    }
}

// The elements behind weighted_bipred_idc.
void add_rest(Json& json, const Pps& set, const sps_t& sps) {
    const pps_t& pps = set.pps;
    json["pic_init_qp_minus26"] = pps.pic_init_qp_minus26;
    json["pic_init_qs_minus26"] = pps.pic_init_qs_minus26;
    json["chroma_qp_index_offset"] = pps.chroma_qp_index_offset;
    json["deblocking_filter_control_present_flag"] = pps.deblocking_filter_control_present_flag;
    json["constrained_intra_pred_flag"] = pps.constrained_intra_pred_flag;
    json["redundant_pic_cnt_present_flag"] = pps.redundant_pic_cnt_present_flag;
    if (set.end != PpsEnd::kComplete) return;
    json["transform_8x8_mode_flag"] = pps.transform_8x8_mode_flag;
    json["pic_scaling_matrix_present_flag"] = pps.pic_scaling_matrix_present_flag;
    if (pps.pic_scaling_matrix_present_flag != 0) {
        json["scaling_list"] = scaling_lists_to_json(pps.scaling_list, sps, "pic_scaling_list_present_flag");
        json["second_chroma_qp_index_offset"] = pps.second_chroma_qp_index_offset;
    }
    if (set.stop_bit_is_element) json["derived"]["rbsp_stop_one_bit"] = "transform_8x8_mode_flag";
}

}  // namespace

Json pps_to_json(const Pps& set, const sps_t& sps) {
    const pps_t& pps = set.pps;
    Json json;
    json["pic_parameter_set_id"] = pps.picture_parameter_set_id;
    json["seq_parameter_set_id"] = pps.seq_parameter_set_id;
    json["entropy_coding_mode_flag"] = pps.entropy_coding_mode_flag;
    json["bottom_field_pic_order_in_frame_present_flag"] = pps.bottom_field_pic_order_in_frame_present_flag;
    json["num_slice_groups_minus1"] = pps.num_slice_groups_minus1;
    if (pps.num_slice_groups_minus1 != 0) add_slice_groups(json, set);
    if (set.end == PpsEnd::kInSliceGroupId) return json;
    json["num_ref_idx_l0_default_active_minus1"] = pps.num_ref_idx_l0_default_active_minus1;
    json["num_ref_idx_l1_default_active_minus1"] = pps.num_ref_idx_l1_default_active_minus1;
    json["weighted_pred_flag"] = pps.weighted_pred_flag;
    if (set.end == PpsEnd::kInWeightedBipredIdc) return json;
    json["weighted_bipred_idc"] = pps.weighted_bipred_idc;
    add_rest(json, set, sps);
    return json;
}

}  // namespace h264tool
