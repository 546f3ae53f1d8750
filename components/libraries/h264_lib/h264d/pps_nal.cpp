// Picture parameter set NAL units, whole and with a parse context.
#include <strings.h>
#include <cstring>

#include "h264d/h264d.h"
#include "h264d/pps.h"

BOOL H264LIB_parse_pps_nal(const unsigned char* buffer, int buffer_len, const sps_t* sps, pps_t* pps) {
    DO_ASSERT(buffer != NULL);
    DO_ASSERT(buffer_len > 0);
    DO_ASSERT(sps != NULL);
    DO_ASSERT(pps != NULL);
    int offset = 0;
    if (!_GetNALTypeOffset(buffer, buffer_len, &offset)) {
        LOG(3, "Failed to parse pps nal! buffer:%p.", static_cast<const void*>(buffer));
        return FALSE;
    }

    // The byte with the stop bit. The start code's 01 ends the search at the latest.
    int last = buffer_len;
    int stop_bit_position = 0;
    do {
        --last;
        stop_bit_position = ffs(buffer[last]);
        LOG(7, "Attempting to find the stop bit position for the LastByte[%d]:%02X.", last, buffer[last]);
    } while (stop_bit_position == 0);
    // Only a byte that holds nothing but the stop bit is left out.
    const int unit_len = last + 1 - offset - (stop_bit_position == 8 ? 1 : 0);
    LOG(6, "Found StopBitPos:%d for LastByte[%d]:%02X, NALLenWoRBSPTrailingBits:%d, NALTypeOffset:%d, BufferLength:%d.",
        stop_bit_position, last, buffer[last], unit_len, offset, buffer_len);

    unsigned char sodb[kParameterSetWorkBytes];
    const int sodb_len =
        SODB_deencapsulation_from_NAL(buffer + offset, static_cast<unsigned int>(unit_len), sodb, sizeof sodb);
    if (sodb_len < 1) {
        LOG(3, "Failed to parse pps nal! buffer:%p Length=%d.", static_cast<const void*>(buffer), sodb_len);
        return FALSE;
    }
    bitbuffer_t bits;
    __DoInitBitBuffer(&bits, sodb, sodb_len * NUM_BITS_IN_BYTE, __func__, kModuleFile, __LINE__);
    if (_parse_pps(&bits, sps, pps) != 0) {
        LOG(3, "Failed to parse PPS NAL!");
        return FALSE;
    }
    return TRUE;
}

BOOL H264LIB_parse_pps_nal_ex(const unsigned char* buffer, unsigned int buffer_len, const sps_t* sps,
                              H264D_PARSE_CONTEXT* pContext, pps_t* pps) {
    DO_ASSERT(buffer != NULL);
    DO_ASSERT(buffer_len > 0);
    DO_ASSERT(pContext != NULL);
    DO_ASSERT(pps != NULL);
    if (pContext != nullptr) DO_ASSERT(pps != &pContext->last_parsed_pps);
    if (buffer == nullptr || pContext == nullptr || pps == nullptr) return FALSE;
    if (buffer_len > 0 && buffer_len <= sizeof pContext->LastPPS && pContext->LastPPSLength == buffer_len &&
        std::memcmp(pContext->LastPPS, buffer, buffer_len) == 0) {
        LOG(7, "PPS has not changed no need to parse it again.");
        *pps = pContext->last_parsed_pps;
        return TRUE;
    }
    std::memset(pps, 0, sizeof *pps);
    if (!H264LIB_parse_pps_nal(buffer, static_cast<int>(buffer_len), sps, pps)) {
        LOG(3, "Failed to parse PPS NAL!");
        return FALSE;
    }
    if (buffer_len <= sizeof pContext->LastPPS) {
        std::memset(pContext->LastPPS, 0, sizeof pContext->LastPPS);
        std::memcpy(pContext->LastPPS, buffer, buffer_len);
        pContext->LastPPSLength = buffer_len;
        pContext->last_parsed_pps = *pps;
    }
    return TRUE;
}
