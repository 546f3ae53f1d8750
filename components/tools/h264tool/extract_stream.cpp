#include "extract_stream.h"

#include <utility>

#include "nal_types.h"
#include "stream_input.h"
#include "text.h"

namespace h264tool {
namespace {

constexpr std::size_t kSliceBytes = 4096;  // enough for the longest header that a level allows
constexpr std::size_t kMaxPendingBytes = std::size_t{1024} * 1024;
constexpr std::size_t kMaxComplaints = 10;
constexpr std::size_t kTriplesIndex = 10;  // in the payload: identifiers, flags with cc_count, em_data

bool operator==(const FrameRate& a, const FrameRate& b) {
    return a.numerator == b.numerator && a.denominator == b.denominator;
}

}  // namespace

AnnexBReader::KeptBytes StreamExtract::kept_bytes() {
    AnnexBReader::KeptBytes kept{};
    for (const std::size_t type : {kSlice, kPartitionA, kIdrSlice}) kept[type] = kSliceBytes;
    for (const std::size_t type : {kSei, kSps, kPps, kSubsetSps}) kept[type] = kUnitBeginning;
    return kept;
}

void StreamExtract::add(const NalUnit& unit) {
    if (!unit.has_header()) {
        count(unit, "no NAL unit header behind the start code");
    } else if (unit.type() != kSei) {
        count(unit, examine(unit));
    } else if (pending_bytes_ + unit.bytes.size() > kMaxPendingBytes) {
        count(unit, "too many SEI units without a picture");
    } else {
        pending_bytes_ += unit.bytes.size();
        pending_.push_back(unit);
    }
}

void StreamExtract::finish() {
    for (const NalUnit& unit : std::exchange(pending_, {})) count(unit, "no picture follows");
    order_.finish();
}

void StreamExtract::count(const NalUnit& unit, const std::string& damage) {
    result_.count(unit, !damage.empty());
    if (damage.empty() || complaints_.size() >= kMaxComplaints) return;
    complaints_.push_back("unit " + std::to_string(unit.number) + " at offset " + std::to_string(unit.offset) + ": " +
                          damage);
}

// Returns why the unit cannot be parsed, empty when it can.
std::string StreamExtract::examine(const NalUnit& unit) {
    switch (unit.type()) {
        case kSlice:
        case kPartitionA:
        case kIdrSlice:
            return add_slice(unit);
        case kSps:
            return sets_.read_sps(unit);
        case kPps:
            return sets_.read_pps(unit);
        case kSubsetSps:
            sets_.read_subset_sps(unit);
            return {};
        case kDelimiter:
        case kEndOfSequence:
        case kEndOfStream:
            boundaries_.end_picture();
            return {};
        default:
            return {};
    }
}

std::string StreamExtract::add_slice(const NalUnit& unit) {
    SliceIdentity identity;
    std::string damage = identify_slice(unit, sets_, identity);
    if (damage.empty() && boundaries_.starts_picture(identity)) begin_picture(unit, identity);
    if (damage.empty()) return {};
    // They belong to a picture that is not known.
    for (const NalUnit& pending : std::exchange(pending_, {})) count(pending, "its picture cannot be read");
    pending_bytes_ = 0;
    return damage;
}

void StreamExtract::begin_picture(const NalUnit& unit, const SliceIdentity& identity) {
    const sps_t& sps = identity.beginning.sps->sps;
    Slice slice;
    if (!parse_slice(unit, sets_, slice).empty()) slice = Slice();
    order_.add(slice, identity);
    slice_kinds_.push_back(slice_kind(identity.beginning.slice_type));
    const std::optional<FrameRate> rate = frame_rate(sps);
    if (rates_.empty() || rates_.back().rate.has_value() != rate.has_value() ||
        (rate && !(*rates_.back().rate == *rate)))
        rates_.push_back({static_cast<std::uint32_t>(order_.pictures() - 1), rate});
    for (const NalUnit& pending : std::exchange(pending_, {})) count(pending, read_messages(pending, sps));
    pending_bytes_ = 0;
}

std::string StreamExtract::read_messages(const NalUnit& unit, const sps_t& sps) {
    const SeiUnit sei = read_sei_unit(unit);
    std::string damage;
    if (sei.cut)
        damage = "too long: " + count_of(unit.length, "byte") + ", " + std::to_string(kUnitBeginning) + " are read";
    if (sei.damaged) damage = "SEI message at " + std::to_string(sei.end) + " runs past the end of the unit";
    for (const SeiMessage& message : sei.messages) {
        if (!is_wanted(message) || !sei.has_whole(message)) continue;
        SeiRecord record;
        const std::string failure = read_sei_record(sei, message, &sps, record);
        if (damage.empty()) damage = failure;
        if (failure.empty()) store(sei, message, record);
    }
    return damage;
}

bool StreamExtract::is_wanted(const SeiMessage& message) const {
    switch (message.kind.payload_type) {
        case kPicTiming:
            return selection_.timestamps;
        case kUserDataRegistered:
            return selection_.captions || selection_.formats;
        case kUserDataUnregistered:
            return selection_.times;
        default:
            return false;
    }
}

void StreamExtract::store(const SeiUnit& unit, const SeiMessage& message, const SeiRecord& record) {
    const auto picture = static_cast<std::uint32_t>(order_.pictures() - 1);
    if (const auto* const captions = std::get_if<SEI_cc_t>(&record)) {
        if (!selection_.captions) return;
        const auto triples = unit.payload(message).subspan(kTriplesIndex, std::size_t{captions->cc_data.cc_count} * 3);
        captions_.push_back({picture, captions->cc_data.process_cc_data_flag != 0, {triples.begin(), triples.end()}});
    } else if (const auto* const format = std::get_if<SEI_afd_t>(&record)) {
        if (!selection_.formats) return;
        formats_.push_back({picture, {}});
        if (format->afd_data.active_format_flag != 0) formats_.back().active_format = format->afd_data.active_format;
    } else if (const auto* const timing = std::get_if<sei_pic_timing_t>(&record)) {
        store_timestamps(*timing);
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
        clock_.picture = static_cast<std::uint32_t>(order_.pictures() - 1);
        clock_.number = static_cast<unsigned char>(i);
        clock_.frames = timestamp.n_frames;
        clock_.drop_frame = timestamp.counting_type == kNtscDropFrame || timestamp.cnt_dropped_flag != 0;
        clock_.discontinuity = timestamp.discontinuity_flag != 0;
        timestamps_.push_back(clock_);
    }
}

}  // namespace h264tool
