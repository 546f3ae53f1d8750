#include "extract_stream.h"

#include <utility>

#include "nal_types.h"
#include "pic_struct.h"

namespace h264tool {
namespace {

constexpr std::size_t kTriplesIndex = 10;  // in the payload: identifiers, flags with cc_count, em_data

bool operator==(const FrameRate& a, const FrameRate& b) {
    return a.numerator == b.numerator && a.denominator == b.denominator;
}

}  // namespace

void StreamExtract::begin_picture(const NalUnit&, const SliceIdentity& identity) {
    slice_kinds_.push_back(slice_kind(identity.beginning.slice_type));
    fields_.push_back(fields_shown({}, identity.field_pic_flag));
    const std::optional<FrameRate> rate = frame_rate(identity.beginning.sps->sps);
    if (rates_.empty() || rates_.back().rate.has_value() != rate.has_value() ||
        (rate && !(*rates_.back().rate == *rate)))
        rates_.push_back({static_cast<std::uint32_t>(order().pictures() - 1), rate});
}

bool StreamExtract::is_wanted(const SeiMessage& message) const {
    switch (message.kind.payload_type) {
        case kPicTiming:
            return selection_.timestamps || selection_.durations;
        case kUserDataRegistered:
            return selection_.captions || selection_.formats;
        case kUserDataUnregistered:
            return selection_.times;
        default:
            return false;
    }
}

void StreamExtract::store(const SeiUnit& unit, const SeiMessage& message, const SeiRecord& record, const sps_t& sps) {
    const auto picture = static_cast<std::uint32_t>(order().pictures() - 1);
    if (const auto* const captions = std::get_if<SEI_cc_t>(&record)) {
        if (!selection_.captions) return;
        const auto triples = unit.payload(message).subspan(kTriplesIndex, std::size_t{captions->cc_data.cc_count} * 3);
        captions_.push_back({picture, captions->cc_data.process_cc_data_flag != 0, {triples.begin(), triples.end()}});
    } else if (const auto* const format = std::get_if<SEI_afd_t>(&record)) {
        if (!selection_.formats) return;
        formats_.push_back({picture, {}});
        if (format->afd_data.active_format_flag != 0) formats_.back().active_format = format->afd_data.active_format;
    } else if (const auto* const timing = std::get_if<sei_pic_timing_t>(&record)) {
        if (sps.vui.pic_struct_present_flag != 0)
            fields_.back() = fields_shown(timing->pic_struct, fields_.back() == 1);
        if (selection_.timestamps) store_timestamps(*timing);
    } else if (const auto* const data = std::get_if<UnregisteredData>(&record)) {
        if (data->time) times_.push_back({picture, *data->time});
    }
}

void StreamExtract::store_timestamps(const sei_pic_timing_t& timing) {
    constexpr unsigned kNtscDropFrame = 4;  // counting_type
    for (int i = 0; i < timing.NumClockTS; ++i) {
        const clock_timestamp_info_t& timestamp = timing.clock_timestamp_info[i];
        if (timestamp.clock_timestamp_flag == 0) continue;
        if (timestamp.seconds_flag != 0) clock_.seconds = timestamp.seconds_value;
        if (timestamp.minutes_flag != 0) clock_.minutes = timestamp.minutes_value;
        if (timestamp.hours_flag != 0) clock_.hours = timestamp.hours_value;
        clock_.picture = static_cast<std::uint32_t>(order().pictures() - 1);
        clock_.number = static_cast<unsigned char>(i);
        clock_.frames = timestamp.n_frames;
        clock_.drop_frame = timestamp.counting_type == kNtscDropFrame || timestamp.cnt_dropped_flag != 0;
        clock_.discontinuity = timestamp.discontinuity_flag != 0;
        timestamps_.push_back(clock_);
    }
}

}  // namespace h264tool
