// pic_parameter_set_rbsp(), ITU-T H.264 7.3.2.2.
#include "h264d/pps.h"

#include "h264d/syntax_reader.h"

int _parse_pps(bitbuffer_t* pps_nalu_bb, const sps_t* sps, pps_t* pps) {
    DO_ASSERT(pps_nalu_bb != NULL);
    DO_ASSERT(sps != NULL);
    DO_ASSERT(pps != NULL);
    if (pps_nalu_bb == nullptr || sps == nullptr || pps == nullptr) return -1;
    SyntaxReader in(pps_nalu_bb, __func__);

    if (!in.ue(pps->picture_parameter_set_id, "picture_parameter_set_id")) return -1;
    if (!in.ue(pps->seq_parameter_set_id, "seq_parameter_set_id")) return -1;
    if (!in.flag(pps->entropy_coding_mode_flag, "entropy_coding_mode_flag")) return -1;
    if (!in.flag(pps->bottom_field_pic_order_in_frame_present_flag, "bottom_field_pic_order_in_frame_present_flag"))
        return -1;
    if (!in.ue(pps->num_slice_groups_minus1, "num_slice_groups_minus1")) return -1;
    if (pps->num_slice_groups_minus1 != 0) {
        if (!in.ue(pps->slice_group_map_type, "slice_group_map_type")) return -1;
        if (pps->slice_group_map_type == 0) {
            for (unsigned long i = 0; i <= pps->num_slice_groups_minus1; ++i) {
                unsigned long dropped = 0;
                if (!in.ue(entry_or(pps->run_length_minus1, i, dropped), indexed("run_length_minus1", i))) return -1;
            }
        } else if (pps->slice_group_map_type == 2) {
            for (unsigned long i = 0; i < pps->num_slice_groups_minus1; ++i) {
                unsigned long dropped = 0;
                if (!in.ue(entry_or(pps->top_left, i, dropped), indexed("top_left", i))) return -1;
                if (!in.ue(entry_or(pps->bottom_right, i, dropped), indexed("bottom_right", i))) return -1;
            }
        } else if (pps->slice_group_map_type >= 3 && pps->slice_group_map_type <= 5) {
            if (!in.flag(pps->slice_group_change_direction_flag, "slice_group_change_direction_flag")) return -1;
            if (!in.ue(pps->slice_group_change_rate_minus1, "slice_group_change_rate_minus1")) return -1;
        } else if (pps->slice_group_map_type == 6) {
            if (!in.ue(pps->pic_size_in_map_units_minus1, "pic_size_in_map_units_minus1")) return -1;
            // The floor of the logarithm, where the standard has its ceiling. This is meant.
            const unsigned int slice_group_id_numbits =
                _FindNumberOfBitsToHoldInteger(static_cast<unsigned int>(pps->num_slice_groups_minus1 + 1));
            LOG(6, "slice_group_id_numbits:%d.", static_cast<int>(slice_group_id_numbits));
            for (unsigned long i = 0; i <= pps->pic_size_in_map_units_minus1; ++i) {
                if (i >= MAX_SLICE_GROUP_IDS) {
                    // The other ids stay unread, and the elements behind them are read from where they begin. This is
                    // meant.
                    LOG(3, "slice_group_id_index:%d is greater than array size.", MAX_SLICE_GROUP_IDS);
                    break;
                }
                // An end inside the ids is a success. This is meant.
                if (!in.u(slice_group_id_numbits, pps->slice_group_id[i], indexed("slice_group_id", i))) return 0;
            }
        }
    }
    if (!in.ue(pps->num_ref_idx_l0_default_active_minus1, "num_ref_idx_l0_default_active_minus1")) return -1;
    if (!in.ue(pps->num_ref_idx_l1_default_active_minus1, "num_ref_idx_l1_default_active_minus1")) return -1;
    if (!in.flag(pps->weighted_pred_flag, "weighted_pred_flag")) return -1;
    // An end inside weighted_bipred_idc is a success. This is meant.
    if (!in.u(2, pps->weighted_bipred_idc, "weighted_bipred_idc")) return 0;
    if (!in.se(pps->pic_init_qp_minus26, "pic_init_qp_minus26")) return -1;
    if (!in.se(pps->pic_init_qs_minus26, "pic_init_qs_minus26")) return -1;
    if (!in.se(pps->chroma_qp_index_offset, "chroma_qp_index_offset")) return -1;
    if (!in.flag(pps->deblocking_filter_control_present_flag, "deblocking_filter_control_present_flag")) return -1;
    if (!in.flag(pps->constrained_intra_pred_flag, "constrained_intra_pred_flag")) return -1;
    if (!in.flag(pps->redundant_pic_cnt_present_flag, "redundant_pic_cnt_present_flag")) return -1;

    // In the place of more_rbsp_data(): a stop bit that shares its byte with other bits is read as data. This is meant.
    if (pps_nalu_bb->bit_offset == pps_nalu_bb->num_bits) return 0;
    DisplayBitBufferInfo(pps_nalu_bb, "PPS");
    if (!in.flag(pps->transform_8x8_mode_flag, "transform_8x8_mode_flag")) return -1;
    if (!in.flag(pps->pic_scaling_matrix_present_flag, "pic_scaling_matrix_present_flag")) return -1;
    // Only a unit with a scaling matrix is read on. The standard has second_chroma_qp_index_offset in any case.
    if (!pps->pic_scaling_matrix_present_flag) return 0;
    // The number of lists does not depend on transform_8x8_mode_flag, and whether list i is there depends on the
    // sequence parameter set's flag, not on the one just read. Both are meant.
    const unsigned long num_lists = sps->chroma_format_idc == 3 ? 12 : 8;
    for (unsigned long i = 0; i < num_lists; ++i) {
        scaling_list_t* list = &pps->scaling_list[i];
        if (!in.flag(list->seq_scaling_list_present_flag, indexed("seq_scaling_list_present_flag for list", i)))
            return -1;
        if (sps->scaling_list[i].seq_scaling_list_present_flag &&
            _parse_scalingList(pps_nalu_bb, list, i <= 5 ? SCALINGLIST_4X4_SIZE : SCALINGLIST_8X8_SIZE) != 0) {
            LOG(3, "Scaling List[%d] parsing failed!", static_cast<int>(i));
            return -1;
        }
    }
    if (!in.se(pps->second_chroma_qp_index_offset, "second_chroma_qp_index_offset")) return -1;
    return 0;
}
