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

class PicTimingWriter : public test::WriterTest {
protected:
    // One call with a buffer that ends at unreadable memory.
    void expect_written(const vitc_t* vitc, SEI_pictiming_info_t timing, const PicTiming& expected) {
        const Bytes unit = expected.unit();
        for (const int len : {29, 64}) {
            test::Output out(static_cast<std::size_t>(len));
            SEI_pictiming_info_t copy = timing;
            ASSERT_EQ(format_sei_pictime_nal(out.data(), len, vitc, &copy), static_cast<int>(unit.size()));
            ASSERT_EQ(out.written(unit.size()), unit);
        }
    }
};

TEST_F(PicTimingWriter, AProgressiveFrame) {
    const vitc_t vitc = vitc_of(1, 2, 3, 4);
    SEI_pictiming_info_t timing = timing_of(25000);
    test::Output out(29);
    EXPECT_EQ(format_sei_pictime_nal(out.data(), 29, &vitc, &timing), 17);
    EXPECT_EQ(out.written(17),
              (Bytes{0, 0, 0, 1, 0x06, 0x01, 0x09, 0x08, 0x0C, 0x04, 0x0C, 0x20, 0x80, 0, 0, 0x40, 0x80}));
    test::expect_time(timing.NALTime.WallTime, time_of(1, 2, 3, 4));
    EXPECT_TRUE(test::assertions().empty());
    expect_written(&vitc, timing, {.time = time_of(1, 2, 3, 4)});
}

TEST_F(PicTimingWriter, EveryByteOfAFieldMessage) {
    vitc_t vitc = vitc_of(23, 59, 58, 24);
    vitc.Flag4 = 1;
    SEI_pictiming_info_t timing = timing_of(50000, H264_SCAN_TYPE_INTERLACED);
    timing.BottomFieldFlag = 1;
    test::Output out(29);
    EXPECT_EQ(format_sei_pictime_nal(out.data(), 29, &vitc, &timing), 17);
    // 0010 1 01 0, 00001 1 0 0, 24, 111010 11, 1011 1011, 1 0000000 ...
    EXPECT_EQ(out.written(17),
              (Bytes{0, 0, 0, 1, 0x06, 0x01, 0x09, 0x2A, 0x0C, 0x18, 0xEB, 0xBB, 0x80, 0, 0, 0x40, 0x80}));
}

TEST_F(PicTimingWriter, EmulationPreventionBytesAreInserted) {
    const vitc_t midnight = vitc_of(0, 0, 0, 0);
    SEI_pictiming_info_t timing = timing_of(25000);
    test::Output out(29);
    EXPECT_EQ(format_sei_pictime_nal(out.data(), 29, &midnight, &timing), 19);
    EXPECT_EQ(out.written(19), (Bytes{0, 0, 0, 1, 0x06, 0x01, 0x09, 0x08, 0x0C, 0, 0, 3, 0, 0, 3, 0, 0, 0x40, 0x80}));
    for (int frames = 0; frames < 4; ++frames)
        for (int hours = 0; hours < 24; ++hours) {
            const vitc_t vitc = vitc_of(hours, frames * 16, 0, frames);
            expect_written(&vitc, timing, {.time = time_of(hours, frames * 16, 0, frames)});
        }
}

TEST_F(PicTimingWriter, TheLengthComesBeforeTheBuffer) {
    const vitc_t vitc = vitc_of(1, 2, 3, 4);
    SEI_pictiming_info_t timing = timing_of(25000);
    for (const int len : {28, 29}) {
        test::reset(3);
        EXPECT_EQ(format_sei_pictime_nal(nullptr, len, &vitc, &timing), -1);
        EXPECT_EQ(test::lines().size(), len < 29 ? 1U : 0U);
        EXPECT_EQ(test::assertions(), std::vector<std::string>(2, "buffer != NULL"));
    }
}

