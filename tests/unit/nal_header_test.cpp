#include <gtest/gtest.h>

#include <array>

#include "diagnostics.h"
#include "guarded_buffer.h"
#include "h264d/h264d.h"

namespace {

using test::GuardedBuffer;
using Bytes = std::vector<unsigned char>;
using Texts = std::vector<std::string>;

constexpr int kUntouched = -77;

// What _GetNALTypeOffset does with a buffer; the result is followed by the offset.
std::pair<BOOL, int> locate(const Bytes& bytes) {
    GuardedBuffer buffer(bytes);
    int offset = kUntouched;
    const BOOL found = _GetNALTypeOffset(buffer.data(), static_cast<int>(bytes.size()), &offset);
    return {found, offset};
}

struct Header {
    BOOL found;
    int type;
    int ref_idc;
    bool operator==(const Header&) const = default;
};
constexpr Header kNoHeader{FALSE, 0xEE, 0xEE};

Header header_of(const Bytes& bytes) {
    GuardedBuffer buffer(bytes);
    BYTE type = 0xEE;
    BYTE ref_idc = 0xEE;
    const BOOL found = H264LIB_GetNALTypeAndNALRefIdc(buffer.data(), static_cast<int>(bytes.size()), &type, &ref_idc);
    return {found, type, ref_idc};
}

class NalHeader : public testing::Test {
protected:
    void SetUp() override { test::reset(8); }
};

TEST_F(NalHeader, IsFoundBehindAThreeByteStartCode) {
    EXPECT_EQ(locate({0, 0, 1, 0x67}), std::make_pair(TRUE, 3));
    const test::Message* message = test::find("Found Annex-B 3 bytes start code prefix.");
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->level, 8);
    EXPECT_EQ(message->func, "_GetNALTypeOffset");
    EXPECT_EQ(message->file, "h264d.c");
    EXPECT_EQ(message->text.back(), '\n');
    EXPECT_EQ(test::records().messages.size(), 1U);
}

TEST_F(NalHeader, IsFoundBehindAFourByteStartCode) {
    EXPECT_EQ(locate({0, 0, 0, 1, 9, 0xF0}), std::make_pair(TRUE, 4));
    const test::Message* message = test::find("Found Annex-B 4 bytes start code prefix.");
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->level, 8);
    EXPECT_EQ(message->func, "_GetNALTypeOffset");
    EXPECT_EQ(message->file, "h264d.c");
    EXPECT_EQ(test::records().messages.size(), 1U);
}

TEST_F(NalHeader, IsFoundSilentlyBelowLevel8) {
    test::set_level(7);
    EXPECT_EQ(locate({0, 0, 1, 0x67}), std::make_pair(TRUE, 3));
    EXPECT_EQ(locate({0, 0, 0, 1, 9}), std::make_pair(TRUE, 4));
    EXPECT_TRUE(test::records().messages.empty());
}

TEST_F(NalHeader, IsNotFoundElsewhereAndNothingIsStored) {
    const std::vector<Bytes> others = {{0x67, 0x42, 0, 0x1E, 0}, {0, 0, 0, 0, 1, 0x67}, {0, 0, 2, 1, 0x67},
                                       {1, 0, 0, 1, 0x67},       {0, 1, 0, 1, 0x67},    {0, 0, 3, 1, 0x67},
                                       {0xFF, 0, 0, 0, 1, 0x67}};
    for (const Bytes& bytes : others) {
        EXPECT_EQ(locate(bytes), std::make_pair(FALSE, kUntouched)) << testing::PrintToString(bytes);
        EXPECT_EQ(header_of(bytes), kNoHeader) << testing::PrintToString(bytes);
    }
    EXPECT_TRUE(test::records().messages.empty());
    EXPECT_TRUE(test::records().assertions.empty());
}

TEST_F(NalHeader, GivesTypeAndRefIdc) {
    EXPECT_EQ(header_of({0, 0, 1, 0x67}), (Header{TRUE, 7, 3}));
    EXPECT_EQ(header_of({0, 0, 0, 1, 9, 0xF0}), (Header{TRUE, 9, 0}));
    EXPECT_EQ(header_of({0, 0, 1, 0xE5}), (Header{TRUE, 5, 3})) << "the forbidden bit is not looked at";
    EXPECT_EQ(header_of({0, 0, 1, 0x00}), (Header{TRUE, 0, 0}));
    EXPECT_EQ(header_of({0, 0, 0, 1, 0xFF}), (Header{TRUE, 31, 3}));
    EXPECT_TRUE(test::records().assertions.empty());
}

TEST_F(NalHeader, EveryHeaderByteIsSplit) {
    for (int header = 0; header < 256; ++header) {
        const auto byte = static_cast<unsigned char>(header);
        EXPECT_EQ(header_of({0, 0, 1, byte}), (Header{TRUE, header % 32, header / 32 % 4}));
        EXPECT_EQ(header_of({0, 0, 0, 1, byte}), (Header{TRUE, header % 32, header / 32 % 4}));
    }
}

TEST_F(NalHeader, RefIdcMayBeNull) {
    const Bytes bytes = {0, 0, 1, 0x68, 0xCE};
    BYTE type = 0xEE;
    EXPECT_EQ(H264LIB_GetNALTypeAndNALRefIdc(bytes.data(), 5, &type, nullptr), TRUE);
    EXPECT_EQ(type, 8);
    EXPECT_TRUE(test::records().assertions.empty());
}

