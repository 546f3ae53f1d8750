// Overwrites elements of fixed length of a sequence parameter set in place.
#include "h264d/bit_string.h"
#include "h264d/h264d.h"

int set_sps_level_idc(bitbuffer_t* sps_bb, sps_t* sps) {
    DO_ASSERT(sps_bb != NULL);
    DO_ASSERT(sps != NULL);
    if (sps_bb == nullptr || sps == nullptr) return -1;
    constexpr int kLevelOffset = 16;  // behind profile_idc and the constraint flags
    seek(*sps_bb, kLevelOffset);
    LOG(7, "SPS level_idc:%lu, bitoffset:%d.", static_cast<unsigned long>(sps->level_idc), kLevelOffset);
    SetNextNBitsFromUint8(sps_bb, 8, sps->level_idc);
    LOG(7, "After sps level_idc. Current offset in bb:%d.", static_cast<int>(sps_bb->bit_offset));
    return 0;
}

int set_vui_timing_info(bitbuffer_t* vui_bb, vui_t* vui) {
    if (vui_bb == nullptr || vui == nullptr) return -1;
    if (!vui->timing_info_present_flag || vui->timing_info_offset < 0) return -1;
    seek(*vui_bb, vui->timing_info_offset);
    LOG(7, "Vui num_units_in_ticks:%d, timescale:%d, bitoffset:%d.", h264::low32s(vui->num_units_in_tick),
        h264::low32s(vui->time_scale), vui->timing_info_offset);
    SetNextNBitsFromUint32(vui_bb, 32, vui->num_units_in_tick);
    SetNextNBitsFromUint32(vui_bb, 32, vui->time_scale);
    LOG(7, "After modifying vui_timing_info. Current offset in bb:%d.", static_cast<int>(vui_bb->bit_offset));
    __DoSetNextBit(vui_bb, static_cast<unsigned int>(vui->fixed_frame_rate_flag), __func__, kModuleFile, __LINE__);
    return 0;
}

int set_vui_pic_struct_present_flag(bitbuffer_t* vui_bb, vui_t* vui) {
    if (vui_bb == nullptr || vui == nullptr) return -1;
    LOG(7, "Original Vui pic_struct_present_flag:%d, bitoffset:%d.", vui->pic_struct_present_flag,
        vui->pic_struct_present_offset);
    vui->pic_struct_present_flag = 1;
    seek(*vui_bb, vui->pic_struct_present_offset);
    __DoSetNextBit(vui_bb, 1, __func__, kModuleFile, __LINE__);
    return 0;
}
