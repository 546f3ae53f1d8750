// sei_rbsp(), ITU-T H.264 7.3.2.3: one message a call.
#include <strings.h>

#include <cstdint>
#include <cstring>

#include "h264d/h264d.h"
#include "heap_area.h"
#include "throttle.h"

namespace {

constexpr int kSeiType = 6;
constexpr int kLongestStartCode = 4;
constexpr unsigned char kPicTiming = 1;           // payloadType
constexpr unsigned char kUserDataRegistered = 4;  // payloadType
constexpr unsigned int kLocalAreaBytes = 1024;    // longer units take a heap area
constexpr std::time_t kAllocationPeriod = 5;      // seconds between two notes on a heap area

h264::Throttle _tLastLogTime;

// De-encapsulated data that reads as zeros behind its end.
struct Payload {
    const unsigned char* bytes;
    int length;  // -1 when de-encapsulation failed

    unsigned char operator[](std::int64_t i) const { return i < length ? bytes[i] : 0; }
};

}  // namespace

BOOL _FindSEIUserDataRegisteredSUID(const unsigned char* buffer, int buffer_len, int* enSUID) {
    if (buffer == nullptr || enSUID == nullptr) {
        LOG(3, "Failed to determine SEI data registered type. buffer:%p or enSUID:%p are NULL!",
            static_cast<const void*>(buffer), static_cast<void*>(enSUID));
        return FALSE;
    }
    if (buffer_len <= 7) {
        LOG(3, "NALU length:%d is shorter than 7. Failed to determine SEI type too short NALU!", buffer_len);
        return FALSE;
    }
    if (buffer[3] == 'G' && buffer[4] == 'A' && buffer[5] == '9' && buffer[6] == '4' && buffer[7] == 3) {
        *enSUID = SEI_SUID_CLOSED_CAPTION;
        return TRUE;
    }
    if (buffer[3] == 'D' && buffer[4] == 'T' && buffer[5] == 'G' && buffer[6] == '1') {
        *enSUID = SEI_SUID_AFD;
        return TRUE;
    }
    LOG(3, "Failed to determine SEI data registered type!");
    *enSUID = SEI_SUID_NONE;
    return FALSE;
}

