#include "sei_messages.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

#include "payload_reader.h"

namespace h264tool {
namespace {

constexpr std::uint64_t kRegisteredUserData = 4;

// By payload type; a null is reserved.
constexpr std::array<const char*, 206> kNames = [] {
    std::array<const char*, 206> names{
        "buffering_period",
        "pic_timing",
        "pan_scan_rect",
        "filler_payload",
        "user_data_registered_itu_t_t35",
        "user_data_unregistered",
        "recovery_point",
        "dec_ref_pic_marking_repetition",
        "spare_pic",
        "scene_info",
        "sub_seq_info",
        "sub_seq_layer_characteristics",
        "sub_seq_characteristics",
        "full_frame_freeze",
        "full_frame_freeze_release",
        "full_frame_snapshot",
        "progressive_refinement_segment_start",
        "progressive_refinement_segment_end",
        "motion_constrained_slice_group_set",
        "film_grain_characteristics",
        "deblocking_filter_display_preference",
        "stereo_video_info",
        "post_filter_hint",
        "tone_mapping_info",
        "scalability_info",
        "sub_pic_scalable_layer",
        "non_required_layer_rep",
        "priority_layer_info",
        "layers_not_present",
        "layer_dependency_change",
        "scalable_nesting",
        "base_layer_temporal_hrd",
        "quality_layer_integrity_check",
        "redundant_pic_property",
        "tl0_dep_rep_index",
        "tl_switching_point",
        "parallel_decoding_info",
        "mvc_scalable_nesting",
        "view_scalability_info",
        "multiview_scene_info",
        "multiview_acquisition_info",
        "non_required_view_component",
        "view_dependency_change",
        "operation_point_not_present",
        "base_view_temporal_hrd",
        "frame_packing_arrangement",
        "multiview_view_position",
        "display_orientation",
        "mvcd_scalable_nesting",
        "mvcd_view_scalability_info",
        "depth_representation_info",
        "three_dimensional_reference_displays_info",
        "depth_timing",
        "depth_sampling_info",
        "constrained_depth_parameter_set_identifier",
    };
    names[56] = "green_metadata";
    names[137] = "mastering_display_colour_volume";
    names[142] = "colour_remapping_info";
    names[144] = "content_light_level_info";
    names[147] = "alternative_transfer_characteristics";
    names[148] = "ambient_viewing_environment";
    names[149] = "content_colour_volume";
    names[150] = "equirectangular_projection";
    names[151] = "cubemap_projection";
    names[154] = "sphere_rotation";
    names[155] = "regionwise_packing";
    names[156] = "omni_viewport";
    names[181] = "alternative_depth_info";
    names[200] = "sei_manifest";
    names[201] = "sei_prefix_indication";
    names[202] = "annotated_regions";
    names[205] = "shutter_interval_info";
    return names;
}();

// The identifier behind country code 0xB5 and provider code 0x0031, ATSC A/53 part 4.
std::string user_identifier(std::span<const unsigned char> payload) {
    constexpr std::array<unsigned char, 3> kAtsc{0xB5, 0x00, 0x31};
    if (payload.size() < 7 || !std::equal(kAtsc.begin(), kAtsc.end(), payload.begin())) return "other";
    const std::string identifier(payload.begin() + 3, payload.begin() + 7);
    return identifier == "GA94" || identifier == "DTG1" ? identifier : "other";
}

}  // namespace

const char* sei_name(std::uint64_t payload_type) {
    const char* const name = payload_type < kNames.size() ? kNames[payload_type] : nullptr;
    return name != nullptr ? name : "reserved_sei_message";
}

bool list_sei_messages(const NalUnit& unit, std::vector<SeiKind>& kinds) {
    const std::vector<unsigned char> bytes = payload_of(unit);
    const bool whole = unit.bytes.size() == unit.length;
    std::size_t position = 0;
    // A number coded as bytes of 255 and one that is less; false when the data end before that.
    const auto read_number = [&](std::uint64_t& number) {
        for (number = 0; position < bytes.size(); ++position) {
            number += bytes[position];
            if (bytes[position] != 0xFF) return ++position, true;
        }
        return false;
    };
    kinds.clear();
    // A last byte of 0x80 is the trailing bits.
    while (position < bytes.size() && !(position + 1 == bytes.size() && bytes[position] == 0x80)) {
        SeiKind kind;
        std::uint64_t size = 0;
        if (!read_number(kind.payload_type) || !read_number(size)) return !whole;
        const std::size_t available = bytes.size() - position;
        if (size > available && whole) return false;
        const std::size_t present = std::min<std::uint64_t>(size, available);
        if (kind.payload_type == kRegisteredUserData)
            kind.user_identifier = user_identifier({bytes.data() + position, present});
        kinds.push_back(std::move(kind));
        position += present;
    }
    return true;
}

}  // namespace h264tool
