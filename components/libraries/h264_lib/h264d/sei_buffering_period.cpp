// buffering_period(), ITU-T H.264 D.1.2.
#include "h264d/sei_payload.h"
#include "h264d/syntax_reader.h"
#include "heap_area.h"

static BOOL _parse_bp(bitbuffer_t* bp_bb, const vui_t* pVui, sei_buffering_period_t* pSei_bp) {
    DO_ASSERT(bp_bb != NULL);
    DO_ASSERT(pVui != NULL);
    DO_ASSERT(pSei_bp != NULL);
    if (bp_bb == nullptr || pVui == nullptr || pSei_bp == nullptr) {
        LOG(3, "Failed to parse SEI buffering period!");
        return FALSE;
    }
    sei_buffering_period_t& bp = *pSei_bp;
    seek_to_payload(*bp_bb, bp.header);
    SyntaxReader in(bp_bb, __func__);
    unsigned long dropped = 0;

    if (!in.ue(bp.seq_parameter_set_id, "seq_parameter_set_id")) return FALSE;
    bp.after_sps_id_offset = in.position();
    if (pVui->nal_hrd_parameters_present_flag) {
        const hrd_t& hrd = pVui->nal_hrd;
        const unsigned int length = hrd.initial_cpb_removal_delay_length_minus1 + 1U;
        if (length > 32) {
            LOG(3, "invalid nal_hrd.initial_cpb_removal_delay_length_minus1[%d].",
                hrd.initial_cpb_removal_delay_length_minus1);
            return FALSE;
        }
        for (unsigned long i = 0; i <= hrd.cpb_cnt_minus1; ++i) {
            if (!in.u(length, entry_or(bp.initial_cpb_removal_delay, i, dropped),
                      indexed("initial_cpb_removal_delay", i)))
                return FALSE;
            if (!in.u(length, entry_or(bp.initial_cpb_removal_delay_offset, i, dropped),
                      indexed("initial_cpb_removal_delay_offset", i)))
                return FALSE;
        }
        bp.valid_NALSchedules = hrd.cpb_cnt_minus1 + 1;
        LOG(6, "Found %d valid_NALSchedules.", h264::low32s(bp.valid_NALSchedules));
    }
    if (pVui->vcl_hrd_parameters_present_flag) {
        const hrd_t& hrd = pVui->vcl_hrd;
        const unsigned int length = hrd.initial_cpb_removal_delay_length_minus1 + 1U;
        if (length > 32) {
            LOG(3, "invalid vcl_hrd.initial_cpb_removal_delay_length_minus1[%d].",
                hrd.initial_cpb_removal_delay_length_minus1);
            return FALSE;
        }
        for (unsigned long i = 0; i <= hrd.cpb_cnt_minus1; ++i) {
            if (!in.u(length, entry_or(bp.initial_cpb_removal_delay_vcl, i, dropped),
                      indexed("initial_cpb_removal_delay_vcl", i)))
                return FALSE;
            if (!in.u(length, entry_or(bp.initial_cpb_removal_delay_offset_vcl, i, dropped),
                      indexed("initial_cpb_removal_delay_offset_vcl", i)))
                return FALSE;
        }
        bp.valid_VCLSchedules = hrd.cpb_cnt_minus1 + 1;
        LOG(6, "Found %d valid_VCLSchedules.", h264::low32s(bp.valid_VCLSchedules));
    }
    return TRUE;
}

BOOL parse_sei_buffering_period_nal(const unsigned char* buffer, int buffer_len, const vui_t* pVui,
                                    sei_buffering_period_t* pSei_bp) {
    DO_ASSERT(buffer != NULL);
    DO_ASSERT(buffer_len >= 4);
    DO_ASSERT(pVui != NULL);
    DO_ASSERT(pSei_bp != NULL);
    const auto capacity = static_cast<unsigned int>(std::max(buffer_len, 0));
    // Without a byte in it there is no start code, and nothing to allocate.
    const h264::HeapArea sodb = capacity > 0 ? h264::allocate_area(capacity) : nullptr;
    if (capacity > 0 && sodb == nullptr) return FALSE;
    int offset = 0;
    if (!_GetNALTypeOffset(buffer, buffer_len, &offset)) {
        LOG(3, "Failed to parse SEI buffering period! buffer:%p.", static_cast<const void*>(buffer));
        return FALSE;
    }
    const int sodb_len = SODB_deencapsulation_from_NAL(buffer + offset, static_cast<unsigned int>(buffer_len - offset),
                                                       sodb.get(), capacity);
    if (sodb_len <= 0) {
        LOG(3, "Failed to parse SEI buffering period! buffer:%p Length=%d.", static_cast<const void*>(buffer),
            sodb_len);
        return FALSE;
    }
    bitbuffer_t bits;
    __DoInitBitBuffer(&bits, sodb.get(), bits_in(sodb_len), __func__, kModuleFile, __LINE__);
    LOG(7, "Deencapsulation was successful. NAL unit length:%d, SODB length:%d bytes.", buffer_len, sodb_len);
    if (_parse_bp(&bits, pVui, pSei_bp)) return TRUE;
    LOG(7, "Failed to parse SEI buffering period! bp_bb:%p, num_bits:%d, bit_offset:%d, pSei_bp:%p.",
        static_cast<void*>(&bits), static_cast<int>(bits.num_bits), static_cast<int>(bits.bit_offset),
        static_cast<void*>(pSei_bp));
    LOG_BUFFER(7, buffer, static_cast<unsigned int>(buffer_len), "WRONG SEI buffering period NAL");
    return FALSE;
}

