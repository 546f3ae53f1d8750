// A slice header as JSON.
#pragma once

#include <nlohmann/json.hpp>

#include "slice_unit.h"

namespace h264tool {

// The elements that were read, in bitstream order under their names in ITU-T H.264 7.3.3, and behind them an object
// "derived" with the positions in bits that the library records. Of reference picture list modifications and of the
// flags of a prediction weight table the library keeps the last one; a weight that was not transmitted is null.
// unit_type, ref_idc: of the slice's NAL unit
nlohmann::ordered_json slice_to_json(const Slice& slice, unsigned unit_type, unsigned ref_idc);

}  // namespace h264tool
