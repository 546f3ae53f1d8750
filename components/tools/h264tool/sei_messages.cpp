#include "sei_messages.h"

#include <algorithm>
#include <array>

#include "h264.h"
#include "payload_reader.h"

namespace h264tool {
namespace {

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

// Why the library does not find a message.
std::string end_reason(const SeiUnit& sei, const SeiMessage& message, bool expected) {
    const std::uint64_t type = message.kind.payload_type;
    if (message.size >= 255) return "messages of 255 bytes and more are not found";
    if (type > MAX_PAYLOAD_TYPE)
        return "payload_type " + std::to_string(type) + " is above " + std::to_string(MAX_PAYLOAD_TYPE);
    const std::span<const unsigned char> payload = sei.payload(message);
    if (!payload.empty() && payload.front() == 0xFF)
        return "the first byte of the payload, 255, is taken for a part of payload_size";
    if (!sei.has_whole(message)) return "the message ends behind the bytes that are looked at";
    if (!expected) return "two bytes and less are not taken for a message";
    if (type == kUserDataRegistered) return "the kind of registered user data is unknown";
    return "the message is not found where it is";
}

}  // namespace

const char* sei_name(std::uint64_t payload_type) {
    const char* const name = payload_type < kNames.size() ? kNames[payload_type] : nullptr;
    return name != nullptr ? name : "reserved_sei_message";
}

std::span<const unsigned char> SeiUnit::payload(const SeiMessage& message) const {
    const std::size_t available = bytes.size() - message.payload_index;
    return {bytes.data() + message.payload_index, std::min<std::uint64_t>(message.size, available)};
}

SeiUnit read_sei_unit(const NalUnit& unit) {
    SeiUnit sei;
    sei.bytes = payload_of(unit);
    sei.cut = unit.bytes.size() < unit.length;
    const std::vector<unsigned char>& bytes = sei.bytes;
    std::size_t position = 0;
    // A number coded as bytes of 255 and one that is less; false when the data end before that.
    const auto read_number = [&](std::uint64_t& number) {
        for (number = 0; position < bytes.size(); ++position) {
            number += bytes[position];
            if (bytes[position] != 0xFF) return ++position, true;
        }
        return false;
    };
    // A last byte of 0x80 is the trailing bits.
    while (position < bytes.size() && (sei.cut || !(position + 1 == bytes.size() && bytes[position] == 0x80))) {
        SeiMessage message;
        message.offset = position;
        const bool has_header = read_number(message.kind.payload_type) && read_number(message.size);
        if (!has_header || (message.size > bytes.size() - position && !sei.cut)) {
            sei.damaged = !sei.cut;
            break;
        }
        message.payload_index = position;
        const std::span<const unsigned char> payload = sei.payload(message);
        if (message.kind.payload_type == kUserDataRegistered) message.kind.user_identifier = user_identifier(payload);
        position += payload.size();
        sei.end = position;
        sei.messages.push_back(std::move(message));
    }
    return sei;
}

SeiWalk walk_sei_messages(const NalUnit& unit, const SeiUnit& sei) {
    // The library wants seven bytes; zero bytes behind the unit do not matter.
    constexpr std::size_t kLeastBytes = 7;
    std::vector<unsigned char> bytes = unit.bytes;
    bytes.resize(std::max(bytes.size(), kLeastBytes));
    SeiWalk walk;
    int payload_offset = 0;
    int nal_type_offset = 0;
    BOOL more = TRUE;
    for (const SeiMessage& message : sei.messages) {
        SEI_message_t header{};
        int classification = SEI_SUID_NONE;
        const bool expected = more != 0;
        const bool found = expected && DetermineSEIType(bytes.data(), static_cast<int>(bytes.size()), &payload_offset,
                                                        &nal_type_offset, &header, &classification, &more) != 0;
        if (!found || header.payload_type != message.kind.payload_type || header.payload_size != message.size ||
            header.payload_index != message.payload_index) {
            walk.end_reason = end_reason(sei, message, expected);
            return walk;
        }
        walk.classifications.push_back(classification);
    }
    return walk;
}

const char* classification_name(int classification) {
    switch (classification) {
        case SEI_SUID_CLOSED_CAPTION:
            return "SEI_SUID_CLOSED_CAPTION";
        case SEI_SUID_AFD:
            return "SEI_SUID_AFD";
        case SEI_SUID_PIC_TIMING:
            return "SEI_SUID_PIC_TIMING";
        default:
            return "SEI_SUID_NONE";
    }
}

}  // namespace h264tool
