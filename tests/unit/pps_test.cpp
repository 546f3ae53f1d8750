#include "h264d/pps.h"

#include <gtest/gtest.h>

#include "pps_builder.h"
#include "script_check.h"

namespace {

using test::BitsRead;
using test::filled;
using test::Log;
using test::PpsScript;
using test::PpsSyntax;
using Texts = std::vector<std::string>;

BitsRead<pps_t>::Reader reader(const PpsSyntax& pps) {
    return [sps = pps.sps()](bitbuffer_t& bb, pps_t& record) { return _parse_pps(&bb, &sps, &record); };
}

// What _parse_pps makes of a whole stream.
BitsRead<pps_t> read_whole(const PpsSyntax& pps, int fill = 0, int level = 3) {
    const PpsScript script = pps.script();
    return {script.bits().bytes(), script.bits().bits(), level, filled<pps_t>(fill), reader(pps)};
}

class PpsVariants : public testing::TestWithParam<test::PpsVariant> {};

TEST_P(PpsVariants, EndsAtEveryBit) {
    const PpsSyntax& pps = GetParam().pps;
    test::expect_reads_at_every_length(pps.script(), filled<pps_t>(0xA5), reader(pps));
    const PpsScript script = pps.script();
    test::expect_read(script, script.bits().bits(), 6, filled<pps_t>(0), reader(pps));
}

INSTANTIATE_TEST_SUITE_P(Pps, PpsVariants, testing::ValuesIn(test::pps_variants()),
                         [](const auto& variant) { return variant.param.name; });

TEST(Pps, RandomOnes) {
    std::mt19937 random(41);
    for (int round = 0; round < 2000 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        const PpsSyntax pps = test::random_pps(random);
        const PpsScript script = pps.script();
        const std::size_t all = script.bits().bits();
        test::expect_read(script, all, 7, filled<pps_t>(0x5A), reader(pps));
        for (int cuts = 0; cuts < 5; ++cuts)
            test::expect_read(script, random() % all, 7, filled<pps_t>(0x5A), reader(pps));
    }
}

// Made by x264 with its defaults; the values were decoded from the bytes by hand.
TEST(Pps, OfARealStream) {
    const BitsRead<pps_t> read({0xEB, 0xE3, 0xCB, 0x22, 0xC0}, 40, 3, filled<pps_t>(0x11), reader({}));
    EXPECT_EQ(read.result, 0);
    EXPECT_EQ(read.record.picture_parameter_set_id, 0U);
    EXPECT_EQ(read.record.entropy_coding_mode_flag, 1);
    EXPECT_EQ(read.record.num_ref_idx_l0_default_active_minus1, 2U);
    EXPECT_EQ(read.record.weighted_pred_flag, 1);
    EXPECT_EQ(read.record.weighted_bipred_idc, 2);
    EXPECT_EQ(read.record.pic_init_qp_minus26, -3);
    EXPECT_EQ(read.record.chroma_qp_index_offset, -2);
    EXPECT_EQ(read.record.deblocking_filter_control_present_flag, 1);
    EXPECT_EQ(read.record.transform_8x8_mode_flag, 1);
    EXPECT_EQ(read.record.pic_scaling_matrix_present_flag, 0);
    EXPECT_EQ(read.record.second_chroma_qp_index_offset, 0x1111111111111111) << "in the stream, but not read";
    EXPECT_EQ(read.bb.bit_offset, 28U);
}

TEST(Pps, TheTailIsReadUnlessTheDataEndsExactlyBeforeIt) {
    const BitsRead<pps_t> without = read_whole(PpsSyntax{}, 0x11, 7);
    EXPECT_EQ(without.result, 0);
    EXPECT_EQ(without.log, Log{});
    EXPECT_EQ(without.record.redundant_pic_cnt_present_flag, 0);
    EXPECT_EQ(without.record.transform_8x8_mode_flag, 0x11111111);
    EXPECT_EQ(without.record.pic_scaling_matrix_present_flag, 0x11111111);
    EXPECT_EQ(without.record.second_chroma_qp_index_offset, 0x1111111111111111);

    // The stop bit and a zero behind it.
    test::BitWriter bits = PpsSyntax{}.script().bits();
    const std::size_t end = bits.bits();
    bits.u(2, 2);
    const BitsRead<pps_t> stopped(bits.bytes(), end + 2, 7, filled<pps_t>(0x11), reader({}));
    EXPECT_EQ(stopped.result, 0);
    EXPECT_EQ(stopped.record.transform_8x8_mode_flag, 1);
    EXPECT_EQ(stopped.record.pic_scaling_matrix_present_flag, 0);
    EXPECT_EQ(stopped.log,
              (Log{{5, "_DisplayBitBuffer",
                    test::text("PPS BB Addr=%p, NumBits=%zu Current Bit Offset=%zu (Byte=%zu, BitOfByte=%zu).",
                               static_cast<void*>(stopped.bb.bit_buffer), end + 2, end, end / 8, end % 8),
                    "bitbuffer.c"}}));

    // One bit cannot hold both flags.
    const BitsRead<pps_t> one(bits.bytes(), end + 1, 3, filled<pps_t>(0x11), reader({}));
    EXPECT_EQ(one.result, -1);
    EXPECT_EQ(one.log, (Log{{3, "_parse_pps", "cannot parse pic_scaling_matrix_present_flag."}}));
}

TEST(Pps, OnlyTheEndsInsideTwoElementsAreSuccesses) {
    PpsSyntax pps;
    pps.num_slice_groups_minus1 = 7;
    pps.slice_group_map_type = 6;
    pps.slice_group_id = {7, 6, 5};
    pps.has_tail = pps.pic_scaling_matrix_present_flag = true;
    pps.sps_list_present[2] = true;
    pps.scaling_list[2] = test::flat_list(16);
    const PpsScript script = pps.script();
    const Texts successes = {"cannot parse slice_group_id[0].", "cannot parse slice_group_id[1].",
                             "cannot parse slice_group_id[2].", "cannot parse weighted_bipred_idc."};
    Texts seen;
    std::size_t silent = 0;
    for (std::size_t cut = 0; cut < script.bits().bits(); ++cut) {
        const BitsRead<pps_t> read(script.bits().bytes(), cut, 3, filled<pps_t>(0), reader(pps));
        if (read.result == 0 && read.log.empty()) silent = cut;
        if (read.result != 0 || read.log.empty()) continue;
        if (seen.empty() || seen.back() != read.log[0].text) seen.push_back(read.log[0].text);
    }
    EXPECT_EQ(seen, successes);
    EXPECT_EQ(silent, [&] {
        PpsSyntax without_tail = pps;
        without_tail.has_tail = false;
        return without_tail.script().bits().bits();
    }());
}

TEST(Pps, AnEndInsideWeightedBipredIdcLeavesTheRestAsItWas) {
    test::BitWriter bits;
    bits.ue(3).ue(1).flag(true).flag(false).ue(0).ue(2).ue(4).flag(true).u(1, 1);
    const BitsRead<pps_t> read(bits.bytes(), bits.bits(), 3, filled<pps_t>(0x11), reader({}));
    EXPECT_EQ(read.result, 0);
    EXPECT_EQ(read.log, (Log{{3, "_parse_pps", "cannot parse weighted_bipred_idc."}}));
    EXPECT_EQ(read.record.num_ref_idx_l1_default_active_minus1, 4U);
    EXPECT_EQ(read.record.weighted_pred_flag, 1);
    EXPECT_EQ(read.record.weighted_bipred_idc, 0x11);
    EXPECT_EQ(read.record.pic_init_qp_minus26, 0x1111111111111111);
    EXPECT_EQ(read.record.redundant_pic_cnt_present_flag, 0x11111111);
    EXPECT_EQ(read.record.slice_group_map_type, 0x1111111111111111U);
}

TEST(Pps, TheSequenceParameterSetsFlagsDecideOnLists) {
    // All flags of the unit set, none of the other set: only the flags are there.
    PpsSyntax pps;
    pps.has_tail = pps.pic_scaling_matrix_present_flag = true;
    for (test::ScalingListSyntax& list : pps.scaling_list) list.present = true;
    pps.second_chroma_qp_index_offset = -11;
    const BitsRead<pps_t> flags_only = read_whole(pps, 0x11);
    EXPECT_EQ(flags_only.result, 0);
    EXPECT_EQ(flags_only.bb.bit_offset, pps.script().bits().bits());
    EXPECT_EQ(flags_only.record.second_chroma_qp_index_offset, -11);
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(flags_only.record.scaling_list[i].seq_scaling_list_present_flag, i < 8 ? 1 : 0x11111111) << i;
        EXPECT_EQ(flags_only.record.scaling_list[i].delta_scale[0], 0x1111111111111111) << i;
    }
    // The other way round: every list is read behind a flag of 0. Eight of them, with or without 8x8 transforms.
    for (const bool transform_8x8 : {false, true}) {
        pps.transform_8x8_mode_flag = transform_8x8;
        for (std::size_t i = 0; i < 12; ++i) {
            pps.sps_list_present[i] = true;
            pps.scaling_list[i] = test::flat_list(i < 6 ? 16 : 64);
            pps.scaling_list[i].present = false;
            pps.scaling_list[i].delta_scale.back() = 3;
        }
        const BitsRead<pps_t> lists = read_whole(pps, 0x11);
        EXPECT_EQ(lists.result, 0);
        EXPECT_EQ(lists.record.second_chroma_qp_index_offset, -11);
        for (int i = 0; i < 12; ++i) {
            EXPECT_EQ(lists.record.scaling_list[i].seq_scaling_list_present_flag, i < 8 ? 0 : 0x11111111) << i;
            EXPECT_EQ(lists.record.scaling_list[i].delta_scale[i < 6 ? 15 : 63], i < 8 ? 3 : 0x1111111111111111) << i;
            EXPECT_EQ(lists.record.scaling_list[i].delta_scale[i < 6 ? 16 : 0],
                      i >= 6 && i < 8 ? 0 : 0x1111111111111111);
        }
    }
}

