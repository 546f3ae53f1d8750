// access_unit_delimiter_rbsp() and end_of_seq_rbsp(), ITU-T H.264 7.3.2.4 and 7.3.2.5.
#include <cstring>

#include "h264/h264_module.h"

int format_au_delimiter_nalu(unsigned char* buffer, unsigned int len, unsigned int primary_pic_type) {
    unsigned char unit[] = {0x00, 0x00, 0x00, 0x01, 0x09, 0x10, 0x00, 0x00};
    if (buffer == nullptr || len < sizeof unit) {
        LOG(3, "ERROR - buffer:%p should not be NULL or len:%d, should be greater than 8!", static_cast<void*>(buffer),
            static_cast<int>(len));
        return -1;
    }
    if (primary_pic_type > 7) {
        LOG(3, "primary_pic_type:%d, should not be greater than 7!", static_cast<int>(primary_pic_type));
        return -1;
    }
    unit[5] = static_cast<unsigned char>(unit[5] | primary_pic_type << 5);
    std::memcpy(buffer, unit, sizeof unit);
    return sizeof unit;
}

int format_end_of_sequence_nalu(unsigned char* buffer, unsigned int len) {
    constexpr unsigned char unit[] = {0x00, 0x00, 0x00, 0x01, 0x0A};
    if (buffer == nullptr || len < sizeof unit) {
        LOG(3, "buffer:%p should not be NULL or len:%d, should be greater than 5!", static_cast<void*>(buffer),
            static_cast<int>(len));
        return -1;
    }
    std::memcpy(buffer, unit, sizeof unit);
    return sizeof unit;
}
