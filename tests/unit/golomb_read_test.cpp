// Exp-Golomb readers: values, positions and memory.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <ostream>
#include <random>

#include "bit_model.h"
#include "bitbuffer.h"
#include "diagnostics.h"
#include "guarded_buffer.h"

namespace {

using test::BitModel;
using test::BitWriter;
using test::Bytes;
using test::Guard;
using test::GuardedBuffer;

// Without traces, with those of each byte, and with those of each code.
class Golomb : public testing::TestWithParam<int> {
protected:
    void SetUp() override { test::reset(GetParam()); }
    void TearDown() override { EXPECT_TRUE(test::texts(3).empty()); }
};
using GolombRead = Golomb;
using GolombSkip = Golomb;
INSTANTIATE_TEST_SUITE_P(Levels, GolombRead, testing::Values(0, 7, 8));
INSTANTIATE_TEST_SUITE_P(Levels, GolombSkip, testing::Values(0, 7, 8));

constexpr std::uint64_t kUnset = 0x5A5A5A5A5A5A5A5A;

bitbuffer_t over(GuardedBuffer& area, unsigned num_bits, unsigned offset = 0) {
    return {area.data(), offset, num_bits};
}

struct Read {
    int result;
    std::uint64_t value;
    unsigned offset;
    bool operator==(const Read&) const = default;
};
void PrintTo(const Read& read, std::ostream* out) {
    *out << "result " << read.result << ", value " << read.value << ", offset " << read.offset;
}

template <typename Type, typename Function>
Read read_with(Function function, bitbuffer_t bb) {
    bitbuffer_t silent = bb;
    auto value = static_cast<Type>(kUnset);
    const int result = function(&bb, &value);
    EXPECT_EQ(function(&silent, nullptr), result);
    EXPECT_EQ(silent.bit_offset, bb.bit_offset);
    return {result, static_cast<std::uint64_t>(value), bb.bit_offset};
}

Read expected_unsigned(BitModel model, unsigned max_zeros) {
    std::uint64_t value = kUnset;
    const int result = model.get_golomb(max_zeros, &value);
    return {result, value, model.offset};
}
Read expected_signed(BitModel model, unsigned max_zeros) {
    auto value = static_cast<std::int64_t>(kUnset);
    const int result = model.get_signed_golomb(max_zeros, &value);
    return {result, static_cast<std::uint64_t>(value), model.offset};
}

// All five readers at one place.
void check_readers(GuardedBuffer& area, unsigned num_bits, unsigned offset) {
    BitModel model(area.bytes(), num_bits);
    model.offset = offset;
    const bitbuffer_t bb = over(area, num_bits, offset);
    EXPECT_EQ(read_with<unsigned long>(GetUint32Golomb, bb), expected_unsigned(model, 31));
    EXPECT_EQ(read_with<unsigned long long>(GetUint64Golomb, bb), expected_unsigned(model, 63));
    EXPECT_EQ(read_with<long>(GetInt32Golomb, bb), expected_signed(model, 31));
    EXPECT_EQ(read_with<long long>(GetInt64Golomb, bb), expected_signed(model, 63));
    int expected_length = -5, length = -5;
    const int result = model.skip_golomb(&expected_length);
    bitbuffer_t skipped = bb;
    EXPECT_EQ(SkipGolomb(&skipped, &length), result);
    EXPECT_EQ(length, expected_length);
    EXPECT_EQ(skipped.bit_offset, model.offset);
    skipped = bb;
    EXPECT_EQ(SkipGolomb(&skipped, nullptr), result);
    EXPECT_EQ(skipped.bit_offset, model.offset);
    test::clear();
}

TEST_P(GolombRead, SmallestCodes) {
    // 1, 0 1 0, 0 1 1, 0 0 1 0 0
    GuardedBuffer area(BitWriter().u(1, 1).u(3, 2).u(3, 3).u(5, 4).bytes());
    bitbuffer_t bb = over(area, 12);
    for (unsigned long expected = 0; expected < 4; ++expected) {
        unsigned long value = 77;
        EXPECT_EQ(GetUint32Golomb(&bb, &value), 0);
        EXPECT_EQ(value, expected);
    }
    bb.bit_offset = 0;
    for (unsigned long long expected = 0; expected < 4; ++expected) {
        unsigned long long value = 77;
        EXPECT_EQ(GetUint64Golomb(&bb, &value), 0);
        EXPECT_EQ(value, expected);
    }
    bb.bit_offset = 0;
    for (const long expected : {0L, 1L, -1L, 2L}) {
        long value = 77;
        EXPECT_EQ(GetInt32Golomb(&bb, &value), 0);
        EXPECT_EQ(value, expected);
    }
    bb.bit_offset = 0;
    for (const long long expected : {0LL, 1LL, -1LL, 2LL}) {
        long long value = 77;
        EXPECT_EQ(GetInt64Golomb(&bb, &value), 0);
        EXPECT_EQ(value, expected);
    }
    EXPECT_EQ(bb.bit_offset, 12U);
}

TEST_P(GolombRead, EveryNumberOfLeadingZerosAtEveryAlignmentAndEveryCut) {
    for (unsigned zeros = 0; zeros <= 70; ++zeros)
        for (const std::uint64_t suffix : {std::uint64_t{0}, ~std::uint64_t{0}, 0x9E3779B97F4A7C15U})
            for (unsigned offset = 0; offset < 8; ++offset) {
                const BitWriter code = BitWriter().u(offset, 0xFF).u(zeros, 0).u(1, 1).u(zeros, suffix);
                GuardedBuffer area(code.bytes());
                const auto bits = static_cast<unsigned>(code.bits());
                check_readers(area, bits, offset);
                check_readers(area, static_cast<unsigned>(8 * area.size()), offset);
                // Ends before the suffix does, before it begins, and inside the zeros.
                for (const unsigned cut : {1U, zeros, zeros + 1, zeros + 2, 2 * zeros + 1}) {
                    if (cut > 2 * zeros + 1) continue;
                    const unsigned num_bits = bits - cut;
                    if (num_bits == 0) continue;
                    GuardedBuffer less(Bytes(code.bytes().begin(), code.bytes().begin() + (num_bits + 7) / 8));
                    check_readers(less, num_bits, offset);
                }
                ASSERT_FALSE(HasFailure()) << "zeros " << zeros << ", offset " << offset;
            }
}

TEST_P(GolombRead, RandomBitsFromEveryPosition) {
    std::mt19937_64 random(3);
    for (int round = 0; round < 60; ++round) {
        Bytes content(1 + random() % 24);
        // Few ones, so that codes are long.
        for (unsigned char& byte : content)
            byte = static_cast<unsigned char>(random() % 3 == 0 ? 1U << random() % 8 : 0U);
        GuardedBuffer area(content, round % 2 == 0 ? Guard::kBehind : Guard::kBefore);
        const auto num_bits = static_cast<unsigned>(8 * content.size() - random() % 8);
        for (unsigned offset = 0; offset <= num_bits + 40; ++offset) check_readers(area, num_bits, offset);
    }
}

TEST_P(GolombRead, LargestValues) {
    GuardedBuffer area(BitWriter().u(31, 0).u(32, 0xFFFFFFFF).u(31, 0).u(32, 0xFFFFFFFE).bytes());
    bitbuffer_t bb = over(area, 126);
    unsigned long value = 0;
    EXPECT_EQ(GetUint32Golomb(&bb, &value), 0);
    EXPECT_EQ(value, 4294967294UL);
    bb.bit_offset = 0;
    long number = 0;
    EXPECT_EQ(GetInt32Golomb(&bb, &number), 0);
    EXPECT_EQ(number, -2147483647L);
    EXPECT_EQ(GetInt32Golomb(&bb, &number), 0);
    EXPECT_EQ(number, 2147483647L);
    EXPECT_EQ(bb.bit_offset, 126U);

    GuardedBuffer area64(BitWriter().u(63, 0).u(64, ULLONG_MAX).u(63, 0).u(64, ULLONG_MAX - 1).bytes());
    bb = over(area64, 254);
    unsigned long long value64 = 0;
    EXPECT_EQ(GetUint64Golomb(&bb, &value64), 0);
    EXPECT_EQ(value64, ULLONG_MAX - 1);
    bb.bit_offset = 0;
    long long number64 = 0;
    EXPECT_EQ(GetInt64Golomb(&bb, &number64), 0);
    EXPECT_EQ(number64, -LLONG_MAX);
    EXPECT_EQ(GetInt64Golomb(&bb, &number64), 0);
    EXPECT_EQ(number64, LLONG_MAX);
    EXPECT_EQ(bb.bit_offset, 254U);
}

TEST_P(GolombRead, TooManyZerosFailBehindTheOne) {
    GuardedBuffer area(BitWriter().u(32, 0).u(1, 1).u(32, 5).bytes());
    const bitbuffer_t bb = over(area, 65);
    EXPECT_EQ(read_with<unsigned long>(GetUint32Golomb, bb), (Read{-1, kUnset, 33}));
    EXPECT_EQ(read_with<long>(GetInt32Golomb, bb), (Read{-1, kUnset, 33}));
    EXPECT_EQ(read_with<unsigned long long>(GetUint64Golomb, bb), (Read{0, 0xFFFFFFFFU + 5ULL, 65}));

    GuardedBuffer more(BitWriter().u(64, 0).u(1, 1).u(64, 5).bytes());
    const bitbuffer_t bb64 = over(more, 129);
    EXPECT_EQ(read_with<unsigned long long>(GetUint64Golomb, bb64), (Read{-1, kUnset, 65}));
    EXPECT_EQ(read_with<long long>(GetInt64Golomb, bb64), (Read{-1, kUnset, 65}));
}

TEST_P(GolombRead, AllZerosFailAtTheEndOfTheBuffer) {
    for (const unsigned num_bits : {1U, 8U, 30U, 64U, 65U, 200U}) {
        GuardedBuffer area((num_bits + 7) / 8);
        const bitbuffer_t bb = over(area, num_bits);
        EXPECT_EQ(read_with<unsigned long>(GetUint32Golomb, bb), (Read{-1, kUnset, num_bits}));
        EXPECT_EQ(read_with<unsigned long long>(GetUint64Golomb, bb), (Read{-1, kUnset, num_bits}));
        EXPECT_EQ(read_with<long>(GetInt32Golomb, bb), (Read{-1, kUnset, num_bits}));
        EXPECT_EQ(read_with<long long>(GetInt64Golomb, bb), (Read{-1, kUnset, num_bits}));
        bitbuffer_t skipped = bb;
        int length = 77;
        EXPECT_EQ(SkipGolomb(&skipped, &length), -1);
        EXPECT_EQ(length, 77);
        EXPECT_EQ(skipped.bit_offset, num_bits);
    }
}

TEST_P(GolombSkip, StoresTheLengthOfTheCode) {
    GuardedBuffer area(Bytes{0x30});
    bitbuffer_t bb = over(area, 8);
    int length = 0;
    EXPECT_EQ(SkipGolomb(&bb, &length), 0);
    EXPECT_EQ(length, 5);
    EXPECT_EQ(bb.bit_offset, 5U);
}

TEST_P(GolombSkip, CutSuffixMovesBehindTheEndAndTheNextAccessFails) {
    GuardedBuffer area(Bytes{0x20});
    bitbuffer_t bb = over(area, 3);
    int length = 0;
    EXPECT_EQ(SkipGolomb(&bb, &length), 0);
    EXPECT_EQ(length, 5);
    EXPECT_EQ(bb.bit_offset, 5U);
    unsigned char out[8] = {};
    unsigned long long value = 7;
    EXPECT_EQ(GetNextBitEx(&bb, nullptr), -1);
    EXPECT_EQ(DoSetNextBit(&bb, 1), -1);
    EXPECT_EQ(GetNextNBitsAsStringEx(&bb, 0, out, 8), -1);
    EXPECT_EQ(SetNextNBitsFromString(&bb, 1, out), -1);
    EXPECT_EQ(GetNextNBitsAsUint64(&bb, 1, &value), -1);
    EXPECT_EQ(SetNextNBitsFromUint64(&bb, 1, 1), -1);
    EXPECT_EQ(GetUint64Golomb(&bb, &value), -1);
    EXPECT_EQ(SkipGolomb(&bb, &length), -1);
    EXPECT_EQ(SetUint32Golomb(&bb, 0), -1);
    EXPECT_EQ(SetUint64Golomb(&bb, 9), -1);
    EXPECT_EQ(value, 7U);
    EXPECT_EQ(length, 5);
    EXPECT_EQ(bb.bit_offset, 5U);
    EXPECT_EQ(area[0], 0x20);
}

}  // namespace
