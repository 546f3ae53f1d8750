#include "insert_captions.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "insert_options.h"

namespace h264tool {
namespace {

constexpr std::uint64_t kMostTriples = 31;
constexpr std::uint64_t kTriplesPerSecond = 600;

std::string name_of(const SccLine& line) {
    return "line " + std::to_string(line.number) + " at " + to_text(line.start, line.drop_frame);
}

// The frame of a timecode in an SCC file's counting, whether or not it leaves it out.
std::uint64_t scc_frame(Timecode timecode, bool drop_frame) {
    const TimecodeRate rate{kSccFramesPerSecond, drop_frame};
    while (!exists(timecode, rate)) ++timecode.frames;
    return frame_number(timecode, rate);
}

}  // namespace

CaptionSchedule::CaptionSchedule(const std::vector<SccLine>& lines, const FrameRate& rate,
                                 const std::optional<ParsedTimecode>& first, unsigned frames_per_second)
    : rate_(rate) {
    Timecode zero;
    if (first) {
        zero = first->timecode;
        zero.frames = zero.frames * kSccFramesPerSecond / frames_per_second;
    }
    std::uint64_t end = 0;
    for (const SccLine& line : lines) {
        if (first && first->drop_frame != line.drop_frame)
            throw std::runtime_error(name_of(line) +
                                     (line.drop_frame ? " counts with drop frame, --timecode without"
                                                      : " counts without drop frame, --timecode with") +
                                     ": they must count in the same way");
        const std::uint64_t from = scc_frame(zero, line.drop_frame);
        std::uint64_t to = scc_frame(line.start, line.drop_frame);
        if (to < from) {
            const std::uint64_t day = scc_frame({23, 59, 59, kSccFramesPerSecond - 1}, line.drop_frame) + 1;
            if (from - to <= day / 2)
                throw std::runtime_error(name_of(line) + " begins before the stream (" +
                                         to_text(first->timecode, first->drop_frame) + ')');
            to += day;  // the next one
        }
        lines_.push_back({to - from, &line});
        if (lines_.back().begin < end)
            throw std::runtime_error(name_of(line) +
                                     " begins before the end of the line in front of it: lines must be in order "
                                     "and must not overlap");
        end = lines_.back().end();
    }
    const std::uint64_t most_pairs = multiply_divide(1, rate.denominator * 30000, rate.numerator * 1001, Rounding::kUp);
    if (most_pairs > kMostTriples)
        throw std::runtime_error("frames of less than one a second are too long to carry their captions");
    const std::uint64_t rounded = (2 * kTriplesPerSecond * rate.denominator + rate.numerator) / (2 * rate.numerator);
    triples_ = static_cast<unsigned>(std::clamp<std::uint64_t>(rounded, 1, kMostTriples));
}

std::vector<std::uint16_t> CaptionSchedule::pairs(std::uint64_t frame) const {
    std::vector<std::uint16_t> pairs;
    const std::uint64_t end = first_of(frame + 1);
    for (std::uint64_t i = first_of(frame); i < end; ++i) pairs.push_back(pair(i));
    return pairs;
}

void CaptionSchedule::check_fits(std::uint64_t frames) const {
    const std::uint64_t end = first_of(frames);
    for (const Line& line : lines_)
        if (line.end() > end)
            throw std::runtime_error(name_of(*line.line) + " does not end before the stream does, " +
                                     std::to_string(end) + " caption frames from its beginning");
}

// The first SCC frame that begins when a frame of the stream begins, or later.
std::uint64_t CaptionSchedule::first_of(std::uint64_t frame) const {
    return multiply_divide(frame, rate_.denominator * 30000, rate_.numerator * 1001, Rounding::kUp);
}

std::uint16_t CaptionSchedule::pair(std::uint64_t scc_frame) const {
    const auto next = std::upper_bound(lines_.begin(), lines_.end(), scc_frame,
                                       [](std::uint64_t frame, const Line& line) { return frame < line.begin; });
    if (next == lines_.begin()) return kSccNullPair;
    const Line& line = next[-1];
    return scc_frame < line.end() ? line.line->pairs[scc_frame - line.begin] : kSccNullPair;
}

}  // namespace h264tool
