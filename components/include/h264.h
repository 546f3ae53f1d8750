/**
 * @file h264.h
 * Public interface of h264_lib: reading, inspecting and rewriting H.264 (ITU-T H.264 | ISO/IEC 14496-10) syntax one
 * NAL unit at a time. Valid C11 and C++17.
 *
 * Every function that takes a NAL unit takes a buffer that begins with an Annex B start code, 00 00 01 or 00 00 00 01,
 * and holds that one unit. Buffers, records and contexts belong to the caller; the library keeps no pointer to them
 * when a call returns. Functions are re-entrant for distinct records and contexts; units and records that are only
 * read may be shared by threads. A message that is emitted takes the diagnostics library's lock, and the readers of
 * slices, of buffering periods and of long SEI units, and what makes new units, take memory from the heap: no function
 * may be called from a signal handler.
 *
 * Records bear the names of the syntax elements and hold the values as they were transmitted. Where its comment does
 * not say otherwise a reader does not clear a record: elements that a unit does not carry keep the values they had, no
 * inferred values are filled in, and after a failure the elements read until then stay stored. Zero a record before its
 * first use.
 *
 * A BOOL result is TRUE when the call did what it says, else FALSE.
 *
 * Failures are told by the result, and most are explained by a message at level 3 (dbgtrace.h). Null pointers are
 * programming errors, reported as failed assertions through the diagnostics library, in some places as messages at
 * level 3; when that returns, the call fails. Where a null pointer is allowed its function says so.
 */
#ifndef H264_LIB_H264_H
#define H264_LIB_H264_H

#include <stddef.h>

#include "bitbuffer.h"
#include "dbgtrace.h"
#include "vanc.h"
#include "xtypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * The library's diagnostics handle, opened when the library is loaded and closed when it is unloaded. Null when the
 * diagnostics library gave none: the library is silent then. For reading only.
 */
extern H264_API HDBG g_hH264LibDbg;

/** @name Capacities of the records
 *  Counts that a stream transmits may be larger: every element is read, those that do not fit are dropped. Slice group
 *  ids and marking operations differ.
 *  @{ */
#define SCALINGLIST_4X4_SIZE 16         /**< coefficients of a 4x4 scaling list */
#define SCALINGLIST_8X8_SIZE 64         /**< coefficients of an 8x8 scaling list */
#define MAX_SCALING_LISTS 12            /**< scaling lists of a parameter set: six 4x4, six 8x8 */
#define MAX_REF_FRAMES_IN_POC_CYCLE 256 /**< entries of offset_for_ref_frame */
#define MAX_CPB_CNT 32                  /**< schedules of an HRD */
#define MAX_SLICE_GROUPS 8              /**< slice groups of a picture */
#define MAX_SLICE_GROUP_IDS 64          /**< map units whose slice group is read; others stay unread */
#define MAX_PARAMETER_SET_BYTES 256     /**< bytes of a parameter set NAL unit that a parse context keeps */
#define MAX_REF_IDX 32                  /**< entries of a list of a prediction weight table */
#define MAX_MARKING_OPERATIONS 8        /**< entries of arpmm; seven can be read, the terminating 0 included */
/** @} */

/** @name Parameter sets
 *  @{ */

/** scaling_list(), ITU-T H.264 7.3.2.1.1.1, as transmitted. */
typedef struct scaling_list_s {
    int seq_scaling_list_present_flag; /**< u(1); of a picture parameter set: pic_scaling_list_present_flag */
    signed long delta_scale[SCALINGLIST_8X8_SIZE]; /**< se(v), in order of transmission; only those transmitted */
} scaling_list_t;

/** hrd_parameters(), ITU-T H.264 E.1.2. */
typedef struct hrd_s {
    unsigned long cpb_cnt_minus1;                          /**< ue(v), as transmitted even when above 31 */
    unsigned char bit_rate_scale;                          /**< u(4) */
    unsigned char cpb_size_scale;                          /**< u(4) */
    unsigned long bit_rate_value_minus1[MAX_CPB_CNT];      /**< ue(v) */
    unsigned long cpb_size_value_minus1[MAX_CPB_CNT];      /**< ue(v) */
    int cbr_flag[MAX_CPB_CNT];                             /**< u(1) */
    unsigned char initial_cpb_removal_delay_length_minus1; /**< u(5) */
    unsigned char cpb_removal_delay_length_minus1;         /**< u(5) */
    unsigned char dpb_output_delay_length_minus1;          /**< u(5) */
    unsigned char time_offset_length;                      /**< u(5) */
} hrd_t;

/**
 * vui_parameters(), ITU-T H.264 E.1.1.
 * Bit positions count from the first bit of profile_idc = 0, emulation prevention removed.
 */
typedef struct vui_s {
    int aspect_ratio_info_present_flag;                /**< u(1) */
    unsigned char aspect_ratio_idc;                    /**< u(8) */
    unsigned short sar_width;                          /**< u(16), for aspect_ratio_idc 255 */
    unsigned short sar_height;                         /**< u(16), for aspect_ratio_idc 255 */
    int overscan_info_present_flag;                    /**< u(1) */
    int overscan_appropriate_flag;                     /**< u(1) */
    int video_signal_type_present_flag;                /**< u(1) */
    unsigned char video_format;                        /**< u(3) */
    int video_full_range_flag;                         /**< u(1) */
    int colour_description_present_flag;               /**< u(1) */
    unsigned char colour_primaries;                    /**< u(8) */
    unsigned char transfer_characteristics;            /**< u(8) */
    unsigned char matrix_coefficients;                 /**< u(8) */
    int chroma_loc_info_present_flag;                  /**< u(1) */
    unsigned long chroma_sample_loc_type_top_field;    /**< ue(v) */
    unsigned long chroma_sample_loc_type_bottom_field; /**< ue(v) */
    int timing_info_present_flag;                      /**< u(1) */
    int timing_info_offset;                            /**< bit position of num_units_in_tick; -1: absent */
    unsigned long num_units_in_tick;                   /**< u(32) */
    unsigned long time_scale;                          /**< u(32) */
    int MaxFPS;                                        /**< derived: whole frames per second, see getMAXFPSForVUI */
    int MaxFPSminus1;                                  /**< derived: MaxFPS - 1 */
    int fixed_frame_rate_flag;                         /**< u(1) */
    int nal_hrd_parameters_present_offset;       /**< bit position of nal_hrd_parameters_present_flag; -1: no VUI */
    int nal_hrd_parameters_present_flag;         /**< u(1) */
    hrd_t nal_hrd;                               /**< HRD parameters of the NAL unit stream */
    int vcl_hrd_parameters_present_flag;         /**< u(1) */
    hrd_t vcl_hrd;                               /**< HRD parameters of the VCL NAL units */
    int CpbDpbDelaysPresentFlag;                 /**< derived: set to 1 when an HRD is present, never cleared */
    int low_delay_hrd_flag;                      /**< u(1) */
    int pic_struct_present_flag;                 /**< u(1) */
    int pic_struct_present_offset;               /**< bit position of pic_struct_present_flag */
    int bitstream_restriction_flag;              /**< u(1) */
    int motion_vectors_over_pic_boundaries_flag; /**< u(1) */
    unsigned long max_bytes_per_pic_denom;       /**< ue(v) */
    unsigned long max_bits_per_mb_denom;         /**< ue(v) */
    unsigned long log2_max_mv_length_horizontal; /**< ue(v) */
    unsigned long log2_max_mv_length_vertical;   /**< ue(v) */
    unsigned long num_reorder_frames;            /**< ue(v); max_num_reorder_frames in recent editions */
    unsigned long max_decoder_frame_buffering;   /**< ue(v); max_dec_frame_buffering in recent editions */
} vui_t;

