// Everything that a picture parameter set can carry, ITU-T H.264 7.3.2.2, element by element.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "element_script.h"
#include "sps_builder.h"

namespace test {

using PpsScript = ElementScript<pps_t>;

struct PpsSyntax {
    std::uint64_t picture_parameter_set_id = 0;
    std::uint64_t seq_parameter_set_id = 0;
    bool entropy_coding_mode_flag = false;
    bool bottom_field_pic_order_in_frame_present_flag = false;
    std::uint64_t num_slice_groups_minus1 = 0;
    std::uint64_t slice_group_map_type = 0;
    std::vector<std::uint64_t> run_length_minus1{};  // num_slice_groups_minus1 + 1 of them
    std::vector<std::uint64_t> top_left{};           // num_slice_groups_minus1 of them
    std::vector<std::uint64_t> bottom_right{};       // num_slice_groups_minus1 of them
    bool slice_group_change_direction_flag = false;
    std::uint64_t slice_group_change_rate_minus1 = 0;
    std::vector<std::uint64_t> slice_group_id{};  // pic_size_in_map_units_minus1 + 1 of them, at most 64
    std::uint64_t num_ref_idx_l0_default_active_minus1 = 0;
    std::uint64_t num_ref_idx_l1_default_active_minus1 = 0;
    bool weighted_pred_flag = false;
    unsigned weighted_bipred_idc = 0;
    std::int64_t pic_init_qp_minus26 = 0;
    std::int64_t pic_init_qs_minus26 = 0;
    std::int64_t chroma_qp_index_offset = 0;
    bool deblocking_filter_control_present_flag = false;
    bool constrained_intra_pred_flag = false;
    bool redundant_pic_cnt_present_flag = false;
    bool has_tail = false;  // transform_8x8_mode_flag and what follows
    bool transform_8x8_mode_flag = false;
    bool pic_scaling_matrix_present_flag = false;
    std::vector<ScalingListSyntax> scaling_list = std::vector<ScalingListSyntax>(12);
    std::int64_t second_chroma_qp_index_offset = 0;

    // The sequence parameter set by which the lists are read.
    std::uint64_t chroma_format_idc = 1;
    std::vector<bool> sps_list_present = std::vector<bool>(12);

    // pic_parameter_set_rbsp() as _parse_pps reads it, without trailing bits.
    PpsScript script() const;
    Bytes rbsp() const { return script().rbsp(); }
    Bytes unit(int start_code_length = 4) const { return nal_unit(0x68, rbsp(), start_code_length); }
    sps_t sps() const;

private:
    void write_slice_groups(PpsScript& s) const;
    void write_tail(PpsScript& s) const;
};

// Bits of a slice_group_id as they are read.
unsigned slice_group_id_numbits(std::uint64_t slice_groups);

struct PpsVariant {
    std::string name;
    PpsSyntax pps;
};

// Picture parameter sets that together take every branch of the syntax.
std::vector<PpsVariant> pps_variants();
PpsSyntax random_pps(std::mt19937& random);
// A unit with this many bytes behind its start code; its last byte holds payload, or the stop bit alone.
Bytes pps_unit_of_size(std::size_t behind_start_code, int start_code_length, bool stop_bit_alone = false,
                       std::uint64_t picture_parameter_set_id = 0);

}  // namespace test
