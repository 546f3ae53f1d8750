#include "h264d/slice_header.h"

#include <gtest/gtest.h>

#include "script_check.h"
#include "slice_builder.h"

namespace {

using test::BitsRead;
using test::BitWriter;
using test::filled;
using test::Log;
using test::SliceScript;
using test::SliceSyntax;
using test::text;
using Texts = std::vector<std::string>;

BitsRead<slice_header_t>::Reader reader(const SliceSyntax& slice) {
    return [&slice](bitbuffer_t& bb, slice_header_t& record) {
        return _parse_slice_header(&bb, &slice.sps, &slice.pps, static_cast<BYTE>(slice.nal_unit_type),
                                   static_cast<BYTE>(slice.nal_ref_idc), &record);
    };
}

// What _parse_slice_header makes of the bits that the script of slice writes, or of others.
BitsRead<slice_header_t> read(const SliceSyntax& slice, const BitWriter& bits, int level = 3) {
    return {bits.bytes(), bits.bits(), level, slice.record_before(0x11), reader(slice)};
}
BitsRead<slice_header_t> read(const SliceSyntax& slice, int level = 3) {
    return read(slice, slice.script().bits(), level);
}

class SliceVariants : public testing::TestWithParam<test::SliceVariant> {};

TEST_P(SliceVariants, EndsAtEveryBit) {
    const SliceSyntax& slice = GetParam().slice;
    test::expect_reads_at_every_length(slice.script(), slice.record_before(0xA5), reader(slice));
    const SliceScript script = slice.script();
    test::expect_read(script, script.bits().bits(), 6, slice.record_before(0), reader(slice));
}

INSTANTIATE_TEST_SUITE_P(SliceHeader, SliceVariants, testing::ValuesIn(test::slice_variants()),
                         [](const auto& variant) { return variant.param.name; });

TEST(SliceHeader, RandomOnes) {
    std::mt19937 random(43);
    for (int round = 0; round < 4000 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        const SliceSyntax slice = test::random_slice(random);
        const SliceScript script = slice.script();
        const std::size_t all = script.bits().bits();
        test::expect_read(script, all, 6, slice.record_before(0x5A), reader(slice));
        for (int cuts = 0; cuts < 4; ++cuts)
            test::expect_read(script, random() % all, 6, slice.record_before(0x5A), reader(slice));
    }
}

// A P slice with weights made by x264; values and positions are those that ffmpeg's trace_headers shows.
TEST(SliceHeader, OfARealStream) {
    SliceSyntax sets;
    sets.sps.log2_max_pic_order_cnt_lsb_minus4 = 2;
    sets.pps.entropy_coding_mode_flag = 1;
    sets.pps.weighted_pred_flag = 1;
    sets.pps.weighted_bipred_idc = 2;
    sets.pps.deblocking_filter_control_present_flag = 1;
    sets.nal_ref_idc = 2;
    const test::Bytes payload = {0x9A, 0x24, 0x6C, 0x43, 0xBF, 0xFE, 0xA9, 0x96, 0x02, 0xD5};
    const BitsRead<slice_header_t> got(payload, 80, 6, filled<slice_header_t>(0x11), reader(sets));
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.log, Log{});
    EXPECT_EQ(got.record.first_mb_in_slice, 0U);
    EXPECT_EQ(got.record.slice_type, 5U);
    EXPECT_EQ(got.record.frame_num_bitoffset, 7);
    EXPECT_EQ(got.record.frame_num_bitlength, 4U);
    EXPECT_EQ(got.record.frame_num, 1U);
    EXPECT_EQ(got.record.pic_order_cnt_lsb, 8U);
    EXPECT_EQ(got.record.num_ref_idx_active_override_flag, 1);
    EXPECT_EQ(got.record.num_ref_idx_l0_active_minus1, 0U);
    EXPECT_EQ(got.record.rplm_bitoffset, 19);
    EXPECT_EQ(got.record.rplm.ref_pic_list_modification_flag_l0, 0);
    EXPECT_EQ(got.record.pwt.luma_log2_weight_denom, 0U);
    EXPECT_EQ(got.record.pwt.chroma_weight_l0_flag, 0);
    EXPECT_EQ(got.record.drpm_bitoffset, 24);
    EXPECT_EQ(got.record.drpm.adaptive_ref_pic_marking_mode_flag, 0);
    EXPECT_EQ(got.record.cabac_init_idc, 0U);
    EXPECT_EQ(got.record.slice_qp_delta, -14);
    EXPECT_EQ(got.record.slice_beta_offset_div2, 0);
    EXPECT_EQ(got.record.slice_header_end_bitoffset, 38);
}

