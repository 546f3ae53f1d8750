#include "picture_counter.h"

#include <algorithm>
#include <utility>

#include "nal_types.h"

namespace h264tool {
namespace {

constexpr std::size_t kHeaderBytes = 256;  // enough for the elements up to redundant_pic_cnt

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
    return in.ok() ? std::string() : parse_failure("slice header", unit);
}

void Distances::add(std::uint64_t frame) {
    const std::uint64_t distance = frame - std::exchange(last_frame, frame);
    if (pictures++ == 0) return;
    shortest = pictures == 2 ? distance : std::min(shortest, distance);
    longest = std::max(longest, distance);
    sum += distance;
}

void PictureCounter::add(const SliceIdentity& slice, FrameCounts& frames) {
    if (starts_picture(slice)) {
        end_picture();
        starts_frame_ = !is_second_field(slice, frames);
        if (!starts_frame_) {
            --frames.single_fields;
            ++frames.field_pairs;
            first_field_.reset();
        } else {
            ++frames_;
            ++(slice.field_pic_flag ? frames.single_fields : frames.frame_pictures);
            first_field_ = slice.field_pic_flag ? std::optional(slice) : std::nullopt;
            first_field_counts_ = &frames;
        }
    }
    const SliceKind kind = slice_kind(slice.beginning.slice_type);
    if (kind == kSliceB)
        type_ = kPictureB;
    else if (type_ == kPictureI && (kind == kSliceP || kind == kSliceSP))
        type_ = kPictureP;
    has_first_mb_ = has_first_mb_ || slice.beginning.first_mb_in_slice == 0;
    current_ = slice;
}

void PictureCounter::end_picture() {
    if (!current_) return;
    ++pictures_.at(type_);
    if (starts_frame_ && current_->idr) idr_distances_.add(frames_);
    if (starts_frame_ && type_ == kPictureI) intra_distances_.add(frames_);
    current_.reset();
    has_first_mb_ = false;
    type_ = kPictureI;
}

// ITU-T H.264 7.4.1.2.4. Where that does not tell two pictures apart, as it does in a conforming stream, a second slice
// with the first macroblock does.
bool PictureCounter::starts_picture(const SliceIdentity& slice) const {
    if (!current_) return true;
    const SliceIdentity& last = *current_;
    const bool first_again = has_first_mb_ && slice.beginning.first_mb_in_slice == 0;
    return slice.beginning.pic_parameter_set_id != last.beginning.pic_parameter_set_id ||
           slice.frame_num != last.frame_num || slice.field_pic_flag != last.field_pic_flag ||
           slice.bottom_field_flag != last.bottom_field_flag || slice.idr != last.idr ||
           slice.idr_pic_id != last.idr_pic_id || slice.pic_order_cnt_lsb != last.pic_order_cnt_lsb ||
           slice.delta_pic_order_cnt_bottom != last.delta_pic_order_cnt_bottom ||
           slice.delta_pic_order_cnt != last.delta_pic_order_cnt ||
           (slice.nal_ref_idc != last.nal_ref_idc && (slice.nal_ref_idc == 0 || last.nal_ref_idc == 0)) ||
           (first_again && slice.colour_plane_id == last.colour_plane_id);
}

// Whether the picture and the last one are the fields of one frame.
bool PictureCounter::is_second_field(const SliceIdentity& slice, const FrameCounts& frames) const {
    return first_field_ && first_field_counts_ == &frames && slice.field_pic_flag &&
           slice.bottom_field_flag != first_field_->bottom_field_flag && slice.frame_num == first_field_->frame_num &&
           !slice.idr;
}

}  // namespace h264tool
