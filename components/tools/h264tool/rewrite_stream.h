// Goes through a stream and makes the changes of h264tool rewrite.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "annexb_reader.h"
#include "parameter_sets.h"
#include "picture_order.h"
#include "rewrite_options.h"
#include "rewrite_sei.h"
#include "rewrite_sps.h"
#include "run_result.h"
#include "sei_messages.h"
#include "slice_identity.h"
#include "sps_properties.h"

namespace h264tool {

class RewriteStream {
public:
    // How much of a unit add() wants to see.
    static AnnexBReader::KeptBytes kept_bytes();

    // trial: has gone through the whole stream. Null when nothing has: all timecodes are the first one then.
    explicit RewriteStream(const RewriteOptions& options, const RewriteStream* trial = nullptr)
        : options_(options), trial_(trial) {}

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

    const RunResult& result() const { return result_; }

private:
    // A changed unit, or a unit with a picture timing message whose picture has not begun; both when another message
    // of that unit has changed.
    struct Pending {
        Change change;
        std::optional<NalUnit> timing;
    };

    bool examine(const NalUnit& unit);
    bool add_sps(const NalUnit& unit);
    bool add_sei(const NalUnit& unit);
    std::vector<unsigned char> rewrite_periods(const NalUnit& unit, SeiUnit sei);
    bool add_slice(const NalUnit& unit);
    void begin_picture(const NalUnit& unit, const SliceIdentity& slice);
    void check_rate(const NalUnit& unit, const sps_t& sps);
    void rewrite_timing(Pending& pending, const SliceIdentity& slice);
    Pending* waiting();
    void find_days();
    bool changes_timing() const { return options_.timecode || adds_pic_struct_; }

    const RewriteOptions& options_;
    const RewriteStream* trial_;
    ParameterSets sets_{0};
    std::vector<unsigned char> sps_unit_;  // the last sequence parameter set that was rewritten, whole
    RewrittenSps rewritten_sps_;
    std::array<std::unique_ptr<sps_t>, ParameterSets::kMaxSpsId + 1> changed_sps_;  // by id
    RunResult result_;
    PictureBoundaries boundaries_;
    PictureOrder order_;                  // of a trial, like what follows
    std::vector<std::size_t> timed_;      // the pictures with a picture timing message
    std::set<std::uint32_t> begins_day_;  // frames whose timecode is the first one behind midnight
    std::deque<Pending> pending_;
    std::optional<FrameRate> rate_;
    TimecodeRate timecode_rate_;
    std::uint64_t first_number_ = 0;  // of the first frame's timecode
    std::size_t pictures_ = 0;
    bool has_sps_ = false;
    bool adds_pic_struct_ = false;  // --pic-struct, and a sequence parameter set without
    bool has_timing_ = false;
    bool has_buffering_period_ = false;
};

}  // namespace h264tool
