#include "insert_options.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "insert_captions.h"

namespace {

using h264tool::CaptionSchedule;
using h264tool::FrameRate;
using h264tool::multiply_divide;
using h264tool::parse_active_format;
using h264tool::parse_frame_rate;
using h264tool::parse_user_data;
using h264tool::Rounding;
using h264tool::SccLine;
using h264tool::timecode_rate;

constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();

TEST(InsertOptions, MultiplyDivide) {
    EXPECT_EQ(multiply_divide(7, 3, 2), 10U);
    EXPECT_EQ(multiply_divide(7, 3, 2, Rounding::kUp), 11U);
    EXPECT_EQ(multiply_divide(8, 3, 2, Rounding::kUp), 12U);
    EXPECT_EQ(multiply_divide(0, 3, 2, Rounding::kUp), 0U);
    EXPECT_EQ(multiply_divide(kMost, kMost, kMost), kMost);
    EXPECT_EQ(multiply_divide(kMost - 1, kMost, kMost), kMost - 1);
    EXPECT_EQ(multiply_divide(kMost, 2, 1), kMost) << "does not fit";
}

TEST(InsertOptions, FrameRatesAreInLowestTerms) {
    const FrameRate rate = parse_frame_rate("60000/2002");
    EXPECT_EQ(rate.numerator, 30000U);
    EXPECT_EQ(rate.denominator, 1001U);
    EXPECT_EQ(parse_frame_rate("4294967295").numerator, 4294967295U);
}

TEST(InsertOptions, TimecodesOfARate) {
    EXPECT_EQ(timecode_rate({24000, 1001}, {}).frames_per_second, 24U);
    EXPECT_EQ(timecode_rate({60000, 1001}, {{0, 1, 0, 4}, true}).frames_per_second, 60U);
    EXPECT_EQ(timecode_rate({86, 1}, {{0, 0, 0, 85}, false}).frames_per_second, 86U);
    EXPECT_THROW(timecode_rate({87, 1}, {}), std::invalid_argument);
    EXPECT_THROW(timecode_rate({2997, 100}, {}), std::invalid_argument);
    EXPECT_THROW(timecode_rate({48000, 1001}, {{0, 0, 0, 0}, true}), std::invalid_argument);
}

TEST(InsertOptions, ActiveFormatsAreDecimal) {
    EXPECT_EQ(parse_active_format("08"), 8U);
    EXPECT_EQ(parse_active_format("9"), 9U);
    EXPECT_EQ(parse_active_format("015"), 15U);
    for (const char* text : {"", "16", "-1", "+1", "0x8", "8 "})
        EXPECT_THROW(parse_active_format(text), std::invalid_argument) << text;
}

TEST(InsertOptions, UserDataOfOthers) {
    const std::string uuid = "4D4953506D6963726F73656374696D65";  // MISPmicrosectime
    EXPECT_THROW(parse_user_data(uuid + ":text"), std::invalid_argument);
    EXPECT_NO_THROW(parse_user_data("5" + uuid.substr(1) + ":text"));
    EXPECT_THROW(parse_user_data("FF" + uuid.substr(2) + ":text"), std::invalid_argument);
    EXPECT_NO_THROW(parse_user_data("FE" + uuid.substr(2) + ":text"));
}

std::string failure(unsigned hours, bool drop_frame, const h264tool::ParsedTimecode& first) {
    const std::vector<SccLine> lines{{{hours, 0, 0, 0}, drop_frame, {0x9420}, 3}};
    try {
        const CaptionSchedule schedule(lines, {30000, 1001}, first, 30);
        return "none";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

TEST(CaptionSchedule, LinesBeforeTheStream) {
    EXPECT_EQ(failure(10, false, {{10, 0, 0, 0}, false}), "none");
    EXPECT_EQ(failure(10, false, {{10, 0, 0, 1}, false}),
              "line 3 at 10:00:00:00 begins before the stream (10:00:00:01)");
    EXPECT_EQ(failure(10, true, {{22, 0, 0, 0}, true}), "line 3 at 10:00:00;00 begins before the stream (22:00:00;00)");
    EXPECT_EQ(failure(10, true, {{22, 0, 0, 1}, true}), "none") << "the next day";
}

TEST(CaptionSchedule, DropFrameOfTimecodeAndLines) {
    EXPECT_EQ(failure(10, true, {{10, 0, 0, 0}, false}),
              "line 3 at 10:00:00;00 counts with drop frame, --timecode without: they must count in the same way");
    EXPECT_EQ(failure(10, false, {{10, 0, 0, 0}, true}),
              "line 3 at 10:00:00:00 counts without drop frame, --timecode with: they must count in the same way");
}

// Whatever the rate, an hour's caption frames are carried once each and in order.
TEST(CaptionSchedule, EachFrameOfTheFileIsCarriedOnce) {
    SccLine line;
    for (unsigned i = 0; i < 107892; ++i) line.pairs.push_back(static_cast<std::uint16_t>(i));
    for (const FrameRate rate : {FrameRate{24000, 1001}, FrameRate{24, 1}, FrameRate{25, 1}, FrameRate{30000, 1001},
                                 FrameRate{30, 1}, FrameRate{50, 1}, FrameRate{60000, 1001}, FrameRate{12345, 679}}) {
        const std::vector<SccLine> lines{line};
        const CaptionSchedule schedule(lines, rate, std::nullopt, 0);
        std::vector<std::uint16_t> carried;
        std::uint64_t frame = 0;
        while (carried.size() < line.pairs.size()) {
            const auto pairs = schedule.pairs(frame++);
            ASSERT_LE(pairs.size(), 2U);
            carried.insert(carried.end(), pairs.begin(), pairs.end());
        }
        carried.resize(line.pairs.size());
        EXPECT_TRUE(carried == line.pairs);
        EXPECT_NEAR(static_cast<double>(frame), 3600.0 * rate.value(), 60.0 * 1.1);
        EXPECT_NO_THROW(schedule.check_fits(frame));
        EXPECT_THROW(schedule.check_fits(frame - 1), std::runtime_error);
    }
}

}  // namespace
