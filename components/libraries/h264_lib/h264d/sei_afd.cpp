// Active format description: afd_data() of ATSC A/53 in user_data_registered_itu_t_t35(), ITU-T H.264 D.1.6.
#include "h264d/sei_payload.h"

static BOOL _parse_afd(bitbuffer_t* afd_bb, SEI_afd_t* sei_afd) {
    if (afd_bb == nullptr || sei_afd == nullptr) {
        LOG(3, "Failed to parse afd SEI! afd_bb:%p, sei_afd:%p.", static_cast<void*>(afd_bb),
            static_cast<void*>(sei_afd));
        return FALSE;
    }
    seek_to_payload(*afd_bb, sei_afd->header);
    if (GetNextNBitsAsInt8(afd_bb, 8, &sei_afd->itu_t_t35_country_code) != 0) return FALSE;
    if (GetNextNBitsAsUint16(afd_bb, 16, &sei_afd->itu_t_t35_provider_code) != 0) return FALSE;
    if (GetNextNBitsAsUint32(afd_bb, 32, &sei_afd->user_identifier) != 0) return FALSE;
    afd_bb->bit_offset += 1;  // zero_bit
    int active_format_flag = 0;
    if (GetNextBitEx(afd_bb, &active_format_flag) != 0) return FALSE;
    sei_afd->afd_data.active_format_flag = active_format_flag;
    afd_bb->bit_offset += 6;  // alignment_bits
    if (active_format_flag == 1) {
        afd_bb->bit_offset += 4;  // reserved
        if (GetNextNBitsAsUint8(afd_bb, 4, &sei_afd->afd_data.active_format) != 0) return FALSE;
    }
    // The byte behind must be there; its value is not looked at.
    if (GetNextNBitsAsUint8(afd_bb, 8, nullptr) != 0) return FALSE;
    LOG(7,
        "Sanity Check, CountryCode:%#x, ProviderCode:%#04x, user_identifier:%#x, active_format_flag:%#x, "
        "active_format:%#x.",
        static_cast<unsigned int>(sei_afd->itu_t_t35_country_code), sei_afd->itu_t_t35_provider_code,
        h264::low32(sei_afd->user_identifier), static_cast<unsigned int>(active_format_flag),
        sei_afd->afd_data.active_format);
    LOG(7, "Sanity Check, Bitbuffer length:%d, Current offset:%d.", static_cast<int>(afd_bb->num_bits),
        static_cast<int>(afd_bb->bit_offset));
    return TRUE;
}

BOOL parse_sei_afd_nal(const unsigned char* buffer, int buffer_len, SEI_afd_t* sei_afd) {
    int offset = 0;
    if (buffer == nullptr || !_GetNALTypeOffset(buffer, buffer_len, &offset)) {
        LOG(3, "Failed to parse afd SEI! buffer:%p.", static_cast<const void*>(buffer));
        return FALSE;
    }
    unsigned char sodb[32];
    const int sodb_len = SODB_deencapsulation_from_NAL(buffer + offset, static_cast<unsigned int>(buffer_len - offset),
                                                       sodb, sizeof sodb);
    if (sodb_len <= 0) {
        LOG(3, "Failed to parse afd SEI! buffer:%p Length=%d.", static_cast<const void*>(buffer), sodb_len);
        return FALSE;
    }
    bitbuffer_t bits;
    __DoInitBitBuffer(&bits, sodb, sodb_len * NUM_BITS_IN_BYTE, __func__, kModuleFile, __LINE__);
    LOG(7, "Deencapsulation was successful. NAL unit length:%d, SODB length:%d.", buffer_len, sodb_len);
    if (_parse_afd(&bits, sei_afd)) return TRUE;
    LOG(7, "Failed to parse afd SEI! afd_bb:%p, num_bits:%d, bit_offset:%d, sei_afd:%p.", static_cast<void*>(&bits),
        static_cast<int>(bits.num_bits), static_cast<int>(bits.bit_offset), static_cast<void*>(sei_afd));
    return FALSE;
}
