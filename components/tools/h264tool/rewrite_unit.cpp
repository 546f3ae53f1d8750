#include "rewrite_unit.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "h264.h"

namespace h264tool {

std::vector<unsigned char> with_payload(const NalUnit& unit, std::span<const unsigned char> payload) {
    while (!payload.empty() && payload.back() == 0) payload = payload.first(payload.size() - 1);
    const std::size_t header = unit.start_code_length + 1;
    std::vector<unsigned char> bytes(unit.bytes.begin(), unit.bytes.begin() + static_cast<std::ptrdiff_t>(header));
    // An inserted byte for every two, and more than four bytes for every three.
    bytes.resize(header + 2 * payload.size() + 8);
    const int length = RBSP_encapsulation_within_NAL(payload.data(), static_cast<unsigned int>(payload.size()),
                                                     &bytes[header], static_cast<unsigned int>(bytes.size() - header));
    if (length <= 0) throw std::runtime_error("the changed unit cannot be made");
    bytes.resize(header + static_cast<std::size_t>(length));
    return bytes;
}

NalUnit as_unit(std::vector<unsigned char> bytes, unsigned start_code_length) {
    NalUnit unit;
    unit.bytes = std::move(bytes);
    unit.length = unit.bytes.size();
    unit.start_code_length = start_code_length;
    return unit;
}

void trim_zeros(std::vector<unsigned char>& bytes) {
    while (!bytes.empty() && bytes.back() == 0) bytes.pop_back();
}

}  // namespace h264tool
