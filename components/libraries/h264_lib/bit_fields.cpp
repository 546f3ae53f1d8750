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

// Bits of the shortest fields: a signed one has a sign and a magnitude.
constexpr unsigned int kLeastUnsigned = 1;
constexpr unsigned int kLeastSigned = 2;

// Whether n is 1 to Width (0 wraps), 64 bits are left, so that no load or store needs care, and nothing is to be
// reported. The functions take this path first; what else there may be is left to those below.
template <unsigned int Width>
bool is_plain_field(const bitbuffer_t* bb, unsigned int n) {
    return bb != nullptr && n - 1 < Width && !is_emitted(kByteTraceLevel) && has_bits(*bb, 64);
}

// These succeed, and say so for their callers.
template <typename T>
int read_silently(bitbuffer_t& bb, unsigned int n, T* value) {
    const std::uint64_t bits = h264::peek_bits(bb, n);
    bb.bit_offset += n;
    if (value != nullptr) *value = static_cast<T>(bits);
    return 0;
}

template <typename T>
int read_signed_silently(bitbuffer_t& bb, unsigned int n, T* value) {
    const auto bits = static_cast<std::int64_t>(h264::peek_bits(bb, n) << (64 - n));
    bb.bit_offset += n;
    if (value != nullptr) *value = static_cast<T>(bits >> (64 - n));
    return 0;
}

std::uint64_t as_bits(std::int64_t value) { return static_cast<std::uint64_t>(value); }

int write_silently(bitbuffer_t& bb, unsigned int n, std::uint64_t value) {
    h264::put_bits(bb, n, value);
    return 0;
}

// function: the one that was called, under whose name its preconditions are reported; fits: the text of the one on n.
// Scratch areas are left-aligned: n bits of a value fill the first n bits of the string.
template <unsigned int Width, typename T>
[[gnu::noinline]] int read_unsigned(bitbuffer_t* bb, unsigned int n, T* value, const char* function, const char* fits) {
    DO_ASSERT_AS(function, bb != NULL);
    if (n > Width) _DoAssert(fits, function, kModuleFile, __LINE__);
    if (bb == nullptr || n < kLeastUnsigned || n > Width) return -1;
    if (!is_emitted(kByteTraceLevel)) return has_bits(*bb, n) ? read_silently(*bb, n, value) : -1;
    unsigned char scratch[8] = {};
    if (GetNextNBitsAsStringEx(bb, n, scratch, sizeof scratch) != 0) return -1;
    if (value != nullptr) *value = static_cast<T>(h264::load_big_endian(scratch) >> (64 - n));
    return 0;
}

// least: the bits of the shortest field.
template <unsigned int Width>
[[gnu::noinline]] int write_bits(bitbuffer_t* bb, unsigned int n, std::uint64_t value, unsigned int least,
                                 const char* function, const char* fits) {
    DO_ASSERT_AS(function, bb != NULL);
    if (n > Width) _DoAssert(fits, function, kModuleFile, __LINE__);
    if (bb == nullptr || n < least || n > Width) return -1;
    if (!is_emitted(kByteTraceLevel)) return has_bits(*bb, n) ? write_silently(*bb, n, value) : -1;
    unsigned char scratch[8];
    h264::store_big_endian(scratch, value << (64 - n));
    return SetNextNBitsFromString(bb, n, scratch);
}

// A sign bit and n - 1 magnitude bits: with n = Width + 1 too, which the precondition excludes.
template <unsigned int Width, typename T, typename Unsigned>
[[gnu::noinline]] int read_signed(bitbuffer_t* bb, unsigned int n, T* value,
                                  int (*read_magnitude)(bitbuffer_t*, unsigned int, Unsigned*), const char* function,
                                  const char* fits) {
    DO_ASSERT_AS(function, bb != NULL);
    if (n > Width) _DoAssert(fits, function, kModuleFile, __LINE__);
    if (bb == nullptr || n < kLeastSigned) return -1;
    if (n <= Width && !is_emitted(kByteTraceLevel)) return has_bits(*bb, n) ? read_signed_silently(*bb, n, value) : -1;
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

}  // namespace

int GetNextNBitsAsUint8(bitbuffer_t* bb, unsigned int n, unsigned char* value) {
    if (is_plain_field<8>(bb, n)) return read_silently(*bb, n, value);
    return read_unsigned<8>(bb, n, value, __func__, "n <= 8");
}

int SetNextNBitsFromUint8(bitbuffer_t* bb, unsigned int n, unsigned char value) {
    if (is_plain_field<8>(bb, n)) return write_silently(*bb, n, value);
    return write_bits<8>(bb, n, value, kLeastUnsigned, __func__, "n <= 8");
}

