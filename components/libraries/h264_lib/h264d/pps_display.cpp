// Display of pic_parameter_set_rbsp(), ITU-T H.264 7.3.2.2.
#include "h264d/syntax_printer.h"

namespace {

// The largest picture of any level, in macroblocks (ITU-T H.264 Table A-1). More map units than that are not shown.
constexpr unsigned long kMaxMapUnits = 139264;

}  // namespace

void H264LIB_Display_pps(const sps_t* sps, const pps_t* pps) {
    DO_ASSERT(sps != NULL);
    DO_ASSERT(pps != NULL);
    if (sps == nullptr || pps == nullptr) return;
    const SyntaxPrinter out(6, __func__);

    out.u("picture_parameter_set_id", pps->picture_parameter_set_id);
    out.u("seq_parameter_set_id", pps->seq_parameter_set_id);
    out.d("entropy_coding_mode_flag", pps->entropy_coding_mode_flag);
    out.u("bottom_field_pic_order_in_frame_present_flag", pps->bottom_field_pic_order_in_frame_present_flag);
    out.u("num_slice_groups_minus1", pps->num_slice_groups_minus1);
    if (pps->num_slice_groups_minus1 != 0) {
        out.u("slice_group_map_type", pps->slice_group_map_type);
        if (pps->slice_group_map_type == 0) {
            const int groups = stored_entries_minus1(pps->num_slice_groups_minus1, MAX_SLICE_GROUPS);
            for (int i = 0; i < groups; ++i) out.u_at("run_length_minus1", i, pps->run_length_minus1[i]);
        } else if (pps->slice_group_map_type == 2) {
            const int groups = stored_entries(pps->num_slice_groups_minus1, MAX_SLICE_GROUPS);
            for (int i = 0; i < groups; ++i) {
                out.u_at("top_left", i, pps->top_left[i]);
                out.u_at("bottom_right", i, pps->bottom_right[i]);
            }
        } else if (pps->slice_group_map_type >= 3 && pps->slice_group_map_type <= 5) {
            out.u("slice_group_change_direction_flag", pps->slice_group_change_direction_flag);
            out.u("slice_group_change_rate_minus1", pps->slice_group_change_rate_minus1);
        } else if (pps->slice_group_map_type == 6) {
            out.u("pic_size_in_map_units_minus1", pps->pic_size_in_map_units_minus1);
            for (unsigned long i = 0; i <= pps->pic_size_in_map_units_minus1 && i < kMaxMapUnits; ++i) {
                // An id that the record does not hold is reported and shown as 0.
                const bool stored = i < MAX_SLICE_GROUP_IDS;
                if (!stored) LOG(3, "slice_group_id_index:%d is greater than array size.", MAX_SLICE_GROUP_IDS);
                out.u_at("slice_group_id", static_cast<int>(i), stored ? pps->slice_group_id[i] : 0);
            }
        }
    }
    out.u("num_ref_idx_l0_default_active_minus1", pps->num_ref_idx_l0_default_active_minus1);
    out.u("num_ref_idx_l1_default_active_minus1", pps->num_ref_idx_l1_default_active_minus1);
    out.u("weighted_pred_flag", pps->weighted_pred_flag);
    out.u("weighted_bipred_idc", pps->weighted_bipred_idc);
    out.d("pic_init_qp_minus26", pps->pic_init_qp_minus26);
    out.d("pic_init_qs_minus26", pps->pic_init_qs_minus26);
    out.d("chroma_qp_index_offset", pps->chroma_qp_index_offset);
    out.u("deblocking_filter_control_present_flag", pps->deblocking_filter_control_present_flag);
    out.u("constrained_intra_pred_flag", pps->constrained_intra_pred_flag);
    out.u("redundant_pic_cnt_present_flag", pps->redundant_pic_cnt_present_flag);
    out.u("transform_8x8_mode_flag", pps->transform_8x8_mode_flag);
    out.u("pic_scaling_matrix_present_flag", pps->pic_scaling_matrix_present_flag);
    if (!pps->pic_scaling_matrix_present_flag) return;
    const int num_lists = sps->chroma_format_idc == 3 ? 12 : 8;
    for (int i = 0; i < num_lists; ++i) {
        out.u_at("seq_scaling_list_present_flag", i, pps->scaling_list[i].seq_scaling_list_present_flag);
        // As in the parser, the sequence parameter set's flag tells whether there is a list.
        if (sps->scaling_list[i].seq_scaling_list_present_flag)
            _display_scalingList(&pps->scaling_list[i], i <= 5 ? SCALINGLIST_4X4_SIZE : SCALINGLIST_8X8_SIZE);
    }
    out.d("second_chroma_qp_index_offset", pps->second_chroma_qp_index_offset);
}
