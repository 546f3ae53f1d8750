#include "run_result.h"

#include <cinttypes>
#include <cstdio>

#include "commands.h"
#include "text.h"

namespace h264tool {

void RunResult::count(const NalUnit& unit, bool damaged) {
    ++units_;
    if (!damaged || damaged_units_++ > 0) return;
    first_damaged_number_ = unit.number;
    first_damaged_offset_ = unit.offset;
}

int RunResult::report(const std::string& name, std::uint64_t stray_bytes) const {
    if (units_ == 0) std::fprintf(stderr, "h264tool: %s: no NAL unit found\n", name.c_str());
    if (units_ > 0 && stray_bytes > 0)
        std::fprintf(stderr, "h264tool: %s: %s before the first start code\n", name.c_str(),
                     count_of(stray_bytes, "byte").c_str());
    if (damaged_units_ > 0)
        std::fprintf(stderr, "h264tool: %s: %s could not be parsed, first unit %" PRIu64 " at offset %" PRIu64 "\n",
                     name.c_str(), count_of(damaged_units_, "unit").c_str(), first_damaged_number_,
                     first_damaged_offset_);
    return units_ == 0 || stray_bytes > 0 || damaged_units_ > 0 ? kExitDamaged : kExitFine;
}

}  // namespace h264tool
