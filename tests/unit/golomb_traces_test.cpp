// What the Exp-Golomb functions report: codes at level 8, failed preconditions.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "bit_writer.h"
#include "bitbuffer.h"
#include "diagnostics.h"
#include "guarded_buffer.h"

namespace {

using test::BitWriter;
using test::Bytes;
using test::GuardedBuffer;
using Texts = std::vector<std::string>;

bitbuffer_t over(GuardedBuffer& area, unsigned offset = 0) {
    return {area.data(), offset, static_cast<unsigned>(8 * area.size())};
}

void expect_from_golomb(const std::string& func) {
    for (const test::Message& message : test::records().messages) {
        if (message.level != 8) continue;
        EXPECT_EQ(message.func, func);
        EXPECT_EQ(message.file, "golomb.c");
        EXPECT_GT(message.line, 0);
        EXPECT_EQ(message.text.back(), '\n');
    }
}

std::string value_text(unsigned offset) { return "BBoffset:" + std::to_string(offset) + ", Value:0."; }
std::string suffix_text(unsigned offset, unsigned zeros, std::int32_t suffix) {
    return "BBoffset:" + std::to_string(offset) + ", LeadingZerobits:" + std::to_string(zeros) +
           ", RemainderSuffix:" + std::to_string(suffix) + ".";
}

TEST(GolombReadTraces, CodeNumberZero) {
    GuardedBuffer area(Bytes{0xFF});
    for (const bool is_signed : {false, true}) {
        test::reset(8);
        bitbuffer_t bb = over(area, 2);
        unsigned long value = 77;
        long number = 77;
        EXPECT_EQ(is_signed ? GetInt32Golomb(&bb, &number) : GetUint32Golomb(&bb, &value), 0);
        EXPECT_EQ(test::texts(8), Texts{value_text(3)});
        EXPECT_EQ(test::records().messages.size(), 1U);
        expect_from_golomb("GetUint32Golomb");
    }
}

TEST(GolombReadTraces, EveryNumberOfLeadingZeros) {
    for (unsigned zeros = 1; zeros <= 31; ++zeros) {
        const std::uint64_t suffix = 0x9E3779B9 & ((std::uint64_t{1} << zeros) - 1);
        GuardedBuffer area(BitWriter().u(3, 0).u(zeros, 0).u(1, 1).u(zeros, suffix).bytes());
        for (const bool is_signed : {false, true}) {
            test::reset(8);
            bitbuffer_t bb = over(area, 3);
            unsigned long value = 77;
            long number = 77;
            EXPECT_EQ(is_signed ? GetInt32Golomb(&bb, &number) : GetUint32Golomb(&bb, &value), 0);
            EXPECT_EQ(test::texts(8), Texts{suffix_text(4 + 2 * zeros, zeros, static_cast<std::int32_t>(suffix))});
            expect_from_golomb("GetUint32Golomb");
            // The suffix has been read before.
            EXPECT_EQ(test::records().messages.back().level, 8);
            EXPECT_FALSE(test::texts(7).empty());
        }
    }
}

TEST(GolombReadTraces, WithoutADestination) {
    GuardedBuffer area(Bytes{0xA4});  // 1, 0 1 0, 0 1 0 and a zero
    test::reset(8);
    bitbuffer_t bb = over(area);
    EXPECT_EQ(GetUint32Golomb(&bb, nullptr), 0);
    EXPECT_EQ(GetUint32Golomb(&bb, nullptr), 0);
    EXPECT_EQ(bb.bit_offset, 4U);
    EXPECT_TRUE(test::texts(8).empty());
    // The signed reader reads the code number into a place of its own.
    EXPECT_EQ(GetInt32Golomb(&bb, nullptr), 0);
    EXPECT_EQ(test::texts(8), Texts{suffix_text(7, 1, 0)});
}

TEST(GolombReadTraces, NoneFor64BitReadersSkippingAndFailures) {
    GuardedBuffer area(BitWriter().ue(0).ue(5).se(0).se(-3).ue(7).ue(0).u(32, 0).u(1, 1).u(10, 0).bytes());
    test::reset(8);
    bitbuffer_t bb = over(area);
    unsigned long long value = 77;
    long long number = 77;
    unsigned long value32 = 77;
    int length = 0;
    EXPECT_EQ(GetUint64Golomb(&bb, &value), 0);
    EXPECT_EQ(GetUint64Golomb(&bb, &value), 0);
    EXPECT_EQ(value, 5U);
    EXPECT_EQ(GetInt64Golomb(&bb, &number), 0);
    EXPECT_EQ(GetInt64Golomb(&bb, &number), 0);
    EXPECT_EQ(number, -3);
    EXPECT_EQ(SkipGolomb(&bb, &length), 0);
    EXPECT_EQ(SkipGolomb(&bb, &length), 0);
    EXPECT_EQ(length, 1);
    EXPECT_EQ(GetUint32Golomb(&bb, &value32), -1);  // 32 zeros
    EXPECT_EQ(GetUint32Golomb(&bb, &value32), -1);  // zeros up to the end
    for (const test::Message& message : test::records().messages) {
        EXPECT_EQ(message.level, 7);
        EXPECT_EQ(message.file, "bitbuffer.c");
    }
    EXPECT_TRUE(test::records().dumps.empty());
}

struct Part {
    unsigned offset;  // before it is written
    unsigned bits;
    std::uint32_t scratch;
};

// Texts and dumps of level 8, each text before its dump and both before the traces of the write.
void expect_parts(const std::vector<Part>& parts) {
    expect_from_golomb("SetUint32Golomb");
    std::vector<const test::Message*> messages;
    for (const test::Message& message : test::records().messages)
        if (message.level == 8) messages.push_back(&message);
    const auto& dumps = test::records().dumps;
    ASSERT_EQ(messages.size(), parts.size());
    ASSERT_EQ(dumps.size(), parts.size());
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const Part& part = parts[i];
        char text[80];
        snprintf(text, sizeof text, "BBoffset:%u, num_bits:%u, value:%#x\n", part.offset, part.bits, part.scratch);
        EXPECT_EQ(messages[i]->text, text);
        EXPECT_EQ(dumps[i].level, 8);
        EXPECT_EQ(dumps[i].label, "integer union buf");
        EXPECT_EQ(dumps[i].func, "SetUint32Golomb");
        EXPECT_EQ(dumps[i].file, "golomb.c");
        EXPECT_GT(dumps[i].line, 0);
        EXPECT_EQ(dumps[i].bytes, BitWriter().u(32, part.scratch).u(32, 0).bytes());
        EXPECT_EQ(dumps[i].order, messages[i]->order + 1);
        // From here to the next part: what the write of the string traces.
        for (const test::Message& message : test::records().messages)
            if (message.order > dumps[i].order && (i + 1 == parts.size() || message.order < messages[i + 1]->order)) {
                EXPECT_EQ(message.level, 7);
                EXPECT_EQ(message.func, "SetNextNBitsFromString");
            }
    }
    if (parts.size() == 2) {
        EXPECT_GT(messages[1]->order, dumps[0].order + 1);
    }
}

