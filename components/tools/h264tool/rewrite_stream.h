// Goes through a stream and makes the changes of h264tool rewrite.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "annexb_reader.h"
#include "parameter_sets.h"
#include "picture_order.h"
#include "rewrite_options.h"
#include "rewrite_sei.h"
#include "run_result.h"
#include "slice_identity.h"
#include "sps_properties.h"

namespace h264tool {

class RewriteStream {
public:
    // How much of a unit add() wants to see.
    static AnnexBReader::KeptBytes kept_bytes();

    // order: of the pictures of the whole stream. Null when it is not known yet: all timecodes are the first one then.
    explicit RewriteStream(const RewriteOptions& options, const PictureOrder* order = nullptr)
        : options_(options), places_(order) {}

    // Takes the next unit of the stream. Throws std::runtime_error, whose text names the unit, when the stream cannot
    // be changed as it is wanted; so does finish().
    void add(const NalUnit& unit);
    // The stream has ended.
    void finish();

    // A unit that is replaced.
    struct Change {
        std::uint64_t offset = 0;
        std::uint64_t length = 0;
        std::vector<unsigned char> unit;
    };
    // Takes the next change in order of offsets, of those that are known by now. False when there is none.
    bool take(Change& change);

    // Complete after finish(), and only when it was not given.
    const PictureOrder& order() const { return order_; }
    const RunResult& result() const { return result_; }

private:
    // A changed unit, or a unit with a picture timing message whose picture has not begun.
    struct Pending {
        Change change;
        std::optional<NalUnit> timing;
    };

    bool examine(const NalUnit& unit);
    bool add_sps(const NalUnit& unit);
    bool add_sei(const NalUnit& unit);
    bool add_slice(const NalUnit& unit);
    void begin_picture(const NalUnit& unit, const SliceIdentity& slice);
    void check_rate(const NalUnit& unit, const sps_t& sps);
    void rewrite_timing(Pending& pending, const SliceIdentity& slice);
    Pending* waiting();

    const RewriteOptions& options_;
    const PictureOrder* places_;
    ParameterSets sets_{0};
    std::array<std::unique_ptr<sps_t>, ParameterSets::kMaxSpsId + 1> changed_sps_;  // by id
    RunResult result_;
    PictureBoundaries boundaries_;
    PictureOrder order_;
    std::deque<Pending> pending_;
    std::optional<FrameRate> rate_;
    TimecodeRate timecode_rate_;
    std::uint64_t first_number_ = 0;  // of the first frame's timecode
    std::size_t pictures_ = 0;
    bool has_sps_ = false;
    bool has_timing_ = false;
    bool has_buffering_period_ = false;
};

}  // namespace h264tool
