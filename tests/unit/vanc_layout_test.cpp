// The records of vanc.h as they lie in memory: entries come from other programs' memory, packed back to back.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <type_traits>
#include <vector>

#include "h264.h"

namespace {

// A field lies at an offset, with a type.
#define FIELD_AT(record, field, offset, type) \
    static_assert(offsetof(record, field) == (offset) && std::is_same_v<decltype(record::field), type>)

using U8 = unsigned char;

static_assert(sizeof(vanc_t) == 273 && alignof(vanc_t) == 1);
FIELD_AT(vanc_t, channel, 0, int);
FIELD_AT(vanc_t, uiTimestamp, 4, unsigned int);
FIELD_AT(vanc_t, suid, 8, unsigned int);
FIELD_AT(vanc_t, vanc_data, 12, vanc_types_t);

static_assert(sizeof(vanc_types_t) == 261 && std::is_union_v<vanc_types_t>);
FIELD_AT(vanc_types_t, caption, 0, caption_t);
FIELD_AT(vanc_types_t, csd_data, 0, ccsvcinfo_full_t);
FIELD_AT(vanc_types_t, afd_data, 0, afd_t);
FIELD_AT(vanc_types_t, timecode, 0, vitc_t);
FIELD_AT(vanc_types_t, klv_data, 0, klvpkt_t);

static_assert(sizeof(caption_t) == 4);
FIELD_AT(caption_t, flag, 0, U8);
FIELD_AT(caption_t, type, 1, U8);
FIELD_AT(caption_t, data1, 2, U8);
FIELD_AT(caption_t, data2, 3, U8);

static_assert(sizeof(ccsvcinfo_full_t) == 170);
FIELD_AT(ccsvcinfo_full_t, cdp_hdr_sequence_cntr, 0, unsigned short);
FIELD_AT(ccsvcinfo_full_t, cdp_ftr_sequence_cntr, 2, unsigned short);
FIELD_AT(ccsvcinfo_full_t, pktchecksum_ok, 4, U8);
FIELD_AT(ccsvcinfo_full_t, flush_descriptor, 5, U8);
FIELD_AT(ccsvcinfo_full_t, svc_info_start, 6, U8);
FIELD_AT(ccsvcinfo_full_t, svc_info_change, 7, U8);
FIELD_AT(ccsvcinfo_full_t, svc_info_complete, 8, U8);
FIELD_AT(ccsvcinfo_full_t, svc_count, 9, U8);
FIELD_AT(ccsvcinfo_full_t, service, 10, svc_t[16]);

static_assert(sizeof(svc_t) == 10);
FIELD_AT(svc_t, reserved1, 0, U8);
FIELD_AT(svc_t, csn_size, 1, U8);
FIELD_AT(svc_t, reserved2, 2, U8);
FIELD_AT(svc_t, caption_service_number, 3, U8);
FIELD_AT(svc_t, svc_data_byte_1, 4, U8);
FIELD_AT(svc_t, svc_data_byte_2, 5, U8);
FIELD_AT(svc_t, svc_data_byte_3, 6, U8);
FIELD_AT(svc_t, svc_data_byte_4, 7, U8);
FIELD_AT(svc_t, svc_data_byte_5, 8, U8);
FIELD_AT(svc_t, svc_data_byte_6, 9, U8);

static_assert(sizeof(afd_t) == 5);
FIELD_AT(afd_t, active_format_flag, 0, int);
FIELD_AT(afd_t, active_format, 4, U8);

static_assert(sizeof(vitc_t) == 26);
FIELD_AT(vitc_t, TimeStampAssociated, 0, unsigned int);
FIELD_AT(vitc_t, FrameUnits, 4, U8);
FIELD_AT(vitc_t, FrameTens, 5, U8);
FIELD_AT(vitc_t, Flag1, 6, U8);
FIELD_AT(vitc_t, SecondUnits, 7, U8);
FIELD_AT(vitc_t, SecondTens, 8, U8);
FIELD_AT(vitc_t, Flag2, 9, U8);
FIELD_AT(vitc_t, MinuteUnits, 10, U8);
FIELD_AT(vitc_t, MinuteTens, 11, U8);
FIELD_AT(vitc_t, Flag3, 12, U8);
FIELD_AT(vitc_t, HourUnits, 13, U8);
FIELD_AT(vitc_t, HourTens, 14, U8);
FIELD_AT(vitc_t, Flag4, 15, U8);
FIELD_AT(vitc_t, VitcCrc, 16, U8);
FIELD_AT(vitc_t, VitcCrcErr, 17, U8);
FIELD_AT(vitc_t, BinaryGroups, 18, vitc_bg_t);

static_assert(sizeof(vitc_bg_t) == 8);
FIELD_AT(vitc_bg_t, BinaryGroup1, 0, U8);
FIELD_AT(vitc_bg_t, BinaryGroup2, 1, U8);
FIELD_AT(vitc_bg_t, BinaryGroup3, 2, U8);
FIELD_AT(vitc_bg_t, BinaryGroup4, 3, U8);
FIELD_AT(vitc_bg_t, BinaryGroup5, 4, U8);
FIELD_AT(vitc_bg_t, BinaryGroup6, 5, U8);
FIELD_AT(vitc_bg_t, BinaryGroup7, 6, U8);
FIELD_AT(vitc_bg_t, BinaryGroup8, 7, U8);

static_assert(sizeof(klvpkt_t) == 261);
FIELD_AT(klvpkt_t, MessageID, 0, U8);
FIELD_AT(klvpkt_t, PSCByte1, 1, U8);
FIELD_AT(klvpkt_t, PSCByte2, 2, U8);
FIELD_AT(klvpkt_t, KLVPayload, 3, U8[256]);
FIELD_AT(klvpkt_t, KLVPayloadLength, 259, U8);
FIELD_AT(klvpkt_t, ucFlushKLVMessage, 260, U8);

// The timing record is an ordinary structure.
static_assert(sizeof(SEI_pictiming_info_t) == 24 && alignof(SEI_pictiming_info_t) == 8);
FIELD_AT(SEI_pictiming_info_t, NALTime, 0, SEI_Time_t);
FIELD_AT(SEI_pictiming_info_t, FrameRate, 8, int);
FIELD_AT(SEI_pictiming_info_t, enSystemTCCountingMode, 12, int);
FIELD_AT(SEI_pictiming_info_t, scan_type, 16, U8);
FIELD_AT(SEI_pictiming_info_t, BottomFieldFlag, 17, U8);
FIELD_AT(SEI_pictiming_info_t, enTimeSource, 20, enum enTimeSource);

static_assert(sizeof(SEI_Time_t) == 8 && std::is_union_v<SEI_Time_t>);
FIELD_AT(SEI_Time_t, utcTime, 0, INT64);
FIELD_AT(SEI_Time_t, WallTime, 0, SEI_MovieTime_t);

static_assert(sizeof(SEI_MovieTime_t) == 4);
FIELD_AT(SEI_MovieTime_t, n_frames, 0, U8);
FIELD_AT(SEI_MovieTime_t, seconds, 1, U8);
FIELD_AT(SEI_MovieTime_t, minutes, 2, U8);
FIELD_AT(SEI_MovieTime_t, hours, 3, U8);

static_assert(SEI_SUID_CLOSED_CAPTION == 2 && SEI_SUID_AFD == 3 && SEI_SUID_PIC_TIMING == 4);
static_assert(UNKNOWN_TIME_CODE == 0 && NTP_SERVER == 1 && EMBEDDED_TIME_CODE == 2 && MISB605_DOUBLE_TIME_CODE == 3);
static_assert(SYSTEM_TC_SMPTE12M_1_COUNT_MODE == 0 && SYSTEM_TC_UTC_CONVERSION_COUNT_MODE == 1);
static_assert(H264_SCAN_TYPE_PROGRESSIVE == 0 && H264_SCAN_TYPE_INTERLACED == 1);

// Three entries in bytes that count up, at every alignment.
TEST(VancLayout, FieldsAreReadFromWhereTheyLie) {
    for (std::size_t shift = 0; shift < 4; ++shift) {
        std::vector<U8> memory(shift + 3 * 273);
        for (std::size_t i = 0; i < 3 * 273; ++i) memory[shift + i] = static_cast<U8>(i);
        const auto* entries = reinterpret_cast<const vanc_t*>(memory.data() + shift);
        for (std::size_t n = 0; n < 3; ++n) {
            const vanc_t& entry = entries[n];
            const auto at = [n](std::size_t offset) { return static_cast<unsigned>((273 * n + offset) % 256); };
            const auto word = [&](std::size_t offset) {
                return at(offset) | at(offset + 1) << 8 | at(offset + 2) << 16 | at(offset + 3) << 24;
            };
            EXPECT_EQ(static_cast<unsigned>(entry.channel), word(0));
            EXPECT_EQ(static_cast<unsigned>(entry.uiTimestamp), word(4));
            EXPECT_EQ(static_cast<unsigned>(entry.suid), word(8));
            EXPECT_EQ(entry.vanc_data.caption.data2, at(15));
            EXPECT_EQ(static_cast<unsigned>(entry.vanc_data.afd_data.active_format_flag), word(12));
            EXPECT_EQ(entry.vanc_data.afd_data.active_format, at(16));
            EXPECT_EQ(entry.vanc_data.timecode.BinaryGroups.BinaryGroup8, at(37));
            EXPECT_EQ(entry.vanc_data.csd_data.service[15].svc_data_byte_6, at(181));
            EXPECT_EQ(entry.vanc_data.klv_data.KLVPayload[255], at(270));
            EXPECT_EQ(entry.vanc_data.klv_data.ucFlushKLVMessage, at(272));
        }
    }
}

TEST(VancLayout, TheWallTimeIsTheFirstFourBytesOfATime) {
    SEI_Time_t time{};
    time.utcTime = 0x0807060504030201;
    EXPECT_EQ(time.WallTime.n_frames, 1);
    EXPECT_EQ(time.WallTime.seconds, 2);
    EXPECT_EQ(time.WallTime.minutes, 3);
    EXPECT_EQ(time.WallTime.hours, 4);
}

}  // namespace