TEST(SliceHeader, PositionsCountFromTheFirstBitOfTheArea) {
    SliceSyntax slice;
    slice.slice_type = 5;
    BitWriter bits;
    bits.u(13, 0);
    const SliceScript script = slice.script();
    for (std::size_t i = 0; i < script.bits().bits(); ++i) bits.u(1, script.bits().bytes()[i / 8] >> (7 - i % 8) & 1U);
    const BitsRead<slice_header_t> got(bits.bytes(), bits.bits(), 3, slice.record_before(),
                                       [&](bitbuffer_t& bb, slice_header_t& record) {
                                           bb.bit_offset = 13;
                                           return reader(slice)(bb, record);
                                       });
    EXPECT_EQ(got.result, 0);
    // 1, 00110, 1; frame_num and pic_order_cnt_lsb of four bits; no override, no modification, no marking, a delta of
    // 0.
    EXPECT_EQ(got.record.frame_num_bitoffset, 13 + 7);
    EXPECT_EQ(got.record.rplm_bitoffset, 13 + 16);
    EXPECT_EQ(got.record.drpm_bitoffset, 13 + 17);
    EXPECT_EQ(got.record.slice_header_end_bitoffset, 13 + 19);
}

TEST(SliceHeader, FrameNumOfUpTo32Bits) {
    SliceSyntax slice;
    for (unsigned long log2 = 0; log2 <= 28; ++log2) {
        slice.sps.log2_max_frame_num_minus4 = log2;
        slice.frame_num = (1UL << (log2 + 4)) - 1;
        const BitsRead<slice_header_t> got = read(slice);
        EXPECT_EQ(got.result, 0);
        EXPECT_EQ(got.record.frame_num_bitlength, log2 + 4);
        EXPECT_EQ(got.record.frame_num, slice.frame_num);
    }
}

TEST(SliceHeader, LongerFrameNumsFailWithoutBeingRead) {
    for (const unsigned long log2 : {29UL, 30UL, 60UL, 61UL, 252UL, 1000UL, 2147483643UL}) {
        SliceSyntax slice;
        slice.sps.log2_max_frame_num_minus4 = log2;
        BitWriter bits;
        bits.ue(3).ue(7).ue(1).u(64, 0x123456789ABCDEF0).u(64, 0);
        const BitsRead<slice_header_t> got = read(slice, bits, 6);
        EXPECT_EQ(got.result, -1);
        EXPECT_EQ(got.bb.bit_offset, 15U);
        EXPECT_EQ(got.log,
                  (Log{{3, "_parse_slice_header", text("Failed to parse frame_num with bitlength:%lu.", log2 + 4)}}));
        EXPECT_EQ(test::assertions(), Texts{}) << "the accessor is not called";
        slice_header_t expected = slice.record_before(0x11);
        expected.first_mb_in_slice = 3;
        expected.slice_type = 7;
        expected.pic_parameter_set_id = 1;
        expected.frame_num_bitoffset = 15;
        expected.frame_num_bitlength = static_cast<unsigned>(log2 + 4);
        EXPECT_EQ(test::difference(got.record, expected), "");
    }
}

