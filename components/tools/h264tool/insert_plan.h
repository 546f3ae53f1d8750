// The places at which h264tool insert changes a stream.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "annexb_reader.h"
#include "insert_messages.h"
#include "insert_options.h"
#include "parameter_sets.h"
#include "pic_struct.h"
#include "picture_order.h"
#include "run_result.h"
#include "slice_identity.h"

namespace h264tool {

class InsertPlan {
public:
    // How much of a unit add() wants to see.
    static AnnexBReader::KeptBytes kept_bytes();

    explicit InsertPlan(const InsertOptions& options) : options_(options), rate_(options.frame_rate) {}

    // Takes the next unit of the stream. Throws std::runtime_error, whose text names the unit, when the stream cannot
    // get what is to be inserted; so does finish().
    void add(const NalUnit& unit);
    // The stream has ended.
    void finish();

    // A place in the stream and what happens there.
    struct Point {
        enum Kind : std::uint8_t { kDelimiter, kParameterSet, kPicture, kEndOfSequence };
        std::uint64_t offset = 0;
        // Of a delimiter primary_pic_type, of a parameter set its index, of a picture its PictureStructure.
        std::uint32_t value = 0;
        Kind kind = kPicture;
    };
    // In order of offsets. The pictures are in decoding order.
    const std::vector<Point>& points() const { return points_; }

    // A sequence parameter set with pic_struct_present_flag 0, and what it is with 1.
    struct ParameterSet {
        std::uint64_t length = 0;
        std::vector<unsigned char> changed;
        bool used = false;  // by a picture; others stay as they are
    };
    const ParameterSet& parameter_set(const Point& point) const { return parameter_sets_.at(point.value); }

    const PictureOrder& order() const { return order_; }
    const std::optional<FrameRate>& rate() const { return rate_; }
    const RunResult& result() const { return result_; }

private:
    bool examine(const NalUnit& unit);
    bool add_slice(const NalUnit& unit);
    bool add_sei(const NalUnit& unit);
    bool add_sps(const NalUnit& unit);
    void begin_picture(const NalUnit& unit, const SliceIdentity& identity);
    void end_picture();
    void complete_delimiter();
    void check_sequence(const NalUnit& unit, const SliceIdentity& slice);
    void check_repetition(const NalUnit& unit, const SliceIdentity& slice);
    void flush_pending();

    const InsertOptions& options_;
    ParameterSets sets_{0};
    RunResult result_;
    PictureBoundaries boundaries_;
    PictureOrder order_;
    PicStructs pic_structs_;
    std::optional<FrameRate> rate_;
    std::vector<Point> points_;
    std::vector<Point> pending_;  // of the access unit whose picture has not begun
    std::vector<ParameterSet> parameter_sets_;
    std::map<std::string, std::uint32_t> parameter_set_numbers_;  // by the bytes of their units
    std::array<std::optional<std::uint32_t>, ParameterSets::kMaxSpsId + 1> current_sets_;  // by id

    std::optional<std::uint64_t> access_unit_;  // where the next one begins
    bool access_unit_goes_on_ = false;          // a slice was found in it that cannot be read
    bool has_delimiter_ = false;                // of the next access unit
    std::optional<std::uint64_t> prefix_;       // a prefix NAL unit directly in front of the current unit
    std::optional<std::size_t> delimiter_;      // point of the current picture
    unsigned slice_kinds_ = 0;                  // of the current picture, a bit each
    bool ended_ = false;                        // by an end of sequence unit behind the last slice
    std::optional<std::uint64_t> end_of_stream_;
    std::uint64_t size_ = 0;
};

}  // namespace h264tool
