// What h264tool rewrite is to change.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "timecode.h"

namespace h264tool {

struct Timing {
    std::uint32_t num_units_in_tick = 0;
    std::uint32_t time_scale = 0;
};

// Codes of ITU-T H.264 Tables E-3 to E-5.
struct Colour {
    unsigned char primaries = 0;
    unsigned char transfer = 0;
    unsigned char matrix = 0;
};

// ITU-T H.264 Table E-1.
struct SampleAspectRatio {
    unsigned char aspect_ratio_idc = 0;
    std::uint16_t width = 0;  // 0 unless aspect_ratio_idc is 255
    std::uint16_t height = 0;
};

struct Level {
    unsigned char level_idc = 0;  // 9 for level 1b
    std::string name;             // "4.1"
};

// Luma samples that are cut off.
struct Cropping {
    std::uint32_t left = 0;
    std::uint32_t right = 0;
    std::uint32_t top = 0;
    std::uint32_t bottom = 0;
};

// Of a schedule, in ticks of 90 kHz.
struct InitialCpbDelay {
    unsigned schedule = 0;
    std::uint32_t delay = 0;
    std::optional<std::uint32_t> offset;  // nothing: stays as it is
};

// Numbered like enHRDCbpType.
enum class Hrd { kNal = 1, kVcl = 2 };

struct RewriteOptions {
    std::optional<Timing> timing;
    std::optional<int> fixed_frame_rate;
    std::optional<Colour> colour;
    std::optional<SampleAspectRatio> sar;
    std::optional<int> full_range;
    std::optional<Level> level;
    std::optional<Cropping> crop;
    bool pic_struct = false;
    std::optional<ParsedTimecode> timecode;  // of the first frame in output order
    std::vector<InitialCpbDelay> initial_cpb_delays;
    Hrd hrd = Hrd::kNal;

    // The first option whose element stands in the VUI; null when there is none.
    const char* vui_option() const;
    bool changes_sps() const { return vui_option() != nullptr || level || crop; }
    bool changes_sei() const { return timecode || pic_struct || !initial_cpb_delays.empty(); }
};

// "1001/60000": num_units_in_tick and time_scale. All of these throw std::invalid_argument, whose text says what is
// wrong.
Timing parse_timing(std::string_view text);

// "9:16:9"
Colour parse_colour(std::string_view text);

// "40:33"
SampleAspectRatio parse_sample_aspect_ratio(std::string_view text);

// "4.1", "4" or "1b"
Level parse_level(std::string_view text);

// "0,0,0,8": left, right, top, bottom
Cropping parse_cropping(std::string_view text);

// "0=90000" or "0=90000,10000"
InitialCpbDelay parse_initial_cpb_delay(std::string_view text);

}  // namespace h264tool
