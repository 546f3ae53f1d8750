#include "report_timecodes.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace h264tool {
namespace {

using Jumps = std::vector<TimecodeJump>;

TimedFrame frame(const Timecode& timecode, unsigned frames_per_second = 25, bool drop_frame = false) {
    return {PictureTimecode{timecode, drop_frame, false}, 2, frames_per_second};
}

std::vector<TimedFrame> counted(std::uint64_t first, std::size_t count, const TimecodeRate& rate) {
    std::vector<TimedFrame> frames;
    for (std::size_t i = 0; i < count; ++i)
        frames.push_back(frame(timecode_at(first + i, rate), rate.frames_per_second, rate.drop_frame));
    return frames;
}

TEST(TimecodeJumps, CountingOnIsNone) {
    EXPECT_EQ(find_timecode_jumps({}), Jumps());
    EXPECT_EQ(find_timecode_jumps(counted(1000, 100, {25, false})), Jumps());
    EXPECT_EQ(find_timecode_jumps(counted(1780, 50, {30, true})), Jumps());                  // over 00:01:00;02
    EXPECT_EQ(find_timecode_jumps(counted(24 * 3600 * 25 - 10, 20, {25, false})), Jumps());  // over midnight
}

TEST(TimecodeJumps, AGapAndARepetition) {
    std::vector<TimedFrame> frames = counted(0, 30, {25, false});
    frames.erase(frames.begin() + 10, frames.begin() + 13);
    frames.insert(frames.begin() + 20, frames[19]);
    EXPECT_EQ(find_timecode_jumps(frames), (Jumps{{10, 3}, {20, -1}}));
}

TEST(TimecodeJumps, FramesWithoutTimecodeCount) {
    std::vector<TimedFrame> frames = counted(0, 20, {25, false});
    for (std::size_t i = 5; i < 10; ++i) frames[i].timecode.reset();
    EXPECT_EQ(find_timecode_jumps(frames), Jumps());
    frames.erase(frames.begin() + 7);
    EXPECT_EQ(find_timecode_jumps(frames), (Jumps{{9, 1}}));
}

TEST(TimecodeJumps, FramesThatDoNotExist) {
    EXPECT_EQ(find_timecode_jumps(std::vector{frame({0, 0, 59, 29}, 30, true), frame({0, 1, 0, 0}, 30, true)}),
              (Jumps{{1, std::nullopt}}));
    EXPECT_EQ(find_timecode_jumps(std::vector{frame({0, 0, 0, 25})}), (Jumps{{0, std::nullopt}}));
}

TEST(TimecodeJumps, AChangeOfTheCounting) {
    std::vector<TimedFrame> frames = counted(0, 5, {30, false});
    for (const TimedFrame& one : counted(5, 5, {30, true})) frames.push_back(one);
    EXPECT_EQ(find_timecode_jumps(frames), (Jumps{{5, std::nullopt}}));
}

TEST(TimecodeJumps, OtherTimecodesOfAFrameStayInIt) {
    std::vector<TimedFrame> frames = counted(24 * 3600 * 25 - 5, 10, {25, false});
    for (TimedFrame& one : frames) one.others = {*one.timecode};
    EXPECT_EQ(find_timecode_jumps(frames), Jumps());
    frames[4].others[0].timecode = {0, 0, 0, 0};  // the next one, over midnight
    EXPECT_EQ(find_timecode_jumps(frames), Jumps());
    frames[4].others[0].timecode = {0, 0, 0, 1};
    EXPECT_EQ(find_timecode_jumps(frames), (Jumps{{4, 2}}));
    frames[4].others[0].timecode = {23, 59, 59, 23};
    EXPECT_EQ(find_timecode_jumps(frames), (Jumps{{4, -1}}));
    frames[4].others[0].timecode = {0, 0, 0, 25};
    EXPECT_EQ(find_timecode_jumps(frames), (Jumps{{4, std::nullopt}}));
    frames[4].others = {*frames[4].timecode, *frames[4].timecode};
    frames[4].others[1].drop_frame = true;
    EXPECT_EQ(find_timecode_jumps(frames), (Jumps{{4, std::nullopt}}));
}

TEST(TimecodeJumps, AFrameHasOneJump) {
    std::vector<TimedFrame> frames = counted(0, 10, {25, false});
    frames[5].timecode->timecode = {0, 0, 10, 5};
    frames[5].others = {frames[4].timecode.value()};
    EXPECT_EQ(find_timecode_jumps(frames), (Jumps{{5, 250}, {6, -250}}));
}

TEST(TimecodeJumps, NumbersOfPairs) {
    std::vector<TimedFrame> frames;
    for (std::uint64_t i = 1; i < 120; ++i) frames.push_back(frame(timecode_at(i / 2, {25, false}), 50));
    EXPECT_EQ(find_timecode_jumps(frames), Jumps());
    frames.erase(frames.begin() + 40);
    EXPECT_EQ(find_timecode_jumps(frames), (Jumps{{40, 1}}));
}

TEST(TimecodeJumps, ARepeatedTimecodeAtAHighRateIsNoPair) {
    std::vector<TimedFrame> frames = counted(0, 40, {50, false});
    frames.insert(frames.begin() + 20, frames[19]);
    EXPECT_EQ(find_timecode_jumps(frames), (Jumps{{20, -1}}));
}

TEST(TimecodeJumps, FramesOfThreeFields) {
    std::vector<TimedFrame> frames;
    unsigned fields = 0;
    for (unsigned i = 0; i < 24; ++i) {
        frames.push_back(frame(timecode_at(fields / 2, {30, false}), 30));
        frames.back().fields = i % 2 == 0 ? 3 : 2;
        fields += frames.back().fields;
    }
    EXPECT_EQ(find_timecode_jumps(frames), Jumps());
}

TEST(TimecodeJumps, WithoutAFrameRateTheNumbersTellIt) {
    std::vector<TimedFrame> frames = counted(0, 60, {24, false});
    for (TimedFrame& one : frames) one.frames_per_second = 0;
    EXPECT_EQ(find_timecode_jumps(frames), Jumps());
}

}  // namespace
}  // namespace h264tool