/**
 * seq_parameter_set_data(), ITU-T H.264 7.3.2.1.1.
 * Bit positions count from the first bit of profile_idc = 0, emulation prevention removed.
 */
typedef struct sps_s {
    unsigned char profile_idc;                      /**< u(8) */
    unsigned char constraint_flags;                 /**< u(8): constraint_set0_flag to 5 in bits 7 to 2, two reserved */
    unsigned char level_idc;                        /**< u(8) */
    unsigned long seq_parameter_set_id;             /**< ue(v) */
    unsigned long chroma_format_idc;                /**< ue(v), for the high profiles only */
    unsigned long ChromaArrayType;                  /**< derived, for the high profiles only */
    int separate_colour_plane_flag;                 /**< u(1) */
    unsigned long bit_depth_luma_minus8;            /**< ue(v) */
    unsigned long bit_depth_chroma_minus8;          /**< ue(v) */
    int qpprime_y_zero_transform_bypass_flag;       /**< u(1) */
    int seq_scaling_matrix_present_flag;            /**< u(1) */
    scaling_list_t scaling_list[MAX_SCALING_LISTS]; /**< 0 to 5: 4x4, 6 to 11: 8x8 */
    unsigned long log2_max_frame_num_minus4;        /**< ue(v) */
    unsigned long pic_order_cnt_type;               /**< ue(v) */
    unsigned long log2_max_pic_order_cnt_lsb_minus4;     /**< ue(v), for pic_order_cnt_type 0 */
    int delta_pic_order_always_zero_flag;                /**< u(1), for pic_order_cnt_type 1, like the next four */
    signed long offset_for_non_ref_pic;                  /**< se(v) */
    signed long offset_for_top_to_bottom_field;          /**< se(v) */
    unsigned long num_ref_frames_in_pic_order_cnt_cycle; /**< ue(v), as transmitted even when above 256 */
    signed long offset_for_ref_frame[MAX_REF_FRAMES_IN_POC_CYCLE]; /**< se(v) */
    int max_num_ref_frames_bitoffset;                              /**< bit position of max_num_ref_frames */
    unsigned long max_num_ref_frames;                              /**< ue(v) */
    int gaps_in_frame_num_value_allowed_flag;                      /**< u(1) */
    unsigned long pic_width_in_mbs_minus1;                         /**< ue(v) */
    unsigned long pic_height_in_map_units_minus1;                  /**< ue(v) */
    int frame_mbs_only_flag;                                       /**< u(1) */
    int frame_mbs_only_flag_offset;                                /**< bit position of frame_mbs_only_flag */
    int mb_adaptive_frame_field_flag;                              /**< u(1) */
    int direct_8x8_inference_flag;                                 /**< u(1) */
    int frame_cropping_flag;                                       /**< u(1) */
    int frame_cropping_offset;                                     /**< bit position of frame_cropping_flag */
    unsigned long frame_crop_left_offset;                          /**< ue(v) */
    unsigned long frame_crop_right_offset;                         /**< ue(v) */
    unsigned long frame_crop_top_offset;                           /**< ue(v) */
    unsigned long frame_crop_bottom_offset;                        /**< ue(v) */
    int vui_parameters_present_flag;                               /**< u(1) */
    int vui_parameters_present_offset;                             /**< bit position of vui_parameters_present_flag */
    vui_t vui;                                                     /**< VUI parameters */
} sps_t;

/** pic_parameter_set_rbsp(), ITU-T H.264 7.3.2.2. */
typedef struct pps_s {
    unsigned long picture_parameter_set_id;             /**< ue(v) */
    unsigned long seq_parameter_set_id;                 /**< ue(v) */
    int entropy_coding_mode_flag;                       /**< u(1) */
    int bottom_field_pic_order_in_frame_present_flag;   /**< u(1) */
    unsigned long num_slice_groups_minus1;              /**< ue(v) */
    unsigned long slice_group_map_type;                 /**< ue(v) */
    unsigned long run_length_minus1[MAX_SLICE_GROUPS];  /**< ue(v), map type 0 */
    unsigned long top_left[MAX_SLICE_GROUPS];           /**< ue(v), map type 2 */
    unsigned long bottom_right[MAX_SLICE_GROUPS];       /**< ue(v), map type 2 */
    int slice_group_change_direction_flag;              /**< u(1), map types 3 to 5 */
    unsigned long slice_group_change_rate_minus1;       /**< ue(v), map types 3 to 5 */
    unsigned long pic_size_in_map_units_minus1;         /**< ue(v), map type 6 */
    unsigned long slice_group_id[MAX_SLICE_GROUP_IDS];  /**< u(v), map type 6 */
    unsigned long num_ref_idx_l0_default_active_minus1; /**< ue(v) */
    unsigned long num_ref_idx_l1_default_active_minus1; /**< ue(v) */
    int weighted_pred_flag;                             /**< u(1) */
    unsigned char weighted_bipred_idc;                  /**< u(2) */
    signed long pic_init_qp_minus26;                    /**< se(v) */
    signed long pic_init_qs_minus26;                    /**< se(v) */
    signed long chroma_qp_index_offset;                 /**< se(v) */
    int deblocking_filter_control_present_flag;         /**< u(1) */
    int constrained_intra_pred_flag;                    /**< u(1) */
    int redundant_pic_cnt_present_flag;                 /**< u(1) */
    int transform_8x8_mode_flag;                        /**< u(1) */
    int pic_scaling_matrix_present_flag;                /**< u(1) */
    scaling_list_t scaling_list[MAX_SCALING_LISTS];     /**< 0 to 5: 4x4, 6 to 11: 8x8 */
    signed long second_chroma_qp_index_offset;          /**< se(v) */
} pps_t;

/**
 * The last parameter sets of one stream, by which a repeated unit is answered without being parsed. Owned by the
 * caller, zeroed before first use, used by one thread at a time; nothing in it needs to be released.
 */
