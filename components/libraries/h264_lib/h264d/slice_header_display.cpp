// Display of slice_header() and its parts, ITU-T H.264 7.3.3.
#include "h264d/slice_header.h"

#include "h264d/syntax_printer.h"

// The record keeps the last entry of a list only. Any stored idc but 3 comes from a failed parse and ends the list too.
static void show_modification(const SyntaxPrinter& out, const ref_pic_list_modification_t& rplm) {
    out.u("modification_of_pic_nums_idc", rplm.modification_of_pic_nums_idc);
    if (rplm.modification_of_pic_nums_idc == 0 || rplm.modification_of_pic_nums_idc == 1)
        out.u("abs_diff_pic_num_minus1", rplm.abs_diff_pic_num_minus1);
    else if (rplm.modification_of_pic_nums_idc == 2)
        out.u("long_term_pic_num", rplm.long_term_pic_num);
}

void _display_ref_pic_list_modification(const slice_header_t* pSh) {
    DO_ASSERT(pSh != NULL);
    if (pSh == nullptr) return;
    const SyntaxPrinter out(6, __func__);
    const ref_pic_list_modification_t& rplm = pSh->rplm;
    const unsigned long slice_type = pSh->slice_type % 5;
    if (slice_type != 2 && slice_type < 4) {
        out.u("ref_pic_list_modification_flag_l0", rplm.ref_pic_list_modification_flag_l0);
        if (rplm.ref_pic_list_modification_flag_l0) show_modification(out, rplm);
    }
    if (slice_type == 1) {
        out.u("ref_pic_list_modification_flag_l1", rplm.ref_pic_list_modification_flag_l1);
        if (rplm.ref_pic_list_modification_flag_l1) show_modification(out, rplm);
    }
}

void _display_pred_weight_table(unsigned long ChromaArrayType, const slice_header_t* pSh) {
    const SyntaxPrinter out(6, __func__);
    const pred_weight_table_t& pwt = pSh->pwt;
    out.u("luma_log2_weight_denom", pwt.luma_log2_weight_denom);
    if (ChromaArrayType != 0) out.u("chroma_log2_weight_denom", pwt.chroma_log2_weight_denom);
    const int entries_l0 = stored_entries_minus1(pSh->num_ref_idx_l0_active_minus1, MAX_REF_IDX);
    for (int i = 0; i < entries_l0; ++i) {
        out.d("luma_weight_l0_flag", pwt.luma_weight_l0_flag);
        if (pwt.luma_weight_l0_flag) {
            out.d_at("luma_weight_l0", i, pwt.luma_weight_l0[i]);
            out.d_at("luma_offset_l0", i, pwt.luma_offset_l0[i]);
        }
        if (ChromaArrayType != 0) out.d("chroma_weight_l0_flag", pwt.chroma_weight_l0_flag);
    }
    if (pSh->slice_type % 5 != 1) return;
    const int entries_l1 = stored_entries_minus1(pSh->num_ref_idx_l1_active_minus1, MAX_REF_IDX);
    for (int i = 0; i < entries_l1; ++i) {
        out.d("luma_weight_l1_flag", pwt.luma_weight_l1_flag);
        if (pwt.luma_weight_l1_flag) {
            out.d_at("luma_weight_l1", i, pwt.luma_weight_l1[i]);
            out.d_at("luma_offset_l1", i, pwt.luma_offset_l1[i]);
        }
        if (ChromaArrayType != 0) out.u("chroma_weight_l1_flag", pwt.chroma_weight_l1_flag);
    }
}

void _display_dec_ref_pic_marking(BOOL IdrPicFlag, const slice_header_t* pSh) {
    const SyntaxPrinter out(6, __func__);
    const dec_ref_pic_marking_t& drpm = pSh->drpm;
    if (IdrPicFlag) {
        out.u("no_output_of_prior_pics_flag", drpm.no_output_of_prior_pics_flag);
        out.u("long_term_reference_flag", drpm.long_term_reference_flag);
        return;
    }
    out.u("adaptive_ref_pic_marking_mode_flag", drpm.adaptive_ref_pic_marking_mode_flag);
    if (!drpm.adaptive_ref_pic_marking_mode_flag) return;
    for (int i = 0; i < MAX_MARKING_OPERATIONS; ++i) {
        const adaptive_ref_pic_marking_mode_t& mode = drpm.arpmm[i];
        const unsigned long operation = mode.memory_management_control_operation;
        out.u_at("memory_management_control_operation", i, operation);
        if (operation == 1 || operation == 3)
            out.u_at("difference_of_pic_nums_minus1", i, mode.difference_of_pic_nums_minus1);
        if (operation == 2) out.u_at("long_term_pic_num", i, mode.long_term_pic_num);
        if (operation == 3 || operation == 6) out.u_at("long_term_frame_idx", i, mode.long_term_frame_idx);
        if (operation == 4) out.u_at("max_long_term_frame_idx_plus1", i, mode.max_long_term_frame_idx_plus1);
        if (operation == 0) break;
    }
}

