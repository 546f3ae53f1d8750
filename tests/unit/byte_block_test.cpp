#include "byte_block.h"

#include <gtest/gtest.h>

#include <array>
#include <random>

namespace {

using Block = std::array<unsigned char, h264::kBlockBytes>;

std::uint64_t find_one_by_one(const Block& block, unsigned char value, unsigned char mask) {
    std::uint64_t found = 0;
    for (unsigned i = 0; i < block.size(); ++i)
        if ((block[i] & mask) == value) found |= std::uint64_t{1} << i;
    return found;
}

void expect_found(const Block& block, unsigned char value, unsigned char mask) {
    const std::uint64_t expected = find_one_by_one(block, value, mask);
    EXPECT_EQ(h264::find_bytes(block.data(), value, mask), expected);
    EXPECT_EQ(h264::find_bytes_by_words(block.data(), value, mask), expected);
}

TEST(ByteBlock, EveryByteAtEveryPlace) {
    for (unsigned byte = 0; byte < 256; ++byte) {
        Block block;
        block.fill(0x55);
        for (unsigned place = 0; place < block.size(); ++place) {
            block[place] = static_cast<unsigned char>(byte);
            expect_found(block, 0, 0xFF);
            expect_found(block, 3, 0xFF);
            expect_found(block, 0, 0xFC);
            block[place] = 0x55;
        }
    }
}

TEST(ByteBlock, DenseBlocks) {
    std::minstd_rand random(11);
    for (int round = 0; round < 1000; ++round) {
        Block block;
        for (unsigned char& byte : block) byte = static_cast<unsigned char>(random() >> 8 & (random() & 3 ? 7 : 0x83));
        expect_found(block, 0, 0xFF);
        expect_found(block, 3, 0xFF);
        expect_found(block, 0, 0xFC);
    }
}

}  // namespace
