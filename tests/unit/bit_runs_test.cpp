// Runs of equal bits.
#include <gtest/gtest.h>

#include <climits>
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

constexpr int kLevels[] = {0, 7};

std::string place(unsigned num_bits, unsigned offset, unsigned end) {
    return "num_bits " + std::to_string(num_bits) + ", offset " + std::to_string(offset) + ", end " +
           std::to_string(end);
}

TEST(BitRuns, WorkedValues) {
    GuardedBuffer area(Bytes{0x10});
    for (const int level : kLevels) {
        test::reset(level);
        unsigned run = 77;
        bitbuffer_t bb = {area.data(), 0, 8};
        EXPECT_EQ(CountConsecutiveBits(&bb, 0, &run), 0);
        EXPECT_EQ(run, 3U);
        EXPECT_EQ(bb.bit_offset, 4U);
        EXPECT_EQ(CountConsecutiveBits(&bb, 0, &run), -1);
        EXPECT_EQ(run, 4U);
        EXPECT_EQ(bb.bit_offset, 8U);
        EXPECT_EQ(CountConsecutiveBits(&bb, 0, &run), -1);
        EXPECT_EQ(run, 0U);
        EXPECT_EQ(bb.bit_offset, 8U);
        EXPECT_TRUE(test::records().messages.empty());
        EXPECT_TRUE(test::records().assertions.empty());
    }
}

TEST(BitRuns, EveryPlaceAndLength) {
    for (const int level : kLevels)
        for (const Guard guard : {Guard::kBehind, Guard::kBefore})
            for (const unsigned test_value : {0U, 1U})
                for (const unsigned num_bits : {1U, 7U, 8U, 64U, 65U, 130U, 200U})
                    for (unsigned end = 0; end <= num_bits; ++end) {
                        test::reset(level);
                        // All bits are test_value but the one at end, and those behind num_bits.
                        Bytes content((num_bits + 7) / 8, static_cast<unsigned char>(test_value != 0 ? 0xFF : 0));
                        for (unsigned k = end; k < 8 * content.size(); k = k < num_bits ? num_bits : k + 1)
                            content[k / 8] = static_cast<unsigned char>(content[k / 8] ^ 0x80U >> k % 8);
                        GuardedBuffer area(content, guard);
                        for (unsigned offset = 0; offset <= num_bits + 2; ++offset) {
                            BitModel model(content, num_bits);
                            model.offset = offset;
                            unsigned expected = 77, run = 78;
                            const int result = model.count(test_value, &expected);
                            bitbuffer_t bb = {area.data(), offset, num_bits};
                            ASSERT_EQ(CountConsecutiveBits(&bb, test_value, &run), result)
                                << place(num_bits, offset, end);
                            ASSERT_EQ(run, expected) << place(num_bits, offset, end);
                            ASSERT_EQ(bb.bit_offset, model.offset);
                            bb.bit_offset = offset;
                            ASSERT_EQ(CountConsecutiveBits(&bb, test_value, nullptr), result);
                            ASSERT_EQ(bb.bit_offset, model.offset);
                        }
                        ASSERT_TRUE(test::records().messages.empty());
                    }
}

TEST(BitRuns, TestValueAbove1IsReportedAndMatchesNothing) {
    for (const int level : kLevels) {
        test::reset(level);
        GuardedBuffer area(Bytes{0x80});
        bitbuffer_t bb = {area.data(), 0, 8};
        unsigned run = 77;
        EXPECT_EQ(CountConsecutiveBits(&bb, 2, &run), 0);
        EXPECT_EQ(run, 0U);
        EXPECT_EQ(bb.bit_offset, 1U);
        bb.bit_offset = 8;
        run = 77;
        EXPECT_EQ(CountConsecutiveBits(&bb, UINT_MAX, &run), -1);
        EXPECT_EQ(run, 0U);
        EXPECT_EQ(bb.bit_offset, 8U);
        EXPECT_EQ(test::assertions(), (Texts{"test_value < 2", "test_value < 2"}));
        EXPECT_EQ(test::records().assertions[0].func, "CountConsecutiveBits");
        EXPECT_EQ(test::records().assertions[0].file, "bitbuffer.c");
    }
}

TEST(BitRuns, NullBitBuffer) {
    for (const int level : kLevels) {
        test::reset(level);
        unsigned run = 77;
        EXPECT_EQ(CountConsecutiveBits(nullptr, 0, &run), -1);
        ASSERT_FALSE(test::records().assertions.empty());
        EXPECT_EQ(test::records().assertions[0].expression, "bb != NULL");
        EXPECT_EQ(test::records().assertions[0].func, "CountConsecutiveBits");
    }
}

}  // namespace
