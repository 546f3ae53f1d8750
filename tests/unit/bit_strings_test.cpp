// Bit strings: results, positions and memory, without traces and with them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bit_model.h"
#include "bitbuffer.h"
#include "diagnostics.h"
#include "guarded_buffer.h"

namespace {

using test::BitModel;
using test::Bytes;
using test::Guard;
using test::GuardedBuffer;
using Texts = std::vector<std::string>;

constexpr int kLevels[] = {0, 7};  // without and with the traces of each byte
constexpr std::size_t kSpare = 3;

Bytes random_bytes(std::size_t size) {
    static std::mt19937 random(1);
    Bytes bytes(size);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
    return bytes;
}

std::string place(unsigned num_bits, unsigned offset, unsigned n) {
    return "num_bits " + std::to_string(num_bits) + ", offset " + std::to_string(offset) + ", n " + std::to_string(n);
}

// An out or in of any size up to 16 bytes that ends at unreadable memory.
class EndingAtGuard {
public:
    unsigned char* with_size(std::size_t size) { return memory_.data() + memory_.size() - size; }

private:
    GuardedBuffer memory_{16};
};

void expect_silence() {
    EXPECT_TRUE(test::texts(3).empty());
    EXPECT_TRUE(test::records().assertions.empty());
}

void check_read(GuardedBuffer& area, unsigned num_bits, unsigned offset, unsigned n, std::size_t spare) {
    static EndingAtGuard outs;
    Bytes expected((n + 7) / 8 + spare, 0xCD);
    unsigned char* out = outs.with_size(expected.size());
    std::memset(out, 0xCD, expected.size());
    BitModel model(area.bytes(), num_bits);
    model.offset = offset;
    const int result = model.get_string(n, &expected);

    test::clear();
    bitbuffer_t bb = {area.data(), offset, num_bits};
    ASSERT_EQ(GetNextNBitsAsStringEx(&bb, n, out, static_cast<unsigned>(expected.size())), result);
    ASSERT_EQ(Bytes(out, out + expected.size()), expected);
    ASSERT_EQ(bb.bit_offset, model.offset);
    bb.bit_offset = offset;
    ASSERT_EQ(GetNextNBitsAsStringEx(&bb, n, nullptr, static_cast<unsigned>(expected.size())), result);
    ASSERT_EQ(bb.bit_offset, model.offset);
    ASSERT_EQ(area.bytes(), model.bytes);
    expect_silence();
}

void check_write(GuardedBuffer& area, unsigned num_bits, unsigned offset, unsigned n) {
    static EndingAtGuard ins;
    const Bytes before = area.bytes();
    const Bytes string = random_bytes((n + 7) / 8);
    unsigned char* in = ins.with_size(string.size());
    std::copy(string.begin(), string.end(), in);
    BitModel model(before, num_bits);
    model.offset = offset;
    const int result = model.set_string(n, &string);

    test::clear();
    bitbuffer_t bb = {area.data(), offset, num_bits};
    ASSERT_EQ(SetNextNBitsFromString(&bb, n, in), result);
    ASSERT_EQ(area.bytes(), model.bytes);
    ASSERT_EQ(bb.bit_offset, model.offset);
    expect_silence();
}

template <typename Check>
void at_every_place(const Check& check) {
    for (const int level : kLevels)
        for (const Guard guard : {Guard::kBehind, Guard::kBefore})
            for (unsigned num_bits = 1; num_bits <= 88; num_bits += num_bits == 26 ? 55 : 1) {
                test::reset(level);
                GuardedBuffer area(random_bytes((num_bits + 7) / 8), guard);
                for (unsigned offset = 0; offset <= num_bits + 9; ++offset)
                    for (unsigned n = 0; n <= (offset < num_bits ? num_bits - offset : 0) + 9; ++n) {
                        check(area, num_bits, offset, n);
                        if (testing::Test::HasFailure()) FAIL() << place(num_bits, offset, n) << ", level " << level;
                    }
            }
}

TEST(BitStringRead, EveryPlaceAndLength) {
    at_every_place([](GuardedBuffer& area, unsigned num_bits, unsigned offset, unsigned n) {
        check_read(area, num_bits, offset, n, 0);
        check_read(area, num_bits, offset, n, kSpare);
    });
}

TEST(BitStringWrite, EveryPlaceAndLength) { at_every_place(check_write); }

TEST(BitStringRead, FourBitsAcrossABoundary) {
    test::reset(8);
    GuardedBuffer area(Bytes{0x03, 0xC0});
    bitbuffer_t bb = {area.data(), 6, 16};
    unsigned char out = 0x11;
    EXPECT_EQ(GetNextNBitsAsStringEx(&bb, 4, &out, 1), 0);
    EXPECT_EQ(out, 0xF0);
    EXPECT_EQ(bb.bit_offset, 10U);
    bb.bit_offset = 6;
    unsigned char value = 0;
    EXPECT_EQ(GetNextNBitsAsUint8(&bb, 4, &value), 0);
    EXPECT_EQ(value, 15);
}

TEST(BitStringRead, NothingSucceedsAndChangesNothing) {
    for (const int level : kLevels) {
        test::reset(level);
        GuardedBuffer area(Bytes{0xFF, 0xFF});
        GuardedBuffer empty(0);
        for (unsigned offset = 0; offset <= 16; ++offset) {
            bitbuffer_t bb = {area.data(), offset, 16};
            EXPECT_EQ(GetNextNBitsAsStringEx(&bb, 0, empty.data(), 0), 0);
            EXPECT_EQ(GetNextNBitsAsStringEx(&bb, 0, nullptr, 0), 0);
            EXPECT_EQ(SetNextNBitsFromString(&bb, 0, empty.data()), 0);
            EXPECT_EQ(bb.bit_offset, offset);
        }
        EXPECT_EQ(area.bytes(), (Bytes{0xFF, 0xFF}));
        EXPECT_TRUE(test::records().assertions.empty());
    }
}

TEST(BitStringRead, TooSmallAnOutIsReportedAndFilledAsFarAsItGoes) {
    const Bytes content = {0x12, 0x34, 0x56, 0x78, 0x9A};
    for (const int level : kLevels)
        for (unsigned offset = 0; offset < 8; ++offset)
            for (unsigned n = 1; n <= 32; ++n)
                for (unsigned size = 0; size < (n + 7) / 8; ++size) {
                    test::reset(level);
                    GuardedBuffer area(content);
                    GuardedBuffer out(Bytes(size, 0xCD));
                    Bytes expected(size, 0xCD);
                    BitModel model(content, 40);
                    model.offset = offset;
                    EXPECT_EQ(model.get_string(n, &expected), 0);
                    bitbuffer_t bb = {area.data(), offset, 40};
                    EXPECT_EQ(GetNextNBitsAsStringEx(&bb, n, out.data(), size), 0);
                    ASSERT_EQ(out.bytes(), expected) << place(40, offset, n) << ", OutSizeBytes " << size;
                    EXPECT_EQ(bb.bit_offset, offset + n);
                    ASSERT_EQ(test::records().assertions.size(), 1U);
                    const test::Assertion& assertion = test::records().assertions[0];
                    EXPECT_EQ(assertion.expression, "OutSizeBytes >= (DIVIDE_AND_CEIL(n, NUM_BITS_IN_BYTE))");
                    EXPECT_EQ(assertion.func, "_GetNextNBitsAsString");
                    EXPECT_EQ(assertion.file, "bitbuffer.c");
                    EXPECT_FALSE(assertion.with_caller);
                }
}

TEST(BitStringRead, TooSmallAnOutIsReportedAlsoWithoutOutAndWithoutEnoughBits) {
    const std::string expression = "OutSizeBytes >= (DIVIDE_AND_CEIL(n, NUM_BITS_IN_BYTE))";
    for (const int level : kLevels) {
        test::reset(level);
        GuardedBuffer area(Bytes{0x12, 0x34});
        bitbuffer_t bb = {area.data(), 1, 16};
        EXPECT_EQ(GetNextNBitsAsStringEx(&bb, 9, nullptr, 1), 0);
        EXPECT_EQ(bb.bit_offset, 10U);
        unsigned char out[2] = {0xCD, 0xCD};
        EXPECT_EQ(GetNextNBitsAsStringEx(&bb, 9, out, 1), -1);
        EXPECT_EQ(bb.bit_offset, 10U);
        EXPECT_EQ(out[0], 0xCD);
        EXPECT_EQ(test::assertions(), (Texts{expression, expression}));
    }
}

TEST(BitStringRead, NullBitBuffer) {
    for (const int level : kLevels) {
        test::reset(level);
        unsigned char out = 0xCD;
        EXPECT_EQ(GetNextNBitsAsStringEx(nullptr, 8, &out, 1), -1);
        EXPECT_EQ(out, 0xCD);
        ASSERT_FALSE(test::records().assertions.empty());
        EXPECT_EQ(test::records().assertions[0].func, "_GetNextNBitsAsString");
        EXPECT_EQ(test::records().assertions[0].file, "bitbuffer.c");
        for (const std::string& expression : test::assertions()) EXPECT_EQ(expression, "bb != NULL");
        EXPECT_TRUE(test::records().messages.empty());
    }
}

TEST(BitStringWrite, ThreeBitsInTheMiddle) {
    test::reset(8);
    GuardedBuffer area(Bytes{0x00});
    bitbuffer_t bb = {area.data(), 2, 8};
    const unsigned char in = 0xA0;
    EXPECT_EQ(SetNextNBitsFromString(&bb, 3, &in), 0);
    EXPECT_EQ(area[0], 0x28);
    EXPECT_EQ(bb.bit_offset, 5U);
}

TEST(BitStringWrite, EightBitsAcrossABoundaryKeepTheBitsAround) {
    for (const int level : kLevels) {
        test::reset(level);
        const unsigned char in = 0x5A;  // 010 11010
        GuardedBuffer ones(Bytes{0xFF, 0xFF});
        bitbuffer_t bb = {ones.data(), 5, 16};
        EXPECT_EQ(SetNextNBitsFromString(&bb, 8, &in), 0);
        EXPECT_EQ(ones.bytes(), (Bytes{0xFA, 0xD7}));
        EXPECT_EQ(bb.bit_offset, 13U);
        GuardedBuffer zeros(2);
        bb = {zeros.data(), 5, 16};
        EXPECT_EQ(SetNextNBitsFromString(&bb, 8, &in), 0);
        EXPECT_EQ(zeros.bytes(), (Bytes{0x02, 0xD0}));
    }
}

TEST(BitStringWrite, NullInIsReportedAndPassesOverTheBits) {
    for (const int level : kLevels)
        for (unsigned offset = 0; offset < 8; ++offset) {
            test::reset(level);
            GuardedBuffer area(Bytes{0x12, 0x34, 0x56});
            bitbuffer_t bb = {area.data(), offset, 24};
            EXPECT_EQ(SetNextNBitsFromString(&bb, 16, nullptr), 0);
            EXPECT_EQ(bb.bit_offset, offset + 16);
            EXPECT_EQ(SetNextNBitsFromString(&bb, 9, nullptr), -1);
            EXPECT_EQ(bb.bit_offset, offset + 16);
            EXPECT_EQ(area.bytes(), (Bytes{0x12, 0x34, 0x56}));
            EXPECT_EQ(test::assertions(), (Texts{"in != NULL", "in != NULL"}));
            EXPECT_EQ(test::records().assertions[0].func, "SetNextNBitsFromString");
            EXPECT_EQ(test::records().assertions[0].file, "bitbuffer.c");
            EXPECT_TRUE(level >= 7 || test::records().messages.empty());
        }
}

TEST(BitStringWrite, NullBitBuffer) {
    for (const int level : kLevels) {
        test::reset(level);
        const unsigned char in = 0x5A;
        EXPECT_EQ(SetNextNBitsFromString(nullptr, 8, &in), -1);
        ASSERT_FALSE(test::records().assertions.empty());
        EXPECT_EQ(test::records().assertions[0].expression, "bb != NULL");
        EXPECT_EQ(test::records().assertions[0].func, "SetNextNBitsFromString");
        test::reset(level);
        EXPECT_EQ(SetNextNBitsFromString(nullptr, 8, nullptr), -1);
        ASSERT_GE(test::records().assertions.size(), 2U);
        EXPECT_EQ(test::records().assertions[0].expression, "bb != NULL");
        EXPECT_EQ(test::records().assertions[1].expression, "in != NULL");
        EXPECT_EQ(test::records().assertions[1].func, "SetNextNBitsFromString");
    }
}

}  // namespace
