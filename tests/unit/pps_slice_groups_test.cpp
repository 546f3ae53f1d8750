// Slice groups of a picture parameter set: what is read, and what does not fit the record.
#include <gtest/gtest.h>

#include "h264d/pps.h"
#include "pps_builder.h"
#include "script_check.h"

namespace {

using test::BitsRead;
using test::BitWriter;
using test::filled;
using test::Log;
using test::PpsSyntax;
using test::text;

constexpr std::uint64_t kLargest = 4294967294;

// picture_parameter_set_id to slice_group_map_type.
BitWriter groups_of(std::uint64_t num_slice_groups_minus1, std::uint64_t slice_group_map_type) {
    BitWriter bits;
    bits.ue(1).ue(2).flag(false).flag(true).ue(num_slice_groups_minus1).ue(slice_group_map_type);
    return bits;
}

// Everything behind the slice groups, with values that tell it from what stands before.
void write_rest(BitWriter& bits) {
    bits.ue(9).ue(10).flag(true).u(2, 2).se(-5).se(6).se(-7).flag(true).flag(false).flag(true);
}

BitsRead<pps_t> read(const BitWriter& bits, int level = 3) {
    return {bits.bytes(), bits.bits(), level, filled<pps_t>(0x11), [](bitbuffer_t& bb, pps_t& record) {
                const sps_t sps = PpsSyntax{}.sps();
                return _parse_pps(&bb, &sps, &record);
            }};
}

void expect_rest(const BitsRead<pps_t>& read) {
    EXPECT_EQ(read.result, 0);
    EXPECT_EQ(read.bb.bit_offset, read.bb.num_bits);
    EXPECT_EQ(read.record.num_ref_idx_l0_default_active_minus1, 9U);
    EXPECT_EQ(read.record.num_ref_idx_l1_default_active_minus1, 10U);
    EXPECT_EQ(read.record.weighted_bipred_idc, 2);
    EXPECT_EQ(read.record.pic_init_qp_minus26, -5);
    EXPECT_EQ(read.record.pic_init_qs_minus26, 6);
    EXPECT_EQ(read.record.chroma_qp_index_offset, -7);
    EXPECT_EQ(read.record.redundant_pic_cnt_present_flag, 1);
}

// The record is what it was but for the elements that are stored in any case and those given here.
void expect_only(const BitsRead<pps_t>& read, const std::function<void(pps_t&)>& stored) {
    pps_t expected = filled<pps_t>(0x11);
    expected.picture_parameter_set_id = 1;
    expected.seq_parameter_set_id = 2;
    expected.entropy_coding_mode_flag = 0;
    expected.bottom_field_pic_order_in_frame_present_flag = 1;
    stored(expected);
    EXPECT_EQ(test::difference(read.record, expected), "");
}

TEST(PpsSliceGroups, IdsHaveTheFloorOfTheLogarithm) {
    const unsigned numbits[] = {0, 0, 1, 1, 2, 2, 2, 2, 3};  // by the number of slice groups
    for (unsigned groups = 2; groups <= 8; ++groups) {
        SCOPED_TRACE(groups);
        BitWriter bits = groups_of(groups - 1, 6);
        bits.ue(4);
        for (unsigned id = 0; id < 5; ++id) bits.u(numbits[groups], id);
        write_rest(bits);
        const BitsRead<pps_t> parsed = read(bits, 6);
        expect_rest(parsed);
        for (unsigned id = 0; id < 5; ++id)
            EXPECT_EQ(parsed.record.slice_group_id[id], id & ((1U << numbits[groups]) - 1)) << id;
        EXPECT_EQ(parsed.record.slice_group_id[5], 0x1111111111111111U);
        EXPECT_EQ(parsed.record.pic_size_in_map_units_minus1, 4U);
        EXPECT_EQ(parsed.log, (Log{{6, "_parse_pps", text("slice_group_id_numbits:%u.", numbits[groups])}}));
    }
}

TEST(PpsSliceGroups, IdsOfMoreSliceGroupsThanALevelAllows) {
    for (const auto& [groups, numbits] :
         {std::pair<std::uint64_t, unsigned>{9, 3}, {15, 3}, {16, 4}, {1000, 9}, {4294967295, 31}}) {
        BitWriter bits = groups_of(groups - 1, 6);
        bits.ue(0).u(numbits, (1ULL << numbits) - 1);
        write_rest(bits);
        const BitsRead<pps_t> parsed = read(bits, 6);
        expect_rest(parsed);
        EXPECT_EQ(parsed.record.num_slice_groups_minus1, groups - 1);
        EXPECT_EQ(parsed.record.slice_group_id[0], (1ULL << numbits) - 1);
    }
}

TEST(PpsSliceGroups, TheIdLengthIsToldBehindTheSizeAndBeforeTheIds) {
    BitWriter bits = groups_of(2, 6);
    const BitsRead<pps_t> without_size = read(bits, 6);
    EXPECT_EQ(without_size.result, -1);
    EXPECT_EQ(without_size.log, (Log{{3, "_parse_pps", "cannot parse pic_size_in_map_units_minus1."}}));
    bits.ue(5).u(1, 1).u(1, 0);
    const BitsRead<pps_t> without_ids = read(bits, 6);
    EXPECT_EQ(without_ids.result, 0);
    EXPECT_EQ(without_ids.log, (Log{{6, "_parse_pps", "slice_group_id_numbits:1."},
                                    {3, "_parse_pps", "cannot parse slice_group_id[2]."}}));
    expect_only(without_ids, [](pps_t& pps) {
        pps.num_slice_groups_minus1 = 2;
        pps.slice_group_map_type = 6;
        pps.pic_size_in_map_units_minus1 = 5;
        pps.slice_group_id[0] = 1;
        pps.slice_group_id[1] = 0;
    });
}

TEST(PpsSliceGroups, SixtyFourIdsFit) {
    BitWriter bits = groups_of(3, 6);
    bits.ue(63);
    for (unsigned i = 0; i < 64; ++i) bits.u(2, i % 4);
    write_rest(bits);
    const BitsRead<pps_t> parsed = read(bits);
    expect_rest(parsed);
    EXPECT_EQ(parsed.log, Log{});
    for (unsigned i = 0; i < 64; ++i) EXPECT_EQ(parsed.record.slice_group_id[i], i % 4);
}

// What follows is read from where the 65th id begins.
TEST(PpsSliceGroups, TheOtherIdsAreTakenForWhatFollows) {
    for (const std::uint64_t pic_size_in_map_units_minus1 : std::vector<std::uint64_t>{64, 99, kLargest}) {
        BitWriter bits = groups_of(1, 6);
        bits.ue(pic_size_in_map_units_minus1);
        for (unsigned i = 0; i < 64; ++i) bits.flag(i % 3 == 0);
        write_rest(bits);
        const BitsRead<pps_t> parsed = read(bits, 6);
        expect_rest(parsed);
        EXPECT_EQ(parsed.record.pic_size_in_map_units_minus1, pic_size_in_map_units_minus1);
        EXPECT_EQ(parsed.record.slice_group_id[63], 1U);
        EXPECT_EQ(parsed.record.num_ref_idx_l0_default_active_minus1, 9U) << "the neighbour is not overwritten";
        EXPECT_EQ(parsed.log, (Log{{6, "_parse_pps", "slice_group_id_numbits:1."},
                                   {3, "_parse_pps", "slice_group_id_index:64 is greater than array size."}}));
    }
    // With all hundred ids in the stream, the last 36 are the wrong values of the elements behind.
    BitWriter bits = groups_of(2, 6);
    bits.ue(99);
    for (unsigned i = 0; i < 64; ++i) bits.flag(false);
    for (unsigned i = 64; i < 100; ++i) bits.flag(true);
    write_rest(bits);
    const BitsRead<pps_t> parsed = read(bits, 3);
    EXPECT_EQ(parsed.record.slice_group_id[63], 0U);
    EXPECT_EQ(parsed.record.num_ref_idx_l0_default_active_minus1, 0U);
    EXPECT_EQ(parsed.record.weighted_pred_flag, 1);
    EXPECT_EQ(parsed.record.weighted_bipred_idc, 3);
    EXPECT_EQ(parsed.record.chroma_qp_index_offset, 0);
    EXPECT_EQ(parsed.record.redundant_pic_cnt_present_flag, 1);
    EXPECT_EQ(parsed.log[0].text, "slice_group_id_index:64 is greater than array size.");
}

TEST(PpsSliceGroups, NothingIsReadForOneSliceGroup) {
    BitWriter bits;
    bits.ue(1).ue(2).flag(false).flag(true).ue(0);
    write_rest(bits);
    const BitsRead<pps_t> parsed = read(bits, 6);
    expect_rest(parsed);
    EXPECT_EQ(parsed.record.slice_group_map_type, 0x1111111111111111U);
    EXPECT_EQ(parsed.record.run_length_minus1[0], 0x1111111111111111U);
}

TEST(PpsSliceGroups, NothingFollowsMapTypes1And7AndAbove) {
    for (const std::uint64_t map_type : std::vector<std::uint64_t>{1, 7, 8, 255, kLargest}) {
        BitWriter bits = groups_of(7, map_type);
        write_rest(bits);
        const BitsRead<pps_t> parsed = read(bits, 6);
        expect_rest(parsed);
        EXPECT_EQ(parsed.record.slice_group_map_type, map_type);
        EXPECT_EQ(parsed.record.slice_group_change_direction_flag, 0x11111111);
        EXPECT_EQ(parsed.log, Log{});
    }
}

TEST(PpsSliceGroups, RunLengthsIncludeTheLastGroupAndRectanglesDoNot) {
    for (std::uint64_t num_slice_groups_minus1 = 1; num_slice_groups_minus1 <= 7; ++num_slice_groups_minus1) {
        BitWriter runs = groups_of(num_slice_groups_minus1, 0);
        for (std::uint64_t i = 0; i <= num_slice_groups_minus1; ++i) runs.ue(100 + i);
        write_rest(runs);
        const BitsRead<pps_t> interleaved = read(runs);
        expect_rest(interleaved);
        BitWriter rectangles = groups_of(num_slice_groups_minus1, 2);
        for (std::uint64_t i = 0; i < num_slice_groups_minus1; ++i) rectangles.ue(200 + i).ue(300 + i);
        write_rest(rectangles);
        const BitsRead<pps_t> foreground = read(rectangles);
        expect_rest(foreground);
        for (std::uint64_t i = 0; i < 8; ++i) {
            const bool run = i <= num_slice_groups_minus1;
            const bool rectangle = i < num_slice_groups_minus1;
            EXPECT_EQ(interleaved.record.run_length_minus1[i], run ? 100 + i : 0x1111111111111111U);
            EXPECT_EQ(foreground.record.top_left[i], rectangle ? 200 + i : 0x1111111111111111U);
            EXPECT_EQ(foreground.record.bottom_right[i], rectangle ? 300 + i : 0x1111111111111111U);
        }
    }
}

TEST(PpsSliceGroups, GroupsBehindTheEighthAreReadAndDropped) {
    for (const std::uint64_t num_slice_groups_minus1 : {8U, 9U, 100U, 5000U}) {
        BitWriter runs = groups_of(num_slice_groups_minus1, 0);
        for (std::uint64_t i = 0; i <= num_slice_groups_minus1; ++i) runs.ue(i * 3);
        write_rest(runs);
        const BitsRead<pps_t> interleaved = read(runs);
        expect_rest(interleaved);
        EXPECT_EQ(interleaved.record.num_slice_groups_minus1, num_slice_groups_minus1);
        for (std::uint64_t i = 0; i < 8; ++i) {
            EXPECT_EQ(interleaved.record.run_length_minus1[i], i * 3);
            EXPECT_EQ(interleaved.record.top_left[i], 0x1111111111111111U);
        }
        BitWriter rectangles = groups_of(num_slice_groups_minus1, 2);
        for (std::uint64_t i = 0; i < num_slice_groups_minus1; ++i) rectangles.ue(i).ue(i + 7);
        write_rest(rectangles);
        const BitsRead<pps_t> foreground = read(rectangles);
        expect_rest(foreground);
        for (std::uint64_t i = 0; i < 8; ++i) {
            EXPECT_EQ(foreground.record.run_length_minus1[i], 0x1111111111111111U);
            EXPECT_EQ(foreground.record.top_left[i], i);
            EXPECT_EQ(foreground.record.bottom_right[i], i + 7);
        }
        EXPECT_EQ(foreground.record.slice_group_change_direction_flag, 0x11111111);
        EXPECT_EQ(foreground.record.slice_group_change_rate_minus1, 0x1111111111111111U);
    }
}

TEST(PpsSliceGroups, AHugeNumberOfGroupsFailsWhereTheBitsEnd) {
    BitWriter runs = groups_of(kLargest, 0);
    for (unsigned i = 0; i < 20; ++i) runs.ue(i);
    const BitsRead<pps_t> interleaved = read(runs);
    EXPECT_EQ(interleaved.result, -1);
    EXPECT_EQ(interleaved.log, (Log{{3, "_parse_pps", "cannot parse run_length_minus1[20]."}}));
    expect_only(interleaved, [](pps_t& pps) {
        pps.num_slice_groups_minus1 = kLargest;
        pps.slice_group_map_type = 0;
        for (unsigned i = 0; i < 8; ++i) pps.run_length_minus1[i] = i;
    });

    BitWriter rectangles = groups_of(kLargest, 2);
    for (std::uint64_t i = 0; i < 9; ++i) rectangles.ue(i).ue(2 * i);
    const BitsRead<pps_t> foreground = read(rectangles);
    EXPECT_EQ(foreground.result, -1);
    EXPECT_EQ(foreground.log, (Log{{3, "_parse_pps", "cannot parse top_left[9]."}}));
    expect_only(foreground, [](pps_t& pps) {
        pps.num_slice_groups_minus1 = kLargest;
        pps.slice_group_map_type = 2;
        for (unsigned long i = 0; i < 8; ++i) {
            pps.top_left[i] = i;
            pps.bottom_right[i] = 2 * i;
        }
    });
    rectangles.ue(1);
    EXPECT_EQ(read(rectangles).log, (Log{{3, "_parse_pps", "cannot parse bottom_right[9]."}}));
}

}  // namespace