TEST_F(PicTimingWriter, ABufferBelow29BytesIsNotTouched) {
    const vitc_t vitc = vitc_of(1, 2, 3, 4);
    for (int len = 0; len < 29; ++len) {
        test::Output out(static_cast<std::size_t>(len));
        SEI_pictiming_info_t timing = timing_of(25000);
        timing.scan_type = 2;  // not looked at before the length
        test::reset(3);
        EXPECT_EQ(format_sei_pictime_nal(out.data(), len, &vitc, &timing), -1);
        EXPECT_EQ(test::lines(), Lines{text("3 _AssemblePicTimingSEI: Received buffer len:%d is smaller than actual "
                                            "size of SEI:29.",
                                            len)});
        out.written(0);
        test::expect_time(timing.NALTime.WallTime, time_of(1, 2, 3, 4));
    }
    for (const int len : {-1, INT_MIN}) {
        test::Output out(0);
        SEI_pictiming_info_t timing = timing_of(25000);
        EXPECT_EQ(format_sei_pictime_nal(out.data(), len, &vitc, &timing), -1);
    }
    SEI_pictiming_info_t timing = timing_of(25000);
    for (std::size_t len = 29; len < 80; ++len) {
        test::Output out(len);
        EXPECT_EQ(format_sei_pictime_nal(out.data(), out.size(), &vitc, &timing), 17);
        EXPECT_EQ(out.written(17), PicTiming{.time = time_of(1, 2, 3, 4)}.unit());
    }
}

TEST_F(PicTimingWriter, OtherScanTypesAreRefused) {
    const vitc_t vitc = vitc_of(1, 2, 3, 4);
    for (int scan_type = 2; scan_type < 256; ++scan_type) {
        test::Output out(64);
        SEI_pictiming_info_t timing = timing_of(25000, static_cast<unsigned char>(scan_type));
        test::reset(6);
        EXPECT_EQ(format_sei_pictime_nal(out.data(), 64, scan_type % 2 != 0 ? &vitc : nullptr, &timing), -1);
        EXPECT_EQ(test::lines(), Lines{text("3 _AssemblePicTimingSEI: timecode_data:%p, scan_type:%d is not "
                                            "Interlaced(1) or Progressive(0).",
                                            static_cast<void*>(&timing), scan_type)});
        out.written(0);
    }
}

TEST_F(PicTimingWriter, TheFieldOfAPictureByRateMarkAndFlag) {
    const std::vector<int> rates = {25000, 50000, 24999, 25001, 49999, 50001, 23976,  24000,
                                    29970, 30000, 59940, 60000, 0,     -1,    INT_MAX};
    for (const int rate : rates)
        for (const int flag2 : {0, 1, 2, 255})
            for (const int flag4 : {0, 1, 3, 255})
                for (const int bottom : {0, 1, 2, 255}) {
                    SCOPED_TRACE(text("rate %d, Flag2 %d, Flag4 %d, BottomFieldFlag %d", rate, flag2, flag4, bottom));
                    vitc_t vitc = vitc_of(10, 20, 30, 5);
                    vitc.Flag2 = static_cast<unsigned char>(flag2);
                    vitc.Flag4 = static_cast<unsigned char>(flag4);
                    SEI_pictiming_info_t timing = timing_of(rate, H264_SCAN_TYPE_INTERLACED, UNKNOWN_TIME_CODE);
                    timing.BottomFieldFlag = static_cast<unsigned char>(bottom);
                    const bool european = rate == 25000 || rate == 50000;
                    const int mark = european ? flag4 : flag2;
                    const std::string line = text(
                        "7 _AssemblePicTimingSEI: Video is in %s frames/fields. "
                        "FieldPresent:%s.",
                        european ? "European rate 25,50" : "North american rate 24,30,60",
                        mark == 1 ? "BOTTOM FIELD" : "TOP FIELD");
                    test::Output out(29);
                    test::reset(7);
                    const int result = format_sei_pictime_nal(out.data(), 29, &vitc, &timing);
                    ASSERT_GE(test::lines().size(), 2U);
                    EXPECT_EQ(test::lines()[1], line);
                    if ((mark == 1) != (bottom == 1)) {
                        ASSERT_EQ(result, -99);
                        out.written(0);
                        EXPECT_EQ(test::lines().size(), 2U);
                        EXPECT_EQ(format_sei_pictime_nal(nullptr, 29, &vitc, &timing), -99) << "the buffer comes last";
                        continue;
                    }
                    const Bytes unit =
                        PicTiming{.pic_struct = mark == 1 ? 2U : 1U, .ct_type = 1, .time = time_of(10, 20, 30, 5)}
                            .unit();
                    ASSERT_EQ(result, static_cast<int>(unit.size()));
                    EXPECT_EQ(out.written(unit.size()), unit);
                }
}

