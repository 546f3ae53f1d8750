// A stretch of bits on its way from one place to another.
#pragma once

#include <climits>
#include <cstdint>

#include "bit_window.h"

class BitString {
public:
    // Takes n bits from the position on. False when they are not all there or are more than it holds.
    [[nodiscard]] bool read(bitbuffer_t& from, std::int64_t n) {
        if (n > UINT_MAX) return false;
        bits_ = static_cast<unsigned int>(n);  // a negative number becomes one that no area has
        return GetNextNBitsAsStringEx(&from, bits_, bytes_, sizeof bytes_) == 0 &&
               bits_ <= sizeof bytes_ * NUM_BITS_IN_BYTE;
    }

    // Puts them at the position.
    [[nodiscard]] bool write(bitbuffer_t& to) const { return SetNextNBitsFromString(&to, bits_, bytes_) == 0; }

    unsigned int bits() const { return bits_; }

private:
    unsigned char bytes_[256];
    unsigned int bits_ = 0;
};

// Moves to a position that a record tells. One behind the data leaves nothing to read or write. So does a negative one
// in an area of up to 2^31 bits: it is taken modulo 2^32.
inline void seek(bitbuffer_t& bits, std::int64_t position) { bits.bit_offset = static_cast<unsigned int>(position); }
