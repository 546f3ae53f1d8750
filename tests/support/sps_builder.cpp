#include "sps_builder.h"

namespace test {

void VuiSyntax::write_picture_information(SyntaxScript& s) const {
    s.flag("aspect_ratio_info_present_flag", aspect_ratio_info_present_flag,
           at(&vui_t::aspect_ratio_info_present_flag));
    if (aspect_ratio_info_present_flag) {
        s.u(8, "aspect_ratio_idc", aspect_ratio_idc, at(&vui_t::aspect_ratio_idc));
        if (aspect_ratio_idc == 255) {
            s.u(16, "sar_width", sar_width, at(&vui_t::sar_width));
            s.u(16, "sar_height", sar_height, at(&vui_t::sar_height));
        }
    }
    s.flag("overscan_info_present_flag", overscan_info_present_flag, at(&vui_t::overscan_info_present_flag));
    if (overscan_info_present_flag)
        s.flag("overscan_appropriate_flag", overscan_appropriate_flag, at(&vui_t::overscan_appropriate_flag));
    s.flag("video_signal_type_present_flag", video_signal_type_present_flag,
           at(&vui_t::video_signal_type_present_flag));
    if (video_signal_type_present_flag) {
        s.u(3, "video_format", video_format, at(&vui_t::video_format));
        s.trace(text("video_format:%u.", video_format));
        s.flag("video_full_range_flag", video_full_range_flag, at(&vui_t::video_full_range_flag));
        s.flag("colour_description_present_flag", colour_description_present_flag,
               at(&vui_t::colour_description_present_flag));
        if (colour_description_present_flag) {
            s.u(8, "colour_primaries", colour_primaries, at(&vui_t::colour_primaries));
            s.u(8, "transfer_characteristics", transfer_characteristics, at(&vui_t::transfer_characteristics));
            s.u(8, "matrix_coefficients", matrix_coefficients, at(&vui_t::matrix_coefficients));
        }
    }
    s.flag("chroma_loc_info_present_flag", chroma_loc_info_present_flag, at(&vui_t::chroma_loc_info_present_flag));
    if (chroma_loc_info_present_flag) {
        s.ue("chroma_sample_loc_type_top_field", chroma_sample_loc_type_top_field,
             at(&vui_t::chroma_sample_loc_type_top_field));
        s.ue("chroma_sample_loc_type_bottom_field", chroma_sample_loc_type_bottom_field,
             at(&vui_t::chroma_sample_loc_type_bottom_field));
    }
}

void VuiSyntax::write_timing(SyntaxScript& s) const {
    s.flag("timing_info_present_flag", timing_info_present_flag, at(&vui_t::timing_info_present_flag));
    s.trace(text("timing_info_present_flag:%d.", timing_info_present_flag ? 1 : 0));
    if (!timing_info_present_flag) {
        s.set(at(&vui_t::timing_info_offset), -1);
        return;
    }
    s.position(at(&vui_t::timing_info_offset));
    s.u(32, "num_units_in_tick", num_units_in_tick, at(&vui_t::num_units_in_tick));
    s.u(32, "time_scale", time_scale, at(&vui_t::time_scale));
    s.flag("fixed_frame_rate_flag", fixed_frame_rate_flag, at(&vui_t::fixed_frame_rate_flag));
    write_frame_rate(s);
}

// Both values divided by 1000 when both are above 999, 0 ticks taken as 1, the quotient halved.
void VuiSyntax::write_frame_rate(SyntaxScript& s) const {
    std::uint64_t ticks = num_units_in_tick;
    std::uint64_t scale = time_scale;
    int fps = 0;
    s.call("getMAXFPSForVUI", {}, [&] {
        if (ticks > 999 && scale > 999) {
            s.trace("About to divide by 1000 both timescale and num_unit_in_ticks.");
            ticks /= 1000;
            scale /= 1000;
        }
        if (ticks == 0) ticks = 1;
        fps = static_cast<int>(scale / ticks) / 2;
        s.trace(text("Returning MAXFPS:%d for Timescale:%d, NumTicks:%d", fps, static_cast<int>(scale),
                     static_cast<int>(ticks)));
    });
    s.set(at(&vui_t::MaxFPS), fps);
    s.set(at(&vui_t::MaxFPSminus1), fps - 1);
    s.trace(text("Sucessfully filled MAXFPS:%d from VUI timescale:%d and numTicks:%d.", fps,
                 static_cast<int>(time_scale), static_cast<int>(num_units_in_tick)));
}

void VuiSyntax::write_hrds(SyntaxScript& s) const {
    s.position(at(&vui_t::nal_hrd_parameters_present_offset));
    s.flag("nal_hrd_parameters_present_flag", nal_hrd_parameters_present_flag,
           at(&vui_t::nal_hrd_parameters_present_flag));
    s.trace(text("nal_hrd_parameters_present_flag:%d.", nal_hrd_parameters_present_flag ? 1 : 0));
    const auto fails_with = [](const char* message) {
        return [message](Outcome& outcome) {
            outcome.log.push_back({3, "_parse_vui", message});
            outcome.result = -2;
        };
    };
    if (nal_hrd_parameters_present_flag)
        s.call("_parse_hrd", fails_with("cannot parse nal_hrd."), [&] { nal_hrd.write(s, &vui_t::nal_hrd); });
    s.flag("vcl_hrd_parameters_present_flag", vcl_hrd_parameters_present_flag,
           at(&vui_t::vcl_hrd_parameters_present_flag));
    s.trace(text("vcl_hrd_parameters_present_flag:%d.", vcl_hrd_parameters_present_flag ? 1 : 0));
    if (vcl_hrd_parameters_present_flag)
        s.call("_parse_hrd", fails_with("cannot parse vcl_hrd."), [&] { vcl_hrd.write(s, &vui_t::vcl_hrd); });
    if (nal_hrd_parameters_present_flag || vcl_hrd_parameters_present_flag) {
        s.set(at(&vui_t::CpbDpbDelaysPresentFlag), 1);
        s.flag("low_delay_hrd_flag", low_delay_hrd_flag, at(&vui_t::low_delay_hrd_flag));
    }
}

void VuiSyntax::write_restriction(SyntaxScript& s) const {
    s.flag("bitstream_restriction_flag", bitstream_restriction_flag, at(&vui_t::bitstream_restriction_flag));
    s.trace(text("bitstream_restriction_flag:%d.", bitstream_restriction_flag ? 1 : 0));
    if (!bitstream_restriction_flag) return;
    s.flag("motion_vectors_over_pic_boundaries_flag", motion_vectors_over_pic_boundaries_flag,
           at(&vui_t::motion_vectors_over_pic_boundaries_flag));
    s.ue("max_bytes_per_pic_denom", max_bytes_per_pic_denom, at(&vui_t::max_bytes_per_pic_denom));
    s.ue("max_bits_per_mb_denom", max_bits_per_mb_denom, at(&vui_t::max_bits_per_mb_denom));
    s.ue("log2_max_mv_length_horizontal", log2_max_mv_length_horizontal, at(&vui_t::log2_max_mv_length_horizontal));
    s.ue("log2_max_mv_length_vertical", log2_max_mv_length_vertical, at(&vui_t::log2_max_mv_length_vertical));
    s.ue("num_reorder_frames", num_reorder_frames, at(&vui_t::num_reorder_frames));
    s.ue("max_decoder_frame_buffering", max_decoder_frame_buffering, at(&vui_t::max_decoder_frame_buffering));
}

bool SpsSyntax::has_chroma_format() const {
    for (const unsigned high : {100U, 110U, 122U, 244U, 44U, 83U, 86U, 118U, 128U})
        if (profile_idc == high) return true;
    return false;
}

void SpsSyntax::write(SyntaxScript& s) const {
    s.call("parse_sps", {}, [&] {
        s.trace("Called.");
        s.set(at(&vui_t::timing_info_offset), -1);
        s.set(at(&vui_t::nal_hrd_parameters_present_offset), -1);
        s.u(8, "profile_idc", profile_idc, at(&sps_t::profile_idc));
        s.u(8, "constraint_flags", constraint_flags, at(&sps_t::constraint_flags));
        s.u(8, "sps->level_idc", level_idc, at(&sps_t::level_idc));
        s.ue("seq_parameter_set_id", seq_parameter_set_id, at(&sps_t::seq_parameter_set_id));
        if (has_chroma_format()) write_chroma_format(s);
        s.trace("Half done.");
        s.ue("log2_max_frame_num_minus4", log2_max_frame_num_minus4, at(&sps_t::log2_max_frame_num_minus4));
        s.ue("pic_order_cnt_type", pic_order_cnt_type, at(&sps_t::pic_order_cnt_type));
        write_picture_order_count(s);
        s.position(at(&sps_t::max_num_ref_frames_bitoffset));
        s.ue("max_num_ref_frames", max_num_ref_frames, at(&sps_t::max_num_ref_frames));
        s.flag("gaps_in_frame_num_value_allowed_flag", gaps_in_frame_num_value_allowed_flag,
               at(&sps_t::gaps_in_frame_num_value_allowed_flag));
        s.ue("pic_width_in_mbs_minus1", pic_width_in_mbs_minus1, at(&sps_t::pic_width_in_mbs_minus1));
        s.ue("pic_height_in_map_units_minus1", pic_height_in_map_units_minus1,
             at(&sps_t::pic_height_in_map_units_minus1));
        s.position(at(&sps_t::frame_mbs_only_flag_offset));
        s.flag("frame_mbs_only_flag", frame_mbs_only_flag, at(&sps_t::frame_mbs_only_flag));
        if (!frame_mbs_only_flag)
            s.flag("mb_adaptive_frame_field_flag", mb_adaptive_frame_field_flag,
                   at(&sps_t::mb_adaptive_frame_field_flag));
        s.trace("75 % done.");
        s.flag("direct_8x8_inference_flag", direct_8x8_inference_flag, at(&sps_t::direct_8x8_inference_flag));
        s.position(at(&sps_t::frame_cropping_offset));
        s.flag("frame_cropping_flag", frame_cropping_flag, at(&sps_t::frame_cropping_flag));
        if (frame_cropping_flag) {
            s.ue("frame_crop_left_offset", frame_crop_left_offset, at(&sps_t::frame_crop_left_offset));
            s.ue("frame_crop_right_offset", frame_crop_right_offset, at(&sps_t::frame_crop_right_offset));
            s.ue("frame_crop_top_offset", frame_crop_top_offset, at(&sps_t::frame_crop_top_offset));
            s.ue("frame_crop_bottom_offset", frame_crop_bottom_offset, at(&sps_t::frame_crop_bottom_offset));
        }
        s.position(at(&sps_t::vui_parameters_present_offset));
        s.flag("vui_parameters_present_flag", vui_parameters_present_flag, at(&sps_t::vui_parameters_present_flag));
        if (vui_parameters_present_flag) write_vui(s);
        s.trace("Done.");
    });
}

void SpsSyntax::write_chroma_format(SyntaxScript& s) const {
    s.ue("chroma_format_idc", chroma_format_idc, at(&sps_t::chroma_format_idc));
    if (chroma_format_idc == 3)
        s.flag("separate_colour_plane_flag", separate_colour_plane_flag, at(&sps_t::separate_colour_plane_flag));
    // A flag left from an earlier parse counts as well: the record is never cleared.
    s.derive([](sps_t& sps) { sps.ChromaArrayType = sps.separate_colour_plane_flag != 0 ? 0 : sps.chroma_format_idc; });
    s.ue("bit_depth_luma_minus8", bit_depth_luma_minus8, at(&sps_t::bit_depth_luma_minus8));
    s.ue("bit_depth_chroma_minus8", bit_depth_chroma_minus8, at(&sps_t::bit_depth_chroma_minus8));
    s.flag("qpprime_y_zero_transform_bypass_flag", qpprime_y_zero_transform_bypass_flag,
           at(&sps_t::qpprime_y_zero_transform_bypass_flag));
    s.flag("seq_scaling_matrix_present_flag", seq_scaling_matrix_present_flag,
           at(&sps_t::seq_scaling_matrix_present_flag));
    if (!seq_scaling_matrix_present_flag) return;
    const std::size_t lists = chroma_format_idc == 3 ? 12 : 8;
    for (std::size_t i = 0; i < lists; ++i) {
        s.flag(text("seq_scaling_list_present_flag for list[%zu]", i), scaling_list[i].present,
               [i](sps_t& sps) { return &sps.scaling_list[i].seq_scaling_list_present_flag; });
        const auto reaction = [i](Outcome& outcome) {
            outcome.log.push_back({7, "_parse_scalingList", "Done."});
            outcome.log.push_back({3, "parse_sps", text("Scaling List[%zu] parsing failed!", i)});
        };
        if (scaling_list[i].present) s.call("_parse_scalingList", reaction, [&] { scaling_list[i].write(s, i); });
    }
}

void SpsSyntax::write_picture_order_count(SyntaxScript& s) const {
    if (pic_order_cnt_type == 0) {
        s.cursor("Before log2_max_pic_order_cnt_lsb_minus4.");
        s.ue("log2_max_pic_order_cnt_lsb_minus4", log2_max_pic_order_cnt_lsb_minus4,
             at(&sps_t::log2_max_pic_order_cnt_lsb_minus4));
        s.cursor("After log2_max_pic_order_cnt_lsb_minus4.");
    } else if (pic_order_cnt_type == 1) {
        s.flag("delta_pic_order_always_zero_flag", delta_pic_order_always_zero_flag,
               at(&sps_t::delta_pic_order_always_zero_flag));
        s.se("offset_for_non_ref_pic", offset_for_non_ref_pic, at(&sps_t::offset_for_non_ref_pic));
        s.se("offset_for_top_to_bottom_field", offset_for_top_to_bottom_field,
             at(&sps_t::offset_for_top_to_bottom_field));
        s.ue("num_ref_frames_in_pic_order_cnt_cycle", offset_for_ref_frame.size(),
             at(&sps_t::num_ref_frames_in_pic_order_cnt_cycle));
        for (std::size_t i = 0; i < offset_for_ref_frame.size(); ++i)
            s.se(text("offset_for_ref_frame[%zu]", i), offset_for_ref_frame[i],
                 [i](sps_t& sps) { return i < MAX_REF_FRAMES_IN_POC_CYCLE ? &sps.offset_for_ref_frame[i] : nullptr; });
    }
}

void SpsSyntax::write_vui(SyntaxScript& s) const {
    const auto reaction = [](Outcome& outcome) {
        if (outcome.result == -2) outcome.log.push_back({3, "parse_sps", "cannot parse vui. Return code is -2."});
        outcome.log.push_back({7, "parse_sps", "Done."});
    };
    s.call("_parse_vui", reaction, [&] { vui.write(s); });
}

}  // namespace test
