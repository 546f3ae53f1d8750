#include "timecode.h"

#include "text.h"

namespace h264tool {
namespace {

constexpr std::uint64_t kMinutesADay = std::uint64_t{24} * 60;

// Numbers left out in a minute.
unsigned dropped_numbers(const TimecodeRate& rate) { return rate.drop_frame ? rate.frames_per_second / 15 : 0; }

bool is_digit(char letter) { return letter >= '0' && letter <= '9'; }

}  // namespace

std::optional<ParsedTimecode> parse_timecode(std::string_view text) {
    constexpr std::string_view kForm = "00:00:00:00";
    if (text.size() != kForm.size()) return std::nullopt;
    for (std::size_t i = 0; i < kForm.size(); ++i) {
        const bool drop_frame_mark = i == 8 && text[i] == ';';
        if (!(kForm[i] == '0' ? is_digit(text[i]) : text[i] == ':' || drop_frame_mark)) return std::nullopt;
    }
    const auto number = [&](std::size_t i) {
        return static_cast<unsigned>(text[i] - '0') * 10 + static_cast<unsigned>(text[i + 1] - '0');
    };
    return ParsedTimecode{{number(0), number(3), number(6), number(9)}, text[8] == ';'};
}

std::string to_text(const Timecode& timecode, bool drop_frame) {
    return format("%02u:%02u:%02u%c%02u", timecode.hours, timecode.minutes, timecode.seconds, drop_frame ? ';' : ':',
                  timecode.frames);
}

bool exists(const Timecode& timecode, const TimecodeRate& rate) {
    if (timecode.hours > 23 || timecode.minutes > 59 || timecode.seconds > 59) return false;
    const bool drops = timecode.seconds == 0 && timecode.minutes % 10 != 0;
    return timecode.frames < rate.frames_per_second && !(drops && timecode.frames < dropped_numbers(rate));
}

std::uint64_t frame_number(const Timecode& timecode, const TimecodeRate& rate) {
    const std::uint64_t minutes = std::uint64_t{timecode.hours} * 60 + timecode.minutes;
    const std::uint64_t numbers = (minutes * 60 + timecode.seconds) * rate.frames_per_second + timecode.frames;
    return numbers - (minutes - minutes / 10) * dropped_numbers(rate);
}

Timecode timecode_at(std::uint64_t frame_number, const TimecodeRate& rate) {
    const std::uint64_t dropped = dropped_numbers(rate);
    const std::uint64_t full_minute = std::uint64_t{60} * rate.frames_per_second;
    const std::uint64_t minute = full_minute - dropped;
    const std::uint64_t ten_minutes = 10 * full_minute - 9 * dropped;
    const std::uint64_t frame = frame_number % (kMinutesADay / 10 * ten_minutes);
    // The number that the frame has when the numbers left out are counted.
    std::uint64_t number = frame + frame / ten_minutes * 9 * dropped;
    const std::uint64_t rest = frame % ten_minutes;
    if (rest >= full_minute) number += ((rest - full_minute) / minute + 1) * dropped;

    Timecode timecode;
    timecode.frames = static_cast<unsigned>(number % rate.frames_per_second);
    const std::uint64_t seconds = number / rate.frames_per_second;
    timecode.seconds = static_cast<unsigned>(seconds % 60);
    timecode.minutes = static_cast<unsigned>(seconds / 60 % 60);
    timecode.hours = static_cast<unsigned>(seconds / 3600);
    return timecode;
}

}  // namespace h264tool
