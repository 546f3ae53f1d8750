// What h264tool insert is to insert.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "scc.h"
#include "sps_properties.h"
#include "timecode.h"

namespace h264tool {

// A message of unregistered user data, ITU-T H.264 D.1.7.
struct UserData {
    std::array<unsigned char, 16> uuid{};
    std::string text;
};

struct InsertOptions {
    std::optional<ParsedTimecode> timecode;  // of the first frame in output order
    std::optional<FrameRate> frame_rate;     // instead of the stream's own
    std::optional<std::vector<SccLine>> captions;
    std::string captions_file;  // name for messages
    std::optional<unsigned> afd;
    std::optional<std::int64_t> precision_time;  // of the first frame, in microseconds
    std::optional<UserData> user_data;
    bool delimiters = false;
    bool end_of_sequence = false;

    bool inserts_anything() const {
        return timecode || captions || afd || precision_time || user_data || delimiters || end_of_sequence;
    }
    bool needs_frame_rate() const { return timecode || captions || precision_time; }
};

// "25" or "30000/1001". All of these throw std::invalid_argument, whose text says what is wrong.
FrameRate parse_frame_rate(std::string_view text);

// A number from 0 to 2^63 - 1.
std::int64_t parse_microseconds(std::string_view text);

// A code of an active format description, from 0 to 15, in decimal digits.
unsigned parse_active_format(std::string_view text);

// "UUID:TEXT" with 32 hexadecimal digits, hyphens or not, and 1 to 238 bytes.
UserData parse_user_data(std::string_view text);

// How timecodes count frames of this rate, which is a whole number or 1000/1001 of one. Throws also when the timecode
// does not exist in that counting.
TimecodeRate timecode_rate(const FrameRate& rate, const ParsedTimecode& first);

enum class Rounding { kDown, kUp };

// a * b / c without overflow on the way; the largest number when the quotient does not fit.
std::uint64_t multiply_divide(std::uint64_t a, std::uint64_t b, std::uint64_t c, Rounding rounding = Rounding::kDown);

}  // namespace h264tool
