#include "run_result.h"

#include <cinttypes>

#include "commands.h"
#include "notes.h"
#include "text.h"

namespace h264tool {

void RunResult::count(const NalUnit& unit, bool damaged) {
    if (!damaged || (damaged_units_++ > 0 && unit.number > first_damaged_number_)) return;
    first_damaged_number_ = unit.number;
    first_damaged_offset_ = unit.offset;
}

int RunResult::report(const std::string& name, std::uint64_t stray_bytes) const {
    if (stray_bytes > 0) note(name, count_of(stray_bytes, "byte") + " before the first start code");
    if (damaged_units_ > 0)
        note(name, count_of(damaged_units_, "unit") + format(" could not be parsed, first unit %" PRIu64
                                                             " at offset %" PRIu64,
                                                             first_damaged_number_, first_damaged_offset_));
    return stray_bytes > 0 || damaged_units_ > 0 ? kExitDamaged : kExitFine;
}

}  // namespace h264tool