typedef struct tagH264D_PARSE_CONTEXT {
    size_t LastSPSLength;                  /**< bytes of the last SPS unit parsed, start code included; 0: none */
    BYTE LastSPS[MAX_PARAMETER_SET_BYTES]; /**< that unit as it was passed, padded with zeros */
    size_t LastPPSLength;                  /**< bytes of the last PPS unit parsed, start code included; 0: none */
    BYTE LastPPS[MAX_PARAMETER_SET_BYTES]; /**< that unit as it was passed, padded with zeros */
    sps_t last_parsed_sps;                 /**< the record of LastSPS */
    pps_t last_parsed_pps;                 /**< the record of LastPPS */
} H264D_PARSE_CONTEXT;

/** @} */

/** @name Slice headers and access unit delimiters
 *  @{ */

/**
 * ref_pic_list_modification(), ITU-T H.264 7.3.3.1. One set of values: every entry of a list overwrites the one before,
 * so that the last one read remains, whose modification_of_pic_nums_idc is 3.
 */
typedef struct ref_pic_list_modification_s {
    int ref_pic_list_modification_flag_l0;      /**< u(1) */
    unsigned long modification_of_pic_nums_idc; /**< ue(v) */
    unsigned long abs_diff_pic_num_minus1;      /**< ue(v) */
    unsigned long long_term_pic_num;            /**< ue(v) */
    int ref_pic_list_modification_flag_l1;      /**< u(1) */
} ref_pic_list_modification_t;

/**
 * pred_weight_table(), ITU-T H.264 7.3.3.2. The flags hold the last entry's value. Chroma weights and offsets are never
 * read: see docs/behaviour.md before using a table whose chroma flags are set.
 */
typedef struct pred_weight_table_s {
    unsigned long luma_log2_weight_denom;         /**< ue(v) */
    unsigned long chroma_log2_weight_denom;       /**< ue(v) */
    int luma_weight_l0_flag;                      /**< u(1) */
    signed long luma_weight_l0[MAX_REF_IDX];      /**< se(v) */
    signed long luma_offset_l0[MAX_REF_IDX];      /**< se(v) */
    int chroma_weight_l0_flag;                    /**< u(1) */
    signed long chroma_weight_l0[MAX_REF_IDX][2]; /**< never filled */
    signed long chroma_offset_l0[MAX_REF_IDX][2]; /**< never filled */
    int luma_weight_l1_flag;                      /**< u(1) */
    signed long luma_weight_l1[MAX_REF_IDX];      /**< se(v) */
    signed long luma_offset_l1[MAX_REF_IDX];      /**< se(v) */
    int chroma_weight_l1_flag;                    /**< u(1) */
    signed long chroma_weight_l1[MAX_REF_IDX][2]; /**< never filled */
    signed long chroma_offset_l1[MAX_REF_IDX][2]; /**< never filled */
} pred_weight_table_t;

/** One memory management control operation of dec_ref_pic_marking(). */
typedef struct adaptive_ref_pic_marking_mode_s {
    unsigned long memory_management_control_operation; /**< ue(v) */
    unsigned long difference_of_pic_nums_minus1;       /**< ue(v), operations 1 and 3 */
    unsigned long long_term_pic_num;                   /**< ue(v), operation 2 */
    unsigned long long_term_frame_idx;                 /**< ue(v), operations 3 and 6 */
    unsigned long max_long_term_frame_idx_plus1;       /**< ue(v), operation 4 */
} adaptive_ref_pic_marking_mode_t;

/** dec_ref_pic_marking(), ITU-T H.264 7.3.3.3. */
typedef struct dec_ref_pic_marking_s {
    int no_output_of_prior_pics_flag;                              /**< u(1) */
    int long_term_reference_flag;                                  /**< u(1) */
    int adaptive_ref_pic_marking_mode_flag;                        /**< u(1) */
    adaptive_ref_pic_marking_mode_t arpmm[MAX_MARKING_OPERATIONS]; /**< the operations, the last one 0 */
} dec_ref_pic_marking_t;

/**
 * slice_header(), ITU-T H.264 7.3.3.
 * Bit positions count from the first bit of first_mb_in_slice = 0, emulation prevention removed.
 */
typedef struct slice_header_s {
    unsigned long first_mb_in_slice;             /**< ue(v) */
    unsigned long slice_type;                    /**< ue(v), 0/5 P, 1/6 B, 2/7 I, 3/8 SP, 4/9 SI */
    unsigned long pic_parameter_set_id;          /**< ue(v) */
    unsigned char colour_plane_id;               /**< u(2) */
    int frame_num_bitoffset;                     /**< bit position of frame_num */
    unsigned int frame_num_bitlength;            /**< bits of frame_num: log2_max_frame_num_minus4 + 4 */
    unsigned long frame_num;                     /**< u(v) */
    int field_pic_flag;                          /**< u(1) */
    int bottom_field_flag;                       /**< u(1) */
    unsigned long idr_pic_id;                    /**< ue(v) */
    unsigned long pic_order_cnt_lsb;             /**< u(v) */
    signed long delta_pic_order_cnt_bottom;      /**< se(v) */
    signed long delta_pic_order_cnt[2];          /**< se(v) */
    unsigned long redundant_pic_cnt;             /**< ue(v) */
    int direct_spatial_mv_pred_flag;             /**< u(1) */
    int num_ref_idx_active_override_flag;        /**< u(1) */
    unsigned long num_ref_idx_l0_active_minus1;  /**< ue(v); kept when there is no override, not taken from the PPS */
    unsigned long num_ref_idx_l1_active_minus1;  /**< ue(v); kept when there is no override, not taken from the PPS */
    unsigned long cabac_init_idc;                /**< ue(v) */
    signed long slice_qp_delta;                  /**< se(v) */
    int sp_for_switch_flag;                      /**< u(1) */
    signed long slice_qs_delta;                  /**< se(v) */
    unsigned long disable_deblocking_filter_idc; /**< ue(v) */
    signed long slice_alpha_c0_offset_div2;      /**< se(v) */
    signed long slice_beta_offset_div2;          /**< se(v) */
    unsigned long slice_group_change_cycle;      /**< never filled: such slices are refused */
    int rplm_bitoffset;                          /**< bit position of ref_pic_list_modification() */
    ref_pic_list_modification_t rplm;            /**< reference picture list modification */
    pred_weight_table_t pwt;                     /**< prediction weights */
    int drpm_bitoffset;                          /**< bit position of dec_ref_pic_marking(); 0: absent */
    dec_ref_pic_marking_t drpm;                  /**< decoded reference picture marking */
    int slice_header_end_bitoffset;              /**< bit position behind the header */
} slice_header_t;

/** Access unit delimiter, as parse_aud reads it. */
typedef struct aud_s {
    unsigned char nal_type;         /**< bits 3 to 7 of the payload */
    unsigned char primary_pic_type; /**< bits 13 to 15 of the payload */
} aud_t;

/** @} */

/** @name SEI messages
 *  @{ */

/** The largest payload type that the walker goes past. */
#define MAX_PAYLOAD_TYPE 45

