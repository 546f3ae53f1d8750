// The coded picture buffer (CPB) of the hypothetical reference decoder, ITU-T H.264 Annex C.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace h264tool {

// A delivery schedule, ITU-T H.264 E.2.2.
struct CpbSchedule {
    std::uint64_t bit_rate = 0;  // bits a second
    std::uint64_t cpb_size = 0;  // bits
    bool cbr = false;
};

// initial_cpb_removal_delay and initial_cpb_removal_delay_offset of a schedule, in units of 1/90000 s.
struct CpbInitialDelay {
    std::uint64_t delay = 0;
    std::uint64_t offset = 0;
};

struct CpbAccessUnit {
    std::uint64_t bits = 0;
    std::optional<CpbInitialDelay> buffering_period;  // when it begins one
    std::uint64_t cpb_removal_delay = 0;              // in ticks
    double tick = 0;                                  // seconds
    CpbSchedule schedule;
    bool low_delay = false;  // low_delay_hrd_flag
};

// In seconds from the arrival of the first bit.
struct CpbTimes {
    double initial_arrival = 0;
    double final_arrival = 0;
    double removal = 0;
    double fullness = 0;     // bits in the buffer just before the removal
    bool underflow = false;  // the unit was to be removed before it had arrived, and low_delay_hrd_flag is 0
    bool overflow = false;   // fullness exceeds the buffer's size
};

// Runs the buffer over access units in decoding order, the first of which begins a buffering period.
std::vector<CpbTimes> run_cpb(std::span<const CpbAccessUnit> units);

}  // namespace h264tool
