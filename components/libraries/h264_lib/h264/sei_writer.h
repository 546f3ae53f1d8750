// What the SEI writers share.
#pragma once

#include "h264/h264_module.h"
#include "throttle.h"

namespace h264 {

// Start code and NAL header of an SEI unit.
constexpr int kSeiHeaderBytes = 5;

// Writes the header at the beginning of buffer and the encapsulated payload behind it. The bytes behind the header, 0
// when they do not fit. A buffer too small for the header stays untouched.
int write_sei_unit(unsigned char* buffer, int buffer_len, const unsigned char* rbsp, unsigned int rbsp_len);

// Writes the header alone. False when the buffer is too small for it.
bool write_sei_header(unsigned char* buffer, int buffer_len);

// user_data_registered_itu_t_t35() of ATSC A/53 up to its user_identifier: the number of bytes written.
unsigned int write_atsc_identifier(unsigned char* payload, const char (&user_identifier)[5]);

}  // namespace h264