/** Header of an sei_message(), ITU-T H.264 7.3.2.3.1, as DetermineSEIType finds it. */
typedef struct SEI_message_s {
    unsigned char payload_type; /**< payloadType modulo 256 */
    unsigned int payload_size;  /**< payloadSize in bytes */
    unsigned int payload_index; /**< first byte of the payload, counted from the byte behind the NAL header, emulation
                                     prevention removed */
} SEI_message_t;

/** What of cc_data(), ATSC A/53, is not a triple. */
typedef struct SEI_cc_data_s {
    int process_cc_data_flag;  /**< u(1) */
    unsigned char cc_count;    /**< u(5) */
    unsigned char marker_bits; /**< never filled */
} SEI_cc_data_t;

/** Closed captions, ATSC A/53 cc_data() in user_data_registered_itu_t_t35(). */
typedef struct SEI_cc_s {
    char itu_t_t35_country_code;            /**< signed: 0xB5 is -75 */
    unsigned short itu_t_t35_provider_code; /**< u(16) */
    unsigned long user_identifier;          /**< u(32) */
    unsigned char user_data_type_code;      /**< u(8) */
    SEI_cc_data_t cc_data;                  /**< flags and count */
    caption_t cc_bytes[32];                 /**< the triples */
    SEI_message_t header;                   /**< filled by the caller; payload_index is used */
} SEI_cc_t;

/** Active format description, ATSC A/53 afd_data() in user_data_registered_itu_t_t35(). */
typedef struct SEI_afd_s {
    char itu_t_t35_country_code;            /**< signed: 0xB5 is -75 */
    unsigned short itu_t_t35_provider_code; /**< u(16) */
    unsigned long user_identifier;          /**< u(32) */
    afd_t afd_data;                         /**< flag and format */
    SEI_message_t header;                   /**< filled by the caller; payload_index is used */
} SEI_afd_t;

/** One clock timestamp of pic_timing(), ITU-T H.264 D.1.3. */
typedef struct clock_timestamp_info_s {
    int clock_timestamp_flag;    /**< u(1) */
    unsigned char ct_type;       /**< u(2) */
    int nuit_field_based_flag;   /**< u(1) */
    unsigned char counting_type; /**< u(5) */
    int full_timestamp_flag;     /**< u(1) */
    int discontinuity_flag;      /**< u(1) */
    int cnt_dropped_flag;        /**< u(1) */
    unsigned char n_frames;      /**< u(8) */
    int seconds_flag;            /**< u(1); set to 1 by a full timestamp, like the next two */
    unsigned char seconds_value; /**< u(6) */
    int minutes_flag;            /**< u(1) */
    unsigned char minutes_value; /**< u(6) */
    int hours_flag;              /**< u(1) */
    unsigned char hours_value;   /**< u(5) */
    signed long time_offset;     /**< i(v) */
} clock_timestamp_info_t;

/** pic_timing(), ITU-T H.264 D.1.3. */
typedef struct sei_pic_timing_s {
    int valid;                                      /**< for the caller's use */
    unsigned long cpb_removal_delay;                /**< u(v) */
    unsigned long dpb_output_delay;                 /**< u(v) */
    unsigned char pic_struct;                       /**< u(4) */
    int NumClockTS;                                 /**< derived: timestamps of the pic_struct, 1 to 3 */
    clock_timestamp_info_t clock_timestamp_info[3]; /**< the timestamps */
    SEI_message_t header;                           /**< filled by the caller; payload_index is used */
} sei_pic_timing_t;

/** buffering_period(), ITU-T H.264 D.1.2. */
typedef struct sei_buffering_period_s {
    unsigned long seq_parameter_set_id; /**< ue(v) */
    int after_sps_id_offset;            /**< bit position behind seq_parameter_set_id, from the first bit behind the NAL
                                             header = 0, emulation prevention removed */
    unsigned long valid_NALSchedules;   /**< schedules of the NAL HRD, as transmitted even when above 32 */
    unsigned long initial_cpb_removal_delay[MAX_CPB_CNT];        /**< u(v), NAL HRD */
    unsigned long initial_cpb_removal_delay_offset[MAX_CPB_CNT]; /**< u(v), NAL HRD */
    unsigned long valid_VCLSchedules; /**< schedules of the VCL HRD, as transmitted even when above 32 */
    unsigned long initial_cpb_removal_delay_vcl[MAX_CPB_CNT];        /**< u(v), VCL HRD */
    unsigned long initial_cpb_removal_delay_offset_vcl[MAX_CPB_CNT]; /**< u(v), VCL HRD */
    SEI_message_t header;                                            /**< filled by the caller; payload_index is used */
} sei_buffering_period_t;

/** A schedule's initial delays for set_sei_buffering_period. */
typedef struct sei_bp_set_s {
    unsigned long SchedSelIdx;                      /**< the schedule, from 0 */
    int enHRDCbpType;                               /**< its HRD: 1 = NAL, 2 = VCL */
    unsigned long initial_cpb_removal_delay;        /**< u(v) */
    unsigned long initial_cpb_removal_delay_offset; /**< u(v) */
} sei_bp_set_t;

/** @} */

/** @name NAL units
 *  @{ */

/**
 * Tells the type of a NAL unit, ITU-T H.264 7.3.1.
 * @param pBuffer     the unit with its start code
 * @param BufferLen   bytes in pBuffer, at least 4 (a smaller number is reported as a failed assertion)
 * @param pNALType    receives nal_unit_type, 0 to 31
 * @param pNALRefIdc  receives nal_ref_idc, 0 to 3; may be null
 * @return TRUE; FALSE, with nothing stored, when the buffer does not begin with a start code of 3 or 4 bytes or ends
 *         with it. The forbidden_zero_bit is not looked at.
 */
H264_API BOOL H264LIB_GetNALTypeAndNALRefIdc(const unsigned char* pBuffer, int BufferLen, BYTE* pNALType,
                                             BYTE* pNALRefIdc);

/**
 * Copies the payload of a NAL unit without its header and emulation prevention bytes, ITU-T H.264 7.3.1 and 7.4.1.
 * The header is one byte, four for nal_unit_type 14 and 20. Trailing bits and zero bytes are kept.
 * @param input_buf   the unit from its header byte on (behind the start code)
 * @param inbuf_len   bytes in input_buf, at least 3
 * @param output_buf  receives the payload; must not overlap input_buf
 * @param outbuf_len  bytes that output_buf can hold, at least inbuf_len, although the payload is always shorter
 * @return bytes written (may be 0), or -1 with nothing written. An output that is too small is reported at level 3, at
 *         most once in 10 seconds; an input that is too short at level 5.
 */
H264_API int SODB_deencapsulation_from_NAL(const unsigned char* input_buf, unsigned int inbuf_len,
                                           unsigned char* output_buf, unsigned int outbuf_len);

