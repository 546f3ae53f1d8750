#include <gtest/gtest.h>

#include "h264d/h264d.h"
#include "script_check.h"
#include "slice_builder.h"

namespace {

using test::Bytes;
using test::filled;
using test::GuardedBuffer;
using test::Log;
using test::SliceSyntax;
using test::text;
using Texts = std::vector<std::string>;

// parse_slice_header_nal over a unit without a readable byte behind it.
struct Parsed {
    Parsed(const SliceSyntax& sets, const Bytes& unit, int level = 3, int fill = 0x11)
        : memory(unit), record(sets.record_before(fill)) {
        test::reset(level);
        result = parse_slice_header_nal(memory.data(), static_cast<int>(unit.size()), &sets.sps, &sets.pps, &record);
        log = test::recorded_log();
    }
    explicit Parsed(const Bytes& unit, int level = 3) : Parsed(SliceSyntax{}, unit, level) {}
    GuardedBuffer memory;
    slice_header_t record;
    int result;
    Log log;
};

// parse_slice_type_only_nal in the same way.
struct TypeParsed {
    explicit TypeParsed(const Bytes& unit, int level = 3) : memory(unit), record(filled<slice_header_t>(0x11)) {
        const sps_t sps = SliceSyntax{}.sps;
        test::reset(level);
        result = parse_slice_type_only_nal(memory.data(), static_cast<int>(unit.size()), &sps, &record);
        log = test::recorded_log();
    }
    GuardedBuffer memory;
    slice_header_t record;
    int result;
    Log log;
};

std::string address(void* pointer) { return text("%p", pointer); }

test::LogLine header_line(int offset, unsigned header) {
    return {
        6, "parse_slice_header_nal",
        text("NALTypeOffset:%d, 0x%02X, NALType:%u, nal_ref_idc:%u.", offset, header, header & 31, header >> 5 & 3)};
}

const test::LogLine kHeaderFailed = {3, "parse_slice_header_nal", "Failed to parse slice header NAL!"};
const test::LogLine kTypeFailed = {3, "parse_slice_type_only_nal", "Failed to parse slice header NAL!"};

// All slice types, NAL unit types 1, 5, 20 and 21, and everything else that a header can have.
TEST(SliceNal, EveryVariantBehindBothStartCodes) {
    for (const test::SliceVariant& variant : test::slice_variants())
        for (const int start_code : {3, 4}) {
            SCOPED_TRACE(variant.name);
            const SliceSyntax& slice = variant.slice;
            const test::SliceScript script = slice.script();
            slice_header_t expected = slice.record_before(0x11);
            const std::optional<test::Outcome> outcome = script.run(script.bits().bits(), nullptr, expected);
            Log log = {header_line(start_code, slice.nal_ref_idc << 5 | slice.nal_unit_type)};
            log.insert(log.end(), outcome->log.begin(), outcome->log.end());
            if (outcome->result != 0) log.push_back(kHeaderFailed);
            const Parsed parsed(slice, slice.unit(start_code), 6);
            EXPECT_EQ(parsed.result, outcome->result == 0 ? 1 : 0);
            EXPECT_EQ(test::difference(parsed.record, expected), "");
            EXPECT_EQ(parsed.log, log);
            EXPECT_TRUE(test::records().assertions.empty());

            slice_header_t type_only = filled<slice_header_t>(0x11);
            type_only.first_mb_in_slice = slice.first_mb_in_slice;
            type_only.slice_type = slice.slice_type;
            const TypeParsed type(slice.unit(start_code), 6);
            EXPECT_EQ(type.result, 1);
            EXPECT_EQ(test::difference(type.record, type_only), "");
            EXPECT_EQ(type.log, Log{});
        }
}

TEST(SliceNal, MessagesOfASuccess) {
    SliceSyntax slice;
    slice.nal_unit_type = 5;
    slice.nal_ref_idc = 3;
    slice.idr_pic_id = 4294967294;
    const Bytes unit = slice.unit(4, {});
    const Bytes payload = slice.script().rbsp();
    ASSERT_NE(unit.size(), 5 + payload.size()) << "no emulation prevention in the unit";
    const std::string six = text("[0]0x%02X [1]0x%02X [2]0x%02X [3]0x%02X [4]0x%02X [5]0x%02X.", payload[0], payload[1],
                                 payload[2], payload[3], payload[4], payload[5]);
    const Parsed parsed(slice, unit, 7);
    EXPECT_EQ(parsed.result, 1);
    EXPECT_EQ(parsed.log, (Log{header_line(4, 0x65),
                               {7, "parse_slice_header_nal", "SODB buffer: " + six},
                               {7, "parse_slice_header_nal",
                                text("SODB deencapsulation was successful NAL unit length:%zu, SODB length:%zu.",
                                     unit.size(), payload.size())},
                               {6, "_parse_slice_header", "NAL type is I-frame, idr_pic_id:-2"}}));
    EXPECT_EQ(parsed.log[0].text, "NALTypeOffset:4, 0x65, NALType:5, nal_ref_idc:3.");
    EXPECT_EQ(Parsed(slice, unit, 5).log, Log{});

    const TypeParsed type(unit, 7);
    EXPECT_EQ(type.log, (Log{{7, "parse_slice_type_only_nal", " NALType:5, SODB buffer:" + six},
                             {7, "parse_slice_type_only_nal",
                              text("SODB deencapsulation was successful NAL unit length:%zu, SODB length:%zu.",
                                   unit.size(), payload.size())}}));
}

// The work area is zeroed: bytes that a short payload does not have are shown as 0.
TEST(SliceNal, AShortPayloadIsShownWithZeros) {
    const Bytes unit = {0, 0, 1, 0x41, 0xFF, 0xFE};
    EXPECT_EQ(Parsed(unit, 7).log[1].text, "SODB buffer: [0]0xFF [1]0xFE [2]0x00 [3]0x00 [4]0x00 [5]0x00.");
    EXPECT_EQ(TypeParsed(unit, 7).log[0].text,
              " NALType:1, SODB buffer:[0]0xFF [1]0xFE [2]0x00 [3]0x00 [4]0x00 [5]0x00.");
}

TEST(SliceNal, AUnitThatIsTooShort) {
    for (const Bytes& unit : {Bytes{0, 0, 0, 1, 0x65, 0x88}, Bytes{0, 0, 1, 0x65, 0x88}, Bytes{0, 0, 0, 1, 0x65},
                              Bytes{0, 0, 1, 0x65}, Bytes{0, 0, 0, 1}, Bytes{0, 0, 1}}) {
        SCOPED_TRACE(testing::PrintToString(unit));
        const int offset = unit[2] == 1 ? 3 : 4;
        const int length = static_cast<int>(unit.size()) - offset;
        const test::LogLine too_short = {5, "SODB_deencapsulation_from_NAL",
                                         text("Input buffer length is %d, too short to be de-encapsulated.", length)};
        // What stands where the header byte would be is not there when the start code ends the buffer.
        Parsed parsed(unit, 7);
        EXPECT_EQ(parsed.result, 0);
        ASSERT_EQ(parsed.log.size(), 4U);
        EXPECT_EQ(parsed.log[0], too_short);
        EXPECT_EQ(parsed.log[1].text.rfind(text("NALTypeOffset:%d, 0x", offset), 0), 0U);
        if (length > 0) {
            EXPECT_EQ(parsed.log[1], header_line(offset, 0x65));
        }
        EXPECT_EQ(parsed.log[2], (test::LogLine{7, "parse_slice_header_nal",
                                                "SODB buffer: [0]0x00 [1]0x00 [2]0x00 [3]0x00 [4]0x00 [5]0x00."}));
        EXPECT_EQ(parsed.log[3], (test::LogLine{3, "parse_slice_header_nal",
                                                "Failed to parse slice header nal! buffer:" +
                                                    address(parsed.memory.data()) + " Length=-1."}));
        EXPECT_EQ(test::difference(parsed.record, SliceSyntax{}.record_before(0x11)), "");

        TypeParsed type(unit, 7);
        EXPECT_EQ(type.result, 0);
        ASSERT_EQ(type.log.size(), 3U);
        EXPECT_EQ(type.log[0], too_short);
        EXPECT_EQ(type.log[1].text, text(" NALType:%d, SODB buffer:[0]0x00 [1]0x00 [2]0x00 [3]0x00 [4]0x00 [5]0x00.",
                                         length > 0 ? 5 : 0));
        EXPECT_EQ(
            type.log[2],
            (test::LogLine{3, "parse_slice_type_only_nal",
                           "Failed to parse slice header nal! buffer:" + address(type.memory.data()) + " Length=-1."}))
            << "the other entry's text";
        EXPECT_EQ(test::difference(type.record, filled<slice_header_t>(0x11)), "");
        EXPECT_EQ(test::assertions(), unit.size() < 4 ? Texts{"buffer_len >= 4"} : Texts{});
    }
}

TEST(SliceNal, AnEmptyPayload) {
    const Bytes unit = {0, 0, 1, 0x74, 1, 2, 3};  // a header of four bytes and nothing behind it
    Parsed parsed(unit, 6);
    EXPECT_EQ(parsed.result, 0);
    EXPECT_EQ(parsed.log,
              (Log{header_line(3, 0x74),
                   {3, "parse_slice_header_nal",
                    "Failed to parse slice header nal! buffer:" + address(parsed.memory.data()) + " Length=0."}}));
    TypeParsed type(unit, 6);
    EXPECT_EQ(type.log,
              (Log{{3, "parse_slice_type_only_nal",
                    "Failed to parse slice header nal! buffer:" + address(type.memory.data()) + " Length=0."}}));
}

TEST(SliceNal, WithoutAStartCode) {
    Bytes bare = SliceSyntax{}.unit();
    bare.erase(bare.begin(), bare.begin() + 4);
    Bytes five = SliceSyntax{}.unit();
    five.insert(five.begin(), 0);
    for (const Bytes& unit : {bare, five, Bytes{0, 0, 2, 1}, Bytes{0x65, 0x88, 0x84, 0}, Bytes(5000, 0)}) {
        Parsed parsed(unit, 8);
        EXPECT_EQ(parsed.result, 0);
        EXPECT_EQ(parsed.log,
                  (Log{{3, "parse_slice_header_nal",
                        "Failed to parse slice header nal! buffer:" + address(parsed.memory.data()) + "."}}));
        TypeParsed type(unit, 8);
        EXPECT_EQ(type.result, 0);
        EXPECT_EQ(type.log, (Log{{3, "parse_slice_type_only_nal",
                                  "Failed to parse slice type nal! buffer:" + address(type.memory.data()) + "."}}));
        EXPECT_EQ(test::difference(type.record, filled<slice_header_t>(0x11)), "");
    }
}

TEST(SliceNal, NullArguments) {
    const SliceSyntax slice;
    Bytes unit = slice.unit();
    const int size = static_cast<int>(unit.size());
    slice_header_t record = filled<slice_header_t>(0x11);
    const auto header_line_of = [&](const unsigned char* buffer, slice_header_t* pSh) {
        test::reset(8);
        EXPECT_EQ(parse_slice_header_nal(buffer, size, &slice.sps, &slice.pps, pSh), 0);
        EXPECT_EQ(test::recorded_log().size(), 1U);
        return test::texts_with_function(3).at(0);
    };
    const auto type_line_of = [&](const unsigned char* buffer, slice_header_t* pSh) {
        test::reset(8);
        EXPECT_EQ(parse_slice_type_only_nal(buffer, size, &slice.sps, pSh), 0);
        EXPECT_EQ(test::recorded_log().size(), 1U);
        return test::texts_with_function(3).at(0);
    };
    const std::string null = address(nullptr);
    const auto line = [&](const char* function, void* buffer, void* pSh, const char* end) {
        return text("%s: buffer:%p or slice header:%p are NULL. This should not happen%s", function, buffer, pSh, end);
    };
    EXPECT_EQ(header_line_of(nullptr, &record), line("parse_slice_header_nal", nullptr, &record, "!"));
    EXPECT_EQ(header_line_of(unit.data(), nullptr), line("parse_slice_header_nal", unit.data(), nullptr, "!"));
    EXPECT_EQ(header_line_of(nullptr, nullptr), line("parse_slice_header_nal", nullptr, nullptr, "!"));
    EXPECT_EQ(type_line_of(nullptr, &record), line("parse_slice_type_only_nal", nullptr, &record, "."));
    EXPECT_EQ(type_line_of(unit.data(), nullptr), line("parse_slice_type_only_nal", unit.data(), nullptr, "."));
    EXPECT_TRUE(test::assertions().empty());

    test::reset(3);
    EXPECT_EQ(parse_slice_header_nal(unit.data(), size, nullptr, &slice.pps, &record), 0);
    EXPECT_EQ(test::assertions(), Texts{"sps != NULL"});
    EXPECT_EQ(test::recorded_log(), Log{kHeaderFailed});
    test::reset(3);
    EXPECT_EQ(parse_slice_header_nal(unit.data(), size, &slice.sps, nullptr, &record), 0);
    EXPECT_EQ(test::assertions(), Texts{"pps != NULL"});
    test::reset(3);
    EXPECT_EQ(parse_slice_type_only_nal(unit.data(), size, nullptr, &record), 0);
    EXPECT_EQ(
        test::recorded_log(),
        (Log{{3, "_parse_slice_type", text("sps:%p is NULL this should not happen!", static_cast<void*>(nullptr))},
             kTypeFailed}));
    EXPECT_EQ(test::difference(record, filled<slice_header_t>(0x11)), "");
}

TEST(SliceNal, EmptyBuffers) {
    GuardedBuffer nothing(0);
    const SliceSyntax slice;
    for (const int length : {0, -1, -32, -33, -2147483647 - 1}) {
        slice_header_t record = filled<slice_header_t>(0x11);
        test::reset(8);
        EXPECT_EQ(parse_slice_header_nal(nothing.data(), length, &slice.sps, &slice.pps, &record), 0);
        EXPECT_EQ(parse_slice_type_only_nal(nothing.data(), length, &slice.sps, &record), 0);
        EXPECT_EQ(test::texts(3).size(), 2U);
        EXPECT_EQ(test::difference(record, filled<slice_header_t>(0x11)), "");
    }
}

// The stop bit and the zeros behind it are data like any other.
TEST(SliceNal, TrailingBitsAreNotRemoved) {
    SliceSyntax slice;
    slice.nal_ref_idc = 0;
    test::BitWriter bits;
    bits.ue(0).ue(7).ue(0).u(4, 1).u(4, 2);
    ASSERT_EQ(bits.bits(), 17U);
    const Parsed parsed(slice, test::nal_unit(0x01, bits.trailing().bytes()));
    EXPECT_EQ(parsed.result, 1);
    EXPECT_EQ(parsed.record.slice_qp_delta, 0) << "the stop bit";
    EXPECT_EQ(parsed.record.slice_header_end_bitoffset, 18);
}

TEST(SliceNal, EmulationPreventionIsRemovedBeforePositionsAreCounted) {
    SliceSyntax slice;
    slice.sps.log2_max_frame_num_minus4 = 28;
    slice.frame_num = 1;
    slice.sps.log2_max_pic_order_cnt_lsb_minus4 = 28;
    slice.pic_order_cnt_lsb = 2;
    const Bytes unit = slice.unit();
    ASSERT_GT(unit.size(), 5 + (slice.script().bits().bits() + 7) / 8 + 40) << "no emulation prevention in the unit";
    const Parsed parsed(slice, unit);
    EXPECT_EQ(parsed.result, 1);
    EXPECT_EQ(parsed.record.frame_num, 1U);
    EXPECT_EQ(parsed.record.pic_order_cnt_lsb, 2U);
    EXPECT_EQ(parsed.record.drpm_bitoffset, 9 + 32 + 32);
}

TEST(SliceNal, TheHeaderByteDecides) {
    SliceSyntax slice;
    slice.idr_pic_id = 3;
    for (unsigned header = 0; header < 256; ++header) {
        SCOPED_TRACE(header);
        slice.nal_unit_type = header & 31;
        slice.nal_ref_idc = header >> 5 & 3;
        Bytes unit = slice.unit();
        unit[4] = static_cast<unsigned char>(header);
        const Parsed parsed(slice, unit, 6);
        const bool refused = slice.nal_unit_type == 20 || slice.nal_unit_type == 21;
        EXPECT_EQ(parsed.result, refused ? 0 : 1);
        EXPECT_EQ(parsed.log[0], header_line(4, header));
        if (refused) continue;
        EXPECT_EQ(parsed.record.idr_pic_id, slice.nal_unit_type == 5 ? 3U : 0x1111111111111111U);
        const int before = slice.nal_unit_type == 5 ? 17 + 5 : 17;
        EXPECT_EQ(parsed.record.drpm_bitoffset, slice.nal_ref_idc == 0 ? 0 : before);
        const int marking = slice.nal_ref_idc == 0 ? 0 : slice.nal_unit_type == 5 ? 2 : 1;
        EXPECT_EQ(parsed.record.slice_header_end_bitoffset, before + marking + 1);
    }
}

TEST(SliceNal, TypeOnlyReadsTwoElements) {
    for (const std::uint64_t type : std::vector<std::uint64_t>{0, 9, 10, 255, 4294967294}) {
        test::BitWriter bits;
        bits.ue(65535).ue(type);
        const TypeParsed parsed(test::nal_unit(0x21, bits.bytes()));
        EXPECT_EQ(parsed.result, 1);
        EXPECT_EQ(parsed.record.first_mb_in_slice, 65535U);
        EXPECT_EQ(parsed.record.slice_type, type);
        EXPECT_EQ(parsed.record.pic_parameter_set_id, 0x1111111111111111U);
    }
    // A failed read has no message of its own.
    const TypeParsed first({0, 0, 1, 0x41, 0, 0});
    EXPECT_EQ(first.result, 0);
    EXPECT_EQ(first.log, Log{kTypeFailed});
    EXPECT_EQ(first.record.first_mb_in_slice, 0x1111111111111111U);
    const TypeParsed second({0, 0, 1, 0x41, 0x40, 0});
    EXPECT_EQ(second.result, 0);
    EXPECT_EQ(second.log, Log{kTypeFailed});
    EXPECT_EQ(second.record.first_mb_in_slice, 1U);
    EXPECT_EQ(second.record.slice_type, 0x1111111111111111U);
}

}  // namespace
