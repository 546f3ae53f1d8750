// Display of vui_parameters() and hrd_parameters(), ITU-T H.264 E.1.1 and E.1.2.
#include "h264d/syntax_printer.h"

void _display_hrd(const hrd_t* hrd) {
    const SyntaxPrinter out(6, __func__);
    out.u("cpb_cnt_minus1", hrd->cpb_cnt_minus1);
    out.u("bit_rate_scale", hrd->bit_rate_scale);
    out.u("cpb_size_scale", hrd->cpb_size_scale);
    const int schedules = stored_entries_minus1(hrd->cpb_cnt_minus1, MAX_CPB_CNT);
    for (int SchedSelIdx = 0; SchedSelIdx < schedules; ++SchedSelIdx) {
        out.u_at("bit_rate_value_minus1", SchedSelIdx, hrd->bit_rate_value_minus1[SchedSelIdx]);
        out.u_at("cpb_size_value_minus1", SchedSelIdx, hrd->cpb_size_value_minus1[SchedSelIdx]);
        out.d_at("cbr_flag", SchedSelIdx, hrd->cbr_flag[SchedSelIdx]);
    }
    out.u("initial_cpb_removal_delay_length_minus1", hrd->initial_cpb_removal_delay_length_minus1);
    out.u("cpb_removal_delay_length_minus1", hrd->cpb_removal_delay_length_minus1);
    out.u("dpb_output_delay_length_minus1", hrd->dpb_output_delay_length_minus1);
    out.u("time_offset_length", hrd->time_offset_length);
}

void _display_vui(const vui_t* vui) {
    const SyntaxPrinter out(5, __func__);
    out.d("aspect_ratio_info_present_flag", vui->aspect_ratio_info_present_flag);
    if (vui->aspect_ratio_info_present_flag) {
        out.u("aspect_ratio_idc", vui->aspect_ratio_idc);
        if (vui->aspect_ratio_idc > 254) {  // Extended_SAR
            out.u("sar_width", vui->sar_width);
            out.u("sar_height", vui->sar_height);
        }
    }
    out.d("overscan_info_present_flag", vui->overscan_info_present_flag);
    if (vui->overscan_info_present_flag) out.d("overscan_appropriate_flag", vui->overscan_appropriate_flag);
    out.d("video_signal_type_present_flag", vui->video_signal_type_present_flag);
    if (vui->video_signal_type_present_flag) {
        out.u("video_format", vui->video_format);
        out.d("video_full_range_flag", vui->video_full_range_flag);
        out.d("colour_description_present_flag", vui->colour_description_present_flag);
        if (vui->colour_description_present_flag) {
            out.u("colour_primaries", vui->colour_primaries);
            out.u("transfer_characteristics", vui->transfer_characteristics);
            out.u("matrix_coefficients", vui->matrix_coefficients);
        }
    }
    out.d("chroma_loc_info_present_flag", vui->chroma_loc_info_present_flag);
    if (vui->chroma_loc_info_present_flag) {
        out.u("chroma_sample_loc_type_top_field", vui->chroma_sample_loc_type_top_field);
        out.u("chroma_sample_loc_type_bottom_field", vui->chroma_sample_loc_type_bottom_field);
    }
    // This line and that of MaxFPS have no full stop.
    LOG(5, "timing_info_present_flag=%d", vui->timing_info_present_flag);
    if (vui->timing_info_present_flag) {
        out.u("num_units_in_tick", vui->num_units_in_tick);
        out.u("time_scale", vui->time_scale);
        out.d("fixed_frame_rate_flag", vui->fixed_frame_rate_flag);
    }
    LOG(5, "MaxFPS=%d", vui->MaxFPS);
    out.d("nal_hrd_parameters_present_flag", vui->nal_hrd_parameters_present_flag);
    if (vui->nal_hrd_parameters_present_flag) _display_hrd(&vui->nal_hrd);
    LOG(5, "vcl_hrd_parameters_present_flag=%d, hrd_present_bitoffset:%d.", vui->vcl_hrd_parameters_present_flag,
        vui->nal_hrd_parameters_present_offset);
    if (vui->vcl_hrd_parameters_present_flag) _display_hrd(&vui->vcl_hrd);
    out.d("CpbDpbDelaysPresentFlag", vui->CpbDpbDelaysPresentFlag);
    if (vui->nal_hrd_parameters_present_flag || vui->vcl_hrd_parameters_present_flag)
        out.d("low_delay_hrd_flag", vui->low_delay_hrd_flag);
    out.d("pic_struct_present_flag", vui->pic_struct_present_flag);
    out.d("bitstream_restriction_flag", vui->bitstream_restriction_flag);
    if (vui->bitstream_restriction_flag) {
        out.d("motion_vectors_over_pic_boundaries_flag", vui->motion_vectors_over_pic_boundaries_flag);
        out.u("max_bytes_per_pic_denom", vui->max_bytes_per_pic_denom);
        out.u("max_bits_per_mb_denom", vui->max_bits_per_mb_denom);
        out.u("log2_max_mv_length_horizontal", vui->log2_max_mv_length_horizontal);
        out.u("log2_max_mv_length_vertical", vui->log2_max_mv_length_vertical);
        out.u("num_reorder_frames", vui->num_reorder_frames);
        out.u("max_decoder_frame_buffering", vui->max_decoder_frame_buffering);
    }
}