/**
 * Inserts emulation prevention bytes, ITU-T H.264 7.3.1 and 7.4.1. Each call starts afresh: bytes before input_buf are
 * not looked at, and nothing is appended behind zeros at the end.
 * @param input_buf   what follows the NAL header, or a part of it
 * @param inbuf_len   bytes in input_buf; 1 or 2 bytes are copied as they are
 * @param output_buf  receives the result; must not overlap input_buf
 * @param outbuf_len  bytes that output_buf can hold: at least 4 for every 3 bytes of input, rounded up. Input
 *                    that needs insertion can need more: a byte for which there is no room is refused, and so is an
 *                    inserted one unless a byte stays free behind it and the byte that it protects.
 * @return bytes written; 0 on failure, with a message at level 3: when outbuf_len is too small for the input's length
 *         nothing is written, when a byte has no room what stands before it. 0 for an inbuf_len of 0, and for null
 *         buffers, without a message of their own
 */
H264_API int RBSP_encapsulation_within_NAL(const unsigned char* input_buf, unsigned int inbuf_len,
                                           unsigned char* output_buf, unsigned int outbuf_len);

/**
 * The same for callers that size the output themselves.
 * @param bBypassChecks  TRUE: the rule of 4 for 3 is not applied and room is looked at for inserted bytes only. The
 *                       caller must have made output_buf large enough for all other bytes: they are written unchecked.
 *                       outbuf_len must be true all the same.
 */
H264_API int RBSP_encapsulation_within_NAL_Ex(const unsigned char* input_buf, unsigned int inbuf_len,
                                              unsigned char* output_buf, unsigned int outbuf_len, BOOL bBypassChecks);

/** @} */

/** @name Sequence parameter sets
 *  @{ */

/**
 * Reads seq_parameter_set_data(), ITU-T H.264 7.3.2.1.1, with its VUI and HRD parameters, E.1.1 and E.1.2.
 * @param sps_nalu_bb  positioned at profile_idc, emulation prevention removed; left behind the last element read
 * @param sps          receives the elements; timing_info_offset and nal_hrd_parameters_present_offset of its VUI are
 *                     set to -1 first
 * @return 0; -1 when an element cannot be read; -2 when that is one of an HRD
 */
H264_API int parse_sps(bitbuffer_t* sps_nalu_bb, sps_t* sps);

/**
 * Reads a sequence parameter set NAL unit. Its nal_unit_type is not looked at.
 * @param buffer      the unit with its start code
 * @param buffer_len  bytes in buffer; at most 256 behind the start code
 * @param sps         receives the elements
 */
H264_API BOOL parse_sps_nal(const unsigned char* buffer, int buffer_len, sps_t* sps);

/**
 * The same with a memory of the last unit: when its bytes are those of the last unit that was parsed successfully,
 * start code included, the record kept with them is copied whole to sps, as that parse left it, and nothing is parsed.
 * Units longer than MAX_PARAMETER_SET_BYTES in all are parsed and not kept.
 * @param buffer_len  bytes in buffer; at most 256 behind the start code
 * @param pContext    the stream's context; left as it was when the unit cannot be parsed
 */
H264_API BOOL parse_sps_nal_ex(const unsigned char* buffer, unsigned int buffer_len, H264D_PARSE_CONTEXT* pContext,
                               sps_t* sps);

/**
 * Derives a whole frame rate from VUI timing: both values are divided by 1000 when both are above 999,
 * num_units_in_tick 0 counts as 1, and the quotient is halved, each step rounded towards 0
 * (60000 / 1001 gives 30, 30000 / 1001 gives 15). Of the quotient the low 32 bits are taken, as a signed number.
 * @param VUI_Timescale        time_scale, ticks per second
 * @param VUI_NumUnitsInTicks  num_units_in_tick
 * @param MAXFPS               receives frames per second
 * @return TRUE; FALSE when MAXFPS is null
 */
H264_API BOOL getMAXFPSForVUI(unsigned long VUI_Timescale, unsigned long VUI_NumUnitsInTicks, int* MAXFPS);

/**
 * Prints a record through the diagnostics library, an element a line: SPS and VUI at level 5, HRD and scaling lists at
 * level 6.
 */
H264_API void H264LIB_Display_sps(const sps_t* sps);

/** @} */

/** @name Picture parameter sets
 *  @{ */

/**
 * Reads a picture parameter set NAL unit, ITU-T H.264 7.3.2.2. Its nal_unit_type is not looked at. The syntax is read
 * with deliberate differences from the standard, which docs/behaviour.md lists; the most visible: a last byte that
 * holds more than the stop bit is read with it, as transform_8x8_mode_flag and what follows.
 * @param buffer      the unit with its start code; zero bytes behind it are ignored
 * @param buffer_len  bytes in buffer; at most 256 from the header byte to the last byte that is not zero, a
 *                    last byte of 0x80 not counted
 * @param sps         the sequence parameter set it refers to (for scaling lists)
 * @param pps         receives the elements
 * @return TRUE, also when the unit ends inside slice_group_id or weighted_bipred_idc; else FALSE
 */
H264_API BOOL H264LIB_parse_pps_nal(const unsigned char* buffer, int buffer_len, const sps_t* sps, pps_t* pps);

/**
 * The same with a memory of the last unit: when its bytes are those of the last unit that was parsed successfully,
 * start code included, the record kept with them is copied whole to pps and nothing is parsed. Otherwise pps is zeroed
 * first, also when the unit cannot be parsed. Units longer than MAX_PARAMETER_SET_BYTES in all are parsed and not kept.
 * @param sps       not looked at for a unit that is known: set LastPPSLength of the context to 0 when it has changed
 * @param pContext  the stream's context; left as it was when the unit cannot be parsed
 * @param pps       receives the elements; not the context's own record
 */
H264_API BOOL H264LIB_parse_pps_nal_ex(const unsigned char* buffer, unsigned int buffer_len, const sps_t* sps,
                                       H264D_PARSE_CONTEXT* pContext, pps_t* pps);

/**
 * Prints a record through the diagnostics library at level 6, an element a line. Of slice_group_id the record holds
 * MAX_SLICE_GROUP_IDS; each of the others is shown as 0, behind a line at level 3.
 * @param sps  the sequence parameter set by which it was read
 */
H264_API void H264LIB_Display_pps(const sps_t* sps, const pps_t* pps);

/** @} */

/** @name Slices
 *  @{ */

/**
 * Reads the slice header of a coded slice NAL unit, ITU-T H.264 7.3.3. At levels up to 6 only the first bytes of the
 * unit are looked at, as many as the header needs; from 7 on all. A work area of buffer_len + 32 bytes is taken from
 * the heap for the call. The deliberate differences from the standard are listed in docs/behaviour.md.
 * @param buffer      the unit with its start code, or the beginning of it
 * @param buffer_len  bytes in buffer
 * @param sps,pps     the parameter sets that the slice refers to. Where chroma_format_idc is not transmitted and there
 *                    are prediction weights, ChromaArrayType must have been set to 1.
 * @param pSh         receives the elements. Fill num_ref_idx_l0_active_minus1 and num_ref_idx_l1_active_minus1 with
 *                    the picture parameter set's defaults beforehand: they count the entries of a prediction weight
 *                    table when the slice does not override them.
 * @return 1, or 0 when the header cannot be read
 */