TEST_F(PicTimingWriter, WithoutATimecodeTheFlagAloneTellsTheField) {
    for (const int rate : {25000, 29970, 60000})
        for (const int bottom : {0, 1, 2, 255}) {
            SEI_pictiming_info_t timing = timing_of(rate, H264_SCAN_TYPE_INTERLACED, NTP_SERVER);
            timing.NALTime.WallTime = time_of(1, 2, 3, 4);
            timing.BottomFieldFlag = static_cast<unsigned char>(bottom);
            test::reset(7);
            expect_written(nullptr, timing,
                           {.pic_struct = bottom == 1 ? 2U : 1U,
                            .ct_type = 1,
                            .counting_type = rate == 29970 ? 6U : 1U,
                            .time = time_of(1, 2, 3, 4)});
            for (const std::string& line : test::lines()) EXPECT_EQ(line.find("Video is in"), std::string::npos);
        }
}

TEST_F(PicTimingWriter, AProgressivePictureHasNoField) {
    vitc_t vitc = vitc_of(1, 2, 3, 4);
    vitc.Flag2 = vitc.Flag4 = 1;
    for (const int bottom : {0, 1, 2}) {
        SEI_pictiming_info_t timing = timing_of(25000);
        timing.BottomFieldFlag = static_cast<unsigned char>(bottom);
        expect_written(&vitc, timing, {.time = time_of(1, 2, 3, 4)});
        expect_written(nullptr,
                       [&] {
                           timing.NALTime.WallTime = time_of(5, 6, 7, 8);
                           return timing;
                       }(),
                       {.time = time_of(5, 6, 7, 8)});
    }
}

TEST_F(PicTimingWriter, TheTimeIsTakenFromTheTimecode) {
    for (const auto& [hours, minutes, seconds, frames] :
         {std::array{0, 0, 0, 0}, {23, 59, 59, 85}, {9, 9, 9, 9}, {10, 10, 10, 10}, {19, 50, 5, 84}, {1, 40, 59, 23}}) {
        const vitc_t vitc = vitc_of(hours, minutes, seconds, frames);
        SEI_pictiming_info_t timing = timing_of(24000);
        const SEI_pictiming_info_t before = timing;
        test::reset(3);
        expect_written(&vitc, timing, {.time = time_of(hours, minutes, seconds, frames)});
        EXPECT_EQ(test::lines(), Lines{});
        test::Output out(29);
        EXPECT_GT(format_sei_pictime_nal(out.data(), 29, &vitc, &timing), 0);
        test::expect_time(timing.NALTime.WallTime, time_of(hours, minutes, seconds, frames));
        // Nothing else of the record is changed, the rest of the time's union included.
        timing.NALTime.WallTime = before.NALTime.WallTime;
        EXPECT_EQ(std::memcmp(&timing, &before, sizeof timing), 0);
    }
}

TEST_F(PicTimingWriter, WithoutATimecodeTheRecordsTimeIsWrittenAndKept) {
    SEI_pictiming_info_t timing = timing_of(30000, H264_SCAN_TYPE_PROGRESSIVE, NTP_SERVER);
    timing.NALTime.WallTime = time_of(21, 22, 23, 24);
    const SEI_pictiming_info_t before = timing;
    test::Output out(29);
    EXPECT_EQ(format_sei_pictime_nal(out.data(), 29, nullptr, &timing), 17);
    EXPECT_EQ(out.written(17), PicTiming{.time = time_of(21, 22, 23, 24)}.unit());
    EXPECT_EQ(std::memcmp(&timing, &before, sizeof timing), 0);
    EXPECT_EQ(test::assertions(), std::vector<std::string>{"pVitc_data != NULL"});
}

