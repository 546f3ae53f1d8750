// Exp-Golomb codes, ITU-T H.264 9.1: z zeros, a one, and z suffix bits; the value is 2^z - 1 + suffix.
#include <bit>
#include <climits>

#include "bit_window.h"
#include "trace.h"

static constexpr char kModuleFile[] = "golomb.c";

static_assert(sizeof(long) == 8 && sizeof(long long) == 8 && CHAR_MIN < 0, "LP64 with signed char");

namespace {

using h264::BitWindow;
using h264::is_emitted;
using h264::kByteTraceLevel;

// Reads a code that lies whole in one window. False, with nothing consumed, when it does not, or when the steps of the
// general reader are to be reported.
bool read_short_code(bitbuffer_t* bb, std::uint64_t& value) {
    if (bb == nullptr || is_emitted(kByteTraceLevel)) return false;
    const BitWindow window = h264::peek(*bb);
    const auto zeros = static_cast<unsigned int>(std::countl_zero(window.bits));
    const unsigned int length = 2 * zeros + 1;
    if (zeros > 31 || length > window.count) return false;
    bb->bit_offset += length;
    value = (window.bits >> (64 - length)) - 1;
    return true;
}

// The general reader of GetUint32Golomb; function: that name.
[[gnu::noinline]] int read_code32(bitbuffer_t* bb, unsigned long* value, const char* function) {
    DO_ASSERT_AS(function, bb != NULL);
    unsigned int zeros = 0;
    if (bb == nullptr || CountConsecutiveBits(bb, 0, &zeros) != 0) return -1;
    if (zeros == 0) {
        if (value != nullptr) {
            LOG_AS(function, 8, "BBoffset:%d, Value:%d.", static_cast<int>(bb->bit_offset), 0);
            *value = 0;
        }
        return 0;
    }
    if (zeros > 31) return -1;
    unsigned long suffix = 0;
    if (GetNextNBitsAsUint32(bb, zeros, &suffix) != 0) return -1;
    if (value != nullptr) {
        LOG_AS(function, 8, "BBoffset:%d, LeadingZerobits:%d, RemainderSuffix:%d.", static_cast<int>(bb->bit_offset),
               static_cast<int>(zeros), h264::low32s(suffix));
        *value = (1UL << zeros) - 1 + suffix;
    }
    return 0;
}

// se(v) of a code number, ITU-T H.264 9.1.1.
long long signed_value(std::uint64_t code) {
    const auto half = static_cast<long long>(code / 2);
    return code % 2 != 0 ? half + 1 : -half;
}

// The code number of a value that is not 0; modulo 2^64 for the smallest of all.
std::uint64_t code_number(long long value) {
    const auto bits = static_cast<std::uint64_t>(value);
    return value > 0 ? 2 * bits - 1 : 2 * (0 - bits);
}

unsigned int floor_log2(std::uint64_t value) {
    return value == 0 ? 0 : static_cast<unsigned int>(std::bit_width(value)) - 1;
}

}  // namespace

int SkipGolomb(bitbuffer_t* bb, int* num) {
    DO_ASSERT(bb != NULL);
    unsigned int zeros = 0;
    if (bb == nullptr || CountConsecutiveBits(bb, 0, &zeros) != 0) return -1;
    // The suffix may be truncated: the position then lies behind the end, and the next access fails.
    bb->bit_offset += zeros;
    if (num != nullptr) *num = static_cast<int>(2 * zeros + 1);
    return 0;
}

int GetUint32Golomb(bitbuffer_t* bb, unsigned long* value) {
    if (std::uint64_t code = 0; read_short_code(bb, code)) {
        if (value != nullptr) *value = code;
        return 0;
    }
    return read_code32(bb, value, __func__);
}

int GetUint64Golomb(bitbuffer_t* bb, unsigned long long* value) {
    if (std::uint64_t code = 0; read_short_code(bb, code)) {
        if (value != nullptr) *value = code;
        return 0;
    }
    DO_ASSERT(bb != NULL);
    unsigned int zeros = 0;
    unsigned long long suffix = 0;
    if (bb == nullptr || CountConsecutiveBits(bb, 0, &zeros) != 0 || zeros > 63) return -1;
    if (zeros > 0 && GetNextNBitsAsUint64(bb, zeros, &suffix) != 0) return -1;
    if (value != nullptr) *value = (1ULL << zeros) + suffix - 1;
    return 0;
}

