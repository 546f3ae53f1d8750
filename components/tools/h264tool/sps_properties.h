// What a sequence parameter set says about a stream, beyond its elements.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "h264.h"

namespace h264tool {

// Whether the profile is one for which the parser reads the elements from chroma_format_idc on.
bool has_chroma_format(const sps_t& sps);

struct PictureSize {
    std::uint64_t width;
    std::uint64_t height;
};

// In luma samples before cropping.
PictureSize coded_size(const sps_t& sps);

// Luma samples that the cropping offsets count, ITU-T H.264 7.4.2.1.1.
struct CropUnit {
    std::uint64_t x;
    std::uint64_t y;
};

// Nothing for an unknown chroma format.
std::optional<CropUnit> crop_unit(const sps_t& sps);

// In luma samples after cropping, ITU-T H.264 7.4.2.1.1; nothing for sizes that a stream cannot have.
std::optional<PictureSize> picture_size(const sps_t& sps);

// "Constrained Baseline", ITU-T H.264 A.2 and its like in the annexes on extensions; "profile_idc 99" for an unknown
// one.
std::string profile_name(const sps_t& sps);

// "3.1" or "1b", ITU-T H.264 A.3; "level_idc 99" for an unknown one.
std::string level_name(const sps_t& sps);

// "4:2:0"
std::string chroma_format_name(const sps_t& sps);

// Frames a second as a fraction.
struct FrameRate {
    std::uint64_t numerator;
    std::uint64_t denominator;

    double value() const { return static_cast<double>(numerator) / static_cast<double>(denominator); }
};

// From VUI timing, by which a frame lasts two ticks, ITU-T H.264 E.2.1. In lowest terms.
std::optional<FrameRate> frame_rate(const sps_t& sps);

}  // namespace h264tool
