// Sequence parameter sets that together take every branch of the syntax.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "sps_builder.h"

namespace test {

struct SpsVariant {
    std::string name;
    SpsSyntax sps;
};
inline std::ostream& operator<<(std::ostream& out, const SpsVariant& variant) { return out << variant.name; }

const std::vector<SpsVariant>& sps_variants();

// A VUI with every optional part.
VuiSyntax full_vui();
// An HRD with different values in all elements.
HrdSyntax full_hrd(std::size_t schedules, unsigned first_value);
// A unit with this many bytes behind its start code, all of them needed.
Bytes sps_unit_of_size(std::size_t behind_start_code, int start_code_length, unsigned level_idc = 30);

}  // namespace test
