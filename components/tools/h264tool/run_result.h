// What a run could not parse.
#pragma once

#include <cstdint>
#include <string>

#include "annexb_reader.h"

namespace h264tool {

class RunResult {
public:
    // The units in any order.
    void count(const NalUnit& unit, bool damaged);

    std::uint64_t damaged_units() const { return damaged_units_; }

    // Says on standard error what was wrong with the input, whose name is given, and returns the run's exit status.
    int report(const std::string& name, std::uint64_t stray_bytes) const;

private:
    std::uint64_t damaged_units_ = 0;
    std::uint64_t first_damaged_number_ = 0;
    std::uint64_t first_damaged_offset_ = 0;
};

}  // namespace h264tool
