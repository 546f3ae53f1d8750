// Everything that a slice header can carry, ITU-T H.264 7.3.3, element by element.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "element_script.h"

namespace test {

using SliceScript = ElementScript<slice_header_t>;

struct ModificationSyntax {
    std::uint64_t modification_of_pic_nums_idc = 0;
    std::uint64_t value = 0;  // abs_diff_pic_num_minus1 (idc 0 and 1) or long_term_pic_num (idc 2)
};

struct WeightSyntax {
    bool luma_weight_flag = false;
    std::int64_t luma_weight = 0;
    std::int64_t luma_offset = 0;
    bool chroma_weight_flag = false;  // nothing of chroma behind it
};

struct MarkingSyntax {
    std::uint64_t memory_management_control_operation = 0;
    std::uint64_t first = 0;   // difference_of_pic_nums_minus1, long_term_pic_num, long_term_frame_idx or
                               // max_long_term_frame_idx_plus1
    std::uint64_t second = 0;  // long_term_frame_idx of operation 3
};

struct SliceSyntax {
    // The parameter sets by which it is read: one frame picture per slice group, order count type 0 with 4 bits.
    sps_t sps = zeroed<sps_t>([](sps_t& record) {
        record.frame_mbs_only_flag = 1;
        record.ChromaArrayType = 1;
    });
    pps_t pps = zeroed<pps_t>([](pps_t&) {});

    unsigned nal_unit_type = 1;
    unsigned nal_ref_idc = 1;
    std::uint64_t first_mb_in_slice = 0;
    std::uint64_t slice_type = 7;
    std::uint64_t pic_parameter_set_id = 0;
    unsigned colour_plane_id = 0;
    std::uint64_t frame_num = 0;
    bool field_pic_flag = false;
    bool bottom_field_flag = false;
    std::uint64_t idr_pic_id = 0;
    std::uint64_t pic_order_cnt_lsb = 0;
    std::int64_t delta_pic_order_cnt_bottom = 0;
    std::int64_t delta_pic_order_cnt[2] = {0, 0};
    std::uint64_t redundant_pic_cnt = 0;
    bool direct_spatial_mv_pred_flag = false;
    bool num_ref_idx_active_override_flag = false;
    bool ref_pic_list_modification_flag_l0 = false;
    std::vector<ModificationSyntax> modifications_l0{};  // without the entry of idc 3 that ends them
    bool ref_pic_list_modification_flag_l1 = false;
    std::vector<ModificationSyntax> modifications_l1{};
    std::uint64_t luma_log2_weight_denom = 0;
    std::uint64_t chroma_log2_weight_denom = 0;
    std::vector<WeightSyntax> weights_l0{{}};  // num_ref_idx_l0_active_minus1 + 1 of them, weights transmitted or not
    std::vector<WeightSyntax> weights_l1{{}};  // num_ref_idx_l1_active_minus1 + 1 of them, weights transmitted or not
    bool no_output_of_prior_pics_flag = false;
    bool long_term_reference_flag = false;
    bool adaptive_ref_pic_marking_mode_flag = false;
    std::vector<MarkingSyntax> marking{};  // without the operation 0 that ends them
    std::uint64_t cabac_init_idc = 0;
    std::int64_t slice_qp_delta = 0;
    bool sp_for_switch_flag = false;
    std::int64_t slice_qs_delta = 0;
    std::uint64_t disable_deblocking_filter_idc = 0;
    std::int64_t slice_alpha_c0_offset_div2 = 0;
    std::int64_t slice_beta_offset_div2 = 0;

    // slice_header() as _parse_slice_header reads it.
    SliceScript script() const;
    // What the caller has in the record: bytes of one value, and the active reference counts of the parameter set.
    slice_header_t record_before(int fill = 0xA5) const;
    // A whole NAL unit; slice data of a few bytes stands in for the macroblocks.
    Bytes unit(int start_code_length = 4, const Bytes& slice_data = Bytes(40, 0x5A)) const;

    bool is_b() const { return slice_type == 1 || slice_type == 6; }
    bool is_p() const { return slice_type == 0 || slice_type == 5; }
    bool is_sp() const { return slice_type == 3 || slice_type == 8; }
    bool is_si() const { return slice_type == 4 || slice_type == 9; }
    bool is_i() const { return slice_type == 2 || slice_type == 7; }
    bool has_weights() const {
        return (pps.weighted_pred_flag != 0 && (is_p() || is_sp())) || (pps.weighted_bipred_idc == 1 && is_b());
    }

private:
    template <typename Record, typename Change>
    static Record zeroed(Change change) {
        Record record{};
        change(record);
        return record;
    }
    void write_picture_order(SliceScript& s) const;
    void write_reference_counts(SliceScript& s) const;
    void write_modifications(SliceScript& s) const;
    void write_weights(SliceScript& s) const;
    void write_marking(SliceScript& s) const;
    void write_quantizers_and_filter(SliceScript& s) const;
};

struct SliceVariant {
    std::string name;
    SliceSyntax slice;
};

// Slice headers that together take every branch of the syntax.
std::vector<SliceVariant> slice_variants();
SliceSyntax random_slice(std::mt19937& random);
// A slice whose header has some thousand bytes.
SliceSyntax long_slice();

}  // namespace test
