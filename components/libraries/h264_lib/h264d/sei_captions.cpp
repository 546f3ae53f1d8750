// Captions: cc_data() of ATSC A/53 in user_data_registered_itu_t_t35(), ITU-T H.264 D.1.6.
#include "h264d/sei_payload.h"
#include "throttle.h"

namespace {

constexpr int kMaxCaptions = 32;       // entries of the record
constexpr std::time_t kLogPeriod = 4;  // seconds that pass between two messages

h264::Throttle _tLastLog;

}  // namespace

static BOOL _parse_cc(bitbuffer_t* cc_bb, SEI_cc_t* sei_cc) {
    if (cc_bb == nullptr || sei_cc == nullptr) {
        LOG(3, "Failed to parse cc SEI! cc_bb:%p, sei_cc:%p.", static_cast<void*>(cc_bb), static_cast<void*>(sei_cc));
        return FALSE;
    }
    SEI_cc_data_t& cc_data = sei_cc->cc_data;
    seek_to_payload(*cc_bb, sei_cc->header);
    if (GetNextNBitsAsInt8(cc_bb, 8, &sei_cc->itu_t_t35_country_code) != 0) return FALSE;
    if (GetNextNBitsAsUint16(cc_bb, 16, &sei_cc->itu_t_t35_provider_code) != 0) return FALSE;
    if (GetNextNBitsAsUint32(cc_bb, 32, &sei_cc->user_identifier) != 0) return FALSE;
    if (GetNextNBitsAsUint8(cc_bb, 8, &sei_cc->user_data_type_code) != 0) return FALSE;
    cc_bb->bit_offset += 1;  // process_em_data_flag
    if (GetNextBitEx(cc_bb, &cc_data.process_cc_data_flag) != 0) return FALSE;
    cc_bb->bit_offset += 1;  // additional_data_flag
    if (GetNextNBitsAsUint8(cc_bb, 5, &cc_data.cc_count) != 0) return FALSE;
    cc_bb->bit_offset += 8;  // em_data
    LOG(7,
        "Sanity Check, before loop CountryCode:%#x, ProviderCode:%#04x, user_identifier:%#x, user_data_type_code:%#x, "
        "cc_count:%d.",
        static_cast<unsigned int>(sei_cc->itu_t_t35_country_code), sei_cc->itu_t_t35_provider_code,
        h264::low32(sei_cc->user_identifier), sei_cc->user_data_type_code, cc_data.cc_count);

    for (int i = 0; i < cc_data.cc_count; ++i) {
        // A count of five bits always fits; this holds the array's bound whatever the count's width becomes.
        if (i >= kMaxCaptions) {
            if (_tLastLog.is_due(kLogPeriod))
                LOG(4,
                    "We do not have enough closed caption bytes:%d to hold all the characters, cc_count:%d, Required "
                    "chars:%d.",
                    kMaxCaptions, cc_data.cc_count, i);
            break;
        }
        caption_t& caption = sei_cc->cc_bytes[i];
        cc_bb->bit_offset += 5;  // marker_bits
        if (GetNextNBitsAsUint8(cc_bb, 1, &caption.flag) != 0) return FALSE;
        if (GetNextNBitsAsUint8(cc_bb, 2, &caption.type) != 0) return FALSE;
        if (GetNextNBitsAsUint8(cc_bb, 8, &caption.data1) != 0) return FALSE;
        if (GetNextNBitsAsUint8(cc_bb, 8, &caption.data2) != 0) return FALSE;
    }

    // Marker and trailing byte must be there; their values are looked at only when a read fails. This is meant.
    unsigned char marker = 0;
    if (GetNextNBitsAsUint8(cc_bb, 8, &marker) != 0) {
        if (marker != 0xFF) LOG(7, "ATSC_data marker field:%#x supposed to be 0xFF.", marker);
        return FALSE;
    }
    if (GetNextNBitsAsUint8(cc_bb, 8, &marker) != 0) {
        if (marker != 0x80) LOG(7, "RBSP Trailing bits:%#x supposed to be 0x80.", marker);
        return FALSE;
    }
    LOG(7, "Sanity Check, Bitbuffer length:%d, Current offset:%d.", static_cast<int>(cc_bb->num_bits),
        static_cast<int>(cc_bb->bit_offset));
    return TRUE;
}

BOOL parse_sei_cc_nal(const unsigned char* buffer, int buffer_len, SEI_cc_t* sei_cc) {
    int offset = 0;
    if (buffer == nullptr || !_GetNALTypeOffset(buffer, buffer_len, &offset)) {
        LOG(3, "Failed to parse cc SEI! buffer:%p.", static_cast<const void*>(buffer));
        return FALSE;
    }
    unsigned char sodb[128];
    const int sodb_len = SODB_deencapsulation_from_NAL(buffer + offset, static_cast<unsigned int>(buffer_len - offset),
                                                       sodb, sizeof sodb);
    if (sodb_len <= 0) {
        LOG(3, "Failed to parse cc SEI! buffer:%p Length=%d.", static_cast<const void*>(buffer), sodb_len);
        return FALSE;
    }
    bitbuffer_t bits;
    __DoInitBitBuffer(&bits, sodb, sodb_len * NUM_BITS_IN_BYTE, __func__, kModuleFile, __LINE__);
    LOG(7, "Deencapsulation was successful. NAL unit length:%d, SODB length:%d bytes.", buffer_len, sodb_len);
    if (_parse_cc(&bits, sei_cc)) return TRUE;
    LOG(7, "Failed to parse cc SEI! cc_bb:%p, num_bits:%d, bit_offset:%d, sei_cc:%p.", static_cast<void*>(&bits),
        static_cast<int>(bits.num_bits), static_cast<int>(bits.bit_offset), static_cast<void*>(sei_cc));
    LOG_BUFFER(7, buffer, static_cast<unsigned int>(buffer_len), "WRONG SEI CC NAL");
    return FALSE;
}
