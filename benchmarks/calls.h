// The library's main calls, as they are timed and counted.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "h264.h"

namespace bench {

using Bytes = std::vector<unsigned char>;

// Units of the sample streams.
struct Samples {
    Bytes sps;  // with VUI and HRD
    Bytes pps;
    Bytes buffering_period_sei;
    Bytes pic_timing_sei;
    Bytes slice;
    Bytes four_messages_sei;  // buffering period, picture timing, captions, user data
    Bytes slice_data;         // a megabyte of coded slices without start codes
    sps_t sps_record{};
    pps_t pps_record{};
};

// Of the streams in a directory. Throws std::runtime_error when something is missing.
const Samples& samples();

// The first bytes of a slice of this length.
Bytes slice_of(std::size_t bytes);

struct Call {
    std::string name;
    std::function<void()> run;  // once; ends the program when the call fails
};

// Each stands on data of its own, which lives as long as the call.
std::vector<Call> calls();

}  // namespace bench
