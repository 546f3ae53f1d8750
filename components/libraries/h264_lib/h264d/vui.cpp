// vui_parameters() and hrd_parameters(), ITU-T H.264 E.1.1 and E.1.2.
#include <cstdint>
#include <ctime>

#include "h264d/syntax_reader.h"
#include "throttle.h"

namespace {

constexpr std::time_t kTimescaleWarningPeriod = 10;  // seconds between two warnings

h264::Throttle timescale_warning;

}  // namespace

BOOL getMAXFPSForVUI(unsigned long VUI_Timescale, unsigned long VUI_NumUnitsInTicks, int* MAXFPS) {
    if (MAXFPS == nullptr) {
        LOG(3, "MAXFPS:%p is NULL!", static_cast<void*>(MAXFPS));
        return FALSE;
    }
    unsigned long timescale = VUI_Timescale;
    unsigned long num_ticks = VUI_NumUnitsInTicks;
    if (timescale > 999 && num_ticks > 999) {
        LOG(7, "About to divide by 1000 both timescale and num_unit_in_ticks.");
        timescale /= 1000;
        num_ticks /= 1000;
    }
    if (num_ticks == 0) num_ticks = 1;
    // Two ticks a frame.
    *MAXFPS = static_cast<int>(timescale / num_ticks) / 2;
    LOG(7, "Returning MAXFPS:%d for Timescale:%d, NumTicks:%d", *MAXFPS, h264::low32s(timescale),
        h264::low32s(num_ticks));
    return TRUE;
}

int _parse_hrd(bitbuffer_t* hrd_bb, hrd_t* hrd) {
    LOG(7, "Called.");
    SyntaxReader in(hrd_bb, __func__);
    if (!in.ue(hrd->cpb_cnt_minus1, "cpb_cnt_minus1")) return -1;
    LOG(7, "cpb_cnt_minus1:%d.", h264::low32s(hrd->cpb_cnt_minus1));
    DisplayBitBufferInfo(hrd_bb, "hrd after cpb_cnt_minus1");
    if (!in.u(4, hrd->bit_rate_scale, "bit_rate_scale")) return -1;
    if (!in.u(4, hrd->cpb_size_scale, "cpb_size_scale")) return -1;
    for (unsigned long SchedSelIdx = 0; SchedSelIdx <= hrd->cpb_cnt_minus1; ++SchedSelIdx) {
        unsigned long dropped = 0;
        int dropped_flag = 0;

        unsigned long& bit_rate_value_minus1 = entry_or(hrd->bit_rate_value_minus1, SchedSelIdx, dropped);
        if (!in.ue(bit_rate_value_minus1, indexed("bit_rate_value_minus1", SchedSelIdx))) return -1;
        LOG(7, "bit_rate_value_minus1[%d]:%d.", h264::low32s(SchedSelIdx), h264::low32s(bit_rate_value_minus1));

        unsigned long& cpb_size_value_minus1 = entry_or(hrd->cpb_size_value_minus1, SchedSelIdx, dropped);
        if (!in.ue(cpb_size_value_minus1, indexed("cpb_size_value_minus1", SchedSelIdx))) return -1;
        LOG(7, "cpb_size_value_minus1[%d]:%d.", h264::low32s(SchedSelIdx), h264::low32s(cpb_size_value_minus1));

        int& cbr_flag = entry_or(hrd->cbr_flag, SchedSelIdx, dropped_flag);
        if (!in.flag(cbr_flag, indexed("cbr_flag", SchedSelIdx))) return -1;
        LOG(7, "cbr_flag[%d]:%d.", h264::low32s(SchedSelIdx), cbr_flag);
    }
    if (!in.u(5, hrd->initial_cpb_removal_delay_length_minus1, "initial_cpb_removal_delay_length_minus1")) return -1;
    if (!in.u(5, hrd->cpb_removal_delay_length_minus1, "cpb_removal_delay_length_minus1")) return -1;
    if (!in.u(5, hrd->dpb_output_delay_length_minus1, "dpb_output_delay_length_minus1")) return -1;
    if (!in.u(5, hrd->time_offset_length, "time_offset_length")) return -1;
    LOG(7, "Done.");
    return 0;
}

