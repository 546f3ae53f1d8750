#include "h264/sei_writer.h"

#include <cstring>

namespace h264 {

bool write_sei_header(unsigned char* buffer, int buffer_len) {
    constexpr unsigned char header[kSeiHeaderBytes] = {0x00, 0x00, 0x00, 0x01, 0x06};
    if (buffer_len < kSeiHeaderBytes) return false;
    std::memcpy(buffer, header, sizeof header);
    return true;
}

int write_sei_unit(unsigned char* buffer, int buffer_len, const unsigned char* rbsp, unsigned int rbsp_len) {
    if (!write_sei_header(buffer, buffer_len)) return 0;
    return RBSP_encapsulation_within_NAL(rbsp, rbsp_len, buffer + kSeiHeaderBytes,
                                         static_cast<unsigned int>(buffer_len - kSeiHeaderBytes));
}

unsigned int write_atsc_identifier(unsigned char* payload, const char (&user_identifier)[5]) {
    payload[0] = 0xB5;  // itu_t_t35_country_code: United States
    payload[1] = 0x00;  // itu_t_t35_provider_code: ATSC
    payload[2] = 0x31;
    std::memcpy(payload + 3, user_identifier, 4);
    return 7;
}

}  // namespace h264
