#include "nal_types.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <stdexcept>

namespace h264tool {
namespace {

struct NalType {
    std::string_view short_name;  // empty: by number only
    std::string_view name;
};

constexpr std::array<NalType, 32> kNalTypes{{
    {"", "Unspecified"},
    {"slice", "Coded slice of a non-IDR picture"},
    {"partition-a", "Coded slice data partition A"},
    {"partition-b", "Coded slice data partition B"},
    {"partition-c", "Coded slice data partition C"},
    {"idr", "Coded slice of an IDR picture"},
    {"sei", "Supplemental enhancement information (SEI)"},
    {"sps", "Sequence parameter set"},
    {"pps", "Picture parameter set"},
    {"aud", "Access unit delimiter"},
    {"eoseq", "End of sequence"},
    {"eostream", "End of stream"},
    {"filler", "Filler data"},
    {"sps-ext", "Sequence parameter set extension"},
    {"prefix", "Prefix NAL unit"},
    {"subset-sps", "Subset sequence parameter set"},
    {"dps", "Depth parameter set"},
    {"", "Reserved"},
    {"", "Reserved"},
    {"slice-aux", "Coded slice of an auxiliary coded picture without partitioning"},
    {"slice-ext", "Coded slice extension"},
    {"slice-ext-3d", "Coded slice extension for a depth view component or a 3D-AVC texture view component"},
    {"", "Reserved"},
    {"", "Reserved"},
    {"", "Unspecified"},
    {"", "Unspecified"},
    {"", "Unspecified"},
    {"", "Unspecified"},
    {"", "Unspecified"},
    {"", "Unspecified"},
    {"", "Unspecified"},
    {"", "Unspecified"},
}};

// The number of a type given by short name or number; throws std::invalid_argument.
std::size_t parse_nal_type(std::string_view word) {
    std::string lower(word);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    for (std::size_t type = 0; type < kNalTypes.size(); ++type)
        if (!lower.empty() && kNalTypes[type].short_name == lower) return type;
    std::size_t number = kNalTypes.size();
    const auto [end, error] = std::from_chars(lower.data(), lower.data() + lower.size(), number);
    if (error != std::errc() || end != lower.data() + lower.size() || number >= kNalTypes.size()) {
        std::string reason = "'";
        reason.append(word).append("' is no NAL unit type (0 to 31, ").append(nal_type_short_names()).append(")");
        throw std::invalid_argument(reason);
    }
    return number;
}

}  // namespace

std::string_view nal_type_name(unsigned nal_unit_type) { return kNalTypes.at(nal_unit_type).name; }

NalTypeSet parse_nal_types(std::string_view list) {
    NalTypeSet types;
    while (true) {
        const std::size_t comma = list.find(',');
        types.set(parse_nal_type(list.substr(0, comma)));
        if (comma == std::string_view::npos) return types;
        list.remove_prefix(comma + 1);
    }
}

std::string nal_type_short_names() {
    std::string names;
    for (std::size_t type = 0; type < kNalTypes.size(); ++type) {
        if (kNalTypes[type].short_name.empty()) continue;
        if (!names.empty()) names += ", ";
        names += std::to_string(type) + ' ' + std::string(kNalTypes[type].short_name);
    }
    return names;
}

}  // namespace h264tool