H264_API int parse_slice_header_nal(const unsigned char* buffer, int buffer_len, const sps_t* sps, const pps_t* pps,
                                    slice_header_t* pSh);

/**
 * Reads first_mb_in_slice and slice_type alone.
 * @param buffer      the unit with its start code, or the beginning of it
 * @param buffer_len  bytes in buffer
 * @param sps         not null; otherwise not looked at
 * @param pSh         receives the two elements
 * @return 1, or 0 when they cannot be read
 */
H264_API int parse_slice_type_only_nal(const unsigned char* buffer, int buffer_len, const sps_t* sps,
                                       slice_header_t* pSh);

/**
 * Prints a record through the diagnostics library at level 6, an element a line; what is not supported at level 3.
 * @param sps,pps      the parameter sets by which it was read
 * @param NALType      the slice's nal_unit_type
 * @param nal_ref_idc  the slice's nal_ref_idc
 */
H264_API void H264LIB_Display_slice_header(const sps_t* sps, const pps_t* pps, BYTE NALType, BYTE nal_ref_idc,
                                           const slice_header_t* pSh);

/** @} */

/** @name Access unit delimiters
 *  @{ */

/**
 * Reads an access unit delimiter NAL unit, ITU-T H.264 7.3.2.4, by the layout of parse_aud. Its nal_unit_type is not
 * looked at.
 * @param buffer      the unit with its start code
 * @param buffer_len  bytes in buffer; 3 to 16 behind the start code, so that a delimiter needs a zero byte behind it
 */
H264_API BOOL parse_au_delimiter_nal(const unsigned char* buffer, int buffer_len, aud_t* aud_data);

/**
 * Reads nal_type from bits 3 to 7 and primary_pic_type from bits 13 to 15 of a payload: the layout assumes that the
 * payload begins with the NAL header byte, with five bits between the two.
 * @param aud_bb    positioned at the payload's first bit; left behind the last element read, after a failure where the
 *                  next would begin, which may be behind the end
 * @param aud_data  receives the elements; may be null
 */
H264_API BOOL parse_aud(bitbuffer_t* aud_bb, aud_t* aud_data);

/**
 * Writes an access unit delimiter NAL unit of 8 bytes, start code and two trailing zero bytes included.
 * @param len               bytes that buffer can hold, at least 8
 * @param primary_pic_type  0 to 7, ITU-T H.264 Table 7-5
 * @return 8, or -1
 */
H264_API int format_au_delimiter_nalu(unsigned char* buffer, unsigned int len, unsigned int primary_pic_type);

/**
 * Writes an end of sequence NAL unit of 5 bytes, start code included, ITU-T H.264 7.3.2.5.
 * @param len  bytes that buffer can hold, at least 5
 * @return 5, or -1
 */
H264_API int format_end_of_sequence_nalu(unsigned char* buffer, unsigned int len);

/** @} */

/** @name SEI readers
 *  Reading SEI has two steps: DetermineSEIType walks the messages of an SEI NAL unit and tells the kind of each; for a
 *  message of interest its header is copied into the record of that kind and the record is read from the same unit.
 *  @{ */

/**
 * Finds one SEI message, ITU-T H.264 7.3.2.3.1, and tells its kind and where the next one starts. A unit of another
 * nal_unit_type than 6 is refused. Set both offsets to
 * 0, call, and call again with the same buffer and the offsets as the call left them while there are more messages. A
 * call that fails ends the walk; so does a message above MAX_PAYLOAD_TYPE and registered user data of an unknown kind.
 * A payloadSize byte of 0xFF that follows the payloadType is added to the type: messages of 255 bytes and more are
 * not found. A byte of 0xFF with which a payload begins is added to its payloadSize.
 * @param pBuffer            the unit with its start code
 * @param BufferLen          bytes in pBuffer, at least 7
 * @param pPayloadOffset     bytes behind the NAL header at which the message starts, emulation prevention removed;
 *                           receives those at which the next one starts
 * @param pNALTypeOffset     at least 0; receives the length of the start code at the first call
 * @param pSEIMessageHeader  zeroed, then receives the message's header
 * @param enSUID             receives the kind: SEI_SUID_NONE, SEI_SUID_CLOSED_CAPTION, SEI_SUID_AFD or
 *                           SEI_SUID_PIC_TIMING
 * @param pbMoreSEIMessages  receives whether another message follows; FALSE when two bytes or fewer are left, so that
 *                           an empty message at the end is not found
 * @return TRUE when a message was found, else FALSE
 */
H264_API BOOL DetermineSEIType(const unsigned char* pBuffer, int BufferLen, int* pPayloadOffset, int* pNALTypeOffset,
                               SEI_message_t* pSEIMessageHeader, int* enSUID, BOOL* pbMoreSEIMessages);

/**
 * Tells the kind of a user_data_registered_itu_t_t35() payload by its user_identifier, captions by user_data_type_code
 * 3 too; country and provider are not looked at.
 * @param buffer      the payload from its country code on
 * @param buffer_len  bytes in buffer, at least 8
 * @param enSUID      receives SEI_SUID_CLOSED_CAPTION or SEI_SUID_AFD; SEI_SUID_NONE when the identifier is unknown
 * @return TRUE when the kind is known, else FALSE
 */
H264_API BOOL _FindSEIUserDataRegisteredSUID(const unsigned char* buffer, int buffer_len, int* enSUID);

/**
 * Reads closed captions. Identifiers, process_cc_data_flag and marker bits are not tested.
 * @param buffer      the SEI unit with its start code
 * @param buffer_len  bytes in buffer; at most 128 behind the start code
 * @param sei_cc      receives the elements; its header is that of the message
 */
H264_API BOOL parse_sei_cc_nal(const unsigned char* buffer, int buffer_len, SEI_cc_t* sei_cc);

/**
 * Reads an active format description. Identifiers are not tested.
 * @param buffer      the SEI unit with its start code
 * @param buffer_len  bytes in buffer; at most 32 behind the start code
 * @param sei_afd     receives the elements; its header is that of the message
 */
H264_API BOOL parse_sei_afd_nal(const unsigned char* buffer, int buffer_len, SEI_afd_t* sei_afd);

/**
 * Reads a picture timing message, ITU-T H.264 D.1.3. The length of time_offset is that of the HRD that gives the
 * delays' lengths (the NAL HRD when there is one), and 24 bits without delays.
 * @param buffer      the SEI unit with its start code
 * @param buffer_len  bytes in buffer; at most 256 behind the start code
 * @param sps         the active sequence parameter set
 * @param pt          receives the elements; its header is that of the message
 */
H264_API BOOL parse_sei_pictiming_nal(const unsigned char* buffer, int buffer_len, const sps_t* sps,
                                      sei_pic_timing_t* pt);

/**
 * Reads a buffering period message, ITU-T H.264 D.1.2.
 * @param buffer      the SEI unit with its start code
 * @param buffer_len  bytes in buffer, at least 4
 * @param pVui        VUI of the active sequence parameter set
 * @param pSei_bp     receives the elements; its header is that of the message
 */
