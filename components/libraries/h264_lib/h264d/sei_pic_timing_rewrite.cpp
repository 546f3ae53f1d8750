// Rewriting of pic_timing(), ITU-T H.264 D.1.3.
#include <algorithm>
#include <climits>
#include <cstring>

#include "h264d/syntax_writer.h"
#include "heap_area.h"

// One clock timestamp behind its clock_timestamp_flag. Failures in the time itself go by two names only; this is meant.
static bool write_clock_timestamp(SyntaxWriter& out, const clock_timestamp_info_t& ts,
                                  unsigned int time_offset_length) {
    if (!out.u(2, ts.ct_type, "ct_type")) return false;
    if (!out.flag(ts.nuit_field_based_flag, "nuit_field_based_flag")) return false;
    if (!out.u(5, ts.counting_type, "counting_type")) return false;
    if (!out.flag(ts.full_timestamp_flag, "full_timestamp_flag")) return false;
    if (!out.flag(ts.discontinuity_flag, "discontinuity_flag")) return false;
    if (!out.flag(ts.cnt_dropped_flag, "cnt_dropped_flag")) return false;
    if (!out.u(8, ts.n_frames, "n_frames")) return false;
    if (ts.full_timestamp_flag == 1) {
        if (!out.u(6, ts.seconds_value, "n_frames")) return false;
        if (!out.u(6, ts.minutes_value, "n_frames")) return false;
        if (!out.u(5, ts.hours_value, "n_frames")) return false;
    } else {
        if (!out.flag(ts.seconds_flag, "cnt_dropped_flag")) return false;
        if (ts.seconds_flag) {
            if (!out.u(6, ts.seconds_value, "n_frames")) return false;
            if (!out.flag(ts.minutes_flag, "cnt_dropped_flag")) return false;
            if (ts.minutes_flag) {
                if (!out.u(6, ts.minutes_value, "n_frames")) return false;
                if (!out.flag(ts.hours_flag, "cnt_dropped_flag")) return false;
                if (ts.hours_flag) {
                    if (!out.u(5, ts.hours_value, "n_frames")) return false;
                }
            }
        }
    }
    if (time_offset_length != 0) {
        if (!out.i(time_offset_length, ts.time_offset, "time_offset_length")) return false;
    }
    return true;
}

int _set_sei_pictiming_parameters(const sps_t* sps, const sei_pic_timing_t* pt, bitbuffer_t* new_sei_nalu_bb,
                                  unsigned int* pNewSEISodbLength) {
    DO_ASSERT(sps != NULL);
    DO_ASSERT(pt != NULL);
    DO_ASSERT(new_sei_nalu_bb != NULL);
    DO_ASSERT(pNewSEISodbLength != NULL);
    if (pNewSEISodbLength == nullptr) return -1;
    DO_ASSERT(*pNewSEISodbLength >= H264_MAX_SEI_PICTIMING_SIZE_BYTES);
    if (sps == nullptr || pt == nullptr || new_sei_nalu_bb == nullptr) return -1;
    const vui_t& vui = sps->vui;
    SyntaxWriter out(new_sei_nalu_bb, __func__);

    // The reader goes by CpbDpbDelaysPresentFlag instead; this is meant.
    if (sps->vui_parameters_present_flag == 1 &&
        (vui.nal_hrd_parameters_present_flag == 1 || vui.vcl_hrd_parameters_present_flag == 1)) {
        const hrd_t& hrd = vui.nal_hrd_parameters_present_flag ? vui.nal_hrd : vui.vcl_hrd;
        const unsigned int cpb_length = hrd.cpb_removal_delay_length_minus1 + 1U;
        const unsigned int dpb_length = hrd.dpb_output_delay_length_minus1 + 1U;
        if (!out.u(cpb_length, pt->cpb_removal_delay, "cpb_removal_delay")) return -1;
        LOG(7, "set cpb_removal_delay:%d, length:%d.", h264::low32s(pt->cpb_removal_delay), h264::low32s(cpb_length));
        if (!out.u(dpb_length, pt->dpb_output_delay, "dpb_output_delay")) return -1;
        LOG(7, "set dpb_output_delay:%d, length:%d.", h264::low32s(pt->dpb_output_delay), h264::low32s(dpb_length));
    }
    if (vui.pic_struct_present_flag) {
        // Whichever HRD gives a length, present or not, and none without one; this is meant too.
        const unsigned int time_offset_length =
            vui.nal_hrd.time_offset_length != 0 ? vui.nal_hrd.time_offset_length : vui.vcl_hrd.time_offset_length;
        const int timestamps = std::min(pt->NumClockTS, static_cast<int>(std::size(pt->clock_timestamp_info)));
        if (!out.u(4, pt->pic_struct, "pic_struct")) return -1;
        for (int i = 0; i < timestamps; ++i) {
            const clock_timestamp_info_t& ts = pt->clock_timestamp_info[i];
            if (!out.flag(ts.clock_timestamp_flag, "clock_timestamp_flag")) return -1;
            if (!ts.clock_timestamp_flag) continue;
            if (!write_clock_timestamp(out, ts, time_offset_length)) return -1;
        }
    }

    // The alignment is a part of the payload, ITU-T H.264 D.1.1.
    if (out.position() % NUM_BITS_IN_BYTE != 0) {
        if (!out.flag(1, "stop_bit")) return -1;
        while (out.position() % NUM_BITS_IN_BYTE != 0) {
            if (!out.flag(0, "padding bit")) return -1;
        }
    }
    const unsigned int payload_bytes = out.position() / NUM_BITS_IN_BYTE;
    *pNewSEISodbLength = payload_bytes;
    constexpr unsigned char kRbspTrailingBits = 0x80;
    if (!out.u(8, kRbspTrailingBits, "rbsp trailing bits")) return -1;
    const unsigned int total_bytes = out.position() / NUM_BITS_IN_BYTE;
    DisplayBitBuffer(new_sei_nalu_bb, "FINAL NEW SODB SEI");
    LOG(7, "Final new SEI num_bits:%d, PayloadBytes:%d, TotalBytes:%d.", static_cast<int>(out.position()),
        static_cast<int>(payload_bytes), static_cast<int>(total_bytes));
    return static_cast<int>(total_bytes);
}

