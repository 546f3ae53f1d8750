#include "picture_order.h"

#include <algorithm>

namespace h264tool {
namespace {

std::uint64_t max_frame_num(const sps_t& sps) {
    return std::uint64_t{1} << (std::min(sps.log2_max_frame_num_minus4, 28UL) + 4);
}

std::uint64_t wrapping(std::int64_t value) { return static_cast<std::uint64_t>(value); }

// Field order counts from the one of the frame or field and the distance from top to bottom field.
PictureOrderCounts counts(const SliceIdentity& slice, std::uint64_t count, std::uint64_t to_bottom) {
    if (slice.field_pic_flag) return {static_cast<std::int64_t>(count), static_cast<std::int64_t>(count)};
    return {static_cast<std::int64_t>(count), static_cast<std::int64_t>(count + to_bottom)};
}

}  // namespace

PictureOrderCounts PictureOrderCounter::next(const SliceIdentity& slice, bool resets) {
    const sps_t& sps = slice.beginning.sps->sps;
    advance_frame_num(slice);
    PictureOrderCounts counts = sps.pic_order_cnt_type == 0   ? type_0(slice)
                                : sps.pic_order_cnt_type == 1 ? type_1(slice)
                                                              : type_2(slice);
    if (resets) {
        const std::int64_t first = std::min(counts.top, counts.bottom);
        counts.top = static_cast<std::int64_t>(wrapping(counts.top) - wrapping(first));
        counts.bottom = static_cast<std::int64_t>(wrapping(counts.bottom) - wrapping(first));
        previous_msb_ = 0;
        previous_lsb_ = slice.bottom_field_flag ? 0 : wrapping(counts.top);
        frame_num_offset_ = 0;
        previous_frame_num_ = 0;
    } else if (slice.nal_ref_idc != 0) {
        previous_msb_ = msb_;
        previous_lsb_ = slice.pic_order_cnt_lsb;
    }
    return counts;
}

void PictureOrderCounter::advance_frame_num(const SliceIdentity& slice) {
    if (slice.idr)
        frame_num_offset_ = 0;
    else if (previous_frame_num_ > slice.frame_num)
        frame_num_offset_ += max_frame_num(slice.beginning.sps->sps);
    previous_frame_num_ = slice.frame_num;
}

// ITU-T H.264 8.2.1.1.
PictureOrderCounts PictureOrderCounter::type_0(const SliceIdentity& slice) {
    const sps_t& sps = slice.beginning.sps->sps;
    const std::uint64_t max_lsb = std::uint64_t{1} << (std::min(sps.log2_max_pic_order_cnt_lsb_minus4, 28UL) + 4);
    const std::uint64_t lsb = slice.pic_order_cnt_lsb;
    if (slice.idr) previous_msb_ = previous_lsb_ = 0;
    msb_ = previous_msb_;
    if (lsb < previous_lsb_ && previous_lsb_ - lsb >= max_lsb / 2)
        msb_ += max_lsb;
    else if (lsb > previous_lsb_ && lsb - previous_lsb_ > max_lsb / 2)
        msb_ -= max_lsb;
    return counts(slice, msb_ + lsb, wrapping(slice.delta_pic_order_cnt_bottom));
}

// ITU-T H.264 8.2.1.2.
PictureOrderCounts PictureOrderCounter::type_1(const SliceIdentity& slice) const {
    const sps_t& sps = slice.beginning.sps->sps;
    const std::uint64_t cycle =
        std::min<std::uint64_t>(sps.num_ref_frames_in_pic_order_cnt_cycle, MAX_REF_FRAMES_IN_POC_CYCLE);
    std::uint64_t absolute = cycle != 0 ? frame_num_offset_ + slice.frame_num : 0;
    if (slice.nal_ref_idc == 0 && absolute > 0) --absolute;
    std::uint64_t expected = 0;
    if (absolute > 0) {
        std::uint64_t delta_of_cycle = 0;
        for (std::uint64_t i = 0; i < cycle; ++i) delta_of_cycle += wrapping(sps.offset_for_ref_frame[i]);
        expected = (absolute - 1) / cycle * delta_of_cycle;
        for (std::uint64_t i = 0; i <= (absolute - 1) % cycle; ++i) expected += wrapping(sps.offset_for_ref_frame[i]);
    }
    if (slice.nal_ref_idc == 0) expected += wrapping(sps.offset_for_non_ref_pic);
    if (slice.bottom_field_flag) expected += wrapping(sps.offset_for_top_to_bottom_field);
    return counts(slice, expected + wrapping(slice.delta_pic_order_cnt[0]),
                  wrapping(sps.offset_for_top_to_bottom_field) + wrapping(slice.delta_pic_order_cnt[1]));
}

// ITU-T H.264 8.2.1.3.
PictureOrderCounts PictureOrderCounter::type_2(const SliceIdentity& slice) const {
    const std::uint64_t count = 2 * (frame_num_offset_ + slice.frame_num);
    return counts(slice, slice.nal_ref_idc == 0 ? count - 1 : count, 0);
}

void PictureOrder::add(const SliceIdentity& identity, bool resets) {
    const bool second_field = first_field_ && !resets && are_fields_of_one_frame(*first_field_, identity);
    // A second field belongs to the sequence of the first one, whose frame is an IDR picture or resets when that does.
    if (!second_field && (identity.idr || resets)) end_sequence();
    const PictureOrderCounts counts = counter_.next(identity, resets);
    const std::int64_t order = std::min(counts.top, counts.bottom);
    const auto picture = static_cast<std::uint32_t>(places_.size());
    places_.emplace_back();
    if (second_field) {
        Frame& frame = sequence_.back();
        frame.is_pair = true;
        frame.second_before_first = order < frame.order;
        frame.order = std::min(frame.order, order);
        first_field_.reset();
        return;
    }
    sequence_.push_back({order, picture, false, false});
    first_field_ = identity.field_pic_flag ? std::optional(identity) : std::nullopt;
    if (first_field_ && resets) first_field_->frame_num = 0;  // ITU-T H.264 7.4.3
}

void PictureOrder::finish() { end_sequence(); }

void PictureOrder::end_sequence() {
    std::stable_sort(sequence_.begin(), sequence_.end(),
                     [](const Frame& a, const Frame& b) { return a.order < b.order; });
    for (const Frame& frame : sequence_) {
        places_[frame.first_picture] = {frames_, frame.second_before_first};
        if (frame.is_pair) places_[frame.first_picture + 1] = {frames_, !frame.second_before_first};
        ++frames_;
    }
    sequence_.clear();
    first_field_.reset();
}

std::vector<std::uint32_t> PictureOrder::in_output_order() const {
    std::vector<std::uint32_t> pictures(places_.size());
    for (std::uint32_t i = 0; i < pictures.size(); ++i) pictures[i] = i;
    std::sort(pictures.begin(), pictures.end(), [&](std::uint32_t a, std::uint32_t b) {
        if (places_[a].frame != places_[b].frame) return places_[a].frame < places_[b].frame;
        return places_[a].second_field < places_[b].second_field;
    });
    return pictures;
}

}  // namespace h264tool