TEST(GolombWriteTraces, PrefixAndSuffix) {
    for (unsigned zeros = 1; zeros <= 31; ++zeros)
        for (const std::uint64_t suffix :
             {std::uint64_t{0}, std::uint64_t{1}, 0x9E3779B9 & ((std::uint64_t{1} << zeros) - 1)}) {
            GuardedBuffer area(10);
            test::reset(8);
            bitbuffer_t bb = over(area, 5);
            EXPECT_EQ(SetUint32Golomb(&bb, (1UL << zeros) - 1 + suffix), 0);
            const auto left_aligned = static_cast<std::uint32_t>(suffix << (32 - zeros));
            expect_parts({{5, zeros + 1, 1U << (31 - zeros)}, {6 + zeros, zeros, left_aligned}});
        }
}

TEST(GolombWriteTraces, SignedIsTracedAsUnsigned) {
    GuardedBuffer area(2);
    test::reset(8);
    bitbuffer_t bb = over(area);
    EXPECT_EQ(SetInt32Golomb(&bb, -2), 0);  // code number 4, 0 0 1 and 0 1
    expect_parts({{0, 3, 0x20000000}, {3, 2, 0x40000000}});
}

TEST(GolombWriteTraces, PartsThatDoNotFitAreTracedBeforeTheyFail) {
    GuardedBuffer area(1);
    test::reset(8);
    bitbuffer_t bb = {area.data(), 0, 2};
    EXPECT_EQ(SetUint32Golomb(&bb, 3), -1);
    expect_parts({{0, 3, 0x20000000}});
    test::reset(8);
    bb = {area.data(), 0, 4};
    EXPECT_EQ(SetUint32Golomb(&bb, 3), -1);
    expect_parts({{0, 3, 0x20000000}, {3, 2, 0}});
}

