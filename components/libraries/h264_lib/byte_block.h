// Blocks of 64 bytes as bit masks: bit i stands for byte i. Where zero bytes are dense, emulation prevention works on
// blocks; where they are rare it searches and copies.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace h264 {

constexpr std::size_t kBlockBytes = 64;
constexpr std::size_t kCopyBytes = 16;
// Bytes that must be there from a block's first on, for input and output alike. Bytes behind a copy are overwritten by
// what the bytes behind the block become: at least two for every three.
constexpr std::size_t kBlockReach = kBlockBytes + 2 * kCopyBytes;
// A byte that is found this near belongs to a dense stretch.
constexpr std::size_t kNear = 8;

struct ByteBlock {
    std::uint64_t zero = 0;         // bytes that are 0
    std::uint64_t three = 0;        // bytes that are 3
    std::uint64_t up_to_three = 0;  // bytes from 0 to 3
};

// The marks 0x80 of eight bytes as eight bits.
inline std::uint64_t gather_marks(std::uint64_t marks) { return ((marks >> 7) * 0x0102040810204080) >> 56; }

// 0x80 in each byte that is 0.
inline std::uint64_t mark_zeros(std::uint64_t bytes) {
    constexpr std::uint64_t kLowBits = 0x7F7F7F7F7F7F7F7F;
    return ~(((bytes & kLowBits) + kLowBits) | bytes | kLowBits);
}

inline ByteBlock load_block(const unsigned char* bytes) {
    static_assert(std::endian::native == std::endian::little);
    constexpr std::uint64_t kEveryThree = 0x0303030303030303;
    ByteBlock block;
    for (unsigned i = 0; i < kBlockBytes; i += 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes + i, sizeof word);
        block.zero |= gather_marks(mark_zeros(word)) << i;
        block.three |= gather_marks(mark_zeros(word ^ kEveryThree)) << i;
        block.up_to_three |= gather_marks(mark_zeros(word & ~kEveryThree)) << i;
    }
    return block;
}

// Copies the bytes from begin to end, and up to kCopyBytes behind them. Returns the end of the copy.
inline unsigned char* copy_loosely(unsigned char* to, const unsigned char* begin, const unsigned char* end) {
    unsigned char* const copied = to + (end - begin);
    do {
        std::memcpy(to, begin, kCopyBytes);
        to += kCopyBytes;
        begin += kCopyBytes;
    } while (begin < end);
    return copied;
}

}  // namespace h264
