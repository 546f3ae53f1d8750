#pragma once

#include "h264.h"

// pic_parameter_set_rbsp() up to num_bits. 0, also when the data ends inside slice_group_id or weighted_bipred_idc; -1
// when another element cannot be read.
int _parse_pps(bitbuffer_t* pps_nalu_bb, const sps_t* sps, pps_t* pps);
