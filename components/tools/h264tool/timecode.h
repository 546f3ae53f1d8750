// Timecodes, SMPTE 12M.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace h264tool {

// HH:MM:SS:FF
struct Timecode {
    unsigned hours = 0;
    unsigned minutes = 0;
    unsigned seconds = 0;
    unsigned frames = 0;

    bool operator==(const Timecode&) const = default;
};

// How frames are numbered.
struct TimecodeRate {
    unsigned frames_per_second = 0;  // numbers in a second: 30 for 29.97 frames
    // Frame numbers 0 and 1 (0 to 3 of 60) are left out in each minute but every tenth.
    bool drop_frame = false;
};

// "HH:MM:SS:FF", or with drop frame "HH:MM:SS;FF", each number of two digits; nothing when it is neither. Whether it
// exists at some rate is not looked at.
struct ParsedTimecode {
    Timecode timecode;
    bool drop_frame = false;
};
std::optional<ParsedTimecode> parse_timecode(std::string_view text);

std::string to_text(const Timecode& timecode, bool drop_frame);

// Whether a frame can have this timecode: in range and not left out.
bool exists(const Timecode& timecode, const TimecodeRate& rate);

// Frames since 00:00:00:00 of a timecode that exists.
std::uint64_t frame_number(const Timecode& timecode, const TimecodeRate& rate);

// The timecode of a frame, counted from 00:00:00:00; after 24 hours it begins again.
Timecode timecode_at(std::uint64_t frame_number, const TimecodeRate& rate);

}  // namespace h264tool
