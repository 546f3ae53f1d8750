// The sixteen readers and writers of 1 to 64 bits.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "bit_members.h"
#include "bit_model.h"
#include "bitbuffer.h"
#include "diagnostics.h"
#include "guarded_buffer.h"

namespace {

using test::BitMember;
using test::BitModel;
using test::Bytes;
using test::Guard;
using test::GuardedBuffer;
using Texts = std::vector<std::string>;

constexpr std::uint64_t kBefore = 0x5A5A5A5A5A5A5A5A;
constexpr int kLevels[] = {0, 7};

std::mt19937_64& random_numbers() {
    static std::mt19937_64 random(2);
    return random;
}

Bytes random_bytes(std::size_t size) {
    Bytes bytes(size);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random_numbers()());
    return bytes;
}

class BitFields : public testing::TestWithParam<BitMember> {};
INSTANTIATE_TEST_SUITE_P(Members, BitFields, testing::ValuesIn(test::kBitMembers),
                         [](const testing::TestParamInfo<BitMember>& member) { return member.param.name; });

void check_get(const BitMember& member, GuardedBuffer& area, unsigned num_bits, unsigned offset, unsigned n) {
    BitModel model(area.bytes(), num_bits);
    model.offset = offset;
    std::uint64_t expected = kBefore;
    const int result = member.expected_get(model, n, &expected);

    test::clear();
    bitbuffer_t bb = {area.data(), offset, num_bits};
    std::uint64_t value = kBefore;
    ASSERT_EQ(member.get(&bb, n, &value), result);
    ASSERT_EQ(value, expected);
    ASSERT_EQ(bb.bit_offset, model.offset);
    bb.bit_offset = offset;
    ASSERT_EQ(member.get(&bb, n, nullptr), result);
    ASSERT_EQ(bb.bit_offset, model.offset);
    ASSERT_EQ(area.bytes(), model.bytes);
    ASSERT_TRUE(test::texts(3).empty());
}

void check_set(const BitMember& member, GuardedBuffer& area, unsigned num_bits, unsigned offset, unsigned n,
               std::uint64_t value) {
    BitModel model(area.bytes(), num_bits);
    model.offset = offset;
    const int result = model.set_field(member.width, member.least(), n, value);

    test::clear();
    bitbuffer_t bb = {area.data(), offset, num_bits};
    ASSERT_EQ(member.set(&bb, n, value), result) << value;
    ASSERT_EQ(area.bytes(), model.bytes) << value;
    ASSERT_EQ(bb.bit_offset, model.offset);
    ASSERT_TRUE(test::texts(3).empty());
}

// All lengths in and around the range, at all alignments, with much, just enough and too little room behind.
template <typename Check>
void at_every_place(const BitMember& member, const Check& check) {
    std::vector<unsigned> lengths = {2 * member.width + 1, 255, 256, 65536, 0x80000000, UINT_MAX};
    for (unsigned n = 0; n <= member.width + 3; ++n) lengths.push_back(n);
    for (const int level : kLevels)
        for (const Guard guard : {Guard::kBehind, Guard::kBefore})
            for (const unsigned num_bits : {1U, 8U, 13U, 37U, 64U, 72U, 80U, 160U}) {
                test::reset(level);
                GuardedBuffer area(random_bytes((num_bits + 7) / 8), guard);
                for (unsigned offset = 0; offset <= num_bits + 3; ++offset)
                    for (const unsigned n : lengths) {
                        check(area, num_bits, offset, n);
                        if (testing::Test::HasFailure())
                            FAIL() << "num_bits " << num_bits << ", offset " << offset << ", n " << n << ", level "
                                   << level;
                    }
            }
}

TEST_P(BitFields, ReadAtEveryPlaceAndLength) {
    at_every_place(GetParam(), [](GuardedBuffer& area, unsigned num_bits, unsigned offset, unsigned n) {
        check_get(GetParam(), area, num_bits, offset, n);
    });
}

TEST_P(BitFields, WriteAtEveryPlaceAndLength) {
    at_every_place(GetParam(), [](GuardedBuffer& area, unsigned num_bits, unsigned offset, unsigned n) {
        check_set(GetParam(), area, num_bits, offset, n, random_numbers()());
    });
}

TEST_P(BitFields, ExtremeValuesComeBack) {
    const BitMember& member = GetParam();
    for (const int level : kLevels)
        for (unsigned n = member.least(); n <= member.width; ++n) {
            test::reset(level);
            const std::uint64_t top = std::uint64_t{1} << (n - 1);
            const std::uint64_t least = member.is_signed ? 0 - top : 0;
            const std::uint64_t most = member.is_signed ? top - 1 : top - 1 + top;
            for (const std::uint64_t value : {std::uint64_t{0}, std::uint64_t{1}, least, least + 1, most - 1, most}) {
                GuardedBuffer area(9);
                bitbuffer_t bb = {area.data(), 5, 72};
                ASSERT_EQ(member.set(&bb, n, value), 0);
                bb.bit_offset = 5;
                std::uint64_t back = kBefore;
                ASSERT_EQ(member.get(&bb, n, &back), 0);
                EXPECT_EQ(back, value) << n;
            }
        }
}

