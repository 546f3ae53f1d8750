// ref_pic_list_modification(), pred_weight_table() and dec_ref_pic_marking() of a slice header.
#include <gtest/gtest.h>

#include "h264d/slice_header.h"
#include "script_check.h"
#include "slice_builder.h"

namespace {

using test::BitsRead;
using test::BitWriter;
using test::filled;
using test::Log;
using test::SliceSyntax;
using test::text;

using Part = std::function<int(bitbuffer_t&, slice_header_t&)>;

// A part read for a record that stands behind its slice_type and active reference counts.
BitsRead<slice_header_t> read(const Part& part, const BitWriter& bits, unsigned long slice_type,
                              unsigned long num_ref_idx_l0_active_minus1 = 0,
                              unsigned long num_ref_idx_l1_active_minus1 = 0) {
    slice_header_t before = filled<slice_header_t>(0x11);
    before.slice_type = slice_type;
    before.num_ref_idx_l0_active_minus1 = num_ref_idx_l0_active_minus1;
    before.num_ref_idx_l1_active_minus1 = num_ref_idx_l1_active_minus1;
    return {bits.bytes(), bits.bits(), 3, before, part};
}

int modification(bitbuffer_t& bb, slice_header_t& record) { return _parse_ref_pic_list_modification(&bb, &record); }
int weights(bitbuffer_t& bb, slice_header_t& record) { return _parse_pred_weight_table(&bb, 1, &record); }
int luma_weights(bitbuffer_t& bb, slice_header_t& record) { return _parse_pred_weight_table(&bb, 0, &record); }
int marking(bitbuffer_t& bb, slice_header_t& record) { return _parse_dec_ref_pic_marking(&bb, FALSE, &record); }
int idr_marking(bitbuffer_t& bb, slice_header_t& record) { return _parse_dec_ref_pic_marking(&bb, TRUE, &record); }

constexpr unsigned long kUnset = 0x1111111111111111;
constexpr long kUnsetSigned = 0x1111111111111111;

TEST(RefPicListModification, ListsBySliceTypeModulo5) {
    for (unsigned long type = 0; type < 40; ++type) {
        const bool l0 = type % 5 == 0 || type % 5 == 1 || type % 5 == 3;
        const bool l1 = type % 5 == 1;
        BitWriter bits;
        bits.u(2, 0);
        const BitsRead<slice_header_t> got = read(modification, bits, type);
        EXPECT_EQ(got.result, 0);
        EXPECT_EQ(got.bb.bit_offset, l1 ? 2U : l0 ? 1U : 0U) << type;
        EXPECT_EQ(got.record.rplm.ref_pic_list_modification_flag_l0, l0 ? 0 : 0x11111111);
        EXPECT_EQ(got.record.rplm.ref_pic_list_modification_flag_l1, l1 ? 0 : 0x11111111);
        EXPECT_EQ(got.record.rplm.modification_of_pic_nums_idc, kUnset);
    }
}

TEST(RefPicListModification, TheLastEntryOfEachKindIsKept) {
    BitWriter bits;
    bits.flag(true).ue(0).ue(4).ue(1).ue(9).ue(2).ue(17).ue(1).ue(8).ue(3);
    bits.flag(true).ue(2).ue(33).ue(3);
    const BitsRead<slice_header_t> got = read(modification, bits, 6);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.bb.bit_offset, bits.bits());
    EXPECT_EQ(got.record.rplm.ref_pic_list_modification_flag_l0, 1);
    EXPECT_EQ(got.record.rplm.ref_pic_list_modification_flag_l1, 1);
    EXPECT_EQ(got.record.rplm.modification_of_pic_nums_idc, 3U);
    EXPECT_EQ(got.record.rplm.abs_diff_pic_num_minus1, 8U);
    EXPECT_EQ(got.record.rplm.long_term_pic_num, 33U);
}

TEST(RefPicListModification, AnUnknownIdcHasNoValueAndDoesNotEndTheList) {
    BitWriter bits;
    bits.flag(true).ue(4).ue(5).ue(4294967294).ue(100).ue(3);
    const BitsRead<slice_header_t> got = read(modification, bits, 0);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.bb.bit_offset, bits.bits());
    EXPECT_EQ(got.record.rplm.abs_diff_pic_num_minus1, kUnset);
    EXPECT_EQ(got.record.rplm.long_term_pic_num, kUnset);
}

