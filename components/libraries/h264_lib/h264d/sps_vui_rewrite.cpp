// Writes the head of vui_parameters(), ITU-T H.264 E.1.1, anew into a sequence parameter set.
#include <algorithm>
#include <bit>
#include <climits>
#include <cstring>

#include "h264d/bit_string.h"
#include "h264d/syntax_writer.h"
#include "heap_area.h"

// vui_parameters_present_flag and vui_parameters() up to fixed_frame_rate_flag. function: the name messages are
// reported under.
static bool write_vui_head(bitbuffer_t* bits, const sps_t& sps, const char* function) {
    const vui_t& vui = sps.vui;
    SyntaxWriter out(bits, function);
    if (!out.flag(sps.vui_parameters_present_flag, "vui_parameters_present_flag")) return false;
    if (!out.flag(vui.aspect_ratio_info_present_flag, "aspect_ratio_info_present_flag")) return false;
    if (vui.aspect_ratio_info_present_flag) {
        if (!out.u(8, vui.aspect_ratio_idc, "aspect_ratio_idc")) return false;
        if (vui.aspect_ratio_idc > 254) {  // Extended_SAR
            if (!out.u(16, vui.sar_width, "sar_width")) return false;
            if (!out.u(16, vui.sar_height, "sar_width")) return false;  // the same message; this is meant
        }
    }
    if (!out.flag(vui.overscan_info_present_flag, "overscan_info_present_flag")) return false;
    if (vui.overscan_info_present_flag) {
        if (!out.flag(vui.overscan_appropriate_flag, "overscan_appropriate_flag")) return false;
    }
    if (!out.flag(vui.video_signal_type_present_flag, "video_signal_type_present_flag")) return false;
    if (vui.video_signal_type_present_flag) {
        if (!out.u(3, vui.video_format, "video_format")) return false;
        if (!out.flag(vui.video_full_range_flag, "video_full_range_flag")) return false;
        if (!out.flag(vui.colour_description_present_flag, "colour_description_present_flag")) return false;
        if (vui.colour_description_present_flag) {
            if (!out.u(8, vui.colour_primaries, "colour_primaries")) return false;
            if (!out.u(8, vui.transfer_characteristics, "transfer_characteristics")) return false;
            if (!out.u(8, vui.matrix_coefficients, "matrix_coefficients")) return false;
        }
    }
    if (!out.flag(vui.chroma_loc_info_present_flag, "chroma_loc_info_present_flag")) return false;
    if (vui.chroma_loc_info_present_flag) {
        if (!out.ue(vui.chroma_sample_loc_type_top_field, "chroma_sample_loc_type_top_field as golomb")) return false;
        if (!out.ue(vui.chroma_sample_loc_type_bottom_field, "chroma_sample_loc_type_bottom_field as golomb"))
            return false;
    }
    if (!out.flag(vui.timing_info_present_flag, "vui_timing_info_present_flag")) return false;
    if (vui.timing_info_present_flag) {
        if (!out.u(32, vui.num_units_in_tick, "vui_num_units_in_tick")) return false;
        if (!out.u(32, vui.time_scale, "vui_time_scale")) return false;
        if (!out.flag(vui.fixed_frame_rate_flag, "fixed_frame_rate_flag")) return false;
    }
    return true;
}

int _set_sps_vui_parameters(bitbuffer_t* sps_nalu_bb, int SpsSodbLength, const sps_t* sps, bitbuffer_t* new_sps_nalu_bb,
                            int NewSpsSodbLength) {
    constexpr std::int64_t MIN_VUI_PARAMETERS_SIZE_BYTES = 32;
    DO_ASSERT(sps_nalu_bb != NULL);
    DO_ASSERT(sps != NULL);
    DO_ASSERT(new_sps_nalu_bb != NULL);
    DO_ASSERT(NewSpsSodbLength >= (SpsSodbLength + MIN_VUI_PARAMETERS_SIZE_BYTES));
    if (sps_nalu_bb == nullptr || sps == nullptr || new_sps_nalu_bb == nullptr) return -1;
    if (sps->vui_parameters_present_flag != 1) return -1;

    // What stands before the VUI.
    BitString head;
    if (!head.read(*sps_nalu_bb, sps->vui_parameters_present_offset)) {
        LOG(3, "Failed to get %d bits as string.", sps->vui_parameters_present_offset);
        return -1;
    }
    if (!head.write(*new_sps_nalu_bb)) {
        LOG(3, "Failed to set %d bits as string.", sps->vui_parameters_present_offset);
        return -1;
    }

    // What stands from nal_hrd_parameters_present_flag on: a tail, and the last byte, which has the stop bit.
    seek(*sps_nalu_bb, sps->vui.nal_hrd_parameters_present_offset);
    std::int64_t num_bits = std::int64_t{SpsSodbLength} * NUM_BITS_IN_BYTE - sps->vui.nal_hrd_parameters_present_offset;
    LOG(7, "SpsSodbLength bytes:%d. Current offset in bb:%d, num_bits:%d, IsByteBoudary:%s.", SpsSodbLength,
        static_cast<int>(sps_nalu_bb->bit_offset), h264::low32s(num_bits),
        sps_nalu_bb->bit_offset % NUM_BITS_IN_BYTE == 0 ? "TRUE" : "FALSE");
    BitString tail;
    if (num_bits > NUM_BITS_IN_BYTE) {
        if (!tail.read(*sps_nalu_bb, num_bits - NUM_BITS_IN_BYTE)) {
            LOG(3, "Failed to get %d bits as string.", h264::low32s(num_bits));
            return -1;
        }
        num_bits = NUM_BITS_IN_BYTE;
    }
    const auto LastByteNumBits = static_cast<unsigned int>(num_bits);
    unsigned char LastByte = 0;
    if (GetNextNBitsAsUint8(sps_nalu_bb, LastByteNumBits, &LastByte) != 0) {
        LOG(3, "Failed to get %d bits as Uint8.", h264::low32s(num_bits));
        return -1;
    }
    LOG(7, "num_bits:%d, LastByteNumBits:%d, LastByte:%#x.", h264::low32s(num_bits), h264::low32s(LastByteNumBits),
        LastByte);

    if (!write_vui_head(new_sps_nalu_bb, *sps, __func__)) return -1;

    if (tail.bits() > 0 && !tail.write(*new_sps_nalu_bb)) {
        LOG(3, "Failed to set %d bits as string.", h264::low32s(tail.bits()));
        return -1;
    }
    const int StopBitPos = LastByte != 0 ? std::countr_zero(LastByte) : -1;
    DO_ASSERT(StopBitPos >= 0);
    LOG(7, "Before Trailing bits, bitbuffer BitOffset:%d, StopBitPos:%d, LastByte:%#x.",
        static_cast<int>(new_sps_nalu_bb->bit_offset), StopBitPos, LastByte);
    if (SetNextNBitsFromUint8(new_sps_nalu_bb, LastByteNumBits, LastByte) != 0) {
        LOG(3, "Failed to set StopBit.");
        return -1;
    }
    // These zeros and those of the last byte may make up a whole byte behind the stop bit.
    while (new_sps_nalu_bb->bit_offset % NUM_BITS_IN_BYTE != 0) {
        if (__DoSetNextBit(new_sps_nalu_bb, 0, __func__, kModuleFile, __LINE__) != 0) {
            LOG(3, "Failed to set padding bit.");
            return -1;
        }
    }
    DisplayBitBuffer(new_sps_nalu_bb, "FINAL NEW SODB SPS");
    const unsigned int bytes = DIVIDE_AND_CEIL(new_sps_nalu_bb->bit_offset, NUM_BITS_IN_BYTE);
    LOG(7, "Final new SPS num_bits:%d, Bytes:%d.", static_cast<int>(new_sps_nalu_bb->bit_offset),
        static_cast<int>(bytes));
    return static_cast<int>(bytes);
}

