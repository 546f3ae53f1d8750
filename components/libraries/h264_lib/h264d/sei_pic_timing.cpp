// pic_timing(), ITU-T H.264 D.1.3.
#include <algorithm>

#include "h264d/sei_payload.h"
#include "h264d/syntax_reader.h"

// NumClockTS of a pic_struct, ITU-T H.264 Table D-1; 0 for a reserved one.
static int clock_timestamps(unsigned int pic_struct) {
    constexpr int counts[] = {1, 1, 1, 2, 2, 3, 3, 2, 3};
    return pic_struct < std::size(counts) ? counts[pic_struct] : 0;
}

// One clock timestamp, the i-th, reported as the reader's function.
static bool read_clock_timestamp(SyntaxReader& in, unsigned long i, unsigned int time_offset_length,
                                 clock_timestamp_info_t& ts) {
    if (!in.u(2, ts.ct_type, numbered("ct_type", i))) return false;
    if (!in.flag(ts.nuit_field_based_flag, numbered("nuit_field_based_flag", i))) return false;
    if (!in.u(5, ts.counting_type, numbered("counting_type", i))) return false;
    if (!in.flag(ts.full_timestamp_flag, numbered("full_timestamp_flag", i))) return false;
    if (!in.flag(ts.discontinuity_flag, numbered("discontinuity_flag", i))) return false;
    if (!in.flag(ts.cnt_dropped_flag, numbered("cnt_dropped_flag", i))) return false;
    if (!in.u(8, ts.n_frames, numbered("n_frames", i))) return false;
    if (ts.full_timestamp_flag) {
        ts.seconds_flag = ts.minutes_flag = ts.hours_flag = 1;
        if (!in.u(6, ts.seconds_value, numbered("seconds_value", i))) return false;
        if (!in.u(6, ts.minutes_value, numbered("minutes_value", i))) return false;
        if (!in.u(5, ts.hours_value, numbered("hours_value", i))) return false;
    } else {
        if (!in.flag(ts.seconds_flag, numbered("seconds_flag", i))) return false;
        if (ts.seconds_flag) {
            if (!in.u(6, ts.seconds_value, numbered("seconds_value", i))) return false;
            if (!in.flag(ts.minutes_flag, numbered("minutes_flag", i))) return false;
            if (ts.minutes_flag) {
                if (!in.u(6, ts.minutes_value, numbered("minutes_value", i))) return false;
                if (!in.flag(ts.hours_flag, numbered("hours_flag", i))) return false;
                if (ts.hours_flag) {
                    if (!in.u(5, ts.hours_value, numbered("hours_value", i))) return false;
                }
            }
        }
    }
    if (time_offset_length != 0) {
        if (!in.i(time_offset_length, ts.time_offset, numbered("time_offset", i))) return false;
    }
    return true;
}

