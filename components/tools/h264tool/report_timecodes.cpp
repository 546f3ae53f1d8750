#include "report_timecodes.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace h264tool {
namespace {

// For streams that do not say how many frames a second has.
unsigned guessed_frames_per_second(std::span<const TimedFrame> frames) {
    unsigned most = 0;
    for (const TimedFrame& frame : frames)
        if (frame.timecode) most = std::max(most, frame.timecode->timecode.frames + 1);
    for (const unsigned usual : {24U, 25U, 30U, 50U, 60U})
        if (most <= usual) return usual;
    return most;
}

// Whether a number counts two frames, as at 50 and 60 frames a second with equipment made for half of that.
bool counts_pairs(std::span<const TimedFrame> frames) {
    std::size_t compared = 0;
    std::size_t equal = 0;
    for (std::size_t i = 1; i < frames.size(); ++i) {
        if (!frames[i].timecode || !frames[i - 1].timecode) continue;
        ++compared;
        if (frames[i].timecode->timecode == frames[i - 1].timecode->timecode) ++equal;
    }
    return equal * 4 > compared && equal * 4 < compared * 3;
}

class JumpFinder {
public:
    explicit JumpFinder(std::span<const TimedFrame> frames)
        : frames_(frames), guess_(guessed_frames_per_second(frames)), pairs_(counts_pairs(frames)) {}

    std::vector<TimecodeJump> find() {
        for (std::size_t i = 0; i < frames_.size(); ++i) {
            if (frames_[i].timecode) look_at(i);
            elapsed_fields_ += frames_[i].fields;
        }
        return std::move(jumps_);
    }

private:
    static constexpr unsigned kLeastRateOfPairs = 48;

    void look_at(std::size_t i) {
        const PictureTimecode& timecode = *frames_[i].timecode;
        TimecodeRate rate{frames_[i].frames_per_second != 0 ? frames_[i].frames_per_second : guess_, false};
        const bool pairs = pairs_ && rate.frames_per_second >= kLeastRateOfPairs;
        if (pairs) rate.frames_per_second = (rate.frames_per_second + 1) / 2;
        rate.drop_frame = timecode.drop_frame && rate.frames_per_second % 30 == 0;
        if (!exists(timecode.timecode, rate)) {
            jumps_.push_back({i, std::nullopt});
            known_ = false;
            return;
        }
        const auto number = static_cast<std::int64_t>(frame_number(timecode.timecode, rate));
        if (known_ && (rate.drop_frame != rate_.drop_frame || rate.frames_per_second != rate_.frames_per_second)) {
            jumps_.push_back({i, std::nullopt});
            known_ = false;
        }
        if (!known_)
            begin(number);
        else
            compare(i, number, rate, pairs);
        known_ = true;
        rate_ = rate;
        elapsed_fields_ = 0;
        look_at_others(i, number, rate);
    }

    // They count on from the frame's first timecode, at most to the end of the frame. One jump is told of a frame.
    void look_at_others(std::size_t i, std::int64_t number, const TimecodeRate& rate) {
        if (!jumps_.empty() && jumps_.back().frame == i) return;
        const TimedFrame& frame = frames_[i];
        for (const PictureTimecode& other : frame.others) {
            if (!exists(other.timecode, rate) || other.drop_frame != frame.timecode->drop_frame) {
                jumps_.push_back({i, std::nullopt});
                return;
            }
            const std::int64_t step =
                step_of_day(static_cast<std::int64_t>(frame_number(other.timecode, rate)) - number, rate);
            if (step < 0 || step > (frame.fields + 1) / 2) {
                jumps_.push_back({i, step});
                return;
            }
        }
    }

    // The shorter way, across midnight or not.
    static std::int64_t step_of_day(std::int64_t step, const TimecodeRate& rate) {
        const auto day = static_cast<std::int64_t>(frame_number({23, 59, 59, rate.frames_per_second - 1}, rate)) + 1;
        step %= day;
        if (step > day / 2) step -= day;
        if (step < -day / 2) step += day;
        return step;
    }

    void begin(std::int64_t number) {
        number_ = number;
        second_of_pair_ = std::nullopt;
    }

    void compare(std::size_t i, std::int64_t number, const TimecodeRate& rate, bool pairs) {
        const std::int64_t step = step_of_day(number - number_, rate);
        // In fields, by which pictures that last three of them are no gap.
        std::int64_t step_fields = step * 2;
        if (pairs) {
            const bool second = step == 0;
            if (!second_of_pair_) second_of_pair_ = !second;
            step_fields = step * 4 + (second ? 2 : 0) - (*second_of_pair_ ? 2 : 0);
            second_of_pair_ = second;
        }
        number_ = number;
        const std::int64_t by = step_fields - elapsed_fields_;
        if (std::abs(by) > 1) jumps_.push_back({i, by / 2});
    }

    std::span<const TimedFrame> frames_;
    const unsigned guess_;
    const bool pairs_;
    std::vector<TimecodeJump> jumps_;
    // The last timecode.
    bool known_ = false;
    TimecodeRate rate_;
    std::int64_t number_ = 0;
    std::optional<bool> second_of_pair_;  // nothing when that is open
    std::int64_t elapsed_fields_ = 0;     // since then
};

}  // namespace

std::vector<TimecodeJump> find_timecode_jumps(std::span<const TimedFrame> frames) { return JumpFinder(frames).find(); }

}  // namespace h264tool
