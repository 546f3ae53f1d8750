/**
 * @file vanc.h
 * Ancillary-data records as video hardware captures them, and the inputs of the picture timing SEI writer. Valid C11
 * and C++17.
 *
 * The records of a vanc_t are packed: no bytes lie between fields or between the entries of an array. Use the fields by
 * their names; a pointer to one of them may be misaligned.
 */
#ifndef H264_LIB_VANC_H
#define H264_LIB_VANC_H

#include "xtypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Kinds of SEI messages and ancillary entries. */
enum {
    SEI_SUID_NONE = 0,           /**< other or unknown */
    SEI_SUID_CLOSED_CAPTION = 2, /**< closed captions, ATSC A/53 */
    SEI_SUID_AFD = 3,            /**< active format description, ATSC A/53 */
    SEI_SUID_PIC_TIMING = 4      /**< picture timing */
};

#pragma pack(push, 1)

/** Binary groups of a VITC, SMPTE 12M. */
typedef struct vitc_bg_s {
    unsigned char BinaryGroup1; /**< user bits */
    unsigned char BinaryGroup2; /**< user bits */
    unsigned char BinaryGroup3; /**< user bits */
    unsigned char BinaryGroup4; /**< user bits */
    unsigned char BinaryGroup5; /**< user bits */
    unsigned char BinaryGroup6; /**< user bits */
    unsigned char BinaryGroup7; /**< user bits */
    unsigned char BinaryGroup8; /**< user bits */
} vitc_bg_t;

/** Vertical interval timecode, SMPTE 12M. Each digit field holds a number from 0 to 9. */
typedef struct vitc_s {
    unsigned int TimeStampAssociated; /**< capture time stamp */
    unsigned char FrameUnits;         /**< units of frames */
    unsigned char FrameTens;          /**< tens of frames */
    unsigned char Flag1;              /**< bit 0: drop-frame timecode */
    unsigned char SecondUnits;        /**< units of seconds */
    unsigned char SecondTens;         /**< tens of seconds */
    unsigned char Flag2;              /**< field mark at 24, 30 and 60 frames or fields per second; 1: bottom field */
    unsigned char MinuteUnits;        /**< units of minutes */
    unsigned char MinuteTens;         /**< tens of minutes */
    unsigned char Flag3;              /**< not used by the library */
    unsigned char HourUnits;          /**< units of hours */
    unsigned char HourTens;           /**< tens of hours */
    unsigned char Flag4;              /**< field mark at 25 and 50 frames or fields per second; 1: bottom field */
    unsigned char VitcCrc;            /**< for a log line only */
    unsigned char VitcCrcErr;         /**< for a log line only */
    vitc_bg_t BinaryGroups;           /**< user bits */
} vitc_t;

/** One caption triple of cc_data(), ATSC A/53. */
typedef struct caption_s {
    unsigned char flag;  /**< bit 0: cc_valid */
    unsigned char type;  /**< bits 0 and 1: cc_type */
    unsigned char data1; /**< cc_data_1 */
    unsigned char data2; /**< cc_data_2 */
} caption_t;

/** One service of a caption distribution packet's service information. */
typedef struct svc_s {
    unsigned char reserved1;              /**< reserved bits */
    unsigned char csn_size;               /**< size of the caption service number */
    unsigned char reserved2;              /**< reserved bits */
    unsigned char caption_service_number; /**< service */
    unsigned char svc_data_byte_1;        /**< service data */
    unsigned char svc_data_byte_2;        /**< service data */
    unsigned char svc_data_byte_3;        /**< service data */
    unsigned char svc_data_byte_4;        /**< service data */
    unsigned char svc_data_byte_5;        /**< service data */
    unsigned char svc_data_byte_6;        /**< service data */
} svc_t;

/** Caption service information of a caption distribution packet, SMPTE 334-2. */
typedef struct ccsvcinfo_full_s {
    unsigned short cdp_hdr_sequence_cntr; /**< header sequence counter */
    unsigned short cdp_ftr_sequence_cntr; /**< footer sequence counter */
    unsigned char pktchecksum_ok;         /**< whether the packet's checksum was right */
    unsigned char flush_descriptor;       /**< whether the descriptor is to be flushed */
    unsigned char svc_info_start;         /**< first part of the information */
    unsigned char svc_info_change;        /**< information has changed */
    unsigned char svc_info_complete;      /**< last part of the information */
    unsigned char svc_count;              /**< services used */
    svc_t service[16];                    /**< the services */
} ccsvcinfo_full_t;

