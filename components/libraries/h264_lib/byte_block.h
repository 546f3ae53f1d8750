// Blocks of 64 bytes as bit masks, bit i for byte i, and words of 8 bytes. Emulation prevention works on them where the
// bytes that matter are dense, and near the end; where they are rare it searches and copies.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace h264 {

constexpr std::size_t kBlockBytes = 64;
constexpr std::size_t kWordBytes = 8;
constexpr std::size_t kCopyBytes = 16;
// Bytes of input that must be there from a block's first on to copy it in pieces: copy_loosely reads behind them. What
// it writes behind them is overwritten by what the bytes behind the block become, two for every three at least.
constexpr std::size_t kBlockReach = kBlockBytes + 2 * kCopyBytes;
// What fits into a block is not worth a search.
constexpr std::size_t kLeastSearched = kBlockBytes + 1;
// A byte that is found this near belongs to a dense stretch.
constexpr std::size_t kNear = 8;

inline std::uint64_t load_word(const unsigned char* bytes) {
    static_assert(std::endian::native == std::endian::little);
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// 0x80 in each byte that is 0.
inline std::uint64_t mark_zeros(std::uint64_t word) {
    constexpr std::uint64_t kLowBits = 0x7F7F7F7F7F7F7F7F;
    return ~(((word & kLowBits) + kLowBits) | word | kLowBits);
}

// The bytes b of a block with (b & mask) == value, on any processor.
inline std::uint64_t find_bytes_by_words(const unsigned char* block, unsigned char value, unsigned char mask = 0xFF) {
    constexpr std::uint64_t kEveryByte = 0x0101010101010101;
    std::uint64_t found = 0;
    for (unsigned i = 0; i < kBlockBytes; i += kWordBytes) {
        const std::uint64_t marks = mark_zeros((load_word(block + i) & kEveryByte * mask) ^ kEveryByte * value);
        found |= ((marks >> 7) * 0x0102040810204080 >> 56) << i;
    }
    return found;
}

// The same, the fastest way there is.
inline std::uint64_t find_bytes(const unsigned char* block, unsigned char value, unsigned char mask = 0xFF) {
#ifdef __SSE2__
    std::uint64_t found = 0;
    for (unsigned i = 0; i < kBlockBytes; i += 16) {
        __m128i bytes;
        std::memcpy(&bytes, block + i, sizeof bytes);
        const __m128i masked = _mm_and_si128(bytes, _mm_set1_epi8(static_cast<char>(mask)));
        const __m128i equal = _mm_cmpeq_epi8(masked, _mm_set1_epi8(static_cast<char>(value)));
        found |= static_cast<std::uint64_t>(_mm_movemask_epi8(equal)) << i;
    }
    return found;
#else
    return find_bytes_by_words(block, value, mask);
#endif
}

// Copies the bytes from begin to end. Reads and writes up to kCopyBytes behind them. Returns the end of the copy.
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
