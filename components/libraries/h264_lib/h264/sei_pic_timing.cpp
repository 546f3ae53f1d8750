// pic_timing() SEI, ITU-T H.264 D.1.3, from a vertical interval timecode.
#include "h264/sei_writer.h"

namespace {

constexpr int kSeiBytes = 29;              // what the writer wants of a buffer
constexpr int kFieldMismatch = -99;        // the timecode is of the other field
constexpr std::time_t kDisplayPeriod = 4;  // seconds that pass between two informational lines

h264::Throttle _tLastDisplayTime;

// The frame rates of the 1000/1001 family, in frames or fields per 1000 seconds.
bool is_29_97(int rate) { return rate > 28999 && rate <= 29999; }
bool is_59_94(int rate) { return rate > 58999 && rate <= 59999; }

// The elements of the message that vary.
struct ClockTimestamp {
    unsigned char pic_struct = 0;
    unsigned char ct_type = 2;
    unsigned char counting_type = 1;
    unsigned char cnt_dropped_flag = 0;
};

}  // namespace

static int _SMPTEVitcToSEIPictiming(const vitc_t* vitc_data, SEI_pictiming_info_t* SEI_data) {
    if (vitc_data == nullptr) {
        LOG(3, "vitc_data:%p is NULL!", static_cast<const void*>(vitc_data));
        return -1;
    }
    if (SEI_data == nullptr) {
        LOG(3, "SEI_data:%p is NULL!", static_cast<void*>(SEI_data));
        return -1;
    }
    const auto number = [](unsigned char tens, unsigned char units) {
        return static_cast<unsigned char>(tens * 10 + units);
    };
    SEI_MovieTime_t& time = SEI_data->NALTime.WallTime;
    time.n_frames = number(vitc_data->FrameTens, vitc_data->FrameUnits);
    time.seconds = number(vitc_data->SecondTens, vitc_data->SecondUnits);
    time.minutes = number(vitc_data->MinuteTens, vitc_data->MinuteUnits);
    time.hours = number(vitc_data->HourTens, vitc_data->HourUnits);
    // The bound of the frame number is this library's own.
    if (time.n_frames < 86 && time.seconds < 60 && time.minutes < 60 && time.hours < 24) return 0;
    LOG(3, "SEI_data_time(HH:MM:SS:FF):(%d:%d:%d:%d) is NOT in the expected boudaries", time.hours, time.minutes,
        time.seconds, time.n_frames);
    return -1;
}

// pic_struct and ct_type from the scan type and, for fields, the timecode's field mark. 0, or the writer's failure.
static int set_scan_type(const vitc_t* pVitc_data, const SEI_pictiming_info_t& timecode_data, ClockTimestamp& clock,
                         const char* function) {
    if (timecode_data.scan_type == H264_SCAN_TYPE_PROGRESSIVE) {
        clock.ct_type = 0;
        clock.pic_struct = 0;
        return 0;
    }
    if (timecode_data.scan_type != H264_SCAN_TYPE_INTERLACED) {
        LOG_AS(function, 3, "timecode_data:%p, scan_type:%d is not Interlaced(1) or Progressive(0).",
               static_cast<const void*>(&timecode_data), timecode_data.scan_type);
        return -1;
    }
    clock.ct_type = 1;
    clock.pic_struct = 1;
    if (pVitc_data == nullptr) {
        if (timecode_data.BottomFieldFlag == 1) clock.pic_struct = 2;
        return 0;
    }
    unsigned char field_mark = 0;
    if (timecode_data.FrameRate == 25000 || timecode_data.FrameRate == 50000) {
        field_mark = pVitc_data->Flag4;
        LOG_AS(function, 7, "Video is in European rate 25,50 frames/fields. FieldPresent:%s.",
               field_mark == 1 ? "BOTTOM FIELD" : "TOP FIELD");
    } else {
        field_mark = pVitc_data->Flag2;
        LOG_AS(function, 7, "Video is in North american rate 24,30,60 frames/fields. FieldPresent:%s.",
               field_mark == 1 ? "BOTTOM FIELD" : "TOP FIELD");
    }
    if (field_mark == 1) clock.pic_struct = 2;
    // The timecode and the caller must mean the same field.
    const bool is_bottom_field = timecode_data.BottomFieldFlag == 1;
    return is_bottom_field == (field_mark == 1) ? 0 : kFieldMismatch;
}

// counting_type and cnt_dropped_flag of the 1000/1001 rates.
static void set_counting(const vitc_t* pVitc_data, const SEI_pictiming_info_t& timecode_data, ClockTimestamp& clock) {
    const int rate = timecode_data.FrameRate;
    if (!is_29_97(rate) && !is_59_94(rate)) return;
    if (timecode_data.enTimeSource == EMBEDDED_TIME_CODE) {
        if (pVitc_data != nullptr && (pVitc_data->Flag1 & 1) != 0) clock.counting_type = 4;
    } else if (timecode_data.enTimeSource == NTP_SERVER) {
        clock.counting_type = timecode_data.enSystemTCCountingMode == SYSTEM_TC_SMPTE12M_1_COUNT_MODE ? 4 : 6;
    }
    const SEI_MovieTime_t& time = timecode_data.NALTime.WallTime;
    if (clock.counting_type != 4 || time.seconds != 0 || time.minutes % 10 == 0) return;
    // The first frame number behind the dropped ones.
    if (time.n_frames == (is_29_97(rate) ? 2 : 4)) clock.cnt_dropped_flag = 1;
}

