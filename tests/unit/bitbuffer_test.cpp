// Cursor, single bits and masks of the bit buffer.
#include "bitbuffer.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "bit_masks.h"
#include "bit_writer.h"
#include "diagnostics.h"
#include "guarded_buffer.h"

namespace {

using test::Bytes;
using test::GuardedBuffer;
using Texts = std::vector<std::string>;

class BitBufferTest : public testing::Test {
protected:
    void SetUp() override { test::reset(8); }
};

using BitBufferInit = BitBufferTest;
using BitBufferAdvance = BitBufferTest;
using BitBufferBit = BitBufferTest;

bitbuffer_t over(GuardedBuffer& area, unsigned offset = 0) {
    return {area.data(), offset, static_cast<unsigned>(8 * area.size())};
}

// The one message that was emitted.
void expect_message(int level, const std::string& func, const std::string& text) {
    ASSERT_EQ(test::records().messages.size(), 1U);
    const test::Message& message = test::records().messages[0];
    EXPECT_EQ(message.level, level);
    EXPECT_EQ(message.func, func);
    EXPECT_EQ(message.file, "bitbuffer.c");
    EXPECT_GT(message.line, 0);
    EXPECT_EQ(message.text, text + "\n");
}

void expect_assertion(const test::Assertion& assertion, const std::string& expression, const std::string& func) {
    EXPECT_EQ(assertion.expression, expression);
    EXPECT_EQ(assertion.func, func);
    EXPECT_EQ(assertion.file, "bitbuffer.c");
    EXPECT_GT(assertion.line, 0);
    EXPECT_FALSE(assertion.with_caller);
}

void expect_assertion_of_caller(const test::Assertion& assertion, const std::string& expression,
                                const std::string& func, const std::string& caller_func, const std::string& caller_file,
                                int caller_line) {
    EXPECT_EQ(assertion.expression, expression);
    EXPECT_EQ(assertion.func, func);
    EXPECT_EQ(assertion.file, "bitbuffer.c");
    EXPECT_GT(assertion.line, 0);
    EXPECT_TRUE(assertion.with_caller);
    EXPECT_EQ(assertion.caller_func, caller_func);
    EXPECT_EQ(assertion.caller_file, caller_file);
    EXPECT_EQ(assertion.caller_line, caller_line);
}

std::string advance_text(int offset, int n, int num_bits) {
    return "Trying to advance past the end of bit buffer. CurrentBitOffset:" + std::to_string(offset) +
           ", Desired Increment:" + std::to_string(n) + ", TotalNumBits:" + std::to_string(num_bits) + ".";
}

TEST(BitBufferConstants, ByteWidthAndRoundingUpDivision) {
    EXPECT_EQ(NUM_BITS_IN_BYTE, 8);
    EXPECT_EQ(DIVIDE_AND_CEIL(0U, NUM_BITS_IN_BYTE), 0U);
    EXPECT_EQ(DIVIDE_AND_CEIL(1U, NUM_BITS_IN_BYTE), 1U);
    EXPECT_EQ(DIVIDE_AND_CEIL(8U, NUM_BITS_IN_BYTE), 1U);
    EXPECT_EQ(DIVIDE_AND_CEIL(9U, NUM_BITS_IN_BYTE), 2U);
    EXPECT_EQ(DIVIDE_AND_CEIL(UINT_MAX, NUM_BITS_IN_BYTE), 0x20000000U);
}

TEST(BitMasks, LowBitsOf1To64) {
    std::uint64_t expected = 0;
    for (unsigned n = 1; n <= 64; ++n) {
        expected = 2 * expected + 1;
        EXPECT_EQ(_GetBitMask(n), expected) << n;
    }
    EXPECT_EQ(expected, ~std::uint64_t{0});
}

TEST(BitMasks, HighBitsOf0To7) {
    const Bytes expected = {0x00, 0x80, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC, 0xFE};
    for (unsigned n = 0; n < 8; ++n) EXPECT_EQ(_GetMSBitsMask(n), expected[n]) << n;
}

TEST_F(BitBufferInit, StoresTheFieldsAndStartsAtTheFirstBit) {
    unsigned char area[3] = {0xDE, 0xAD, 0xBE};
    bitbuffer_t bb = {nullptr, 77, 88};
    EXPECT_EQ(__DoInitBitBuffer(&bb, area, 24, "caller", "caller.c", 12), 0);
    EXPECT_EQ(bb.bit_buffer, area);
    EXPECT_EQ(bb.bit_offset, 0U);
    EXPECT_EQ(bb.num_bits, 24U);
    EXPECT_TRUE(test::records().assertions.empty());
    EXPECT_TRUE(test::records().messages.empty());
    EXPECT_EQ(Bytes(area, area + 3), (Bytes{0xDE, 0xAD, 0xBE}));
}

TEST_F(BitBufferInit, SizeThatIsNoMultipleOf8IsTheCallersFailedAssertionAndUsed) {
    GuardedBuffer area(Bytes{0xFF, 0xF0});
    bitbuffer_t bb;
    EXPECT_EQ(__DoInitBitBuffer(&bb, area.data(), 12, "caller", "caller.c", 4711), 0);
    ASSERT_EQ(test::records().assertions.size(), 1U);
    expect_assertion_of_caller(test::records().assertions[0], "((num_bits_in_buffer % NUM_BITS_IN_BYTE) == 0)",
                               "__DoInitBitBuffer", "caller", "caller.c", 4711);
    EXPECT_EQ(bb.num_bits, 12U);
    for (int i = 0; i < 12; ++i) {
        int bit = -1;
        EXPECT_EQ(GetNextBitEx(&bb, &bit), 0);
        EXPECT_EQ(bit, 1);
    }
    int bit = -1;
    EXPECT_EQ(GetNextBitEx(&bb, &bit), -1);
    EXPECT_EQ(bit, -1);
    EXPECT_EQ(bb.bit_offset, 12U);

    test::reset(6);
    DisplayBitBuffer(&bb, "twelve");
    ASSERT_EQ(test::records().dumps.size(), 1U);
    EXPECT_EQ(test::records().dumps[0].bytes, (Bytes{0xFF, 0xF0}));
}

TEST_F(BitBufferInit, EverySizeModulo8IsCheckedAgainstWholeBytes) {
    unsigned char area[4] = {};
    for (int bits = 1; bits <= 32; ++bits) {
        test::reset(0);
        bitbuffer_t bb;
        EXPECT_EQ(DoInitBitBuffer(&bb, area, bits), 0);
        EXPECT_EQ(test::records().assertions.size(), bits % 8 != 0 ? 1U : 0U) << bits;
        EXPECT_EQ(bb.num_bits, static_cast<unsigned>(bits));
    }
}

TEST_F(BitBufferInit, MacroSuppliesTheCallersLocation) {
    unsigned char area[1] = {};
    bitbuffer_t bb;
    const int line = __LINE__ + 1;
    EXPECT_EQ(DoInitBitBuffer(&bb, area, 7), 0);
    ASSERT_EQ(test::records().assertions.size(), 1U);
    expect_assertion_of_caller(test::records().assertions[0], "((num_bits_in_buffer % NUM_BITS_IN_BYTE) == 0)",
                               "__DoInitBitBuffer", __func__, __FILE__, line);
}

TEST_F(BitBufferInit, BadAreaAndSizeAreReportedAndStored) {
    bitbuffer_t bb = {nullptr, 77, 88};
    EXPECT_EQ(__DoInitBitBuffer(&bb, nullptr, -3, "caller", "caller.c", 5), 0);
    const auto& assertions = test::records().assertions;
    ASSERT_EQ(assertions.size(), 3U);
    expect_assertion(assertions[0], "bit_buffer != NULL", "__DoInitBitBuffer");
    expect_assertion(assertions[1], "num_bits_in_buffer > 0", "__DoInitBitBuffer");
    expect_assertion_of_caller(assertions[2], "((num_bits_in_buffer % NUM_BITS_IN_BYTE) == 0)", "__DoInitBitBuffer",
                               "caller", "caller.c", 5);
    EXPECT_EQ(bb.bit_buffer, nullptr);
    EXPECT_EQ(bb.bit_offset, 0U);
    EXPECT_EQ(bb.num_bits, 0xFFFFFFFDU);
}

TEST_F(BitBufferInit, SizesThatAreNotPositive) {
    unsigned char area[1] = {};
    for (const int bits : {0, -8, INT_MIN}) {
        test::reset(8);
        bitbuffer_t bb = {nullptr, 77, 88};
        EXPECT_EQ(DoInitBitBuffer(&bb, area, bits), 0);
        EXPECT_EQ(test::assertions(), Texts{"num_bits_in_buffer > 0"}) << bits;
        EXPECT_EQ(bb.bit_buffer, area);
        EXPECT_EQ(bb.bit_offset, 0U);
        EXPECT_EQ(bb.num_bits, static_cast<unsigned>(bits));
    }
}

TEST_F(BitBufferInit, NullBitBufferIsReported) {
    unsigned char area[1] = {};
    DoInitBitBuffer(nullptr, area, 8);
    ASSERT_EQ(test::records().assertions.size(), 1U);
    expect_assertion(test::records().assertions[0], "bb != NULL", "__DoInitBitBuffer");
}

TEST_F(BitBufferAdvance, UpToTheEndAndNotBeyond) {
    GuardedBuffer area(2);
    bitbuffer_t bb = over(area);
    EXPECT_EQ(AdvanceBitOffset(&bb, 0), 0);
    EXPECT_EQ(bb.bit_offset, 0U);
    EXPECT_EQ(AdvanceBitOffset(&bb, 5), 0);
    EXPECT_EQ(bb.bit_offset, 5U);
    EXPECT_EQ(AdvanceBitOffset(&bb, 12), -1);
    EXPECT_EQ(bb.bit_offset, 5U);
    EXPECT_EQ(test::records().messages.size(), 1U);
    EXPECT_EQ(AdvanceBitOffset(&bb, 11), 0);
    EXPECT_EQ(bb.bit_offset, 16U);
    EXPECT_EQ(AdvanceBitOffset(&bb, 0), 0);
    EXPECT_EQ(bb.bit_offset, 16U);
    EXPECT_EQ(AdvanceBitOffset(&bb, 1), -1);
    EXPECT_EQ(bb.bit_offset, 16U);
    EXPECT_EQ(test::texts_with_function(3),
              (Texts{"AdvanceBitOffset: " + advance_text(5, 12, 16), "AdvanceBitOffset: " + advance_text(16, 1, 16)}));
}

TEST_F(BitBufferAdvance, FailureIsAMessageAtLevel3) {
    GuardedBuffer area(1);
    bitbuffer_t bb = over(area, 3);
    test::reset(3);
    EXPECT_EQ(AdvanceBitOffset(&bb, 6), -1);
    expect_message(3, "AdvanceBitOffset", advance_text(3, 6, 8));
    test::reset(2);
    EXPECT_EQ(AdvanceBitOffset(&bb, 6), -1);
    EXPECT_TRUE(test::records().messages.empty());
}

TEST_F(BitBufferAdvance, SumIsComputedModulo2To32) {
    GuardedBuffer area(10);
    bitbuffer_t bb = over(area, 10);
    EXPECT_EQ(AdvanceBitOffset(&bb, 0xFFFFFFFB), 0);
    EXPECT_EQ(bb.bit_offset, 5U);
    EXPECT_EQ(AdvanceBitOffset(&bb, 0xFFFFFFFA), -1);  // 5 - 6 is 2^32 - 1
    EXPECT_EQ(bb.bit_offset, 5U);
    expect_message(3, "AdvanceBitOffset", advance_text(5, -6, 80));
    EXPECT_EQ(AdvanceBitOffset(&bb, 0xFFFFFFFB), 0);
    EXPECT_EQ(bb.bit_offset, 0U);
}

TEST_F(BitBufferAdvance, NearTheLargestSize) {
    unsigned char byte = 0;
    bitbuffer_t bb = {&byte, 0, UINT_MAX};
    EXPECT_EQ(AdvanceBitOffset(&bb, 0xFFFFFFF0), 0);
    EXPECT_EQ(AdvanceBitOffset(&bb, 15), 0);
    EXPECT_EQ(bb.bit_offset, UINT_MAX);
    EXPECT_EQ(AdvanceBitOffset(&bb, 3), 0);  // wraps
    EXPECT_EQ(bb.bit_offset, 2U);
    EXPECT_TRUE(test::records().messages.empty());
}

TEST_F(BitBufferAdvance, BehindTheEndEvenZeroFails) {
    GuardedBuffer area(1);
    bitbuffer_t bb = over(area, 11);
    EXPECT_EQ(AdvanceBitOffset(&bb, 0), -1);
    EXPECT_EQ(bb.bit_offset, 11U);
    expect_message(3, "AdvanceBitOffset", advance_text(11, 0, 8));
}

TEST_F(BitBufferAdvance, NullBitBuffer) {
    EXPECT_EQ(AdvanceBitOffset(nullptr, 1), -1);
    ASSERT_EQ(test::records().assertions.size(), 1U);
    expect_assertion(test::records().assertions[0], "bb != NULL", "AdvanceBitOffset");
    EXPECT_TRUE(test::records().messages.empty());
}

TEST_F(BitBufferBit, ReadsMostSignificantFirst) {
    GuardedBuffer area(Bytes{0xA5});
    bitbuffer_t bb = over(area);
    std::vector<int> bits;
    for (int i = 0; i < 8; ++i) {
        int bit = -1;
        ASSERT_EQ(GetNextBitEx(&bb, &bit), 0);
        bits.push_back(bit);
        EXPECT_EQ(bb.bit_offset, static_cast<unsigned>(i + 1));
    }
    EXPECT_EQ(bits, (std::vector<int>{1, 0, 1, 0, 0, 1, 0, 1}));
    int bit = 42;
    EXPECT_EQ(GetNextBitEx(&bb, &bit), -1);
    EXPECT_EQ(bit, 42);
    EXPECT_EQ(bb.bit_offset, 8U);
    EXPECT_TRUE(test::records().messages.empty());
}

TEST_F(BitBufferBit, NullDestinationPassesOverTheBit) {
    GuardedBuffer area(Bytes{0x40});
    bitbuffer_t bb = over(area);
    EXPECT_EQ(GetNextBitEx(&bb, nullptr), 0);
    EXPECT_EQ(bb.bit_offset, 1U);
    int bit = -1;
    EXPECT_EQ(GetNextBitEx(&bb, &bit), 0);
    EXPECT_EQ(bit, 1);
    bb.bit_offset = 8;
    EXPECT_EQ(GetNextBitEx(&bb, nullptr), -1);
    EXPECT_EQ(bb.bit_offset, 8U);
}

TEST_F(BitBufferBit, WritesOneBitAndKeepsTheOthers) {
    GuardedBuffer area(Bytes{0xFF});
    bitbuffer_t bb = over(area, 3);
    EXPECT_EQ(DoSetNextBit(&bb, 0), 0);
    EXPECT_EQ(area[0], 0xEF);
    EXPECT_EQ(bb.bit_offset, 4U);
    for (unsigned k = 0; k < 16; ++k)
        for (const unsigned value : {0U, 1U})
            for (const unsigned char before : Bytes{0x00, 0xFF, 0xA5}) {
                GuardedBuffer two(Bytes{before, before});
                bitbuffer_t cursor = over(two, k);
                Bytes expected = two.bytes();
                const unsigned mask = 0x80U >> k % 8;
                expected[k / 8] = static_cast<unsigned char>(value != 0 ? before | mask : before & ~mask);
                EXPECT_EQ(__DoSetNextBit(&cursor, value, "f", "f.c", 1), 0);
                EXPECT_EQ(two.bytes(), expected);
                EXPECT_EQ(cursor.bit_offset, k + 1);
            }
    EXPECT_TRUE(test::records().assertions.empty());
    EXPECT_TRUE(test::records().messages.empty());
}

TEST_F(BitBufferBit, WriteAtAndBehindTheEndFails) {
    GuardedBuffer area(Bytes{0x5A, 0x5A});
    for (const unsigned offset : {11U, 12U, 15U, 16U, 17U, 24U, UINT_MAX}) {
        bitbuffer_t bb = {area.data(), offset, 11};
        EXPECT_EQ(DoSetNextBit(&bb, 1), -1);
        EXPECT_EQ(DoSetNextBit(&bb, 0), -1);
        EXPECT_EQ(GetNextBitEx(&bb, nullptr), -1);
        int bit = 42;
        EXPECT_EQ(GetNextBitEx(&bb, &bit), -1);
        EXPECT_EQ(bit, 42);
        EXPECT_EQ(bb.bit_offset, offset);
    }
    EXPECT_EQ(area.bytes(), (Bytes{0x5A, 0x5A}));
    EXPECT_TRUE(test::records().messages.empty());
    EXPECT_TRUE(test::records().assertions.empty());
}

TEST_F(BitBufferBit, ValueAbove1IsTheCallersFailedAssertion) {
    GuardedBuffer area(Bytes{0xA5});
    bitbuffer_t bb = over(area, 2);
    EXPECT_EQ(__DoSetNextBit(&bb, 2, "writer", "writer.c", 99), 0);
    ASSERT_EQ(test::records().assertions.size(), 1U);
    expect_assertion_of_caller(test::records().assertions[0], "value < 2", "__DoSetNextBit", "writer", "writer.c", 99);
    EXPECT_EQ(area[0] & 0xDF, 0x85);  // all but bit 2
    EXPECT_EQ(bb.bit_offset, 3U);

    test::reset(8);
    const int line = __LINE__ + 1;
    EXPECT_EQ(DoSetNextBit(&bb, UINT_MAX), 0);
    ASSERT_EQ(test::records().assertions.size(), 1U);
    expect_assertion_of_caller(test::records().assertions[0], "value < 2", "__DoSetNextBit", __func__, __FILE__, line);
}

TEST_F(BitBufferBit, NullBitBuffer) {
    int bit = 42;
    EXPECT_EQ(GetNextBitEx(nullptr, &bit), -1);
    EXPECT_EQ(bit, 42);
    EXPECT_EQ(GetNextBitEx(nullptr, nullptr), -1);
    ASSERT_GE(test::records().assertions.size(), 2U);
    for (const auto& assertion : test::records().assertions) EXPECT_EQ(assertion.expression, "bb != NULL");
    expect_assertion(test::records().assertions[0], "bb != NULL", "_GetNextBit");

    test::reset(8);
    EXPECT_EQ(__DoSetNextBit(nullptr, 2, "writer", "writer.c", 99), -1);
    ASSERT_EQ(test::records().assertions.size(), 2U);
    expect_assertion_of_caller(test::records().assertions[0], "bb != NULL", "__DoSetNextBit", "writer", "writer.c", 99);
    expect_assertion_of_caller(test::records().assertions[1], "value < 2", "__DoSetNextBit", "writer", "writer.c", 99);
}

TEST_F(BitBufferBit, TwoCursorsOverTheSameBytes) {
    GuardedBuffer area(1);
    bitbuffer_t reader = over(area, 4);
    bitbuffer_t writer = over(area, 4);
    int bit = -1;
    EXPECT_EQ(DoSetNextBit(&writer, 1), 0);
    EXPECT_EQ(GetNextBitEx(&reader, &bit), 0);
    EXPECT_EQ(bit, 1);
    EXPECT_EQ(area[0], 0x08);
}

}  // namespace
