// Access unit delimiters and ends of sequence as they are written.
#include <climits>

#include "writer_check.h"

namespace {

using test::Bytes;
using test::Lines;
using test::text;

class Delimiters : public test::WriterTest {};

TEST_F(Delimiters, AccessUnitDelimiterOfEveryPictureType) {
    const unsigned char sixth[] = {0x10, 0x30, 0x50, 0x70, 0x90, 0xB0, 0xD0, 0xF0};
    for (unsigned type = 0; type < 8; ++type) {
        test::Output out(8);
        EXPECT_EQ(format_au_delimiter_nalu(out.data(), 8, type), 8);
        EXPECT_EQ(out.written(8), (Bytes{0, 0, 0, 1, 0x09, sixth[type], 0, 0}));
    }
    EXPECT_EQ(test::lines(), Lines{});
}

TEST_F(Delimiters, EndOfSequence) {
    test::Output out(5);
    EXPECT_EQ(format_end_of_sequence_nalu(out.data(), 5), 5);
    EXPECT_EQ(out.written(5), (Bytes{0, 0, 0, 1, 0x0A}));
    EXPECT_EQ(test::lines(), Lines{});
}

TEST_F(Delimiters, ALargerBufferIsUntouchedBehind) {
    test::Output out(64);
    EXPECT_EQ(format_au_delimiter_nalu(out.data(), 64, 2), 8);
    EXPECT_EQ(out.written(8), (Bytes{0, 0, 0, 1, 0x09, 0x50, 0, 0}));
    out.fill();
    EXPECT_EQ(format_end_of_sequence_nalu(out.data(), 64), 5);
    EXPECT_EQ(out.written(5), (Bytes{0, 0, 0, 1, 0x0A}));
    out.fill();
    EXPECT_EQ(format_au_delimiter_nalu(out.data(), UINT_MAX, 7), 8);
    EXPECT_EQ(format_end_of_sequence_nalu(out.data(), UINT_MAX), 5);
}

TEST_F(Delimiters, ABufferThatIsTooSmallIsNotTouched) {
    for (unsigned len = 0; len < 8; ++len) {
        test::Output out(len);
        test::reset(3);
        EXPECT_EQ(format_au_delimiter_nalu(out.data(), len, 2), -1);
        EXPECT_EQ(test::lines(), Lines{text("3 format_au_delimiter_nalu: ERROR - buffer:%p should not be NULL or "
                                            "len:%u, should be greater than 8!",
                                            static_cast<void*>(out.data()), len)});
        out.written(0);
    }
    for (unsigned len = 0; len < 5; ++len) {
        test::Output out(len);
        test::reset(3);
        EXPECT_EQ(format_end_of_sequence_nalu(out.data(), len), -1);
        EXPECT_EQ(test::lines(), Lines{text("3 format_end_of_sequence_nalu: buffer:%p should not be NULL or len:%u, "
                                            "should be greater than 5!",
                                            static_cast<void*>(out.data()), len)});
        out.written(0);
    }
}

TEST_F(Delimiters, ANullBuffer) {
    EXPECT_EQ(format_au_delimiter_nalu(nullptr, 8, 2), -1);
    EXPECT_EQ(format_au_delimiter_nalu(nullptr, 0, 8), -1);
    EXPECT_EQ(format_end_of_sequence_nalu(nullptr, 5), -1);
    EXPECT_EQ(test::lines(),
              (Lines{"3 format_au_delimiter_nalu: ERROR - buffer:(nil) should not be NULL or len:8, should be greater "
                     "than 8!",
                     "3 format_au_delimiter_nalu: ERROR - buffer:(nil) should not be NULL or len:0, should be greater "
                     "than 8!",
                     "3 format_end_of_sequence_nalu: buffer:(nil) should not be NULL or len:5, should be greater than "
                     "5!"}));
}

TEST_F(Delimiters, PictureTypesAboveSevenAreRefused) {
    for (const unsigned type : {8U, 9U, 16U, 256U, 0x7FFFFFFFU, 0x80000000U, UINT_MAX}) {
        test::Output out(8);
        test::reset(3);
        EXPECT_EQ(format_au_delimiter_nalu(out.data(), 8, type), -1);
        EXPECT_EQ(test::lines(), Lines{text("3 format_au_delimiter_nalu: primary_pic_type:%d, should not be greater "
                                            "than 7!",
                                            static_cast<int>(type))});
        out.written(0);
    }
}

TEST_F(Delimiters, AFailureIsSilentBelowLevelThree) {
    test::reset(2);
    unsigned char buffer[8];
    EXPECT_EQ(format_au_delimiter_nalu(buffer, 7, 0), -1);
    EXPECT_EQ(format_au_delimiter_nalu(buffer, 8, 8), -1);
    EXPECT_EQ(format_end_of_sequence_nalu(buffer, 4), -1);
    EXPECT_EQ(test::lines(), Lines{});
}

// The reader takes its elements from other bits than the writer puts them.
TEST_F(Delimiters, TheReaderReadsWhatIsWritten) {
    for (unsigned type = 0; type < 8; ++type) {
        test::Output out(8);
        ASSERT_EQ(format_au_delimiter_nalu(out.data(), 8, type), 8);
        aud_t aud{0xEE, 0xEE};
        EXPECT_EQ(parse_au_delimiter_nal(out.data(), 8, &aud), TRUE);
        EXPECT_EQ(aud.nal_type, 16);
        EXPECT_EQ(aud.primary_pic_type, 0);
    }
}

}  // namespace
