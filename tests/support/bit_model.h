// What each bit buffer operation must do, told one bit at a time and without any code of the library. A value that an
// operation does not give leaves its destination as it was. Destinations may be null.
#pragma once

#include <cstdint>
#include <utility>

#include "bit_writer.h"

namespace test {

class BitModel {
public:
    BitModel(Bytes area, std::uint32_t bits) : bytes(std::move(area)), num_bits(bits) {}

    Bytes bytes;
    std::uint32_t offset = 0;
    std::uint32_t num_bits;

    bool fits(std::uint64_t n) const { return offset + n <= num_bits; }
    unsigned bit(std::uint64_t k) const { return bytes[k / 8] >> (7 - k % 8) & 1U; }

    int advance(std::uint32_t n) {
        const std::uint32_t sum = offset + n;  // modulo 2^32
        if (sum > num_bits) return -1;
        offset = sum;
        return 0;
    }

    int get_bit(int* value) {
        if (!fits(1)) return -1;
        const unsigned next = take();
        if (value != nullptr) *value = static_cast<int>(next);
        return 0;
    }

    int set_bit(unsigned value) {
        if (!fits(1)) return -1;
        put(value);
        return 0;
    }

    // out is as long as the size that the caller tells.
    int get_string(std::uint32_t n, Bytes* out) {
        if (!fits(n)) return -1;
        for (std::uint32_t i = 0; i < n; ++i) {
            const unsigned next = take();
            if (out == nullptr || i / 8 >= out->size()) continue;
            unsigned char& byte = (*out)[i / 8];
            if (i % 8 == 0) byte = 0;
            byte = static_cast<unsigned char>(byte | next << (7 - i % 8));
        }
        return 0;
    }

    int set_string(std::uint32_t n, const Bytes* in) {
        if (!fits(n)) return -1;
        if (in == nullptr) return advance(n);
        for (std::uint32_t i = 0; i < n; ++i) put((*in)[i / 8] >> (7 - i % 8) & 1U);
        return 0;
    }

    int get_unsigned(unsigned width, std::uint32_t n, std::uint64_t* value) {
        if (n == 0 || n > width || !fits(n)) return -1;
        const std::uint64_t bits = take(n);
        if (value != nullptr) *value = bits;
        return 0;
    }

    // One bit more than the width is read as a sign and a magnitude of the full width.
    int get_signed(unsigned width, std::uint32_t n, std::uint64_t* value) {
        if (n < 2 || n > width + 1 || !fits(n)) return -1;
        const bool negative = take() != 0;
        std::uint64_t bits = take(n - 1);
        for (unsigned i = n - 1; negative && i < 64; ++i) bits |= std::uint64_t{1} << i;
        if (value != nullptr) *value = bits;
        return 0;
    }

    int set_field(unsigned width, unsigned least, std::uint32_t n, std::uint64_t value) {
        if (n < least || n > width || !fits(n)) return -1;
        put(n, value);
        return 0;
    }

    int count(unsigned test_value, unsigned* num) {
        unsigned run = 0;
        int value = 0;
        int result;
        while ((result = get_bit(&value)) == 0 && static_cast<unsigned>(value) == test_value) ++run;
        if (num != nullptr) *num = run;
        return result;
    }

    int skip_golomb(int* num) {
        unsigned zeros = 0;
        if (count(0, &zeros) != 0) return -1;
        offset += zeros;
        if (num != nullptr) *num = static_cast<int>(2 * zeros + 1);
        return 0;
    }

    int get_golomb(unsigned max_zeros, std::uint64_t* value) {
        unsigned zeros = 0;
        if (count(0, &zeros) != 0 || zeros > max_zeros || !fits(zeros)) return -1;
        const std::uint64_t suffix = take(zeros);
        if (value != nullptr) *value = (std::uint64_t{1} << zeros) - 1 + suffix;
        return 0;
    }

    int get_signed_golomb(unsigned max_zeros, std::int64_t* value) {
        std::uint64_t k = 0;
        if (get_golomb(max_zeros, &k) != 0) return -1;
        const auto half = static_cast<std::int64_t>(k / 2);
        if (value != nullptr) *value = k % 2 == 1 ? half + 1 : -half;
        return 0;
    }

    // Not for values of which the low 32 bits are all ones.
    int set_golomb32(std::uint64_t value) {
        const std::uint64_t v = (value & 0xFFFFFFFF) + 1;
        const unsigned zeros = log2(v);
        return put_code(zeros, v - (std::uint64_t{1} << zeros));
    }

    // Not for 2^64 - 1.
    int set_golomb64(std::uint64_t value) {
        const std::uint64_t v = value + 1;
        const unsigned zeros = log2(v);
        // The signed 32-bit number 1 << zeros % 32 in 64 bits.
        const std::uint64_t subtracted = zeros % 32 == 31 ? 0xFFFFFFFF80000000 : std::uint64_t{1} << zeros % 32;
        return put_code(zeros, v - subtracted);
    }

    static std::uint64_t signed_code(std::int64_t value) {
        const auto v = static_cast<std::uint64_t>(value);
        return value > 0 ? 2 * v - 1 : 0 - 2 * v;
    }

private:
    static unsigned log2(std::uint64_t v) {
        unsigned result = 0;
        while ((v >> result) > 1) ++result;
        return result;
    }

    unsigned take() { return bit(offset++); }
    std::uint64_t take(unsigned n) {
        std::uint64_t value = 0;
        while (n-- > 0) value = value << 1 | take();
        return value;
    }

    void put(unsigned value) {
        unsigned char& byte = bytes[offset / 8];
        const unsigned mask = 0x80U >> offset % 8;
        byte = static_cast<unsigned char>(value != 0 ? byte | mask : byte & ~mask);
        ++offset;
    }
    void put(unsigned n, std::uint64_t value) {
        while (n-- > 0) put(static_cast<unsigned>(value >> n & 1));
    }

    // Zeros and a one, then the low bits of suffix, as two writes of which each fits or does not.
    int put_code(unsigned zeros, std::uint64_t suffix) {
        if (!fits(zeros + 1)) return -1;
        put(zeros, 0);
        put(1, 1);
        if (!fits(zeros)) return -1;
        put(zeros, suffix);
        return 0;
    }
};

}  // namespace test
