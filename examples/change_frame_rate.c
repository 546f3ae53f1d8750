// Makes a sequence parameter set of 25 frames a second one of 30000/1001.
#include <h264.h>
#include <stdio.h>

static const unsigned char unit[] = {0x00, 0x00, 0x00, 0x01, 0x67, 0x42, 0xc0, 0x0a, 0xda, 0x7a, 0x10,
                                     0x00, 0x00, 0x03, 0x00, 0x10, 0x00, 0x00, 0x03, 0x03, 0x21, 0x40};

static int show(const char* when, const unsigned char* nal, int length) {
    sps_t sps = {0};
    if (!parse_sps_nal(nal, length, &sps)) return -1;
    printf("%s: %d bytes, num_units_in_tick %lu, time_scale %lu, fixed_frame_rate_flag %d\n", when, length,
           sps.vui.num_units_in_tick, sps.vui.time_scale, sps.vui.fixed_frame_rate_flag);
    return 0;
}

// Makes a new unit, to be given to H26XLib_Release_sps_buffer; returns NULL on failure.
static unsigned char* with_frame_rate(const unsigned char* nal, unsigned int length, unsigned long frames,
                                      unsigned long seconds, UINT* new_length) {
    // The record must be that of this very unit: it holds the positions of what is replaced.
    sps_t sps = {0};
    if (!parse_sps_nal(nal, (int)length, &sps) || !sps.vui_parameters_present_flag) return NULL;
    sps.vui.timing_info_present_flag = 1;
    sps.vui.num_units_in_tick = seconds;
    sps.vui.time_scale = 2 * frames;  // a tick is a field
    sps.vui.fixed_frame_rate_flag = 1;

    unsigned char* changed = NULL;
    if (!H264Lib_Set_sps_vui_parameters_NAL(nal, length, &sps, &changed, new_length)) return NULL;
    // A call without enough room for the payload succeeds with start code and header alone.
    if (*new_length <= 4 + 1) {
        H26XLib_Release_sps_buffer(changed);
        return NULL;
    }
    return changed;
}

int main(void) {
    if (show("before", unit, sizeof unit) != 0) return 1;
    UINT length = 0;
    unsigned char* changed = with_frame_rate(unit, sizeof unit, 30000, 1001, &length);
    if (changed == NULL) {
        fprintf(stderr, "change_frame_rate: the parameter set cannot be changed\n");
        return 1;
    }
    const int result = show("after", changed, (int)length);
    H26XLib_Release_sps_buffer(changed);
    return result == 0 ? 0 : 1;
}
