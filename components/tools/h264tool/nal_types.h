// Names of nal_unit_type, ITU-T H.264 Table 7-1.
#pragma once

#include <bitset>
#include <string>
#include <string_view>

namespace h264tool {

using NalTypeSet = std::bitset<32>;

// The types that the subcommands look into.
enum NalUnitType {
    kSlice = 1,
    kPartitionA = 2,
    kIdrSlice = 5,
    kSei = 6,
    kSps = 7,
    kPps = 8,
    kDelimiter = 9,
    kEndOfSequence = 10,
    kEndOfStream = 11,
    kSubsetSps = 15,
};

// The content of a NAL unit of this type (0 to 31).
std::string_view nal_type_name(unsigned nal_unit_type);

// Reads a list such as "sps,pps,7": short names in either case, or numbers from 0 to 31, separated by commas.
// Throws std::invalid_argument, whose text names the part that is neither.
NalTypeSet parse_nal_types(std::string_view list);

// All short names with their numbers, for a help text.
std::string nal_type_short_names();

}  // namespace h264tool
