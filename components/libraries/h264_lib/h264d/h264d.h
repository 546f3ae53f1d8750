// What the files of the h264d module share. Names that begin with an underscore are internal functions whose names
// appear in diagnostics.
#pragma once

#include <algorithm>
#include <climits>

#include "trace.h"

// The name under which this module's messages are reported.
static constexpr char kModuleFile[] = "h264d.c";

// Finds the NAL header behind a start code at the very start of buffer. Reads nothing behind buffer_len bytes.
BOOL _GetNALTypeOffset(const unsigned char* buffer, int buffer_len, int* pnOffset);

// floor(log2(v)); 0 for 0.
unsigned int _FindNumberOfBitsToHoldInteger(unsigned int v);

// The bits of so many bytes, but not more than a bit buffer can be told of: 2^28 bytes hold every message and header.
inline int bits_in(int bytes) { return std::min(bytes, INT_MAX / NUM_BITS_IN_BYTE) * NUM_BITS_IN_BYTE; }

// Bytes of the work area into which a parameter set unit is de-encapsulated; the unit behind its start code must fit.
constexpr unsigned int kParameterSetWorkBytes = 256;

// scaling_list() with nSlSize coefficients. 0, or -1 when a delta cannot be read.
int _parse_scalingList(bitbuffer_t* sl_bb, scaling_list_t* sl, int nSlSize);
void _display_scalingList(const scaling_list_t* sl, int nSlSize);

// vui_parameters(). 0; -1 when an element cannot be read; -2 when that is one of an HRD.
int _parse_vui(bitbuffer_t* vui_bb, vui_t* vui);
void _display_vui(const vui_t* vui);

// hrd_parameters(). 0, or -1 when an element cannot be read.
int _parse_hrd(bitbuffer_t* hrd_bb, hrd_t* hrd);
void _display_hrd(const hrd_t* hrd);

// Writes an SPS whose VUI is the record's up to fixed_frame_rate_flag and the source's from there on, both bit buffers
// being at bit 0. SpsSodbLength: bytes of the source; NewSpsSodbLength: bytes that the destination can hold. The bytes
// written, or -1.
int _set_sps_vui_parameters(bitbuffer_t* sps_nalu_bb, int SpsSodbLength, const sps_t* sps, bitbuffer_t* new_sps_nalu_bb,
                            int NewSpsSodbLength);

// pic_timing() and the byte of rbsp_trailing_bits() behind it, at the position of new_sei_nalu_bb, which is its start.
// pNewSEISodbLength holds the bytes of its area and receives those of the payload. The bytes written, or -1.
int _set_sei_pictiming_parameters(const sps_t* sps, const sei_pic_timing_t* pt, bitbuffer_t* new_sei_nalu_bb,
                                  unsigned int* pNewSEISodbLength);
