// Puts frame cropping offsets into a sequence parameter set, ITU-T H.264 7.3.2.1.1.
#include <algorithm>

#include "h264d/bit_string.h"
#include "h264d/h264d.h"

// Overwrites n bits with zeros. False, with nothing written, when they are not all in the area.
static bool clear_bits(bitbuffer_t& bits, std::int64_t n) {
    if (n < 0 || !h264::has_bits(bits, static_cast<std::uint64_t>(n))) return false;
    constexpr unsigned char zeros[256] = {};
    while (n > 0) {
        const auto cleared = std::min<std::int64_t>(n, sizeof zeros * NUM_BITS_IN_BYTE);
        SetNextNBitsFromString(&bits, static_cast<unsigned int>(cleared), zeros);
        n -= cleared;
    }
    return true;
}

static int round_up_to_byte(std::uint64_t bits) {
    return h264::low32s(DIVIDE_AND_CEIL(bits, NUM_BITS_IN_BYTE) * NUM_BITS_IN_BYTE);
}

int set_sps_crop(bitbuffer_t* sps_bb, int SpsLen, sps_t* sps) {
    DO_ASSERT(sps_bb != NULL);
    DO_ASSERT(sps != NULL);
    if (sps_bb == nullptr || sps == nullptr) return -1;
    const bool replaces = sps->frame_cropping_flag != 0;
    const std::int64_t end = std::int64_t{SpsLen} * NUM_BITS_IN_BYTE;
    const std::int64_t flag = sps->frame_cropping_offset;
    const std::int64_t tail_start = replaces ? sps->vui_parameters_present_offset : flag + 1;

    // What follows the offsets.
    seek(*sps_bb, tail_start);
    const std::int64_t num_bits = end - tail_start;
    LOG(6, "SPSLen bytes:%d. Current offset in bb:%d, num_bits:%d, IsByteBoudary:%s.", SpsLen,
        static_cast<int>(sps_bb->bit_offset), h264::low32s(num_bits),
        sps_bb->bit_offset % NUM_BITS_IN_BYTE == 0 ? "TRUE" : "FALSE");
    BitString tail;
    if ((!replaces && flag < 0) || !tail.read(*sps_bb, num_bits)) {
        LOG(3, "Failed to get %d bits as string.", h264::low32s(num_bits));
        return -1;
    }

    seek(*sps_bb, flag + 1);
    if (flag < 0 || !clear_bits(*sps_bb, end - (flag + 1))) {
        LOG(3, "Failed to set %d bits as string.", h264::low32s(end - (flag + 1)));
        return -1;
    }
    if (!replaces) {
        seek(*sps_bb, flag);
        sps->frame_cropping_flag = 1;
        __DoSetNextBit(sps_bb, 1, __func__, kModuleFile, __LINE__);
    }
    seek(*sps_bb, flag + 1);
    LOG(6, "About to set framecrop params: Flag:%d, LeftOff:%d, RightOff:%d, TopOff:%d, BottomOff:%d, bit_offset:%d.",
        sps->frame_cropping_flag, h264::low32s(sps->frame_crop_left_offset), h264::low32s(sps->frame_crop_right_offset),
        h264::low32s(sps->frame_crop_top_offset), h264::low32s(sps->frame_crop_bottom_offset),
        static_cast<int>(sps_bb->bit_offset));
    // An offset that does not fit is reported, and its zeros and the one behind them stay when they did; this is meant.
    if (SetUint32Golomb(sps_bb, sps->frame_crop_left_offset) != 0) LOG(3, "Failed to set crop left as golomb.");
    if (SetUint32Golomb(sps_bb, sps->frame_crop_right_offset) != 0) LOG(3, "Failed to set crop right as golomb.");
    if (SetUint32Golomb(sps_bb, sps->frame_crop_top_offset) != 0) LOG(3, "Failed to set crop top as golomb.");
    if (SetUint32Golomb(sps_bb, sps->frame_crop_bottom_offset) != 0) LOG(3, "Failed to set crop bottom as golomb.");

    // With its stop bit and zeros.
    if (!tail.write(*sps_bb)) {
        LOG(3, "Failed to set %d bits as string.", h264::low32s(num_bits));
        return -1;
    }
    // Replaced offsets are answered with the size of the area, inserted ones with the new length. This is meant.
    return round_up_to_byte(replaces ? sps_bb->num_bits : sps_bb->bit_offset);
}
