#include <gtest/gtest.h>

#include "h264d/slice_header.h"
#include "script_check.h"
#include "slice_builder.h"

namespace {

using test::filled;
using test::Log;
using test::SliceSyntax;
using test::text;
using Lines = std::vector<std::string>;

Lines operator+(Lines first, const Lines& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// The lines that a display prints; each must come from the function and the level that lines of its kind belong to.
Lines lines_of(const std::function<void()>& display, int level) {
    test::reset(level);
    display();
    Lines lines;
    for (const test::LogLine& line : test::recorded_log()) {
        EXPECT_EQ(line.file, "h264d.c") << line;
        EXPECT_EQ(line.level, line.text.find("ot supported.") != std::string::npos ? 3 : 6) << line;
        lines.push_back(line.text);
    }
    return lines;
}

// The record of a slice as its reader fills it, displayed.
Lines displayed(const SliceSyntax& slice, const slice_header_t& record, int level = 6) {
    Lines lines = lines_of(
        [&] {
            H264LIB_Display_slice_header(&slice.sps, &slice.pps, static_cast<BYTE>(slice.nal_unit_type),
                                         static_cast<BYTE>(slice.nal_ref_idc), &record);
        },
        level);
    EXPECT_EQ(test::assertions(), Lines{});
    return lines;
}
slice_header_t record_of(const SliceSyntax& slice) {
    slice_header_t record = slice.record_before(0x11);
    const test::SliceScript script = slice.script();
    script.run(script.bits().bits(), nullptr, record);
    return record;
}
Lines displayed(const SliceSyntax& slice, int level = 6) { return displayed(slice, record_of(slice), level); }

// Values for all elements; most conditions on.
SliceSyntax full(std::uint64_t slice_type) {
    for (const test::SliceVariant& variant : test::slice_variants())
        if (variant.name == "Full" + std::to_string(slice_type)) return variant.slice;
    ADD_FAILURE();
    return {};
}

const Lines kModificationsL0 = {"ref_pic_list_modification_flag_l0=1.", "modification_of_pic_nums_idc=3."};
const Lines kWeightsL0 = {"luma_log2_weight_denom=7.", "chroma_log2_weight_denom=6.",
                          // The flags of all entries are those of the last one.
                          "luma_weight_l0_flag=1.", "luma_weight_l0[0]=-128.", "luma_offset_l0[0]=127.",
                          "chroma_weight_l0_flag=1.", "luma_weight_l0_flag=1.", "luma_weight_l0[1]=286331153.",
                          "luma_offset_l0[1]=286331153.", "chroma_weight_l0_flag=1.", "luma_weight_l0_flag=1.",
                          "luma_weight_l0[2]=64.", "luma_offset_l0[2]=-9.", "chroma_weight_l0_flag=1."};
const Lines kMarking = {"adaptive_ref_pic_marking_mode_flag=1.",
                        "memory_management_control_operation[0]=1.",
                        "difference_of_pic_nums_minus1[0]=3.",
                        "memory_management_control_operation[1]=2.",
                        "long_term_pic_num[1]=4.",
                        "memory_management_control_operation[2]=3.",
                        "difference_of_pic_nums_minus1[2]=5.",
                        "long_term_frame_idx[2]=6.",
                        "memory_management_control_operation[3]=4.",
                        "max_long_term_frame_idx_plus1[3]=7.",
                        "memory_management_control_operation[4]=5.",
                        "memory_management_control_operation[5]=6.",
                        "long_term_frame_idx[5]=8.",
                        "memory_management_control_operation[6]=0."};
const Lines kFilter = {"disable_deblocking_filter_idc=0.", "slice_alpha_c0_offset_div2=-6.",
                       "slice_beta_offset_div2=6."};

Lines head(std::uint64_t slice_type) {
    return {"first_mb_in_slice=8159.",
            text("slice_type=%lu.", slice_type),
            "pic_parameter_set_id=255.",
            "colour_plane_id=2.",
            "frame_num=48879.",
            "field_pic_flag=0.",
            "pic_order_cnt_lsb=85, bitlength:7.",
            "delta_pic_order_cnt_bottom=-2.",
            "redundant_pic_cnt=127."};
}

TEST(SliceDisplay, SmallestISlice) {
    for (const std::uint64_t type : {2U, 7U}) {
        SliceSyntax slice;
        slice.slice_type = type;
        slice.frame_num = 9;
        slice.pic_order_cnt_lsb = 12;
        slice.slice_qp_delta = -3;
        const Lines lines = displayed(slice);
        EXPECT_EQ(lines, (Lines{"first_mb_in_slice=0.", text("slice_type=%lu.", type), "pic_parameter_set_id=0.",
                                "frame_num=9.", "pic_order_cnt_lsb=12, bitlength:4.",
                                "adaptive_ref_pic_marking_mode_flag=0.", "slice_qp_delta=-3."}));
        EXPECT_EQ(displayed(slice, 5), Lines{});
        EXPECT_EQ(displayed(slice, 8), lines);
        slice.nal_ref_idc = 0;
        EXPECT_EQ(displayed(slice).size(), 6U);
    }
}

TEST(SliceDisplay, ISlice) {
    for (const std::uint64_t type : {2U, 7U})
        EXPECT_EQ(displayed(full(type)), (head(type) + kMarking + Lines{"slice_qp_delta=-25."} + kFilter));
}

TEST(SliceDisplay, SiSlice) {
    for (const std::uint64_t type : {4U, 9U})
        EXPECT_EQ(displayed(full(type)),
                  (head(type) + kMarking + Lines{"slice_qp_delta=-25.", "slice_qs_delta=24."} + kFilter));
}

TEST(SliceDisplay, PSlice) {
    for (const std::uint64_t type : {0U, 5U})
        EXPECT_EQ(
            displayed(full(type)),
            (head(type) + Lines{"num_ref_idx_active_override_flag=1.", "num_ref_idx_l0_active_minus1=2."} +
             kModificationsL0 + kWeightsL0 + kMarking + Lines{"cabac_init_idc=2.", "slice_qp_delta=-25."} + kFilter));
}

TEST(SliceDisplay, SpSlice) {
    for (const std::uint64_t type : {3U, 8U})
        EXPECT_EQ(displayed(full(type)),
                  (head(type) + Lines{"num_ref_idx_active_override_flag=1.", "num_ref_idx_l0_active_minus1=2."} +
                   kModificationsL0 + kWeightsL0 + kMarking +
                   Lines{"cabac_init_idc=2.", "slice_qp_delta=-25.", "sp_for_switch_flag=1.", "slice_qs_delta=24."} +
                   kFilter));
}

TEST(SliceDisplay, BSlice) {
    for (const std::uint64_t type : {1U, 6U})
        EXPECT_EQ(displayed(full(type)),
                  (head(type) +
                   Lines{"direct_spatial_mv_pred_flag=1.", "num_ref_idx_active_override_flag=1.",
                         "num_ref_idx_l0_active_minus1=2.", "num_ref_idx_l1_active_minus1=1."} +
                   kModificationsL0 + Lines{"ref_pic_list_modification_flag_l1=1.", "modification_of_pic_nums_idc=3."} +
                   kWeightsL0 +
                   Lines{"luma_weight_l1_flag=0.", "chroma_weight_l1_flag=0.", "luma_weight_l1_flag=0.",
                         "chroma_weight_l1_flag=0."} +
                   kMarking + Lines{"cabac_init_idc=2.", "slice_qp_delta=-25."} + kFilter));
}

// Beyond slice_type 9 the list modification goes by the remainder and nothing else does.
TEST(SliceDisplay, UnknownSliceTypes) {
    const auto rest = kMarking + Lines{"cabac_init_idc=2.", "slice_qp_delta=-25."} + kFilter;
    EXPECT_EQ(displayed(full(10)), (head(10) + kModificationsL0 + rest));
    EXPECT_EQ(displayed(full(11)),
              (head(11) + kModificationsL0 +
               Lines{"ref_pic_list_modification_flag_l1=1.", "modification_of_pic_nums_idc=3."} + rest));
    EXPECT_EQ(displayed(full(12)), (head(12) + rest));
    EXPECT_EQ(displayed(full(13)), (head(13) + kModificationsL0 + rest));
    EXPECT_EQ(displayed(full(14)), (head(14) + rest));
}

TEST(SliceDisplay, IdrSlice) {
    SliceSyntax slice;
    slice.nal_unit_type = 5;
    slice.nal_ref_idc = 3;
    slice.idr_pic_id = 4;
    slice.no_output_of_prior_pics_flag = true;
    const Lines expected = {"first_mb_in_slice=0.",
                            "slice_type=7.",
                            "pic_parameter_set_id=0.",
                            "frame_num=0.",
                            "idr_pic_id=4.",
                            "pic_order_cnt_lsb=0, bitlength:4.",
                            "no_output_of_prior_pics_flag=1.",
                            "long_term_reference_flag=0.",
                            "slice_qp_delta=0."};
    const slice_header_t record = record_of(slice);
    EXPECT_EQ(displayed(slice, record), expected);
    slice.nal_unit_type = 5 + 32;  // five bits count
    EXPECT_EQ(displayed(slice, record), expected);
}

TEST(SliceDisplay, MultiviewSlice) {
    for (const unsigned type : {20U, 21U}) {
        SliceSyntax slice = full(5);
        slice.nal_unit_type = type;
        const slice_header_t record = record_of(full(5));
        const Lines mvc = {"ref_pic_list_mvc_modification(). Not supported."};
        EXPECT_EQ(displayed(slice, record),
                  (head(5) + Lines{"num_ref_idx_active_override_flag=1.", "num_ref_idx_l0_active_minus1=2."} + mvc +
                   kWeightsL0 + kMarking + Lines{"cabac_init_idc=2.", "slice_qp_delta=-25."} + kFilter));
        EXPECT_EQ(displayed(slice, record, 5), mvc);
        EXPECT_EQ(test::recorded_log(), (Log{{3, "H264LIB_Display_slice_header", mvc[0]}}));
        slice.nal_unit_type = type + 32;
        EXPECT_EQ(displayed(slice, record, 5), Lines{});
    }
}

TEST(SliceDisplay, Fields) {
    SliceSyntax slice;
    slice.sps.frame_mbs_only_flag = 0;
    slice.pps.bottom_field_pic_order_in_frame_present_flag = 1;
    slice.nal_ref_idc = 0;
    const Lines start = {"first_mb_in_slice=0.", "slice_type=7.", "pic_parameter_set_id=0.", "frame_num=0."};
    EXPECT_EQ(displayed(slice), (start + Lines{"field_pic_flag=0.", "pic_order_cnt_lsb=0, bitlength:4.",
                                               "delta_pic_order_cnt_bottom=0.", "slice_qp_delta=0."}));
    slice.field_pic_flag = slice.bottom_field_flag = true;
    EXPECT_EQ(displayed(slice), (start + Lines{"field_pic_flag=1.", "bottom_field_flag=1.",
                                               "pic_order_cnt_lsb=0, bitlength:4.", "slice_qp_delta=0."}));
}

TEST(SliceDisplay, PictureOrderCountTypes) {
    SliceSyntax slice;
    slice.nal_ref_idc = 0;
    slice.delta_pic_order_cnt[0] = -5;
    slice.delta_pic_order_cnt[1] = 6;
    const Lines start = {"first_mb_in_slice=0.", "slice_type=7.", "pic_parameter_set_id=0.", "frame_num=0."};
    const Lines end = {"slice_qp_delta=0."};
    slice.sps.log2_max_pic_order_cnt_lsb_minus4 = 12;
    EXPECT_EQ(displayed(slice), (start + Lines{"pic_order_cnt_lsb=0, bitlength:16."} + end));
    slice.sps.pic_order_cnt_type = 1;
    EXPECT_EQ(displayed(slice), (start + Lines{"delta_pic_order_cnt[0]=-5."} + end));
    slice.pps.bottom_field_pic_order_in_frame_present_flag = 1;
    EXPECT_EQ(displayed(slice), (start + Lines{"delta_pic_order_cnt[0]=-5.", "delta_pic_order_cnt[1]=6."} + end));
    slice.sps.delta_pic_order_always_zero_flag = 1;
    EXPECT_EQ(displayed(slice), (start + end));
    slice.sps.delta_pic_order_always_zero_flag = 0;
    slice.sps.pic_order_cnt_type = 2;
    EXPECT_EQ(displayed(slice), (start + end));
}

TEST(SliceDisplay, TheDeblockingFilter) {
    SliceSyntax slice = full(7);
    for (const std::uint64_t idc : {0U, 1U, 2U, 3U}) {
        slice.disable_deblocking_filter_idc = idc;
        const Lines lines = displayed(slice);
        EXPECT_EQ(lines[lines.size() - (idc == 1 ? 1 : 3)], text("disable_deblocking_filter_idc=%lu.", idc));
    }
    slice.pps.deblocking_filter_control_present_flag = 0;
    EXPECT_EQ(displayed(slice).back(), "slice_qp_delta=-25.");
}

TEST(SliceDisplay, ChangingSliceGroups) {
    for (unsigned long map_type = 0; map_type < 8; ++map_type) {
        SliceSyntax slice;
        slice.pps.num_slice_groups_minus1 = 1;
        slice.pps.slice_group_map_type = map_type;
        const Log expected = {{3, "H264LIB_Display_slice_header", "Slice group change cycle not supported."}};
        displayed(slice, 5);
        EXPECT_EQ(test::recorded_log(), map_type >= 3 && map_type <= 5 ? expected : Log{});
        EXPECT_EQ(displayed(slice).size(), map_type >= 3 && map_type <= 5 ? 8U : 7U);
        slice.pps.num_slice_groups_minus1 = 0;
        EXPECT_EQ(displayed(slice).size(), 7U);
    }
}

// What decides on the table is the parser's condition.
TEST(SliceDisplay, WeightsByParameterSetAndSliceType) {
    for (std::uint64_t type = 0; type < 10; ++type)
        for (const int weighted_pred : {0, 1})
            for (const unsigned weighted_bipred : {0U, 1U, 2U}) {
                SliceSyntax slice;
                slice.slice_type = type;
                slice.pps.weighted_pred_flag = weighted_pred;
                slice.pps.weighted_bipred_idc = static_cast<unsigned char>(weighted_bipred);
                const bool p = type == 0 || type == 3 || type == 5 || type == 8;
                const bool b = type == 1 || type == 6;
                displayed(slice);
                EXPECT_EQ(test::count("luma_log2_weight_denom=0."),
                          (p && weighted_pred) || (b && weighted_bipred == 1) ? 1 : 0);
                EXPECT_EQ(test::count("luma_weight_l1_flag=0."), b && weighted_bipred == 1 ? 1 : 0);
            }
}

TEST(SliceDisplay, WeightsOfBothListsWithAndWithoutChroma) {
    SliceSyntax slice;
    slice.slice_type = 1;
    slice_header_t record = filled<slice_header_t>(0);
    record.slice_type = 1;
    record.num_ref_idx_l0_active_minus1 = 1;
    record.pwt.luma_log2_weight_denom = 5;
    record.pwt.luma_weight_l0_flag = 0;
    record.pwt.luma_weight_l1_flag = 1;
    record.pwt.luma_weight_l1[0] = -7;
    record.pwt.luma_offset_l1[0] = 8;
    record.pwt.chroma_weight_l0_flag = record.pwt.chroma_weight_l1_flag = 1;
    record.pwt.chroma_weight_l0[0][0] = 44;
    const auto shown = [&](unsigned long chroma_array_type) {
        return lines_of([&] { _display_pred_weight_table(chroma_array_type, &record); }, 6);
    };
    EXPECT_EQ(shown(0), (Lines{"luma_log2_weight_denom=5.", "luma_weight_l0_flag=0.", "luma_weight_l0_flag=0.",
                               "luma_weight_l1_flag=1.", "luma_weight_l1[0]=-7.", "luma_offset_l1[0]=8."}));
    for (const unsigned long chroma_array_type : {1UL, 2UL, 3UL})
        EXPECT_EQ(shown(chroma_array_type),
                  (Lines{"luma_log2_weight_denom=5.", "chroma_log2_weight_denom=0.", "luma_weight_l0_flag=0.",
                         "chroma_weight_l0_flag=1.", "luma_weight_l0_flag=0.", "chroma_weight_l0_flag=1.",
                         "luma_weight_l1_flag=1.", "luma_weight_l1[0]=-7.", "luma_offset_l1[0]=8.",
                         "chroma_weight_l1_flag=1."}));
    for (const test::LogLine& line : test::recorded_log()) EXPECT_EQ(line.func, "_display_pred_weight_table");
}

TEST(SliceDisplay, CountsBeyondTheRecordAreBounded) {
    test::GuardedBuffer memory(sizeof(slice_header_t));
    auto* record = new (memory.data()) slice_header_t{};
    record->slice_type = 6;
    for (const unsigned long count_minus1 : {30UL, 31UL, 32UL, 4294967294UL, ~0UL}) {
        record->num_ref_idx_l0_active_minus1 = record->num_ref_idx_l1_active_minus1 = count_minus1;
        const Lines lines = lines_of([&] { _display_pred_weight_table(0, record); }, 6);
        EXPECT_EQ(lines.size(), count_minus1 == 30 ? 1U + 2 * 31 : 1U + 2 * 32);
    }
    // Eight operations and no end.
    record->drpm.adaptive_ref_pic_marking_mode_flag = 1;
    for (adaptive_ref_pic_marking_mode_t& mode : record->drpm.arpmm) mode.memory_management_control_operation = 5;
    const Lines lines = lines_of([&] { _display_dec_ref_pic_marking(FALSE, record); }, 6);
    ASSERT_EQ(lines.size(), 9U);
    EXPECT_EQ(lines[8], "memory_management_control_operation[7]=5.");
}

// A record of a failed parse may hold another idc than 3; the display still comes to an end.
TEST(SliceDisplay, AListWithoutEndIsBounded) {
    slice_header_t record = filled<slice_header_t>(0);
    record.slice_type = 6;
    record.rplm.ref_pic_list_modification_flag_l0 = record.rplm.ref_pic_list_modification_flag_l1 = 1;
    record.rplm.abs_diff_pic_num_minus1 = 11;
    record.rplm.long_term_pic_num = 22;
    for (const unsigned long idc : {0UL, 1UL, 2UL, 4UL, 7UL, 4294967294UL}) {
        record.rplm.modification_of_pic_nums_idc = idc;
        const Lines lines = lines_of([&] { _display_ref_pic_list_modification(&record); }, 6);
        ASSERT_GE(lines.size(), 2U);
        EXPECT_LE(lines.size(), 1000U);
        EXPECT_EQ(lines[0], "ref_pic_list_modification_flag_l0=1.");
        EXPECT_EQ(lines[1], text("modification_of_pic_nums_idc=%lu.", idc));
        EXPECT_EQ(test::count("abs_diff_pic_num_minus1=11.") > 0, idc == 0 || idc == 1);
        EXPECT_EQ(test::count("long_term_pic_num=22.") > 0, idc == 2);
        EXPECT_EQ(test::count("ref_pic_list_modification_flag_l1=1."), 1);
    }
}

TEST(SliceDisplay, FunctionsThatReport) {
    const Lines lines = displayed(full(6));
    for (const test::LogLine& line : test::recorded_log()) {
        const auto starts = [&](const char* start) { return line.text.rfind(start, 0) == 0; };
        const char* function = "H264LIB_Display_slice_header";
        if (starts("ref_pic_list") || starts("modification")) function = "_display_ref_pic_list_modification";
        if (starts("luma_") || starts("chroma_")) function = "_display_pred_weight_table";
        if (starts("adaptive") || starts("memory") || starts("difference") || starts("long") || starts("max"))
            function = "_display_dec_ref_pic_marking";
        EXPECT_EQ(line.func, function) << line;
    }
    EXPECT_EQ(lines.size(), test::recorded_log().size());
}

TEST(SliceDisplay, ChangesNothing) {
    for (const test::SliceVariant& variant : test::slice_variants()) {
        const slice_header_t before = record_of(variant.slice);
        const slice_header_t record = before;
        displayed(variant.slice, record);
        EXPECT_EQ(test::difference(record, before), "");
    }
    const test::WithoutHandle silent;
    EXPECT_EQ(displayed(full(6), 8), Lines{});
}

TEST(SliceDisplay, NullArgumentsAreAsserted) {
    test::reset(6);
    _display_ref_pic_list_modification(nullptr);
    EXPECT_EQ(test::assertions(), Lines{"pSh != NULL"});
    EXPECT_EQ(test::records().assertions[0].func, "_display_ref_pic_list_modification");
    EXPECT_EQ(test::records().assertions[0].file, "h264d.c");
    const SliceSyntax slice;
    const slice_header_t record = record_of(slice);
    test::reset(6);
    H264LIB_Display_slice_header(nullptr, &slice.pps, 1, 1, &record);
    H264LIB_Display_slice_header(&slice.sps, nullptr, 1, 1, &record);
    H264LIB_Display_slice_header(&slice.sps, &slice.pps, 1, 1, nullptr);
    EXPECT_EQ(test::recorded_log(), Log{});
}

}  // namespace
