#include <gtest/gtest.h>

#include "h264d/h264d.h"
#include "pps_builder.h"
#include "script_check.h"

namespace {

using test::filled;
using test::PpsSyntax;
using test::text;
using Lines = std::vector<std::string>;

// The lines printed at a level; each must come from the function and the level that lines of its kind belong to.
Lines displayed(const sps_t& sps, const pps_t& pps, int level = 6) {
    test::reset(level);
    H264LIB_Display_pps(&sps, &pps);
    EXPECT_EQ(test::assertions(), Lines{});
    Lines lines;
    for (const test::LogLine& line : test::recorded_log()) {
        EXPECT_EQ(line.file, "h264d.c") << line;
        EXPECT_EQ(line.func, line.text.rfind("delta_scale", 0) == 0 ? "_display_scalingList" : "H264LIB_Display_pps")
            << line;
        EXPECT_EQ(line.level, line.text.rfind("slice_group_id_index", 0) == 0 ? 3 : 6) << line;
        lines.push_back(line.text);
    }
    return lines;
}

test::Bytes bytes_of(const sps_t& sps) {
    const auto* start = reinterpret_cast<const unsigned char*>(&sps);
    return {start, start + sizeof sps};
}

pps_t picture() {
    pps_t pps = filled<pps_t>(0);
    pps.picture_parameter_set_id = 255;
    pps.seq_parameter_set_id = 31;
    pps.entropy_coding_mode_flag = 1;
    pps.num_ref_idx_l0_default_active_minus1 = 15;
    pps.num_ref_idx_l1_default_active_minus1 = 4294967294;
    pps.weighted_pred_flag = 1;
    pps.weighted_bipred_idc = 2;
    pps.pic_init_qp_minus26 = -26;
    pps.pic_init_qs_minus26 = 25;
    pps.chroma_qp_index_offset = -12;
    pps.deblocking_filter_control_present_flag = 1;
    pps.redundant_pic_cnt_present_flag = 1;
    pps.transform_8x8_mode_flag = 1;
    pps.slice_group_map_type = 6;           // of no meaning for one slice group
    pps.second_chroma_qp_index_offset = 9;  // of no meaning without a matrix
    return pps;
}

const Lines kHead = {"picture_parameter_set_id=255.", "seq_parameter_set_id=31.", "entropy_coding_mode_flag=1.",
                     "bottom_field_pic_order_in_frame_present_flag=0."};
const Lines kRest = {"num_ref_idx_l0_default_active_minus1=15.",
                     "num_ref_idx_l1_default_active_minus1=4294967294.",
                     "weighted_pred_flag=1.",
                     "weighted_bipred_idc=2.",
                     "pic_init_qp_minus26=-26.",
                     "pic_init_qs_minus26=25.",
                     "chroma_qp_index_offset=-12.",
                     "deblocking_filter_control_present_flag=1.",
                     "constrained_intra_pred_flag=0.",
                     "redundant_pic_cnt_present_flag=1.",
                     "transform_8x8_mode_flag=1."};

Lines operator+(Lines first, const Lines& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Lines with_groups(const Lines& groups) { return kHead + groups + kRest + Lines{"pic_scaling_matrix_present_flag=0."}; }

TEST(PpsDisplay, OneSliceGroupAndNoMatrix) {
    const Lines lines = displayed(PpsSyntax{}.sps(), picture());
    EXPECT_EQ(lines, with_groups({"num_slice_groups_minus1=0."}));
    EXPECT_EQ(lines.size(), 17U);
    EXPECT_EQ(displayed(PpsSyntax{}.sps(), picture(), 5), Lines{});
    EXPECT_EQ(displayed(PpsSyntax{}.sps(), picture(), 8), lines);
    const test::WithoutHandle silent;
    EXPECT_EQ(displayed(PpsSyntax{}.sps(), picture(), 8), Lines{});
}

TEST(PpsDisplay, SliceGroupsByMapType) {
    const sps_t sps = PpsSyntax{}.sps();
    pps_t pps = picture();
    pps.num_slice_groups_minus1 = 2;
    pps.run_length_minus1[0] = 5;
    pps.run_length_minus1[2] = 99;
    pps.top_left[1] = 7;
    pps.bottom_right[0] = 8;
    pps.bottom_right[1] = 9;
    pps.slice_group_change_direction_flag = 1;
    pps.slice_group_change_rate_minus1 = 80;
    pps.pic_size_in_map_units_minus1 = 2;
    pps.slice_group_id[1] = 2;
    const auto shown = [&](unsigned long map_type) {
        pps.slice_group_map_type = map_type;
        return displayed(sps, pps);
    };
    const auto expected = [](unsigned long map_type, const Lines& groups) {
        return with_groups(Lines{"num_slice_groups_minus1=2.", text("slice_group_map_type=%lu.", map_type)} + groups);
    };
    EXPECT_EQ(shown(0),
              expected(0, {"run_length_minus1[0]=5.", "run_length_minus1[1]=0.", "run_length_minus1[2]=99."}));
    EXPECT_EQ(shown(2), expected(2, {"top_left[0]=0.", "bottom_right[0]=8.", "top_left[1]=7.", "bottom_right[1]=9."}));
    for (const unsigned long map_type : {3UL, 4UL, 5UL})
        EXPECT_EQ(shown(map_type),
                  expected(map_type, {"slice_group_change_direction_flag=1.", "slice_group_change_rate_minus1=80."}));
    EXPECT_EQ(shown(6), expected(6, {"pic_size_in_map_units_minus1=2.", "slice_group_id[0]=0.", "slice_group_id[1]=2.",
                                     "slice_group_id[2]=0."}));
    for (const unsigned long map_type : {1UL, 7UL, 4294967294UL}) EXPECT_EQ(shown(map_type), expected(map_type, {}));
}

TEST(PpsDisplay, GroupsBehindTheEighthAreNotInTheRecord) {
    pps_t pps = picture();
    for (const unsigned long num_slice_groups_minus1 : {7UL, 8UL, 100UL, 4294967294UL, ~0UL}) {
        pps.num_slice_groups_minus1 = num_slice_groups_minus1;
        Lines groups = {text("num_slice_groups_minus1=%u.", static_cast<unsigned>(num_slice_groups_minus1))};
        Lines runs = groups + Lines{"slice_group_map_type=0."};
        for (unsigned i = 0; i < 8; ++i) runs.push_back(text("run_length_minus1[%u]=0.", i));
        pps.slice_group_map_type = 0;
        EXPECT_EQ(displayed(PpsSyntax{}.sps(), pps), with_groups(runs));
        Lines rectangles = groups + Lines{"slice_group_map_type=2."};
        for (unsigned i = 0; i < (num_slice_groups_minus1 == 7 ? 7 : 8); ++i)
            rectangles = rectangles + Lines{text("top_left[%u]=0.", i), text("bottom_right[%u]=0.", i)};
        pps.slice_group_map_type = 2;
        EXPECT_EQ(displayed(PpsSyntax{}.sps(), pps), with_groups(rectangles));
    }
}

TEST(PpsDisplay, IdsBehindThe64thAreReportedAndTheLoopGoesOn) {
    pps_t pps = picture();
    pps.num_slice_groups_minus1 = 1;
    pps.slice_group_map_type = 6;
    for (unsigned i = 0; i < 64; ++i) pps.slice_group_id[i] = i % 2;
    pps.num_ref_idx_l0_default_active_minus1 = 15;
    for (const unsigned long pic_size_in_map_units_minus1 : {63UL, 64UL, 99UL, 1000UL}) {
        pps.pic_size_in_map_units_minus1 = pic_size_in_map_units_minus1;
        const Lines lines = displayed(PpsSyntax{}.sps(), pps);
        Lines groups = {"num_slice_groups_minus1=1.", "slice_group_map_type=6.",
                        text("pic_size_in_map_units_minus1=%lu.", pic_size_in_map_units_minus1)};
        for (unsigned i = 0; i <= pic_size_in_map_units_minus1; ++i) {
            if (i >= 64) groups.push_back("slice_group_id_index:64 is greater than array size.");
            // What is shown for an id that is not in the record is left open.
            const std::string id = text("slice_group_id[%u]=", i);
            const std::size_t at = kHead.size() + groups.size();
            ASSERT_LT(at, lines.size());
            EXPECT_EQ(lines[at].rfind(id, 0), 0U) << lines[at];
            groups.push_back(i < 64 ? id + text("%u.", i % 2) : lines[at]);
        }
        EXPECT_EQ(lines, with_groups(groups));
        const Lines errors = displayed(PpsSyntax{}.sps(), pps, 3);
        EXPECT_EQ(errors.size(), pic_size_in_map_units_minus1 - 63);
    }
}

TEST(PpsDisplay, AHugePictureComesToAnEnd) {
    pps_t pps = picture();
    pps.num_slice_groups_minus1 = 1;
    pps.slice_group_map_type = 6;
    for (const unsigned long pic_size_in_map_units_minus1 : {4294967294UL, ~0UL}) {
        pps.pic_size_in_map_units_minus1 = pic_size_in_map_units_minus1;
        // The largest picture of any level has 139264 map units.
        EXPECT_GE(displayed(PpsSyntax{}.sps(), pps, 3).size(), 139264U - 64);
    }
}

TEST(PpsDisplay, ListsByTheSequenceParameterSetsFlags) {
    pps_t pps = picture();
    pps.pic_scaling_matrix_present_flag = 1;
    for (int i = 0; i < 12; ++i) {
        pps.scaling_list[i].seq_scaling_list_present_flag = i % 2;
        for (int j = 0; j < 64; ++j) pps.scaling_list[i].delta_scale[j] = 100 * i - j;
    }
    for (const std::uint64_t format : {0U, 1U, 2U, 3U, 4U}) {
        PpsSyntax syntax;
        syntax.chroma_format_idc = format;
        for (const std::size_t list : {0U, 3U, 5U, 6U, 7U, 8U, 11U}) syntax.sps_list_present[list] = true;
        Lines expected =
            kHead + Lines{"num_slice_groups_minus1=0."} + kRest + Lines{"pic_scaling_matrix_present_flag=1."};
        for (int i = 0; i < (format == 3 ? 12 : 8); ++i) {
            expected.push_back(text("seq_scaling_list_present_flag[%d]=%d.", i, i % 2));
            if (!syntax.sps_list_present[static_cast<std::size_t>(i)]) continue;
            for (int j = 0; j < (i <= 5 ? 16 : 64); ++j)
                expected.push_back(text("delta_scale[%d]=%d.", j, 100 * i - j));
        }
        expected.push_back("second_chroma_qp_index_offset=9.");
        EXPECT_EQ(displayed(syntax.sps(), pps), expected);
    }
}

TEST(PpsDisplay, ChangesNothing) {
    for (const test::PpsVariant& variant : test::pps_variants()) {
        pps_t pps = filled<pps_t>(0);
        const test::PpsScript script = variant.pps.script();
        script.run(script.bits().bits(), nullptr, pps);
        const sps_t sps = variant.pps.sps();
        const test::Bytes sps_before = bytes_of(sps);
        const pps_t before = pps;
        displayed(sps, pps);
        EXPECT_EQ(test::difference(pps, before), "");
        EXPECT_EQ(bytes_of(sps), sps_before);
    }
}

TEST(PpsDisplay, NullArgumentsAreAsserted) {
    const sps_t sps = PpsSyntax{}.sps();
    const pps_t pps = picture();
    test::reset(6);
    H264LIB_Display_pps(nullptr, &pps);
    EXPECT_EQ(test::assertions(), Lines{"sps != NULL"});
    test::reset(6);
    H264LIB_Display_pps(&sps, nullptr);
    EXPECT_EQ(test::assertions(), Lines{"pps != NULL"});
    EXPECT_EQ(test::records().assertions[0].func, "H264LIB_Display_pps");
    EXPECT_EQ(test::records().assertions[0].file, "h264d.c");
    test::reset(6);
    H264LIB_Display_pps(nullptr, nullptr);
    EXPECT_EQ(test::assertions(), (Lines{"sps != NULL", "pps != NULL"}));
}

}  // namespace