TEST_P(BitFields, LengthsOutOfRangeAreReportedByTheReader) {
    const BitMember& member = GetParam();
    // A signed reader hands the bits behind the sign to the unsigned reader of its width.
    const std::string magnitude_reader = "GetNextNBitsAsUint" + std::to_string(member.width);
    GuardedBuffer area(random_bytes(40));
    for (const int level : kLevels)
        for (const unsigned n : {0U, 1U, 2U, member.width, member.width + 1, member.width + 2, UINT_MAX}) {
            Texts expected;
            if (n > member.width) expected.push_back(member.reader());
            if (member.is_signed && n > member.width + 1) expected.push_back(magnitude_reader);
            test::reset(level);
            bitbuffer_t bb = {area.data(), 3, 320};
            std::uint64_t value = kBefore;
            const bool read = n >= member.least() && n <= member.width + (member.is_signed ? 1 : 0);
            EXPECT_EQ(member.get(&bb, n, &value), read ? 0 : -1) << n;
            EXPECT_EQ(bb.bit_offset, read ? 3 + n : 3U) << n;
            Texts functions;
            for (const test::Assertion& assertion : test::records().assertions) {
                functions.push_back(assertion.func);
                EXPECT_EQ(assertion.expression, member.range_assertion());
                EXPECT_EQ(assertion.file, "bitbuffer.c");
                EXPECT_GT(assertion.line, 0);
                EXPECT_FALSE(assertion.with_caller);
            }
            EXPECT_EQ(functions, expected) << n;
        }
}

TEST_P(BitFields, LengthsOutOfRangeAreReportedByTheWriterOnce) {
    const BitMember& member = GetParam();
    for (const int level : kLevels)
        for (const unsigned n : {0U, 1U, 2U, member.width, member.width + 1, member.width + 2, UINT_MAX}) {
            test::reset(level);
            GuardedBuffer area(40);
            bitbuffer_t bb = {area.data(), 3, 320};
            const bool written = n >= member.least() && n <= member.width;
            EXPECT_EQ(member.set(&bb, n, ULLONG_MAX), written ? 0 : -1) << n;
            EXPECT_EQ(bb.bit_offset, written ? 3 + n : 3U) << n;
            EXPECT_EQ(area.bytes() == Bytes(40), !written) << n;
            EXPECT_EQ(test::assertions(), n > member.width ? Texts{member.range_assertion()} : Texts{}) << n;
            for (const test::Assertion& assertion : test::records().assertions) {
                EXPECT_EQ(assertion.func, member.writer());
                EXPECT_EQ(assertion.file, "bitbuffer.c");
                EXPECT_FALSE(assertion.with_caller);
            }
        }
}

TEST_P(BitFields, NullBitBuffer) {
    const BitMember& member = GetParam();
    for (const int level : kLevels) {
        test::reset(level);
        std::uint64_t value = member.as_type(kBefore);
        EXPECT_EQ(member.get(nullptr, 4, &value), -1);
        EXPECT_EQ(value, member.as_type(kBefore));
        ASSERT_FALSE(test::records().assertions.empty());
        EXPECT_EQ(test::records().assertions[0].func, member.reader());
        for (const test::Assertion& assertion : test::records().assertions) {
            EXPECT_EQ(assertion.expression, "bb != NULL");
            EXPECT_EQ(assertion.file, "bitbuffer.c");
        }
        test::clear();
        EXPECT_EQ(member.get(nullptr, member.width + 1, nullptr), -1);
        ASSERT_GE(test::records().assertions.size(), 2U);
        EXPECT_EQ(test::records().assertions[0].expression, "bb != NULL");
        EXPECT_EQ(test::records().assertions[1].expression, member.range_assertion());
        EXPECT_EQ(test::records().assertions[1].func, member.reader());

        test::clear();
        EXPECT_EQ(member.set(nullptr, 4, 1), -1);
        ASSERT_FALSE(test::records().assertions.empty());
        EXPECT_EQ(test::records().assertions[0].func, member.writer());
        for (const test::Assertion& assertion : test::records().assertions)
            EXPECT_EQ(assertion.expression, "bb != NULL");
        test::clear();
        EXPECT_EQ(member.set(nullptr, member.width + 1, 1), -1);
        EXPECT_EQ(test::assertions(), (Texts{"bb != NULL", member.range_assertion()}));
    }
}

