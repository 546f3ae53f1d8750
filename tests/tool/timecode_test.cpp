#include "timecode.h"

#include <gtest/gtest.h>

namespace {

using h264tool::exists;
using h264tool::frame_number;
using h264tool::parse_timecode;
using h264tool::Timecode;
using h264tool::timecode_at;
using h264tool::TimecodeRate;
using h264tool::to_text;

constexpr TimecodeRate kDrop30{30, true};
constexpr TimecodeRate kDrop60{60, true};

TEST(Timecode, IsParsedInBothForms) {
    const auto plain = parse_timecode("01:02:03:04");
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->timecode, (Timecode{1, 2, 3, 4}));
    EXPECT_FALSE(plain->drop_frame);
    const auto drop = parse_timecode("99:88:77;66");
    ASSERT_TRUE(drop);
    EXPECT_EQ(drop->timecode, (Timecode{99, 88, 77, 66}));
    EXPECT_TRUE(drop->drop_frame);
}

TEST(Timecode, IsNotParsedInOtherForms) {
    for (const char* text : {"", "1:02:03:04", "01:02:03", "01:02:03:4", "01:02:03:004", "01:02;03:04", "01;02:03:04",
                             "0a:02:03:04", "01:02:03.04", " 1:02:03:04", "01:02:03:-1", "01 02 03 04", "01:02:03:04 "})
        EXPECT_FALSE(parse_timecode(text)) << text;
}

TEST(Timecode, IsWrittenAsItIsParsed) {
    EXPECT_EQ(to_text({1, 2, 3, 4}, false), "01:02:03:04");
    EXPECT_EQ(to_text({23, 59, 59, 29}, true), "23:59:59;29");
}

TEST(Timecode, ExistsInRange) {
    EXPECT_TRUE(exists({23, 59, 59, 24}, {25, false}));
    EXPECT_FALSE(exists({24, 0, 0, 0}, {25, false}));
    EXPECT_FALSE(exists({0, 60, 0, 0}, {25, false}));
    EXPECT_FALSE(exists({0, 0, 60, 0}, {25, false}));
    EXPECT_FALSE(exists({0, 0, 0, 25}, {25, false}));
}

TEST(Timecode, DoesNotExistWhenItIsLeftOut) {
    EXPECT_TRUE(exists({0, 1, 0, 0}, {30, false}));
    EXPECT_FALSE(exists({0, 1, 0, 0}, kDrop30));
    EXPECT_FALSE(exists({0, 1, 0, 1}, kDrop30));
    EXPECT_TRUE(exists({0, 1, 0, 2}, kDrop30));
    EXPECT_TRUE(exists({0, 1, 1, 0}, kDrop30));
    EXPECT_TRUE(exists({0, 10, 0, 0}, kDrop30));
    EXPECT_FALSE(exists({0, 59, 0, 3}, kDrop60));
    EXPECT_TRUE(exists({0, 59, 0, 4}, kDrop60));
}

TEST(Timecode, CountsWithoutDroppingByPlainArithmetic) {
    EXPECT_EQ(frame_number({1, 2, 3, 4}, {25, false}), ((62U * 60) + 3) * 25 + 4);
    EXPECT_EQ(timecode_at(((62U * 60) + 3) * 25 + 4, {25, false}), (Timecode{1, 2, 3, 4}));
    EXPECT_EQ(timecode_at(std::uint64_t{24} * 3600 * 24, {24, false}), Timecode{});
}

// An hour of 29.97 frames a second has 107892 frames, SMPTE 12M-1.
TEST(Timecode, KnownDropFrameNumbers) {
    EXPECT_EQ(frame_number({1, 0, 0, 0}, kDrop30), 107892U);
    EXPECT_EQ(frame_number({0, 1, 0, 2}, kDrop30), 1800U);
    EXPECT_EQ(frame_number({0, 10, 0, 0}, kDrop30), 17982U);
    EXPECT_EQ(timecode_at(1799, kDrop30), (Timecode{0, 0, 59, 29}));
    EXPECT_EQ(timecode_at(1800, kDrop30), (Timecode{0, 1, 0, 2}));
    EXPECT_EQ(frame_number({1, 0, 0, 0}, kDrop60), 215784U);
    EXPECT_EQ(timecode_at(3600, kDrop60), (Timecode{0, 1, 0, 4}));
}

// Counts a day frame by frame, leaving out the numbers that do not exist.
TEST(Timecode, EveryFrameOfADropFrameDay) {
    for (const TimecodeRate& rate : {kDrop30, kDrop60}) {
        std::uint64_t frame = 0;
        for (unsigned minute = 0; minute < 24 * 60; ++minute)
            for (unsigned number = 0; number < 60 * rate.frames_per_second; ++number) {
                const Timecode timecode{minute / 60, minute % 60, number / rate.frames_per_second,
                                        number % rate.frames_per_second};
                if (!exists(timecode, rate)) continue;
                ASSERT_EQ(timecode_at(frame, rate), timecode);
                ASSERT_EQ(frame_number(timecode, rate), frame);
                ++frame;
            }
        EXPECT_EQ(timecode_at(frame, rate), Timecode{}) << "the next day";
        EXPECT_EQ(timecode_at(frame * 3 + 1800, rate), timecode_at(1800, rate));
    }
}

}  // namespace
