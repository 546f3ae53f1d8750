// Display of the bit buffer.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bit_writer.h"
#include "bitbuffer.h"
#include "diagnostics.h"
#include "guarded_buffer.h"

namespace {

using test::Bytes;
using test::GuardedBuffer;
using Texts = std::vector<std::string>;

bitbuffer_t over(GuardedBuffer& area, unsigned offset = 0) {
    return {area.data(), offset, static_cast<unsigned>(8 * area.size())};
}

std::string cursor_text(const char* label, const bitbuffer_t& bb) {
    char text[256];
    snprintf(text, sizeof text, "%s BB Addr=%p, NumBits=%u Current Bit Offset=%u (Byte=%u, BitOfByte=%u).", label,
             static_cast<void*>(bb.bit_buffer), bb.num_bits, bb.bit_offset, bb.bit_offset / 8, bb.bit_offset % 8);
    return text;
}

// The one message that was emitted.
void expect_cursor_line(const std::string& text) {
    ASSERT_EQ(test::records().messages.size(), 1U);
    const test::Message& message = test::records().messages[0];
    EXPECT_EQ(message.level, 5);
    EXPECT_EQ(message.func, "_DisplayBitBuffer");
    EXPECT_EQ(message.file, "bitbuffer.c");
    EXPECT_GT(message.line, 0);
    EXPECT_EQ(message.text, text + "\n");
}

TEST(BitBufferDisplay, InfoIsTheCursorLineOnly) {
    GuardedBuffer area(Bytes{1, 2, 3});
    for (const unsigned offset : {0U, 7U, 13U, 24U, 26U}) {
        const bitbuffer_t bb = over(area, offset);
        test::reset(8);
        DisplayBitBufferInfo(&bb, "sps");
        expect_cursor_line(cursor_text("sps", bb));
        EXPECT_TRUE(test::records().dumps.empty());
    }
}

TEST(BitBufferDisplay, ContentsAreDumpedRoundedUpToBytes) {
    const Bytes content = {0x11, 0x22, 0x33};
    GuardedBuffer area(content);
    for (unsigned bits = 1; bits <= 24; ++bits) {
        const bitbuffer_t bb = {area.data(), bits / 2, bits};
        test::reset(6);
        DisplayBitBuffer(&bb, "a label");
        expect_cursor_line(cursor_text("a label", bb));
        ASSERT_EQ(test::records().dumps.size(), 1U);
        const test::Dump& dump = test::records().dumps[0];
        EXPECT_EQ(dump.level, 6);
        EXPECT_EQ(dump.label, "Bitbuffer data");
        EXPECT_EQ(dump.func, "_DisplayBitBuffer");
        EXPECT_EQ(dump.file, "bitbuffer.c");
        EXPECT_GT(dump.line, 0);
        EXPECT_EQ(dump.bytes, Bytes(content.begin(), content.begin() + (bits + 7) / 8)) << bits;
        EXPECT_GT(dump.order, test::records().messages[0].order);
    }
}

TEST(BitBufferDisplay, LineFromLevel5AndDumpFromLevel6) {
    GuardedBuffer area(Bytes{1});
    const bitbuffer_t bb = over(area);
    for (int level = 0; level <= 8; ++level) {
        test::reset(level);
        DisplayBitBuffer(&bb, "x");
        EXPECT_EQ(test::records().messages.size(), level >= 5 ? 1U : 0U) << level;
        EXPECT_EQ(test::records().dumps.size(), level >= 6 ? 1U : 0U) << level;
    }
}

TEST(BitBufferDisplay, NullArgumentsAreReported) {
    GuardedBuffer area(Bytes{1});
    const bitbuffer_t bb = over(area);
    test::reset(8);
    DisplayBitBuffer(nullptr, nullptr);
    DisplayBitBufferInfo(nullptr, "x");
    DisplayBitBufferInfo(&bb, nullptr);
    EXPECT_EQ(test::assertions(), (Texts{"bb != NULL", "label != NULL", "bb != NULL", "label != NULL"}));
    for (const test::Assertion& assertion : test::records().assertions) {
        EXPECT_EQ(assertion.func, "_DisplayBitBuffer");
        EXPECT_EQ(assertion.file, "bitbuffer.c");
        EXPECT_GT(assertion.line, 0);
        EXPECT_FALSE(assertion.with_caller);
    }
}

}  // namespace