H264_API BOOL parse_sei_buffering_period_nal(const unsigned char* buffer, int buffer_len, const vui_t* pVui,
                                             sei_buffering_period_t* pSei_bp);

/** @} */

/** @name SEI writers
 *  Each writes one SEI NAL unit, nal_ref_idc 0, with a start code of four bytes and one message, ITU-T H.264 7.3.2.3.
 *  Behind the header they want room by the rule of RBSP_encapsulation_within_NAL. A buffer too small for the header is
 *  not touched; otherwise a failure may leave a part of the unit in it.
 *  @{ */

/**
 * Writes a picture timing message with one full clock timestamp, ITU-T H.264 D.1.3: pic_struct present, no delays, a
 * time_offset of 24 bits. A reader must know that: the stream's VUI has pic_struct_present_flag 1 and no HRD
 * parameters. Interlaced pictures are written as fields, pic_struct 1 or 2. At the rates of 1000/1001 (FrameRate above
 * 28999 and up to 29999, above 58999 and up to 59999) counting_type is 4 for a drop-frame timecode from the video and
 * for the system's clock counted by SMPTE 12M-1, 6 for another system's clock, and cnt_dropped_flag tells the first
 * number behind dropped ones; otherwise they are 1 and 0.
 * @param len            bytes that buffer can hold, at least 29
 * @param pVitc_data     timecode captured with the picture; null (reported as a failed assertion) takes the time from
 *                       timecode_data. One of 24 hours, 60 minutes, 60 seconds, 86 frames or more is reported and
 *                       written as 00:00:00:00. Nothing else is tested; two digits are added up modulo 256.
 * @param timecode_data  the stream's timing; its WallTime is set from pVitc_data
 * @return bytes written; -1 for a null record, a short buffer or an unknown scan type; -99 when timecode and
 *         BottomFieldFlag mean different fields
 */
H264_API int format_sei_pictime_nal(unsigned char* buffer, int len, const vitc_t* pVitc_data,
                                    SEI_pictiming_info_t* timecode_data);

/**
 * Writes a message with the caption data of an array of entries, ATSC A/53 cc_data(). Entries of other kinds are
 * skipped; triples that are missing at cc_count are padding.
 * @param buffer_len   bytes that buffer can hold: 5 + 4 * ((14 + 3 * count + 2) / 3); 149 for 31 triples
 * @param vanc_data    the entries. The cc_type of the padding is taken from the entry behind the last one examined:
 *                     when the array holds captions but fewer than cc_count, make the first 14 bytes behind its last
 *                     entry readable.
 * @param vanc_size    bytes of the entries, 273 each
 * @param cc_count     triples to write; 32 to 512 are reported at level 4 and cut to 31. A count of 513 or more carries
 *                     an encoder channel: 512 times (channel + 1) plus the count, which is not limited then.
 * @param pCc_records  receives the number of captions taken from the entries; may be null
 * @return bytes written; 0 when there was no caption or no room
 */
H264_API int format_sei_cc_nal(unsigned char* buffer, int buffer_len, const vanc_t* vanc_data, unsigned int vanc_size,
                               unsigned int cc_count, int* pCc_records);

/**
 * Writes a message with the active format description, ATSC A/53 afd_data(), of the last entry that has a valid one.
 * Without one the message says that there is no active format.
 * @param buffer_len  bytes that buffer can hold, at least 21
 * @param vanc_data   the entries; may be null
 * @param vanc_size   bytes of the entries, 273 each
 * @return bytes written; 0 when there was no room
 */
H264_API int format_sei_afd_nal(unsigned char* buffer, int buffer_len, const vanc_t* vanc_data, int vanc_size);

/**
 * Writes an unregistered user data message, ITU-T H.264 D.1.7.
 * @param buffer_len           bytes that buffer can hold: 23 + 4 * ((payload_size + 2) / 3)
 * @param pUuid_iso_iec_11578  16 bytes; emulation prevention is not applied to them
 * @param user_data_payload    the payload
 * @param payload_size         bytes of the payload, 1 to 238: the message's size is written in one byte
 * @return bytes of the unit with its stop byte, also when there was no room for that last byte (reported at level 3);
 *         0 on failure
 */
H264_API int format_sei_user_data_unregistered_nal(unsigned char* buffer, int buffer_len,
                                                   const unsigned char* pUuid_iso_iec_11578,
                                                   const unsigned char* user_data_payload, unsigned int payload_size);

/**
 * Writes a precision time stamp, MISB ST 0604, in an unregistered user data message.
 * @param len          bytes that buffer can hold, at least 39
 * @param pllUsecTime  microseconds since the epoch
 * @param StatusByte   time status; its low five bits are 1
 * @return bytes written; -1 for a null argument or a wrong status; 0 when there was no room
 */
H264_API int FormatMISPMicroSecondTimeSEI(unsigned char* buffer, int len, const INT64* pllUsecTime,
                                          unsigned char StatusByte);

/** @} */

/** @name Rewriting
 *  Three steps change a unit: read it into a record, change elements of the record, and hand record and unit (or its
 *  payload in a bit buffer, emulation prevention removed, the first bit behind the NAL header at bit 0) to a function
 *  here. What is overwritten or moved is found by bit positions in the record, except level_idc, which has a fixed
 *  place: the record must be that of the very bits that are changed. A function that changes the length makes the
 *  positions behind the change wrong; read the result into a new record. A picture timing message is written anew from
 *  its record alone, without positions. Units that are made here are released with H26XLib_Release_sps_buffer.
 *  @{ */

/**
 * Overwrites level_idc in place. Payloads of fewer than 24 bits stay as they are.
 * @param sps_bb  the payload; left behind the element (bit 24), or at its place (bit 16) when it does not fit
 * @param sps     its level_idc is written
 * @return 0; -1 for a null argument (which is reported as a failed assertion)
 */
H264_API int set_sps_level_idc(bitbuffer_t* sps_bb, sps_t* sps);

/**
 * Overwrites num_units_in_tick, time_scale and fixed_frame_rate_flag in place. To add them to a VUI that has none use
 * H264Lib_Set_sps_vui_parameters_NAL.
 * @param vui_bb  the payload; left behind what was written. One of the three that does not fit is not written, and the
 *                next is tried at its place: all three must fit.
 * @param vui     its three elements are written
 * @return 0; -1, with nothing written, when timing_info_present_flag is 0 or timing_info_offset is negative, and for a
 *         null argument (which is not reported)
 */
H264_API int set_vui_timing_info(bitbuffer_t* vui_bb, vui_t* vui);

/**
 * Sets pic_struct_present_flag to 1, in place and in the record. Look at vui_parameters_present_flag first: the record
 * of an SPS without a VUI has the position 0, so that the first bit of profile_idc would be set.
 * @param vui_bb  the payload; left behind the element. A position outside it is not reported: nothing is written then.
 * @param vui     of an SPS with a VUI: pic_struct_present_offset tells where the flag stands
 * @return 0; -1 for a null argument (which is not reported)
 */
