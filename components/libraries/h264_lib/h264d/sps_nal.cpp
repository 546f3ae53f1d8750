// Sequence parameter set NAL units, whole and with a parse context.
#include <cstring>

#include "h264d/h264d.h"

BOOL parse_sps_nal(const unsigned char* buffer, int buffer_len, sps_t* sps) {
    DO_ASSERT(buffer != NULL);
    DO_ASSERT(buffer_len > 0);
    DO_ASSERT(sps != NULL);
    int offset = 0;
    if (!_GetNALTypeOffset(buffer, buffer_len, &offset)) {
        LOG(3, "Failed to parse sps nal! buffer:%p.", static_cast<const void*>(buffer));
        return FALSE;
    }
    unsigned char sodb[kParameterSetWorkBytes];
    const int sodb_len = SODB_deencapsulation_from_NAL(buffer + offset, static_cast<unsigned int>(buffer_len - offset),
                                                       sodb, sizeof sodb);
    if (sodb_len <= 0) {
        LOG(3, "Failed to parse sps nal! buffer:%p Length=%d.", static_cast<const void*>(buffer), sodb_len);
        return FALSE;
    }
    bitbuffer_t bits;
    __DoInitBitBuffer(&bits, sodb, sodb_len * NUM_BITS_IN_BYTE, __func__, kModuleFile, __LINE__);
    if (parse_sps(&bits, sps) != 0) {
        LOG(3, "Failed to parse SPS NAL!");
        return FALSE;
    }
    return TRUE;
}

BOOL parse_sps_nal_ex(const unsigned char* buffer, unsigned int buffer_len, H264D_PARSE_CONTEXT* pContext, sps_t* sps) {
    DO_ASSERT(buffer != NULL);
    DO_ASSERT(buffer_len > 0);
    DO_ASSERT(pContext != NULL);
    DO_ASSERT(sps != NULL);
    if (buffer == nullptr || pContext == nullptr || sps == nullptr) return FALSE;
    if (buffer_len > 0 && buffer_len <= sizeof pContext->LastSPS && pContext->LastSPSLength == buffer_len &&
        std::memcmp(pContext->LastSPS, buffer, buffer_len) == 0) {
        LOG(6, "SPS has not changed no need to parse it again.");
        *sps = pContext->last_parsed_sps;
        return TRUE;
    }
    if (!parse_sps_nal(buffer, static_cast<int>(buffer_len), sps)) {
        LOG(3, "Failed to parse SPS NAL!");
        return FALSE;
    }
    if (buffer_len <= sizeof pContext->LastSPS) {
        std::memset(pContext->LastSPS, 0, sizeof pContext->LastSPS);
        std::memcpy(pContext->LastSPS, buffer, buffer_len);
        pContext->LastSPSLength = buffer_len;
        pContext->last_parsed_sps = *sps;
    }
    return TRUE;
}
