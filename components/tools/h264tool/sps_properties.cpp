#include "sps_properties.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace h264tool {
namespace {

bool constraint(const sps_t& sps, int i) { return (sps.constraint_flags >> (7 - i) & 1) != 0; }

}  // namespace

bool has_chroma_format(const sps_t& sps) {
    switch (sps.profile_idc) {
        case 100:
        case 110:
        case 122:
        case 244:
        case 44:
        case 83:
        case 86:
        case 118:
        case 128:
            return true;
        default:
            return false;
    }
}

PictureSize coded_size(const sps_t& sps) {
    const std::uint64_t fields = sps.frame_mbs_only_flag != 0 ? 1 : 2;
    return {(std::uint64_t{sps.pic_width_in_mbs_minus1} + 1) * 16,
            (std::uint64_t{sps.pic_height_in_map_units_minus1} + 1) * 16 * fields};
}

std::optional<CropUnit> crop_unit(const sps_t& sps) {
    // chroma_format_idc is inferred to be 1 where it is not transmitted.
    const unsigned long chroma_array_type = has_chroma_format(sps) ? sps.ChromaArrayType : 1;
    if (chroma_array_type > 3) return std::nullopt;
    const std::uint64_t fields = sps.frame_mbs_only_flag != 0 ? 1 : 2;
    return CropUnit{chroma_array_type == 1 || chroma_array_type == 2 ? 2U : 1U,
                    (chroma_array_type == 1 ? 2 : 1) * fields};
}

std::optional<PictureSize> picture_size(const sps_t& sps) {
    const auto unit = crop_unit(sps);
    if (!unit) return std::nullopt;
    const PictureSize coded = coded_size(sps);
    std::uint64_t cropped_x = 0;
    std::uint64_t cropped_y = 0;
    if (sps.frame_cropping_flag != 0) {
        cropped_x = (std::uint64_t{sps.frame_crop_left_offset} + sps.frame_crop_right_offset) * unit->x;
        cropped_y = (std::uint64_t{sps.frame_crop_top_offset} + sps.frame_crop_bottom_offset) * unit->y;
    }
    if (cropped_x >= coded.width || cropped_y >= coded.height) return std::nullopt;
    return PictureSize{coded.width - cropped_x, coded.height - cropped_y};
}

std::string profile_name(const sps_t& sps) {
    const bool intra = constraint(sps, 3);
    switch (sps.profile_idc) {
        case 66:
            return constraint(sps, 1) ? "Constrained Baseline" : "Baseline";
        case 77:
            return "Main";
        case 88:
            return "Extended";
        case 100:
            return !constraint(sps, 4) ? "High" : constraint(sps, 5) ? "Constrained High" : "Progressive High";
        case 110:
            return intra ? "High 10 Intra" : constraint(sps, 4) ? "Progressive High 10" : "High 10";
        case 122:
            return intra ? "High 4:2:2 Intra" : "High 4:2:2";
        case 244:
            return intra ? "High 4:4:4 Intra" : "High 4:4:4 Predictive";
        case 44:
            return "CAVLC 4:4:4 Intra";
        case 83:
            return constraint(sps, 5) ? "Scalable Constrained Baseline" : "Scalable Baseline";
        case 86:
            return intra ? "Scalable High Intra" : constraint(sps, 5) ? "Scalable Constrained High" : "Scalable High";
        case 118:
            return "Multiview High";
        case 128:
            return "Stereo High";
        case 134:
            return "MFC High";
        case 135:
            return "MFC Depth High";
        case 138:
            return "Multiview Depth High";
        case 139:
            return "Enhanced Multiview Depth High";
        default:
            return "profile_idc " + std::to_string(sps.profile_idc);
    }
}

std::string level_name(const sps_t& sps) {
    constexpr std::array<unsigned, 19> kLevels{10, 11, 12, 13, 20, 21, 22, 30, 31, 32,
                                               40, 41, 42, 50, 51, 52, 60, 61, 62};
    const unsigned level = sps.level_idc;
    const bool early_profile = sps.profile_idc == 66 || sps.profile_idc == 77 || sps.profile_idc == 88;
    if (level == 9 || (level == 11 && early_profile && constraint(sps, 3))) return "1b";
    if (std::find(kLevels.begin(), kLevels.end(), level) == kLevels.end()) return "level_idc " + std::to_string(level);
    return std::to_string(level / 10) + (level % 10 == 0 ? "" : "." + std::to_string(level % 10));
}

std::string chroma_format_name(const sps_t& sps) {
    constexpr std::array<const char*, 4> kNames{"monochrome", "4:2:0", "4:2:2", "4:4:4"};
    const unsigned long chroma_format_idc = has_chroma_format(sps) ? sps.chroma_format_idc : 1;
    if (chroma_format_idc >= kNames.size()) return "chroma_format_idc " + std::to_string(chroma_format_idc);
    return kNames[chroma_format_idc];
}

std::optional<FrameRate> frame_rate(const sps_t& sps) {
    const bool present = sps.vui_parameters_present_flag != 0 && sps.vui.timing_info_present_flag != 0;
    if (!present || sps.vui.num_units_in_tick == 0 || sps.vui.time_scale == 0) return std::nullopt;
    const std::uint64_t numerator = sps.vui.time_scale;
    const std::uint64_t denominator = 2 * std::uint64_t{sps.vui.num_units_in_tick};
    const std::uint64_t divisor = std::gcd(numerator, denominator);
    return FrameRate{numerator / divisor, denominator / divisor};
}

}  // namespace h264tool
