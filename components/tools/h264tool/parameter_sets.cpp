#include "parameter_sets.h"

#include <algorithm>
#include <climits>
#include <utility>

#include "diagnostics.h"
#include "payload_reader.h"
#include "sps_properties.h"
#include "text.h"

namespace h264tool {
namespace {

constexpr std::size_t kIdBytes = 64;  // enough for the ids at the beginning of a unit
constexpr char kSpsName[] = "sequence parameter set";
constexpr char kPpsName[] = "picture parameter set";

std::string id_too_large(const std::string& name, std::uint64_t id, std::uint64_t largest) {
    return name + " id " + std::to_string(id) + " is above " + std::to_string(largest);
}

std::vector<unsigned char> bytes_behind_header(const NalUnit& unit) {
    return {unit.bytes.begin() + unit.start_code_length + 1, unit.bytes.end()};
}

// Whether the stop bit stands where transform_8x8_mode_flag would. Not looked into with slice groups.
bool ends_before_transform_8x8(const NalUnit& unit) {
    std::vector<unsigned char> bytes = payload_of(unit);
    while (!bytes.empty() && bytes.back() == 0) bytes.pop_back();
    if (bytes.empty()) return false;
    unsigned stop_bit = static_cast<unsigned>(bytes.size()) * 8 - 1;
    for (unsigned last = bytes.back(); (last & 1U) == 0; last >>= 1) --stop_bit;
    PayloadReader in(std::move(bytes));
    in.ue();                         // pic_parameter_set_id
    in.ue();                         // seq_parameter_set_id
    in.u(2);                         // entropy_coding_mode_flag, bottom_field_pic_order_in_frame_present_flag
    if (in.ue() != 0) return false;  // num_slice_groups_minus1
    in.ue();                         // num_ref_idx_l0_default_active_minus1
    in.ue();                         // num_ref_idx_l1_default_active_minus1
    in.u(3);                         // weighted_pred_flag, weighted_bipred_idc
    in.se();                         // pic_init_qp_minus26
    in.se();                         // pic_init_qs_minus26
    in.se();                         // chroma_qp_index_offset
    in.u(3);                         // three flags
    return in.ok() && in.position() == stop_bit;
}

}  // namespace

std::string parse_failure(const std::string& structure, const NalUnit& unit, std::uint64_t most_bytes) {
    const std::uint64_t size = unit.length - unit.start_code_length;
    if (size < 3) return structure + " too short: " + count_of(size, "byte") + " behind the start code";
    if (most_bytes > 0 && size > most_bytes)
        return structure + " too long: " + count_of(size, "byte") + " behind the start code, " +
               std::to_string(most_bytes) + " can be parsed";
    return structure + " cannot be parsed";
}

std::string ParameterSets::read_sps(const NalUnit& unit) {
    PayloadReader beginning(payload_of(unit, kIdBytes));
    beginning.u(24);  // profile_idc to level_idc
    const std::uint64_t id = beginning.ue();
    if (id > kMaxSpsId) return id_too_large(kSpsName, id, kMaxSpsId);
    const std::unique_ptr<Sps> before = beginning.ok() ? std::exchange(sps_[id], nullptr) : nullptr;

    last_sps_ = sps_t{};
    const DiagnosticsLevel level(parser_level_);
    if (!parse_sps_nal_ex(unit.bytes.data(), static_cast<unsigned int>(unit.bytes.size()), &context_, &last_sps_))
        return parse_failure(kSpsName, unit, MAX_PARAMETER_SET_BYTES);
    sps_[id] = std::make_unique<Sps>(Sps{last_sps_, bytes_behind_header(unit)});
    if (!has_chroma_format(last_sps_)) sps_[id]->sps.chroma_format_idc = sps_[id]->sps.ChromaArrayType = 1;
    if (before && before->bytes != sps_[id]->bytes) ++sps_changes_;
    return {};
}

void ParameterSets::read_subset_sps(const NalUnit& unit) {
    const DiagnosticsLevel level(0);
    Sps subset;
    if (!parse_sps_nal(unit.bytes.data(), static_cast<int>(unit.bytes.size()), &subset.sps)) return;
    const unsigned long id = subset.sps.seq_parameter_set_id;
    if (id <= kMaxSpsId) subset_sps_[id] = std::make_unique<Sps>(std::move(subset));
}

std::string ParameterSets::read_pps(const NalUnit& unit) {
    last_pps_ = Pps{};
    sps_of_last_pps_ = nullptr;
    PayloadReader beginning(payload_of(unit, kIdBytes));
    const std::uint64_t id = beginning.ue();
    if (id > kMaxPpsId) return id_too_large(kPpsName, id, kMaxPpsId);
    const std::unique_ptr<Pps> before = beginning.ok() ? std::exchange(pps_[id], nullptr) : nullptr;
    const std::uint64_t sps_id = beginning.ue();
    if (sps_id > kMaxSpsId) return id_too_large(kSpsName, sps_id, kMaxSpsId);
    if (!beginning.ok()) {
        parse_pps(unit, sps_t{});  // for what the library says about it
        return parse_failure(kPpsName, unit, MAX_PARAMETER_SET_BYTES);
    }
    const Sps* sps = sps_[sps_id] ? sps_[sps_id].get() : subset_sps_[sps_id].get();
    if (sps == nullptr)
        return std::string(kSpsName) + ' ' + std::to_string(sps_id) + ", to which it refers, is missing";
    if (!parse_pps(unit, sps->sps)) return parse_failure(kPpsName, unit, MAX_PARAMETER_SET_BYTES);
    sps_of_last_pps_ = &sps->sps;
    if (last_pps_.end == PpsEnd::kInSliceGroupId) return std::string(kPpsName) + " ends inside slice_group_id";
    if (last_pps_.end == PpsEnd::kInWeightedBipredIdc)
        return std::string(kPpsName) + " ends inside weighted_bipred_idc";
    last_pps_.bytes = bytes_behind_header(unit);
    if (before && before->bytes != last_pps_.bytes) ++pps_changes_;
    pps_[id] = std::make_unique<Pps>(last_pps_);
    return {};
}

// Parses into last_pps_. Values that no element can have tell which elements were read.
bool ParameterSets::parse_pps(const NalUnit& unit, const sps_t& sps) {
    pps_t& pps = last_pps_.pps;
    std::fill(std::begin(pps.slice_group_id), std::end(pps.slice_group_id), ULONG_MAX);
    pps.num_ref_idx_l0_default_active_minus1 = ULONG_MAX;
    pps.pic_init_qp_minus26 = LONG_MIN;
    pps.transform_8x8_mode_flag = -1;
    {
        const DiagnosticsLevel level(parser_level_);
        if (!H264LIB_parse_pps_nal(unit.bytes.data(), static_cast<int>(unit.bytes.size()), &sps, &pps)) return false;
    }
    unsigned long* const ids_end = std::find(std::begin(pps.slice_group_id), std::end(pps.slice_group_id), ULONG_MAX);
    last_pps_.slice_group_ids = static_cast<std::size_t>(ids_end - std::begin(pps.slice_group_id));
    std::fill(ids_end, std::end(pps.slice_group_id), 0);
    if (pps.transform_8x8_mode_flag < 0) {
        last_pps_.end = PpsEnd::kBeforeTransform8x8;
        pps.transform_8x8_mode_flag = 0;
    }
    if (pps.pic_init_qp_minus26 == LONG_MIN) {
        last_pps_.end = PpsEnd::kInWeightedBipredIdc;
        pps.pic_init_qp_minus26 = 0;
    }
    if (pps.num_ref_idx_l0_default_active_minus1 == ULONG_MAX) {
        last_pps_.end = PpsEnd::kInSliceGroupId;
        pps.num_ref_idx_l0_default_active_minus1 = 0;
    }
    last_pps_.stop_bit_is_element = last_pps_.end == PpsEnd::kComplete && ends_before_transform_8x8(unit);
    return true;
}

}  // namespace h264tool
