// Display of seq_parameter_set_data(), ITU-T H.264 7.3.2.1.1.
#include "h264d/syntax_printer.h"

// The profiles whose chroma format, bit depths and scaling lists are shown. Profile 128 is not among them although its
// elements are read; this is meant.
static bool shows_chroma_format(unsigned int profile_idc) {
    switch (profile_idc) {
        case 100:
        case 110:
        case 122:
        case 244:
        case 44:
        case 83:
        case 86:
        case 118:
            return true;
        default:
            return false;
    }
}

void H264LIB_Display_sps(const sps_t* sps) {
    DO_ASSERT(sps != NULL);
    if (sps == nullptr) return;
    const SyntaxPrinter out(5, __func__);

    LOG(5, "SPS structure:");
    LOG(5, "++++++++++++++++++");
    out.u("profile_idc", sps->profile_idc);
    out.d("constraint_set0_flags", sps->constraint_flags >> 7 & 1);
    out.d("constraint_set1_flags", sps->constraint_flags >> 6 & 1);
    out.d("constraint_set2_flags", sps->constraint_flags >> 5 & 1);
    out.d("constraint_set3_flags", sps->constraint_flags >> 4 & 1);
    out.d("constraint_set4_flags", sps->constraint_flags >> 3 & 1);
    out.d("constraint_set5_flags", sps->constraint_flags >> 2 & 1);
    out.d("reserved_zero_2bits", sps->constraint_flags & 3);
    out.u("level_idc", sps->level_idc);
    out.u("seq_parameter_set_id", sps->seq_parameter_set_id);
    if (shows_chroma_format(sps->profile_idc)) {
        out.u("chroma_format_idc", sps->chroma_format_idc);
        if (sps->chroma_format_idc == 3) out.d("separate_colour_plane_flag", sps->separate_colour_plane_flag);
        out.u("bit_depth_luma_minus8", sps->bit_depth_luma_minus8);
        out.u("bit_depth_chroma_minus8", sps->bit_depth_chroma_minus8);
        out.d("qpprime_y_zero_transform_bypass_flag", sps->qpprime_y_zero_transform_bypass_flag);
        out.d("seq_scaling_matrix_present_flag", sps->seq_scaling_matrix_present_flag);
        if (sps->seq_scaling_matrix_present_flag) {
            const int num_lists = sps->chroma_format_idc < 3 ? 8 : 12;
            for (int i = 0; i < num_lists; ++i) {
                const scaling_list_t& list = sps->scaling_list[i];
                out.d_at("seq_scaling_list_present_flag", i, list.seq_scaling_list_present_flag);
                if (list.seq_scaling_list_present_flag)
                    _display_scalingList(&list, i < 6 ? SCALINGLIST_4X4_SIZE : SCALINGLIST_8X8_SIZE);
            }
        }
    }
    out.u("log2_max_frame_num_minus4", sps->log2_max_frame_num_minus4);
    out.u("pic_order_cnt_type", sps->pic_order_cnt_type);
    if (sps->pic_order_cnt_type == 0) {
        out.u("log2_max_pic_order_cnt_lsb_minus4", sps->log2_max_pic_order_cnt_lsb_minus4);
    } else if (sps->pic_order_cnt_type == 1) {
        out.d("delta_pic_order_always_zero_flag", sps->delta_pic_order_always_zero_flag);
        out.d("offset_for_non_ref_pic", sps->offset_for_non_ref_pic);
        out.d("offset_for_top_to_bottom_field", sps->offset_for_top_to_bottom_field);
        out.u("num_ref_frames_in_pic_order_cnt_cycle", sps->num_ref_frames_in_pic_order_cnt_cycle);
        const int entries = stored_entries(sps->num_ref_frames_in_pic_order_cnt_cycle, MAX_REF_FRAMES_IN_POC_CYCLE);
        for (int i = 0; i < entries; ++i) out.d_at("offset_for_ref_frame", i, sps->offset_for_ref_frame[i]);
    }
    out.u("max_num_ref_frames", sps->max_num_ref_frames);
    out.d("gaps_in_frame_num_value_allowed_flag", sps->gaps_in_frame_num_value_allowed_flag);
    out.u("pic_width_in_mbs_minus1", sps->pic_width_in_mbs_minus1);
    out.u("pic_height_in_map_units_minus1", sps->pic_height_in_map_units_minus1);
    out.d("frame_mbs_only_flag", sps->frame_mbs_only_flag);
    if (!sps->frame_mbs_only_flag) out.d("mb_adaptive_frame_field_flag", sps->mb_adaptive_frame_field_flag);
    out.d("direct_8x8_inference_flag", sps->direct_8x8_inference_flag);
    out.d("frame_cropping_flag", sps->frame_cropping_flag);
    if (sps->frame_cropping_flag) {
        out.u("frame_crop_left_offset", sps->frame_crop_left_offset);
        out.u("frame_crop_right_offset", sps->frame_crop_right_offset);
        out.u("frame_crop_top_offset", sps->frame_crop_top_offset);
        out.u("frame_crop_bottom_offset", sps->frame_crop_bottom_offset);
    }
    out.d("vui_parameters_present_flag", sps->vui_parameters_present_flag);
    out.u("vui_parameters_present_offset", static_cast<unsigned int>(sps->vui_parameters_present_offset));
    if (sps->vui_parameters_present_flag) _display_vui(&sps->vui);
    LOG(5, "+++++++++++++++++++++++++++++");
}