int GetNextNBitsAsUint16(bitbuffer_t* bb, unsigned int n, unsigned short* value) {
    if (is_plain_field<16>(bb, n)) return read_silently(*bb, n, value);
    return read_unsigned<16>(bb, n, value, __func__, "n <= 16");
}

int SetNextNBitsFromUint16(bitbuffer_t* bb, unsigned int n, unsigned short value) {
    if (is_plain_field<16>(bb, n)) return write_silently(*bb, n, value);
    return write_bits<16>(bb, n, value, kLeastUnsigned, __func__, "n <= 16");
}

int GetNextNBitsAsUint32(bitbuffer_t* bb, unsigned int n, unsigned long* value) {
    if (is_plain_field<32>(bb, n)) return read_silently(*bb, n, value);
    return read_unsigned<32>(bb, n, value, __func__, "n <= 32");
}

int SetNextNBitsFromUint32(bitbuffer_t* bb, unsigned int n, unsigned long value) {
    if (is_plain_field<32>(bb, n)) return write_silently(*bb, n, value);
    return write_bits<32>(bb, n, value, kLeastUnsigned, __func__, "n <= 32");
}

int GetNextNBitsAsUint64(bitbuffer_t* bb, unsigned int n, unsigned long long* value) {
    if (is_plain_field<64>(bb, n)) return read_silently(*bb, n, value);
    return read_unsigned<64>(bb, n, value, __func__, "n <= 64");
}

int SetNextNBitsFromUint64(bitbuffer_t* bb, unsigned int n, unsigned long long value) {
    if (is_plain_field<64>(bb, n)) return write_silently(*bb, n, value);
    return write_bits<64>(bb, n, value, kLeastUnsigned, __func__, "n <= 64");
}

int GetNextNBitsAsInt8(bitbuffer_t* bb, unsigned int n, char* value) {
    if (n >= kLeastSigned && is_plain_field<8>(bb, n)) return read_signed_silently(*bb, n, value);
    return read_signed<8>(bb, n, value, GetNextNBitsAsUint8, __func__, "n <= 8");
}

int SetNextNBitsFromInt8(bitbuffer_t* bb, unsigned int n, char value) {
    const std::uint64_t bits = as_bits(value);
    if (n >= kLeastSigned && is_plain_field<8>(bb, n)) return write_silently(*bb, n, bits);
    return write_bits<8>(bb, n, bits, kLeastSigned, __func__, "n <= 8");
}

int GetNextNBitsAsInt16(bitbuffer_t* bb, unsigned int n, short* value) {
    if (n >= kLeastSigned && is_plain_field<16>(bb, n)) return read_signed_silently(*bb, n, value);
    return read_signed<16>(bb, n, value, GetNextNBitsAsUint16, __func__, "n <= 16");
}

int SetNextNBitsFromInt16(bitbuffer_t* bb, unsigned int n, short value) {
    const std::uint64_t bits = as_bits(value);
    if (n >= kLeastSigned && is_plain_field<16>(bb, n)) return write_silently(*bb, n, bits);
    return write_bits<16>(bb, n, bits, kLeastSigned, __func__, "n <= 16");
}

int GetNextNBitsAsInt32(bitbuffer_t* bb, unsigned int n, long* value) {
    if (n >= kLeastSigned && is_plain_field<32>(bb, n)) return read_signed_silently(*bb, n, value);
    return read_signed<32>(bb, n, value, GetNextNBitsAsUint32, __func__, "n <= 32");
}

int SetNextNBitsFromInt32(bitbuffer_t* bb, unsigned int n, long value) {
    const std::uint64_t bits = as_bits(value);
    if (n >= kLeastSigned && is_plain_field<32>(bb, n)) return write_silently(*bb, n, bits);
    return write_bits<32>(bb, n, bits, kLeastSigned, __func__, "n <= 32");
}

int GetNextNBitsAsInt64(bitbuffer_t* bb, unsigned int n, long long* value) {
    if (n >= kLeastSigned && is_plain_field<64>(bb, n)) return read_signed_silently(*bb, n, value);
    return read_signed<64>(bb, n, value, GetNextNBitsAsUint64, __func__, "n <= 64");
}

int SetNextNBitsFromInt64(bitbuffer_t* bb, unsigned int n, long long value) {
    const std::uint64_t bits = as_bits(value);
    if (n >= kLeastSigned && is_plain_field<64>(bb, n)) return write_silently(*bb, n, bits);
    return write_bits<64>(bb, n, bits, kLeastSigned, __func__, "n <= 64");
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
