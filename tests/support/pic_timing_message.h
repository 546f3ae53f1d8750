// Picture timing messages as the writer should make them, and its inputs.
#pragma once

#include "encapsulation_model.h"
#include "writer_check.h"

namespace test {

// The elements of a message that vary, and the time. Values wider than their element are written modulo its width.
struct PicTiming {
    unsigned pic_struct = 0;
    unsigned ct_type = 0;
    unsigned counting_type = 1;
    unsigned cnt_dropped_flag = 0;
    SEI_MovieTime_t time{};

    Bytes rbsp() const {
        return BitWriter()
            .u(8, 1)
            .u(8, 9)
            .u(4, pic_struct)
            .u(1, 1)
            .u(2, ct_type)
            .u(1, 0)
            .u(5, counting_type)
            .u(1, 1)
            .u(1, 0)
            .u(1, cnt_dropped_flag)
            .u(8, time.n_frames)
            .u(6, time.seconds)
            .u(6, time.minutes)
            .u(5, time.hours)
            .u(24, 0)
            .u(7, 0x40)
            .u(8, 0x80)
            .bytes();
    }
    Bytes unit() const { return join(kSeiHeader, emulation_prevented(rbsp())); }
};

inline SEI_MovieTime_t time_of(int hours, int minutes, int seconds, int frames) {
    return {static_cast<unsigned char>(frames), static_cast<unsigned char>(seconds),
            static_cast<unsigned char>(minutes), static_cast<unsigned char>(hours)};
}

// Every field that has no part in the time holds something.
inline vitc_t vitc_of(int hours, int minutes, int seconds, int frames) {
    vitc_t vitc;
    std::memset(&vitc, 0xEE, sizeof vitc);
    const auto digit = [](int value) { return static_cast<unsigned char>(value); };
    vitc.FrameUnits = digit(frames % 10);
    vitc.FrameTens = digit(frames / 10);
    vitc.SecondUnits = digit(seconds % 10);
    vitc.SecondTens = digit(seconds / 10);
    vitc.MinuteUnits = digit(minutes % 10);
    vitc.MinuteTens = digit(minutes / 10);
    vitc.HourUnits = digit(hours % 10);
    vitc.HourTens = digit(hours / 10);
    vitc.Flag1 = vitc.Flag2 = vitc.Flag4 = 0;
    return vitc;
}

inline SEI_pictiming_info_t timing_of(int rate, unsigned char scan_type = H264_SCAN_TYPE_PROGRESSIVE,
                                      enum enTimeSource source = EMBEDDED_TIME_CODE) {
    SEI_pictiming_info_t timing;
    std::memset(static_cast<void*>(&timing), 0xDD, sizeof timing);
    timing.FrameRate = rate;
    timing.enSystemTCCountingMode = SYSTEM_TC_UTC_CONVERSION_COUNT_MODE;
    timing.scan_type = scan_type;
    timing.BottomFieldFlag = 0;
    timing.enTimeSource = source;
    return timing;
}

inline void expect_time(const SEI_MovieTime_t& time, const SEI_MovieTime_t& expected) {
    EXPECT_EQ(time.hours, expected.hours);
    EXPECT_EQ(time.minutes, expected.minutes);
    EXPECT_EQ(time.seconds, expected.seconds);
    EXPECT_EQ(time.n_frames, expected.n_frames);
}

}  // namespace test