TEST(Pps, ChromaFormatDecidesOnTheNumberOfLists) {
    for (const std::uint64_t format : {0U, 1U, 2U, 3U, 4U}) {
        test::BitWriter bits = PpsSyntax{}.script().bits();
        bits.flag(false).flag(true);
        const std::size_t before = bits.bits();
        bits.u(12, 0xFFF).se(5);
        PpsSyntax pps;
        pps.chroma_format_idc = format;
        const BitsRead<pps_t> read(bits.bytes(), bits.bits(), 3, filled<pps_t>(0), reader(pps));
        EXPECT_EQ(read.result, 0);
        // With eight flags the ninth bit is a se(v) of 0.
        EXPECT_EQ(read.record.second_chroma_qp_index_offset, format == 3 ? 5 : 0);
        EXPECT_EQ(read.bb.bit_offset, format == 3 ? bits.bits() : before + 9);
        EXPECT_EQ(read.record.scaling_list[11].seq_scaling_list_present_flag, format == 3 ? 1 : 0);
    }
}

TEST(Pps, RecordsAreNeverCleared) {
    pps_t record = filled<pps_t>(0);
    pps_t expected = filled<pps_t>(0);
    for (int round = 0; round < 2; ++round)
        for (const test::PpsVariant& variant : test::pps_variants()) {
            SCOPED_TRACE(variant.name);
            const PpsScript script = variant.pps.script();
            const BitsRead<pps_t> read(script.bits().bytes(), script.bits().bits(), 3, record, reader(variant.pps));
            EXPECT_EQ(read.result, 0);
            script.run(script.bits().bits(), nullptr, expected);
            ASSERT_EQ(test::difference(read.record, expected), "");
            record = read.record;
        }
}

