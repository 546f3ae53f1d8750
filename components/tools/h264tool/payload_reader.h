// Reads elements at the beginning of a NAL unit by which the library is not asked for a whole structure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "annexb_reader.h"
#include "bitbuffer.h"

namespace h264tool {

// What follows the header byte, emulation prevention removed, of at most max_bytes of the unit.
std::vector<unsigned char> payload_of(const NalUnit& unit, std::size_t max_bytes = std::numeric_limits<int>::max());

// Once an element cannot be read, it and all behind it are 0 and ok() is false.
class PayloadReader {
public:
    // position: where to begin, in bits
    explicit PayloadReader(std::vector<unsigned char> payload, unsigned position = 0);
    PayloadReader(const PayloadReader&) = delete;
    PayloadReader& operator=(const PayloadReader&) = delete;

    bool ok() const { return ok_; }
    unsigned position() const { return bits_.bit_offset; }  // in bits

    std::uint64_t u(unsigned count);  // 0 bits read nothing, more than 64 cannot be read
    bool flag() { return u(1) != 0; }
    std::uint64_t ue();
    std::int64_t se();

private:
    std::vector<unsigned char> payload_;
    bitbuffer_t bits_{};
    bool ok_;
};

}  // namespace h264tool