// A length that wrapped would be one of 1 to 32 and be read.
TEST(SliceHeader, HugeLengthsDoNotWrap) {
    for (const unsigned long log2 : {4294967292UL, 4294967294UL, 4294967295UL, 4294967296UL, 2147483644UL, ~0UL,
                                     ~0UL - 3, ~0UL << 32, 0x100000004UL}) {
        SliceSyntax slice;
        slice.sps.log2_max_frame_num_minus4 = log2;
        BitWriter bits;
        bits.ue(0).ue(7).ue(0).u(64, ~0ULL).u(64, ~0ULL);
        const BitsRead<slice_header_t> frame_num = read(slice, bits);
        EXPECT_EQ(frame_num.result, -1) << log2;
        EXPECT_EQ(frame_num.bb.bit_offset, 9U);
        EXPECT_EQ(frame_num.record.frame_num_bitoffset, 9);
        EXPECT_GT(frame_num.record.frame_num_bitlength, 32U);
        EXPECT_EQ(frame_num.record.frame_num, 0x1111111111111111U);
        ASSERT_EQ(frame_num.log.size(), 1U);
        EXPECT_EQ(frame_num.log[0].text.rfind("Failed to parse frame_num with bitlength:", 0), 0U);
        EXPECT_EQ(test::assertions(), Texts{});

        slice.sps.log2_max_frame_num_minus4 = 0;
        slice.sps.log2_max_pic_order_cnt_lsb_minus4 = log2;
        const BitsRead<slice_header_t> order = read(slice, bits);
        EXPECT_EQ(order.result, -1) << log2;
        EXPECT_EQ(order.bb.bit_offset, 13U);
        EXPECT_EQ(order.record.pic_order_cnt_lsb, 0x1111111111111111U);
        ASSERT_EQ(order.log.size(), 1U);
        EXPECT_EQ(order.log[0].text.rfind("Failed to parse pic_order_cnt_lsb with bitlength:", 0), 0U);
        EXPECT_EQ(test::assertions(), Texts{});
    }
}

TEST(SliceHeader, OrderCountsOfUpTo32Bits) {
    SliceSyntax slice;
    for (unsigned long log2 = 0; log2 <= 28; ++log2) {
        slice.sps.log2_max_pic_order_cnt_lsb_minus4 = log2;
        slice.pic_order_cnt_lsb = (1UL << (log2 + 4)) - 2;
        const BitsRead<slice_header_t> got = read(slice);
        EXPECT_EQ(got.result, 0);
        EXPECT_EQ(got.record.pic_order_cnt_lsb, slice.pic_order_cnt_lsb);
    }
    BitWriter bits;
    bits.ue(0).ue(7).ue(0).u(4, 9).u(64, ~0ULL);
    slice.sps.log2_max_pic_order_cnt_lsb_minus4 = 29;
    const BitsRead<slice_header_t> got = read(slice, bits);
    EXPECT_EQ(got.result, -1);
    EXPECT_EQ(got.bb.bit_offset, 13U);
    EXPECT_EQ(got.record.frame_num, 9U);
    EXPECT_EQ(got.log, (Log{{3, "_parse_slice_header", "Failed to parse pic_order_cnt_lsb with bitlength:33."}}));
    // Another order count type has no such element.
    slice.sps.pic_order_cnt_type = 2;
    EXPECT_EQ(read(slice).result, 0);
}

