// Exp-Golomb writers: codes, positions and memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "bit_model.h"
#include "bitbuffer.h"
#include "diagnostics.h"
#include "guarded_buffer.h"

namespace {

using test::BitModel;
using test::Bytes;
using test::GuardedBuffer;

// Without traces, with those of each byte, and with those of each code.
class GolombWrite : public testing::TestWithParam<int> {
protected:
    void SetUp() override { test::reset(GetParam()); }
    void TearDown() override { EXPECT_TRUE(test::texts(3).empty()); }
};
INSTANTIATE_TEST_SUITE_P(Levels, GolombWrite, testing::Values(0, 7, 8));

bitbuffer_t over(GuardedBuffer& area, unsigned num_bits, unsigned offset = 0) {
    return {area.data(), offset, num_bits};
}

// Writes and compares area and position with the model. The area ends at unreadable memory.
template <typename Write, typename Model>
void check_write(unsigned num_bits, unsigned offset, const Write& write, const Model& expected) {
    static GuardedBuffer memory(32);
    const Bytes before((num_bits + 7) / 8, 0xA7);
    unsigned char* const area = memory.data() + memory.size() - before.size();
    std::copy(before.begin(), before.end(), area);
    BitModel model(before, num_bits);
    model.offset = offset;
    bitbuffer_t bb = {area, offset, num_bits};
    ASSERT_EQ(write(&bb), expected(model));
    ASSERT_EQ(Bytes(area, area + before.size()), model.bytes);
    ASSERT_EQ(bb.bit_offset, model.offset);
    test::clear();
}

// The edges of each number of leading zeros, and some between.
std::vector<std::uint64_t> values_with(unsigned zeros) {
    const std::uint64_t first = (std::uint64_t{1} << zeros) - 1;
    return {first, first + (first + 1) / 2, first + 0x9E3779B97F4A7C15U % (first + 1), first + first};
}

TEST_P(GolombWrite, Unsigned32AtEveryAlignmentAndEveryCut) {
    for (unsigned zeros = 0; zeros < 32; ++zeros)
        for (const std::uint64_t value : values_with(zeros))
            for (unsigned offset = 0; offset < 8; ++offset)
                for (unsigned room = offset == 0 ? 1 : 0; room <= 2 * zeros + 9; ++room)
                    ASSERT_NO_FATAL_FAILURE(check_write(
                        offset + room, offset, [&](bitbuffer_t* bb) { return SetUint32Golomb(bb, value); },
                        [&](BitModel& model) { return model.set_golomb32(value); }))
                        << value << ", offset " << offset << ", room " << room;
}

TEST_P(GolombWrite, Unsigned64AtEveryAlignmentAndEveryCut) {
    for (unsigned zeros = 0; zeros < 64; ++zeros)
        for (const std::uint64_t value : values_with(zeros))
            for (unsigned offset = 0; offset < 8; ++offset)
                for (unsigned room = offset == 0 ? 1 : 0; room <= 2 * zeros + 9; room += 1 + room / 20)
                    ASSERT_NO_FATAL_FAILURE(check_write(
                        offset + room, offset, [&](bitbuffer_t* bb) { return SetUint64Golomb(bb, value); },
                        [&](BitModel& model) { return model.set_golomb64(value); }))
                        << value << ", offset " << offset << ", room " << room;
}

TEST_P(GolombWrite, SignedIsTheUnsignedCodeOfItsNumber) {
    for (unsigned zeros = 0; zeros < 63; ++zeros)
        for (const std::uint64_t magnitude : values_with(zeros))
            for (const bool negative : {false, true}) {
                const auto value = static_cast<std::int64_t>(negative ? 0 - magnitude : magnitude);
                const std::uint64_t code = BitModel::signed_code(value);
                for (const unsigned room : {1U, zeros + 1, zeros + 2, 2 * zeros, 2 * zeros + 1, 2 * zeros + 3, 140U}) {
                    if (magnitude < 0x80000000) {
                        ASSERT_NO_FATAL_FAILURE(check_write(
                            5 + room, 5, [&](bitbuffer_t* bb) { return SetInt32Golomb(bb, value); },
                            [&](BitModel& model) { return model.set_golomb32(code); }))
                            << value << ", room " << room;
                    }
                    ASSERT_NO_FATAL_FAILURE(check_write(
                        5 + room, 5, [&](bitbuffer_t* bb) { return SetInt64Golomb(bb, value); },
                        [&](BitModel& model) { return model.set_golomb64(code); }))
                        << value << ", room " << room;
                }
            }
}

// The bits written into 17 bytes of zeros, as text; the rest stays zero.
template <typename Write>
std::string written(const Write& write) {
    GuardedBuffer area(17);
    bitbuffer_t bb = over(area, 136);
    EXPECT_EQ(write(&bb), 0);
    const BitModel model(area.bytes(), 136);
    std::string bits;
    for (unsigned k = 0; k < bb.bit_offset; ++k) bits += model.bit(k) != 0 ? '1' : '0';
    for (unsigned k = bb.bit_offset; k < 136; ++k) EXPECT_EQ(model.bit(k), 0U);
    return bits;
}

TEST_P(GolombWrite, WorkedValues) {
    EXPECT_EQ(written([](bitbuffer_t* bb) { return SetUint32Golomb(bb, 0); }), "1");
    EXPECT_EQ(written([](bitbuffer_t* bb) { return SetUint64Golomb(bb, 0); }), "1");
    EXPECT_EQ(written([](bitbuffer_t* bb) { return SetInt32Golomb(bb, 0); }), "1");
    EXPECT_EQ(written([](bitbuffer_t* bb) { return SetInt64Golomb(bb, 0); }), "1");
    EXPECT_EQ(written([](bitbuffer_t* bb) { return SetUint32Golomb(bb, 3); }), "00100");
    EXPECT_EQ(written([](bitbuffer_t* bb) { return SetUint64Golomb(bb, 3); }), "00100");
    EXPECT_EQ(written([](bitbuffer_t* bb) { return SetInt32Golomb(bb, -2); }), "00101");
    EXPECT_EQ(written([](bitbuffer_t* bb) { return SetInt64Golomb(bb, -2); }), "00101");
    EXPECT_EQ(written([](bitbuffer_t* bb) { return SetInt32Golomb(bb, 1); }), "010");
    EXPECT_EQ(written([](bitbuffer_t* bb) { return SetInt32Golomb(bb, -1); }), "011");
}

TEST_P(GolombWrite, SuffixOf64BitCodesFrom2To32Minus1OnIsNotTheStandards) {
    const std::string zeros31(31, '0'), zeros32(32, '0'), zeros33(33, '0'), zeros63(63, '0');
    const auto code = [](unsigned long long value) {
        return written([&](bitbuffer_t* bb) { return SetUint64Golomb(bb, value); });
    };
    EXPECT_EQ(code(0xFFFFFFFE), zeros31 + "1" + std::string(31, '1'));
    // v = 2^32, z = 32: 1 is taken from v.
    EXPECT_EQ(code(0xFFFFFFFF), zeros32 + "1" + std::string(32, '1'));
    EXPECT_EQ(code(0x100000000), zeros32 + "1" + zeros32);
    EXPECT_EQ(code(0x100000004), zeros32 + "1" + std::string(29, '0') + "100");
    // v = 2^33, z = 33: 2 is taken from v.
    EXPECT_EQ(code(0x1FFFFFFFF), zeros33 + "1" + std::string(32, '1') + "0");
    // v = 2^63, z = 63: 2^31 is added to v.
    EXPECT_EQ(code(0x7FFFFFFFFFFFFFFF), zeros63 + "1" + std::string(31, '0') + "1" + zeros31);
}

TEST_P(GolombWrite, CodeThatDoesNotFit) {
    // 3 is 0 0 1 and 0 0: neither fits into 2 bits, the first part only into 3 and 4.
    for (unsigned room = 1; room <= 4; ++room) {
        GuardedBuffer area(Bytes{0xFF});
        bitbuffer_t bb = over(area, room);
        EXPECT_EQ(SetUint32Golomb(&bb, 3), -1);
        EXPECT_EQ(area[0], room < 3 ? 0xFF : 0x3F);
        EXPECT_EQ(bb.bit_offset, room < 3 ? 0U : 3U);
    }
    GuardedBuffer area(Bytes{0x00});
    for (const long value : {0L, 1L, -1L}) {
        bitbuffer_t full = over(area, 8, 8);
        EXPECT_EQ(SetInt32Golomb(&full, value), -1);
        EXPECT_EQ(SetInt64Golomb(&full, value), -1);
        EXPECT_EQ(full.bit_offset, 8U);
    }
    EXPECT_EQ(area[0], 0);
}

TEST_P(GolombWrite, Unsigned32CodesModulo2To32) {
    for (const unsigned long low : {0UL, 1UL, 2UL, 1000UL, 0xFFFFFFFEUL})
        for (const unsigned long high : {1UL << 32, 1UL << 63, 0xFFFFFFFFUL << 32})
            EXPECT_EQ(written([&](bitbuffer_t* bb) { return SetUint32Golomb(bb, high | low); }),
                      written([&](bitbuffer_t* bb) { return SetUint32Golomb(bb, low); }))
                << high << " + " << low;
}

TEST_P(GolombWrite, ValuesOutsideTheContractStayInsideTheBuffer) {
    for (const unsigned num_bits : {1U, 9U, 63U, 136U}) {
        const Bytes before((num_bits + 7) / 8, 0xA7);
        const auto stays_inside = [&](const auto& write) {
            GuardedBuffer area(before);
            bitbuffer_t bb = over(area, num_bits);
            const int result = write(&bb);
            EXPECT_TRUE(result == 0 || result == -1) << result;
            EXPECT_LE(bb.bit_offset, num_bits);
            const BitModel after(area.bytes(), num_bits), untouched(before, num_bits);
            for (unsigned k = bb.bit_offset; k < 8 * before.size(); ++k) EXPECT_EQ(after.bit(k), untouched.bit(k));
        };
        for (const unsigned long value : {0xFFFFFFFFUL, 0x1FFFFFFFFUL, ULONG_MAX})
            stays_inside([&](bitbuffer_t* bb) { return SetUint32Golomb(bb, value); });
        for (const long value : {-2147483648L, 2147483648L, 1L << 40, -(1L << 40), LONG_MAX, LONG_MIN})
            stays_inside([&](bitbuffer_t* bb) { return SetInt32Golomb(bb, value); });
        stays_inside([&](bitbuffer_t* bb) { return SetUint64Golomb(bb, ULLONG_MAX); });
        for (const long long value : {LLONG_MAX, LLONG_MIN})
            stays_inside([&](bitbuffer_t* bb) { return SetInt64Golomb(bb, value); });
    }
}

}  // namespace
