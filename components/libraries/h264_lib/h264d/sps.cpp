// seq_parameter_set_data(), ITU-T H.264 7.3.2.1.1.
#include "h264d/syntax_reader.h"

// Whether a profile transmits chroma format, bit depths and scaling matrices. Profiles 138, 139, 134 and 135 are not
// among them here and are read like Baseline; this is meant.
static bool has_chroma_format(unsigned int profile_idc) {
    switch (profile_idc) {
        case 100:
        case 110:
        case 122:
        case 244:
        case 44:
        case 83:
        case 86:
        case 118:
        case 128:
            return true;
        default:
            return false;
    }
}

int parse_sps(bitbuffer_t* sps_nalu_bb, sps_t* sps) {
    DO_ASSERT(sps_nalu_bb != NULL);
    DO_ASSERT(sps != NULL);
    if (sps_nalu_bb == nullptr || sps == nullptr) return -1;
    LOG(7, "Called.");
    SyntaxReader in(sps_nalu_bb, __func__);
    sps->vui.timing_info_offset = -1;
    sps->vui.nal_hrd_parameters_present_offset = -1;

    if (!in.u(8, sps->profile_idc, "profile_idc")) return -1;
    if (!in.u(8, sps->constraint_flags, "constraint_flags")) return -1;
    if (!in.u(8, sps->level_idc, "sps->level_idc")) return -1;
    if (!in.ue(sps->seq_parameter_set_id, "seq_parameter_set_id")) return -1;
    if (has_chroma_format(sps->profile_idc)) {
        if (!in.ue(sps->chroma_format_idc, "chroma_format_idc")) return -1;
        if (sps->chroma_format_idc == 3) {
            if (!in.flag(sps->separate_colour_plane_flag, "separate_colour_plane_flag")) return -1;
        }
        sps->ChromaArrayType = sps->separate_colour_plane_flag ? 0 : sps->chroma_format_idc;
        if (!in.ue(sps->bit_depth_luma_minus8, "bit_depth_luma_minus8")) return -1;
        if (!in.ue(sps->bit_depth_chroma_minus8, "bit_depth_chroma_minus8")) return -1;
        if (!in.flag(sps->qpprime_y_zero_transform_bypass_flag, "qpprime_y_zero_transform_bypass_flag")) return -1;
        if (!in.flag(sps->seq_scaling_matrix_present_flag, "seq_scaling_matrix_present_flag")) return -1;
        if (sps->seq_scaling_matrix_present_flag) {
            const unsigned long num_lists = sps->chroma_format_idc == 3 ? 12 : 8;
            for (unsigned long i = 0; i < num_lists; ++i) {
                scaling_list_t& list = sps->scaling_list[i];
                if (!in.flag(list.seq_scaling_list_present_flag, indexed("seq_scaling_list_present_flag for list", i)))
                    return -1;
                if (list.seq_scaling_list_present_flag &&
                    _parse_scalingList(sps_nalu_bb, &list, i < 6 ? SCALINGLIST_4X4_SIZE : SCALINGLIST_8X8_SIZE) != 0) {
                    LOG(3, "Scaling List[%d] parsing failed!", static_cast<int>(i));
                    return -1;
                }
            }
        }
    }
    LOG(7, "Half done.");
    if (!in.ue(sps->log2_max_frame_num_minus4, "log2_max_frame_num_minus4")) return -1;
    if (!in.ue(sps->pic_order_cnt_type, "pic_order_cnt_type")) return -1;
    if (sps->pic_order_cnt_type == 0) {
        DisplayBitBufferInfo(sps_nalu_bb, "Before log2_max_pic_order_cnt_lsb_minus4.");
        if (!in.ue(sps->log2_max_pic_order_cnt_lsb_minus4, "log2_max_pic_order_cnt_lsb_minus4")) return -1;
        DisplayBitBufferInfo(sps_nalu_bb, "After log2_max_pic_order_cnt_lsb_minus4.");
    } else if (sps->pic_order_cnt_type == 1) {
        if (!in.flag(sps->delta_pic_order_always_zero_flag, "delta_pic_order_always_zero_flag")) return -1;
        if (!in.se(sps->offset_for_non_ref_pic, "offset_for_non_ref_pic")) return -1;
        if (!in.se(sps->offset_for_top_to_bottom_field, "offset_for_top_to_bottom_field")) return -1;
        if (!in.ue(sps->num_ref_frames_in_pic_order_cnt_cycle, "num_ref_frames_in_pic_order_cnt_cycle")) return -1;
        for (unsigned long i = 0; i < sps->num_ref_frames_in_pic_order_cnt_cycle; ++i) {
            signed long dropped = 0;
            if (!in.se(entry_or(sps->offset_for_ref_frame, i, dropped), indexed("offset_for_ref_frame", i))) return -1;
        }
    }
    sps->max_num_ref_frames_bitoffset = in.position();
    if (!in.ue(sps->max_num_ref_frames, "max_num_ref_frames")) return -1;
    if (!in.flag(sps->gaps_in_frame_num_value_allowed_flag, "gaps_in_frame_num_value_allowed_flag")) return -1;
    if (!in.ue(sps->pic_width_in_mbs_minus1, "pic_width_in_mbs_minus1")) return -1;
    if (!in.ue(sps->pic_height_in_map_units_minus1, "pic_height_in_map_units_minus1")) return -1;
    sps->frame_mbs_only_flag_offset = in.position();
    if (!in.flag(sps->frame_mbs_only_flag, "frame_mbs_only_flag")) return -1;
    if (!sps->frame_mbs_only_flag) {
        if (!in.flag(sps->mb_adaptive_frame_field_flag, "mb_adaptive_frame_field_flag")) return -1;
    }
    LOG(7, "75 %% done.");
    if (!in.flag(sps->direct_8x8_inference_flag, "direct_8x8_inference_flag")) return -1;
    sps->frame_cropping_offset = in.position();
    if (!in.flag(sps->frame_cropping_flag, "frame_cropping_flag")) return -1;
    if (sps->frame_cropping_flag) {
        if (!in.ue(sps->frame_crop_left_offset, "frame_crop_left_offset")) return -1;
        if (!in.ue(sps->frame_crop_right_offset, "frame_crop_right_offset")) return -1;
        if (!in.ue(sps->frame_crop_top_offset, "frame_crop_top_offset")) return -1;
        if (!in.ue(sps->frame_crop_bottom_offset, "frame_crop_bottom_offset")) return -1;
    }
    sps->vui_parameters_present_offset = in.position();
    if (!in.flag(sps->vui_parameters_present_flag, "vui_parameters_present_flag")) return -1;
    int result = 0;
    if (sps->vui_parameters_present_flag) {
        result = _parse_vui(sps_nalu_bb, &sps->vui);
        if (result == -2) LOG(3, "cannot parse vui. Return code is -2.");
    }
    LOG(7, "Done.");
    return result;
}