// The active reference counts of a parameter set, and any other value that is absent, are not filled in.
TEST(SliceHeader, AbsentElementsKeepTheirValues) {
    SliceSyntax slice;
    slice.nal_ref_idc = 0;
    slice.sps.pic_order_cnt_type = 2;
    slice.pps.num_ref_idx_l0_default_active_minus1 = 15;
    slice.pps.num_ref_idx_l1_default_active_minus1 = 14;
    for (const std::uint64_t type : {2U, 5U, 6U}) {
        slice.slice_type = type;
        const SliceScript script = slice.script();
        const BitsRead<slice_header_t> got(script.bits().bytes(), script.bits().bits(), 3, filled<slice_header_t>(0x11),
                                           reader(slice));
        EXPECT_EQ(got.result, 0);
        EXPECT_EQ(got.record.num_ref_idx_l0_active_minus1, 0x1111111111111111U);
        EXPECT_EQ(got.record.num_ref_idx_l1_active_minus1, 0x1111111111111111U);
        EXPECT_EQ(got.record.field_pic_flag, 0x11111111);
        EXPECT_EQ(got.record.slice_group_change_cycle, 0x1111111111111111U);
        EXPECT_EQ(got.record.idr_pic_id, 0x1111111111111111U);
        EXPECT_EQ(got.record.drpm_bitoffset, 0) << "the one field that is set when its element is absent";
        EXPECT_EQ(got.record.drpm.arpmm[7].long_term_frame_idx, 0x1111111111111111U);
    }
}

// Left from an earlier slice: a frame picture of a sequence without fields is then read as a field.
TEST(SliceHeader, AStaleFieldPicFlagCounts) {
    SliceSyntax slice;
    const SliceScript script = slice.script();
    slice.pps.bottom_field_pic_order_in_frame_present_flag = 1;
    slice_header_t before = slice.record_before(0x11);
    before.field_pic_flag = 1;
    const BitsRead<slice_header_t> got(script.bits().bytes(), script.bits().bits(), 3, before, reader(slice));
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.record.bottom_field_flag, 0x11111111) << "only a sequence with fields has it";
    EXPECT_EQ(got.record.delta_pic_order_cnt_bottom, 0x1111111111111111);
    EXPECT_EQ(got.record.drpm_bitoffset, 17) << "without an element in between";
}

TEST(SliceHeader, MultiviewSlicesFailBehindTheReferenceCounts) {
    for (const unsigned type : {20U, 21U}) {
        SliceSyntax slice;
        slice.nal_unit_type = type;
        slice.slice_type = 6;
        slice.num_ref_idx_active_override_flag = true;
        slice.weights_l0.resize(5);
        slice.weights_l1.resize(3);
        const BitsRead<slice_header_t> got = read(slice, 6);
        EXPECT_EQ(got.result, -1);
        EXPECT_EQ(got.log,
                  (Log{{3, "_parse_slice_header", "Failed to parse ref_pic_list_mvc_modification(). Not supported."}}));
        EXPECT_EQ(got.record.num_ref_idx_l0_active_minus1, 4U);
        EXPECT_EQ(got.record.num_ref_idx_l1_active_minus1, 2U);
        EXPECT_EQ(got.record.rplm_bitoffset, 0x11111111);
        EXPECT_EQ(got.record.drpm_bitoffset, 0x11111111);
        EXPECT_EQ(got.record.slice_header_end_bitoffset, 0x11111111);
        slice.slice_type = 2;
        EXPECT_EQ(read(slice).result, -1) << "also without lists";
    }
}

// nal_unit_type is looked at with five bits for idr_pic_id and with all of them elsewhere.
TEST(SliceHeader, HigherBitsOfTheNalUnitType) {
    SliceSyntax slice;
    slice.nal_unit_type = 5;
    slice.idr_pic_id = 6;
    slice.long_term_reference_flag = true;
    BitWriter bits = slice.script().bits();
    slice.nal_unit_type = 32 + 5;
    const BitsRead<slice_header_t> got = read(slice, bits);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.record.idr_pic_id, 6U);
    EXPECT_EQ(got.record.drpm.adaptive_ref_pic_marking_mode_flag, 0) << "not read as an IDR picture's marking";
    EXPECT_EQ(got.record.drpm.no_output_of_prior_pics_flag, 0x11111111);
    slice.nal_unit_type = 32 + 20;
    EXPECT_EQ(read(slice).record.rplm_bitoffset, 17);
}

