// How long pictures are shown, by their picture timing messages.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "h264.h"
#include "sei_messages.h"

namespace h264tool {

// The last pic_struct, ITU-T H.264 Table D-1, that repeats no field and no frame.
constexpr unsigned kLastWithoutRepetition = 4;

// Fields for which a picture is shown, ITU-T H.264 Table E-6. pic_struct: nothing when there is none.
std::uint8_t fields_shown(std::optional<unsigned> pic_struct, bool is_field);

// Picture timing messages wait here for their picture, by whose sequence parameter set they are read.
class PicStructs {
public:
    // Takes the next SEI unit.
    void add(const SeiUnit& unit);
    // pic_struct of the picture that begins; nothing when no message tells it.
    std::optional<unsigned> take(const sps_t& sps);

private:
    std::vector<SeiUnit> units_;
};

}  // namespace h264tool
