// What the SEI parsers share.
#pragma once

#include <algorithm>
#include <cstdint>

#include "h264d/h264d.h"

// Moves to the payload that a message's header names. The index is the peer's: one behind the data leaves nothing to
// read.
inline void seek_to_payload(bitbuffer_t& bits, const SEI_message_t& header) {
    const std::uint64_t position = bits.bit_offset + std::uint64_t{header.payload_index} * NUM_BITS_IN_BYTE;
    bits.bit_offset = static_cast<unsigned int>(std::min<std::uint64_t>(position, UINT32_MAX));
}
