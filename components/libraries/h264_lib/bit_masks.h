// Masks over the low bits of a 64-bit value and the high bits of a byte.
#pragma once

#include <array>
#include <cstdint>

// The n least significant bits, n from 1 to 64.
constexpr std::uint64_t _GetBitMask(unsigned int n) {
    constexpr std::array<std::uint64_t, 64> masks = [] {
        std::array<std::uint64_t, 64> table{};
        std::uint64_t mask = 0;
        for (std::uint64_t& entry : table) entry = mask = mask << 1 | 1;
        return table;
    }();
    return masks[n - 1];
}

// The n most significant bits of a byte, n from 0 to 7.
constexpr unsigned char _GetMSBitsMask(unsigned int n) {
    constexpr std::array<unsigned char, 8> masks = {0x00, 0x80, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC, 0xFE};
    return masks[n];
}
