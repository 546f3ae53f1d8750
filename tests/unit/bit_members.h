// The typed readers and writers of bit fields in one shape, so that a test can go through all of them.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "bit_model.h"
#include "bitbuffer.h"

namespace test {

// Every member takes and gives its value as 64 bits, sign-extended for signed types.
template <typename Type, int (*Get)(bitbuffer_t*, unsigned, Type*)>
int get_bits(bitbuffer_t* bb, unsigned n, std::uint64_t* value) {
    if (value == nullptr) return Get(bb, n, nullptr);
    Type typed = static_cast<Type>(*value);
    const int result = Get(bb, n, &typed);
    *value = static_cast<std::uint64_t>(typed);
    return result;
}
template <typename Type, int (*Set)(bitbuffer_t*, unsigned, Type)>
int set_bits(bitbuffer_t* bb, unsigned n, std::uint64_t value) {
    return Set(bb, n, static_cast<Type>(value));
}
template <typename Type>
std::uint64_t as_bits(std::uint64_t value) {
    return static_cast<std::uint64_t>(static_cast<Type>(value));
}

struct BitMember {
    std::string name;  // what stands behind GetNextNBitsAs and SetNextNBitsFrom
    unsigned width;
    bool is_signed;
    int (*get)(bitbuffer_t*, unsigned, std::uint64_t*);
    int (*set)(bitbuffer_t*, unsigned, std::uint64_t);
    std::uint64_t (*as_type)(std::uint64_t);

    unsigned least() const { return is_signed ? 2 : 1; }
    std::string reader() const { return "GetNextNBitsAs" + name; }
    std::string writer() const { return "SetNextNBitsFrom" + name; }
    std::string range_assertion() const { return "n <= " + std::to_string(width); }
    int expected_get(BitModel& model, unsigned n, std::uint64_t* value) const {
        const int result = is_signed ? model.get_signed(width, n, value) : model.get_unsigned(width, n, value);
        *value = as_type(*value);
        return result;
    }
};

inline void PrintTo(const BitMember& member, std::ostream* out) { *out << member.name; }

template <typename Type, int (*Get)(bitbuffer_t*, unsigned, Type*), int (*Set)(bitbuffer_t*, unsigned, Type)>
BitMember bit_member(const char* name, unsigned width, bool is_signed) {
    return {name, width, is_signed, get_bits<Type, Get>, set_bits<Type, Set>, as_bits<Type>};
}

inline const BitMember kBitMembers[] = {
    bit_member<unsigned char, GetNextNBitsAsUint8, SetNextNBitsFromUint8>("Uint8", 8, false),
    bit_member<unsigned short, GetNextNBitsAsUint16, SetNextNBitsFromUint16>("Uint16", 16, false),
    bit_member<unsigned long, GetNextNBitsAsUint32, SetNextNBitsFromUint32>("Uint32", 32, false),
    bit_member<unsigned long long, GetNextNBitsAsUint64, SetNextNBitsFromUint64>("Uint64", 64, false),
    bit_member<char, GetNextNBitsAsInt8, SetNextNBitsFromInt8>("Int8", 8, true),
    bit_member<short, GetNextNBitsAsInt16, SetNextNBitsFromInt16>("Int16", 16, true),
    bit_member<long, GetNextNBitsAsInt32, SetNextNBitsFromInt32>("Int32", 32, true),
    bit_member<long long, GetNextNBitsAsInt64, SetNextNBitsFromInt64>("Int64", 64, true),
};

}  // namespace test