// Texts of level 7 without the address of the reader's own scratch area.
Texts traces() {
    Texts texts = test::texts_with_function(7);
    for (std::string& text : texts) text.resize(std::min(text.size(), text.find("OutAddr:")));
    return texts;
}

TEST_P(BitFields, TraceTheStringTheyReadOrWrite) {
    const BitMember& member = GetParam();
    for (unsigned offset = 0; offset < 16; ++offset)
        for (unsigned n = member.least(); n <= member.width && offset + n <= 72; ++n) {
            GuardedBuffer area(random_bytes(9));
            const unsigned sign = member.is_signed ? 1 : 0;  // read by itself, without a trace
            unsigned char string[8] = {};
            test::reset(8);
            bitbuffer_t bb = {area.data(), offset + sign, 72};
            ASSERT_EQ(GetNextNBitsAsStringEx(&bb, n - sign, string, 8), 0);
            const Texts read = traces();
            for (const bool with_destination : {true, false}) {
                std::uint64_t value = 0;
                test::reset(8);
                bb.bit_offset = offset;
                ASSERT_EQ(member.get(&bb, n, with_destination ? &value : nullptr), 0);
                ASSERT_EQ(traces(), read) << offset << ", " << n;
                ASSERT_EQ(test::records().messages.size(), read.size());
            }

            const Bytes before = area.bytes();
            const std::uint64_t value = random_numbers()();
            const Bytes in = test::BitWriter().u(n, value).u(72 - n, 0).bytes();
            test::reset(8);
            bb.bit_offset = offset;
            ASSERT_EQ(SetNextNBitsFromString(&bb, n, in.data()), 0);
            const Texts written = traces();
            std::copy(before.begin(), before.end(), area.data());
            test::reset(8);
            bb.bit_offset = offset;
            ASSERT_EQ(member.set(&bb, n, value), 0);
            ASSERT_EQ(traces(), written) << offset << ", " << n;
            ASSERT_EQ(test::records().messages.size(), written.size());
            ASSERT_TRUE(test::records().dumps.empty());
        }
}

TEST(BitFieldValues, SignedThreeBits) {
    test::reset(8);
    GuardedBuffer area(Bytes{0xC0});
    bitbuffer_t bb = {area.data(), 0, 8};
    char value = 77;
    EXPECT_EQ(GetNextNBitsAsInt8(&bb, 3, &value), 0);
    EXPECT_EQ(value, -2);
    EXPECT_EQ(bb.bit_offset, 3U);
    bb.bit_offset = 0;
    value = 77;
    EXPECT_EQ(GetNextNBitsAsInt8(&bb, 1, &value), -1);
    EXPECT_EQ(value, 77);
    EXPECT_EQ(bb.bit_offset, 0U);
}

TEST(BitFieldValues, HighBitsOfAWrittenValueAreDropped) {
    test::reset(8);
    GuardedBuffer area(1);
    bitbuffer_t bb = {area.data(), 0, 8};
    EXPECT_EQ(SetNextNBitsFromUint8(&bb, 3, 0x0F), 0);
    EXPECT_EQ(area[0], 0xE0);
    EXPECT_TRUE(test::records().assertions.empty());
    EXPECT_TRUE(test::texts(3).empty());
}

TEST(BitFieldValues, SignedReadThatFailsBehindTheSignMovesNothing) {
    for (const int level : kLevels) {
        test::reset(level);
        GuardedBuffer area(Bytes{0xFF});
        bitbuffer_t bb = {area.data(), 6, 8};
        short value = 77;
        EXPECT_EQ(GetNextNBitsAsInt16(&bb, 3, &value), -1);
        EXPECT_EQ(value, 77);
        EXPECT_EQ(bb.bit_offset, 6U);
        EXPECT_TRUE(test::texts(3).empty());
    }
}

TEST(BitFieldValues, Signed32BitsFillTheWholeLong) {
    for (const int level : kLevels) {
        test::reset(level);
        GuardedBuffer area(Bytes{0x80, 0, 0, 0, 0, 0, 0, 0, 0});
        bitbuffer_t bb = {area.data(), 0, 72};
        long value = 77;
        EXPECT_EQ(GetNextNBitsAsInt32(&bb, 32, &value), 0);
        EXPECT_EQ(value, -2147483648L);
        bb.bit_offset = 0;  // a sign and a magnitude of 32 bits
        EXPECT_EQ(GetNextNBitsAsInt32(&bb, 33, &value), 0);
        EXPECT_EQ(value, -4294967296L);
        EXPECT_EQ(bb.bit_offset, 33U);
        unsigned long number = ULONG_MAX;
        bb.bit_offset = 0;
        EXPECT_EQ(GetNextNBitsAsUint32(&bb, 32, &number), 0);
        EXPECT_EQ(number, 0x80000000UL);
    }
}

}  // namespace
