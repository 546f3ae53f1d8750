// The forms in which h264tool summary tells what it found.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "stream_summary.h"

namespace h264tool {

struct InputFacts {
    std::string name;
    std::uint64_t size = 0;         // bytes
    std::uint64_t stray_bytes = 0;  // before the first start code
};

// One delivery schedule of the HRD parameters of a sequence parameter set, ITU-T H.264 E.2.2.
struct HrdSchedule {
    bool nal = false;            // of the NAL HRD, else of the VCL HRD
    std::uint64_t bit_rate = 0;  // bits a second
    std::uint64_t cpb_size = 0;  // bits
    bool cbr = false;
};

std::vector<HrdSchedule> hrd_schedules(const sps_t& sps);

// Bits a second of bytes that last some seconds.
double bit_rate(std::uint64_t bytes, double duration);

// One page.
std::string summary_to_text(const StreamSummary& summary, const InputFacts& input);

// One object.
std::string summary_to_json(const StreamSummary& summary, const InputFacts& input);

}  // namespace h264tool
