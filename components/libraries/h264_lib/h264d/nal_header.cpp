// nal_unit(), ITU-T H.264 7.3.1: the header byte behind the start code of Annex B.
#include "h264d/h264d.h"

BOOL _GetNALTypeOffset(const unsigned char* buffer, int buffer_len, int* pnOffset) {
    DO_ASSERT(buffer != NULL);
    DO_ASSERT(buffer_len >= 4);
    DO_ASSERT(pnOffset != NULL);
    if (buffer == nullptr || buffer_len < 3 || pnOffset == nullptr) return FALSE;
    if (buffer[0] != 0 || buffer[1] != 0) return FALSE;
    if (buffer[2] == 1) {
        LOG(8, "Found Annex-B 3 bytes start code prefix.");
        *pnOffset = 3;
        return TRUE;
    }
    if (buffer[2] == 0 && buffer_len > 3 && buffer[3] == 1) {
        LOG(8, "Found Annex-B 4 bytes start code prefix.");
        *pnOffset = 4;
        return TRUE;
    }
    return FALSE;
}

BOOL H264LIB_GetNALTypeAndNALRefIdc(const unsigned char* pBuffer, int BufferLen, BYTE* pNALType, BYTE* pNALRefIdc) {
    DO_ASSERT(pBuffer != NULL);
    DO_ASSERT(BufferLen >= 4);
    DO_ASSERT(pNALType != NULL);
    int offset = 0;
    if (!_GetNALTypeOffset(pBuffer, BufferLen, &offset)) return FALSE;
    if (offset >= BufferLen || pNALType == nullptr) return FALSE;
    const BYTE header = pBuffer[offset];
    *pNALType = header & 0x1F;
    if (pNALRefIdc != nullptr) *pNALRefIdc = (header >> 5) & 3;
    return TRUE;
}