TEST(Pps, ACodeThatIsTooLongFails) {
    test::BitWriter bits;
    bits.ue(1).u(32, 0).u(33, 1ULL << 32).u(64, ~0ULL);
    const BitsRead<pps_t> read(bits.bytes(), bits.bits(), 3, filled<pps_t>(0x11), reader({}));
    EXPECT_EQ(read.result, -1);
    EXPECT_EQ(read.log, (Log{{3, "_parse_pps", "cannot parse seq_parameter_set_id."}}));
    EXPECT_EQ(read.record.seq_parameter_set_id, 0x1111111111111111U);
}

TEST(Pps, NullArgumentsAreAssertedInOrder) {
    test::GuardedBuffer memory(PpsSyntax{}.rbsp());
    bitbuffer_t bb{memory.data(), 0, static_cast<unsigned>(8 * memory.size())};
    const sps_t sps = PpsSyntax{}.sps();
    pps_t pps = filled<pps_t>(0x11);
    const auto asserted = [&](bitbuffer_t* bits, const sps_t* other, pps_t* record) {
        test::reset(8);
        EXPECT_EQ(_parse_pps(bits, other, record), -1);
        for (const test::Assertion& assertion : test::records().assertions) {
            EXPECT_EQ(assertion.func, "_parse_pps");
            EXPECT_EQ(assertion.file, "h264d.c");
        }
        return test::assertions();
    };
    EXPECT_EQ(asserted(nullptr, nullptr, nullptr), (Texts{"pps_nalu_bb != NULL", "sps != NULL", "pps != NULL"}));
    EXPECT_EQ(asserted(nullptr, &sps, &pps), Texts{"pps_nalu_bb != NULL"});
    EXPECT_EQ(asserted(&bb, nullptr, &pps), Texts{"sps != NULL"});
    EXPECT_EQ(asserted(&bb, &sps, nullptr), Texts{"pps != NULL"});
    EXPECT_EQ(test::difference(pps, filled<pps_t>(0x11)), "");
    EXPECT_EQ(bb.bit_offset, 0U);
}

}  // namespace