BOOL H264Lib_Set_SEIPictiming_NAL(const unsigned char* pBuffer, unsigned int buffer_len, const sps_t* sps,
                                  const sei_pic_timing_t* pt, unsigned char** ppNewSEIBuffer,
                                  unsigned int* pNewSEILength) {
    constexpr unsigned int kCapacity = H264_MAX_SEI_PICTIMING_SIZE_BYTES;
    DO_ASSERT(pBuffer != NULL);
    DO_ASSERT(buffer_len > 0);
    DO_ASSERT(ppNewSEIBuffer != NULL);
    DO_ASSERT(pNewSEILength != NULL);
    if (pBuffer != nullptr) LOG_BUFFER(6, pBuffer, buffer_len, "ORIGINAL SEI NAL");
    if (ppNewSEIBuffer == nullptr || pNewSEILength == nullptr) return FALSE;

    h264::HeapArea unit = h264::allocate_area(kCapacity);
    if (unit == nullptr) {
        _DoAssert("pNewSEIBuffer = calloc(1, NewSEIBufLength)", __func__, kModuleFile, __LINE__);
        return FALSE;
    }
    int header = 0;
    const auto searched = static_cast<int>(std::min<unsigned int>(buffer_len, INT_MAX));
    if (!_GetNALTypeOffset(pBuffer, searched, &header)) {
        LOG(3, "Failed to get NAL type offset from pBuffer:%p.", static_cast<const void*>(pBuffer));
        *pNewSEILength = 0;
        *ppNewSEIBuffer = nullptr;
        return FALSE;
    }
    // Nothing of the source's payload is used; it only has to be one.
    unsigned char source[kCapacity];
    const auto header_offset = static_cast<unsigned int>(header);
    if (SODB_deencapsulation_from_NAL(pBuffer + header, buffer_len - header_offset, source, sizeof source) <= 0) {
        LOG(3, "Failed to get SODB from RBSP. Output buffer is too small.");
        // The new buffer is lost here, and the outputs stay as they were; this is meant.
        static_cast<void>(unit.release());
        return FALSE;  // NOLINT(clang-analyzer-unix.Malloc)
    }

    unsigned char rbsp[kCapacity] = {};
    bitbuffer_t bits;
    __DoInitBitBuffer(&bits, rbsp, sizeof rbsp * NUM_BITS_IN_BYTE, __func__, kModuleFile, __LINE__);
    unsigned int payload_bytes = sizeof rbsp;
    const int total_bytes = _set_sei_pictiming_parameters(sps, pt, &bits, &payload_bytes);
    if (total_bytes < 0) {
        LOG(3, "Failed to set sei pictiming parameters NAL!");
        *pNewSEILength = 0;
        *ppNewSEIBuffer = nullptr;
        return FALSE;
    }
    unsigned int length = header_offset + 1;
    std::memcpy(unit.get(), pBuffer, length);
    unit.get()[length++] = pt->header.payload_type;
    unit.get()[length++] = static_cast<unsigned char>(payload_bytes);
    LOG(7, "nNewSEIBufOffset:%d.", static_cast<int>(length));
    // A payload that does not fit leaves the unit without one; this is meant.
    length += static_cast<unsigned int>(RBSP_encapsulation_within_NAL(rbsp, static_cast<unsigned int>(total_bytes),
                                                                      unit.get() + length, kCapacity - length));
    LOG_BUFFER(6, unit.get(), length, "MODIFIED SEI NAL");
    *pNewSEILength = length;
    *ppNewSEIBuffer = unit.release();
    return TRUE;
}