TEST(SliceHeader, ChangingSliceGroupsFailAtTheirCycle) {
    for (unsigned long map_type = 0; map_type < 9; ++map_type) {
        SliceSyntax slice;
        slice.pps.num_slice_groups_minus1 = 2;
        slice.pps.slice_group_map_type = map_type;
        const bool changing = map_type >= 3 && map_type <= 5;
        const BitsRead<slice_header_t> got = read(slice);
        EXPECT_EQ(got.result, changing ? -1 : 0) << map_type;
        EXPECT_EQ(got.log,
                  changing ? (Log{{3, "_parse_slice_header", "Failed to parse slice_group_change_cycle."}}) : Log{});
        EXPECT_EQ(got.record.slice_qp_delta, 0);
        EXPECT_EQ(got.record.slice_group_change_cycle, 0x1111111111111111U);
        EXPECT_EQ(got.record.slice_header_end_bitoffset, changing ? 0x11111111 : 19);
        slice.pps.num_slice_groups_minus1 = 0;
        EXPECT_EQ(read(slice).result, 0);
    }
}

TEST(SliceHeader, RecordsAreNeverCleared) {
    slice_header_t record = filled<slice_header_t>(0);
    slice_header_t expected = filled<slice_header_t>(0);
    for (int round = 0; round < 2; ++round)
        for (const test::SliceVariant& variant : test::slice_variants()) {
            SCOPED_TRACE(variant.name);
            const SliceScript script = variant.slice.script();
            if (!variant.slice.num_ref_idx_active_override_flag)
                for (slice_header_t* each : {&record, &expected}) {
                    each->num_ref_idx_l0_active_minus1 = variant.slice.weights_l0.size() - 1;
                    each->num_ref_idx_l1_active_minus1 = variant.slice.weights_l1.size() - 1;
                }
            if (variant.slice.sps.frame_mbs_only_flag != 0) record.field_pic_flag = expected.field_pic_flag = 0;
            const BitsRead<slice_header_t> got(script.bits().bytes(), script.bits().bits(), 3, record,
                                               reader(variant.slice));
            EXPECT_EQ(got.result, script.run(script.bits().bits(), nullptr, expected)->result);
            ASSERT_EQ(test::difference(got.record, expected), "");
            record = got.record;
        }
}

TEST(SliceHeader, NullArgumentsAreAssertedInOrder) {
    const SliceSyntax slice;
    test::GuardedBuffer memory(slice.script().rbsp());
    bitbuffer_t bb{memory.data(), 0, static_cast<unsigned>(8 * memory.size())};
    slice_header_t record = filled<slice_header_t>(0x11);
    const auto asserted = [&](bitbuffer_t* bits, const sps_t* sps, const pps_t* pps, slice_header_t* pSh) {
        test::reset(8);
        EXPECT_EQ(_parse_slice_header(bits, sps, pps, 1, 1, pSh), -1);
        for (const test::Assertion& assertion : test::records().assertions) {
            EXPECT_EQ(assertion.func, "_parse_slice_header");
            EXPECT_EQ(assertion.file, "h264d.c");
        }
        return test::assertions();
    };
    EXPECT_EQ(asserted(nullptr, nullptr, nullptr, nullptr),
              (Texts{"pNal_bb != NULL", "sps != NULL", "pps != NULL", "pSh != NULL"}));
    EXPECT_EQ(asserted(nullptr, &slice.sps, &slice.pps, &record), Texts{"pNal_bb != NULL"});
    EXPECT_EQ(asserted(&bb, nullptr, &slice.pps, &record), Texts{"sps != NULL"});
    EXPECT_EQ(asserted(&bb, &slice.sps, nullptr, &record), Texts{"pps != NULL"});
    EXPECT_EQ(asserted(&bb, &slice.sps, &slice.pps, nullptr), Texts{"pSh != NULL"});
    EXPECT_EQ(test::difference(record, filled<slice_header_t>(0x11)), "");
    EXPECT_EQ(bb.bit_offset, 0U);
}

}  // namespace
