// NAL units with another payload.
#pragma once

#include <span>
#include <vector>

#include "annexb_reader.h"

namespace h264tool {

// The unit's start code and header with a payload (without emulation prevention) whose zero bytes at the end are left
// out. Throws std::runtime_error when that cannot be made.
std::vector<unsigned char> with_payload(const NalUnit& unit, std::span<const unsigned char> payload);

// Bytes as a unit of a stream, for what reads units.
NalUnit as_unit(std::vector<unsigned char> bytes, unsigned start_code_length);

// Without the zero bytes at the end.
void trim_zeros(std::vector<unsigned char>& bytes);

}  // namespace h264tool
