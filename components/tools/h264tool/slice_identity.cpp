#include "slice_identity.h"

#include <algorithm>

#include "nal_types.h"

namespace h264tool {
namespace {

constexpr std::size_t kHeaderBytes = 256;    // enough for the elements up to redundant_pic_cnt
constexpr std::size_t kMarkingBytes = 4096;  // enough for the longest header that a level allows

// ITU-T H.264 7.4.1.2.4. Where that does not tell two pictures apart, as it does in a conforming stream, a second slice
// with the first macroblock does.
bool differs(const SliceIdentity& last, const SliceIdentity& slice, bool has_first_mb) {
    const bool first_again = has_first_mb && slice.beginning.first_mb_in_slice == 0;
    return slice.beginning.pic_parameter_set_id != last.beginning.pic_parameter_set_id ||
           slice.frame_num != last.frame_num || slice.field_pic_flag != last.field_pic_flag ||
           slice.bottom_field_flag != last.bottom_field_flag || slice.idr != last.idr ||
           slice.idr_pic_id != last.idr_pic_id || slice.pic_order_cnt_lsb != last.pic_order_cnt_lsb ||
           slice.delta_pic_order_cnt_bottom != last.delta_pic_order_cnt_bottom ||
           slice.delta_pic_order_cnt != last.delta_pic_order_cnt ||
           (slice.nal_ref_idc != last.nal_ref_idc && (slice.nal_ref_idc == 0 || last.nal_ref_idc == 0)) ||
           (first_again && slice.colour_plane_id == last.colour_plane_id);
}

}  // namespace

std::string identify_slice(const NalUnit& unit, const ParameterSets& sets, SliceIdentity& slice) {
    slice = SliceIdentity{};
    slice.idr = unit.type() == kIdrSlice;
    slice.nal_ref_idc = unit.ref_idc();
    PayloadReader in(payload_of(unit, kHeaderBytes));
    std::string failure = read_slice_beginning(unit, in, sets, slice.beginning);
    if (!failure.empty()) return failure;
    const sps_t& sps = slice.beginning.sps->sps;
    const pps_t& pps = slice.beginning.pps->pps;

    if (sps.separate_colour_plane_flag != 0) slice.colour_plane_id = in.u(2);
    slice.frame_num = in.u(static_cast<unsigned>(std::min(sps.log2_max_frame_num_minus4, 60UL)) + 4);
    if (sps.frame_mbs_only_flag == 0) slice.field_pic_flag = in.flag();
    if (slice.field_pic_flag) slice.bottom_field_flag = in.flag();
    if (slice.idr) slice.idr_pic_id = in.ue();
    const bool bottom = pps.bottom_field_pic_order_in_frame_present_flag != 0 && !slice.field_pic_flag;
    if (sps.pic_order_cnt_type == 0) {
        slice.pic_order_cnt_lsb =
            in.u(static_cast<unsigned>(std::min(sps.log2_max_pic_order_cnt_lsb_minus4, 60UL)) + 4);
        if (bottom) slice.delta_pic_order_cnt_bottom = in.se();
    } else if (sps.pic_order_cnt_type == 1 && sps.delta_pic_order_always_zero_flag == 0) {
        slice.delta_pic_order_cnt[0] = in.se();
        if (bottom) slice.delta_pic_order_cnt[1] = in.se();
    }
    if (pps.redundant_pic_cnt_present_flag != 0) slice.redundant_pic_cnt = in.ue();
    slice.position = in.position();
    return in.ok() ? std::string() : parse_failure("slice header", unit);
}

bool resets_picture_order(const NalUnit& unit, const SliceIdentity& slice) {
    if (slice.idr || slice.nal_ref_idc == 0) return false;
    const pps_t& pps = slice.beginning.pps->pps;
    const SliceKind kind = slice_kind(slice.beginning.slice_type);
    ReferenceTables tables{kind,
                           {pps.num_ref_idx_l0_default_active_minus1, pps.num_ref_idx_l1_default_active_minus1},
                           has_pred_weight_table(pps, slice.beginning.slice_type),
                           slice.beginning.sps->sps.ChromaArrayType != 0};
    PayloadReader in(payload_of(unit, kMarkingBytes), slice.position);
    if (kind == kSliceB) in.flag();                          // direct_spatial_mv_pred_flag
    if (kind != kSliceI && kind != kSliceSI && in.flag()) {  // num_ref_idx_active_override_flag
        tables.num_ref_idx_active_minus1[0] = in.ue();
        if (kind == kSliceB) tables.num_ref_idx_active_minus1[1] = in.ue();
    }
    tables.read(in);
    if (!in.flag()) return false;  // adaptive_ref_pic_marking_mode_flag
    for (std::uint64_t operation = in.ue(); operation != 0; operation = in.ue()) {
        if (operation == 5) return true;
        in.ue();  // its value, or the first of two
        if (operation == 3) in.ue();
    }
    return false;
}

bool PictureBoundaries::starts_picture(const SliceIdentity& slice) {
    if (slice.redundant_pic_cnt > 0) return false;
    const bool starts = !last_ || differs(*last_, slice, has_first_mb_);
    has_first_mb_ = (has_first_mb_ && !starts) || slice.beginning.first_mb_in_slice == 0;
    last_ = slice;
    return starts;
}

void PictureBoundaries::end_picture() {
    last_.reset();
    has_first_mb_ = false;
}

bool are_fields_of_one_frame(const SliceIdentity& first, const SliceIdentity& second) {
    return first.field_pic_flag && second.field_pic_flag && first.bottom_field_flag != second.bottom_field_flag &&
           first.frame_num == second.frame_num && (first.nal_ref_idc == 0) == (second.nal_ref_idc == 0) && !second.idr;
}

}  // namespace h264tool