TEST(RefPicListModification, ListsOfAnyLengthAndWithoutEnd) {
    BitWriter bits;
    bits.flag(true);
    for (unsigned i = 0; i < 10000; ++i) bits.ue(i % 3).ue(i);
    BitWriter ended = bits;
    ended.ue(3);
    const BitsRead<slice_header_t> got = read(modification, ended, 0);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.record.rplm.abs_diff_pic_num_minus1, 9999U);
    EXPECT_EQ(got.record.rplm.long_term_pic_num, 9998U);
    const BitsRead<slice_header_t> cut = read(modification, bits, 0);
    EXPECT_EQ(cut.result, -1);
    EXPECT_EQ(cut.log, (Log{{3, "_parse_ref_pic_list_modification", "Failed to parse modification_of_pic_nums_idc."}}));
    BitWriter sevens;
    sevens.flag(true);
    for (unsigned i = 0; i < 100000; ++i) sevens.ue(7);
    const BitsRead<slice_header_t> endless = read(modification, sevens, 1);
    EXPECT_EQ(endless.result, -1);
    EXPECT_EQ(endless.bb.bit_offset, sevens.bits());
    EXPECT_EQ(endless.log.size(), 1U);
    EXPECT_EQ(endless.record.rplm.modification_of_pic_nums_idc, 7U);
    EXPECT_EQ(endless.record.rplm.ref_pic_list_modification_flag_l1, 0x11111111);
}

TEST(PredWeightTable, EveryEntryIsReadAndThe32FirstAreKept) {
    for (const unsigned long count_minus1 : {0UL, 30UL, 31UL, 32UL, 33UL, 40UL, 1000UL}) {
        BitWriter bits;
        bits.ue(5).ue(6);
        for (unsigned long i = 0; i <= count_minus1; ++i) {
            bits.flag(i % 3 != 1);
            if (i % 3 != 1) bits.se(static_cast<long>(i) - 20).se(-static_cast<long>(i));
            bits.flag(i == count_minus1);
        }
        for (unsigned long i = 0; i <= count_minus1 + 1; ++i) {
            bits.flag(i % 2 == 0);
            if (i % 2 == 0) bits.se(static_cast<long>(i) * 3).se(static_cast<long>(i) + 7);
            bits.flag(false);
        }
        const BitsRead<slice_header_t> got = read(weights, bits, 1, count_minus1, count_minus1 + 1);
        EXPECT_EQ(got.result, 0);
        EXPECT_EQ(got.bb.bit_offset, bits.bits());
        slice_header_t expected = filled<slice_header_t>(0x11);
        expected.slice_type = 1;
        expected.num_ref_idx_l0_active_minus1 = count_minus1;
        expected.num_ref_idx_l1_active_minus1 = count_minus1 + 1;
        pred_weight_table_t& pwt = expected.pwt;
        pwt.luma_log2_weight_denom = 5;
        pwt.chroma_log2_weight_denom = 6;
        pwt.luma_weight_l0_flag = count_minus1 % 3 != 1;
        pwt.chroma_weight_l0_flag = 1;
        pwt.luma_weight_l1_flag = (count_minus1 + 1) % 2 == 0;
        pwt.chroma_weight_l1_flag = 0;
        for (unsigned long i = 0; i < 32; ++i) {
            if (i <= count_minus1 && i % 3 != 1) {
                pwt.luma_weight_l0[i] = static_cast<long>(i) - 20;
                pwt.luma_offset_l0[i] = -static_cast<long>(i);
            }
            if (i <= count_minus1 + 1 && i % 2 == 0) {
                pwt.luma_weight_l1[i] = static_cast<long>(i) * 3;
                pwt.luma_offset_l1[i] = static_cast<long>(i) + 7;
            }
        }
        EXPECT_EQ(test::difference(got.record, expected), "") << count_minus1;
    }
}

TEST(PredWeightTable, CountsWithoutEndFailWhereTheBitsEnd) {
    for (const unsigned long count_minus1 : {4294967294UL, ~0UL}) {
        BitWriter bits;
        bits.ue(0).ue(0);
        for (unsigned i = 0; i < 50; ++i) bits.flag(true).se(1).se(2).flag(false);
        const BitsRead<slice_header_t> l0 = read(weights, bits, 0, count_minus1);
        EXPECT_EQ(l0.result, -1);
        EXPECT_EQ(l0.log, (Log{{3, "_parse_pred_weight_table", "Failed to parse luma_weight_l0_flag."}}));
        EXPECT_EQ(l0.record.pwt.chroma_weight_l0[0][0], kUnsetSigned);
        EXPECT_EQ(l0.record.pwt.luma_weight_l1[0], kUnsetSigned);
        const BitsRead<slice_header_t> l1 = read(weights, bits, 1, 0, count_minus1);
        EXPECT_EQ(l1.result, -1);
        EXPECT_EQ(l1.log, (Log{{3, "_parse_pred_weight_table", "Failed to parse luma_weight_l0_flag."}}));
        EXPECT_EQ(l1.record.pwt.luma_weight_l1[31], 1);
        EXPECT_EQ(l1.record.drpm.arpmm[0].memory_management_control_operation, kUnset);
    }
}

