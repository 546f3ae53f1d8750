// Emulation prevention, one byte at a time: with the room checks of the library's two encapsulation functions, and
// back.
#pragma once

#include <cstdint>

#include "bit_writer.h"

namespace test {

struct Encapsulated {
    int result = 0;
    Bytes bytes;                 // what stands in the output, also after a failure
    bool too_small = false;      // failed by the rule of 4 bytes of output for 3 of input
    bool ran_out = false;        // failed at the byte that would stand behind bytes
    std::uint32_t required = 0;  // by that rule
};

// room: what the caller says that the output holds. With bypass, ordinary bytes are written past it.
inline Encapsulated encapsulation_model(const Bytes& input, std::size_t room, bool bypass = false) {
    Encapsulated out;
    const auto size = static_cast<std::uint32_t>(input.size());
    out.required = (size / 3 + (size % 3 != 0 ? 1 : 0)) * 4;
    if (!bypass && out.required > room) {
        out.too_small = true;
        return out;
    }
    out.bytes.reserve(input.size() + input.size() / 2);
    for (std::size_t i = 0; i < input.size() && i < 2; ++i) out.bytes.push_back(input[i]);
    for (std::size_t i = 2; i < input.size(); ++i) {
        const std::size_t at = out.bytes.size();
        const bool escaped = out.bytes[at - 2] == 0 && out.bytes[at - 1] == 0 && input[i] <= 3;
        if (escaped ? at + 2 >= room : !bypass && at >= room) {
            out.ran_out = true;
            return out;
        }
        if (escaped) out.bytes.push_back(3);
        out.bytes.push_back(input[i]);
    }
    out.result = static_cast<int>(out.bytes.size());
    return out;
}

// The bytes with emulation prevention, in an output that is large enough.
inline Bytes emulation_prevented(const Bytes& input) { return encapsulation_model(input, SIZE_MAX / 2).bytes; }

// The payload of a unit from its header byte on, one byte at a time: 00 00 03 gives 00 00 while at least two bytes
// follow the first of the three.
inline Bytes payload_of(const Bytes& unit) {
    const auto size = static_cast<long>(unit.size());
    const int type = unit[0] & 0x1F;
    long at = type == 14 || type == 20 ? 4 : 1;
    Bytes out;
    while (at < size) {
        const auto i = static_cast<std::size_t>(at);
        if (at < size - 2 && unit[i] == 0 && unit[i + 1] == 0 && unit[i + 2] == 3) {
            out.insert(out.end(), 2, 0);
            at += 3;
        } else {
            out.push_back(unit[i]);
            ++at;
        }
    }
    return out;
}

}  // namespace test