BOOL H264Lib_Set_sps_vui_parameters_NAL(const unsigned char* pBuffer, unsigned int buffer_len, const sps_t* sps,
                                        unsigned char** ppNewSpsBuffer, UINT* pNewSPSLength) {
    DO_ASSERT(pBuffer != NULL);
    DO_ASSERT(ppNewSpsBuffer != NULL);
    DO_ASSERT(pNewSPSLength != NULL);
    if (ppNewSpsBuffer == nullptr || pNewSPSLength == nullptr) return FALSE;

    // Room for the head of a VUI and emulation prevention.
    const std::size_t NewSpsBufLength = std::size_t{buffer_len} + 68;
    h264::HeapArea new_unit = h264::allocate_area(NewSpsBufLength);
    if (new_unit == nullptr) {
        _DoAssert("pNewSpsBuffer = calloc(1, NewSpsBufLength)", __func__, kModuleFile, __LINE__);
        return FALSE;
    }
    int offset = 0;
    if (!_GetNALTypeOffset(pBuffer, static_cast<int>(std::min<unsigned int>(buffer_len, INT_MAX)), &offset)) {
        LOG(3, "Failed to get NAL type offset from pBuffer:%p.", static_cast<const void*>(pBuffer));
        *pNewSPSLength = 0;
        *ppNewSpsBuffer = nullptr;
        return FALSE;
    }
    // A unit may end with its start code.
    const auto start_code_len = static_cast<unsigned int>(offset);
    const unsigned int header_len = start_code_len + 1;
    std::memcpy(new_unit.get(), pBuffer, std::min(header_len, buffer_len));

    unsigned char sodb[kParameterSetWorkBytes];
    const int sodb_len =
        SODB_deencapsulation_from_NAL(pBuffer + offset, buffer_len - start_code_len, sodb, sizeof sodb);
    if (sodb_len <= 0) {
        LOG(3, "Failed to get SODB from RBSP. Output buffer is too small.");
        return FALSE;
    }
    unsigned char new_sodb[kParameterSetWorkBytes] = {};
    bitbuffer_t bits;
    bitbuffer_t new_bits;
    __DoInitBitBuffer(&bits, sodb, sodb_len * NUM_BITS_IN_BYTE, __func__, kModuleFile, __LINE__);
    __DoInitBitBuffer(&new_bits, new_sodb, sizeof new_sodb * NUM_BITS_IN_BYTE, __func__, kModuleFile, __LINE__);
    const int new_sodb_len = _set_sps_vui_parameters(&bits, sodb_len, sps, &new_bits, sizeof new_sodb);
    if (new_sodb_len < 0) {
        LOG(3, "Failed to set vui parameters SPS NAL!");
        *pNewSPSLength = 0;
        *ppNewSpsBuffer = nullptr;
        return FALSE;
    }
    // A unit that has no room for the result is answered with its header alone; this is meant.
    const int encapsulated_len =
        RBSP_encapsulation_within_NAL(new_sodb, static_cast<unsigned int>(new_sodb_len), new_unit.get() + header_len,
                                      static_cast<unsigned int>(NewSpsBufLength - header_len));
    *pNewSPSLength = static_cast<UINT>(encapsulated_len) + header_len;
    *ppNewSpsBuffer = new_unit.release();
    return TRUE;
}

void H26XLib_Release_sps_buffer(void* pvBuffer) { std::free(pvBuffer); }
