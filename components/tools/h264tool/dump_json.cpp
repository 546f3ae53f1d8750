// The JSON that h264tool dump prints.
#include <nlohmann/json.hpp>

#include "dump.h"
#include "pps_json.h"
#include "slice_json.h"
#include "sps_json.h"

namespace h264tool {

using Json = nlohmann::ordered_json;

std::string Dump::to_json(const NalUnit& unit, const Findings& findings) {
    Json json;
    json["unit"] = unit.number;
    json["offset"] = unit.offset;
    json["length"] = unit.length;
    json["start_code_length"] = unit.start_code_length;
    if (unit.has_header()) {
        json["nal_unit_type"] = unit.type();
        json["nal_unit_type_name"] = nal_type_name(unit.type());
        json["nal_ref_idc"] = unit.ref_idc();
        if (unit.forbidden_zero_bit()) json["forbidden_zero_bit"] = 1;
    }
    const AnnexBReader& units = input_.units();
    if (unit.number == 1 && units.stray_bytes() == 0 && units.leading_zero_8bits() > 0)
        json["leading_zero_8bits"] = units.leading_zero_8bits();
    if (unit.trailing_zero_8bits > 0) json["trailing_zero_8bits"] = unit.trailing_zero_8bits;
    if (!findings.damage.empty()) {
        json["error"] = findings.damage;
        json["messages"] = findings.messages;
    }
    if (!findings.warnings.empty()) json["warnings"] = findings.warnings;
    if (findings.sps != nullptr) json["sps"] = sps_to_json(*findings.sps);
    if (findings.pps != nullptr) json["pps"] = pps_to_json(*findings.pps, *sets_.sps_of_last_pps());
    if (findings.slice != nullptr) json["slice"] = slice_to_json(*findings.slice, unit.type(), unit.ref_idc());
    if (findings.primary_pic_type) json["aud"]["primary_pic_type"] = *findings.primary_pic_type;
    if (findings.sei) {
        json["sei_messages"] = sei_messages_to_json(*findings.sei);
        if (Json rest = sei_rest_to_json(*findings.sei); !rest.is_null()) json["sei_rest"] = std::move(rest);
    }
    return json.dump() + '\n';
}

void Dump::show_stray_bytes_as_json() {
    const std::uint64_t offset = input_.units().leading_zero_8bits();
    Json json;
    json["offset"] = offset;
    json["length"] = input_.units().stray_bytes();
    if (offset > 0) json["leading_zero_8bits"] = offset;
    json["error"] = "data before the first start code";
    input_.output().write(json.dump() + '\n');
}

}  // namespace h264tool
