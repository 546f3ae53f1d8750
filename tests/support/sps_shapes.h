// Sequence parameter sets with every shape of VUI, their values chosen at random: many of them codes with long runs of
// zeros, which need emulation prevention.
#pragma once

#include <memory>
#include <random>

#include "sps_builder.h"
#include "sps_check.h"
#include "sps_variants.h"

namespace test {

class Random {
public:
    explicit Random(unsigned seed) : engine_(seed) {}
    unsigned operator()() { return static_cast<unsigned>(engine_()); }

private:
    std::mt19937 engine_;
};

inline bool coin(Random& random) { return random() % 2 != 0; }

// Often 2^k - 1, whose Exp-Golomb code is a single one among zeros, or 2^k.
inline std::uint64_t some_value(Random& random, unsigned max_bits = 31) {
    const std::uint64_t power = std::uint64_t{1} << random() % (max_bits + 1);
    switch (random() % 4) {
        case 0:
            return power % (std::uint64_t{1} << max_bits);
        case 1:
            return random() % power;
        default:
            return power - 1;
    }
}

inline HrdSyntax some_hrd(Random& random) {
    HrdSyntax hrd;
    hrd.bit_rate_scale = random() % 16;
    hrd.cpb_size_scale = random() % 16;
    hrd.schedules.clear();
    for (auto count = 1 + random() % 3; count > 0; --count)
        hrd.schedules.push_back({some_value(random), some_value(random), coin(random)});
    hrd.initial_cpb_removal_delay_length_minus1 = random() % 32;
    hrd.cpb_removal_delay_length_minus1 = random() % 32;
    hrd.dpb_output_delay_length_minus1 = random() % 32;
    hrd.time_offset_length = random() % 32;
    return hrd;
}

// Gives the elements up to fixed_frame_rate_flag one of the kHeadShapes shapes.
constexpr unsigned kHeadShapes = 3 * 3 * 2 * 2 * 2;
inline void set_head_shape(VuiSyntax& vui, unsigned shape, Random& random) {
    const auto choose = [&](unsigned choices) {
        const unsigned choice = shape % choices;
        shape /= choices;
        return choice;
    };
    const unsigned aspect = choose(3);
    vui.aspect_ratio_info_present_flag = aspect > 0;
    vui.aspect_ratio_idc = aspect == 2 ? 255 : random() % 255;
    vui.sar_width = static_cast<unsigned>(some_value(random, 16));
    vui.sar_height = static_cast<unsigned>(some_value(random, 16));
    const unsigned signal = choose(3);
    vui.video_signal_type_present_flag = signal > 0;
    vui.video_format = random() % 8;
    vui.video_full_range_flag = coin(random);
    vui.colour_description_present_flag = signal == 2;
    vui.colour_primaries = static_cast<unsigned>(some_value(random, 8));
    vui.transfer_characteristics = static_cast<unsigned>(some_value(random, 8));
    vui.matrix_coefficients = static_cast<unsigned>(some_value(random, 8));
    vui.overscan_info_present_flag = choose(2) != 0;
    vui.overscan_appropriate_flag = coin(random);
    vui.chroma_loc_info_present_flag = choose(2) != 0;
    vui.chroma_sample_loc_type_top_field = some_value(random, random() % 8 == 0 ? 31 : 3);
    vui.chroma_sample_loc_type_bottom_field = some_value(random, 3);
    vui.timing_info_present_flag = choose(2) != 0;
    vui.num_units_in_tick = some_value(random, 32);
    vui.time_scale = some_value(random, 32);
    vui.fixed_frame_rate_flag = coin(random);
}

// The elements behind, from nal_hrd_parameters_present_flag on.
constexpr unsigned kTailShapes = 2 * 2 * 2;
inline void set_tail_shape(VuiSyntax& vui, unsigned shape, Random& random) {
    vui.nal_hrd_parameters_present_flag = (shape & 1) != 0;
    vui.nal_hrd = some_hrd(random);
    vui.vcl_hrd_parameters_present_flag = (shape & 2) != 0;
    vui.vcl_hrd = some_hrd(random);
    vui.low_delay_hrd_flag = coin(random);
    vui.pic_struct_present_flag = coin(random);
    vui.bitstream_restriction_flag = (shape & 4) != 0;
    vui.motion_vectors_over_pic_boundaries_flag = coin(random);
    vui.max_bytes_per_pic_denom = some_value(random, 5);
    vui.max_bits_per_mb_denom = some_value(random, 5);
    vui.log2_max_mv_length_horizontal = some_value(random, 5);
    vui.log2_max_mv_length_vertical = some_value(random, 5);
    vui.num_reorder_frames = some_value(random, 5);
    vui.max_decoder_frame_buffering = some_value(random, 5);
}

// One of the variants with a VUI of these shapes.
inline SpsSyntax shaped_sps(std::size_t variant, unsigned head_shape, unsigned tail_shape, Random& random) {
    SpsSyntax sps = sps_variants()[variant % sps_variants().size()].sps;
    sps.vui_parameters_present_flag = true;
    sps.vui = {};
    set_head_shape(sps.vui, head_shape, random);
    set_tail_shape(sps.vui, tail_shape, random);
    return sps;
}

// What a reader makes of it in a record of zeros, positions included.
inline std::unique_ptr<sps_t> record_of(const SpsSyntax& sps) {
    auto record = filled_record(0);
    const SyntaxScript script = sps.script();
    script.run(script.bits().bits(), nullptr, *record);
    return record;
}

// Puts the elements of a VUI up to fixed_frame_rate_flag into a record, as an application would.
inline void set_head(vui_t& record, const VuiSyntax& vui) {
    record.aspect_ratio_info_present_flag = vui.aspect_ratio_info_present_flag;
    record.aspect_ratio_idc = static_cast<unsigned char>(vui.aspect_ratio_idc);
    record.sar_width = static_cast<unsigned short>(vui.sar_width);
    record.sar_height = static_cast<unsigned short>(vui.sar_height);
    record.overscan_info_present_flag = vui.overscan_info_present_flag;
    record.overscan_appropriate_flag = vui.overscan_appropriate_flag;
    record.video_signal_type_present_flag = vui.video_signal_type_present_flag;
    record.video_format = static_cast<unsigned char>(vui.video_format);
    record.video_full_range_flag = vui.video_full_range_flag;
    record.colour_description_present_flag = vui.colour_description_present_flag;
    record.colour_primaries = static_cast<unsigned char>(vui.colour_primaries);
    record.transfer_characteristics = static_cast<unsigned char>(vui.transfer_characteristics);
    record.matrix_coefficients = static_cast<unsigned char>(vui.matrix_coefficients);
    record.chroma_loc_info_present_flag = vui.chroma_loc_info_present_flag;
    record.chroma_sample_loc_type_top_field = vui.chroma_sample_loc_type_top_field;
    record.chroma_sample_loc_type_bottom_field = vui.chroma_sample_loc_type_bottom_field;
    record.timing_info_present_flag = vui.timing_info_present_flag;
    record.num_units_in_tick = vui.num_units_in_tick;
    record.time_scale = vui.time_scale;
    record.fixed_frame_rate_flag = vui.fixed_frame_rate_flag;
}

}  // namespace test
