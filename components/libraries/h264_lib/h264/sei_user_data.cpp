// Active format description of ATSC A/53 in user_data_registered_itu_t_t35() SEI, user_data_unregistered() SEI, and the
// precision time stamp of MISB ST 0604 in it; ITU-T H.264 D.1.6 and D.1.7.
#include <cstring>

#include "h264/sei_writer.h"

namespace {

constexpr unsigned int kUuidBytes = 16;
constexpr int kUnregisteredHeaderBytes = h264::kSeiHeaderBytes + 2 + kUuidBytes;

}  // namespace

int format_sei_afd_nal(unsigned char* buffer, int buffer_len, const vanc_t* vanc_data, int vanc_size) {
    DO_ASSERT(buffer != NULL);
    const int vanc_entries = vanc_size / static_cast<int>(sizeof(vanc_t));
    const afd_t* afd = nullptr;
    if (vanc_data == nullptr || vanc_entries <= 0) {
        LOG(4, "vanc_data:%p, vanc_entries:%d, No data is present.", static_cast<const void*>(vanc_data), vanc_entries);
    } else {
        // The last entry wins.
        for (int i = vanc_entries - 1; i >= 0 && afd == nullptr; --i)
            if (vanc_data[i].suid == SEI_SUID_AFD && (vanc_data[i].vanc_data.afd_data.active_format_flag & 1) != 0)
                afd = &vanc_data[i].vanc_data.afd_data;
    }

    unsigned char rbsp[12];
    unsigned int size = 0;
    rbsp[size++] = 0x04;                    // payloadType: user_data_registered_itu_t_t35
    rbsp[size++] = afd != nullptr ? 9 : 8;  // payloadSize
    size += h264::write_atsc_identifier(rbsp + size, "DTG1");
    rbsp[size++] = afd != nullptr ? 0x41 : 0x01;  // active_format_flag
    if (afd != nullptr) rbsp[size++] = 0xF0 | afd->active_format;
    rbsp[size++] = 0x80;  // rbsp_trailing_bits

    if (buffer == nullptr) return 0;
    const int result = h264::write_sei_unit(buffer, buffer_len, rbsp, size);
    if (result == 0) {
        LOG(3, "SEI AFD RBSP Encapsulation failed!");
        return 0;
    }
    return result + h264::kSeiHeaderBytes;
}

int format_sei_user_data_unregistered_nal(unsigned char* buffer, int buffer_len,
                                          const unsigned char* pUuid_iso_iec_11578,
                                          const unsigned char* user_data_payload, unsigned int payload_size) {
    if (buffer_len < kUnregisteredHeaderBytes) {
        LOG(3, "SEI output buffer length:%d is too small!", buffer_len);
        return 0;
    }
    DO_ASSERT(buffer != NULL);
    DO_ASSERT(pUuid_iso_iec_11578 != NULL);
    if (buffer == nullptr || pUuid_iso_iec_11578 == nullptr) return 0;
    h264::write_sei_header(buffer, buffer_len);
    buffer[5] = 0x05;                                                   // payloadType: user_data_unregistered
    buffer[6] = static_cast<unsigned char>(payload_size + kUuidBytes);  // payloadSize, in one byte whatever it is
    std::memcpy(buffer + 7, pUuid_iso_iec_11578, kUuidBytes);
    // Emulation prevention starts at the payload: zeros that end the UUID are not counted.
    const int result = RBSP_encapsulation_within_NAL(user_data_payload, payload_size, buffer + kUnregisteredHeaderBytes,
                                                     static_cast<unsigned int>(buffer_len - kUnregisteredHeaderBytes));
    if (result == 0) {
        LOG(3, "SEI RBSP Encapsulation failed!");
        return 0;
    }
    // The result counts the stop byte also when there is no room for it. This is meant.
    const int length = result + kUnregisteredHeaderBytes;
    if (length < buffer_len)
        buffer[length] = 0x80;  // rbsp_trailing_bits
    else
        LOG(3, "Ouputbuffer length:%d is too small for SEI NAL length:%d plus header length:%d. Fail to encapsulate.",
            buffer_len, length, kUnregisteredHeaderBytes);
    return static_cast<int>(static_cast<unsigned int>(length) + 1);
}

int FormatMISPMicroSecondTimeSEI(unsigned char* buffer, int len, const INT64* pllUsecTime, unsigned char StatusByte) {
    if (buffer == nullptr) {
        LOG(3, "buffer:%p is NULL!", static_cast<void*>(buffer));
        return -1;
    }
    if (pllUsecTime == nullptr) {
        LOG(3, "pllUsecTime:%p is NULL, no precise time given!", static_cast<const void*>(pllUsecTime));
        return -1;
    }
    if ((StatusByte & 0x1F) != 0x1F) {
        LOG(3, "StatusByte:%#x, bits[4:0]:%#x should be 0x1f!", StatusByte, StatusByte & 0x1FU);
        return -1;
    }
    const INT64 time = *pllUsecTime;
    LOG(6, "Precision time:%016lld.", static_cast<long long>(time));

    // Every second byte of the time is followed by 0xFF, so that no start code can arise.
    const auto byte = [time](int shift) { return static_cast<unsigned char>(time >> shift & 0xFF); };
    const unsigned char payload[] = {StatusByte, byte(56), byte(48), 0xFF, byte(40), byte(32),
                                     0xFF,       byte(24), byte(16), 0xFF, byte(8),  byte(0)};
    constexpr unsigned char uuid[kUuidBytes + 1] = "MISPmicrosectime";
    return format_sei_user_data_unregistered_nal(buffer, len, uuid, payload, sizeof payload);
}
