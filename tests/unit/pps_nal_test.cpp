#include <gtest/gtest.h>

#include "fake_clock.h"
#include "h264d/h264d.h"
#include "pps_builder.h"
#include "script_check.h"
#include "test_clock.h"

namespace {

using test::Bytes;
using test::filled;
using test::GuardedBuffer;
using test::Log;
using test::PpsSyntax;
using test::text;
using Texts = std::vector<std::string>;

// H264LIB_parse_pps_nal over a unit without a readable byte behind it.
struct Parsed {
    explicit Parsed(const Bytes& unit, int level = 3, int fill = 0, const PpsSyntax& pps = {})
        : memory(unit), record(filled<pps_t>(fill)) {
        const sps_t sps = pps.sps();
        test::reset(level);
        result = H264LIB_parse_pps_nal(memory.data(), static_cast<int>(unit.size()), &sps, &record);
        log = test::recorded_log();
    }
    std::string failure(int length) {
        return text("Failed to parse pps nal! buffer:%p Length=%d.", static_cast<void*>(memory.data()), length);
    }
    GuardedBuffer memory;
    pps_t record;
    BOOL result;
    Log log;
};

class PpsNal : public testing::Test {
protected:
    void SetUp() override { test::set_time(test::later_than_all_tests()); }
    void TearDown() override { test::use_system_time(); }
};

const Log kReadFailed = {{3, "H264LIB_parse_pps_nal", "Failed to parse PPS NAL!"}};

// The elements up to redundant_pic_cnt_present_flag, in bits bits.
test::BitWriter elements_in(std::size_t bits) {
    PpsSyntax pps;
    if (bits % 2 != 0) {
        pps.num_slice_groups_minus1 = 1;
        pps.slice_group_map_type = 1;
    }
    for (const std::uint64_t id : {0U, 1U, 3U, 7U, 15U, 31U})
        for (const std::uint64_t count : {0U, 1U, 3U, 7U}) {
            pps.picture_parameter_set_id = id;
            pps.num_ref_idx_l0_default_active_minus1 = count;
            if (pps.script().bits().bits() == bits) return pps.script().bits();
        }
    ADD_FAILURE() << bits;
    return {};
}

TEST_F(PpsNal, EveryVariantBehindBothStartCodes) {
    for (const test::PpsVariant& variant : test::pps_variants())
        for (const int start_code : {3, 4}) {
            SCOPED_TRACE(variant.name);
            const test::PpsScript script = variant.pps.script();
            pps_t expected = filled<pps_t>(0x5A);
            ASSERT_EQ(script.run(script.bits().bits(), nullptr, expected)->result, 0);
            Bytes unit = variant.pps.unit(start_code);
            const Parsed parsed(unit, 3, 0x5A, variant.pps);
            EXPECT_EQ(parsed.result, TRUE);
            EXPECT_EQ(parsed.log, Log{});
            if (variant.pps.has_tail || script.bits().bits() % 8 == 0) {
                EXPECT_EQ(test::difference(parsed.record, expected), "");
            } else {
                // The stop bit is taken for the tail.
                expected.transform_8x8_mode_flag = 1;
                expected.pic_scaling_matrix_present_flag = 0;
                EXPECT_EQ(test::difference(parsed.record, expected), "");
            }
            EXPECT_TRUE(test::records().assertions.empty());
        }
}

TEST_F(PpsNal, ALastByteOf80IsLeftOutAndAnyOtherIsRead) {
    const test::BitWriter whole = elements_in(24);
    Bytes unit = test::nal_unit(0x68, Bytes(whole.bytes()));
    unit.push_back(0x80);
    const Parsed ends(unit, 7, 0x11);
    EXPECT_EQ(ends.result, TRUE);
    EXPECT_EQ(ends.record.redundant_pic_cnt_present_flag, 0);
    EXPECT_EQ(ends.record.transform_8x8_mode_flag, 0x11111111);
    EXPECT_EQ(ends.record.pic_scaling_matrix_present_flag, 0x11111111);
    EXPECT_EQ(
        ends.log,
        (Log{{7, "H264LIB_parse_pps_nal", "Attempting to find the stop bit position for the LastByte[8]:80."},
             {6, "H264LIB_parse_pps_nal",
              "Found StopBitPos:8 for LastByte[8]:80, NALLenWoRBSPTrailingBits:4, NALTypeOffset:4, BufferLength:9."}}));

    // Four bits of elements, the stop bit in the fifth: 88.
    test::BitWriter bits = elements_in(28);
    ASSERT_EQ(bits.bytes().back() & 0xF0, 0x80) << "the last element is not what the test takes it for";
    unit = test::nal_unit(0x68, bits.trailing().bytes(), 3);
    ASSERT_EQ(unit.back(), 0x88);
    Parsed runs_on(unit, 7, 0x11);
    EXPECT_EQ(runs_on.result, TRUE);
    EXPECT_EQ(runs_on.record.transform_8x8_mode_flag, 1);
    EXPECT_EQ(runs_on.record.pic_scaling_matrix_present_flag, 0);
    EXPECT_EQ(runs_on.record.second_chroma_qp_index_offset, 0x1111111111111111);
    ASSERT_EQ(runs_on.log.size(), 3U);
    EXPECT_EQ(runs_on.log[0].text, "Attempting to find the stop bit position for the LastByte[7]:88.");
    EXPECT_EQ(runs_on.log[1].text,
              "Found StopBitPos:4 for LastByte[7]:88, NALLenWoRBSPTrailingBits:5, NALTypeOffset:3, BufferLength:8.");
    EXPECT_EQ(runs_on.log[2].file, "bitbuffer.c");
    EXPECT_NE(runs_on.log[2].text.find("NumBits=32 Current Bit Offset=28 (Byte=3, BitOfByte=4)."), std::string::npos);
}

// The stop bit in every position of its byte.
TEST_F(PpsNal, TheStopBitIsTakenForTheTail) {
    for (std::size_t bits = 24; bits < 32; ++bits) {
        SCOPED_TRACE(bits);
        test::BitWriter writer = elements_in(bits);
        const Bytes unit = test::nal_unit(0x68, writer.trailing().bytes());
        const Parsed parsed(unit, 6, 0x11);
        const auto used = static_cast<int>(bits % 8);
        const int length = static_cast<int>(unit.size()) - 4 - (used == 0 ? 1 : 0);
        EXPECT_EQ(parsed.log[0].text,
                  text("Found StopBitPos:%d for LastByte[%zu]:%02X, NALLenWoRBSPTrailingBits:%d, NALTypeOffset:4, "
                       "BufferLength:%zu.",
                       8 - used, unit.size() - 1, unit.back(), length, unit.size()));
        if (used == 7) {
            // The stop bit is transform_8x8_mode_flag, and there is no bit for the next flag.
            EXPECT_EQ(parsed.result, FALSE);
            EXPECT_EQ(test::texts_with_function(3), (Texts{"_parse_pps: cannot parse pic_scaling_matrix_present_flag.",
                                                           "H264LIB_parse_pps_nal: Failed to parse PPS NAL!"}));
        } else {
            EXPECT_EQ(parsed.result, TRUE);
        }
        EXPECT_EQ(parsed.record.transform_8x8_mode_flag, used == 0 ? 0x11111111 : 1);
        EXPECT_EQ(parsed.record.pic_scaling_matrix_present_flag, used == 0 || used == 7 ? 0x11111111 : 0);
        EXPECT_EQ(parsed.record.redundant_pic_cnt_present_flag, 0);
    }
}

TEST_F(PpsNal, TrailingZeroBytesAreLeftOut) {
    for (const std::size_t bits : {24U, 27U}) {
        test::BitWriter writer = elements_in(bits);
        Bytes unit = test::nal_unit(0x68, writer.trailing().bytes());
        const Parsed without(unit, 3, 0x11);
        const std::size_t last = unit.size() - 1;
        unit.insert(unit.end(), 3, 0);
        const Parsed with(unit, 7, 0x11);
        EXPECT_EQ(with.result, TRUE);
        EXPECT_EQ(test::difference(with.record, without.record), "");
        ASSERT_GE(with.log.size(), 5U);
        for (std::size_t i = 0; i < 4; ++i)
            EXPECT_EQ(with.log[i],
                      (test::LogLine{7, "H264LIB_parse_pps_nal",
                                     text("Attempting to find the stop bit position for the LastByte[%zu]:%02X.",
                                          last + 3 - i, i < 3 ? 0 : unit[last])}));
        EXPECT_EQ(with.log[4],
                  (test::LogLine{
                      6, "H264LIB_parse_pps_nal",
                      text("Found StopBitPos:%d for LastByte[%zu]:%02X, NALLenWoRBSPTrailingBits:%zu, "
                           "NALTypeOffset:4, BufferLength:%zu.",
                           bits == 24 ? 8 : 5, last, unit[last], last + 1 - 4 - (bits == 24 ? 1 : 0), unit.size())}));
    }
    Bytes long_unit = PpsSyntax{}.unit();
    long_unit.insert(long_unit.end(), 100000, 0);
    EXPECT_EQ(Parsed(long_unit).result, TRUE) << "zero bytes do not count for the 256";
}

TEST_F(PpsNal, EmulationPreventionIsRemoved) {
    PpsSyntax pps;
    pps.num_slice_groups_minus1 = 1;
    pps.slice_group_map_type = 6;
    pps.slice_group_id.assign(40, 0);
    const Bytes unit = pps.unit();
    ASSERT_GT(unit.size(), 5 + pps.rbsp().size()) << "no emulation prevention in the unit";
    const Parsed parsed(unit, 3, 0x11);
    EXPECT_EQ(parsed.result, TRUE);
    EXPECT_EQ(parsed.record.pic_size_in_map_units_minus1, 39U);
    EXPECT_EQ(parsed.record.slice_group_id[39], 0U);
    EXPECT_EQ(parsed.record.num_ref_idx_l0_default_active_minus1, 0U);
    EXPECT_EQ(parsed.record.redundant_pic_cnt_present_flag, 0);
}

// The 03 that ends the unit has a stop bit of its own; it is dropped all the same.
TEST_F(PpsNal, AnEmulationPreventionByteAtTheEndIsTakenForTheStopBit) {
    Bytes unit = {0, 0, 0, 1, 0x68, 0xFF, 0x9F, 0x80, 0x00, 0x00, 0x03};
    const Parsed parsed(unit, 6, 0x11);
    EXPECT_EQ(parsed.log[0].text,
              "Found StopBitPos:1 for LastByte[10]:03, NALLenWoRBSPTrailingBits:7, NALTypeOffset:4, BufferLength:11.");
    ASSERT_GE(parsed.log.size(), 2U);
    EXPECT_NE(parsed.log[1].text.find("NumBits=40 "), std::string::npos) << parsed.log[1];
}

TEST_F(PpsNal, TheNalUnitTypeIsNotLookedAt) {
    for (int header = 0; header < 256; ++header) {
        if (header % 32 == 14 || header % 32 == 20) continue;  // a longer header
        PpsSyntax pps;
        pps.picture_parameter_set_id = 9;
        const Parsed parsed(test::nal_unit(static_cast<unsigned char>(header), pps.rbsp()));
        EXPECT_EQ(parsed.result, TRUE);
        EXPECT_EQ(parsed.record.picture_parameter_set_id, 9U);
    }
}

TEST_F(PpsNal, WithoutAStartCode) {
    Bytes bare = PpsSyntax{}.unit();
    bare.erase(bare.begin(), bare.begin() + 4);
    Bytes five = PpsSyntax{}.unit();
    five.insert(five.begin(), 0);
    for (const Bytes& unit :
         {bare, five, Bytes{0, 0, 2, 1}, Bytes{0, 0, 0, 0}, Bytes(300, 0), Bytes{0x68, 0xCE, 0x38, 0x80}}) {
        Parsed parsed(unit, 8, 0x5A);
        EXPECT_EQ(parsed.result, FALSE);
        EXPECT_EQ(test::difference(parsed.record, filled<pps_t>(0x5A)), "");
        EXPECT_EQ(parsed.log,
                  (Log{{3, "H264LIB_parse_pps_nal",
                        text("Failed to parse pps nal! buffer:%p.", static_cast<void*>(parsed.memory.data()))}}));
    }
}

TEST_F(PpsNal, AUnitThatIsTooShort) {
    // The start code ends the buffer, or too little is left of what follows.
    const std::vector<std::pair<Bytes, int>> units = {{{0, 0, 0, 1}, 0},          {{0, 0, 1}, 0},
                                                      {{0, 0, 1, 0, 0, 0}, 0},    {{0, 0, 1, 0x80}, 0},
                                                      {{0, 0, 0, 1, 0x68}, 1},    {{0, 0, 1, 0x68}, 1},
                                                      {{0, 0, 0, 1, 0x68, 0}, 1}, {{0, 0, 1, 0x68, 0x80}, 1},
                                                      {{0, 0, 1, 0x68, 0xCE}, 2}, {{0, 0, 1, 0x68, 0xCE, 0x80}, 2}};
    for (const auto& [unit, length] : units) {
        SCOPED_TRACE(testing::PrintToString(unit));
        Parsed parsed(unit, 5);
        EXPECT_EQ(parsed.result, FALSE);
        EXPECT_EQ(parsed.log, (Log{{5, "SODB_deencapsulation_from_NAL",
                                    text("Input buffer length is %d, too short to be de-encapsulated.", length)},
                                   {3, "H264LIB_parse_pps_nal", parsed.failure(-1)}}));
        EXPECT_EQ(test::assertions(), unit.size() < 4 ? Texts{"buffer_len >= 4"} : Texts{});
    }
    Parsed empty({0, 0, 1, 0x74, 1, 2, 3}, 5);  // a header of four bytes and nothing behind it
    EXPECT_EQ(empty.result, FALSE);
    EXPECT_EQ(empty.log, (Log{{3, "H264LIB_parse_pps_nal", empty.failure(0)}}));
}

TEST_F(PpsNal, AUnitThatCannotBeRead) {
    const Parsed parsed({0, 0, 0, 1, 0x68, 0xFF, 0x01}, 3);
    EXPECT_EQ(parsed.result, FALSE);
    ASSERT_EQ(parsed.log.size(), 2U);
    EXPECT_EQ(parsed.log[0].func, "_parse_pps");
    EXPECT_EQ(parsed.log[1], kReadFailed[0]);
}

TEST_F(PpsNal, AnEndInsideWeightedBipredIdcIsASuccess) {
    test::BitWriter bits;
    bits.ue(0).ue(0).flag(true).flag(false).ue(1).ue(1).ue(2).ue(0).flag(true).u(1, 1);
    ASSERT_EQ(bits.bits(), 16U);
    const Parsed parsed(test::nal_unit(0x68, bits.bytes()), 3, 0x11);
    EXPECT_EQ(parsed.result, TRUE);
    EXPECT_EQ(parsed.log, (Log{{3, "_parse_pps", "cannot parse weighted_bipred_idc."}}));
    EXPECT_EQ(parsed.record.num_ref_idx_l0_default_active_minus1, 2U);
    EXPECT_EQ(parsed.record.weighted_pred_flag, 1);
    EXPECT_EQ(parsed.record.weighted_bipred_idc, 0x11);
    EXPECT_EQ(parsed.record.pic_init_qp_minus26, 0x1111111111111111);
}

TEST_F(PpsNal, AnEndInsideSliceGroupIdIsASuccess) {
    test::BitWriter bits;
    bits.ue(0).ue(0).flag(true).flag(false).ue(3).ue(6).ue(9).u(2, 1);
    bits.u(2, 2).u(2, 3).u(2, 0).u(2, 3).u(1, 1);
    ASSERT_EQ(bits.bits(), 32U);
    const Parsed parsed(test::nal_unit(0x68, bits.bytes()), 3, 0x11);
    EXPECT_EQ(parsed.result, TRUE);
    EXPECT_EQ(parsed.log, (Log{{3, "_parse_pps", "cannot parse slice_group_id[5]."}}));
    EXPECT_EQ(parsed.record.slice_group_id[0], 1U);
    EXPECT_EQ(parsed.record.slice_group_id[4], 3U);
    EXPECT_EQ(parsed.record.slice_group_id[5], 0x1111111111111111U);
    EXPECT_EQ(parsed.record.num_ref_idx_l0_default_active_minus1, 0x1111111111111111U);
}

TEST_F(PpsNal, UpTo256BytesWithoutTheStopBitFit) {
    for (const int start_code : {3, 4}) {
        Bytes unit = test::pps_unit_of_size(256, start_code);
        ASSERT_EQ(unit.size(), 256U + static_cast<unsigned>(start_code));
        for (const std::size_t zeros : {0U, 1U, 1000U}) {
            Bytes with_zeros = unit;
            with_zeros.insert(with_zeros.end(), zeros, 0);
            const Parsed parsed(with_zeros);
            EXPECT_EQ(parsed.result, TRUE);
            EXPECT_GT(parsed.record.num_slice_groups_minus1, 1900U);
            EXPECT_EQ(parsed.record.redundant_pic_cnt_present_flag, 0);
            EXPECT_EQ(parsed.log, Log{});
        }
        unit = test::pps_unit_of_size(257, start_code, true);
        ASSERT_EQ(unit.size(), 257U + static_cast<unsigned>(start_code));
        EXPECT_EQ(Parsed(unit).result, TRUE);
    }
}

TEST_F(PpsNal, LongerUnitsAreRefused) {
    Parsed parsed(test::pps_unit_of_size(257, 4));
    ASSERT_EQ(parsed.memory.size(), 261U);
    EXPECT_EQ(parsed.result, FALSE);
    EXPECT_EQ(parsed.log,
              (Log{{3, "SODB_deencapsulation_from_NAL",
                    "Deencapsulation cannot be done as InputBufferLength:257 is longer than OutputBufferLength:256."},
                   {3, "H264LIB_parse_pps_nal", parsed.failure(-1)}}));
    Parsed again(test::pps_unit_of_size(258, 3, true));
    ASSERT_EQ(again.memory.size(), 261U);
    EXPECT_EQ(again.result, FALSE);
    EXPECT_EQ(again.log, (Log{{3, "H264LIB_parse_pps_nal", again.failure(-1)}}))
        << "the cause is reported once in ten seconds, the failure each time";
    EXPECT_EQ(test::difference(again.record, filled<pps_t>(0)), "");
}

TEST_F(PpsNal, NullArgumentsAndEmptyBuffersAreAsserted) {
    Bytes unit = PpsSyntax{}.unit();
    const int size = static_cast<int>(unit.size());
    const sps_t sps = PpsSyntax{}.sps();
    pps_t record = filled<pps_t>(0x5A);
    const auto asserted = [&](const unsigned char* buffer, int length, const sps_t* other, pps_t* pps) {
        test::reset(3);
        EXPECT_EQ(H264LIB_parse_pps_nal(buffer, length, other, pps), FALSE);
        Texts own;
        for (const test::Assertion& assertion : test::records().assertions) {
            EXPECT_EQ(assertion.file, "h264d.c");
            if (assertion.func == "H264LIB_parse_pps_nal") own.push_back(assertion.expression);
        }
        EXPECT_FALSE(test::assertions().empty());
        if (!own.empty()) {
            EXPECT_EQ(own[0], test::assertions()[0]);
        }
        return own;
    };
    EXPECT_EQ(asserted(nullptr, 0, nullptr, nullptr),
              (Texts{"buffer != NULL", "buffer_len > 0", "sps != NULL", "pps != NULL"}));
    EXPECT_EQ(asserted(nullptr, size, &sps, &record), Texts{"buffer != NULL"});
    EXPECT_EQ(test::texts(3), Texts{text("Failed to parse pps nal! buffer:%p.", static_cast<void*>(nullptr))});
    EXPECT_EQ(asserted(unit.data(), size, nullptr, &record), Texts{"sps != NULL"});
    EXPECT_EQ(asserted(unit.data(), size, &sps, nullptr), Texts{"pps != NULL"});
    EXPECT_EQ(test::texts(3), Texts{"Failed to parse PPS NAL!"});
    for (const int length : {0, -1, -2147483647 - 1}) {
        GuardedBuffer nothing(0);
        EXPECT_EQ(asserted(nothing.data(), length, &sps, &record), Texts{"buffer_len > 0"});
        EXPECT_EQ(test::texts(3),
                  Texts{text("Failed to parse pps nal! buffer:%p.", static_cast<void*>(nothing.data()))});
    }
    EXPECT_EQ(test::difference(record, filled<pps_t>(0x5A)), "");
}

}  // namespace
