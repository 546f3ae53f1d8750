// A sequence parameter set as JSON.
#pragma once

#include <nlohmann/json.hpp>

#include "h264.h"

namespace h264tool {

// The elements that were transmitted, in bitstream order under their names in ITU-T H.264 7.3.2.1.1, E.1.1 and E.1.2,
// and behind them an object "derived". The record was zeroed before it was parsed.
nlohmann::ordered_json sps_to_json(const sps_t& sps);

}  // namespace h264tool