H264_API int set_vui_pic_struct_present_flag(bitbuffer_t* vui_bb, vui_t* vui);

/**
 * Writes the four frame cropping offsets and moves what stands behind them. The record's frame_cropping_flag, as it
 * was read, tells whether the payload has offsets to replace (1) or the flag is to be set and offsets inserted (0).
 * What follows, the stop bit and the zeros behind it included, is moved as it is: when the payload grew, its last byte
 * is filled with the bits that the area held there, so zero the spare bytes beforehand. An offset that has no room is
 * reported, and the call goes on behind what was written of it: nothing, or the zeros and the one that its code begins
 * with when only the rest has no room. An offset above 2^32 - 2 is coded modulo 2^32, 2^32 - 1 as 0.
 * @param sps_bb  the payload, in an area with room for 4 codes of up to 63 bits
 * @param SpsLen  bytes of the payload, without the room; at most 256 behind the cropping part
 * @param sps     its four offsets are written; its frame_cropping_flag is set to 1 when they are inserted
 * @return when offsets were inserted: the new length in bits, rounded up to whole bytes; when they were replaced: the
 *         size of the area in bits, rounded up to whole bytes (the new length is sps_bb->bit_offset, rounded up); -1
 *         on failure, with the payload possibly changed in part, and for a null argument (which is reported as a
 *         failed assertion)
 */
H264_API int set_sps_crop(bitbuffer_t* sps_bb, int SpsLen, sps_t* sps);

/**
 * Makes a new SPS unit with the VUI elements of a record up to fixed_frame_rate_flag. What stands before the VUI, and
 * everything from nal_hrd_parameters_present_flag on, is the given unit's. Only an SPS that has a VUI can be rewritten.
 * The result of the encapsulation is not looked at: when there is no room for the rewritten payload the call succeeds
 * with a unit of start code and header byte only; look at the length. Units of up to 64 bytes behind the start code
 * without zero bytes behind the stop bit always have room. The new unit may end in a zero byte.
 * @param pBuffer         the unit with its start code; a last byte of zero is reported as a failed assertion
 * @param buffer_len      bytes in pBuffer; at most 256 behind the start code
 * @param sps             the record of this unit, with the wanted values
 * @param ppNewSpsBuffer  receives the new unit, which the caller gives to H26XLib_Release_sps_buffer
 * @param pNewSPSLength   receives its length in bytes, start code included
 * @return TRUE; FALSE when the unit has no start code or the record cannot be written, with null and 0 stored, and when
 *         the unit cannot be de-encapsulated or there is no memory, with nothing stored
 */
H264_API BOOL H264Lib_Set_sps_vui_parameters_NAL(const unsigned char* pBuffer, unsigned int buffer_len,
                                                 const sps_t* sps, unsigned char** ppNewSpsBuffer, UINT* pNewSPSLength);

/**
 * Overwrites the initial delays of one schedule of a buffering period message in place, ITU-T H.264 D.1.2. The payload
 * keeps its length; putting it into a unit again may take another number of emulation prevention bytes
 * (RBSP_encapsulation_within_NAL). The VCL HRD's schedules are looked for right behind seq_parameter_set_id, where they
 * stand only when there is no NAL HRD: with one, the NAL HRD's schedules are overwritten, or what stands at that place.
 * Use enHRDCbpType 2 only when the VUI has no NAL HRD.
 * @param bp_bb      the payload of the SEI unit, emulation prevention removed, bit 0 being the first one behind the NAL
 *                   header; left behind the last element written, or where the failure occurred
 * @param BpLen      bytes of the payload, at least 4 (a smaller number is reported as a failed assertion); otherwise
 *                   not looked at
 * @param pVui       VUI of the active sequence parameter set
 * @param pBpValues  schedule and values; bits of a value above initial_cpb_removal_delay_length_minus1 + 1 are dropped
 *                   without a report
 * @param pSei_bp    the record of this very message, from parse_sei_buffering_period_nal
 * @return TRUE when both values have been written; FALSE for another enHRDCbpType than 1 and 2, when the schedule was
 *         not in the message, the HRD is not in the VUI, its delays have more than 32 bits, or the data ends, and for a
 *         null argument (which is reported as a failed assertion). The first of the two values may have been written
 *         when the data ends.
 */
H264_API BOOL set_sei_buffering_period(bitbuffer_t* bp_bb, int BpLen, const vui_t* pVui, const sei_bp_set_t* pBpValues,
                                       const sei_buffering_period_t* pSei_bp);

/** Bytes of an SEI unit behind its start code that H264Lib_Set_SEIPictiming_NAL takes, and of all that it makes. */
#define H264_MAX_SEI_PICTIMING_SIZE_BYTES 32

/**
 * Makes a new SEI unit with one picture timing message, ITU-T H.264 D.1.3, from a record. Start code and NAL header are
 * the given unit's; none of its messages is carried over. The syntax follows the SPS with these differences from
 * parse_sei_pictiming_nal: delays are written when there is a VUI with an HRD (CpbDpbDelaysPresentFlag is not looked
 * at), and time_offset has the length of the NAL HRD's record, else of the VCL HRD's, whichever is not 0, present or
 * not; when both are 0 it is not written, and with a length of 1 it cannot be. Values wider than their element lose
 * their high bits without a report.
 *
 * Check the length of the unit first: a call whose unit cannot be de-encapsulated (fewer than 3 bytes or more than
 * H264_MAX_SEI_PICTIMING_SIZE_BYTES behind the start code, or no payload) loses 32 bytes of memory and leaves both
 * outputs as they were. Check the length of the result as well: a payload of more than 17 bytes has no room, and the
 * call then succeeds with a unit that ends behind the message's size, 3 bytes behind the start code.
 * @param pBuffer         an SEI unit with its start code
 * @param buffer_len      bytes in pBuffer
 * @param sps             the active sequence parameter set
 * @param pt              the message: NumClockTS timestamps, at most 3, are written whatever pic_struct says, and
 *                        header.payload_type, which should be 1, as the message's type
 * @param ppNewSEIBuffer  receives the new unit, which the caller gives to H26XLib_Release_sps_buffer
 * @param pNewSEILength   receives its length in bytes, start code included
 * @return TRUE; FALSE when the unit has no start code or the message does not fit into 32 bytes or cannot be written,
 *         with null and 0 stored, and when the unit cannot be de-encapsulated or there is no memory, with nothing
 *         stored
 */
H264_API BOOL H264Lib_Set_SEIPictiming_NAL(const unsigned char* pBuffer, unsigned int buffer_len, const sps_t* sps,
                                           const sei_pic_timing_t* pt, unsigned char** ppNewSEIBuffer,
                                           unsigned int* pNewSEILength);

/**
 * Releases a unit that a function of this group made.
 * @param pvBuffer  the unit; may be null
 */
H264_API void H26XLib_Release_sps_buffer(void* pvBuffer);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