TEST_F(NalHeader, AStartCodeThatEndsTheBufferHasNoHeader) {
    EXPECT_EQ(header_of({0, 0, 0, 1}), kNoHeader);
    EXPECT_EQ(test::assertions(), Texts{});
    EXPECT_EQ(header_of({0, 0, 1}), kNoHeader);
    EXPECT_EQ(locate({0, 0, 0, 1}), std::make_pair(TRUE, 4));
    EXPECT_EQ(locate({0, 0, 1}), std::make_pair(TRUE, 3));
}

TEST_F(NalHeader, ABufferUnderFourBytesIsAssertedAndNotReadBehindItsEnd) {
    for (std::size_t size = 0; size < 3; ++size) {
        test::reset(8);
        EXPECT_EQ(locate(Bytes(size, 0)), std::make_pair(FALSE, kUntouched)) << size;
        EXPECT_EQ(test::assertions(), Texts{"buffer_len >= 4"});
        EXPECT_EQ(test::records().assertions[0].func, "_GetNALTypeOffset");
        EXPECT_EQ(test::records().assertions[0].file, "h264d.c");
        test::reset(8);
        EXPECT_EQ(header_of(Bytes(size, 0)), kNoHeader) << size;
        ASSERT_FALSE(test::records().assertions.empty());
        EXPECT_EQ(test::records().assertions[0].expression, "BufferLen >= 4");
        EXPECT_EQ(test::records().assertions[0].func, "H264LIB_GetNALTypeAndNALRefIdc");
        EXPECT_EQ(test::records().assertions[0].file, "h264d.c");
    }
    test::reset(8);
    EXPECT_EQ(locate({0, 0, 1}).second, 3);
    EXPECT_EQ(test::assertions(), Texts{"buffer_len >= 4"});
}

TEST_F(NalHeader, ANegativeLengthIsAssertedAndNothingIsRead) {
    GuardedBuffer buffer(0);
    int offset = kUntouched;
    EXPECT_EQ(_GetNALTypeOffset(buffer.data(), -1, &offset), FALSE);
    EXPECT_EQ(offset, kUntouched);
    EXPECT_EQ(test::assertions(), Texts{"buffer_len >= 4"});
    BYTE type = 0xEE;
    EXPECT_EQ(H264LIB_GetNALTypeAndNALRefIdc(buffer.data(), -2147483647 - 1, &type, nullptr), FALSE);
    EXPECT_EQ(type, 0xEE);
}

TEST_F(NalHeader, NullArgumentsAreAsserted) {
    const Bytes bytes = {0, 0, 1, 0x67, 0x42};
    int offset = kUntouched;
    BYTE type = 0xEE;
    BYTE ref_idc = 0xEE;

    EXPECT_EQ(_GetNALTypeOffset(nullptr, 5, &offset), FALSE);
    EXPECT_EQ(test::assertions(), Texts{"buffer != NULL"});
    EXPECT_EQ(offset, kUntouched);
    test::reset(8);
    EXPECT_EQ(_GetNALTypeOffset(bytes.data(), 5, nullptr), FALSE);
    EXPECT_EQ(test::assertions(), Texts{"pnOffset != NULL"});

    test::reset(8);
    EXPECT_EQ(H264LIB_GetNALTypeAndNALRefIdc(nullptr, 5, &type, &ref_idc), FALSE);
    ASSERT_FALSE(test::records().assertions.empty());
    EXPECT_EQ(test::assertions()[0], "pBuffer != NULL");
    EXPECT_EQ(test::records().assertions[0].func, "H264LIB_GetNALTypeAndNALRefIdc");
    EXPECT_EQ(type, 0xEE);
    EXPECT_EQ(ref_idc, 0xEE);
    test::reset(8);
    EXPECT_EQ(H264LIB_GetNALTypeAndNALRefIdc(bytes.data(), 5, nullptr, &ref_idc), FALSE);
    EXPECT_EQ(test::assertions(), Texts{"pNALType != NULL"});
    EXPECT_EQ(ref_idc, 0xEE);
}

TEST_F(NalHeader, AssertionsDoNotNeedAHandle) {
    const test::WithoutHandle silent;
    EXPECT_EQ(locate({0, 0, 0}), std::make_pair(FALSE, kUntouched));
    EXPECT_EQ(test::assertions(), Texts{"buffer_len >= 4"});
    EXPECT_TRUE(test::records().messages.empty());
}

// Every beginning of up to five bytes out of those that matter.
TEST_F(NalHeader, FollowsTheTableForAllBeginnings) {
    test::set_level(0);
    constexpr std::array<unsigned char, 5> values = {0, 1, 2, 3, 0x67};
    for (std::size_t size = 3; size <= 6; ++size) {
        GuardedBuffer buffer(size);
        for (unsigned n = 0; n < 5 * 5 * 5 * 5 * 5; ++n) {
            for (std::size_t i = 0, digits = n; i < size; ++i, digits /= 5) buffer[i] = values[digits % 5];
            int expected = kUntouched;
            if (buffer[0] == 0 && buffer[1] == 0 && buffer[2] == 1) expected = 3;
            if (buffer[0] == 0 && buffer[1] == 0 && buffer[2] == 0 && size > 3 && buffer[3] == 1) expected = 4;
            int offset = kUntouched;
            const BOOL found = _GetNALTypeOffset(buffer.data(), static_cast<int>(size), &offset);
            ASSERT_EQ(offset, expected) << testing::PrintToString(buffer.bytes());
            ASSERT_EQ(found, expected != kUntouched ? TRUE : FALSE);
        }
    }
}

}  // namespace