// With a chroma flag set, the chroma weights that the standard has behind it are the next entries.
TEST(PredWeightTable, ChromaWeightsAreTakenForTheNextEntry) {
    BitWriter bits;
    bits.ue(0).ue(0);
    bits.flag(false).flag(true);              // entry 0: chroma weights follow
    bits.flag(true).se(5).se(6).flag(false);  // taken for entry 1
    bits.u(16, 0);
    const BitsRead<slice_header_t> got = read(weights, bits, 5, 1);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.bb.bit_offset, bits.bits() - 16);
    EXPECT_EQ(got.record.pwt.luma_weight_l0_flag, 1);
    EXPECT_EQ(got.record.pwt.luma_weight_l0[0], kUnsetSigned);
    EXPECT_EQ(got.record.pwt.luma_weight_l0[1], 5);
    EXPECT_EQ(got.record.pwt.luma_offset_l0[1], 6);
    EXPECT_EQ(got.record.pwt.chroma_weight_l0_flag, 0);
    for (const auto& array : {got.record.pwt.chroma_weight_l0, got.record.pwt.chroma_offset_l0,
                              got.record.pwt.chroma_weight_l1, got.record.pwt.chroma_offset_l1})
        for (int i = 0; i < 32; ++i) {
            EXPECT_EQ(array[i][0], kUnsetSigned);
            EXPECT_EQ(array[i][1], kUnsetSigned);
        }
    // The same of list 1.
    BitWriter both;
    both.ue(0).ue(0).u(2, 0).flag(false).flag(true).flag(true).se(-3).se(-4).flag(true);
    const BitsRead<slice_header_t> b = read(weights, both, 1, 0, 1);
    EXPECT_EQ(b.result, 0);
    EXPECT_EQ(b.bb.bit_offset, both.bits());
    EXPECT_EQ(b.record.pwt.luma_weight_l1[1], -3);
    EXPECT_EQ(b.record.pwt.chroma_weight_l1_flag, 1);
}

TEST(PredWeightTable, WithoutChroma) {
    BitWriter bits;
    bits.ue(3).flag(true).se(1).se(-1).flag(false);
    const BitsRead<slice_header_t> got = read(luma_weights, bits, 3, 1);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.bb.bit_offset, bits.bits());
    EXPECT_EQ(got.record.pwt.chroma_log2_weight_denom, kUnset);
    EXPECT_EQ(got.record.pwt.chroma_weight_l0_flag, 0x11111111);
    EXPECT_EQ(got.record.pwt.luma_offset_l0[0], -1);
}

TEST(PredWeightTable, MessagesOfBothLists) {
    // The elements in order, each written by itself: the stream that ends before one of them fails there.
    const std::vector<std::pair<const char*, std::function<void(BitWriter&)>>> elements = {
        {"luma_log2_weight_denom", [](BitWriter& bits) { bits.ue(1); }},
        {"chroma_log2_weight_denom", [](BitWriter& bits) { bits.ue(2); }},
        {"luma_weight_l0_flag", [](BitWriter& bits) { bits.flag(true); }},
        {"luma_weight_l0[0]", [](BitWriter& bits) { bits.se(3); }},
        {"luma_offset_l0[0]", [](BitWriter& bits) { bits.se(4); }},
        {"chroma_weight_l0_flag", [](BitWriter& bits) { bits.flag(false); }},
        {"luma_weight_l0_flag", [](BitWriter& bits) { bits.flag(true); }},  // of list 1
        {"luma_weight_l1[0]", [](BitWriter& bits) { bits.se(5); }},
        {"luma_offset_l1[0]", [](BitWriter& bits) { bits.se(6); }},
        {"chroma_weight_l1_flag", [](BitWriter& bits) { bits.flag(false); }}};
    BitWriter bits;
    for (const auto& [name, write] : elements) {
        const BitsRead<slice_header_t> got = read(weights, bits, 6);
        EXPECT_EQ(got.result, -1);
        EXPECT_EQ(got.log, (Log{{3, "_parse_pred_weight_table", text("Failed to parse %s.", name)}}));
        write(bits);
    }
    EXPECT_EQ(read(weights, bits, 6).result, 0);
}

