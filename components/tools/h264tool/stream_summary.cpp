#include "stream_summary.h"

#include <algorithm>
#include <numeric>

#include "nal_types.h"
#include "sps_properties.h"
#include "stream_input.h"

namespace h264tool {
namespace {

constexpr std::size_t kSliceBytes = 256;

// Whether a unit stands before the slices of its access unit, ITU-T H.264 7.4.1.2.3.
bool precedes_slices(unsigned type) { return (type >= kSei && type <= kDelimiter) || (type >= 13 && type <= 18); }

}  // namespace

std::optional<double> Sequence::duration() const {
    const auto rate = frame_rate(sps.sps);
    if (!rate || frames.frames() == 0) return std::nullopt;
    return static_cast<double>(fields) / 2 / rate->value();
}

AnnexBReader::KeptBytes StreamSummary::kept_bytes() {
    AnnexBReader::KeptBytes kept{};
    for (const std::size_t type : {kSlice, kPartitionA, kIdrSlice}) kept[type] = kSliceBytes;
    for (const std::size_t type : {kSei, kSps, kPps, kSubsetSps}) kept[type] = kUnitBeginning;
    return kept;
}

void StreamSummary::add(const NalUnit& unit) {
    UnitCount& count = unit.has_header() ? units_by_type_.at(unit.type()) : units_without_header_;
    ++count.units;
    count.bytes += unit.length;
    trailing_zero_bytes_ += unit.trailing_zero_8bits;
    result_.count(unit, !unit.has_header() || !examine(unit));
    account(unit);
}

void StreamSummary::finish() {
    pictures_.end_picture();
    if (sequence_ != nullptr) sequence_->bytes += bytes_before_picture_;
}

// False when the unit is damaged.
bool StreamSummary::examine(const NalUnit& unit) {
    switch (unit.type()) {
        case kSlice:
        case kPartitionA:
        case kIdrSlice:
            return add_slice(unit);
        case kSei: {
            const SeiUnit sei = read_sei_unit(unit);
            for (const SeiMessage& message : sei.messages) ++sei_messages_[message.kind];
            pic_structs_.add(sei);
            return !sei.damaged;
        }
        case kSps: {
            const bool fine = sets_.read_sps(unit).empty();
            if (fine) sps_ids_.set(sets_.last_sps().seq_parameter_set_id);
            return fine;
        }
        case kPps: {
            const bool fine = sets_.read_pps(unit).empty();
            if (fine) pps_ids_.set(sets_.last_pps().pps.picture_parameter_set_id);
            return fine;
        }
        case kSubsetSps:
            sets_.read_subset_sps(unit);
            return true;
        case kDelimiter:
        case kEndOfSequence:
        case kEndOfStream:
            pictures_.end_picture();
            return true;
        default:
            return true;
    }
}

bool StreamSummary::add_slice(const NalUnit& unit) {
    SliceIdentity slice;
    const bool fine = identify_slice(unit, sets_, slice).empty();
    if (slice.beginning.readable) ++slices_.at(slice_kind(slice.beginning.slice_type));
    if (!fine || slice.redundant_pic_cnt > 0) return fine;
    select_sequence(*slice.beginning.sps);
    if (pictures_.add(slice, sequence_->frames))
        sequence_->fields += fields_shown(pic_structs_.take(slice.beginning.sps->sps), slice.field_pic_flag);
    return true;
}

void StreamSummary::select_sequence(const Sps& sps) {
    if (sequence_ != nullptr && sequence_->sps.bytes == sps.bytes) return;
    const auto known = std::find_if(sequences_.begin(), sequences_.end(),
                                    [&](const Sequence& sequence) { return sequence.sps.bytes == sps.bytes; });
    if (known != sequences_.end()) {
        sequence_ = &*known;
    } else if (sequences_.size() < kMaxSequences) {
        sequence_ = &sequences_.emplace_back(Sequence{sps, {}, 0, 0});
    } else {
        sequence_ = &left_out_;
        has_more_sequences_ = true;
    }
}

// Adds the unit's bytes to the sequence of its picture.
void StreamSummary::account(const NalUnit& unit) {
    bytes_before_picture_ += unit.length + unit.trailing_zero_8bits;
    if (sequence_ == nullptr || !unit.has_header() || precedes_slices(unit.type())) return;
    sequence_->bytes += bytes_before_picture_;
    bytes_before_picture_ = 0;
}

std::uint64_t StreamSummary::units() const {
    return std::accumulate(units_by_type_.begin(), units_by_type_.end(), units_without_header_.units,
                           [](std::uint64_t sum, const UnitCount& count) { return sum + count.units; });
}

std::uint64_t StreamSummary::unit_bytes() const {
    return std::accumulate(units_by_type_.begin(), units_by_type_.end(), units_without_header_.bytes,
                           [](std::uint64_t sum, const UnitCount& count) { return sum + count.bytes; });
}

std::optional<double> StreamSummary::duration() const {
    if (sequences_.empty() || has_more_sequences_) return std::nullopt;
    double sum = 0;
    for (const Sequence& sequence : sequences_) {
        if (sequence.frames.frames() == 0) continue;
        const std::optional<double> duration = sequence.duration();
        if (!duration) return std::nullopt;
        sum += *duration;
    }
    return sum;
}

}  // namespace h264tool
