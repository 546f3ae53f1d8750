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
    if (buffer_len < 1) return FALSE;
    const auto capacity = static_cast<unsigned int>(buffer_len);
    const h264::HeapArea sodb = h264::allocate_area(capacity);
    if (sodb == nullptr) return FALSE;
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
    __DoInitBitBuffer(&bits, sodb.get(), sodb_len * NUM_BITS_IN_BYTE, __func__, kModuleFile, __LINE__);
    LOG(7, "Deencapsulation was successful. NAL unit length:%d, SODB length:%d bytes.", buffer_len, sodb_len);
    if (_parse_bp(&bits, pVui, pSei_bp)) return TRUE;
    LOG(7, "Failed to parse SEI buffering period! bp_bb:%p, num_bits:%d, bit_offset:%d, pSei_bp:%p.",
        static_cast<void*>(&bits), static_cast<int>(bits.num_bits), static_cast<int>(bits.bit_offset),
        static_cast<void*>(pSei_bp));
    LOG_BUFFER(7, buffer, static_cast<unsigned int>(buffer_len), "WRONG SEI buffering period NAL");
    return FALSE;
}
