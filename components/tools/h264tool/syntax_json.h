// Parts that the JSON of several syntax structures has.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "h264.h"

namespace h264tool {

// The first values of a record's array, as many as were transmitted and fit.
template <typename T, std::size_t capacity>
nlohmann::ordered_json array_to_json(const T (&values)[capacity], std::uint64_t count) {
    auto json = nlohmann::ordered_json::array();
    for (std::size_t i = 0; i < capacity && i < count; ++i) json.push_back(values[i]);
    return json;
}

// The scaling lists of a sequence or picture parameter set, each with its flag under the name given and the deltas that
// were transmitted. sps: the set itself, or the one to which the picture parameter set refers; by its flags the parser
// decides for both whether a list has deltas.
nlohmann::ordered_json scaling_lists_to_json(const scaling_list_t (&lists)[MAX_SCALING_LISTS], const sps_t& sps,
                                             const std::string& flag_name);

}  // namespace h264tool
