#include "slice_builder.h"

#include <cstring>

namespace test {

using Modification = ref_pic_list_modification_t;
using Weights = pred_weight_table_t;
using Marking = dec_ref_pic_marking_t;

slice_header_t SliceSyntax::record_before(int fill) const {
    slice_header_t record;
    std::memset(static_cast<void*>(&record), fill, sizeof record);
    if (!num_ref_idx_active_override_flag) {
        record.num_ref_idx_l0_active_minus1 = weights_l0.size() - 1;
        record.num_ref_idx_l1_active_minus1 = weights_l1.size() - 1;
    }
    if (sps.frame_mbs_only_flag != 0) record.field_pic_flag = 0;
    return record;
}

Bytes SliceSyntax::unit(int start_code_length, const Bytes& slice_data) const {
    BitWriter bits = script().bits();
    for (const unsigned char byte : slice_data) bits.u(8, byte);
    const Bytes& payload = bits.trailing().bytes();
    const auto header = static_cast<unsigned char>(nal_ref_idc << 5 | nal_unit_type);
    if (nal_unit_type != 14 && nal_unit_type != 20) return nal_unit(header, payload, start_code_length);
    Bytes extended = {0x40, 0x00, 0x07};
    extended.insert(extended.end(), payload.begin(), payload.end());
    return nal_unit(header, extended, start_code_length);
}

SliceScript SliceSyntax::script() const {
    SliceScript s("Failed to parse");
    using Sh = slice_header_t;
    s.call("_parse_slice_header", {}, [&] {
        s.ue("first_mb_in_slice", first_mb_in_slice, field(&Sh::first_mb_in_slice));
        s.ue("slice_type", slice_type, field(&Sh::slice_type));
        s.ue("pic_parameter_set_id", pic_parameter_set_id, field(&Sh::pic_parameter_set_id));
        if (sps.separate_colour_plane_flag == 1)
            s.u(2, "colour_plane_id", colour_plane_id, field(&Sh::colour_plane_id));
        const auto frame_num_length = static_cast<unsigned>(sps.log2_max_frame_num_minus4 + 4);
        s.position(field(&Sh::frame_num_bitoffset));
        s.derive([=](Sh& record, int) { record.frame_num_bitlength = frame_num_length; });
        s.u(frame_num_length, text("frame_num with bitlength:%u", frame_num_length), frame_num, field(&Sh::frame_num));
        if (sps.frame_mbs_only_flag == 0) {
            s.flag("field_pic_flag", field_pic_flag, field(&Sh::field_pic_flag));
            if (field_pic_flag) s.flag("bottom_field_flag", bottom_field_flag, field(&Sh::bottom_field_flag));
        }
        if (nal_unit_type == 5) {
            s.ue("idr_pic_id", idr_pic_id, field(&Sh::idr_pic_id));
            s.say(6, text("NAL type is I-frame, idr_pic_id:%d", static_cast<int>(idr_pic_id)));
        }
        write_picture_order(s);
        if (pps.redundant_pic_cnt_present_flag != 0)
            s.ue("idr_pic_id", redundant_pic_cnt, field(&Sh::redundant_pic_cnt));
        write_reference_counts(s);
        if (nal_unit_type == 20 || nal_unit_type == 21)
            s.refuse("Failed to parse ref_pic_list_mvc_modification(). Not supported.");
        const auto in_a_part = [](Outcome& outcome) {
            outcome.log.push_back({3, "_parse_slice_header", "Failed to parse ref_pic_list_modification()."});
        };
        s.position(field(&Sh::rplm_bitoffset));
        s.call("_parse_ref_pic_list_modification", in_a_part, [&] { write_modifications(s); });
        if (has_weights()) s.call_ignored("_parse_pred_weight_table", [&] { write_weights(s); });
        if (nal_ref_idc != 0) {
            s.position(field(&Sh::drpm_bitoffset));
            s.call("_parse_dec_ref_pic_marking", in_a_part, [&] { write_marking(s); });
        } else {
            s.derive([](Sh& record, int) { record.drpm_bitoffset = 0; });
        }
        write_quantizers_and_filter(s);
        const unsigned long map_type = pps.slice_group_map_type;
        if (pps.num_slice_groups_minus1 != 0 && (map_type == 3 || map_type == 4 || map_type == 5))
            s.refuse("Failed to parse slice_group_change_cycle.");
        s.position(field(&Sh::slice_header_end_bitoffset));
    });
    return s;
}

void SliceSyntax::write_picture_order(SliceScript& s) const {
    using Sh = slice_header_t;
    const bool of_both_fields = pps.bottom_field_pic_order_in_frame_present_flag != 0 && !field_pic_flag;
    if (sps.pic_order_cnt_type == 0) {
        const auto length = static_cast<unsigned>(sps.log2_max_pic_order_cnt_lsb_minus4 + 4);
        s.u(length, text("pic_order_cnt_lsb with bitlength:%u", length), pic_order_cnt_lsb,
            field(&Sh::pic_order_cnt_lsb));
        if (of_both_fields)
            s.se("delta_pic_order_cnt_bottom", delta_pic_order_cnt_bottom, field(&Sh::delta_pic_order_cnt_bottom));
    }
    if (sps.pic_order_cnt_type == 1 && sps.delta_pic_order_always_zero_flag == 0) {
        s.se("delta_pic_order_cnt[0]", delta_pic_order_cnt[0], entry(&Sh::delta_pic_order_cnt, 0));
        if (of_both_fields) s.se("delta_pic_order_cnt[1]", delta_pic_order_cnt[1], entry(&Sh::delta_pic_order_cnt, 1));
    }
}

void SliceSyntax::write_reference_counts(SliceScript& s) const {
    using Sh = slice_header_t;
    if (is_b())
        s.flag("direct_spatial_mv_pred_flag", direct_spatial_mv_pred_flag, field(&Sh::direct_spatial_mv_pred_flag));
    if (!is_b() && !is_p() && !is_sp()) return;
    s.flag("num_ref_idx_active_override_flag", num_ref_idx_active_override_flag,
           field(&Sh::num_ref_idx_active_override_flag));
    if (!num_ref_idx_active_override_flag) return;
    s.ue("num_ref_idx_l0_active_minus1", weights_l0.size() - 1, field(&Sh::num_ref_idx_l0_active_minus1));
    if (is_b()) s.ue("num_ref_idx_l1_active_minus1", weights_l1.size() - 1, field(&Sh::num_ref_idx_l1_active_minus1));
}

void SliceSyntax::write_modifications(SliceScript& s) const {
    const auto write_list = [&](bool flag, const char* flag_name, int Modification::*flag_field,
                                const std::vector<ModificationSyntax>& modifications) {
        s.flag(flag_name, flag, field(&slice_header_t::rplm, flag_field));
        if (!flag) return;
        const auto put_idc = [&](std::uint64_t idc) {
            s.ue("modification_of_pic_nums_idc", idc,
                 field(&slice_header_t::rplm, &Modification::modification_of_pic_nums_idc));
        };
        for (const ModificationSyntax& modification : modifications) {
            const std::uint64_t idc = modification.modification_of_pic_nums_idc;
            put_idc(idc);
            if (idc == 0 || idc == 1)
                s.ue("abs_diff_pic_num_minus1", modification.value,
                     field(&slice_header_t::rplm, &Modification::abs_diff_pic_num_minus1));
            if (idc == 2)
                s.ue("long_term_pic_num", modification.value,
                     field(&slice_header_t::rplm, &Modification::long_term_pic_num));
        }
        put_idc(3);
    };
    const std::uint64_t type = slice_type % 5;
    if (type == 0 || type == 1 || type == 3)
        write_list(ref_pic_list_modification_flag_l0, "ref_pic_list_modification_flag_l0",
                   &Modification::ref_pic_list_modification_flag_l0, modifications_l0);
    if (type == 1)
        write_list(ref_pic_list_modification_flag_l1, "ref_pic_list_modification_flag_l1",
                   &Modification::ref_pic_list_modification_flag_l1, modifications_l1);
}

void SliceSyntax::write_weights(SliceScript& s) const {
    constexpr auto pwt = &slice_header_t::pwt;
    const bool chroma = sps.ChromaArrayType != 0;
    s.ue("luma_log2_weight_denom", luma_log2_weight_denom, field(pwt, &Weights::luma_log2_weight_denom));
    if (chroma)
        s.ue("chroma_log2_weight_denom", chroma_log2_weight_denom, field(pwt, &Weights::chroma_log2_weight_denom));
    for (std::size_t i = 0; i < weights_l0.size(); ++i) {
        s.flag("luma_weight_l0_flag", weights_l0[i].luma_weight_flag, field(pwt, &Weights::luma_weight_l0_flag));
        if (weights_l0[i].luma_weight_flag) {
            s.se(text("luma_weight_l0[%zu]", i), weights_l0[i].luma_weight, entry(pwt, &Weights::luma_weight_l0, i));
            s.se(text("luma_offset_l0[%zu]", i), weights_l0[i].luma_offset, entry(pwt, &Weights::luma_offset_l0, i));
        }
        if (chroma)
            s.flag("chroma_weight_l0_flag", weights_l0[i].chroma_weight_flag,
                   field(pwt, &Weights::chroma_weight_l0_flag));
    }
    if (!is_b()) return;
    for (std::size_t i = 0; i < weights_l1.size(); ++i) {
        // The message names the other list's flag.
        s.flag("luma_weight_l0_flag", weights_l1[i].luma_weight_flag, field(pwt, &Weights::luma_weight_l1_flag));
        if (weights_l1[i].luma_weight_flag) {
            s.se(text("luma_weight_l1[%zu]", i), weights_l1[i].luma_weight, entry(pwt, &Weights::luma_weight_l1, i));
            s.se(text("luma_offset_l1[%zu]", i), weights_l1[i].luma_offset, entry(pwt, &Weights::luma_offset_l1, i));
        }
        if (chroma)
            s.flag("chroma_weight_l1_flag", weights_l1[i].chroma_weight_flag,
                   field(pwt, &Weights::chroma_weight_l1_flag));
    }
}

void SliceSyntax::write_marking(SliceScript& s) const {
    constexpr auto drpm = &slice_header_t::drpm;
    if (nal_unit_type == 5) {
        s.flag("no_output_of_prior_pics_flag", no_output_of_prior_pics_flag,
               field(drpm, &Marking::no_output_of_prior_pics_flag));
        s.flag("long_term_reference_flag", long_term_reference_flag, field(drpm, &Marking::long_term_reference_flag));
        return;
    }
    s.flag("adaptive_ref_pic_marking_mode_flag", adaptive_ref_pic_marking_mode_flag,
           field(drpm, &Marking::adaptive_ref_pic_marking_mode_flag));
    if (!adaptive_ref_pic_marking_mode_flag) return;
    std::vector<MarkingSyntax> operations = marking;
    operations.push_back({0});
    for (std::size_t i = 0; i < operations.size(); ++i) {
        const auto put = [&](const char* name, std::uint64_t value,
                             unsigned long adaptive_ref_pic_marking_mode_t::*member) {
            s.ue(name, value, [i, member](slice_header_t& record) { return &(record.drpm.arpmm[i].*member); });
        };
        using Mode = adaptive_ref_pic_marking_mode_t;
        const std::uint64_t operation = operations[i].memory_management_control_operation;
        put("memory_management_control_operation", operation, &Mode::memory_management_control_operation);
        if (operation == 1 || operation == 3)
            put("difference_of_pic_nums_minus1", operations[i].first, &Mode::difference_of_pic_nums_minus1);
        if (operation == 2) put("long_term_pic_num", operations[i].first, &Mode::long_term_pic_num);
        if (operation == 3) put("long_term_frame_idx", operations[i].second, &Mode::long_term_frame_idx);
        if (operation == 6) put("long_term_frame_idx", operations[i].first, &Mode::long_term_frame_idx);
        if (operation == 4)
            put("max_long_term_frame_idx_plus1", operations[i].first, &Mode::max_long_term_frame_idx_plus1);
        if (i == 7) {
            s.refuse("to many adaptive reference picture marking mode.");
            return;
        }
    }
}

void SliceSyntax::write_quantizers_and_filter(SliceScript& s) const {
    using Sh = slice_header_t;
    if (pps.entropy_coding_mode_flag != 0 && !is_i() && !is_si())
        s.ue("cabac_init_idc", cabac_init_idc, field(&Sh::cabac_init_idc));
    s.se("slice_qp_delta", slice_qp_delta, field(&Sh::slice_qp_delta));
    if (is_sp()) s.flag("sp_for_switch_flag", sp_for_switch_flag, field(&Sh::sp_for_switch_flag));
    if (is_sp() || is_si()) s.se("slice_qs_delta", slice_qs_delta, field(&Sh::slice_qs_delta));
    if (pps.deblocking_filter_control_present_flag == 0) return;
    s.ue("disable_deblocking_filter_idc", disable_deblocking_filter_idc, field(&Sh::disable_deblocking_filter_idc));
    if (disable_deblocking_filter_idc == 1) return;
    s.se("slice_alpha_c0_offset_div2", slice_alpha_c0_offset_div2, field(&Sh::slice_alpha_c0_offset_div2));
    s.se("slice_beta_offset_div2", slice_beta_offset_div2, field(&Sh::slice_beta_offset_div2));
}

}  // namespace test
