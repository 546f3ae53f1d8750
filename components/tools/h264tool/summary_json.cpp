// The JSON that h264tool summary prints.
#include <nlohmann/json.hpp>

#include "nal_types.h"
#include "slice_unit.h"
#include "sps_properties.h"
#include "summary_output.h"

namespace h264tool {
namespace {

using Json = nlohmann::ordered_json;

Json hrd_to_json(const sps_t& sps) {
    Json json = Json::array();
    for (const HrdSchedule& schedule : hrd_schedules(sps)) {
        Json entry;
        entry["hrd"] = schedule.nal ? "nal" : "vcl";
        entry["bit_rate"] = schedule.bit_rate;
        entry["cpb_size"] = schedule.cpb_size;
        entry["cbr_flag"] = schedule.cbr ? 1 : 0;
        json.push_back(std::move(entry));
    }
    return json;
}

Json sequence_to_json(const Sequence& sequence) {
    const sps_t& sps = sequence.sps.sps;
    Json json;
    json["seq_parameter_set_id"] = sps.seq_parameter_set_id;
    json["profile_idc"] = sps.profile_idc;
    json["profile"] = profile_name(sps);
    json["level_idc"] = sps.level_idc;
    json["level"] = level_name(sps);
    if (const auto size = picture_size(sps)) {
        json["width"] = size->width;
        json["height"] = size->height;
    }
    json["chroma_format"] = chroma_format_name(sps);
    json["bit_depth_luma"] = std::uint64_t{sps.bit_depth_luma_minus8} + 8;
    json["bit_depth_chroma"] = std::uint64_t{sps.bit_depth_chroma_minus8} + 8;
    json["frame_mbs_only_flag"] = sps.frame_mbs_only_flag;
    if (sps.frame_mbs_only_flag == 0) json["mb_adaptive_frame_field_flag"] = sps.mb_adaptive_frame_field_flag;
    json["frames"] = sequence.frames.frames();
    json["frame_pictures"] = sequence.frames.frame_pictures;
    json["field_pairs"] = sequence.frames.field_pairs;
    json["single_fields"] = sequence.frames.single_fields;
    json["bytes"] = sequence.bytes;
    if (const auto rate = frame_rate(sps)) {
        json["frame_rate"] = {{"numerator", rate->numerator}, {"denominator", rate->denominator}};
        json["fixed_frame_rate_flag"] = sps.vui.fixed_frame_rate_flag;
    }
    if (const auto duration = sequence.duration()) {
        json["duration"] = *duration;
        json["bit_rate"] = bit_rate(sequence.bytes, *duration);
    }
    json["hrd"] = hrd_to_json(sps);
    return json;
}

Json units_to_json(const StreamSummary& summary) {
    Json json = Json::array();
    for (unsigned type = 0; type < 32; ++type) {
        const UnitCount& count = summary.units_by_type()[type];
        if (count.units == 0) continue;
        Json entry;
        entry["nal_unit_type"] = type;
        entry["nal_unit_type_name"] = nal_type_name(type);
        entry["units"] = count.units;
        entry["bytes"] = count.bytes;
        json.push_back(std::move(entry));
    }
    return json;
}

Json distances_to_json(const Distances& distances) {
    Json json;
    json["count"] = distances.count();
    if (distances.count() == 0) return json;
    json["min"] = distances.shortest;
    json["mean"] = distances.mean();
    json["max"] = distances.longest;
    return json;
}

Json sei_to_json(const StreamSummary& summary) {
    Json json = Json::array();
    for (const auto& [kind, count] : summary.sei_messages()) {
        Json entry;
        entry["payload_type"] = kind.payload_type;
        entry["name"] = sei_name(kind.payload_type);
        if (!kind.user_identifier.empty()) entry["user_identifier"] = kind.user_identifier;
        entry["count"] = count;
        json.push_back(std::move(entry));
    }
    return json;
}

Json sets_to_json(const SetCount& count) {
    Json json;
    Json& ids = json["ids"] = Json::array();
    for (std::size_t id = 0; id < count.ids.size(); ++id)
        if (count.ids[id]) ids.push_back(id);
    json["changes"] = count.changes;
    return json;
}

}  // namespace

std::string summary_to_json(const StreamSummary& summary, const InputFacts& input) {
    const PictureCounter& pictures = summary.pictures();
    const auto duration = summary.duration();
    Json json;
    json["file"] = input.name;
    json["size"] = input.size;
    json["units"] = summary.units();
    json["damaged_units"] = summary.result().damaged_units();
    json["frames"] = pictures.frames();
    if (duration) {
        json["duration"] = *duration;
        json["bit_rate"] = bit_rate(input.size, *duration);
    }
    json["sequence_parameter_sets"] = sets_to_json(summary.sequence_parameter_sets());
    json["picture_parameter_sets"] = sets_to_json(summary.picture_parameter_sets());
    Json& sequences = json["videos"] = Json::array();
    for (const Sequence& sequence : summary.sequences()) sequences.push_back(sequence_to_json(sequence));
    if (summary.has_more_sequences()) json["more_videos"] = true;
    json["nal_units"] = units_to_json(summary);
    if (summary.units_without_header().units > 0) json["units_without_header"] = summary.units_without_header().units;
    json["zero_bytes"] = input.size - input.stray_bytes - summary.unit_bytes();
    if (input.stray_bytes > 0) json["stray_bytes"] = input.stray_bytes;
    json["pictures"] = {{"I", pictures.pictures()[kPictureI]},
                        {"P", pictures.pictures()[kPictureP]},
                        {"B", pictures.pictures()[kPictureB]},
                        {"IDR", pictures.idr_pictures()}};
    for (unsigned kind = 0; kind < kSliceKinds; ++kind) json["slices"][slice_type_name(kind)] = summary.slices()[kind];
    json["gops"] = {{"idr", distances_to_json(pictures.idr_distances())},
                    {"intra", distances_to_json(pictures.intra_distances())}};
    json["sei"] = sei_to_json(summary);
    // Names in the input may be no UTF-8.
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

}  // namespace h264tool
