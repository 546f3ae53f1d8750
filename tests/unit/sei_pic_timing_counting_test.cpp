// Counting types, dropped frames, messages and assertions of the picture timing writer.
#include <climits>

#include "pic_timing_message.h"

namespace {

using test::Bytes;
using test::Lines;
using test::PicTiming;
using test::text;
using test::time_of;
using test::timing_of;
using test::vitc_of;

class PicTimingCounting : public test::WriterTest {
protected:
    // counting_type and cnt_dropped_flag of what is written.
    std::pair<int, int> counting(const vitc_t* vitc, SEI_pictiming_info_t timing) {
        EXPECT_GT(format_sei_pictime_nal(out_.data(), out_.size(), vitc, &timing), 16);
        EXPECT_EQ(out_.data()[8] & 6, 4) << "full_timestamp_flag and discontinuity_flag";
        return {out_.data()[8] >> 3, out_.data()[8] & 1};
    }
    std::pair<int, int> embedded(int rate, int flag1, int hours, int minutes, int seconds, int frames) {
        vitc_t vitc = vitc_of(hours, minutes, seconds, frames);
        vitc.Flag1 = static_cast<unsigned char>(flag1);
        return counting(&vitc, timing_of(rate));
    }
    std::pair<int, int> from_system(int rate, int mode, const SEI_MovieTime_t& time) {
        SEI_pictiming_info_t timing = timing_of(rate, H264_SCAN_TYPE_PROGRESSIVE, NTP_SERVER);
        timing.enSystemTCCountingMode = mode;
        timing.NALTime.WallTime = time;
        return counting(nullptr, timing);
    }

private:
    test::Output out_{29};
};

using Counting = std::pair<int, int>;

TEST_F(PicTimingCounting, FramesAreDroppedButInEveryTenthMinute) {
    EXPECT_EQ(embedded(29970, 1, 10, 0, 0, 2), (Counting{4, 0}));
    EXPECT_EQ(embedded(29970, 1, 10, 1, 0, 2), (Counting{4, 1}));
    for (int minutes = 0; minutes < 60; ++minutes)
        for (int frames = 0; frames < 30; ++frames)
            for (const int seconds : {0, 1, 59}) {
                const bool at_start = seconds == 0 && minutes % 10 != 0;
                EXPECT_EQ(embedded(29970, 1, 1, minutes, seconds, frames), (Counting{4, at_start && frames == 2}));
                EXPECT_EQ(embedded(59940, 1, 1, minutes, seconds, frames), (Counting{4, at_start && frames == 4}));
            }
}

TEST_F(PicTimingCounting, RatesThatCountWithDroppedFrames) {
    for (const int rate : {29000, 29001, 29970, 29998, 29999})
        EXPECT_EQ(embedded(rate, 1, 0, 1, 0, 2), (Counting{4, 1})) << rate;
    for (const int rate : {59000, 59001, 59940, 59998, 59999})
        EXPECT_EQ(embedded(rate, 1, 0, 1, 0, 4), (Counting{4, 1})) << rate;
    for (const int rate : {28998, 28999, 30000, 30001, 58998, 58999, 60000, 60001, 23976, 24000, 25000, 50000, 0, -1,
                           -29970, INT_MAX, INT_MIN})
        for (const int frames : {2, 4}) {
            EXPECT_EQ(embedded(rate, 1, 0, 1, 0, frames), (Counting{1, 0})) << rate;
            for (const int mode : {0, 1})
                EXPECT_EQ(from_system(rate, mode, time_of(0, 1, 0, frames)), (Counting{1, 0})) << rate;
        }
}

TEST_F(PicTimingCounting, AnEmbeddedTimecodeTellsByBit0OfItsFirstFlag) {
    for (const int rate : {29970, 59940})
        for (int flag1 = 0; flag1 < 256; ++flag1)
            EXPECT_EQ(embedded(rate, flag1, 1, 2, 3, 4).first, flag1 % 2 == 1 ? 4 : 1) << flag1;
    for (const int mode : {0, 1}) {
        SEI_pictiming_info_t timing = timing_of(29970);
        timing.NALTime.WallTime = time_of(0, 1, 0, 2);
        timing.enSystemTCCountingMode = mode;
        EXPECT_EQ(counting(nullptr, timing), (Counting{1, 0})) << "no timecode";
    }
}

TEST_F(PicTimingCounting, TheSystemsTimeCountsByItsMode) {
    for (const int rate : {29000, 29999, 59000, 59999}) {
        const int frame = rate < 30000 ? 2 : 4;
        for (const int mode : {1, 2, -1, 256, INT_MIN})
            EXPECT_EQ(from_system(rate, mode, time_of(0, 1, 0, frame)), (Counting{6, 0})) << mode;
        for (int minutes = 0; minutes <= 10; ++minutes)
            for (int frames = 0; frames <= 5; ++frames)
                for (const int seconds : {0, 1, 64})
                    EXPECT_EQ(from_system(rate, 0, time_of(3, minutes, seconds, frames)),
                              (Counting{4, seconds == 0 && minutes % 10 != 0 && frames == frame}));
    }
    // The timecode's flag does not count then, only its time.
    for (const int flag1 : {0, 1}) {
        vitc_t vitc = vitc_of(1, 1, 0, 2);
        vitc.Flag1 = static_cast<unsigned char>(flag1);
        SEI_pictiming_info_t timing = timing_of(29970, H264_SCAN_TYPE_PROGRESSIVE, NTP_SERVER);
        EXPECT_EQ(counting(&vitc, timing), (Counting{6, 0}));
        timing.enSystemTCCountingMode = 0;
        EXPECT_EQ(counting(&vitc, timing), (Counting{4, 1}));
    }
}

TEST_F(PicTimingCounting, OtherSourcesDropNothing) {
    vitc_t vitc = vitc_of(1, 1, 0, 2);
    vitc.Flag1 = 1;
    for (const enum enTimeSource source : {UNKNOWN_TIME_CODE, MISB605_DOUBLE_TIME_CODE})
        for (const int mode : {0, 1}) {
            SEI_pictiming_info_t timing = timing_of(29970, H264_SCAN_TYPE_PROGRESSIVE, source);
            timing.enSystemTCCountingMode = mode;
            EXPECT_EQ(counting(&vitc, timing), (Counting{1, 0}));
            EXPECT_EQ(counting(nullptr, timing), (Counting{1, 0}));
        }
}

class PicTimingMessages : public test::WriterTest {
protected:
    int write(const vitc_t* vitc) { return format_sei_pictime_nal(buffer, sizeof buffer, vitc, &timing); }
    // Whether the informational lines appear at this many seconds.
    Lines informed_at(int seconds, int level = 7) {
        at(seconds);
        test::reset(level);
        write(&vitc_);
        Lines found;
        for (const std::string& line : test::lines())
            if (line.find("INFO -") != std::string::npos || line.find("DEBUG - FrameRate") != std::string::npos)
                found.push_back(line);
        return found;
    }