static BOOL _parse_sei_pic_timing(unsigned char* sei_pic_timing, int length, const sps_t* sps, sei_pic_timing_t* pt) {
    unsigned int time_offset_length = 24;  // without an HRD; this is meant
    if (length < 1) {
        LOG(3, "Failed to parse pictiming SEI! Length=%d.", length);
        return FALSE;
    }
    bitbuffer_t bits;
    __DoInitBitBuffer(&bits, sei_pic_timing, length * NUM_BITS_IN_BYTE, __func__, kModuleFile, __LINE__);
    const vui_t& vui = sps->vui;
    LOG(7, "Advancing to Payload index:%d, Payload_type:%#x, Payload_size:%#x.",
        static_cast<int>(pt->header.payload_index), pt->header.payload_type, pt->header.payload_size);
    seek_to_payload(bits, pt->header);
    SyntaxReader in(&bits, __func__);

    if (vui.CpbDpbDelaysPresentFlag) {
        LOG(6, "CpbDpbDelaysPresentFlag:%d, nal_hrd_parameters_present_flag:%d.", vui.CpbDpbDelaysPresentFlag,
            vui.nal_hrd_parameters_present_flag);
        const hrd_t& hrd = vui.nal_hrd_parameters_present_flag ? vui.nal_hrd : vui.vcl_hrd;
        LOG(7, "from hrd, cpb_removal_delay_length_minus1:%d.", hrd.cpb_removal_delay_length_minus1);
        const unsigned int cpb_length = hrd.cpb_removal_delay_length_minus1 + 1U;
        if (!in.u(cpb_length, pt->cpb_removal_delay, "cpb_removal_delay")) return FALSE;
        LOG(7, "cpb_removal_delay:%d, length:%d.", h264::low32s(pt->cpb_removal_delay), h264::low32s(cpb_length));
        LOG(7, "from hrd, dpb_output_delay_length_minus1:%d.", hrd.dpb_output_delay_length_minus1);
        const unsigned int dpb_length = hrd.dpb_output_delay_length_minus1 + 1U;
        if (!in.u(dpb_length, pt->dpb_output_delay, "dpb_output_delay")) return FALSE;
        LOG(7, "dpb_output_delay:%d, length:%d.", h264::low32s(pt->dpb_output_delay), h264::low32s(dpb_length));
        time_offset_length = hrd.time_offset_length;
    }
    LOG(7, "pic_struct_present_flag:%d.", vui.pic_struct_present_flag);
    if (!vui.pic_struct_present_flag) return TRUE;
    if (!in.u(4, pt->pic_struct, "pic_struct")) return FALSE;
    const int timestamps = clock_timestamps(pt->pic_struct);
    if (timestamps == 0) return FALSE;
    pt->NumClockTS = timestamps;
    LOG(7, "pic_struct:%lu, NumClockTS:%d.", static_cast<unsigned long>(pt->pic_struct), pt->NumClockTS);
    for (int i = 0; i < timestamps; ++i) {
        clock_timestamp_info_t& ts = pt->clock_timestamp_info[i];
        if (!in.flag(ts.clock_timestamp_flag, "clock_timestamp_flag")) return FALSE;
        LOG(7, "clock_timestamp_flag:%d.", ts.clock_timestamp_flag);
        if (!ts.clock_timestamp_flag) continue;
        if (!read_clock_timestamp(in, static_cast<unsigned long>(i), time_offset_length, ts)) return FALSE;
        LOG(8, "DEBUG - HH:MM:SS:FF:%02d:%02d:%02d:%02d. ct_full_flag:%d, ct_flag:%d time_offset:%d.", ts.hours_value,
            ts.minutes_value, ts.seconds_value, ts.n_frames, ts.full_timestamp_flag, ts.clock_timestamp_flag,
            h264::low32s(ts.time_offset));
    }
    return TRUE;
}

BOOL parse_sei_pictiming_nal(const unsigned char* buffer, int buffer_len, const sps_t* sps, sei_pic_timing_t* pt) {
    if (buffer == nullptr || sps == nullptr || pt == nullptr) {
        LOG(3, "Failed to parse pictiming SEI! buffer:%p, sps:%p, pt:%p.", static_cast<const void*>(buffer),
            static_cast<const void*>(sps), static_cast<void*>(pt));
        return FALSE;
    }
    LOG_BUFFER(7, buffer, static_cast<unsigned int>(std::max(buffer_len, 0)), "Pictiming SEI NAL");
    int offset = 0;
    if (!_GetNALTypeOffset(buffer, buffer_len, &offset)) {
        LOG(3, "Failed to parse pictiming SEI nal! buffer:%p.", static_cast<const void*>(buffer));
        return FALSE;
    }
    unsigned char sodb[256];
    const int sodb_len = SODB_deencapsulation_from_NAL(buffer + offset, static_cast<unsigned int>(buffer_len - offset),
                                                       sodb, sizeof sodb);
    LOG(7, "Deencapsulation was successful. NAL unit length:%d, SODB length:%d.", buffer_len, sodb_len);
    if (!_parse_sei_pic_timing(sodb, sodb_len, sps, pt)) {
        LOG(3, "Failed to parse pictiming SEI!.");
        return FALSE;
    }
    return TRUE;
}
