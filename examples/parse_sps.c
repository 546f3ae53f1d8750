// Reads a sequence parameter set and prints what it says about the pictures.
#include <h264.h>
#include <stdio.h>

int main(void) {
    static const unsigned char unit[] = {0x00, 0x00, 0x00, 0x01, 0x67, 0x64, 0x00, 0x15, 0xac, 0xd9, 0x41,
                                         0x61, 0x2d, 0x81, 0x25, 0x05, 0x05, 0x05, 0x40, 0x00, 0x03, 0x00,
                                         0x40, 0x00, 0x00, 0x0c, 0x98, 0x08, 0x00, 0x24, 0x9f, 0x00, 0x04,
                                         0x93, 0xe8, 0xa0, 0xc0, 0x3e, 0x28, 0x53, 0x2c};
    sps_t sps = {0};
    if (!parse_sps_nal(unit, sizeof unit, &sps)) return 1;

    const unsigned long width = 16 * (sps.pic_width_in_mbs_minus1 + 1);
    const unsigned long height = 16 * (sps.pic_height_in_map_units_minus1 + 1) * (sps.frame_mbs_only_flag ? 1 : 2);
    printf("profile %d, level %d, %lux%lu, %s\n", sps.profile_idc, sps.level_idc, width, height,
           sps.frame_mbs_only_flag ? "progressive" : "interlaced");
    return 0;
}
