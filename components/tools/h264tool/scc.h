// Scenarist closed caption files: CEA-608 byte pairs of field 1 with the timecodes at which they are sent.
#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

#include "timecode.h"

namespace h264tool {

// SCC counts frames of 30000/1001 a second, and one pair is sent in each.
constexpr unsigned kSccFramesPerSecond = 30;
// What is sent when there is nothing to send, with odd parity like all bytes of an SCC file.
constexpr std::uint16_t kSccNullPair = 0x8080;

struct SccLine {
    Timecode start;
    bool drop_frame = false;
    std::vector<std::uint16_t> pairs;  // sent in this frame and those that follow; the first byte in the high half
    std::size_t number = 0;            // of the line in its file, from 1

    bool operator==(const SccLine&) const = default;
};

// Throws std::runtime_error with the line's number and what is wrong in it.
std::vector<SccLine> read_scc(std::istream& in);

// The whole file: "Scenarist_SCC V1.0" and a line with its empty line before it for each entry.
std::string format_scc(const std::vector<SccLine>& lines);

}  // namespace h264tool
