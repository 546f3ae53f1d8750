#include <gtest/gtest.h>

#include "fake_clock.h"
#include "h264d/h264d.h"
#include "sps_builder.h"
#include "sps_check.h"
#include "sps_variants.h"
#include "test_clock.h"

namespace {

using test::Bytes;
using test::GuardedBuffer;
using test::Log;
using test::SpsSyntax;
using test::text;
using Texts = std::vector<std::string>;

// parse_sps_nal over a unit without a readable byte behind it.
struct Parsed {
    explicit Parsed(const Bytes& unit, int level = 3, int fill = 0) : memory(unit), record(test::filled_record(fill)) {
        test::reset(level);
        result = parse_sps_nal(memory.data(), static_cast<int>(unit.size()), record.get());
        log = test::recorded_log();
    }
    GuardedBuffer memory;
    std::unique_ptr<sps_t> record;
    BOOL result;
    Log log;
};

class SpsNal : public testing::Test {
protected:
    void SetUp() override { test::set_time(test::later_than_all_tests()); }
    void TearDown() override { test::use_system_time(); }
};

TEST_F(SpsNal, EveryVariantBehindBothStartCodes) {
    for (const test::SpsVariant& variant : test::sps_variants()) {
        SCOPED_TRACE(variant.name);
        const test::SyntaxScript script = variant.sps.script();
        const auto expected = test::filled_record(0x5A);
        ASSERT_EQ(script.run(script.bits().bits(), nullptr, *expected).result, 0);
        for (const int start_code : {3, 4}) {
            const Parsed parsed(variant.sps.unit(start_code), 3, 0x5A);
            EXPECT_EQ(parsed.result, TRUE);
            EXPECT_EQ(test::difference(*parsed.record, *expected), "");
            EXPECT_EQ(parsed.log, Log{});
        }
    }
    EXPECT_TRUE(test::records().assertions.empty());
}

TEST_F(SpsNal, EmulationPreventionIsRemovedBeforePositionsAreCounted) {
    SpsSyntax sps;
    sps.vui_parameters_present_flag = true;
    sps.vui.timing_info_present_flag = true;
    sps.vui.num_units_in_tick = 1;
    sps.vui.time_scale = 50;
    const Bytes unit = sps.unit();
    ASSERT_GT(unit.size(), 5 + sps.rbsp().size()) << "no emulation prevention in the unit";
    const Parsed parsed(unit);
    ASSERT_EQ(parsed.result, TRUE);
    EXPECT_EQ(parsed.record->vui.num_units_in_tick, 1U);
    EXPECT_EQ(parsed.record->vui.time_scale, 50U);
    const auto expected = test::filled_record(0);
    const test::SyntaxScript script = sps.script();
    script.run(script.bits().bits(), nullptr, *expected);
    EXPECT_EQ(test::difference(*parsed.record, *expected), "");
}

TEST_F(SpsNal, MessagesInOrder) {
    SpsSyntax sps;
    sps.pic_order_cnt_type = 2;
    EXPECT_EQ(Parsed(sps.unit(3), 7).log, (Log{{7, "parse_sps", "Called."},
                                               {7, "parse_sps", "Half done."},
                                               {7, "parse_sps", "75 % done."},
                                               {7, "parse_sps", "Done."}}));
}

TEST_F(SpsNal, TheNalUnitTypeIsNotLookedAt) {
    for (int header = 0; header < 256; ++header) {
        if (header % 32 == 14 || header % 32 == 20) continue;  // a longer header
        const Parsed parsed(test::nal_unit(static_cast<unsigned char>(header), SpsSyntax{}.rbsp()));
        EXPECT_EQ(parsed.result, TRUE);
        EXPECT_EQ(parsed.record->pic_width_in_mbs_minus1, 44U);
    }
    Bytes payload = SpsSyntax{}.rbsp();
    payload.insert(payload.begin(), {0xFF, 0xFF, 0xFF});
    EXPECT_EQ(Parsed(test::nal_unit(0x74, payload)).record->pic_width_in_mbs_minus1, 44U);
}

TEST_F(SpsNal, WithoutAStartCode) {
    for (const Bytes& unit :
         {Bytes{0x67, 77, 0, 30, 0xFF}, Bytes{0, 0, 0, 0, 1, 0x67, 77, 0, 30, 0xFF}, Bytes{0, 0, 2, 1}}) {
        Parsed parsed(unit, 8, 0x5A);
        EXPECT_EQ(parsed.result, FALSE);
        EXPECT_EQ(test::difference(*parsed.record, *test::filled_record(0x5A)), "");
        EXPECT_EQ(parsed.log,
                  (Log{{3, "parse_sps_nal",
                        text("Failed to parse sps nal! buffer:%p.", static_cast<void*>(parsed.memory.data()))}}));
    }
}

TEST_F(SpsNal, AUnitThatCannotBeRead) {
    Bytes unit = SpsSyntax{}.unit();
    unit.resize(8);  // profile, constraints and level only
    const Parsed parsed(unit);
    EXPECT_EQ(parsed.result, FALSE);
    EXPECT_EQ(parsed.log, (Log{{3, "parse_sps", "cannot parse seq_parameter_set_id."},
                               {3, "parse_sps_nal", "Failed to parse SPS NAL!"}}));
    EXPECT_EQ(parsed.record->profile_idc, 77);
    EXPECT_EQ(parsed.record->level_idc, 30);
}

TEST_F(SpsNal, AnHrdThatCannotBeRead) {
    SpsSyntax sps;
    sps.vui_parameters_present_flag = true;
    sps.vui.vcl_hrd_parameters_present_flag = true;
    sps.vui.vcl_hrd = test::full_hrd(20, 9);
    Bytes unit = sps.unit();
    unit.resize(unit.size() - 4);
    const Parsed parsed(unit);
    EXPECT_EQ(parsed.result, FALSE);
    ASSERT_EQ(parsed.log.size(), 4U);
    EXPECT_EQ(parsed.log[1], (test::LogLine{3, "_parse_vui", "cannot parse vcl_hrd."}));
    EXPECT_EQ(parsed.log[2], (test::LogLine{3, "parse_sps", "cannot parse vui. Return code is -2."}));
    EXPECT_EQ(parsed.log[3], (test::LogLine{3, "parse_sps_nal", "Failed to parse SPS NAL!"}));
}

TEST_F(SpsNal, AUnitThatIsTooShort) {
    // The start code ends the buffer, or one byte or two follow it.
    for (const Bytes& unit : {Bytes{0, 0, 0, 1}, Bytes{0, 0, 1}, Bytes{0, 0, 1, 0x67}, Bytes{0, 0, 0, 1, 0x67},
                              Bytes{0, 0, 1, 0x67, 77}, Bytes{0, 0, 0, 1, 0x67, 77}}) {
        SCOPED_TRACE(testing::PrintToString(unit));
        Parsed parsed(unit, 6);
        const std::size_t behind = unit.size() - (unit[2] == 1 ? 3 : 4);
        EXPECT_EQ(parsed.result, FALSE);
        EXPECT_EQ(
            parsed.log,
            (Log{{5, "SODB_deencapsulation_from_NAL",
                  text("Input buffer length is %zu, too short to be de-encapsulated.", behind)},
                 {3, "parse_sps_nal",
                  text("Failed to parse sps nal! buffer:%p Length=-1.", static_cast<void*>(parsed.memory.data()))}}));
        EXPECT_EQ(test::assertions(), unit.size() < 4 ? Texts{"buffer_len >= 4"} : Texts{});
    }
}

TEST_F(SpsNal, AnEmptyPayload) {
    Parsed parsed({0, 0, 1, 0x74, 1, 2, 3}, 6);
    EXPECT_EQ(parsed.result, FALSE);
    EXPECT_EQ(parsed.log,
              (Log{{3, "parse_sps_nal",
                    text("Failed to parse sps nal! buffer:%p Length=0.", static_cast<void*>(parsed.memory.data()))}}));
}

TEST_F(SpsNal, At256BytesBehindTheStartCodeItFits) {
    for (const int start_code : {3, 4}) {
        const Bytes unit = test::sps_unit_of_size(256, start_code);
        ASSERT_EQ(unit.size(), 256U + static_cast<unsigned>(start_code));
        const Parsed parsed(unit);
        EXPECT_EQ(parsed.result, TRUE);
        EXPECT_GT(parsed.record->num_ref_frames_in_pic_order_cnt_cycle, 100U);
        EXPECT_EQ(parsed.record->pic_height_in_map_units_minus1, 35U);
        EXPECT_EQ(parsed.log, Log{});
    }
}

TEST_F(SpsNal, At257BytesBehindTheStartCodeItDoesNot) {
    Parsed parsed(test::sps_unit_of_size(257, 4));
    ASSERT_EQ(parsed.memory.size(), 261U);
    EXPECT_EQ(parsed.result, FALSE);
    const std::string failure =
        text("Failed to parse sps nal! buffer:%p Length=-1.", static_cast<void*>(parsed.memory.data()));
    EXPECT_EQ(parsed.log,
              (Log{{3, "SODB_deencapsulation_from_NAL",
                    "Deencapsulation cannot be done as InputBufferLength:257 is longer than OutputBufferLength:256."},
                   {3, "parse_sps_nal", failure}}));
    Parsed again(test::sps_unit_of_size(257, 3));
    EXPECT_EQ(again.result, FALSE);
    ASSERT_EQ(again.log.size(), 1U) << "the cause is reported once in ten seconds, the failure each time";
    EXPECT_EQ(again.log[0].text,
              text("Failed to parse sps nal! buffer:%p Length=-1.", static_cast<void*>(again.memory.data())));
    EXPECT_EQ(Parsed(Bytes(100000, 0)).result, FALSE);
}

TEST_F(SpsNal, NullArgumentsAndEmptyBuffersAreAsserted) {
    Bytes unit = SpsSyntax{}.unit();
    const int size = static_cast<int>(unit.size());
    const auto record = test::filled_record(0x5A);
    const auto first_assertion = [] {
        EXPECT_FALSE(test::records().assertions.empty());
        if (test::records().assertions.empty()) return std::string();
        const test::Assertion& assertion = test::records().assertions[0];
        EXPECT_EQ(assertion.func, "parse_sps_nal");
        EXPECT_EQ(assertion.file, "h264d.c");
        return assertion.expression;
    };
    test::reset(3);
    EXPECT_EQ(parse_sps_nal(nullptr, size, record.get()), FALSE);
    EXPECT_EQ(first_assertion(), "buffer != NULL");
    test::reset(3);
    EXPECT_EQ(parse_sps_nal(unit.data(), size, nullptr), FALSE);
    EXPECT_EQ(first_assertion(), "sps != NULL");
    for (const int length : {0, -1, -2147483647 - 1}) {
        GuardedBuffer nothing(0);
        test::reset(3);
        EXPECT_EQ(parse_sps_nal(nothing.data(), length, record.get()), FALSE);
        EXPECT_EQ(first_assertion(), "buffer_len > 0");
    }
    EXPECT_EQ(test::difference(*record, *test::filled_record(0x5A)), "");
}

}  // namespace
