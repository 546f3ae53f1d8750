#include "rewrite_options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <initializer_list>
#include <limits>
#include <numeric>
#include <stdexcept>

#include "h264.h"

namespace h264tool {
namespace {

// Reads numbers, each of them up to most, with these separators between them; false when the text is anything else.
bool parse_numbers(std::string_view text, std::string_view separators, std::uint32_t most,
                   std::initializer_list<std::uint32_t*> numbers) {
    const char* next = text.data();
    const char* const end = next + text.size();
    const char* separator = separators.data();
    for (std::uint32_t* number : numbers) {
        if (number != *numbers.begin() && (next == end || *next++ != *separator++)) return false;
        const auto [behind, error] = std::from_chars(next, end, *number);
        if (error != std::errc() || *number > most) return false;
        next = behind;
    }
    return next == end;
}

[[noreturn]] void fail(std::string_view text, const std::string& expected) {
    throw std::invalid_argument("'" + std::string(text) + "' is no " + expected);
}

constexpr std::uint32_t kMost32 = std::numeric_limits<std::uint32_t>::max();

}  // namespace

const char* RewriteOptions::vui_option() const {
    if (timing) return "--timing";
    if (fixed_frame_rate) return "--fixed-frame-rate";
    if (colour) return "--colour";
    if (sar) return "--sar";
    if (full_range) return "--full-range";
    return pic_struct ? "--pic-struct" : nullptr;
}

Timing parse_timing(std::string_view text) {
    Timing timing;
    if (!parse_numbers(text, "/", kMost32, {&timing.num_units_in_tick, &timing.time_scale}) ||
        timing.num_units_in_tick == 0 || timing.time_scale == 0)
        fail(text, "num_units_in_tick/time_scale such as 1001/60000, two numbers from 1 to 4294967295");
    return timing;
}

Colour parse_colour(std::string_view text) {
    std::uint32_t primaries = 0;
    std::uint32_t transfer = 0;
    std::uint32_t matrix = 0;
    if (!parse_numbers(text, "::", 255, {&primaries, &transfer, &matrix}))
        fail(text, "primaries:transfer:matrix such as 1:1:1, three codes from 0 to 255");
    return {static_cast<unsigned char>(primaries), static_cast<unsigned char>(transfer),
            static_cast<unsigned char>(matrix)};
}

SampleAspectRatio parse_sample_aspect_ratio(std::string_view text) {
    struct Ratio {
        std::uint32_t width;
        std::uint32_t height;
    };
    // By aspect_ratio_idc from 1 on, ITU-T H.264 Table E-1.
    constexpr std::array<Ratio, 16> kRatios{{{1, 1},
                                             {12, 11},
                                             {10, 11},
                                             {16, 11},
                                             {40, 33},
                                             {24, 11},
                                             {20, 11},
                                             {32, 11},
                                             {80, 33},
                                             {18, 11},
                                             {15, 11},
                                             {64, 33},
                                             {160, 99},
                                             {4, 3},
                                             {3, 2},
                                             {2, 1}}};
    constexpr unsigned char kExtended = 255;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    if (!parse_numbers(text, ":", 65535, {&width, &height}) || width == 0 || height == 0)
        fail(text, "width:height such as 40:33, two numbers from 1 to 65535");
    const auto* const found = std::find_if(kRatios.begin(), kRatios.end(), [&](const Ratio& ratio) {
        return width * ratio.height == height * ratio.width;
    });
    if (found != kRatios.end()) return {static_cast<unsigned char>(found - kRatios.begin() + 1), 0, 0};
    return {kExtended, static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height)};
}

Level parse_level(std::string_view text) {
    constexpr std::array<std::string_view, 20> kNames{"1b",  "1",   "1.1", "1.2", "1.3", "2",   "2.1",
                                                      "2.2", "3",   "3.1", "3.2", "4",   "4.1", "4.2",
                                                      "5",   "5.1", "5.2", "6",   "6.1", "6.2"};
    std::string_view name = text;
    if (name.size() == 3 && name.substr(1) == ".0") name.remove_suffix(2);
    if (std::find(kNames.begin(), kNames.end(), name) == kNames.end()) fail(text, "level such as 4.1 or 1b");
    if (name == "1b") return {9, "1b"};
    const int tenths = name.size() == 3 ? name[2] - '0' : 0;
    return {static_cast<unsigned char>((name[0] - '0') * 10 + tenths), std::string(name)};
}

Cropping parse_cropping(std::string_view text) {
    Cropping crop;
    if (!parse_numbers(text, ",,,", kMost32, {&crop.left, &crop.right, &crop.top, &crop.bottom}))
        fail(text, "left,right,top,bottom such as 0,0,0,8, four numbers of pixels");
    return crop;
}

InitialCpbDelay parse_initial_cpb_delay(std::string_view text) {
    InitialCpbDelay delay;
    std::uint32_t schedule = 0;
    std::uint32_t offset = 0;
    const bool has_offset = parse_numbers(text, "=,", kMost32, {&schedule, &delay.delay, &offset});
    if (!has_offset && !parse_numbers(text, "=", kMost32, {&schedule, &delay.delay}))
        fail(text, "schedule=delay or schedule=delay,offset such as 0=90000, numbers up to 4294967295");
    if (schedule >= MAX_CPB_CNT) throw std::invalid_argument("schedules have the numbers 0 to 31");
    if (delay.delay == 0) throw std::invalid_argument("an initial CPB removal delay is not 0");
    delay.schedule = schedule;
    if (has_offset) delay.offset = offset;
    return delay;
}

}  // namespace h264tool