    unsigned char buffer[40] = {};
    SEI_pictiming_info_t timing = timing_of(25000);
    vitc_t vitc_ = vitc_of(1, 2, 3, 4);
};

TEST_F(PicTimingMessages, AllInTheirOrder) {
    vitc_.Flag4 = 1;
    vitc_.VitcCrc = 0x12;
    vitc_.VitcCrcErr = 0x34;
    timing = timing_of(50000, H264_SCAN_TYPE_INTERLACED);
    timing.BottomFieldFlag = 1;
    ASSERT_EQ(write(&vitc_), 17);
    const Lines expected = {
        text("7 format_sei_pictime_nal: Called. Buffer:0x%p, len:40, pVitc_data:%p, timecode_data:%p",
             static_cast<void*>(buffer), static_cast<void*>(&vitc_), static_cast<void*>(&timing)),
        "7 _AssemblePicTimingSEI: Video is in European rate 25,50 frames/fields. FieldPresent:BOTTOM FIELD.",
        "6 _AssemblePicTimingSEI: INFO - enTimeSource:VITC, time H:M:S:F(1:2:3:4), anc_line:4660, BOTTOM FIELD.",
        "7 _AssemblePicTimingSEI: DEBUG - FrameRate:50000, BottomFieldFlag:1,ScanType:1, enSystemTCCountingMode:1.",
        "7 _AssemblePicTimingSEI: About to encapsulate SODB in RBSP.",
        encapsulated_lines(buffer + 5, 35, 12)[0],
        "7 _AssemblePicTimingSEI: DEBUG - RBSPSize=12, Encapsulated NAL size=12",
    };
    EXPECT_EQ(test::lines(), expected);
    for (int level = 7; level >= 0; --level) {
        at(10 * (8 - level));
        test::reset(level);
        write(&vitc_);
        Lines allowed;
        for (const std::string& line : expected)
            if (line[0] - '0' <= level) allowed.push_back(line);
        EXPECT_EQ(test::lines(), allowed) << level;
    }
}

TEST_F(PicTimingMessages, TheInformationByPictureSourceAndTimecode) {
    struct Case {
        unsigned char scan_type, bottom;
        enum enTimeSource source;
        bool with_vitc;
        const char* line;
    };
    vitc_.VitcCrc = 0xFF;
    vitc_.VitcCrcErr = 0xFF;
    int seconds = 0;
    for (const Case& c : {
             Case{0, 0, UNKNOWN_TIME_CODE, true, "SYSTEM, time H:M:S:F(1:2:3:4), anc_line:65535, FRAME."},
             Case{0, 1, NTP_SERVER, false, "SYSTEM, time H:M:S:F(200:100:99:255), anc_line:-1, FRAME."},
             Case{1, 0, EMBEDDED_TIME_CODE, true, "VITC, time H:M:S:F(1:2:3:4), anc_line:65535, TOP FIELD."},
             Case{1, 1, EMBEDDED_TIME_CODE, false, "VITC, time H:M:S:F(200:100:99:255), anc_line:-1, BOTTOM FIELD."},
             Case{1, 0, MISB605_DOUBLE_TIME_CODE, false,
                  "SYSTEM, time H:M:S:F(200:100:99:255), anc_line:-1, TOP FIELD."},
         }) {
        timing = timing_of(-1, c.scan_type, c.source);
        timing.NALTime.WallTime = time_of(200, 100, 99, 255);
        timing.BottomFieldFlag = c.bottom;
        timing.enSystemTCCountingMode = -7;
        at(seconds += 5);
        test::reset(7);
        ASSERT_GT(write(c.with_vitc ? &vitc_ : nullptr), 0);
        EXPECT_EQ(test::count(std::string("INFO - enTimeSource:") + c.line), 1) << c.line;
        EXPECT_EQ(test::count(text("DEBUG - FrameRate:-1, BottomFieldFlag:%d,ScanType:%d, enSystemTCCountingMode:-7.",
                                   c.bottom, c.scan_type)),
                  1);
    }
}

TEST_F(PicTimingMessages, InformationOnceInFiveSeconds) {
    EXPECT_EQ(informed_at(0).size(), 2U);
    EXPECT_EQ(informed_at(0).size(), 0U);
    EXPECT_EQ(informed_at(4).size(), 0U);
    EXPECT_EQ(informed_at(5).size(), 2U);
    EXPECT_EQ(informed_at(9).size(), 0U);
    EXPECT_EQ(informed_at(8).size(), 0U);
    EXPECT_EQ(informed_at(10, 6).size(), 1U);
    EXPECT_EQ(informed_at(14).size(), 0U);
    EXPECT_EQ(informed_at(15, 5).size(), 0U) << "the time is kept also when the level lets nothing out";
    EXPECT_EQ(informed_at(19).size(), 0U);
    EXPECT_EQ(informed_at(20).size(), 2U);
    {
        const test::WithoutHandle silent;
        EXPECT_EQ(informed_at(25).size(), 0U);
    }
    EXPECT_EQ(informed_at(29).size(), 0U);
    EXPECT_EQ(informed_at(30).size(), 2U);
}

TEST_F(PicTimingMessages, AFailureDoesNotCountAsInformation) {
    timing = timing_of(25000, H264_SCAN_TYPE_INTERLACED);
    timing.BottomFieldFlag = 1;
    EXPECT_EQ(write(&vitc_), -99);
    timing.scan_type = 9;
    EXPECT_EQ(write(&vitc_), -1);
    EXPECT_EQ(format_sei_pictime_nal(buffer, 28, &vitc_, &timing), -1);
    timing.scan_type = 0;
    EXPECT_EQ(informed_at(0).size(), 2U);
}

TEST_F(PicTimingMessages, ThePictureIsCopiedIntoAFieldOf32Bytes) {
    ASSERT_EQ(informed_at(0).size(), 2U);
    ASSERT_EQ(test::records().copies.size(), 1U);
    EXPECT_EQ(test::records().copies[0].source, "FRAME");
    EXPECT_EQ(test::records().copies[0].capacity, 32U);
    EXPECT_EQ(informed_at(1).size(), 0U);
    EXPECT_TRUE(test::records().copies.empty());
    timing = timing_of(25000, H264_SCAN_TYPE_INTERLACED);
    ASSERT_EQ(informed_at(5, 6).size(), 1U);
    ASSERT_EQ(test::records().copies.size(), 1U);
    EXPECT_EQ(test::records().copies[0].source, "TOP FIELD");
    ASSERT_EQ(informed_at(10, 5).size(), 0U);
    EXPECT_TRUE(test::records().copies.empty()) << "nothing is computed for a message that is not emitted";
}

TEST_F(PicTimingMessages, NullPointers) {
    const std::vector<std::string> vitc_and_timing = {"pVitc_data != NULL", "timecode_data != NULL"};
    EXPECT_EQ(format_sei_pictime_nal(buffer, 40, nullptr, nullptr), -1);
    EXPECT_EQ(test::assertions(), vitc_and_timing);
    EXPECT_EQ(test::lines().back(), "3 format_sei_pictime_nal: SEI_data:(nil) is NULL!");
    for (const test::Assertion& assertion : test::records().assertions) {
        EXPECT_EQ(assertion.func, "format_sei_pictime_nal");
        EXPECT_EQ(assertion.file, "h264.c");
    }
    test::reset(3);
    EXPECT_EQ(format_sei_pictime_nal(buffer, 40, &vitc_, nullptr), -1);
    EXPECT_EQ(test::assertions(), std::vector<std::string>{"timecode_data != NULL"});
    EXPECT_EQ(test::lines(), Lines{"3 format_sei_pictime_nal: SEI_data:(nil) is NULL!"});
    EXPECT_EQ(Bytes(buffer, buffer + 40), Bytes(40, 0));

    test::reset(0);
    EXPECT_LT(format_sei_pictime_nal(nullptr, 40, &vitc_, &timing), 0);
    ASSERT_EQ(test::assertions(), (std::vector<std::string>{"buffer != NULL", "buffer != NULL"}));
    EXPECT_EQ(test::records().assertions[0].func, "format_sei_pictime_nal");
    EXPECT_EQ(test::records().assertions[1].func, "_AssemblePicTimingSEI");
    EXPECT_EQ(test::records().assertions[1].file, "h264.c");
    test::reset(8);
    const test::WithoutHandle silent;
    EXPECT_LT(format_sei_pictime_nal(nullptr, 40, nullptr, nullptr), 0);
    EXPECT_EQ(test::assertions().size(), 3U);
    EXPECT_TRUE(test::lines().empty());
}

}  // namespace
