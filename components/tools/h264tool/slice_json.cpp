#include "slice_json.h"

#include <cstddef>
#include <vector>

#include "nal_types.h"

namespace h264tool {
namespace {

using Json = nlohmann::ordered_json;

void add_picture_order_count(Json& json, const slice_header_t& header, const sps_t& sps, const pps_t& pps) {
    const bool bottom = pps.bottom_field_pic_order_in_frame_present_flag != 0 && header.field_pic_flag == 0;
    if (sps.pic_order_cnt_type == 0) {
        json["pic_order_cnt_lsb"] = header.pic_order_cnt_lsb;
        if (bottom) json["delta_pic_order_cnt_bottom"] = header.delta_pic_order_cnt_bottom;
    } else if (sps.pic_order_cnt_type == 1 && sps.delta_pic_order_always_zero_flag == 0) {
        Json& deltas = json["delta_pic_order_cnt"] = {header.delta_pic_order_cnt[0]};
        if (bottom) deltas.push_back(header.delta_pic_order_cnt[1]);
    }
}

// ref_pic_list_modification(), ITU-T H.264 7.3.3.1. The values stand behind the flag of the last list that has any.
Json modification_to_json(const Slice& slice) {
    const ref_pic_list_modification_t& rplm = slice.header.rplm;
    const bool two_lists = slice_kind(slice.header.slice_type) == kSliceB;
    const bool in_l1 = two_lists && rplm.ref_pic_list_modification_flag_l1 != 0;
    Json json;
    const auto add_values = [&] {
        json["modification_of_pic_nums_idc"] = rplm.modification_of_pic_nums_idc;
        if (slice.has_abs_diff_pic_num_minus1) json["abs_diff_pic_num_minus1"] = rplm.abs_diff_pic_num_minus1;
        if (slice.has_long_term_pic_num) json["long_term_pic_num"] = rplm.long_term_pic_num;
    };
    json["ref_pic_list_modification_flag_l0"] = rplm.ref_pic_list_modification_flag_l0;
    if (rplm.ref_pic_list_modification_flag_l0 != 0 && !in_l1) add_values();
    if (two_lists) json["ref_pic_list_modification_flag_l1"] = rplm.ref_pic_list_modification_flag_l1;
    if (in_l1) add_values();
    return json;
}

Json weights_to_json(const long (&weights)[MAX_REF_IDX], const std::vector<bool>& transmitted) {
    Json json = Json::array();
    for (std::size_t i = 0; i < transmitted.size(); ++i)
        json.push_back(transmitted[i] ? Json(weights[i]) : Json(nullptr));
    return json;
}

// pred_weight_table(), ITU-T H.264 7.3.3.2.
Json weight_table_to_json(const Slice& slice, const sps_t& sps) {
    const pred_weight_table_t& pwt = slice.header.pwt;
    Json json;
    json["luma_log2_weight_denom"] = pwt.luma_log2_weight_denom;
    if (sps.ChromaArrayType != 0) json["chroma_log2_weight_denom"] = pwt.chroma_log2_weight_denom;
    json["luma_weight_l0_flag"] = pwt.luma_weight_l0_flag;
    json["luma_weight_l0"] = weights_to_json(pwt.luma_weight_l0, slice.has_luma_weight_l0);
    json["luma_offset_l0"] = weights_to_json(pwt.luma_offset_l0, slice.has_luma_weight_l0);
    if (sps.ChromaArrayType != 0) json["chroma_weight_l0_flag"] = pwt.chroma_weight_l0_flag;
    if (slice_kind(slice.header.slice_type) != kSliceB) return json;
    json["luma_weight_l1_flag"] = pwt.luma_weight_l1_flag;
    json["luma_weight_l1"] = weights_to_json(pwt.luma_weight_l1, slice.has_luma_weight_l1);
    json["luma_offset_l1"] = weights_to_json(pwt.luma_offset_l1, slice.has_luma_weight_l1);
    if (sps.ChromaArrayType != 0) json["chroma_weight_l1_flag"] = pwt.chroma_weight_l1_flag;
    return json;
}

// dec_ref_pic_marking(), ITU-T H.264 7.3.3.3.
Json marking_to_json(const dec_ref_pic_marking_t& drpm, bool idr) {
    Json json;
    if (idr) {
        json["no_output_of_prior_pics_flag"] = drpm.no_output_of_prior_pics_flag;
        json["long_term_reference_flag"] = drpm.long_term_reference_flag;
        return json;
    }
    json["adaptive_ref_pic_marking_mode_flag"] = drpm.adaptive_ref_pic_marking_mode_flag;
    if (drpm.adaptive_ref_pic_marking_mode_flag == 0) return json;
    Json& operations = json["memory_management_control_operation"] = Json::array();
    for (const adaptive_ref_pic_marking_mode_t& mode : drpm.arpmm) {
        const unsigned long operation = mode.memory_management_control_operation;
        Json entry;
        entry["memory_management_control_operation"] = operation;
        if (operation == 1 || operation == 3)
            entry["difference_of_pic_nums_minus1"] = mode.difference_of_pic_nums_minus1;
        if (operation == 2) entry["long_term_pic_num"] = mode.long_term_pic_num;
        if (operation == 3 || operation == 6) entry["long_term_frame_idx"] = mode.long_term_frame_idx;
        if (operation == 4) entry["max_long_term_frame_idx_plus1"] = mode.max_long_term_frame_idx_plus1;
        operations.push_back(std::move(entry));
        if (operation == 0) break;
    }
    return json;
}

void add_quantization_and_filter(Json& json, const slice_header_t& header, const pps_t& pps) {
    const SliceKind kind = slice_kind(header.slice_type);
    if (pps.entropy_coding_mode_flag != 0 && kind != kSliceI && kind != kSliceSI)
        json["cabac_init_idc"] = header.cabac_init_idc;
    json["slice_qp_delta"] = header.slice_qp_delta;
    if (kind == kSliceSP) json["sp_for_switch_flag"] = header.sp_for_switch_flag;
    if (kind == kSliceSP || kind == kSliceSI) json["slice_qs_delta"] = header.slice_qs_delta;
    if (pps.deblocking_filter_control_present_flag == 0) return;
    json["disable_deblocking_filter_idc"] = header.disable_deblocking_filter_idc;
    if (header.disable_deblocking_filter_idc == 1) return;
    json["slice_alpha_c0_offset_div2"] = header.slice_alpha_c0_offset_div2;
    json["slice_beta_offset_div2"] = header.slice_beta_offset_div2;
}

}  // namespace

Json slice_to_json(const Slice& slice, unsigned unit_type, unsigned ref_idc) {
    const slice_header_t& header = slice.header;
    const sps_t& sps = slice.beginning.sps->sps;
    const pps_t& pps = slice.beginning.pps->pps;
    const SliceKind kind = slice_kind(header.slice_type);
    const bool inter = kind != kSliceI && kind != kSliceSI;
    Json json;
    json["first_mb_in_slice"] = header.first_mb_in_slice;
    json["slice_type"] = header.slice_type;
    json["slice_type_name"] = slice_type_name(header.slice_type);
    json["pic_parameter_set_id"] = header.pic_parameter_set_id;
    if (sps.separate_colour_plane_flag != 0) json["colour_plane_id"] = header.colour_plane_id;
    json["frame_num"] = header.frame_num;
    if (sps.frame_mbs_only_flag == 0) json["field_pic_flag"] = header.field_pic_flag;
    if (header.field_pic_flag != 0) json["bottom_field_flag"] = header.bottom_field_flag;
    if (unit_type == kIdrSlice) json["idr_pic_id"] = header.idr_pic_id;
    add_picture_order_count(json, header, sps, pps);
    if (pps.redundant_pic_cnt_present_flag != 0) json["redundant_pic_cnt"] = header.redundant_pic_cnt;
    if (kind == kSliceB) json["direct_spatial_mv_pred_flag"] = header.direct_spatial_mv_pred_flag;
    if (inter) json["num_ref_idx_active_override_flag"] = header.num_ref_idx_active_override_flag;
    if (header.num_ref_idx_active_override_flag != 0) {
        json["num_ref_idx_l0_active_minus1"] = header.num_ref_idx_l0_active_minus1;
        if (kind == kSliceB) json["num_ref_idx_l1_active_minus1"] = header.num_ref_idx_l1_active_minus1;
    }
    if (inter) json["ref_pic_list_modification"] = modification_to_json(slice);
    if (has_pred_weight_table(slice.beginning.pps->pps, slice.header.slice_type))
        json["pred_weight_table"] = weight_table_to_json(slice, sps);
    if (ref_idc != 0) json["dec_ref_pic_marking"] = marking_to_json(header.drpm, unit_type == kIdrSlice);
    add_quantization_and_filter(json, header, pps);

    Json& derived = json["derived"];
    derived["frame_num_bitoffset"] = header.frame_num_bitoffset;
    derived["frame_num_bitlength"] = header.frame_num_bitlength;
    derived["ref_pic_list_modification_bitoffset"] = header.rplm_bitoffset;
    if (ref_idc != 0) derived["dec_ref_pic_marking_bitoffset"] = header.drpm_bitoffset;
    derived["slice_header_bits"] = header.slice_header_end_bitoffset;
    return json;
}

}  // namespace h264tool
