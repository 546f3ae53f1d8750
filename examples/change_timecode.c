// Sets the timecode of a picture timing message to 11:22:33:04.
#include <h264.h>
#include <stdio.h>

static const unsigned char sps_unit[] = {0x00, 0x00, 0x00, 0x01, 0x67, 0x42, 0xc0, 0x0a, 0xda, 0x7a,
                                         0x10, 0x00, 0x00, 0x3e, 0x90, 0x00, 0x0e, 0xa6, 0x09, 0x40};
static const unsigned char sei_unit[] = {0x00, 0x00, 0x00, 0x01, 0x06, 0x01, 0x09, 0x08, 0x0c,
                                         0x00, 0x00, 0x05, 0x00, 0x00, 0x03, 0x00, 0x40, 0x80};

// Reads the first message of a unit, which must be picture timing.
static BOOL read_timing(const unsigned char* unit, int length, const sps_t* sps, sei_pic_timing_t* timing) {
    int payload_offset = 0, nal_type_offset = 0, kind = SEI_SUID_NONE;
    BOOL more = FALSE;
    if (!DetermineSEIType(unit, length, &payload_offset, &nal_type_offset, &timing->header, &kind, &more)) return FALSE;
    return kind == SEI_SUID_PIC_TIMING && parse_sei_pictiming_nal(unit, length, sps, timing);
}

static BOOL show(const unsigned char* unit, int length, const sps_t* sps) {
    sei_pic_timing_t timing = {0};
    if (!read_timing(unit, length, sps, &timing)) return FALSE;
    const clock_timestamp_info_t* clock = &timing.clock_timestamp_info[0];
    printf("%02d:%02d:%02d:%02d\n", clock->hours_value, clock->minutes_value, clock->seconds_value, clock->n_frames);
    return TRUE;
}

int main(void) {
    sps_t sps = {0};
    sei_pic_timing_t timing = {0};
    // Units of more than 32 bytes behind the start code are not rewritten.
    if (sizeof sei_unit - 4 > H264_MAX_SEI_PICTIMING_SIZE_BYTES) return 1;
    if (!parse_sps_nal(sps_unit, sizeof sps_unit, &sps)) return 1;
    if (!show(sei_unit, sizeof sei_unit, &sps)) return 1;
    if (!read_timing(sei_unit, sizeof sei_unit, &sps, &timing)) return 1;

    // Without an HRD readers expect a time_offset of 24 bits; it is written with the length that the record says.
    if (!sps.vui.CpbDpbDelaysPresentFlag) sps.vui.nal_hrd.time_offset_length = 24;
    clock_timestamp_info_t* clock = &timing.clock_timestamp_info[0];
    clock->clock_timestamp_flag = 1;
    clock->full_timestamp_flag = 1;
    clock->hours_value = 11;
    clock->minutes_value = 22;
    clock->seconds_value = 33;
    clock->n_frames = 4;

    unsigned char* changed = NULL;
    unsigned int length = 0;
    if (!H264Lib_Set_SEIPictiming_NAL(sei_unit, sizeof sei_unit, &sps, &timing, &changed, &length)) return 1;
    // A message without room succeeds with a unit that ends behind its size: its start code and 3 bytes.
    const BOOL good = length > 4 + 3 && show(changed, (int)length, &sps);
    H26XLib_Release_sps_buffer(changed);
    return good ? 0 : 1;
}
