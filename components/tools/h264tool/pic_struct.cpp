#include "pic_struct.h"

#include <algorithm>
#include <array>

#include "sei_records.h"

namespace h264tool {
namespace {

constexpr std::size_t kMostUnits = 16;  // that wait; a picture has one

bool is_picture_timing(const SeiMessage& message) { return message.kind.payload_type == kPicTiming; }

}  // namespace

std::uint8_t fields_shown(std::optional<unsigned> pic_struct, bool is_field) {
    constexpr std::array<std::uint8_t, 9> kFieldsOfFrame{2, 2, 2, 2, 2, 3, 3, 4, 6};
    if (is_field) return 1;
    return pic_struct && *pic_struct < kFieldsOfFrame.size() ? kFieldsOfFrame[*pic_struct] : 2;
}

void PicStructs::add(const SeiUnit& unit) {
    if (units_.size() < kMostUnits && std::any_of(unit.messages.begin(), unit.messages.end(), is_picture_timing))
        units_.push_back(unit);
}

std::optional<unsigned> PicStructs::take(const sps_t& sps) {
    std::optional<unsigned> pic_struct;
    for (const SeiUnit& unit : units_)
        for (const SeiMessage& message : unit.messages) {
            SeiRecord record;
            if (sps.vui.pic_struct_present_flag == 0 || !is_picture_timing(message) || !unit.has_whole(message) ||
                !read_sei_record(unit, message, &sps, record).empty())
                continue;
            if (const auto* const timing = std::get_if<sei_pic_timing_t>(&record)) pic_struct = timing->pic_struct;
        }
    units_.clear();
    return pic_struct;
}

}  // namespace h264tool
