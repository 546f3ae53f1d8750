// What SEI messages say about the pictures of a stream.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "picture_messages.h"
#include "sps_properties.h"

namespace h264tool {

// Pictures are numbered in decoding order, from 0.

// A clock timestamp of a picture. Parts that it does not transmit are those of the last one that did, ITU-T H.264
// D.2.3.
struct ClockTimestamp {
    std::uint32_t picture = 0;
    unsigned char number = 0;  // among those of the picture, from 0
    std::optional<unsigned char> hours;
    std::optional<unsigned char> minutes;
    std::optional<unsigned char> seconds;
    unsigned char frames = 0;
    bool drop_frame = false;
    bool discontinuity = false;
};

struct PictureCaptions {
    std::uint32_t picture = 0;
    bool processed = false;              // process_cc_data_flag
    std::vector<unsigned char> triples;  // as transmitted, three bytes each
};

struct PictureFormat {
    std::uint32_t picture = 0;
    std::optional<unsigned char> active_format;  // nothing when active_format_flag is 0
};

struct PictureTime {
    std::uint32_t picture = 0;
    PrecisionTime time;
};

// From a picture on.
struct RateChange {
    std::uint32_t picture = 0;
    std::optional<FrameRate> rate;
};

// What is wanted of a stream.
struct ExtractSelection {
    bool timestamps = false;
    bool durations = false;
    bool captions = false;
    bool formats = false;
    bool times = false;
};

class StreamExtract : public PictureMessages {
public:
    explicit StreamExtract(const ExtractSelection& selection) : selection_(selection) {}

    // The type of a picture's first slice.
    SliceKind slice_kind_of(std::uint32_t picture) const { return slice_kinds_.at(picture); }
    const std::vector<ClockTimestamp>& timestamps() const { return timestamps_; }
    const std::vector<PictureCaptions>& captions() const { return captions_; }
    const std::vector<PictureFormat>& formats() const { return formats_; }
    const std::vector<PictureTime>& times() const { return times_; }
    const std::vector<RateChange>& rates() const { return rates_; }
    // For how many fields each picture is shown; what repeats is known when durations were selected.
    const std::vector<std::uint8_t>& fields() const { return fields_; }

private:
    void begin_picture(const NalUnit& unit, const SliceIdentity& identity) override;
    bool is_wanted(const SeiMessage& message) const override;
    void store(const SeiUnit& unit, const SeiMessage& message, const SeiRecord& record, const sps_t& sps) override;
    void store_timestamps(const sei_pic_timing_t& timing);

    const ExtractSelection selection_;
    ClockTimestamp clock_;  // the last values of its parts
    std::vector<SliceKind> slice_kinds_;
    std::vector<ClockTimestamp> timestamps_;
    std::vector<PictureCaptions> captions_;
    std::vector<PictureFormat> formats_;
    std::vector<PictureTime> times_;
    std::vector<RateChange> rates_;
    std::vector<std::uint8_t> fields_;
};

}  // namespace h264tool
