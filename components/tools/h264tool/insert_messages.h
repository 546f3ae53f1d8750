// The SEI units that h264tool insert puts in front of a picture.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "h264.h"
#include "insert_captions.h"
#include "insert_options.h"
#include "picture_order.h"

namespace h264tool {

// Numbered like pic_struct, ITU-T H.264 Table D-1.
enum class PictureStructure : std::uint8_t { kFrame, kTopField, kBottomField, kTopFieldFirst, kBottomFieldFirst };

PictureStructure picture_structure(const SliceIdentity& slice);

class InsertMessages {
public:
    // rate: of the stream, when one of the options wants it. Throws std::runtime_error for what cannot be done.
    InsertMessages(const InsertOptions& options, const std::optional<FrameRate>& rate);

    // Throws std::runtime_error when the messages of so many frames cannot be made.
    void check_fits(std::uint64_t frames) const;

    // Appends the units of a picture, one a kind.
    void append(const PictureOrder::Place& place, PictureStructure structure, std::vector<unsigned char>& bytes) const;

private:
    void append_timecode(std::uint64_t frame, PictureStructure structure, std::vector<unsigned char>& bytes) const;
    void append_captions(std::uint64_t frame, std::vector<unsigned char>& bytes) const;
    void append_precision_time(const PictureOrder::Place& place, std::vector<unsigned char>& bytes) const;
    std::uint64_t microseconds(std::uint64_t fields) const;

    InsertOptions options_;
    std::optional<FrameRate> rate_;
    std::optional<CaptionSchedule> captions_;
    TimecodeRate timecode_rate_;
    std::uint64_t first_number_ = 0;       // of the first frame's timecode
    std::vector<unsigned char> constant_;  // units that are the same for all pictures
};

}  // namespace h264tool