void H264LIB_Display_slice_header(const sps_t* sps, const pps_t* pps, BYTE NALType, BYTE nal_ref_idc,
                                  const slice_header_t* pSh) {
    DO_ASSERT(sps != NULL);
    DO_ASSERT(pps != NULL);
    DO_ASSERT(pSh != NULL);
    if (sps == nullptr || pps == nullptr || pSh == nullptr) return;
    const SyntaxPrinter out(6, __func__);

    out.u("first_mb_in_slice", pSh->first_mb_in_slice);
    out.u("slice_type", pSh->slice_type);
    out.u("pic_parameter_set_id", pSh->pic_parameter_set_id);
    if (sps->separate_colour_plane_flag == 1) out.u("colour_plane_id", pSh->colour_plane_id);
    out.u("frame_num", pSh->frame_num);
    if (sps->frame_mbs_only_flag == 0) {
        out.u("field_pic_flag", pSh->field_pic_flag);
        if (pSh->field_pic_flag) out.u("bottom_field_flag", pSh->bottom_field_flag);
    }
    if ((NALType & 31) == 5) out.u("idr_pic_id", pSh->idr_pic_id);
    if (sps->pic_order_cnt_type == 0) {
        LOG(6, "pic_order_cnt_lsb=%u, bitlength:%d.", h264::low32(pSh->pic_order_cnt_lsb),
            h264::low32s(bit_length_from_log2_minus4(sps->log2_max_pic_order_cnt_lsb_minus4)));
        if (pps->bottom_field_pic_order_in_frame_present_flag && pSh->field_pic_flag == 0)
            out.d("delta_pic_order_cnt_bottom", pSh->delta_pic_order_cnt_bottom);
    }
    if (sps->pic_order_cnt_type == 1 && sps->delta_pic_order_always_zero_flag == 0) {
        out.d_at("delta_pic_order_cnt", 0, pSh->delta_pic_order_cnt[0]);
        if (pps->bottom_field_pic_order_in_frame_present_flag && pSh->field_pic_flag == 0)
            out.d_at("delta_pic_order_cnt", 1, pSh->delta_pic_order_cnt[1]);
    }
    if (pps->redundant_pic_cnt_present_flag) out.u("redundant_pic_cnt", pSh->redundant_pic_cnt);
    if (is_b_slice(pSh->slice_type)) out.d("direct_spatial_mv_pred_flag", pSh->direct_spatial_mv_pred_flag);
    if (is_p_or_sp_slice(pSh->slice_type) || is_b_slice(pSh->slice_type)) {
        out.d("num_ref_idx_active_override_flag", pSh->num_ref_idx_active_override_flag);
        if (pSh->num_ref_idx_active_override_flag) {
            out.u("num_ref_idx_l0_active_minus1", pSh->num_ref_idx_l0_active_minus1);
            if (is_b_slice(pSh->slice_type)) out.u("num_ref_idx_l1_active_minus1", pSh->num_ref_idx_l1_active_minus1);
        }
    }
    if (NALType == 20 || NALType == 21)
        LOG(3, "ref_pic_list_mvc_modification(). Not supported.");
    else
        _display_ref_pic_list_modification(pSh);
    if (has_pred_weight_table(*pps, pSh->slice_type)) _display_pred_weight_table(sps->ChromaArrayType, pSh);
    if (nal_ref_idc != 0) _display_dec_ref_pic_marking((NALType & 31) == 5 ? TRUE : FALSE, pSh);
    if (pps->entropy_coding_mode_flag && !is_i_or_si_slice(pSh->slice_type))
        out.u("cabac_init_idc", pSh->cabac_init_idc);
    out.d("slice_qp_delta", pSh->slice_qp_delta);
    if (is_sp_slice(pSh->slice_type)) out.d("sp_for_switch_flag", pSh->sp_for_switch_flag);
    if (is_sp_or_si_slice(pSh->slice_type)) out.d("slice_qs_delta", pSh->slice_qs_delta);
    if (pps->deblocking_filter_control_present_flag) {
        out.u("disable_deblocking_filter_idc", pSh->disable_deblocking_filter_idc);
        if (pSh->disable_deblocking_filter_idc != 1) {
            out.d("slice_alpha_c0_offset_div2", pSh->slice_alpha_c0_offset_div2);
            out.d("slice_beta_offset_div2", pSh->slice_beta_offset_div2);
        }
    }
    if (pps->num_slice_groups_minus1 != 0 && pps->slice_group_map_type >= 3 && pps->slice_group_map_type <= 5)
        LOG(3, "Slice group change cycle not supported.");
}