/** Active format description, ATSC A/53 and SMPTE 2016-1. */
typedef struct afd_s {
    int active_format_flag;      /**< bit 0: active_format is valid */
    unsigned char active_format; /**< 4 bits */
} afd_t;

/** A KLV packet, SMPTE 336. */
typedef struct klvpkt_s {
    unsigned char MessageID;         /**< message */
    unsigned char PSCByte1;          /**< packet sequence counter */
    unsigned char PSCByte2;          /**< packet sequence counter */
    unsigned char KLVPayload[256];   /**< payload */
    unsigned char KLVPayloadLength;  /**< bytes of payload */
    unsigned char ucFlushKLVMessage; /**< whether the message is to be flushed */
} klvpkt_t;

/** What a vanc_t carries; its suid tells which member. */
typedef union vanc_types_u {
    caption_t caption;         /**< SEI_SUID_CLOSED_CAPTION */
    ccsvcinfo_full_t csd_data; /**< caption service descriptor */
    afd_t afd_data;            /**< SEI_SUID_AFD */
    vitc_t timecode;           /**< timecode */
    klvpkt_t klv_data;         /**< KLV packet */
} vanc_types_t;

/** One ancillary entry of 273 bytes. */
typedef struct vanc_s {
    int channel;              /**< source channel */
    unsigned int uiTimestamp; /**< capture time stamp */
    unsigned int suid;        /**< kind of the entry: SEI_SUID_... */
    vanc_types_t vanc_data;   /**< the payload */
} vanc_t;

#pragma pack(pop)

/** A time of day with frames. */
typedef struct SEI_MovieTime_s {
    unsigned char n_frames; /**< frame number */
    unsigned char seconds;  /**< 0 to 59 */
    unsigned char minutes;  /**< 0 to 59 */
    unsigned char hours;    /**< 0 to 23 */
} SEI_MovieTime_t;

/** A time to write. */
typedef union SEI_Time_u {
    INT64 utcTime;            /**< not used by the library */
    SEI_MovieTime_t WallTime; /**< the time of a clock timestamp */
} SEI_Time_t;

/** Where a time comes from. */
#ifdef __cplusplus
enum enTimeSource : unsigned int {  // as in C, any value may be stored
#else
enum enTimeSource {
#endif
    UNKNOWN_TIME_CODE = 0,       /**< unknown */
    NTP_SERVER = 1,              /**< the system's clock */
    EMBEDDED_TIME_CODE = 2,      /**< timecode embedded in the video */
    MISB605_DOUBLE_TIME_CODE = 3 /**< two timecodes, MISB ST 0605 */
};

/** How the system counts timecode. */
enum {
    SYSTEM_TC_SMPTE12M_1_COUNT_MODE = 0,    /**< SMPTE 12M-1 drop-frame counting */
    SYSTEM_TC_UTC_CONVERSION_COUNT_MODE = 1 /**< conversion from UTC */
};

/** Scan types. */
enum {
    H264_SCAN_TYPE_PROGRESSIVE = 0, /**< frames */
    H264_SCAN_TYPE_INTERLACED = 1   /**< fields */
};

/** The encoder's inputs for a picture timing SEI message. */
typedef struct SEI_pictiming_info_s {
    SEI_Time_t NALTime;             /**< the time to write, in WallTime */
    int FrameRate;                  /**< frames or fields per 1000 seconds: 25000, 29970, 50000 ... */
    int enSystemTCCountingMode;     /**< SYSTEM_TC_... */
    unsigned char scan_type;        /**< H264_SCAN_TYPE_... */
    unsigned char BottomFieldFlag;  /**< 1: the picture is a bottom field */
    enum enTimeSource enTimeSource; /**< where the time comes from */
} SEI_pictiming_info_t;

#ifdef __cplusplus
}
#endif

#endif