static int _AssemblePicTimingSEI(unsigned char* buffer, int len, const vitc_t* pVitc_data,
                                 const SEI_pictiming_info_t* timecode_data) {
    DO_ASSERT(buffer != NULL);
    DO_ASSERT(timecode_data != NULL);
    if (timecode_data == nullptr) return -1;
    if (len < kSeiBytes) {
        LOG(3, "Received buffer len:%d is smaller than actual size of SEI:%d.", len, kSeiBytes);
        return -1;
    }
    ClockTimestamp clock;
    if (const int result = set_scan_type(pVitc_data, *timecode_data, clock, __func__); result != 0) return result;
    set_counting(pVitc_data, *timecode_data, clock);

    const SEI_MovieTime_t& time = timecode_data->NALTime.WallTime;
    if (_tLastDisplayTime.is_due(kDisplayPeriod)) {
        if (h264::is_emitted(6)) {
            char picture[32];
            CopyString(picture,
                       clock.pic_struct == 1   ? "TOP FIELD"
                       : clock.pic_struct == 2 ? "BOTTOM FIELD"
                                               : "FRAME",
                       sizeof picture);
            LOG(6, "INFO - enTimeSource:%s, time H:M:S:F(%d:%d:%d:%d), anc_line:%d, %s.",
                timecode_data->enTimeSource == EMBEDDED_TIME_CODE ? "VITC" : "SYSTEM", time.hours, time.minutes,
                time.seconds, time.n_frames,
                pVitc_data != nullptr ? pVitc_data->VitcCrc * 256 + pVitc_data->VitcCrcErr : -1, picture);
        }
        LOG(7, "DEBUG - FrameRate:%d, BottomFieldFlag:%d,ScanType:%d, enSystemTCCountingMode:%d.",
            timecode_data->FrameRate, timecode_data->BottomFieldFlag, timecode_data->scan_type,
            timecode_data->enSystemTCCountingMode);
    }

    if (buffer == nullptr) return -1;
    unsigned char rbsp[12] = {};
    bitbuffer_t bits;
    __DoInitBitBuffer(&bits, rbsp, sizeof rbsp * NUM_BITS_IN_BYTE, __func__, kModuleFile, __LINE__);
    SetNextNBitsFromUint8(&bits, 8, 1);                       // payloadType: pic_timing
    SetNextNBitsFromUint8(&bits, 8, 9);                       // payloadSize
    SetNextNBitsFromUint8(&bits, 4, clock.pic_struct);        // pic_struct
    SetNextNBitsFromUint8(&bits, 1, 1);                       // clock_timestamp_flag
    SetNextNBitsFromUint8(&bits, 2, clock.ct_type);           // ct_type
    SetNextNBitsFromUint8(&bits, 1, 0);                       // nuit_field_based_flag
    SetNextNBitsFromUint8(&bits, 5, clock.counting_type);     // counting_type
    SetNextNBitsFromUint8(&bits, 1, 1);                       // full_timestamp_flag
    SetNextNBitsFromUint8(&bits, 1, 0);                       // discontinuity_flag
    SetNextNBitsFromUint8(&bits, 1, clock.cnt_dropped_flag);  // cnt_dropped_flag
    SetNextNBitsFromUint8(&bits, 8, time.n_frames);           // n_frames
    SetNextNBitsFromUint8(&bits, 6, time.seconds);            // seconds_value
    SetNextNBitsFromUint8(&bits, 6, time.minutes);            // minutes_value
    SetNextNBitsFromUint8(&bits, 5, time.hours);              // hours_value
    SetNextNBitsFromUint32(&bits, 24, 0);                     // time_offset
    SetNextNBitsFromUint8(&bits, 7, 0x40);                    // payload alignment
    SetNextNBitsFromUint8(&bits, 8, 0x80);                    // rbsp_trailing_bits

    LOG(7, "About to encapsulate SODB in RBSP.");
    const int size = h264::write_sei_unit(buffer, len, rbsp, sizeof rbsp);
    if (size == 0) LOG(3, "Encapsulation failed!");
    LOG(7, "DEBUG - RBSPSize=%d, Encapsulated NAL size=%d", static_cast<int>(sizeof rbsp), size);
    return size + h264::kSeiHeaderBytes;
}

int format_sei_pictime_nal(unsigned char* buffer, int len, const vitc_t* pVitc_data,
                           SEI_pictiming_info_t* timecode_data) {
    DO_ASSERT(buffer != NULL);
    DO_ASSERT(pVitc_data != NULL);
    DO_ASSERT(timecode_data != NULL);
    LOG(7, "Called. Buffer:0x%p, len:%d, pVitc_data:%p, timecode_data:%p", static_cast<void*>(buffer), len,
        static_cast<const void*>(pVitc_data), static_cast<void*>(timecode_data));
    if (timecode_data == nullptr) {
        LOG(3, "SEI_data:%p is NULL!", static_cast<void*>(timecode_data));
        return -1;
    }
    if (pVitc_data != nullptr && _SMPTEVitcToSEIPictiming(pVitc_data, timecode_data) != 0) {
        LOG(3, "Failed to convert pVitc_data:%p into timecode_data:%p", static_cast<const void*>(pVitc_data),
            static_cast<void*>(timecode_data));
        timecode_data->NALTime.WallTime = {};
    }
    return _AssemblePicTimingSEI(buffer, len, pVitc_data, timecode_data);
}
