// Sequence parameter sets as h264tool rewrite changes them.
#pragma once

#include <vector>

#include "annexb_reader.h"
#include "h264.h"
#include "rewrite_options.h"

namespace h264tool {

struct RewrittenSps {
    std::vector<unsigned char> unit;  // empty: it stays as it is
    sps_t sps{};                      // what the unit says then
};

// Applies the options to a unit and reads the result back. Throws std::runtime_error, whose text says why that cannot
// be done.
RewrittenSps rewrite_sps(const NalUnit& unit, const RewriteOptions& options);

}  // namespace h264tool