TEST_F(PicTimingWriter, ValuesWiderThanTheirBitsAreWrittenModuloTheirWidth) {
    test::set_level(0);
    for (int value = 0; value < 256; ++value) {
        for (const SEI_MovieTime_t& time : {time_of(1, 2, 3, value), time_of(1, 2, value, 4), time_of(1, value, 3, 4),
                                            time_of(value, 2, 3, 4), time_of(value, value, value, value)}) {
            SEI_pictiming_info_t timing = timing_of(25000);
            timing.NALTime.WallTime = time;
            ASSERT_NO_FATAL_FAILURE(expect_written(nullptr, timing, {.time = time}));
        }
    }
    SEI_pictiming_info_t timing = timing_of(25000);
    timing.NALTime.WallTime = time_of(33, 66, 67, 4);
    expect_written(nullptr, timing, {.time = time_of(1, 2, 3, 4)});
}

struct BadTime {
    int hours, minutes, seconds, frames;
};

TEST_F(PicTimingWriter, ATimecodeOutOfRangeBecomesZero) {
    for (const BadTime& bad : {BadTime{0, 0, 0, 86},
                               {0, 0, 0, 99},
                               {0, 0, 60, 0},
                               {0, 60, 0, 0},
                               {24, 0, 0, 0},
                               {99, 99, 99, 99},
                               {23, 59, 59, 86},
                               {23, 59, 60, 85},
                               {23, 60, 59, 85},
                               {24, 59, 59, 85}}) {
        const vitc_t vitc = vitc_of(bad.hours, bad.minutes, bad.seconds, bad.frames);
        SEI_pictiming_info_t timing = timing_of(30000);
        const SEI_pictiming_info_t before = timing;
        test::Output out(29);
        test::reset(3);
        EXPECT_EQ(format_sei_pictime_nal(out.data(), 29, &vitc, &timing), 19);
        EXPECT_EQ(test::lines(),
                  (Lines{text("3 _SMPTEVitcToSEIPictiming: SEI_data_time(HH:MM:SS:FF):(%d:%d:%d:%d) is NOT in the "
                              "expected boudaries",
                              bad.hours, bad.minutes, bad.seconds, bad.frames),
                         text("3 format_sei_pictime_nal: Failed to convert pVitc_data:%p into timecode_data:%p",
                              static_cast<const void*>(&vitc), static_cast<void*>(&timing))}));
        EXPECT_EQ(out.written(19), PicTiming{}.unit());
        test::expect_time(timing.NALTime.WallTime, time_of(0, 0, 0, 0));
        timing.NALTime.WallTime = before.NALTime.WallTime;
        EXPECT_EQ(std::memcmp(&timing, &before, sizeof timing), 0);
    }
}

TEST_F(PicTimingWriter, AZeroedTimecodeKeepsItsFlags) {
    vitc_t vitc = vitc_of(10, 1, 0, 86);
    vitc.Flag1 = vitc.Flag2 = 1;
    SEI_pictiming_info_t timing = timing_of(29970, H264_SCAN_TYPE_INTERLACED);
    timing.BottomFieldFlag = 1;
    expect_written(&vitc, timing, {.pic_struct = 2, .ct_type = 1, .counting_type = 4});
}

// 260 frames are 4, and 256 + 60 seconds are 60.
TEST_F(PicTimingWriter, DigitsAreAddedInEightBits) {
    vitc_t vitc = vitc_of(1, 2, 3, 0);
    vitc.FrameTens = 26;
    expect_written(&vitc, timing_of(25000), {.time = time_of(1, 2, 3, 4)});
    vitc.FrameTens = 0;
    vitc.FrameUnits = 85;
    vitc.HourTens = 25;
    vitc.HourUnits = 17;
    vitc.MinuteTens = 255;
    vitc.MinuteUnits = 13;
    expect_written(&vitc, timing_of(25000), {.time = time_of(11, 3, 3, 85)});
    vitc.SecondTens = 31;
    vitc.SecondUnits = 6;
    test::reset(3);
    expect_written(&vitc, timing_of(25000), {});
    EXPECT_EQ(test::count("SEI_data_time(HH:MM:SS:FF):(11:3:60:85) is NOT in the expected boudaries"), 2);
}

}  // namespace
