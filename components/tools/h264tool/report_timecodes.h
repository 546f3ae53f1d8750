// Whether the timecodes of a stream count its frames without a gap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "timecode.h"

namespace h264tool {

struct PictureTimecode {
    Timecode timecode;
    bool drop_frame = false;
    bool discontinuity = false;  // discontinuity_flag

    bool operator==(const PictureTimecode&) const = default;
};

struct TimedFrame {
    std::optional<PictureTimecode> timecode;
    unsigned fields = 2;                    // how long it is shown
    unsigned frames_per_second = 0;         // rounded up; 0 when not known
    std::vector<PictureTimecode> others{};  // behind timecode: of its second field, or when it is repeated
};

struct TimecodeJump {
    std::size_t frame = 0;  // whose timecode does not follow that of the last one that has one, or whose others do not
    // Frames by which it is too late, or when negative too early; nothing when the timecode does not exist, or when the
    // counting changes.
    std::optional<std::int64_t> by;

    bool operator==(const TimecodeJump&) const = default;
};

// frames: in output order
std::vector<TimecodeJump> find_timecode_jumps(std::span<const TimedFrame> frames);

}  // namespace h264tool