TEST(GolombWriteTraces, NoneForZeroAnd64BitWriters) {
    GuardedBuffer area(40);
    test::reset(8);
    bitbuffer_t bb = over(area);
    EXPECT_EQ(SetUint32Golomb(&bb, 0), 0);
    EXPECT_EQ(SetInt32Golomb(&bb, 0), 0);
    EXPECT_TRUE(test::records().messages.empty());
    EXPECT_EQ(SetUint64Golomb(&bb, 0), 0);
    EXPECT_EQ(SetInt64Golomb(&bb, 0), 0);
    EXPECT_EQ(SetUint64Golomb(&bb, 1000), 0);
    EXPECT_EQ(SetInt64Golomb(&bb, -1000), 0);
    EXPECT_EQ(SetInt64Golomb(&bb, 1000), 0);
    for (const test::Message& message : test::records().messages) {
        EXPECT_EQ(message.level, 7);
        EXPECT_EQ(message.file, "bitbuffer.c");
    }
    EXPECT_TRUE(test::records().dumps.empty());
}

TEST(GolombPreconditions, NullBitBufferIsReportedByTheFunctionThatWasCalled) {
    unsigned long u32 = 7;
    unsigned long long u64 = 7;
    long s32 = 7;
    long long s64 = 7;
    int length = 7;
    for (const int level : {0, 8}) {
        const auto expect_report = [&](const std::string& func, const auto& call) {
            test::reset(level);
            EXPECT_EQ(call(), -1) << func;
            ASSERT_FALSE(test::records().assertions.empty()) << func;
            EXPECT_EQ(test::records().assertions[0].func, func);
            EXPECT_EQ(test::records().assertions[0].file, "golomb.c");
            EXPECT_GT(test::records().assertions[0].line, 0);
            EXPECT_FALSE(test::records().assertions[0].with_caller);
            for (const std::string& expression : test::assertions()) EXPECT_EQ(expression, "bb != NULL");
        };
        expect_report("SkipGolomb", [&] { return SkipGolomb(nullptr, &length); });
        expect_report("SkipGolomb", [&] { return SkipGolomb(nullptr, nullptr); });
        expect_report("GetUint32Golomb", [&] { return GetUint32Golomb(nullptr, &u32); });
        expect_report("GetUint64Golomb", [&] { return GetUint64Golomb(nullptr, &u64); });
        expect_report("GetInt32Golomb", [&] { return GetInt32Golomb(nullptr, &s32); });
        expect_report("GetInt64Golomb", [&] { return GetInt64Golomb(nullptr, &s64); });
        for (const int value : {0, 1, 1000}) {
            expect_report("SetUint32Golomb", [&] { return SetUint32Golomb(nullptr, static_cast<unsigned>(value)); });
            expect_report("SetUint64Golomb", [&] { return SetUint64Golomb(nullptr, static_cast<unsigned>(value)); });
            expect_report("SetInt32Golomb", [&] { return SetInt32Golomb(nullptr, -value); });
            expect_report("SetInt64Golomb", [&] { return SetInt64Golomb(nullptr, value); });
        }
    }
    EXPECT_EQ(length, 7);
    EXPECT_EQ(u32, 7U);
    EXPECT_EQ(u64, 7U);
    EXPECT_EQ(s32, 7);
    EXPECT_EQ(s64, 7);
}

}  // namespace
