#include "slice_unit.h"

#include <algorithm>
#include <array>
#include <climits>

#include "diagnostics.h"

namespace h264tool {
namespace {

constexpr std::size_t kBeginningBytes = 64;  // enough for three elements
constexpr std::size_t kTablesBytes = 4096;   // enough for the longest header that a level allows

// Whether a chroma flag of the prediction weight table, which the slice has, is 1.
bool finds_chroma_weights(const NalUnit& unit, const Slice& slice) {
    const slice_header_t& header = slice.header;
    PayloadReader in(payload_of(unit, kTablesBytes), static_cast<unsigned>(header.rplm_bitoffset));
    return ReferenceTables{slice_kind(header.slice_type),
                           {header.num_ref_idx_l0_active_minus1, header.num_ref_idx_l1_active_minus1},
                           true,
                           slice.beginning.sps->sps.ChromaArrayType != 0}
        .read(in);
}

// Tells by their mark which luma weights were not read, and removes the marks.
std::vector<bool> take_marks(long (&weights)[MAX_REF_IDX], unsigned long last) {
    std::vector<bool> read;
    for (unsigned long i = 0; i < MAX_REF_IDX; ++i) {
        if (i <= last) read.push_back(weights[i] != LONG_MIN);
        if (weights[i] == LONG_MIN) weights[i] = 0;
    }
    return read;
}

// Calls the library. Values that no element can have tell which elements were read.
bool parse_header(const NalUnit& unit, const sps_t& sps, const pps_t& pps, int level, Slice& slice) {
    slice_header_t& header = slice.header;
    header = slice_header_t{};
    header.num_ref_idx_l0_active_minus1 = pps.num_ref_idx_l0_default_active_minus1;
    header.num_ref_idx_l1_active_minus1 = pps.num_ref_idx_l1_default_active_minus1;
    header.rplm.abs_diff_pic_num_minus1 = header.rplm.long_term_pic_num = ULONG_MAX;
    std::fill(std::begin(header.pwt.luma_weight_l0), std::end(header.pwt.luma_weight_l0), LONG_MIN);
    std::fill(std::begin(header.pwt.luma_weight_l1), std::end(header.pwt.luma_weight_l1), LONG_MIN);
    {
        const DiagnosticsLevel parser_level(level);
        if (parse_slice_header_nal(unit.bytes.data(), static_cast<int>(unit.bytes.size()), &sps, &pps, &header) == 0)
            return false;
    }
    slice.has_abs_diff_pic_num_minus1 = header.rplm.abs_diff_pic_num_minus1 != ULONG_MAX;
    slice.has_long_term_pic_num = header.rplm.long_term_pic_num != ULONG_MAX;
    if (!slice.has_abs_diff_pic_num_minus1) header.rplm.abs_diff_pic_num_minus1 = 0;
    if (!slice.has_long_term_pic_num) header.rplm.long_term_pic_num = 0;
    slice.has_luma_weight_l0 = take_marks(header.pwt.luma_weight_l0, header.num_ref_idx_l0_active_minus1);
    slice.has_luma_weight_l1 = take_marks(header.pwt.luma_weight_l1, header.num_ref_idx_l1_active_minus1);
    return true;
}

}  // namespace

const char* slice_type_name(std::uint64_t slice_type) {
    constexpr std::array<const char*, kSliceKinds> kNames{"P", "B", "I", "SP", "SI"};
    return kNames[slice_kind(slice_type)];
}

std::string read_slice_beginning(const NalUnit& unit, PayloadReader& payload, const ParameterSets& sets,
                                 SliceBeginning& beginning) {
    beginning.first_mb_in_slice = payload.ue();
    beginning.slice_type = payload.ue();
    beginning.pic_parameter_set_id = payload.ue();
    beginning.readable = payload.ok() && beginning.slice_type < std::uint64_t{2} * kSliceKinds;
    if (!payload.ok()) return parse_failure("slice header", unit);
    if (!beginning.readable)
        return "slice_type " + std::to_string(beginning.slice_type) + " is above " +
               std::to_string(2 * kSliceKinds - 1);
    const std::string pps_name = "picture parameter set " + std::to_string(beginning.pic_parameter_set_id);
    if (beginning.pic_parameter_set_id > ParameterSets::kMaxPpsId)
        return pps_name + ", to which it refers, is above " + std::to_string(ParameterSets::kMaxPpsId);
    beginning.pps = sets.pps(beginning.pic_parameter_set_id);
    if (beginning.pps == nullptr) return pps_name + ", to which it refers, is missing";
    beginning.sps = sets.sps(beginning.pps->pps.seq_parameter_set_id);
    if (beginning.sps == nullptr)
        return "sequence parameter set " + std::to_string(beginning.pps->pps.seq_parameter_set_id) + ", to which its " +
               pps_name + " refers, is missing";
    return {};
}

std::string parse_slice(const NalUnit& unit, const ParameterSets& sets, Slice& slice) {
    slice = Slice{};
    PayloadReader payload(payload_of(unit, kBeginningBytes));
    std::string failure = read_slice_beginning(unit, payload, sets, slice.beginning);
    // For what the library says about a beginning that cannot be read.
    if (!payload.ok()) parse_header(unit, sps_t{}, pps_t{}, sets.parser_level(), slice);
    if (!failure.empty()) return failure;
    if (!parse_header(unit, slice.beginning.sps->sps, slice.beginning.pps->pps, sets.parser_level(), slice))
        return parse_failure("slice header", unit);
    slice.has_chroma_weights =
        has_pred_weight_table(slice.beginning.pps->pps, slice.header.slice_type) && finds_chroma_weights(unit, slice);
    return {};
}

bool has_pred_weight_table(const pps_t& pps, std::uint64_t slice_type) {
    const SliceKind kind = slice_kind(slice_type);
    return kind == kSliceB ? pps.weighted_bipred_idc == 1
                           : pps.weighted_pred_flag != 0 && (kind == kSliceP || kind == kSliceSP);
}

bool ReferenceTables::read(PayloadReader& in) const {
    const std::size_t lists = kind == kSliceB ? 2 : kind == kSliceP || kind == kSliceSP ? 1 : 0;
    for (std::size_t list = 0; list < lists; ++list)
        if (in.flag())                                // ref_pic_list_modification_flag
            while (in.ok() && in.ue() != 3) in.ue();  // modification_of_pic_nums_idc and what it tells
    if (!has_weights) return false;
    in.ue();                  // luma_log2_weight_denom
    if (has_chroma) in.ue();  // chroma_log2_weight_denom
    bool has_chroma_weights = false;
    for (std::size_t list = 0; list < lists; ++list)
        for (std::uint64_t i = 0; in.ok() && i <= num_ref_idx_active_minus1[list]; ++i) {
            if (in.flag())                            // luma_weight_flag
                for (int k = 0; k < 2; ++k) in.se();  // luma_weight and luma_offset
            if (!has_chroma || !in.flag()) continue;  // chroma_weight_flag
            has_chroma_weights = true;
            for (int k = 0; k < 4; ++k) in.se();  // chroma_weight and chroma_offset of Cb and Cr
        }
    return has_chroma_weights;
}

}  // namespace h264tool