BOOL DetermineSEIType(const unsigned char* pBuffer, int BufferLen, int* pPayloadOffset, int* pNALTypeOffset,
                      SEI_message_t* pSEIMessageHeader, int* enSUID, BOOL* pbMoreSEIMessages) {
    DO_ASSERT(pBuffer != NULL);
    DO_ASSERT(BufferLen >= 7);
    DO_ASSERT(pPayloadOffset != NULL);
    if (pPayloadOffset != nullptr) DO_ASSERT(*pPayloadOffset >= 0);
    DO_ASSERT(pNALTypeOffset != NULL);
    if (pNALTypeOffset != nullptr) DO_ASSERT(*pNALTypeOffset >= 0);
    DO_ASSERT(pSEIMessageHeader != NULL);
    DO_ASSERT(enSUID != NULL);
    DO_ASSERT(pbMoreSEIMessages != NULL);
    if (pbMoreSEIMessages != nullptr) *pbMoreSEIMessages = FALSE;
    if (pBuffer == nullptr || pPayloadOffset == nullptr || *pPayloadOffset < 0 || pNALTypeOffset == nullptr ||
        pSEIMessageHeader == nullptr || enSUID == nullptr || pbMoreSEIMessages == nullptr)
        return FALSE;

    if (*pPayloadOffset == 0) {
        if (!_GetNALTypeOffset(pBuffer, BufferLen, pNALTypeOffset)) return FALSE;
    } else if (*pNALTypeOffset < 0) {
        return FALSE;
    } else if (*pNALTypeOffset > kLongestStartCode) {
        LOG(3, "Was expecting NALTypeOffset:%d to be smaller than %d.", *pNALTypeOffset, kLongestStartCode);
        return FALSE;
    }
    const int offset = *pNALTypeOffset;
    const int nal_unit_type = offset < BufferLen ? pBuffer[offset] & 0x1F : 0;
    if (nal_unit_type != kSeiType) {
        LOG(4, "FAIL - Was expecting NAL type:%d to be %d(SEI)!", nal_unit_type, kSeiType);
        return FALSE;
    }
    // Padding included: an assignment may copy what stood on the stack there.
    std::memset(pSEIMessageHeader, 0, sizeof *pSEIMessageHeader);

    // The byte with the stop bit. The NAL header, which is not zero, ends the search at the latest.
    int last = BufferLen;
    int stop_bit_position = 0;
    do {
        --last;
        stop_bit_position = ffs(pBuffer[last]);
        LOG(7, "Attempting to find the stop bit position for the LastByte[%d]:%02X.", last, pBuffer[last]);
    } while (stop_bit_position == 0);
    // Only a byte that holds nothing but the stop bit is left out.
    const int unit_len = last + 1 - offset - (stop_bit_position == 8 ? 1 : 0);
    LOG(7, "Found StopBitPos:%d for LastByte[%d]:%02X, NALLenWoRBSPTrailingBits:%d, NALTypeOffset:%d, BufferLength:%d.",
        stop_bit_position, last, pBuffer[last], unit_len, offset, BufferLen);

    unsigned char local_area[kLocalAreaBytes];
    unsigned char* area = local_area;
    unsigned int capacity = kLocalAreaBytes;
    h264::HeapArea heap_area;
    if (static_cast<unsigned int>(BufferLen) > kLocalAreaBytes) {
        capacity = static_cast<unsigned int>(BufferLen);
        heap_area = h264::allocate_area(capacity);
        area = heap_area.get();
        if (area == nullptr) {
            _DoAssert("pSEISodbBuffer = calloc(1, BufferLen)", __func__, kModuleFile, __LINE__);
            return FALSE;
        }
        if (_tLastLogTime.is_due(kAllocationPeriod))
            LOG(5, "We needed to allocate a SODB buffer of length:%d to deencapsulate.", BufferLen);
    }
    const int sodb_len =
        SODB_deencapsulation_from_NAL(pBuffer + offset, static_cast<unsigned int>(unit_len), area, capacity);
    const Payload payload{area, sodb_len};
    int index = *pPayloadOffset;
    LOG(7,
        "CHECK - NAL type:%02X, Buffer_len:%d, SODB Len:%d, Current idx:%d, Next SODB bytes: 0x%02X %02X %02X %02X "
        "%02X.",
        static_cast<unsigned int>(nal_unit_type), BufferLen, sodb_len, index, payload[index],
        payload[index + std::int64_t{1}], payload[index + std::int64_t{2}], payload[index + std::int64_t{3}],
        payload[index + std::int64_t{4}]);

    // The loops look at the byte behind the one just added, not at the one added: a payloadSize byte of 0xFF behind the
    // payloadType is added to the type. This is meant.
    SEI_message_t& message = *pSEIMessageHeader;
    do {
        if (index > sodb_len) {
            LOG(3, "It seems that we are out of the SODB buffer! index:%d, SODB buffer length:%d.", index, sodb_len);
            return FALSE;
        }
        message.payload_type = static_cast<unsigned char>(message.payload_type + payload[index++]);
    } while (payload[index] == 0xFF);
    do {
        if (index > sodb_len) {
            LOG(3, "It seems that we are out of the buffer! index:%d, SODB buffer length:%d.", index, sodb_len);
            return FALSE;
        }
        message.payload_size += payload[index++];
    } while (payload[index] == 0xFF);
    message.payload_index = static_cast<unsigned int>(index);
    LOG(7, "Parsing SEI message, payload index:%d, Payload_type:%#x, Payload_size:%#x.", index, message.payload_type,
        message.payload_size);

    if (message.payload_type > MAX_PAYLOAD_TYPE) {
        LOG(7, "SEI Payload type:%d is greater than the current MAX_PAYLOAD_TYPE:%d. Abort SEI decoding!",
            message.payload_type, MAX_PAYLOAD_TYPE);
        return FALSE;
    }
    if (message.payload_type == kPicTiming) {
        *enSUID = SEI_SUID_PIC_TIMING;
    } else if (message.payload_type == kUserDataRegistered) {
        if (!_FindSEIUserDataRegisteredSUID(area + index, sodb_len - index, enSUID)) {
            LOG(4, "Cannot find User data registered specific SEI!");
            return FALSE;
        }
    } else {
        LOG(5, "SEI Payload type was not in the known types:%d.", message.payload_type);
        *enSUID = SEI_SUID_NONE;
    }
    LOG(7, "OK - Found SEI payload type:%d and payload size:%d, enSUID:%d.", message.payload_type,
        static_cast<int>(message.payload_size), *enSUID);

    const std::int64_t next = std::int64_t{message.payload_index} + message.payload_size;
    *pPayloadOffset = static_cast<int>(next);
    if (next == sodb_len) {
        LOG(7, "We are at the end of SODB, there are no more \"sei_message\".");
    } else if (next > sodb_len) {
        LOG(3, "We are out of the SODB. Payload Offset:%d maximum value should be sei_sodb_len:%d.", *pPayloadOffset,
            sodb_len);
        return FALSE;
    } else if (sodb_len - next > 2) {
        *pbMoreSEIMessages = TRUE;
    }
    return TRUE;
}
