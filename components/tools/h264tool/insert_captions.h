// Which caption bytes the frames of a stream carry.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "scc.h"
#include "sps_properties.h"

namespace h264tool {

// The frames of an SCC file, one pair each, spread over the frames of a stream by time. Each is carried once and in
// order, null pairs where the file has none.
class CaptionSchedule {
public:
    // first: the timecode of the stream's first frame and how many frames a second it counts; the file counts from
    // 00:00:00:00 without. What is more than half a day before it is on the next day. Throws std::runtime_error when
    // lines are before it, are not in order or overlap, when they count with drop frame and it does not or the other
    // way round, and when a frame would carry more pairs than a message has room for.
    CaptionSchedule(const std::vector<SccLine>& lines, const FrameRate& rate,
                    const std::optional<ParsedTimecode>& first, unsigned frames_per_second);

    // The pairs of a frame, counted in output order from 0.
    std::vector<std::uint16_t> pairs(std::uint64_t frame) const;
    // cc_count of all messages, at the constant rate of ATSC A/53: 9600 bits a second.
    unsigned triples() const { return triples_; }

    // Throws std::runtime_error when a line does not end before the last frame does.
    void check_fits(std::uint64_t frames) const;

private:
    struct Line {
        std::uint64_t begin;  // SCC frames
        const SccLine* line;

        std::uint64_t end() const { return begin + line->pairs.size(); }
    };
    std::uint64_t first_of(std::uint64_t frame) const;
    std::uint16_t pair(std::uint64_t scc_frame) const;

    FrameRate rate_;
    unsigned triples_;
    std::vector<Line> lines_;
};

}  // namespace h264tool
