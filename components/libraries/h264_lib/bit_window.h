// The silent path of the bit accessors: up to 64 bits at once through a big-endian window. Nothing here is reported,
// and no byte outside the ceil(num_bits / 8) bytes of the area is touched.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "bitbuffer.h"

namespace h264 {

template <typename T = std::uint64_t>
std::uint64_t load_big_endian(const unsigned char* bytes) {
    static_assert(std::endian::native == std::endian::little);
    T value;
    std::memcpy(&value, bytes, sizeof value);
    if constexpr (sizeof value == 2) return __builtin_bswap16(value);
    if constexpr (sizeof value == 4) return __builtin_bswap32(value);
    return __builtin_bswap64(value);
}

inline void store_big_endian(unsigned char* bytes, std::uint64_t value) {
    value = __builtin_bswap64(value);
    std::memcpy(bytes, &value, sizeof value);
}

inline std::uint64_t size_bytes(const bitbuffer_t& bb) {
    return DIVIDE_AND_CEIL(std::uint64_t{bb.num_bits}, NUM_BITS_IN_BYTE);
}

// Whether n bits are left. Also right for a position behind the end.
inline bool has_bits(const bitbuffer_t& bb, std::uint64_t n) { return bb.bit_offset + n <= bb.num_bits; }

// Up to 8 bytes, first byte on top, zeros behind them. Two loads meet in the middle, where they have the same bytes.
inline std::uint64_t load_few(const unsigned char* bytes, std::uint64_t count) {
    const std::uint64_t down = 64 - NUM_BITS_IN_BYTE * count;  // of the last byte
    if (count >= 4)
        return load_big_endian<std::uint32_t>(bytes) << 32 | load_big_endian<std::uint32_t>(bytes + count - 4) << down;
    if (count >= 2)
        return load_big_endian<std::uint16_t>(bytes) << 48 | load_big_endian<std::uint16_t>(bytes + count - 2) << down;
    return count == 1 ? std::uint64_t{*bytes} << 56 : 0;
}

// The bits at the position, which is in the area, first bit on top: at least min(57, bits left), and whatever the
// area's last byte has behind them.
inline std::uint64_t peek_window(const bitbuffer_t& bb) {
    const std::uint64_t first = bb.bit_offset / NUM_BITS_IN_BYTE;
    const unsigned int shift = bb.bit_offset % NUM_BITS_IN_BYTE;
    if (has_bits(bb, 64)) return load_big_endian(bb.bit_buffer + first) << shift;
    if (bb.num_bits < 64) return load_few(bb.bit_buffer + first, size_bytes(bb) - first) << shift;
    // The last eight bytes, without those before the position.
    const std::uint64_t start = std::min(first, size_bytes(bb) - 8);
    return load_big_endian(bb.bit_buffer + start) << (bb.bit_offset - NUM_BITS_IN_BYTE * start);
}

// Bits at the position, first bit on top.
struct BitWindow {
    std::uint64_t bits;
    unsigned int count;  // how many of them count, at least min(57, bits left); the others may be anything
};

// The bits at the position, without advancing.
inline BitWindow peek(const bitbuffer_t& bb) {
    if (bb.bit_offset >= bb.num_bits) return {0, 0};
    return {peek_window(bb), std::min(64 - bb.bit_offset % NUM_BITS_IN_BYTE, bb.num_bits - bb.bit_offset)};
}

// The n bits at the position, without advancing; n from 1 to 64, all in the area.
inline std::uint64_t peek_bits(const bitbuffer_t& bb, unsigned int n) {
    std::uint64_t bits = peek_window(bb);
    const unsigned int shift = bb.bit_offset % NUM_BITS_IN_BYTE;
    if (n + shift > 64) [[unlikely]]
        bits |= bb.bit_buffer[bb.bit_offset / NUM_BITS_IN_BYTE + 8] >> (NUM_BITS_IN_BYTE - shift);
    return bits >> (64 - n);
}

// Replaces the bits that are 1 in mask, a byte at a time, the first byte on top of both; stops behind the last of them.
[[gnu::noinline]] inline void put_bytes(unsigned char* bytes, std::uint64_t mask, std::uint64_t bits) {
    for (; mask != 0; mask <<= NUM_BITS_IN_BYTE, bits <<= NUM_BITS_IN_BYTE, ++bytes)
        *bytes = static_cast<unsigned char>((*bytes & ~(mask >> 56)) | bits >> 56);
}

// Writes the low n bits of value at the position and advances; n from 1 to 64, all in the area.
inline void put_bits(bitbuffer_t& bb, unsigned int n, std::uint64_t value) {
    const unsigned int shift = bb.bit_offset % NUM_BITS_IN_BYTE;
    const std::uint64_t bits = value << (64 - n);
    const std::uint64_t mask = ~std::uint64_t{0} << (64 - n);
    unsigned char* const bytes = bb.bit_buffer + bb.bit_offset / NUM_BITS_IN_BYTE;
    const bool whole_window = has_bits(bb, 64);
    bb.bit_offset += n;

    if (whole_window)
        store_big_endian(bytes, (load_big_endian(bytes) & ~(mask >> shift)) | bits >> shift);
    else
        put_bytes(bytes, mask >> shift, bits >> shift);
    if (shift + n > 64) {
        const unsigned int up = 64 - shift;  // bits that went into the window
        put_bytes(bytes + 8, mask << up, bits << up);
    }
}

// Copies the n bits at the position, all in the area, to a string; the unused bits of its last byte become zero.
inline void copy_bits_out(bitbuffer_t bb, unsigned int n, unsigned char* out) {
    if (n == 0) return;
    if (bb.bit_offset % NUM_BITS_IN_BYTE == 0) {
        const unsigned int whole = n / NUM_BITS_IN_BYTE;
        std::memcpy(out, bb.bit_buffer + bb.bit_offset / NUM_BITS_IN_BYTE, whole);
        out += whole;
        n %= NUM_BITS_IN_BYTE;
        bb.bit_offset += whole * NUM_BITS_IN_BYTE;
    }
    for (; n >= 64; n -= 64, bb.bit_offset += 64, out += 8) store_big_endian(out, peek_bits(bb, 64));
    if (n == 0) return;
    std::uint64_t bits = peek_bits(bb, n) << (64 - n);
    for (unsigned int i = 0; i < DIVIDE_AND_CEIL(n, NUM_BITS_IN_BYTE); ++i, bits <<= NUM_BITS_IN_BYTE)
        out[i] = static_cast<unsigned char>(bits >> 56);
}

// Writes the first n bits of a string at the position, all in the area, and advances.
inline void copy_bits_in(bitbuffer_t& bb, unsigned int n, const unsigned char* in) {
    if (n == 0) return;
    if (bb.bit_offset % NUM_BITS_IN_BYTE == 0) {
        const unsigned int whole = n / NUM_BITS_IN_BYTE;
        std::memcpy(bb.bit_buffer + bb.bit_offset / NUM_BITS_IN_BYTE, in, whole);
        in += whole;
        n %= NUM_BITS_IN_BYTE;
        bb.bit_offset += whole * NUM_BITS_IN_BYTE;
    }
    if (n >= 64) {
        // Not aligned, or few bits would be left. Each store holds the bits carried over from the one before, and the
        // last ones are written as a field, since what stands behind them stays.
        const unsigned int shift = bb.bit_offset % NUM_BITS_IN_BYTE;
        unsigned char* bytes = bb.bit_buffer + bb.bit_offset / NUM_BITS_IN_BYTE;
        std::uint64_t carried = *bytes >> (NUM_BITS_IN_BYTE - shift);
        bb.bit_offset -= shift;
        for (; n >= 64; n -= 64, in += 8, bytes += 8, bb.bit_offset += 64) {
            const std::uint64_t bits = load_big_endian(in);
            store_big_endian(bytes, carried << (64 - shift) | bits >> shift);
            carried = bits & ~(~std::uint64_t{0} << shift);
        }
        put_bits(bb, shift, carried);
    }
    for (; n >= NUM_BITS_IN_BYTE; n -= NUM_BITS_IN_BYTE, ++in) put_bits(bb, NUM_BITS_IN_BYTE, *in);
    if (n > 0) put_bits(bb, n, *in >> (NUM_BITS_IN_BYTE - n));
}

}  // namespace h264
