#include "sei_findings.h"

#include "diagnostics.h"
#include "text.h"

namespace h264tool {
namespace {

using Json = nlohmann::ordered_json;

std::string damage_of(const SeiUnit& unit) {
    if (unit.damaged) return "SEI message at " + std::to_string(unit.end) + " runs past the end of the unit";
    return unit.messages.empty() && !unit.cut ? "SEI unit without a message" : "";
}

// Lines "name=value." for the members of a value.
void append_elements(const Json& value, const std::string& name, std::vector<std::string>& lines) {
    if (value.is_object()) {
        const std::string prefix = name.empty() ? name : name + '.';
        for (const auto& [member, inner] : value.items()) append_elements(inner, prefix + member, lines);
    } else if (value.is_array()) {
        for (std::size_t i = 0; i < value.size(); ++i)
            append_elements(value[i], name + '[' + std::to_string(i) + ']', lines);
    } else if (!value.is_null()) {
        lines.push_back(name + '=' + (value.is_string() ? value.get<std::string>() : value.dump()) + '.');
    }
}

std::string message_line(const SeiFindings& findings, std::size_t i) {
    const SeiMessage& message = findings.unit.messages[i];
    std::string line = std::string("SEI ") + sei_name(message.kind.payload_type) +
                       ": payload_type=" + std::to_string(message.kind.payload_type) +
                       ", payload_size=" + std::to_string(message.size) +
                       ", payload_index=" + std::to_string(message.payload_index);
    if (i < findings.walk.classifications.size())
        line += std::string(", ") + classification_name(findings.walk.classifications[i]);
    return line + '.';
}

}  // namespace

SeiFindings examine_sei(const NalUnit& unit, const sps_t* sps, int parser_level, int walk_level) {
    SeiFindings findings;
    findings.unit = read_sei_unit(unit);
    findings.sps = sps;
    findings.damage = damage_of(findings.unit);
    {
        const DiagnosticsLevel level(walk_level);
        findings.walk = walk_sei_messages(unit, findings.unit);
    }
    const DiagnosticsLevel level(parser_level);
    for (const SeiMessage& message : findings.unit.messages) {
        SeiRecord& record = findings.records.emplace_back();
        if (!findings.unit.has_whole(message)) continue;
        const std::string failure = read_sei_record(findings.unit, message, sps, record);
        if (findings.damage.empty()) findings.damage = failure;
        const auto* const period = std::get_if<sei_buffering_period_t>(&record);
        if (period != nullptr && period->seq_parameter_set_id != sps->seq_parameter_set_id)
            findings.warnings.push_back(
                format("buffering_period refers to sequence parameter set %lu, its picture to %lu",
                       period->seq_parameter_set_id, sps->seq_parameter_set_id));
    }
    return findings;
}

Json sei_messages_to_json(const SeiFindings& findings) {
    Json json = Json::array();
    for (std::size_t i = 0; i < findings.unit.messages.size(); ++i) {
        const SeiMessage& message = findings.unit.messages[i];
        Json one;
        one["payload_type"] = message.kind.payload_type;
        one["payload_type_name"] = sei_name(message.kind.payload_type);
        one["payload_size"] = message.size;
        one["payload_index"] = message.payload_index;
        if (i < findings.walk.classifications.size())
            one["classification"] = classification_name(findings.walk.classifications[i]);
        const SeiRecord& record = findings.records[i];
        if (record.index() != 0) one[record_name(record)] = record_to_json(record, findings.sps);
        json.push_back(std::move(one));
    }
    return json;
}

Json sei_rest_to_json(const SeiFindings& findings) {
    const SeiUnit& unit = findings.unit;
    const std::size_t walked = findings.walk.classifications.size();
    const std::size_t offset = walked < unit.messages.size() ? unit.messages[walked].offset : unit.end;
    if (findings.walk.end_reason.empty() && !unit.damaged) return {};
    Json json;
    json["offset"] = offset;
    json["length"] = unit.bytes.size() - offset;
    if (!findings.walk.end_reason.empty()) json["reason"] = findings.walk.end_reason;
    return json;
}

std::vector<std::string> sei_text(const SeiFindings& findings, bool elements) {
    std::vector<std::string> lines;
    const std::size_t walked = findings.walk.classifications.size();
    const Json rest = sei_rest_to_json(findings);
    const auto add_rest = [&] {
        lines.push_back("SEI rest: " + count_of(rest["length"].get<std::uint64_t>(), "byte") + " at " +
                        rest["offset"].dump() +
                        (rest.contains("reason") ? ": " + rest["reason"].get<std::string>() : "") + '.');
    };
    for (std::size_t i = 0; i < findings.unit.messages.size(); ++i) {
        if (i == walked && !rest.is_null()) add_rest();
        lines.push_back(message_line(findings, i));
        if (elements) append_elements(record_to_json(findings.records[i], findings.sps), "", lines);
    }
    if (walked == findings.unit.messages.size() && !rest.is_null()) add_rest();
    return lines;
}

const sps_t* ActiveSps::get(const ParameterSets& sets) const {
    if (id_ && sets.sps(*id_) != nullptr) return &sets.sps(*id_)->sps;
    const sps_t* only = nullptr;
    for (std::uint64_t id = 0; id <= ParameterSets::kMaxSpsId; ++id) {
        if (sets.sps(id) == nullptr) continue;
        if (only != nullptr) return nullptr;
        only = &sets.sps(id)->sps;
    }
    return only;
}

}  // namespace h264tool
