#include "slice_builder.h"

namespace test {
namespace {

// Every optional part that a slice of this type can have.
SliceSyntax full_slice(std::uint64_t slice_type) {
    SliceSyntax slice;
    slice.slice_type = slice_type;
    slice.sps.separate_colour_plane_flag = 1;
    slice.sps.frame_mbs_only_flag = 0;
    slice.sps.log2_max_frame_num_minus4 = 12;
    slice.sps.log2_max_pic_order_cnt_lsb_minus4 = 3;
    slice.pps.bottom_field_pic_order_in_frame_present_flag = 1;
    slice.pps.redundant_pic_cnt_present_flag = 1;
    slice.pps.weighted_pred_flag = 1;
    slice.pps.weighted_bipred_idc = 1;
    slice.pps.entropy_coding_mode_flag = 1;
    slice.pps.deblocking_filter_control_present_flag = 1;
    slice.nal_ref_idc = 3;
    slice.first_mb_in_slice = 8159;
    slice.pic_parameter_set_id = 255;
    slice.colour_plane_id = 2;
    slice.frame_num = 0xBEEF;
    slice.pic_order_cnt_lsb = 0x55;
    slice.delta_pic_order_cnt_bottom = -2;
    slice.redundant_pic_cnt = 127;
    slice.direct_spatial_mv_pred_flag = true;
    slice.num_ref_idx_active_override_flag = true;
    slice.ref_pic_list_modification_flag_l0 = true;
    slice.modifications_l0 = {{0, 5}, {2, 7}, {1, 99}, {4, 0}, {5, 0}};
    slice.ref_pic_list_modification_flag_l1 = true;
    slice.modifications_l1 = {{1, 1000}, {2, 8}};
    slice.luma_log2_weight_denom = 7;
    slice.chroma_log2_weight_denom = 6;
    slice.weights_l0 = {{true, -128, 127, false}, {false, 0, 0, true}, {true, 64, -9, true}};
    slice.weights_l1 = {{true, 1, 2, true}, {false, 0, 0, false}};
    slice.adaptive_ref_pic_marking_mode_flag = true;
    slice.marking = {{1, 3}, {2, 4}, {3, 5, 6}, {4, 7}, {5}, {6, 8}};
    slice.cabac_init_idc = 2;
    slice.slice_qp_delta = -25;
    slice.sp_for_switch_flag = true;
    slice.slice_qs_delta = 24;
    slice.slice_alpha_c0_offset_div2 = -6;
    slice.slice_beta_offset_div2 = 6;
    return slice;
}

}  // namespace

std::vector<SliceVariant> slice_variants() {
    std::vector<SliceVariant> variants;
    const auto add = [&](const std::string& name, const SliceSyntax& start, auto change) {
        variants.push_back({name, start});
        change(variants.back().slice);
    };
    const auto as_it_is = [](SliceSyntax&) {};
    for (const std::uint64_t type : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 10U, 11U, 12U, 13U, 14U, 4294967294U}) {
        SliceSyntax smallest;
        smallest.slice_type = type;
        add("Smallest" + std::to_string(type), smallest, as_it_is);
        add("Full" + std::to_string(type), full_slice(type), as_it_is);
        add("FullIdr" + std::to_string(type), full_slice(type), [](SliceSyntax& slice) {
            slice.nal_unit_type = 5;
            slice.idr_pic_id = 65535;
            slice.long_term_reference_flag = true;
        });
    }
    for (const unsigned type : {20U, 21U})
        for (const std::uint64_t slice_type : {1U, 2U, 5U})
            add("Multiview" + std::to_string(type) + "Type" + std::to_string(slice_type), full_slice(slice_type),
                [type](SliceSyntax& slice) { slice.nal_unit_type = type; });
    for (const bool bottom : {false, true})
        add(bottom ? "BottomField" : "TopField", full_slice(5), [bottom](SliceSyntax& slice) {
            slice.field_pic_flag = true;
            slice.bottom_field_flag = bottom;
        });
    for (const bool field : {false, true})
        add(field ? "OrderCountType1OfAField" : "OrderCountType1OfAFrame", full_slice(6), [field](SliceSyntax& slice) {
            slice.sps.pic_order_cnt_type = 1;
            slice.field_pic_flag = field;
            slice.delta_pic_order_cnt[0] = -1000;
            slice.delta_pic_order_cnt[1] = 2000;
        });
    add("OrderCountType1OfATopField", full_slice(6), [](SliceSyntax& slice) {
        slice.sps.pic_order_cnt_type = 1;
        slice.pps.bottom_field_pic_order_in_frame_present_flag = 0;
    });
    add("OrderCountType1AlwaysZero", full_slice(6), [](SliceSyntax& slice) {
        slice.sps.pic_order_cnt_type = 1;
        slice.sps.delta_pic_order_always_zero_flag = 1;
    });
    add("OrderCountType2", full_slice(0), [](SliceSyntax& slice) { slice.sps.pic_order_cnt_type = 2; });
    add("WithoutReference", full_slice(6), [](SliceSyntax& slice) { slice.nal_ref_idc = 0; });
    add("FilterOff", full_slice(7), [](SliceSyntax& slice) { slice.disable_deblocking_filter_idc = 1; });
    add("FilterOfSlicesOnly", full_slice(7), [](SliceSyntax& slice) { slice.disable_deblocking_filter_idc = 2; });
    add("MonochromeWeights", full_slice(1), [](SliceSyntax& slice) { slice.sps.ChromaArrayType = 0; });
    add("WeightsWithoutOverride", full_slice(1),
        [](SliceSyntax& slice) { slice.num_ref_idx_active_override_flag = false; });
    add("ImplicitWeights", full_slice(1), [](SliceSyntax& slice) { slice.pps.weighted_bipred_idc = 2; });
    add("WeightsOfBOnly", full_slice(1), [](SliceSyntax& slice) { slice.pps.weighted_pred_flag = 0; });
    add("WeightsOfPOnly", full_slice(1), [](SliceSyntax& slice) { slice.pps.weighted_bipred_idc = 0; });
    add("SevenOperations", full_slice(5), [](SliceSyntax& slice) { slice.marking.push_back({1, 2}); });
    add("OtherOperations", full_slice(5), [](SliceSyntax& slice) { slice.marking = {{7}, {4294967294}, {8}}; });
    for (const unsigned map_type : {0U, 2U, 3U, 4U, 5U, 6U})
        add("SliceGroups" + std::to_string(map_type), full_slice(2), [map_type](SliceSyntax& slice) {
            slice.pps.num_slice_groups_minus1 = 2;
            slice.pps.slice_group_map_type = map_type;
        });
    add("OneSliceGroupOfMapType4", full_slice(2), [](SliceSyntax& slice) { slice.pps.slice_group_map_type = 4; });
    return variants;
}

