// Positions near 2^32 bits.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <climits>

#include "bit_writer.h"
#include "bitbuffer.h"
#include "diagnostics.h"

namespace {

using test::Bytes;

// The largest area there is, 2^32 - 1 bits; only the pages that a test touches exist.
class LargestArea : public testing::TestWithParam<int> {
protected:
    static constexpr std::size_t kBytes = 0x20000000;

    void SetUp() override {
        void* memory =
            mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        ASSERT_NE(memory, MAP_FAILED);
        bytes_ = static_cast<unsigned char*>(memory);
        test::reset(GetParam());
    }
    void TearDown() override {
        EXPECT_TRUE(test::texts(3).empty());
        EXPECT_TRUE(test::records().assertions.empty());
        munmap(bytes_, kBytes);
    }
    bitbuffer_t at(unsigned offset) { return {bytes_, offset, UINT_MAX}; }

    unsigned char* bytes_ = nullptr;
};

INSTANTIATE_TEST_SUITE_P(Levels, LargestArea, testing::Values(0, 7));

TEST_P(LargestArea, LastBitsAreWrittenAndRead) {
    bitbuffer_t bb = at(UINT_MAX - 20);
    const Bytes in = {0xA5, 0xC3, 0xF8};
    EXPECT_EQ(SetNextNBitsFromString(&bb, 20, in.data()), 0);
    EXPECT_EQ(bb.bit_offset, UINT_MAX);
    EXPECT_EQ(Bytes(bytes_ + kBytes - 3, bytes_ + kBytes), (Bytes{0x14, 0xB8, 0x7E}));  // from bit 3, the last one kept
    bb = at(UINT_MAX - 20);
    Bytes out(3);
    EXPECT_EQ(GetNextNBitsAsStringEx(&bb, 20, out.data(), 3), 0);
    EXPECT_EQ(out, (Bytes{0xA5, 0xC3, 0xF0}));
    EXPECT_EQ(bb.bit_offset, UINT_MAX);
}

TEST_P(LargestArea, SumsOf2To32AndMoreAreBehindTheEnd) {
    const Bytes in(32, 0xFF);
    Bytes out(32, 0xCD);
    for (const unsigned before : {0U, 1U, 7U, 8U, 20U, 63U})
        for (const unsigned n : {before + 1, before + 2, before + 9, 200U}) {
            bitbuffer_t bb = at(UINT_MAX - before);
            EXPECT_EQ(GetNextNBitsAsStringEx(&bb, n, out.data(), 32), -1);
            EXPECT_EQ(GetNextNBitsAsStringEx(&bb, n, nullptr, 32), -1);
            EXPECT_EQ(SetNextNBitsFromString(&bb, n, in.data()), -1);
            unsigned long long value = 5;
            long long number = 5;
            if (n <= 64) {
                EXPECT_EQ(GetNextNBitsAsUint64(&bb, n, &value), -1);
                EXPECT_EQ(SetNextNBitsFromUint64(&bb, n, ULLONG_MAX), -1);
            }
            if (n >= 2 && n <= 64) {
                EXPECT_EQ(GetNextNBitsAsInt64(&bb, n, &number), -1);
            }
            EXPECT_EQ(value, 5U);
            EXPECT_EQ(number, 5);
            EXPECT_EQ(bb.bit_offset, UINT_MAX - before) << n;
        }
    EXPECT_EQ(out, Bytes(32, 0xCD));
    EXPECT_EQ(Bytes(bytes_ + kBytes - 32, bytes_ + kBytes), Bytes(32, 0));
    EXPECT_EQ(Bytes(bytes_, bytes_ + 32), Bytes(32, 0));
}

TEST_P(LargestArea, LargestLengthsArePassedOver) {
    bitbuffer_t bb = at(1);
    EXPECT_EQ(GetNextNBitsAsStringEx(&bb, UINT_MAX, nullptr, UINT_MAX), -1);
    EXPECT_EQ(bb.bit_offset, 1U);
    EXPECT_EQ(GetNextNBitsAsStringEx(&bb, UINT_MAX - 1, nullptr, UINT_MAX), 0);
    EXPECT_EQ(bb.bit_offset, UINT_MAX);
}

TEST_P(LargestArea, RunAtTheEndIsCounted) {
    bitbuffer_t bb = at(UINT_MAX - 99);
    unsigned run = 0;
    EXPECT_EQ(CountConsecutiveBits(&bb, 0, &run), -1);
    EXPECT_EQ(run, 99U);
    EXPECT_EQ(bb.bit_offset, UINT_MAX);
}

}  // namespace
