// Fields of 1 to 64 bits as integers, and runs of equal bits.
#include <bit>

#include "bit_masks.h"
#include "bit_window.h"
#include "trace.h"

static constexpr char kModuleFile[] = "bitbuffer.c";

namespace {

using h264::has_bits;
using h264::is_emitted;
using h264::kByteTraceLevel;

// Values and scratch areas are left-aligned: n bits of a Width-bit value fill the first n bits of the string.
template <unsigned int Width, typename T>
int read_unsigned(bitbuffer_t* bb, unsigned int n, T* value) {
    if (bb == nullptr || n == 0 || n > Width) return -1;
    std::uint64_t bits = 0;
    if (is_emitted(kByteTraceLevel)) {
        unsigned char scratch[8] = {};
        if (GetNextNBitsAsStringEx(bb, n, scratch, sizeof scratch) != 0) return -1;
        bits = h264::load_big_endian(scratch) >> (64 - n);
    } else {
        if (!has_bits(*bb, n)) return -1;
        bits = h264::peek_bits(*bb, n);
        bb->bit_offset += n;
    }
    if (value != nullptr) *value = static_cast<T>(bits);
    return 0;
}

template <unsigned int Width>
int write_unsigned(bitbuffer_t* bb, unsigned int n, std::uint64_t value) {
    if (bb == nullptr || n == 0 || n > Width) return -1;
    if (is_emitted(kByteTraceLevel)) {
        unsigned char scratch[8];
        h264::store_big_endian(scratch, value << (64 - n));
        return SetNextNBitsFromString(bb, n, scratch);
    }
    if (!has_bits(*bb, n)) return -1;
    h264::put_bits(*bb, n, value);
    return 0;
}

// A sign bit and n - 1 magnitude bits. With n = Width + 1 the magnitude fills the type.
template <unsigned int Width, typename T, typename Unsigned>
int read_signed(bitbuffer_t* bb, unsigned int n, T* value,
                int (*read_magnitude)(bitbuffer_t*, unsigned int, Unsigned*)) {
    if (bb == nullptr || n < 2) return -1;
    if (n <= Width && !is_emitted(kByteTraceLevel)) {
        if (!has_bits(*bb, n)) return -1;
        const auto bits = static_cast<std::int64_t>(h264::peek_bits(*bb, n) << (64 - n));
        bb->bit_offset += n;
        if (value != nullptr) *value = static_cast<T>(bits >> (64 - n));
        return 0;
    }
    const unsigned int start = bb->bit_offset;
    int sign = 0;
    Unsigned magnitude = 0;
    if (GetNextBitEx(bb, &sign) != 0 || read_magnitude(bb, n - 1, &magnitude) != 0) {
        bb->bit_offset = start;
        return -1;
    }
    if (value != nullptr) *value = static_cast<T>(sign != 0 ? magnitude | ~_GetBitMask(n - 1) : magnitude);
    return 0;
}

template <unsigned int Width>
int write_signed(bitbuffer_t* bb, unsigned int n, std::int64_t value) {
    return n < 2 ? -1 : write_unsigned<Width>(bb, n, static_cast<std::uint64_t>(value));
}

}  // namespace

int GetNextNBitsAsUint8(bitbuffer_t* bb, unsigned int n, unsigned char* value) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(n <= 8);
    return read_unsigned<8>(bb, n, value);
}

int SetNextNBitsFromUint8(bitbuffer_t* bb, unsigned int n, unsigned char value) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(n <= 8);
    return write_unsigned<8>(bb, n, value);
}

int GetNextNBitsAsUint16(bitbuffer_t* bb, unsigned int n, unsigned short* value) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(n <= 16);
    return read_unsigned<16>(bb, n, value);
}

int SetNextNBitsFromUint16(bitbuffer_t* bb, unsigned int n, unsigned short value) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(n <= 16);
    return write_unsigned<16>(bb, n, value);
}

int GetNextNBitsAsUint32(bitbuffer_t* bb, unsigned int n, unsigned long* value) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(n <= 32);
    return read_unsigned<32>(bb, n, value);
}

int SetNextNBitsFromUint32(bitbuffer_t* bb, unsigned int n, unsigned long value) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(n <= 32);
    return write_unsigned<32>(bb, n, value);
}

int GetNextNBitsAsUint64(bitbuffer_t* bb, unsigned int n, unsigned long long* value) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(n <= 64);
    return read_unsigned<64>(bb, n, value);
}

int SetNextNBitsFromUint64(bitbuffer_t* bb, unsigned int n, unsigned long long value) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(n <= 64);
    return write_unsigned<64>(bb, n, value);
}

int GetNextNBitsAsInt8(bitbuffer_t* bb, unsigned int n, char* value) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(n <= 8);
    return read_signed<8>(bb, n, value, GetNextNBitsAsUint8);
}

int SetNextNBitsFromInt8(bitbuffer_t* bb, unsigned int n, char value) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(n <= 8);
    return write_signed<8>(bb, n, value);
}

int GetNextNBitsAsInt16(bitbuffer_t* bb, unsigned int n, short* value) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(n <= 16);
    return read_signed<16>(bb, n, value, GetNextNBitsAsUint16);
}

int SetNextNBitsFromInt16(bitbuffer_t* bb, unsigned int n, short value) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(n <= 16);
    return write_signed<16>(bb, n, value);
}

int GetNextNBitsAsInt32(bitbuffer_t* bb, unsigned int n, long* value) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(n <= 32);
    return read_signed<32>(bb, n, value, GetNextNBitsAsUint32);
}

int SetNextNBitsFromInt32(bitbuffer_t* bb, unsigned int n, long value) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(n <= 32);
    return write_signed<32>(bb, n, value);
}

int GetNextNBitsAsInt64(bitbuffer_t* bb, unsigned int n, long long* value) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(n <= 64);
    return read_signed<64>(bb, n, value, GetNextNBitsAsUint64);
}

int SetNextNBitsFromInt64(bitbuffer_t* bb, unsigned int n, long long value) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(n <= 64);
    return write_signed<64>(bb, n, value);
}

int CountConsecutiveBits(bitbuffer_t* bb, unsigned int test_value, unsigned int* num) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(test_value < 2);
    if (bb == nullptr) return -1;
    unsigned int count = 0;
    int result = -1;
    for (h264::BitWindow window = h264::peek(*bb); window.count > 0 && result != 0; window = h264::peek(*bb)) {
        // No bit equals a test value above 1.
        unsigned int run = 0;
        if (test_value < 2) {
            const auto equal =
                static_cast<unsigned int>(std::countl_zero(test_value == 0 ? window.bits : ~window.bits));
            run = std::min(equal, window.count);
        }
        count += run;
        bb->bit_offset += run;
        if (run < window.count) {
            ++bb->bit_offset;
            result = 0;
        }
    }
    if (num != nullptr) *num = count;
    return result;
}
