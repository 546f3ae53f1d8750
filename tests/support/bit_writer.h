// Builds bit streams for the tests, one syntax element at a time, without any code of the library.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

namespace test {

using Bytes = std::vector<unsigned char>;

class BitWriter {
public:
    // n bits of value, most significant first.
    BitWriter& u(unsigned n, std::uint64_t value) {
        for (unsigned i = n; i-- > 0;) put(i < 64 ? (value >> i) & 1 : 0);
        return *this;
    }
    BitWriter& flag(bool value) { return u(1, value ? 1 : 0); }

    // ue(v): z zeros, then value + 1 in z + 1 bits. value up to 2^64 - 2.
    BitWriter& ue(std::uint64_t value) {
        const std::uint64_t code = value + 1;
        unsigned zeros = 0;
        while ((code >> zeros) > 1) ++zeros;
        return u(zeros, 0).u(zeros + 1, code);
    }
    BitWriter& se(std::int64_t value) {
        return value > 0 ? ue(2 * static_cast<std::uint64_t>(value) - 1)
                         : ue(2 * (0 - static_cast<std::uint64_t>(value)));
    }

    // A one bit and zeros up to the next byte boundary.
    BitWriter& trailing() {
        put(1);
        while (bits_ % 8 != 0) put(0);
        return *this;
    }

    std::size_t bits() const { return bits_; }
    // The bits, the last byte filled up with zeros.
    const Bytes& bytes() const { return bytes_; }

private:
    void put(std::uint64_t bit) {
        const auto mask = static_cast<unsigned char>(bit != 0 ? 0x80U >> bits_ % 8 : 0U);
        if (bits_ % 8 == 0) {
            bytes_.push_back(mask);
        } else {
            bytes_[bits_ / 8] |= mask;
        }
        ++bits_;
    }

    Bytes bytes_;
    std::size_t bits_ = 0;
};

// Start code, header byte and payload with emulation prevention bytes: a whole NAL unit.
inline Bytes nal_unit(unsigned char header, const Bytes& payload, int start_code_length = 4) {
    Bytes unit(static_cast<std::size_t>(start_code_length - 1), 0);
    unit.push_back(1);
    unit.push_back(header);
    int zeros = 0;
    for (const unsigned char byte : payload) {
        if (zeros >= 2 && byte <= 3) {
            unit.push_back(3);
            zeros = 0;
        }
        unit.push_back(byte);
        zeros = byte == 0 ? zeros + 1 : 0;
    }
    return unit;
}

}  // namespace test
