// The messages of supplemental enhancement information (SEI) units.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "annexb_reader.h"

namespace h264tool {

// What a message is.
struct SeiKind {
    std::uint64_t payload_type = 0;
    // Of user_data_registered_itu_t_t35() of ATSC A/53: "GA94", "DTG1"; "other" of other registered user data.
    std::string user_identifier;

    auto operator<=>(const SeiKind&) const = default;
};

// "pic_timing", ITU-T H.264 D.1.1; "reserved_sei_message" for an unknown type
const char* sei_name(std::uint64_t payload_type);

// The kinds of the messages of a unit, ITU-T H.264 7.3.2.3. False when a message runs past the unit's end, with the
// kinds of those before it; what the unit has beyond the bytes that were kept is not looked at.
bool list_sei_messages(const NalUnit& unit, std::vector<SeiKind>& kinds);

}  // namespace h264tool
