// slice_header(), ITU-T H.264 7.3.3.
#include "h264d/slice_header.h"

#include "h264d/syntax_reader.h"

int _parse_slice_type(bitbuffer_t* pNal_bb, const sps_t* sps, slice_header_t* pSh, PartialPayload* rest) {
    if (pNal_bb == nullptr || pSh == nullptr) {
        LOG(3, "pNal_bb:%p or sliceheader:%p are NULL this should not happen!", static_cast<void*>(pNal_bb),
            static_cast<void*>(pSh));
        return -1;
    }
    if (sps == nullptr) {
        LOG(3, "sps:%p is NULL this should not happen!", static_cast<const void*>(sps));
        return -1;
    }
    SyntaxReader in(pNal_bb, __func__, "Failed to parse", rest);
    if (!in.ue(pSh->first_mb_in_slice)) return -1;
    if (!in.ue(pSh->slice_type)) return -1;
    return 0;
}

int _parse_slice_header(bitbuffer_t* pNal_bb, const sps_t* sps, const pps_t* pps, BYTE NALType, BYTE nal_ref_idc,
                        slice_header_t* pSh, PartialPayload* rest) {
    DO_ASSERT(pNal_bb != NULL);
    DO_ASSERT(sps != NULL);
    DO_ASSERT(pps != NULL);
    DO_ASSERT(pSh != NULL);
    if (pNal_bb == nullptr || sps == nullptr || pps == nullptr || pSh == nullptr) return -1;
    SyntaxReader in(pNal_bb, __func__, "Failed to parse", rest);

    if (!in.ue(pSh->first_mb_in_slice, "first_mb_in_slice")) return -1;
    if (!in.ue(pSh->slice_type, "slice_type")) return -1;
    if (!in.ue(pSh->pic_parameter_set_id, "pic_parameter_set_id")) return -1;
    if (sps->separate_colour_plane_flag == 1) {
        if (!in.u(2, pSh->colour_plane_id, "colour_plane_id")) return -1;
    }
    pSh->frame_num_bitoffset = in.position();
    pSh->frame_num_bitlength = bit_length_from_log2_minus4(sps->log2_max_frame_num_minus4);
    if (!in.u(pSh->frame_num_bitlength, pSh->frame_num, sized("frame_num", pSh->frame_num_bitlength))) return -1;
    if (sps->frame_mbs_only_flag == 0) {
        if (!in.flag(pSh->field_pic_flag, "field_pic_flag")) return -1;
        if (pSh->field_pic_flag == 1) {
            if (!in.flag(pSh->bottom_field_flag, "bottom_field_flag")) return -1;
        }
    }
    if ((NALType & 31) == 5) {
        if (!in.ue(pSh->idr_pic_id, "idr_pic_id")) return -1;
        LOG(6, "NAL type is I-frame, idr_pic_id:%d", h264::low32s(pSh->idr_pic_id));
    }
    if (sps->pic_order_cnt_type == 0) {
        const unsigned int length = bit_length_from_log2_minus4(sps->log2_max_pic_order_cnt_lsb_minus4);
        if (!in.u(length, pSh->pic_order_cnt_lsb, sized("pic_order_cnt_lsb", length))) return -1;
        if (pps->bottom_field_pic_order_in_frame_present_flag && pSh->field_pic_flag == 0) {
            if (!in.se(pSh->delta_pic_order_cnt_bottom, "delta_pic_order_cnt_bottom")) return -1;
        }
    }
    if (sps->pic_order_cnt_type == 1 && sps->delta_pic_order_always_zero_flag == 0) {
        if (!in.se(pSh->delta_pic_order_cnt[0], indexed("delta_pic_order_cnt", 0))) return -1;
        if (pps->bottom_field_pic_order_in_frame_present_flag && pSh->field_pic_flag == 0) {
            if (!in.se(pSh->delta_pic_order_cnt[1], indexed("delta_pic_order_cnt", 1))) return -1;
        }
    }
    if (pps->redundant_pic_cnt_present_flag) {
        // Reported under the name of idr_pic_id. This is meant.
        if (!in.ue(pSh->redundant_pic_cnt, "idr_pic_id")) return -1;
    }
    if (is_b_slice(pSh->slice_type)) {
        if (!in.flag(pSh->direct_spatial_mv_pred_flag, "direct_spatial_mv_pred_flag")) return -1;
    }
    if (is_p_or_sp_slice(pSh->slice_type) || is_b_slice(pSh->slice_type)) {
        if (!in.flag(pSh->num_ref_idx_active_override_flag, "num_ref_idx_active_override_flag")) return -1;
        if (pSh->num_ref_idx_active_override_flag) {
            if (!in.ue(pSh->num_ref_idx_l0_active_minus1, "num_ref_idx_l0_active_minus1")) return -1;
            if (is_b_slice(pSh->slice_type)) {
                if (!in.ue(pSh->num_ref_idx_l1_active_minus1, "num_ref_idx_l1_active_minus1")) return -1;
            }
        }
    }
    if (NALType == 20 || NALType == 21) {
        LOG(3, "Failed to parse ref_pic_list_mvc_modification(). Not supported.");
        return -1;
    }
    pSh->rplm_bitoffset = in.position();
    if (_parse_ref_pic_list_modification(pNal_bb, pSh, rest) != 0) {
        LOG(3, "Failed to parse ref_pic_list_modification().");
        return -1;
    }
    if (has_pred_weight_table(*pps, pSh->slice_type)) {
        // The header is read on from wherever the table ended, also when it could not be read. This is meant.
        _parse_pred_weight_table(pNal_bb, sps->ChromaArrayType, pSh, rest);
    }
    if (nal_ref_idc != 0) {
        pSh->drpm_bitoffset = in.position();
        if (_parse_dec_ref_pic_marking(pNal_bb, NALType == 5 ? TRUE : FALSE, pSh, rest) != 0) {
            // Reported under the name of ref_pic_list_modification(). This is meant.
            LOG(3, "Failed to parse ref_pic_list_modification().");
            return -1;
        }
    } else {
        pSh->drpm_bitoffset = 0;
    }
    if (pps->entropy_coding_mode_flag && !is_i_or_si_slice(pSh->slice_type)) {
        if (!in.ue(pSh->cabac_init_idc, "cabac_init_idc")) return -1;
    }
    if (!in.se(pSh->slice_qp_delta, "slice_qp_delta")) return -1;
    if (is_sp_slice(pSh->slice_type)) {
        if (!in.flag(pSh->sp_for_switch_flag, "sp_for_switch_flag")) return -1;
    }
    if (is_sp_or_si_slice(pSh->slice_type)) {
        if (!in.se(pSh->slice_qs_delta, "slice_qs_delta")) return -1;
    }
    if (pps->deblocking_filter_control_present_flag) {
        if (!in.ue(pSh->disable_deblocking_filter_idc, "disable_deblocking_filter_idc")) return -1;
        if (pSh->disable_deblocking_filter_idc != 1) {
            if (!in.se(pSh->slice_alpha_c0_offset_div2, "slice_alpha_c0_offset_div2")) return -1;
            if (!in.se(pSh->slice_beta_offset_div2, "slice_beta_offset_div2")) return -1;
        }
    }
    if (pps->num_slice_groups_minus1 != 0 && pps->slice_group_map_type >= 3 && pps->slice_group_map_type <= 5) {
        // Slices of pictures with changing slice groups are refused. This is meant.
        LOG(3, "Failed to parse slice_group_change_cycle.");
        return -1;
    }
    pSh->slice_header_end_bitoffset = in.position();
    return 0;
}