SliceSyntax random_slice(std::mt19937& random) {
    const auto flag = [&] { return random() % 2 == 0; };
    const auto up_to = [&](std::uint64_t largest) {
        return random() % 16 == 0 ? std::uint64_t{random()} : random() % (largest + 1);
    };
    const auto around = [&](int largest) {
        return static_cast<int>(random() % (2 * static_cast<unsigned>(largest) + 1)) - largest;
    };
    SliceSyntax slice = full_slice(random() % 12);
    slice.nal_unit_type = random() % 3 == 0 ? 5 : 1;
    slice.nal_ref_idc = random() % 4;
    slice.sps.separate_colour_plane_flag = flag();
    slice.sps.frame_mbs_only_flag = flag();
    slice.sps.log2_max_frame_num_minus4 = random() % 29;
    slice.sps.pic_order_cnt_type = random() % 3;
    slice.sps.log2_max_pic_order_cnt_lsb_minus4 = random() % 29;
    slice.sps.delta_pic_order_always_zero_flag = flag();
    slice.sps.ChromaArrayType = random() % 4;
    slice.pps.bottom_field_pic_order_in_frame_present_flag = flag();
    slice.pps.redundant_pic_cnt_present_flag = flag();
    slice.pps.weighted_pred_flag = flag();
    slice.pps.weighted_bipred_idc = static_cast<unsigned char>(random() % 3);
    slice.pps.entropy_coding_mode_flag = flag();
    slice.pps.deblocking_filter_control_present_flag = flag();
    slice.first_mb_in_slice = up_to(200);
    slice.pic_parameter_set_id = up_to(30);
    slice.colour_plane_id = random() % 4;
    slice.frame_num = random() & ((1ULL << (slice.sps.log2_max_frame_num_minus4 + 4)) - 1);
    slice.field_pic_flag = slice.sps.frame_mbs_only_flag == 0 && flag();
    slice.bottom_field_flag = flag();
    slice.idr_pic_id = up_to(10);
    slice.pic_order_cnt_lsb = random() & ((1ULL << (slice.sps.log2_max_pic_order_cnt_lsb_minus4 + 4)) - 1);
    slice.delta_pic_order_cnt_bottom = around(1000);
    slice.redundant_pic_cnt = up_to(127);
    slice.direct_spatial_mv_pred_flag = flag();
    slice.num_ref_idx_active_override_flag = flag();
    const auto modifications = [&](std::size_t count) {
        std::vector<ModificationSyntax> entries(count);
        for (ModificationSyntax& one : entries) one = {random() % 8 == 0 ? 4 + random() % 5 : random() % 3, up_to(30)};
        return entries;
    };
    slice.ref_pic_list_modification_flag_l0 = flag();
    slice.modifications_l0 = modifications(random() % 6);
    slice.ref_pic_list_modification_flag_l1 = flag();
    slice.modifications_l1 = modifications(random() % 6);
    const auto weights = [&](std::size_t count) {
        std::vector<WeightSyntax> entries(count);
        for (WeightSyntax& one : entries) one = {flag(), around(128), around(128), flag()};
        return entries;
    };
    slice.weights_l0 = weights(1 + (flag() ? random() % 4 : random() % 40));
    slice.weights_l1 = weights(1 + (flag() ? random() % 4 : random() % 40));
    slice.adaptive_ref_pic_marking_mode_flag = flag();
    slice.marking.resize(random() % 7);
    for (MarkingSyntax& one : slice.marking) one = {1 + random() % 8, up_to(30), up_to(30)};
    slice.cabac_init_idc = up_to(2);
    slice.slice_qp_delta = around(26);
    slice.sp_for_switch_flag = flag();
    slice.slice_qs_delta = around(26);
    slice.disable_deblocking_filter_idc = up_to(2);
    slice.slice_alpha_c0_offset_div2 = around(6);
    slice.slice_beta_offset_div2 = around(6);
    return slice;
}

SliceSyntax long_slice() {
    SliceSyntax slice;
    slice.slice_type = 5;
    slice.ref_pic_list_modification_flag_l0 = true;
    slice.modifications_l0.assign(3000, {1, 20});
    return slice;
}

}  // namespace test
