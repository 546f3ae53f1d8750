// access_unit_delimiter_rbsp(), ITU-T H.264 7.3.2.4.
#include "h264d/h264d.h"

BOOL parse_aud(bitbuffer_t* aud_bb, aud_t* aud_data) {
    if (aud_bb == nullptr || aud_data == nullptr)
        LOG(3, "Failed to parse aud NAL! aud_bb:%p, aud_data:%p.", static_cast<void*>(aud_bb),
            static_cast<void*>(aud_data));
    if (aud_bb == nullptr) return FALSE;

    // The layout is that of a payload which begins with the NAL header; behind parse_au_delimiter_nal it does not. This
    // is meant: nal_type comes from the byte of primary_pic_type and primary_pic_type from the byte behind it.
    aud_bb->bit_offset += 3;
    if (GetNextNBitsAsUint8(aud_bb, 5, aud_data != nullptr ? &aud_data->nal_type : nullptr) != 0) return FALSE;
    aud_bb->bit_offset += 5;
    if (GetNextNBitsAsUint8(aud_bb, 3, aud_data != nullptr ? &aud_data->primary_pic_type : nullptr) != 0) return FALSE;
    LOG(6, "Sanity Check, Bitbuffer length:%d, Current offset:%d.", static_cast<int>(aud_bb->num_bits),
        static_cast<int>(aud_bb->bit_offset));
    return TRUE;
}

BOOL parse_au_delimiter_nal(const unsigned char* buffer, int buffer_len, aud_t* aud_data) {
    if (buffer == nullptr) {
        LOG(3, "Failed to parse aud NAL! buffer:%p.", static_cast<const void*>(buffer));
        return FALSE;
    }
    int offset = 0;
    if (!_GetNALTypeOffset(buffer, buffer_len, &offset)) {
        LOG(3, "Failed to parse aud nal! buffer:%p.", static_cast<const void*>(buffer));
        return FALSE;
    }
    unsigned char sodb[16] = {};
    const int sodb_len = SODB_deencapsulation_from_NAL(buffer + offset, static_cast<unsigned int>(buffer_len - offset),
                                                       sodb, sizeof sodb);
    if (sodb_len <= 0) {
        LOG(3, "Failed to parse aud NAL! buffer:%p Length=%d.", static_cast<const void*>(buffer), sodb_len);
        return FALSE;
    }
    bitbuffer_t bits;
    __DoInitBitBuffer(&bits, sodb, sodb_len * NUM_BITS_IN_BYTE, __func__, kModuleFile, __LINE__);
    if (!parse_aud(&bits, aud_data)) {
        LOG(3, "Failed to parse aud NAL! aud_bb:%p, num_bits:%d, bit_offset:%d, aud_data:%p.",
            static_cast<void*>(&bits), static_cast<int>(bits.num_bits), static_cast<int>(bits.bit_offset),
            static_cast<void*>(aud_data));
        return FALSE;
    }
    return TRUE;
}
