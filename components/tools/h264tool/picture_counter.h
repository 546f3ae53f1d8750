// Finds the pictures and frames that the slices of a stream make up.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "slice_identity.h"

namespace h264tool {

// Distances in frames, in decoding order, between pictures of a kind.
struct Distances {
    std::uint64_t pictures = 0;
    std::uint64_t shortest = 0;
    std::uint64_t longest = 0;
    std::uint64_t sum = 0;
    std::uint64_t last_frame = 0;

    void add(std::uint64_t frame);
    std::uint64_t count() const { return pictures > 0 ? pictures - 1 : 0; }
    double mean() const { return static_cast<double>(sum) / static_cast<double>(count()); }
};

// Frames by the way they are coded.
struct FrameCounts {
    std::uint64_t frame_pictures = 0;
    std::uint64_t field_pairs = 0;
    std::uint64_t single_fields = 0;  // whose frame has no other field

    std::uint64_t frames() const { return frame_pictures + field_pairs + single_fields; }
};

enum PictureType { kPictureI, kPictureP, kPictureB, kPictureTypes };

class PictureCounter {
public:
    // Takes the next slice of a primary coded picture in decoding order, and counts its frame with others of the same
    // sequence parameter set when it is the frame's first. frames stays where it is as long as this lives. Tells
    // whether the slice is its picture's first.
    bool add(const SliceIdentity& slice, FrameCounts& frames);
    // The picture is complete: a slice that follows belongs to another one.
    void end_picture();

    // Complete after end_picture(). A picture is I when all of its slices are I or SI, and B when one is B.
    const std::array<std::uint64_t, kPictureTypes>& pictures() const { return pictures_; }
    std::uint64_t idr_pictures() const { return idr_distances_.pictures; }
    std::uint64_t frames() const { return frames_; }
    // Of frames whose first or only picture is IDR, or I.
    const Distances& idr_distances() const { return idr_distances_; }
    const Distances& intra_distances() const { return intra_distances_; }

private:
    void count_picture();
    bool is_second_field(const SliceIdentity& slice, const FrameCounts& frames) const;

    PictureBoundaries boundaries_;
    std::optional<SliceIdentity> current_;  // the last slice of the picture that is not complete
    PictureType type_ = kPictureI;
    bool starts_frame_ = true;
    std::optional<SliceIdentity> first_field_;  // of the last picture, when it is a field whose frame has no other
    const FrameCounts* first_field_counts_ = nullptr;
    std::uint64_t frames_ = 0;
    std::array<std::uint64_t, kPictureTypes> pictures_{};
    Distances idr_distances_;
    Distances intra_distances_;
};

}  // namespace h264tool
