// The pictures of a stream in decoding order, with their places in output order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "slice_identity.h"

namespace h264tool {

// Picture order counts of one picture, ITU-T H.264 8.2.1. Of a field only its own is meant.
struct PictureOrderCounts {
    std::int64_t top = 0;
    std::int64_t bottom = 0;
};

// Derives picture order counts picture by picture in decoding order.
class PictureOrderCounter {
public:
    // resets: whether the picture has memory_management_control_operation 5; its counts are those behind it then.
    PictureOrderCounts next(const SliceIdentity& slice, bool resets);

private:
    PictureOrderCounts type_0(const SliceIdentity& slice);
    PictureOrderCounts type_1(const SliceIdentity& slice) const;
    PictureOrderCounts type_2(const SliceIdentity& slice) const;
    void advance_frame_num(const SliceIdentity& slice);

    // Modulo 2^64, for streams that break all bounds.
    std::uint64_t previous_msb_ = 0;  // prevPicOrderCntMsb
    std::uint64_t previous_lsb_ = 0;  // prevPicOrderCntLsb
    std::uint64_t msb_ = 0;           // PicOrderCntMsb
    std::uint64_t frame_num_offset_ = 0;
    std::uint64_t previous_frame_num_ = 0;
};

// Takes the first slice of each primary coded picture in decoding order and tells, when all are known, which frame of
// the output the picture is or belongs to. Frames of one coded video sequence (from an IDR picture, or one with
// memory_management_control_operation 5, to the next) are put out before those of the next.
class PictureOrder {
public:
    // resets: whether the picture has memory_management_control_operation 5.
    void add(const SliceIdentity& identity, bool resets = false);
    // All pictures were added.
    void finish();

    std::size_t pictures() const { return places_.size(); }
    // What follows is complete after finish().
    std::size_t frames() const { return frames_; }

    struct Place {
        std::uint32_t frame = 0;    // in output order, from 0; the two fields of a frame have the same
        bool second_field = false;  // of its frame, in output order
    };
    // picture: in decoding order, from 0.
    Place place(std::size_t picture) const { return places_.at(picture); }
    // The pictures in output order, by their numbers in decoding order.
    std::vector<std::uint32_t> in_output_order() const;

private:
    // A frame of the coded video sequence that is being read.
    struct Frame {
        std::int64_t order;           // picture order count
        std::uint32_t first_picture;  // the second field's follows
        bool second_before_first;     // in output order
        bool is_pair;
    };
    void end_sequence();

    PictureOrderCounter counter_;
    std::optional<SliceIdentity> first_field_;  // of the last picture, when it is a field whose frame has no other
    std::vector<Frame> sequence_;
    std::vector<Place> places_;
    std::uint32_t frames_ = 0;
};

}  // namespace h264tool
