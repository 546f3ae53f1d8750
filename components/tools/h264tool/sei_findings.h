// What a unit of supplemental enhancement information (SEI) holds.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "parameter_sets.h"
#include "sei_records.h"

namespace h264tool {

struct SeiFindings {
    SeiUnit unit;
    SeiWalk walk;
    std::vector<SeiRecord> records;  // of the messages
    const sps_t* sps = nullptr;      // by which they were read
    std::string damage;              // why something in the unit cannot be parsed; empty when all can
    std::vector<std::string> warnings;
};

// sps: of the picture to which the unit belongs; null when there is none. The records are read at the level of
// diagnostics given, the walk is done at walk_level.
SeiFindings examine_sei(const NalUnit& unit, const sps_t* sps, int parser_level, int walk_level);

// The messages; those that the library does not find have no classification.
nlohmann::ordered_json sei_messages_to_json(const SeiFindings& findings);
// What the library leaves of the unit, and why; null when that is nothing.
nlohmann::ordered_json sei_rest_to_json(const SeiFindings& findings);

// A line a message and, when asked for, a line an element.
std::vector<std::string> sei_text(const SeiFindings& findings, bool elements);

// The sequence parameter set by which SEI units are read: that of the picture that follows them or, where there is
// none, of the last picture, else the only one that was transmitted.
class ActiveSps {
public:
    void activate(const Sps& sps) { id_ = sps.sps.seq_parameter_set_id; }
    const sps_t* get(const ParameterSets& sets) const;

private:
    std::optional<std::uint64_t> id_;
};

}  // namespace h264tool