int _parse_vui(bitbuffer_t* vui_bb, vui_t* vui) {
    LOG(7, "Called.");
    SyntaxReader in(vui_bb, __func__);
    if (!in.flag(vui->aspect_ratio_info_present_flag, "aspect_ratio_info_present_flag")) return -1;
    if (vui->aspect_ratio_info_present_flag) {
        if (!in.u(8, vui->aspect_ratio_idc, "aspect_ratio_idc")) return -1;
        if (vui->aspect_ratio_idc > 254) {  // Extended_SAR
            if (!in.u(16, vui->sar_width, "sar_width")) return -1;
            if (!in.u(16, vui->sar_height, "sar_height")) return -1;
        }
    }
    if (!in.flag(vui->overscan_info_present_flag, "overscan_info_present_flag")) return -1;
    if (vui->overscan_info_present_flag) {
        if (!in.flag(vui->overscan_appropriate_flag, "overscan_appropriate_flag")) return -1;
    }
    if (!in.flag(vui->video_signal_type_present_flag, "video_signal_type_present_flag")) return -1;
    if (vui->video_signal_type_present_flag) {
        if (!in.u(3, vui->video_format, "video_format")) return -1;
        LOG(7, "video_format:%d.", vui->video_format);
        if (!in.flag(vui->video_full_range_flag, "video_full_range_flag")) return -1;
        if (!in.flag(vui->colour_description_present_flag, "colour_description_present_flag")) return -1;
        if (vui->colour_description_present_flag) {
            if (!in.u(8, vui->colour_primaries, "colour_primaries")) return -1;
            if (!in.u(8, vui->transfer_characteristics, "transfer_characteristics")) return -1;
            if (!in.u(8, vui->matrix_coefficients, "matrix_coefficients")) return -1;
        }
    }
    if (!in.flag(vui->chroma_loc_info_present_flag, "chroma_loc_info_present_flag")) return -1;
    if (vui->chroma_loc_info_present_flag) {
        if (!in.ue(vui->chroma_sample_loc_type_top_field, "chroma_sample_loc_type_top_field")) return -1;
        if (!in.ue(vui->chroma_sample_loc_type_bottom_field, "chroma_sample_loc_type_bottom_field")) return -1;
    }
    if (!in.flag(vui->timing_info_present_flag, "timing_info_present_flag")) return -1;
    LOG(7, "timing_info_present_flag:%d.", vui->timing_info_present_flag);
    if (vui->timing_info_present_flag) {
        vui->timing_info_offset = in.position();
        if (!in.u(32, vui->num_units_in_tick, "num_units_in_tick")) return -1;
        if (!in.u(32, vui->time_scale, "time_scale")) return -1;
        if (!in.flag(vui->fixed_frame_rate_flag, "fixed_frame_rate_flag")) return -1;

        if (vui->time_scale >= 1001 && vui->num_units_in_tick <= 999 &&
            timescale_warning.is_due(kTimescaleWarningPeriod)) {
            LOG(4, "VUI timescale:%d is greater than 1000 while numTicks:%d is small.", h264::low32s(vui->time_scale),
                h264::low32s(vui->num_units_in_tick));
        }
        getMAXFPSForVUI(vui->time_scale, vui->num_units_in_tick, &vui->MaxFPS);
        vui->MaxFPSminus1 = vui->MaxFPS - 1;
        LOG(7, "Sucessfully filled MAXFPS:%d from VUI timescale:%d and numTicks:%d.", vui->MaxFPS,
            h264::low32s(vui->time_scale), h264::low32s(vui->num_units_in_tick));
    } else {
        vui->timing_info_offset = -1;
    }
    vui->nal_hrd_parameters_present_offset = in.position();
    if (!in.flag(vui->nal_hrd_parameters_present_flag, "nal_hrd_parameters_present_flag")) return -1;
    LOG(7, "nal_hrd_parameters_present_flag:%d.", vui->nal_hrd_parameters_present_flag);
    if (vui->nal_hrd_parameters_present_flag && _parse_hrd(vui_bb, &vui->nal_hrd) != 0) {
        LOG(3, "cannot parse nal_hrd.");
        return -2;
    }
    if (!in.flag(vui->vcl_hrd_parameters_present_flag, "vcl_hrd_parameters_present_flag")) return -1;
    LOG(7, "vcl_hrd_parameters_present_flag:%d.", vui->vcl_hrd_parameters_present_flag);
    if (vui->vcl_hrd_parameters_present_flag && _parse_hrd(vui_bb, &vui->vcl_hrd) != 0) {
        LOG(3, "cannot parse vcl_hrd.");
        return -2;
    }
    if (vui->nal_hrd_parameters_present_flag || vui->vcl_hrd_parameters_present_flag) {
        // Only ever set: a record that is read into again keeps it.
        vui->CpbDpbDelaysPresentFlag = 1;
        if (!in.flag(vui->low_delay_hrd_flag, "low_delay_hrd_flag")) return -1;
    }
    vui->pic_struct_present_offset = in.position();
    if (!in.flag(vui->pic_struct_present_flag, "pic_struct_present_flag")) return -1;
    if (!in.flag(vui->bitstream_restriction_flag, "bitstream_restriction_flag")) return -1;
    LOG(7, "bitstream_restriction_flag:%d.", vui->bitstream_restriction_flag);
    if (vui->bitstream_restriction_flag) {
        if (!in.flag(vui->motion_vectors_over_pic_boundaries_flag, "motion_vectors_over_pic_boundaries_flag"))
            return -1;
        if (!in.ue(vui->max_bytes_per_pic_denom, "max_bytes_per_pic_denom")) return -1;
        if (!in.ue(vui->max_bits_per_mb_denom, "max_bits_per_mb_denom")) return -1;
        if (!in.ue(vui->log2_max_mv_length_horizontal, "log2_max_mv_length_horizontal")) return -1;
        if (!in.ue(vui->log2_max_mv_length_vertical, "log2_max_mv_length_vertical")) return -1;
        if (!in.ue(vui->num_reorder_frames, "num_reorder_frames")) return -1;
        if (!in.ue(vui->max_decoder_frame_buffering, "max_decoder_frame_buffering")) return -1;
    }
    LOG(7, "Done.");
    return 0;
}