int GetInt32Golomb(bitbuffer_t* bb, long* value) {
    DO_ASSERT(bb != NULL);
    unsigned long code = 0;
    if (bb == nullptr || GetUint32Golomb(bb, &code) != 0) return -1;
    if (value != nullptr) *value = static_cast<long>(signed_value(code));
    return 0;
}

int GetInt64Golomb(bitbuffer_t* bb, long long* value) {
    DO_ASSERT(bb != NULL);
    unsigned long long code = 0;
    if (bb == nullptr || GetUint64Golomb(bb, &code) != 0) return -1;
    if (value != nullptr) *value = signed_value(code);
    return 0;
}

int SetUint32Golomb(bitbuffer_t* bb, unsigned long value) {
    DO_ASSERT(bb != NULL);
    if (bb == nullptr) return -1;
    if (value == 0) return __DoSetNextBit(bb, 1, __func__, kModuleFile, __LINE__);

    const auto code = static_cast<std::uint32_t>(value + 1);
    const unsigned int zeros = floor_log2(code);
    unsigned char scratch[8] = {};

    const std::uint32_t prefix = std::uint32_t{1} << (31 - zeros);
    h264::store_big_endian(scratch, std::uint64_t{prefix} << 32);
    LOG(8, "BBoffset:%d, num_bits:%d, value:%#x", static_cast<int>(bb->bit_offset), static_cast<int>(zeros + 1),
        prefix);
    LOG_BUFFER(8, scratch, sizeof scratch, "integer union buf");
    if (SetNextNBitsFromString(bb, zeros + 1, scratch) != 0) return -1;

    const auto suffix = static_cast<std::uint32_t>(std::uint64_t{code - (1U << zeros)} << (32 - zeros));
    h264::store_big_endian(scratch, std::uint64_t{suffix} << 32);
    LOG(8, "BBoffset:%d, num_bits:%d, value:%#x", static_cast<int>(bb->bit_offset), static_cast<int>(zeros), suffix);
    LOG_BUFFER(8, scratch, sizeof scratch, "integer union buf");
    return SetNextNBitsFromString(bb, zeros, scratch);
}

int SetUint64Golomb(bitbuffer_t* bb, unsigned long long value) {
    DO_ASSERT(bb != NULL);
    if (bb == nullptr) return -1;
    if (value == 0) return __DoSetNextBit(bb, 1, __func__, kModuleFile, __LINE__);

    const std::uint64_t code = value + 1;
    const unsigned int zeros = floor_log2(code);
    unsigned char scratch[8];

    h264::store_big_endian(scratch, std::uint64_t{1} << (63 - zeros));
    if (SetNextNBitsFromString(bb, zeros + 1, scratch) != 0) return -1;
    if (zeros == 0) return 0;

    // A 32-bit signed 1 << (zeros % 32) is subtracted where the standard has 2^zeros, so that codes with more than 31
    // zeros (values from 2^32 - 1 on) get another suffix. This is meant: what programs have written stays what it is.
    const auto subtracted = static_cast<std::int64_t>(static_cast<std::int32_t>(std::uint32_t{1} << zeros % 32));
    h264::store_big_endian(scratch, (code - static_cast<std::uint64_t>(subtracted)) << (64 - zeros));
    return SetNextNBitsFromString(bb, zeros, scratch);
}

int SetInt32Golomb(bitbuffer_t* bb, long value) {
    DO_ASSERT(bb != NULL);
    if (bb == nullptr) return -1;
    if (value == 0) return __DoSetNextBit(bb, 1, __func__, kModuleFile, __LINE__);
    return SetUint32Golomb(bb, code_number(value));
}

int SetInt64Golomb(bitbuffer_t* bb, long long value) {
    DO_ASSERT(bb != NULL);
    if (bb == nullptr) return -1;
    if (value == 0) return __DoSetNextBit(bb, 1, __func__, kModuleFile, __LINE__);
    return SetUint64Golomb(bb, code_number(value));
}
