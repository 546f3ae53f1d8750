#pragma once

#include "h264.h"

class PartialPayload;

// The classes of slice_type that conditions of slice_header() ask for, ITU-T H.264 Table 7-6.
constexpr bool is_b_slice(unsigned long slice_type) { return slice_type == 1 || slice_type == 6; }
constexpr bool is_p_or_sp_slice(unsigned long slice_type) {
    return slice_type == 0 || slice_type == 3 || slice_type == 5 || slice_type == 8;
}
constexpr bool is_i_or_si_slice(unsigned long slice_type) {
    return slice_type == 2 || slice_type == 4 || slice_type == 7 || slice_type == 9;
}
constexpr bool is_sp_slice(unsigned long slice_type) { return slice_type == 3 || slice_type == 8; }
constexpr bool is_sp_or_si_slice(unsigned long slice_type) {
    return is_sp_slice(slice_type) || slice_type == 4 || slice_type == 9;
}
constexpr bool has_pred_weight_table(const pps_t& pps, unsigned long slice_type) {
    return (pps.weighted_pred_flag && is_p_or_sp_slice(slice_type)) ||
           (pps.weighted_bipred_idc == 1 && is_b_slice(slice_type));
}

// log2_..._minus4 + 4 of a parameter set; never less than it, whatever its value.
constexpr unsigned int bit_length_from_log2_minus4(unsigned long log2_minus4) {
    constexpr unsigned long largest = 0xFFFFFFFF;
    return static_cast<unsigned int>((log2_minus4 < largest - 4 ? log2_minus4 : largest - 4) + 4);
}

// The parsers of slice_header() and its parts. Each reads on into what rest adds to the area when that is not null.
// 0, or -1 when an element cannot be read or is not supported.
int _parse_slice_type(bitbuffer_t* pNal_bb, const sps_t* sps, slice_header_t* pSh, PartialPayload* rest = nullptr);
int _parse_slice_header(bitbuffer_t* pNal_bb, const sps_t* sps, const pps_t* pps, BYTE NALType, BYTE nal_ref_idc,
                        slice_header_t* pSh, PartialPayload* rest = nullptr);
int _parse_ref_pic_list_modification(bitbuffer_t* pNal_bb, slice_header_t* pSh, PartialPayload* rest = nullptr);
int _parse_pred_weight_table(bitbuffer_t* pNal_bb, unsigned long ChromaArrayType, slice_header_t* pSh,
                             PartialPayload* rest = nullptr);
int _parse_dec_ref_pic_marking(bitbuffer_t* pNal_bb, BOOL IdrPicFlag, slice_header_t* pSh,
                               PartialPayload* rest = nullptr);

void _display_ref_pic_list_modification(const slice_header_t* pSh);
void _display_pred_weight_table(unsigned long ChromaArrayType, const slice_header_t* pSh);
void _display_dec_ref_pic_marking(BOOL IdrPicFlag, const slice_header_t* pSh);