// Overwrites the pair of delays of one schedule in an array of schedules that begins at the position. The names are
// those by which schedules that cannot be skipped are reported; failed writes have one name for either HRD.
static BOOL overwrite_schedule(bitbuffer_t* bp_bb, const hrd_t& hrd, const sei_bp_set_t& values, const char* delay,
                               const char* offset, const char* function) {
    const unsigned int length = hrd.initial_cpb_removal_delay_length_minus1 + 1U;
    unsigned char skipped[256];
    for (unsigned long i = 0; i < values.SchedSelIdx; ++i) {
        for (const char* element : {delay, offset}) {
            if (GetNextNBitsAsStringEx(bp_bb, length, skipped, sizeof skipped) != 0) {
                LOG_AS(function, 3, "cannot parse %s[%d] as string.", element, h264::low32s(i));
                return FALSE;
            }
        }
    }
    if (SetNextNBitsFromUint32(bp_bb, length, values.initial_cpb_removal_delay) != 0) {
        LOG_AS(function, 3, "Failed to set initial_cpb_removal_delay:%lu for SchedSelIdx:%d.",
               values.initial_cpb_removal_delay, h264::low32s(values.SchedSelIdx));
        return FALSE;
    }
    if (SetNextNBitsFromUint32(bp_bb, length, values.initial_cpb_removal_delay_offset) != 0) {
        LOG_AS(function, 3, "Failed to set initial_cpb_removal_delay_offset:%lu for SchedSelIdx:%d.",
               values.initial_cpb_removal_delay_offset, h264::low32s(values.SchedSelIdx));
        return FALSE;
    }
    return TRUE;
}

BOOL set_sei_buffering_period(bitbuffer_t* bp_bb, int BpLen, const vui_t* pVui, const sei_bp_set_t* pBpValues,
                              const sei_buffering_period_t* pSei_bp) {
    constexpr int kNalHrd = 1, kVclHrd = 2;
    DO_ASSERT(bp_bb != NULL);
    DO_ASSERT(BpLen >= 4);
    DO_ASSERT(pVui != NULL);
    DO_ASSERT(pBpValues != NULL);
    DO_ASSERT(pSei_bp != NULL);
    if (bp_bb == nullptr || pVui == nullptr || pBpValues == nullptr || pSei_bp == nullptr) return FALSE;
    const sei_bp_set_t& values = *pBpValues;
    if (values.enHRDCbpType == kNalHrd) {
        if (values.SchedSelIdx >= pSei_bp->valid_NALSchedules) {
            LOG(3, "Trying to set a NAL schedule:%d that is out of range %d.", h264::low32s(values.SchedSelIdx),
                h264::low32s(pSei_bp->valid_NALSchedules));
            return FALSE;
        }
    } else if (values.enHRDCbpType == kVclHrd) {
        if (values.SchedSelIdx >= pSei_bp->valid_VCLSchedules) {
            LOG(3, "Trying to set a VCL schedule:%d that is out of range %d.", h264::low32s(values.SchedSelIdx),
                h264::low32s(pSei_bp->valid_VCLSchedules));
            return FALSE;
        }
    } else {
        LOG(3, "enHRDCbpType %d not in the known types.", values.enHRDCbpType);
        return FALSE;
    }

    bp_bb->bit_offset = static_cast<unsigned int>(pSei_bp->after_sps_id_offset);
    if (values.enHRDCbpType == kNalHrd && pVui->nal_hrd_parameters_present_flag)
        return overwrite_schedule(bp_bb, pVui->nal_hrd, values, "initial_cpb_removal_delay",
                                  "initial_cpb_removal_delay_offset", __func__);
    // The NAL HRD's schedules, which come first in a message that has both, are not skipped; this is meant.
    if (values.enHRDCbpType == kVclHrd && pVui->vcl_hrd_parameters_present_flag)
        return overwrite_schedule(bp_bb, pVui->vcl_hrd, values, "initial_cpb_removal_delay_vcl",
                                  "initial_cpb_removal_delay_offset_vcl", __func__);
    return FALSE;
}