// A table that cannot be read does not stop the header: it is read on behind what the failed code has taken.
TEST(PredWeightTable, TheHeaderIsReadOnBehindAFailedTable) {
    SliceSyntax slice;
    slice.slice_type = 5;
    slice.pps.weighted_pred_flag = 1;
    slice.nal_ref_idc = 2;
    BitWriter head;
    head.ue(0).ue(5).ue(0).u(4, 1).u(4, 2).flag(false).flag(false);
    const auto parse = [&](const BitWriter& bits) {
        return BitsRead<slice_header_t>(bits.bytes(), bits.bits(), 3, slice.record_before(0x11),
                                        [&](bitbuffer_t& bb, slice_header_t& record) {
                                            return _parse_slice_header(&bb, &slice.sps, &slice.pps, 1, 2, &record);
                                        });
    };
    const Log failed = {{3, "_parse_pred_weight_table", "Failed to parse luma_log2_weight_denom."}};
    // 32 zeros and a one are too long a code; all of them are taken.
    BitWriter too_long = head;
    too_long.u(33, 1).flag(false).se(7);
    const BitsRead<slice_header_t> behind = parse(too_long);
    EXPECT_EQ(behind.result, 0);
    EXPECT_EQ(behind.log, failed);
    EXPECT_EQ(behind.record.drpm_bitoffset, static_cast<int>(head.bits()) + 33);
    EXPECT_EQ(behind.record.drpm.adaptive_ref_pic_marking_mode_flag, 0);
    EXPECT_EQ(behind.record.slice_qp_delta, 7);
    EXPECT_EQ(behind.record.slice_header_end_bitoffset, static_cast<int>(too_long.bits()));
    EXPECT_EQ(behind.record.pwt.luma_log2_weight_denom, kUnset);
    // A code whose suffix is cut: its zeros and its one are taken, the bits of the suffix are what follows.
    BitWriter cut = head;
    cut.u(6, 1).flag(false).se(-1);
    const BitsRead<slice_header_t> inside = parse(cut);
    EXPECT_EQ(inside.result, 0);
    EXPECT_EQ(inside.log, failed);
    EXPECT_EQ(inside.record.drpm_bitoffset, static_cast<int>(head.bits()) + 6);
    EXPECT_EQ(inside.record.slice_qp_delta, -1);
    // With nothing left, the next element fails under its own name.
    BitWriter nothing = head;
    nothing.u(9, 0);
    const BitsRead<slice_header_t> empty = parse(nothing);
    EXPECT_EQ(empty.result, -1);
    EXPECT_EQ(empty.log, (Log{{3, "_parse_pred_weight_table", "Failed to parse luma_log2_weight_denom."},
                              {3, "_parse_dec_ref_pic_marking", "Failed to parse adaptive_ref_pic_marking_mode_flag."},
                              {3, "_parse_slice_header", "Failed to parse ref_pic_list_modification()."}}));
}

TEST(DecRefPicMarking, OfAnIdrPicture) {
    BitWriter bits;
    bits.flag(true).flag(false);
    const BitsRead<slice_header_t> got = read(idr_marking, bits, 7);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.bb.bit_offset, 2U);
    EXPECT_EQ(got.record.drpm.no_output_of_prior_pics_flag, 1);
    EXPECT_EQ(got.record.drpm.long_term_reference_flag, 0);
    EXPECT_EQ(got.record.drpm.adaptive_ref_pic_marking_mode_flag, 0x11111111);
    BitWriter one;
    one.flag(true);
    EXPECT_EQ(read(idr_marking, one, 7).log,
              (Log{{3, "_parse_dec_ref_pic_marking", "Failed to parse long_term_reference_flag."}}));
    EXPECT_EQ(read(idr_marking, {}, 7).log,
              (Log{{3, "_parse_dec_ref_pic_marking", "Failed to parse no_output_of_prior_pics_flag."}}));
}

