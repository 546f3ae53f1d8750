// A picture parameter set as JSON.
#pragma once

#include <nlohmann/json.hpp>

#include "parameter_sets.h"

namespace h264tool {

// The elements that were read, in bitstream order under their names in ITU-T H.264 7.3.2.2. When the unit's stop bit
// was taken for one of them, an object "derived" behind them tells which. sps: the set by which it was read.
nlohmann::ordered_json pps_to_json(const Pps& set, const sps_t& sps);

}  // namespace h264tool
