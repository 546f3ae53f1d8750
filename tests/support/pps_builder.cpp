#include "pps_builder.h"

#include <cstring>

namespace test {

sps_t PpsSyntax::sps() const {
    sps_t sps;
    std::memset(static_cast<void*>(&sps), 0, sizeof sps);
    sps.chroma_format_idc = chroma_format_idc;
    for (std::size_t i = 0; i < 12; ++i)
        sps.scaling_list[i].seq_scaling_list_present_flag = sps_list_present[i] ? 1 : 0;
    return sps;
}

unsigned slice_group_id_numbits(std::uint64_t slice_groups) {
    unsigned bits = 0;
    for (std::uint64_t reach = 2; reach <= slice_groups; reach *= 2) ++bits;
    return bits;
}

PpsScript PpsSyntax::script() const {
    PpsScript s("cannot parse");
    s.call("_parse_pps", {}, [&] {
        s.ue("picture_parameter_set_id", picture_parameter_set_id, field(&pps_t::picture_parameter_set_id));
        s.ue("seq_parameter_set_id", seq_parameter_set_id, field(&pps_t::seq_parameter_set_id));
        s.flag("entropy_coding_mode_flag", entropy_coding_mode_flag, field(&pps_t::entropy_coding_mode_flag));
        s.flag("bottom_field_pic_order_in_frame_present_flag", bottom_field_pic_order_in_frame_present_flag,
               field(&pps_t::bottom_field_pic_order_in_frame_present_flag));
        s.ue("num_slice_groups_minus1", num_slice_groups_minus1, field(&pps_t::num_slice_groups_minus1));
        if (num_slice_groups_minus1 != 0) write_slice_groups(s);
        s.ue("num_ref_idx_l0_default_active_minus1", num_ref_idx_l0_default_active_minus1,
             field(&pps_t::num_ref_idx_l0_default_active_minus1));
        s.ue("num_ref_idx_l1_default_active_minus1", num_ref_idx_l1_default_active_minus1,
             field(&pps_t::num_ref_idx_l1_default_active_minus1));
        s.flag("weighted_pred_flag", weighted_pred_flag, field(&pps_t::weighted_pred_flag));
        s.u(2, "weighted_bipred_idc", weighted_bipred_idc, field(&pps_t::weighted_bipred_idc), 0);
        s.se("pic_init_qp_minus26", pic_init_qp_minus26, field(&pps_t::pic_init_qp_minus26));
        s.se("pic_init_qs_minus26", pic_init_qs_minus26, field(&pps_t::pic_init_qs_minus26));
        s.se("chroma_qp_index_offset", chroma_qp_index_offset, field(&pps_t::chroma_qp_index_offset));
        s.flag("deblocking_filter_control_present_flag", deblocking_filter_control_present_flag,
               field(&pps_t::deblocking_filter_control_present_flag));
        s.flag("constrained_intra_pred_flag", constrained_intra_pred_flag, field(&pps_t::constrained_intra_pred_flag));
        s.flag("redundant_pic_cnt_present_flag", redundant_pic_cnt_present_flag,
               field(&pps_t::redundant_pic_cnt_present_flag));
        s.may_end();
        if (has_tail) write_tail(s);
    });
    return s;
}

void PpsSyntax::write_slice_groups(PpsScript& s) const {
    s.ue("slice_group_map_type", slice_group_map_type, field(&pps_t::slice_group_map_type));
    if (slice_group_map_type == 0) {
        for (std::size_t i = 0; i < run_length_minus1.size(); ++i)
            s.ue(text("run_length_minus1[%zu]", i), run_length_minus1[i], entry(&pps_t::run_length_minus1, i));
    } else if (slice_group_map_type == 2) {
        for (std::size_t i = 0; i < top_left.size(); ++i) {
            s.ue(text("top_left[%zu]", i), top_left[i], entry(&pps_t::top_left, i));
            s.ue(text("bottom_right[%zu]", i), bottom_right[i], entry(&pps_t::bottom_right, i));
        }
    } else if (slice_group_map_type == 3 || slice_group_map_type == 4 || slice_group_map_type == 5) {
        s.flag("slice_group_change_direction_flag", slice_group_change_direction_flag,
               field(&pps_t::slice_group_change_direction_flag));
        s.ue("slice_group_change_rate_minus1", slice_group_change_rate_minus1,
             field(&pps_t::slice_group_change_rate_minus1));
    } else if (slice_group_map_type == 6) {
        s.ue("pic_size_in_map_units_minus1", slice_group_id.size() - 1, field(&pps_t::pic_size_in_map_units_minus1));
        const unsigned numbits = slice_group_id_numbits(num_slice_groups_minus1 + 1);
        s.say(6, text("slice_group_id_numbits:%u.", numbits));
        for (std::size_t i = 0; i < slice_group_id.size(); ++i)
            s.u(numbits, text("slice_group_id[%zu]", i), slice_group_id[i], entry(&pps_t::slice_group_id, i), 0);
    }
}

void PpsSyntax::write_tail(PpsScript& s) const {
    s.cursor("PPS");
    s.flag("transform_8x8_mode_flag", transform_8x8_mode_flag, field(&pps_t::transform_8x8_mode_flag));
    s.flag("pic_scaling_matrix_present_flag", pic_scaling_matrix_present_flag,
           field(&pps_t::pic_scaling_matrix_present_flag));
    if (!pic_scaling_matrix_present_flag) return;
    for (std::size_t i = 0; i < (chroma_format_idc == 3 ? 12U : 8U); ++i) {
        s.flag(text("seq_scaling_list_present_flag for list[%zu]", i), scaling_list[i].present,
               [i](pps_t& pps) { return &pps.scaling_list[i].seq_scaling_list_present_flag; });
        if (!sps_list_present[i]) continue;
        const auto reaction = [i](Outcome& outcome) {
            outcome.log.push_back({7, "_parse_scalingList", "Done."});
            outcome.log.push_back({3, "_parse_pps", text("Scaling List[%zu] parsing failed!", i)});
        };
        s.call("_parse_scalingList", reaction, [&] {
            s.say(7, "Called.");
            const std::vector<std::int64_t>& deltas = scaling_list[i].delta_scale;
            for (std::size_t j = 0; j < deltas.size(); ++j)
                s.se(text("delta_scale[%zu]", j), deltas[j],
                     [i, j](pps_t& pps) { return &pps.scaling_list[i].delta_scale[j]; });
            s.say(7, "Done.");
        });
    }
    s.se("second_chroma_qp_index_offset", second_chroma_qp_index_offset, field(&pps_t::second_chroma_qp_index_offset));
}

std::vector<PpsVariant> pps_variants() {
    std::vector<PpsVariant> variants;
    const auto add = [&](const char* name, auto change) {
        variants.push_back({name, {}});
        change(variants.back().pps);
    };
    add("Smallest", [](PpsSyntax&) {});
    add("EveryValue", [](PpsSyntax& pps) {
        pps.picture_parameter_set_id = 255;
        pps.seq_parameter_set_id = 31;
        pps.entropy_coding_mode_flag = pps.bottom_field_pic_order_in_frame_present_flag = true;
        pps.num_ref_idx_l0_default_active_minus1 = 15;
        pps.num_ref_idx_l1_default_active_minus1 = 31;
        pps.weighted_pred_flag = true;
        pps.weighted_bipred_idc = 2;
        pps.pic_init_qp_minus26 = -26;
        pps.pic_init_qs_minus26 = 25;
        pps.chroma_qp_index_offset = -12;
        pps.deblocking_filter_control_present_flag = pps.constrained_intra_pred_flag = true;
        pps.redundant_pic_cnt_present_flag = true;
    });
    add("LargestValues", [](PpsSyntax& pps) {
        pps.picture_parameter_set_id = pps.seq_parameter_set_id = 4294967294;
        pps.num_ref_idx_l0_default_active_minus1 = 4294967294;
        pps.weighted_bipred_idc = 3;
        pps.pic_init_qp_minus26 = -2147483647;
        pps.pic_init_qs_minus26 = 2147483647;
    });
    add("InterleavedGroups", [](PpsSyntax& pps) {
        pps.num_slice_groups_minus1 = 2;
        pps.run_length_minus1 = {5, 0, 98};
    });
    add("DispersedGroups", [](PpsSyntax& pps) {
        pps.num_slice_groups_minus1 = 7;
        pps.slice_group_map_type = 1;
    });
    add("ForegroundGroups", [](PpsSyntax& pps) {
        pps.num_slice_groups_minus1 = 3;
        pps.slice_group_map_type = 2;
        pps.top_left = {1, 0, 30};
        pps.bottom_right = {17, 99, 31};
    });
    for (const unsigned map_type : {3U, 4U, 5U})
        add(("ChangingGroups" + std::to_string(map_type)).c_str(), [map_type](PpsSyntax& pps) {
            pps.num_slice_groups_minus1 = 1;
            pps.slice_group_map_type = map_type;
            pps.slice_group_change_direction_flag = map_type != 4;
            pps.slice_group_change_rate_minus1 = 80 + map_type;
        });
    add("ExplicitGroups", [](PpsSyntax& pps) {
        pps.num_slice_groups_minus1 = 4;
        pps.slice_group_map_type = 6;
        pps.slice_group_id = {0, 1, 2, 3, 3, 2, 1, 0, 2};
    });
    add("UnknownGroups", [](PpsSyntax& pps) {
        pps.num_slice_groups_minus1 = 1;
        pps.slice_group_map_type = 7;
    });
    add("TailWithoutMatrix", [](PpsSyntax& pps) { pps.has_tail = pps.transform_8x8_mode_flag = true; });
    add("MatrixWithoutLists", [](PpsSyntax& pps) {
        pps.has_tail = pps.pic_scaling_matrix_present_flag = true;
        for (std::size_t i = 0; i < 12; i += 2) pps.scaling_list[i].present = true;
        pps.second_chroma_qp_index_offset = -7;
    });
    add("MatrixWithLists", [](PpsSyntax& pps) {
        pps.has_tail = pps.transform_8x8_mode_flag = pps.pic_scaling_matrix_present_flag = true;
        pps.sps_list_present = {true, false, false, true, false, true, true, false, true, true, true, true};
        pps.scaling_list[0] = flat_list(16);
        pps.scaling_list[1].present = true;                 // no deltas behind it
        pps.scaling_list[3] = {false, {1, -2, 3, -4, -6}};  // deltas although its flag is 0
        pps.scaling_list[5] = default_list();
        pps.scaling_list[6] = flat_list(64);
        pps.second_chroma_qp_index_offset = 12;
    });
    add("TwelveLists", [](PpsSyntax& pps) {
        pps.has_tail = pps.pic_scaling_matrix_present_flag = true;
        pps.chroma_format_idc = 3;
        for (std::size_t i = 0; i < 12; ++i) {
            pps.sps_list_present[i] = i % 5 != 1;
            pps.scaling_list[i] = i % 2 == 0 ? flat_list(i < 6 ? 16 : 64) : default_list();
        }
        pps.second_chroma_qp_index_offset = 1;
    });
    return variants;
}

PpsSyntax random_pps(std::mt19937& random) {
    const auto flag = [&] { return random() % 2 == 0; };
    const auto up_to = [&](std::uint64_t largest) {
        return random() % 8 == 0 ? random() % 100000 : random() % (largest + 1);
    };
    const auto around = [&](std::int64_t largest) {
        return static_cast<std::int64_t>(up_to(2 * static_cast<std::uint64_t>(largest))) - largest;
    };
    PpsSyntax pps;
    pps.picture_parameter_set_id = up_to(255);
    pps.seq_parameter_set_id = up_to(31);
    pps.entropy_coding_mode_flag = flag();
    pps.bottom_field_pic_order_in_frame_present_flag = flag();
    pps.num_slice_groups_minus1 = flag() ? 0 : random() % 12;
    pps.slice_group_map_type = random() % 9;
    for (std::uint64_t i = 0; i <= pps.num_slice_groups_minus1; ++i) pps.run_length_minus1.push_back(up_to(50));
    for (std::uint64_t i = 0; i < pps.num_slice_groups_minus1; ++i) {
        pps.top_left.push_back(up_to(99));
        pps.bottom_right.push_back(up_to(99));
    }
    pps.slice_group_change_direction_flag = flag();
    pps.slice_group_change_rate_minus1 = up_to(98);
    const unsigned numbits = slice_group_id_numbits(pps.num_slice_groups_minus1 + 1);
    for (std::uint64_t units = 1 + random() % 64; units > 0; --units)
        pps.slice_group_id.push_back(numbits == 0 ? 0 : random() % (1U << numbits));
    pps.num_ref_idx_l0_default_active_minus1 = up_to(31);
    pps.num_ref_idx_l1_default_active_minus1 = up_to(31);
    pps.weighted_pred_flag = flag();
    pps.weighted_bipred_idc = random() % 4;
    pps.pic_init_qp_minus26 = around(26);
    pps.pic_init_qs_minus26 = around(26);
    pps.chroma_qp_index_offset = around(12);
    pps.deblocking_filter_control_present_flag = flag();
    pps.constrained_intra_pred_flag = flag();
    pps.redundant_pic_cnt_present_flag = flag();
    pps.has_tail = flag();
    pps.transform_8x8_mode_flag = flag();
    pps.pic_scaling_matrix_present_flag = flag();
    pps.chroma_format_idc = random() % 5;
    for (std::size_t i = 0; i < 12; ++i) {
        pps.sps_list_present[i] = random() % 3 == 0;
        pps.scaling_list[i] = flag() ? flat_list(i < 6 ? 16 : 64) : default_list();
        pps.scaling_list[i].present = flag();
    }
    pps.second_chroma_qp_index_offset = around(12);
    return pps;
}

Bytes pps_unit_of_size(std::size_t behind_start_code, int start_code_length, bool stop_bit_alone,
                       std::uint64_t picture_parameter_set_id) {
    PpsSyntax pps;
    pps.picture_parameter_set_id = picture_parameter_set_id;
    pps.run_length_minus1.resize(8 * behind_start_code - 64);  // nearly enough
    for (;;) {
        pps.run_length_minus1.push_back(0);  // one bit each
        pps.num_slice_groups_minus1 = pps.run_length_minus1.size() - 1;
        const PpsScript script = pps.script();
        const Bytes rbsp = script.rbsp();
        if (1 + rbsp.size() > behind_start_code) break;
        // With one bit behind the elements there would be too little for the tail.
        const std::size_t used = script.bits().bits() % 8;
        if (1 + rbsp.size() == behind_start_code && (stop_bit_alone ? used == 0 : used != 0 && used != 7))
            return nal_unit(0x68, rbsp, start_code_length);
    }
    return {};
}

}  // namespace test
