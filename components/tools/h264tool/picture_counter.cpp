#include "picture_counter.h"

#include <algorithm>
#include <utility>

namespace h264tool {

void Distances::add(std::uint64_t frame) {
    const std::uint64_t distance = frame - std::exchange(last_frame, frame);
    if (pictures++ == 0) return;
    shortest = pictures == 2 ? distance : std::min(shortest, distance);
    longest = std::max(longest, distance);
    sum += distance;
}

bool PictureCounter::add(const SliceIdentity& slice, FrameCounts& frames) {
    const bool starts_picture = boundaries_.starts_picture(slice);
    if (starts_picture) {
        count_picture();
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
    current_ = slice;
    return starts_picture;
}

void PictureCounter::end_picture() {
    boundaries_.end_picture();
    count_picture();
}

void PictureCounter::count_picture() {
    if (!current_) return;
    ++pictures_.at(type_);
    if (starts_frame_ && current_->idr) idr_distances_.add(frames_);
    if (starts_frame_ && type_ == kPictureI) intra_distances_.add(frames_);
    current_.reset();
    type_ = kPictureI;
}

// Whether the picture and the last one are the fields of one frame.
bool PictureCounter::is_second_field(const SliceIdentity& slice, const FrameCounts& frames) const {
    return first_field_ && first_field_counts_ == &frames && are_fields_of_one_frame(*first_field_, slice);
}

}  // namespace h264tool
