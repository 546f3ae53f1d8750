// Everything that a sequence parameter set can carry, ITU-T H.264 7.3.2.1.1 and annex E, element by element.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "syntax_script.h"

namespace test {

struct ScalingListSyntax {
    bool present = false;
    std::vector<std::int64_t> delta_scale{};  // those transmitted

    // The elements behind the present flag.
    void write(SyntaxScript& s, std::size_t list) const {
        s.trace("Called.");
        for (std::size_t j = 0; j < delta_scale.size(); ++j)
            s.se(text("delta_scale[%zu]", j), delta_scale[j],
                 [list, j](sps_t& sps) { return &sps.scaling_list[list].delta_scale[j]; });
        s.trace("Done.");
    }
};

struct ScheduleSyntax {
    std::uint64_t bit_rate_value_minus1 = 0;
    std::uint64_t cpb_size_value_minus1 = 0;
    bool cbr_flag = false;
};

struct HrdSyntax {
    unsigned bit_rate_scale = 0;
    unsigned cpb_size_scale = 0;
    std::vector<ScheduleSyntax> schedules{{}};  // cpb_cnt_minus1 + 1 of them
    unsigned initial_cpb_removal_delay_length_minus1 = 23;
    unsigned cpb_removal_delay_length_minus1 = 23;
    unsigned dpb_output_delay_length_minus1 = 23;
    unsigned time_offset_length = 24;

    void write(SyntaxScript& s, hrd_t vui_t::*hrd) const {
        s.trace("Called.");
        s.ue("cpb_cnt_minus1", schedules.size() - 1, at(hrd, &hrd_t::cpb_cnt_minus1));
        s.trace(text("cpb_cnt_minus1:%zu.", schedules.size() - 1));
        s.cursor("hrd after cpb_cnt_minus1");
        s.u(4, "bit_rate_scale", bit_rate_scale, at(hrd, &hrd_t::bit_rate_scale));
        s.u(4, "cpb_size_scale", cpb_size_scale, at(hrd, &hrd_t::cpb_size_scale));
        for (std::size_t i = 0; i < schedules.size(); ++i) {
            const ScheduleSyntax& schedule = schedules[i];
            const auto bit_rate = static_cast<int>(schedule.bit_rate_value_minus1);
            const auto cpb_size = static_cast<int>(schedule.cpb_size_value_minus1);
            s.ue(text("bit_rate_value_minus1[%zu]", i), schedule.bit_rate_value_minus1,
                 at(hrd, &hrd_t::bit_rate_value_minus1, i));
            s.trace(text("bit_rate_value_minus1[%zu]:%d.", i, bit_rate));
            s.ue(text("cpb_size_value_minus1[%zu]", i), schedule.cpb_size_value_minus1,
                 at(hrd, &hrd_t::cpb_size_value_minus1, i));
            s.trace(text("cpb_size_value_minus1[%zu]:%d.", i, cpb_size));
            s.flag(text("cbr_flag[%zu]", i), schedule.cbr_flag, at(hrd, &hrd_t::cbr_flag, i));
            s.trace(text("cbr_flag[%zu]:%d.", i, schedule.cbr_flag ? 1 : 0));
        }
        s.u(5, "initial_cpb_removal_delay_length_minus1", initial_cpb_removal_delay_length_minus1,
            at(hrd, &hrd_t::initial_cpb_removal_delay_length_minus1));
        s.u(5, "cpb_removal_delay_length_minus1", cpb_removal_delay_length_minus1,
            at(hrd, &hrd_t::cpb_removal_delay_length_minus1));
        s.u(5, "dpb_output_delay_length_minus1", dpb_output_delay_length_minus1,
            at(hrd, &hrd_t::dpb_output_delay_length_minus1));
        s.u(5, "time_offset_length", time_offset_length, at(hrd, &hrd_t::time_offset_length));
        s.trace("Done.");
    }
};

struct VuiSyntax {
    bool aspect_ratio_info_present_flag = false;
    unsigned aspect_ratio_idc = 1;
    unsigned sar_width = 0;
    unsigned sar_height = 0;
    bool overscan_info_present_flag = false;
    bool overscan_appropriate_flag = false;
    bool video_signal_type_present_flag = false;
    unsigned video_format = 5;
    bool video_full_range_flag = false;
    bool colour_description_present_flag = false;
    unsigned colour_primaries = 1;
    unsigned transfer_characteristics = 1;
    unsigned matrix_coefficients = 1;
    bool chroma_loc_info_present_flag = false;
    std::uint64_t chroma_sample_loc_type_top_field = 0;
    std::uint64_t chroma_sample_loc_type_bottom_field = 0;
    bool timing_info_present_flag = false;
    std::uint64_t num_units_in_tick = 1001;
    std::uint64_t time_scale = 60000;
    bool fixed_frame_rate_flag = false;
    bool nal_hrd_parameters_present_flag = false;
    HrdSyntax nal_hrd{};
    bool vcl_hrd_parameters_present_flag = false;
    HrdSyntax vcl_hrd{};
    bool low_delay_hrd_flag = false;
    bool pic_struct_present_flag = false;
    bool bitstream_restriction_flag = false;
    bool motion_vectors_over_pic_boundaries_flag = true;
    std::uint64_t max_bytes_per_pic_denom = 2;
    std::uint64_t max_bits_per_mb_denom = 1;
    std::uint64_t log2_max_mv_length_horizontal = 16;
    std::uint64_t log2_max_mv_length_vertical = 16;
    std::uint64_t num_reorder_frames = 0;
    std::uint64_t max_decoder_frame_buffering = 1;

