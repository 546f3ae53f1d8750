#include <gtest/gtest.h>

#include "fake_clock.h"
#include "h264d/h264d.h"
#include "script_check.h"
#include "test_clock.h"

namespace {

using test::Bytes;
using test::GuardedBuffer;
using test::Log;
using test::text;
using Texts = std::vector<std::string>;

class Aud : public testing::Test {
protected:
    void SetUp() override { test::set_time(test::later_than_all_tests()); }
    void TearDown() override { test::use_system_time(); }
};

// parse_au_delimiter_nal over a unit without a readable byte behind it.
struct Parsed {
    explicit Parsed(const Bytes& unit, int level = 6) : memory(unit) {
        test::reset(level);
        result = parse_au_delimiter_nal(memory.data(), static_cast<int>(unit.size()), &aud);
        log = test::recorded_log();
    }
    std::string failure(int length) {
        return text("Failed to parse aud NAL! buffer:%p Length=%d.", static_cast<void*>(memory.data()), length);
    }
    GuardedBuffer memory;
    aud_t aud{0xEE, 0xEE};
    BOOL result;
    Log log;
};

Log sanity(int bits, int offset) {
    return {{6, "parse_aud", text("Sanity Check, Bitbuffer length:%d, Current offset:%d.", bits, offset)}};
}

// parse_aud over the bits of these bytes from an offset on.
struct BitsParsed {
    BitsParsed(const Bytes& bytes, unsigned bits, unsigned offset) : memory(bytes), bb{memory.data(), offset, bits} {
        test::reset(6);
        result = parse_aud(&bb, &aud);
        log = test::recorded_log();
    }
    GuardedBuffer memory;
    bitbuffer_t bb;
    aud_t aud{0xEE, 0xEE};
    BOOL result;
    Log log;
};

TEST_F(Aud, DelimitersOfEveryPictureType) {
    for (unsigned primary_pic_type = 0; primary_pic_type < 8; ++primary_pic_type) {
        const auto payload = static_cast<unsigned char>(primary_pic_type << 5 | 0x10);
        const Parsed parsed({0, 0, 0, 1, 9, payload, 0, 0});
        EXPECT_EQ(parsed.result, TRUE);
        // The byte with primary_pic_type and the stop bit is taken for the NAL header.
        EXPECT_EQ(parsed.aud.nal_type, 16);
        EXPECT_EQ(parsed.aud.primary_pic_type, 0);
        EXPECT_EQ(parsed.log, sanity(24, 16));
    }
    EXPECT_EQ(Parsed({0, 0, 0, 1, 9, 0xF0, 0, 0}, 5).log, Log{});
}

TEST_F(Aud, ElementsAreWhereAHeaderByteWouldPutThem) {
    for (const int start_code : {3, 4})
        for (unsigned value = 0; value < 0x10000; value += 37) {
            const auto high = static_cast<unsigned char>(value >> 8);
            const auto low = static_cast<unsigned char>(value);
            const Parsed parsed(test::nal_unit(9, {high, low}, start_code));
            EXPECT_EQ(parsed.result, TRUE);
            EXPECT_EQ(parsed.aud.nal_type, high & 0x1F);
            EXPECT_EQ(parsed.aud.primary_pic_type, low & 7);
            EXPECT_EQ(parsed.log, sanity(16, 16));
        }
}

TEST_F(Aud, ThreeToSixteenBytesFromTheHeaderAreAccepted) {
    for (std::size_t size = 3; size <= 16; ++size) {
        Bytes unit = {0, 0, 1, 9};
        unit.resize(3 + size, 0x55);
        const Parsed parsed(unit);
        EXPECT_EQ(parsed.result, TRUE);
        EXPECT_EQ(parsed.aud.nal_type, 0x15);
        EXPECT_EQ(parsed.aud.primary_pic_type, 5);
        EXPECT_EQ(parsed.log, sanity(8 * (static_cast<int>(size) - 1), 16));
    }
    Bytes unit = {0, 0, 0, 1, 9};
    unit.resize(4 + 17, 0x55);
    Parsed too_long(unit);
    EXPECT_EQ(too_long.result, FALSE);
    EXPECT_EQ(too_long.log,
              (Log{{3, "SODB_deencapsulation_from_NAL",
                    "Deencapsulation cannot be done as InputBufferLength:17 is longer than OutputBufferLength:16."},
                   {3, "parse_au_delimiter_nal", too_long.failure(-1)}}));
    Parsed again(unit);
    EXPECT_EQ(again.log, (Log{{3, "parse_au_delimiter_nal", again.failure(-1)}})) << "the cause once in ten seconds";
    EXPECT_EQ(again.aud.nal_type, 0xEE);
}

TEST_F(Aud, AUnitThatIsTooShort) {
    for (const Bytes& unit : {Bytes{0, 0, 0, 1, 9, 0xF0}, Bytes{0, 0, 1, 9, 0xF0}, Bytes{0, 0, 0, 1, 9},
                              Bytes{0, 0, 1, 9}, Bytes{0, 0, 0, 1}, Bytes{0, 0, 1}}) {
        SCOPED_TRACE(testing::PrintToString(unit));
        Parsed parsed(unit);
        const std::size_t length = unit.size() - (unit[2] == 1 ? 3 : 4);
        EXPECT_EQ(parsed.result, FALSE);
        EXPECT_EQ(parsed.log, (Log{{5, "SODB_deencapsulation_from_NAL",
                                    text("Input buffer length is %zu, too short to be de-encapsulated.", length)},
                                   {3, "parse_au_delimiter_nal", parsed.failure(-1)}}));
        EXPECT_EQ(parsed.aud.nal_type, 0xEE);
        EXPECT_EQ(test::assertions(), unit.size() < 4 ? Texts{"buffer_len >= 4"} : Texts{});
    }
    Parsed empty({0, 0, 1, 0x14, 1, 2, 3});  // a header of four bytes and nothing behind it
    EXPECT_EQ(empty.result, FALSE);
    EXPECT_EQ(empty.log, (Log{{3, "parse_au_delimiter_nal", empty.failure(0)}}));
}

TEST_F(Aud, WithoutAStartCode) {
    for (const Bytes& unit : {Bytes{9, 0xF0, 0, 0}, Bytes{0, 0, 0, 0, 1, 9, 0xF0, 0, 0}, Bytes{0, 1, 9, 0xF0}}) {
        Parsed parsed(unit, 8);
        EXPECT_EQ(parsed.result, FALSE);
        EXPECT_EQ(parsed.log,
                  (Log{{3, "parse_au_delimiter_nal",
                        text("Failed to parse aud nal! buffer:%p.", static_cast<void*>(parsed.memory.data()))}}));
    }
}

// Only a header of four bytes leaves a payload of one.
TEST_F(Aud, APayloadOfOneByteFailsAtPrimaryPicType) {
    Parsed parsed({0, 0, 1, 0x14, 1, 2, 3, 0xF7});
    EXPECT_EQ(parsed.result, FALSE);
    EXPECT_EQ(parsed.aud.nal_type, 0x17) << "read before the failure";
    EXPECT_EQ(parsed.aud.primary_pic_type, 0xEE);
    ASSERT_EQ(parsed.log.size(), 1U);
    EXPECT_EQ(parsed.log[0].func, "parse_au_delimiter_nal");
    EXPECT_EQ(parsed.log[0].level, 3);
    const std::string& line = parsed.log[0].text;
    EXPECT_EQ(line.rfind("Failed to parse aud NAL! aud_bb:0x", 0), 0U) << line;
    EXPECT_NE(line.find(text(", num_bits:8, bit_offset:13, aud_data:%p.", static_cast<void*>(&parsed.aud))),
              std::string::npos)
        << line;
}

TEST_F(Aud, EmulationPreventionIsRemoved) {
    const Parsed parsed({0, 0, 1, 9, 0, 0, 3, 1});
    EXPECT_EQ(parsed.result, TRUE);
    EXPECT_EQ(parsed.log, sanity(24, 16));
    const Parsed behind({0, 0, 1, 9, 0xFF, 0xFE, 0, 0, 3});
    EXPECT_EQ(behind.log, sanity(32, 16));
}

TEST_F(Aud, TheNalUnitTypeIsNotLookedAt) {
    for (unsigned header = 0; header < 256; ++header) {
        if (header % 32 == 14 || header % 32 == 20) continue;  // a longer header
        const Parsed parsed({0, 0, 1, static_cast<unsigned char>(header), 0x12, 0x34});
        EXPECT_EQ(parsed.result, TRUE);
        EXPECT_EQ(parsed.aud.nal_type, 0x12);
        EXPECT_EQ(parsed.aud.primary_pic_type, 4);
    }
}

TEST_F(Aud, ABufferThatIsNull) {
    aud_t aud{0xEE, 0xEE};
    test::reset(6);
    EXPECT_EQ(parse_au_delimiter_nal(nullptr, 8, &aud), FALSE);
    EXPECT_EQ(
        test::recorded_log(),
        (Log{{3, "parse_au_delimiter_nal", text("Failed to parse aud NAL! buffer:%p.", static_cast<void*>(nullptr))}}));
    for (const int length : {0, -1, -2147483647 - 1}) {
        GuardedBuffer nothing(0);
        test::reset(3);
        EXPECT_EQ(parse_au_delimiter_nal(nothing.data(), length, &aud), FALSE);
        EXPECT_EQ(test::texts(3),
                  Texts{text("Failed to parse aud nal! buffer:%p.", static_cast<void*>(nothing.data()))});
    }
    EXPECT_EQ(aud.nal_type, 0xEE);
}

TEST_F(Aud, BitsAtAnyOffset) {
    test::BitWriter bits;
    bits.u(3, 5).u(5, 21).u(5, 9).u(3, 6);
    for (unsigned offset = 0; offset < 20; ++offset) {
        test::BitWriter shifted;
        shifted.u(offset, 0);
        for (std::size_t i = 0; i < 16; ++i) shifted.u(1, bits.bytes()[i / 8] >> (7 - i % 8) & 1U);
        const auto size = static_cast<unsigned>(shifted.bits());
        const BitsParsed parsed(shifted.bytes(), size, offset);
        EXPECT_EQ(parsed.result, TRUE);
        EXPECT_EQ(parsed.aud.nal_type, 21);
        EXPECT_EQ(parsed.aud.primary_pic_type, 6);
        EXPECT_EQ(parsed.bb.bit_offset, offset + 16);
        EXPECT_EQ(parsed.log, sanity(static_cast<int>(size), static_cast<int>(offset) + 16));
    }
}

// The bits between the elements are passed over without a look at the end; a failed read moves nothing.
TEST_F(Aud, EndsAtEveryBit) {
    for (unsigned bits = 0; bits < 16; ++bits) {
        const BitsParsed parsed(test::head_of({0xFF, 0xFF}, bits), bits, 0);
        EXPECT_EQ(parsed.result, FALSE);
        EXPECT_EQ(parsed.log, Log{});
        EXPECT_EQ(parsed.bb.bit_offset, bits < 8 ? 3U : 13U) << bits;
        EXPECT_EQ(parsed.aud.nal_type, bits < 8 ? 0xEE : 0x1F);
        EXPECT_EQ(parsed.aud.primary_pic_type, 0xEE);
    }
}

TEST_F(Aud, NullArgumentsAreReportedAndWhatIsThereIsRead) {
    GuardedBuffer memory(Bytes{0x12, 0x34});
    bitbuffer_t bb{memory.data(), 0, 16};
    aud_t aud{0xEE, 0xEE};
    test::reset(6);
    EXPECT_EQ(parse_aud(&bb, nullptr), TRUE) << "the elements are passed over";
    EXPECT_EQ(bb.bit_offset, 16U);
    Log expected = {{3, "parse_aud",
                     text("Failed to parse aud NAL! aud_bb:%p, aud_data:%p.", static_cast<void*>(&bb),
                          static_cast<void*>(nullptr))}};
    expected.push_back(sanity(16, 16)[0]);
    EXPECT_EQ(test::recorded_log(), expected);

    test::reset(6);
    EXPECT_EQ(parse_aud(nullptr, &aud), FALSE);
    EXPECT_EQ(test::recorded_log(), (Log{{3, "parse_aud",
                                          text("Failed to parse aud NAL! aud_bb:%p, aud_data:%p.",
                                               static_cast<void*>(nullptr), static_cast<void*>(&aud))}}));
    EXPECT_EQ(aud.nal_type, 0xEE);
    test::reset(6);
    EXPECT_EQ(parse_aud(nullptr, nullptr), FALSE);
    EXPECT_EQ(test::recorded_log().size(), 1U);

    const Bytes unit = {0, 0, 1, 9, 0xF0, 0};
    GuardedBuffer whole(unit);
    test::reset(3);
    EXPECT_EQ(parse_au_delimiter_nal(whole.data(), 6, nullptr), TRUE);
    EXPECT_EQ(test::texts(3).size(), 1U);
}

}  // namespace