TEST(DecRefPicMarking, EveryOperationHasItsValues) {
    BitWriter bits;
    bits.flag(true).ue(1).ue(10).ue(2).ue(20).ue(3).ue(30).ue(31).ue(4).ue(40).ue(5).ue(6).ue(60).ue(0);
    const BitsRead<slice_header_t> got = read(marking, bits, 7);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.bb.bit_offset, bits.bits());
    slice_header_t expected = filled<slice_header_t>(0x11);
    expected.slice_type = 7;
    expected.num_ref_idx_l0_active_minus1 = expected.num_ref_idx_l1_active_minus1 = 0;
    expected.drpm.adaptive_ref_pic_marking_mode_flag = 1;
    for (unsigned i = 0; i < 7; ++i) expected.drpm.arpmm[i].memory_management_control_operation = (i + 1) % 7;
    expected.drpm.arpmm[0].difference_of_pic_nums_minus1 = 10;
    expected.drpm.arpmm[1].long_term_pic_num = 20;
    expected.drpm.arpmm[2].difference_of_pic_nums_minus1 = 30;
    expected.drpm.arpmm[2].long_term_frame_idx = 31;
    expected.drpm.arpmm[3].max_long_term_frame_idx_plus1 = 40;
    expected.drpm.arpmm[5].long_term_frame_idx = 60;
    EXPECT_EQ(test::difference(got.record, expected), "");
}

TEST(DecRefPicMarking, AtMostSevenOperationsWithTheEndingOne) {
    const Log too_many = {{3, "_parse_dec_ref_pic_marking", "to many adaptive reference picture marking mode."}};
    for (unsigned operations = 0; operations <= 12; ++operations) {
        BitWriter bits;
        bits.flag(true);
        for (unsigned i = 0; i < operations; ++i) bits.ue(2).ue(100 + i);
        bits.ue(0).ue(9);
        const BitsRead<slice_header_t> got = read(marking, bits, 5);
        EXPECT_EQ(got.result, operations <= 6 ? 0 : -1) << operations;
        EXPECT_EQ(got.log, operations <= 6 ? Log{} : too_many);
        for (unsigned i = 0; i < 8; ++i) {
            const adaptive_ref_pic_marking_mode_t& mode = got.record.drpm.arpmm[i];
            EXPECT_EQ(mode.memory_management_control_operation, i < operations ? 2 : i == operations ? 0 : kUnset);
            EXPECT_EQ(mode.long_term_pic_num, i < operations ? 100 + i : kUnset);
        }
        EXPECT_EQ(got.record.slice_header_end_bitoffset, 0x11111111) << "the neighbour is not overwritten";
        // The eighth operation is read with its values, and nothing behind it.
        if (operations >= 8) {
            EXPECT_EQ(got.bb.bit_offset, 1 + 8 * (3U + 13U));
        }
    }
}

TEST(DecRefPicMarking, AnUnknownOperationHasNoValue) {
    BitWriter bits;
    bits.flag(true).ue(7).ue(4294967294).ue(0);
    const BitsRead<slice_header_t> got = read(marking, bits, 5);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.bb.bit_offset, bits.bits());
    EXPECT_EQ(got.record.drpm.arpmm[1].memory_management_control_operation, 4294967294U);
    EXPECT_EQ(got.record.drpm.arpmm[1].long_term_frame_idx, kUnset);
}

TEST(DecRefPicMarking, Messages) {
    const auto failure_of = [](const BitWriter& bits) {
        const BitsRead<slice_header_t> got = read(marking, bits, 5);
        EXPECT_EQ(got.result, -1);
        return got.log.empty() ? std::string() : got.log[0].text;
    };
    BitWriter on;
    EXPECT_EQ(failure_of(on), "Failed to parse adaptive_ref_pic_marking_mode_flag.");
    on.flag(true);
    EXPECT_EQ(failure_of(on), "Failed to parse memory_management_control_operation.");
    const auto operation = [&](std::uint64_t number) {
        BitWriter bits = on;
        return bits.ue(number);
    };
    EXPECT_EQ(failure_of(operation(1)), "Failed to parse difference_of_pic_nums_minus1.");
    EXPECT_EQ(failure_of(operation(2)), "Failed to parse long_term_pic_num.");
    EXPECT_EQ(failure_of(operation(3)), "Failed to parse difference_of_pic_nums_minus1.");
    EXPECT_EQ(failure_of(operation(3).ue(0)), "Failed to parse long_term_frame_idx.");
    EXPECT_EQ(failure_of(operation(4)), "Failed to parse max_long_term_frame_idx_plus1.");
    EXPECT_EQ(failure_of(operation(5)), "Failed to parse memory_management_control_operation.");
    EXPECT_EQ(failure_of(operation(6)), "Failed to parse long_term_frame_idx.");
}

}  // namespace
