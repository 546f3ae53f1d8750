// Random programs of bit buffer operations, for the library and for the model.
#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "bit_members.h"
#include "bit_model.h"
#include "bitbuffer.h"
#include "guarded_buffer.h"

namespace test {

enum class Op {
    kSeek,
    kAdvance,
    kGetBit,
    kSetBit,
    kGetString,
    kSetString,
    kGetField,
    kSetField,
    kCount,
    kSkipGolomb,
    kGetUe32,
    kGetUe64,
    kGetSe32,
    kGetSe64,
    kSetUe32,
    kSetUe64,
    kSetSe32,
    kSetSe64,
    kDisplay,
    kDisplayInfo,
    kEnd
};

struct Instruction {
    Op op;
    std::uint32_t n;      // bits, position or member
    std::uint64_t value;  // value to write
    bool null;            // without a destination or source
    unsigned size;        // OutSizeBytes
    unsigned member;
};

struct BitProgram {
    Bytes area;
    std::uint32_t num_bits;
    std::vector<Instruction> instructions;
};

// What an instruction gives: everything that a caller can see of it.
struct Step {
    int result = 0;
    std::uint64_t value = 0x5A5A5A5A5A5A5A5A;
    Bytes out;
    std::uint32_t offset = 0;
    bool operator==(const Step&) const = default;
};

struct ProgramOutcome {
    std::vector<Step> steps;
    Bytes area;
};

// source: below(limit) gives a number below the limit, any() one of 64 bits.
template <class Source>
BitProgram make_bit_program(Source& source, unsigned bytes, bool sparse, int instructions) {
    const auto below = [&](std::uint64_t limit) { return static_cast<std::uint32_t>(source.below(limit)); };
    BitProgram program;
    program.area.resize(bytes);
    // A sparse area holds long runs and long codes.
    for (unsigned char& byte : program.area)
        byte = static_cast<unsigned char>(!sparse || below(6) == 0 ? source.any() : 0);
    program.num_bits = static_cast<std::uint32_t>(8 * program.area.size()) - below(8);
    for (int i = 0; i < instructions; ++i) {
        Instruction instruction{};
        instruction.op = static_cast<Op>(below(static_cast<std::uint64_t>(Op::kEnd)));
        instruction.null = below(6) == 0;
        instruction.value = source.any() >> below(64);
        instruction.member = below(8);
        switch (instruction.op) {
            case Op::kSeek:
                instruction.n = below(program.num_bits + (below(4) == 0 ? 20 : 1));
                break;
            case Op::kAdvance:
                instruction.n = below(4) == 0 ? 0 - below(30) : below(20);
                break;
            case Op::kGetString:
            case Op::kSetString:
                instruction.n = below(below(4) == 0 ? 140 : 20);
                break;
            case Op::kGetField:
            case Op::kSetField:
                instruction.n = below(kBitMembers[instruction.member].width + 3);
                break;
            default:
                instruction.n = below(2);
        }
        instruction.size = (instruction.n + 7) / 8;
        if (below(10) == 0) instruction.size = below(instruction.size + 3);
        // Codes of 2^32 - 1 modulo 2^32 and of 2^64 - 1 are outside the writers' contracts; so are signed 32-bit
        // values beyond 31 bits.
        if ((instruction.value & 0xFFFFFFFF) == 0xFFFFFFFF) instruction.value ^= 1;
        if (instruction.op == Op::kSetSe32) instruction.value &= 0x7FFFFFFF;
        if (instruction.op == Op::kSetSe64) instruction.value >>= 1;
        if (instruction.null) instruction.value = 0;
        if ((instruction.op == Op::kSetSe32 || instruction.op == Op::kSetSe64) && instruction.n != 0)
            instruction.value = 0 - instruction.value;
        program.instructions.push_back(instruction);
    }
    return program;
}

inline BitProgram random_bit_program(unsigned seed) {
    struct {
        std::mt19937_64 random;
        std::uint64_t any() { return random(); }
        std::uint64_t below(std::uint64_t limit) { return random() % limit; }
    } source{std::mt19937_64(seed)};
    const auto bytes = static_cast<unsigned>(1 + source.below(seed % 4 == 0 ? 200 : 12));
    return make_bit_program(source, bytes, seed % 2 != 0, 120);
}

// What kSetString writes: a string of n bits made from value.
inline Bytes string_of(const Instruction& instruction) {
    if (instruction.op != Op::kSetString) return {};
    Bytes string((instruction.n + 7) / 8);
    std::uint64_t next = instruction.value;
    for (unsigned char& byte : string) byte = static_cast<unsigned char>(next = next * 5 + 0x3B);
    return string;
}

inline Step run(const Instruction& instruction, BitModel& model) {
    Step step;
    std::uint64_t* value = instruction.null ? nullptr : &step.value;
    auto* number = reinterpret_cast<std::int64_t*>(value);
    int small = 0;
    unsigned num = 0;
    const auto signed_value = static_cast<std::int64_t>(instruction.value);
    const BitMember& member = kBitMembers[instruction.member];
    switch (instruction.op) {
        case Op::kSeek:
            model.offset = instruction.n;
            break;
        case Op::kAdvance:
            step.result = model.advance(instruction.n);
            break;
        case Op::kGetBit:
            step.result = model.get_bit(instruction.null ? nullptr : &small);
            break;
        case Op::kSetBit:
            step.result = model.set_bit(instruction.n);
            break;
        case Op::kGetString:
            step.out.assign(instruction.size, 0xCD);
            step.result = model.get_string(instruction.n, instruction.null ? nullptr : &step.out);
            break;
        case Op::kSetString: {
            const Bytes string = string_of(instruction);
            step.result = model.set_string(instruction.n, instruction.null ? nullptr : &string);
            break;
        }
        case Op::kGetField: {
            std::uint64_t field = step.value;
            step.result = member.expected_get(model, instruction.n, &field);
            if (value != nullptr) *value = field;
            break;
        }
        case Op::kSetField:
            step.result = model.set_field(member.width, member.least(), instruction.n, instruction.value);
            break;
        case Op::kCount:
            step.result = model.count(instruction.n, instruction.null ? nullptr : &num);
            break;
        case Op::kSkipGolomb:
            step.result = model.skip_golomb(instruction.null ? nullptr : &small);
            break;
        case Op::kGetUe32:
            step.result = model.get_golomb(31, value);
            break;
        case Op::kGetUe64:
            step.result = model.get_golomb(63, value);
            break;
        case Op::kGetSe32:
            step.result = model.get_signed_golomb(31, number);
            break;
        case Op::kGetSe64:
            step.result = model.get_signed_golomb(63, number);
            break;
        case Op::kSetUe32:
            step.result = model.set_golomb32(instruction.value);
            break;
        case Op::kSetUe64:
            step.result = model.set_golomb64(instruction.value);
            break;
        case Op::kSetSe32:
            step.result = model.set_golomb32(BitModel::signed_code(signed_value));
            break;
        case Op::kSetSe64:
            step.result = model.set_golomb64(BitModel::signed_code(signed_value));
            break;
        case Op::kDisplay:
        case Op::kDisplayInfo:
        case Op::kEnd:
            break;
    }
    step.value += static_cast<unsigned>(small) + num;
    step.offset = model.offset;
    return step;
}

inline Step run(const Instruction& instruction, bitbuffer_t* bb) {
    Step step;
    int small = 0;
    unsigned num = 0;
    auto u32 = static_cast<unsigned long>(step.value);
    auto u64 = static_cast<unsigned long long>(step.value);
    auto s32 = static_cast<long>(step.value);
    auto s64 = static_cast<long long>(step.value);
    const bool null = instruction.null;
    const auto signed_value = static_cast<std::int64_t>(instruction.value);
    const BitMember& member = kBitMembers[instruction.member];
    switch (instruction.op) {
        case Op::kSeek:
            bb->bit_offset = instruction.n;
            break;
        case Op::kAdvance:
            step.result = AdvanceBitOffset(bb, instruction.n);
            break;
        case Op::kGetBit:
            step.result = GetNextBitEx(bb, null ? nullptr : &small);
            break;
        case Op::kSetBit:
            step.result = DoSetNextBit(bb, instruction.n);
            break;
        case Op::kGetString:
            step.out.assign(instruction.size, 0xCD);
            step.result = GetNextNBitsAsStringEx(bb, instruction.n, null ? nullptr : step.out.data(), instruction.size);
            break;
        case Op::kSetString: {
            const Bytes string = string_of(instruction);
            step.result = SetNextNBitsFromString(bb, instruction.n, null ? nullptr : string.data());
            break;
        }
        case Op::kGetField:
            step.result = member.get(bb, instruction.n, null ? nullptr : &step.value);
            break;
        case Op::kSetField:
            step.result = member.set(bb, instruction.n, instruction.value);
            break;
        case Op::kCount:
            step.result = CountConsecutiveBits(bb, instruction.n, null ? nullptr : &num);
            break;
        case Op::kSkipGolomb:
            step.result = SkipGolomb(bb, null ? nullptr : &small);
            break;
        case Op::kGetUe32:
            step.result = GetUint32Golomb(bb, null ? nullptr : &u32);
            step.value = u32;
            break;
        case Op::kGetUe64:
            step.result = GetUint64Golomb(bb, null ? nullptr : &u64);
            step.value = u64;
            break;
        case Op::kGetSe32:
            step.result = GetInt32Golomb(bb, null ? nullptr : &s32);
            step.value = static_cast<std::uint64_t>(s32);
            break;
        case Op::kGetSe64:
            step.result = GetInt64Golomb(bb, null ? nullptr : &s64);
            step.value = static_cast<std::uint64_t>(s64);
            break;
        case Op::kSetUe32:
            step.result = SetUint32Golomb(bb, instruction.value);
            break;
        case Op::kSetUe64:
            step.result = SetUint64Golomb(bb, instruction.value);
            break;
        case Op::kSetSe32:
            step.result = SetInt32Golomb(bb, signed_value);
            break;
        case Op::kSetSe64:
            step.result = SetInt64Golomb(bb, signed_value);
            break;
        case Op::kDisplay:
            DisplayBitBuffer(bb, "program");
            break;
        case Op::kDisplayInfo:
            DisplayBitBufferInfo(bb, "program");
            break;
        case Op::kEnd:
            break;
    }
    step.value += static_cast<unsigned>(small) + num;
    step.offset = bb->bit_offset;
    return step;
}

// The area ends at unreadable memory. Messages of one program are the same in every run over the same area.
inline ProgramOutcome run_library(const BitProgram& program, GuardedBuffer& area) {
    std::copy(program.area.begin(), program.area.end(), area.data());
    bitbuffer_t bb = {area.data(), 0, program.num_bits};
    ProgramOutcome outcome;
    for (const Instruction& instruction : program.instructions) outcome.steps.push_back(run(instruction, &bb));
    outcome.area = area.bytes();
    return outcome;
}

inline ProgramOutcome run_model(const BitProgram& program) {
    BitModel model(program.area, program.num_bits);
    ProgramOutcome outcome;
    for (const Instruction& instruction : program.instructions) outcome.steps.push_back(run(instruction, model));
    outcome.area = model.bytes;
    return outcome;
}

}  // namespace test
