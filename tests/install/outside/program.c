/* Writes a delimiter and prints what reading it back gives. */
#include <h264.h>
#include <stdio.h>

int main(void) {
    unsigned char unit[8];
    BYTE type = 0;
    const int length = format_au_delimiter_nalu(unit, sizeof unit, 2);
    if (length < 0 || !H264LIB_GetNALTypeAndNALRefIdc(unit, length, &type, NULL)) return 1;
    printf("C: %d bytes, nal_unit_type %d\n", length, type);
    return 0;
}
