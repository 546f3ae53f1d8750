// Picture timing and buffering period messages as h264tool rewrite changes them.
#pragma once

#include <optional>
#include <vector>

#include "annexb_reader.h"
#include "h264.h"
#include "rewrite_options.h"
#include "sei_messages.h"
#include "timecode.h"

namespace h264tool {

// What a picture timing message is to say; what is not there stays as it is.
struct TimingChange {
    std::optional<unsigned char> pic_struct;  // of a message that has none
    struct FrameTimecode {
        Timecode timecode;
        TimecodeRate rate;
        bool begins_again = false;  // behind 23:59:59
    };
    std::optional<FrameTimecode> timecode;
};

// Changes a unit whose only message is a picture timing message. before, after: the sequence parameter set as it is and
// as it will be. The result is empty when nothing changes. Throws std::runtime_error, whose text says why that cannot
// be done, as the other function does.
std::vector<unsigned char> rewrite_pic_timing(const NalUnit& unit, const SeiUnit& sei, const sps_t& before,
                                              const sps_t& after, const TimingChange& change);

// Changes a buffering period message among those of a unit: sei.bytes, the unit's payload. sps: null when there is
// none.
void rewrite_buffering_period(SeiUnit& sei, const SeiMessage& message, const sps_t* sps, const RewriteOptions& options);

}  // namespace h264tool
