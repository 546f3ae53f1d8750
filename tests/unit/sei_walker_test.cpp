#include <climits>

#include "caption_message.h"
#include "pic_timing_message.h"
#include "sei_check.h"

namespace {

using test::Bytes;
using test::GuardedBuffer;
using test::join;
using test::Lines;
using test::reader_lines;
using test::sei_unit;
using test::text;

constexpr int kUntouched = 77;
const Bytes kTiming = {1, 3, 0xAA, 0xBB, 0xCC};
const Bytes kCaptions = {4, 9, 0xB5, 0x00, 0x31, 'G', 'A', '9', '4', 3, 0x41};
const Bytes kAfd = {4, 9, 0xB5, 0x00, 0x31, 'D', 'T', 'G', '1', 0x41, 0xF8};

// What a walk is given and gives. Before the first call everything but the offsets holds something.
struct Walk {
    int payload_offset = 0;
    int nal_type_offset = 0;
    SEI_message_t header{kUntouched, kUntouched, kUntouched};
    int suid = kUntouched;
    BOOL more = kUntouched;
    BOOL result = kUntouched;

    // One call, with the offsets as they are. Behind and before the unit there is no readable byte.
    Walk& next(const Bytes& unit) {
        GuardedBuffer memory(unit);
        call(memory.data(), unit.size());
        EXPECT_EQ(memory.bytes(), unit);
        return *this;
    }
    void call(const unsigned char* unit, std::size_t size) {
        result =
            DetermineSEIType(unit, static_cast<int>(size), &payload_offset, &nal_type_offset, &header, &suid, &more);
    }
    std::string str() const {
        return text("result %d, offset %d, nal %d, type %d, size %u, index %u, suid %d, more %d", result,
                    payload_offset, nal_type_offset, header.payload_type, header.payload_size, header.payload_index,
                    suid, more);
    }
};

std::string found(int offset, int nal, int type, unsigned size, unsigned index, int suid, int more) {
    return text("result 1, offset %d, nal %d, type %d, size %u, index %u, suid %d, more %d", offset, nal, type, size,
                index, suid, more);
}
// With nothing but the flag written.
std::string refused(int offset, int nal) {
    return text("result 0, offset %d, nal %d, type 77, size 77, index 77, suid 77, more 0", offset, nal);
}
Lines lines_of(const Bytes& unit, int offset = 0) {
    test::clear();
    Walk walk;
    walk.payload_offset = offset;
    walk.nal_type_offset = offset == 0 ? 0 : 4;
    walk.next(unit);
    return reader_lines();
}
std::string last_line(int level) { return test::up_to(level, reader_lines()).back(); }

class SeiWalker : public test::WriterTest {};

TEST_F(SeiWalker, OnePictureTimingMessage) {
    EXPECT_EQ(Walk().next(sei_unit(join(kTiming, {0x80}))).str(), found(5, 4, 1, 3, 2, 4, 0));
    EXPECT_EQ(reader_lines(),
              (Lines{"7 DetermineSEIType: Attempting to find the stop bit position for the LastByte[10]:80.",
                     "7 DetermineSEIType: Found StopBitPos:8 for LastByte[10]:80, NALLenWoRBSPTrailingBits:6, "
                     "NALTypeOffset:4, BufferLength:11.",
                     "7 DetermineSEIType: CHECK - NAL type:06, Buffer_len:11, SODB Len:5, Current idx:0, Next SODB "
                     "bytes: 0x01 03 AA BB CC.",
                     "7 DetermineSEIType: Parsing SEI message, payload index:2, Payload_type:0x1, Payload_size:0x3.",
                     "7 DetermineSEIType: OK - Found SEI payload type:1 and payload size:3, enSUID:4.",
                     "7 DetermineSEIType: We are at the end of SODB, there are no more \"sei_message\"."}));
    EXPECT_EQ(test::assertions(), std::vector<std::string>{});
    EXPECT_EQ(Walk().next(sei_unit(join(kTiming, {0x80}), 3)).str(), found(5, 3, 1, 3, 2, 4, 0));
}

TEST_F(SeiWalker, CaptionsThenPictureTiming) {
    const Bytes unit = sei_unit(join(join(kCaptions, kTiming), {0x80}));
    Walk walk;
    EXPECT_EQ(walk.next(unit).str(), found(11, 4, 4, 9, 2, 2, 1));
    EXPECT_EQ(reader_lines().back(), "7 DetermineSEIType: OK - Found SEI payload type:4 and payload size:9, enSUID:2.");
    EXPECT_EQ(walk.next(unit).str(), found(16, 4, 1, 3, 13, 4, 0));
    EXPECT_EQ(Walk().next(sei_unit(join(kAfd, {0x80}))).str(), found(11, 4, 4, 9, 2, 3, 0));
}

TEST_F(SeiWalker, TypesUpTo45) {
    for (int type = 0; type < 255; ++type) {
        if (type == 4) continue;
        const Bytes unit = sei_unit({static_cast<unsigned char>(type), 2, 0x55, 0x66, 0x80});
        test::clear();
        const std::string seen = Walk().next(unit).str();
        if (type <= 45) {
            EXPECT_EQ(seen, found(4, 4, type, 2, 2, type == 1 ? 4 : 0, 0));
            const Lines expected = {text("5 DetermineSEIType: SEI Payload type was not in the known types:%d.", type)};
            EXPECT_EQ(test::up_to(6, reader_lines()), type == 1 ? Lines{} : expected);
        } else {
            EXPECT_EQ(seen, text("result 0, offset 0, nal 4, type %d, size 2, index 2, suid 77, more 0", type));
            EXPECT_EQ(reader_lines().back(), text("7 DetermineSEIType: SEI Payload type:%d is greater than the current "
                                                  "MAX_PAYLOAD_TYPE:45. Abort SEI decoding!",
                                                  type));
            EXPECT_EQ(test::up_to(6, reader_lines()), Lines{});
        }
    }
}

TEST_F(SeiWalker, TheByteBehindIsLookedAt) {
    EXPECT_EQ(Walk().next(sei_unit({6, 0xFF, 2, 0x55, 0x66, 0x80})).str(), found(5, 4, 5, 2, 3, 0, 0))
        << "a size byte of 255 counts as type";
    Bytes captions = {5, 0xFF};
    captions.insert(captions.end(), kCaptions.begin() + 1, kCaptions.end());
    EXPECT_EQ(Walk().next(sei_unit(join(captions, {0x80}))).str(), found(12, 4, 4, 9, 3, 2, 0)) << "5 becomes 4";
    EXPECT_EQ(Walk().next(sei_unit({0xFF, 2, 0x55, 0x66, 0x80})).str(),
              "result 0, offset 0, nal 4, type 255, size 2, index 2, suid 77, more 0")
        << "a first byte of 255 is not followed by the rest of the type";
    EXPECT_EQ(Walk().next(sei_unit({3, 0xFF, 0xFF, 0xFF, 0, 0x55, 0x80})).str(), found(5, 4, 0, 0, 5, 0, 0))
        << "modulo 256";
    const Bytes long_payload(775, 0x11);
    EXPECT_EQ(Walk().next(sei_unit(join(join({0, 10, 0xFF, 0xFF, 0xFF}, long_payload), {0x80}))).str(),
              found(780, 4, 0, 775, 5, 0, 0));
    const Bytes payload_of_255(257, 0x22);
    EXPECT_EQ(Walk().next(sei_unit(join(join({7, 2, 0xFF}, payload_of_255), {0x80}))).str(),
              found(260, 4, 7, 257, 3, 0, 0));
}

TEST_F(SeiWalker, TrailingZerosAreIgnored) {
    for (int zeros = 0; zeros < 6; ++zeros) {
        Bytes unit = sei_unit(join(kTiming, {0x80}));
        unit.resize(unit.size() + static_cast<std::size_t>(zeros));
        test::clear();
        EXPECT_EQ(Walk().next(unit).str(), found(5, 4, 1, 3, 2, 4, 0));
        Lines search;
        for (int i = 10 + zeros; i >= 10; --i)
            search.push_back(
                text("7 DetermineSEIType: Attempting to find the stop bit position for the "
                     "LastByte[%d]:%s.",
                     i, i == 10 ? "80" : "00"));
        search.push_back(
            text("7 DetermineSEIType: Found StopBitPos:8 for LastByte[10]:80, "
                 "NALLenWoRBSPTrailingBits:6, NALTypeOffset:4, BufferLength:%d.",
                 11 + zeros));
        const Lines lines = reader_lines();
        ASSERT_GE(lines.size(), search.size());
        EXPECT_EQ(Lines(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(search.size())), search);
    }
}

TEST_F(SeiWalker, OnlyAStopBitAloneLeavesTheData) {
    for (int last = 1; last < 256; ++last) {
        const Bytes unit = sei_unit({0, 2, 0x55, static_cast<unsigned char>(last)});
        int position = 1;
        while ((last >> (position - 1) & 1) == 0) ++position;
        const Bytes seven_bytes = join(unit, {0});
        const Lines lines = lines_of(seven_bytes);
        EXPECT_EQ(lines[2], text("7 DetermineSEIType: Found StopBitPos:%d for LastByte[8]:%02X, "
                                 "NALLenWoRBSPTrailingBits:%d, NALTypeOffset:4, BufferLength:10.",
                                 position, static_cast<unsigned>(last), last == 0x80 ? 4 : 5));
        EXPECT_EQ(lines.back(), last == 0x80 ? "3 DetermineSEIType: We are out of the SODB. Payload Offset:4 maximum "
                                               "value should be sei_sodb_len:3."
                                             : "7 DetermineSEIType: We are at the end of SODB, there are no more "
                                               "\"sei_message\".");
    }
    EXPECT_EQ(Walk().next(sei_unit({1, 1, 0x55, 0x81})).str(), found(3, 4, 1, 1, 2, 4, 0));
}

TEST_F(SeiWalker, TheSearchEndsAtTheHeader) {
    EXPECT_EQ(lines_of({0, 0, 0, 1, 6, 0, 0}),
              (Lines{"7 DetermineSEIType: Attempting to find the stop bit position for the LastByte[6]:00.",
                     "7 DetermineSEIType: Attempting to find the stop bit position for the LastByte[5]:00.",
                     "7 DetermineSEIType: Attempting to find the stop bit position for the LastByte[4]:06.",
                     "7 DetermineSEIType: Found StopBitPos:2 for LastByte[4]:06, NALLenWoRBSPTrailingBits:1, "
                     "NALTypeOffset:4, BufferLength:7.",
                     "7 DetermineSEIType: CHECK - NAL type:06, Buffer_len:7, SODB Len:-1, Current idx:0, Next SODB "
                     "bytes: 0x00 00 00 00 00.",
                     "3 DetermineSEIType: It seems that we are out of the SODB buffer! index:0, SODB buffer "
                     "length:-1."}));
}

TEST_F(SeiWalker, BytesLeftBehindAMessage) {
    for (int left = 0; left < 6; ++left) {
        const Bytes rest(static_cast<std::size_t>(left), 0x01);
        EXPECT_EQ(Walk().next(sei_unit(join(join(kTiming, rest), {0x80}))).str(),
                  found(5, 4, 1, 3, 2, 4, left > 2 ? 1 : 0));
    }
}

TEST_F(SeiWalker, SizeBeyondTheData) {
    for (const unsigned size : {4U, 5U, 100U, 254U}) {
        test::clear();
        EXPECT_EQ(Walk().next(sei_unit({1, static_cast<unsigned char>(size), 0xAA, 0xBB, 0xCC, 0x80})).str(),
                  text("result 0, offset %u, nal 4, type 1, size %u, index 2, suid 4, more 0", size + 2, size));
        EXPECT_EQ(test::up_to(6, reader_lines()),
                  (Lines{text("3 DetermineSEIType: We are out of the SODB. Payload Offset:%u maximum value should be "
                              "sei_sodb_len:5.",
                              size + 2)}));
    }
}

TEST_F(SeiWalker, BehindTheDataZerosAreRead) {
    const Bytes unit = sei_unit({9, 1, 0xAA, 4, 4, 0x80});  // 5 bytes of data
    EXPECT_EQ(lines_of(unit, 3)[2],
              "7 DetermineSEIType: CHECK - NAL type:06, Buffer_len:11, SODB Len:5, Current idx:3, Next SODB bytes: "
              "0x04 04 00 00 00.");
    const auto errors = [&](int offset) { return test::up_to(4, lines_of(unit, offset)); };
    EXPECT_EQ(errors(3),
              (Lines{"3 _FindSEIUserDataRegisteredSUID: NALU length:0 is shorter than 7. Failed to determine "
                     "SEI type too short NALU!",
                     "4 DetermineSEIType: Cannot find User data registered specific SEI!"}));
    EXPECT_EQ(errors(4), (Lines{"3 _FindSEIUserDataRegisteredSUID: NALU length:-1 is shorter than 7. Failed to "
                                "determine SEI type too short NALU!",
                                "4 DetermineSEIType: Cannot find User data registered specific SEI!"}));
    EXPECT_EQ(errors(5), (Lines{"3 DetermineSEIType: It seems that we are out of the buffer! index:6, SODB buffer "
                                "length:5."}));
    EXPECT_EQ(errors(6), (Lines{"3 DetermineSEIType: It seems that we are out of the SODB buffer! index:6, SODB buffer "
                                "length:5."}));
    EXPECT_EQ(test::up_to(4, lines_of(sei_unit({9, 1, 0xAA, 0xBB, 7, 0x80}), 4)),
              (Lines{"3 DetermineSEIType: We are out of the SODB. Payload Offset:6 maximum value should be "
                     "sei_sodb_len:5."}));
}

TEST_F(SeiWalker, OffsetsThatNoCallReturned) {
    const Bytes unit = sei_unit(join(kTiming, {0x80}));
    for (const int offset : {7, 1000, 1024, INT_MAX / 2, INT_MAX - 5, INT_MAX - 4, INT_MAX - 3, INT_MAX - 1, INT_MAX}) {
        EXPECT_EQ(test::up_to(6, lines_of(unit, offset)),
                  (Lines{text("3 DetermineSEIType: It seems that we are out of the SODB buffer! index:%d, SODB buffer "
                              "length:5.",
                              offset)}));
        Walk walk;
        walk.payload_offset = offset;
        walk.nal_type_offset = 4;
        EXPECT_EQ(walk.next(unit).str(),
                  text("result 0, offset %d, nal 4, type 0, size 0, index 0, suid 77, more 0", offset));
    }
}

TEST_F(SeiWalker, NalTypeOffsetOfALaterCall) {
    const Bytes unit = sei_unit(join(join(kTiming, kTiming), {0x80}));
    const auto later = [&](int nal_type_offset) {
        test::clear();
        Walk walk;
        walk.payload_offset = 5;
        walk.nal_type_offset = nal_type_offset;
        return walk.next(unit).str();
    };
    EXPECT_EQ(later(4), found(10, 4, 1, 3, 7, 4, 0));
    for (const int offset : {5, 6, 1000, INT_MAX}) {
        EXPECT_EQ(later(offset), refused(5, offset));
        EXPECT_EQ(reader_lines(), (Lines{text("3 DetermineSEIType: Was expecting NALTypeOffset:%d to be smaller than "
                                              "4.",
                                              offset)}));
    }
    for (const int offset : {0, 1, 2, 3}) {
        EXPECT_EQ(later(offset), refused(5, offset));
        EXPECT_EQ(reader_lines(), (Lines{text("4 DetermineSEIType: FAIL - Was expecting NAL type:%d to be 6(SEI)!",
                                              unit[static_cast<std::size_t>(offset)])}));
    }
    Walk first;
    first.nal_type_offset = 99;
    EXPECT_EQ(first.next(unit).str(), found(5, 4, 1, 3, 2, 4, 1)) << "the first call finds it itself";
}

TEST_F(SeiWalker, OtherUnitsAndNoStartCode) {
    for (int header = 0; header < 256; ++header) {
        if ((header & 0x1F) == 6) continue;
        test::clear();
        EXPECT_EQ(Walk().next(test::nal_unit(static_cast<unsigned char>(header), {1, 1, 1, 0x80})).str(),
                  refused(0, 4));
        EXPECT_EQ(reader_lines(),
                  (Lines{text("4 DetermineSEIType: FAIL - Was expecting NAL type:%d to be 6(SEI)!", header & 0x1F)}));
    }
    EXPECT_EQ(Walk().next(test::nal_unit(0x66, {1, 1, 9, 0x80})).str(), found(3, 4, 1, 1, 2, 4, 0));
    for (const Bytes& unit :
         {Bytes{6, 1, 3, 4, 5, 6, 0x80}, Bytes{0, 0, 2, 6, 1, 1, 1, 0x80}, Bytes{0, 0, 0, 0, 1, 6, 1, 1, 1, 0x80}}) {
        test::clear();
        EXPECT_EQ(Walk().next(unit).str(), refused(0, 0));
        EXPECT_EQ(test::records().messages.size(), 0U);
    }
}

TEST_F(SeiWalker, UnknownUserDataEndsTheWalk) {
    Bytes other = kCaptions;
    other[9] = 4;
    test::clear();
    EXPECT_EQ(Walk().next(sei_unit(join(join(other, kTiming), {0x80}))).str(),
              "result 0, offset 0, nal 4, type 4, size 9, index 2, suid 0, more 0");
    EXPECT_EQ(test::up_to(6, reader_lines()),
              (Lines{"3 _FindSEIUserDataRegisteredSUID: Failed to determine SEI data registered type!",
                     "4 DetermineSEIType: Cannot find User data registered specific SEI!"}));
    EXPECT_EQ(Walk().next(sei_unit({4, 3, 0xB5, 0, 0x31, 0x80})).str(),
              "result 0, offset 0, nal 4, type 4, size 3, index 2, suid 77, more 0");
    EXPECT_EQ(last_line(4), "4 DetermineSEIType: Cannot find User data registered specific SEI!");
}

TEST_F(SeiWalker, EmulationPreventionIsRemovedBeforePositionsCount) {
    const Bytes unit = sei_unit({0, 4, 0, 0, 1, 0, 1, 3, 0, 0, 0, 0x80});
    ASSERT_EQ(unit.size(), 4U + 1 + 12 + 2);
    Walk walk;
    EXPECT_EQ(walk.next(unit).str(), found(6, 4, 0, 4, 2, 0, 1));
    EXPECT_EQ(walk.next(unit).str(), found(11, 4, 1, 3, 8, 4, 0));
}

TEST_F(SeiWalker, WhatTheLibraryWrites) {
    const std::vector<vanc_t> entries = {test::numbered_caption(0), test::afd_of(1, 9), test::numbered_caption(1)};
    unsigned char buffer[200];
    const auto walked = [&](int size) { return Walk().next(Bytes(buffer, buffer + size)).str(); };
    int records = 0;
    EXPECT_EQ(walked(format_sei_cc_nal(buffer, 200, entries.data(), test::bytes_of(entries), 2, &records)),
              found(19, 4, 4, 17, 2, 2, 0));
    EXPECT_EQ(walked(format_sei_afd_nal(buffer, 200, entries.data(), static_cast<int>(test::bytes_of(entries)))),
              found(11, 4, 4, 9, 2, 3, 0));
    const vitc_t vitc = test::vitc_of(10, 20, 30, 12);
    SEI_pictiming_info_t timing = test::timing_of(25000);
    EXPECT_EQ(walked(format_sei_pictime_nal(buffer, 200, &vitc, &timing)), found(11, 4, 1, 9, 2, 4, 0));
}

}  // namespace