    void write(SyntaxScript& s) const {
        s.trace("Called.");
        write_picture_information(s);
        write_timing(s);
        write_hrds(s);
        s.position(at(&vui_t::pic_struct_present_offset));
        s.flag("pic_struct_present_flag", pic_struct_present_flag, at(&vui_t::pic_struct_present_flag));
        write_restriction(s);
        s.trace("Done.");
    }

private:
    void write_picture_information(SyntaxScript& s) const;
    void write_timing(SyntaxScript& s) const;
    void write_frame_rate(SyntaxScript& s) const;
    void write_hrds(SyntaxScript& s) const;
    void write_restriction(SyntaxScript& s) const;
};

struct SpsSyntax {
    unsigned profile_idc = 77;
    unsigned constraint_flags = 0;
    unsigned level_idc = 30;
    std::uint64_t seq_parameter_set_id = 0;
    std::uint64_t chroma_format_idc = 1;
    bool separate_colour_plane_flag = false;
    std::uint64_t bit_depth_luma_minus8 = 0;
    std::uint64_t bit_depth_chroma_minus8 = 0;
    bool qpprime_y_zero_transform_bypass_flag = false;
    bool seq_scaling_matrix_present_flag = false;
    std::vector<ScalingListSyntax> scaling_list = std::vector<ScalingListSyntax>(12);
    std::uint64_t log2_max_frame_num_minus4 = 0;
    std::uint64_t pic_order_cnt_type = 0;
    std::uint64_t log2_max_pic_order_cnt_lsb_minus4 = 2;
    bool delta_pic_order_always_zero_flag = false;
    std::int64_t offset_for_non_ref_pic = 0;
    std::int64_t offset_for_top_to_bottom_field = 0;
    std::vector<std::int64_t> offset_for_ref_frame{};  // num_ref_frames_in_pic_order_cnt_cycle of them
    std::uint64_t max_num_ref_frames = 1;
    bool gaps_in_frame_num_value_allowed_flag = false;
    std::uint64_t pic_width_in_mbs_minus1 = 44;
    std::uint64_t pic_height_in_map_units_minus1 = 35;
    bool frame_mbs_only_flag = true;
    bool mb_adaptive_frame_field_flag = false;
    bool direct_8x8_inference_flag = true;
    bool frame_cropping_flag = false;
    std::uint64_t frame_crop_left_offset = 0;
    std::uint64_t frame_crop_right_offset = 0;
    std::uint64_t frame_crop_top_offset = 0;
    std::uint64_t frame_crop_bottom_offset = 0;
    bool vui_parameters_present_flag = false;
    VuiSyntax vui{};

    // seq_parameter_set_data() as parse_sps reads it, without trailing bits.
    void write(SyntaxScript& s) const;

    SyntaxScript script(unsigned bits_before = 0) const {
        SyntaxScript s(bits_before);
        write(s);
        return s;
    }
    // seq_parameter_set_rbsp().
    Bytes rbsp() const {
        BitWriter bits = script().bits();
        return bits.trailing().bytes();
    }
    Bytes unit(int start_code_length = 4) const { return nal_unit(0x67, rbsp(), start_code_length); }

    bool has_chroma_format() const;

private:
    void write_chroma_format(SyntaxScript& s) const;
    void write_picture_order_count(SyntaxScript& s) const;
    void write_vui(SyntaxScript& s) const;
};

// 16 or 64 deltas of zero.
inline ScalingListSyntax flat_list(std::size_t size) { return {true, std::vector<std::int64_t>(size, 0)}; }
// A list that ends after its first delta.
inline ScalingListSyntax default_list() { return {true, {-8}}; }

}  // namespace test
