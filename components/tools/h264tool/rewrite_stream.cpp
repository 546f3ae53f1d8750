#include "rewrite_stream.h"

#include <algorithm>
#include <cinttypes>
#include <stdexcept>
#include <utility>

#include "insert_messages.h"
#include "insert_options.h"
#include "nal_types.h"
#include "rewrite_unit.h"
#include "sei_messages.h"
#include "stream_input.h"
#include "text.h"

namespace h264tool {
namespace {

constexpr std::size_t kSliceBytes = 4096;  // enough for the longest header that a level allows
constexpr std::size_t kSeiBytes = std::size_t{1} << 20;

[[noreturn]] void refuse(const NalUnit& unit, const std::string& reason) {
    throw std::runtime_error(format("unit %" PRIu64 " at offset %" PRIu64 ": ", unit.number, unit.offset) + reason);
}

// Names the unit in front of what an action throws.
template <class Action>
void about(const NalUnit& unit, const Action& action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        refuse(unit, error.what());
    } catch (const std::invalid_argument& error) {
        refuse(unit, error.what());
    }
}

}  // namespace

AnnexBReader::KeptBytes RewriteStream::kept_bytes() {
    AnnexBReader::KeptBytes kept{};
    for (const std::size_t type : {kSlice, kPartitionA, kIdrSlice}) kept[type] = kSliceBytes;
    for (const std::size_t type : {kSps, kPps, kSubsetSps}) kept[type] = kUnitBeginning;
    kept[kSei] = kSeiBytes;
    return kept;
}

void RewriteStream::add(const NalUnit& unit) { result_.count(unit, !unit.has_header() || !examine(unit)); }

// False when the unit is damaged.
bool RewriteStream::examine(const NalUnit& unit) {
    switch (unit.type()) {
        case kSlice:
        case kPartitionA:
        case kIdrSlice:
            return add_slice(unit);
        case kSei:
            return add_sei(unit);
        case kSps:
            return add_sps(unit);
        case kPps:
            return sets_.read_pps(unit).empty();
        case kSubsetSps:
            sets_.read_subset_sps(unit);
            return true;
        case kDelimiter:
        case kEndOfSequence:
        case kEndOfStream:
            boundaries_.end_picture();
            return true;
        default:
            return true;
    }
}

bool RewriteStream::add_sps(const NalUnit& unit) {
    const std::string failure = sets_.read_sps(unit);
    if (!options_.changes_sps()) return failure.empty();
    if (!failure.empty()) refuse(unit, failure);
    has_sps_ = true;
    about(unit, [&] {
        // Streams repeat their sets.
        if (unit.bytes != sps_unit_) {
            rewritten_sps_ = rewrite_sps(unit, options_);
            sps_unit_ = unit.bytes;
        }
        const sps_t& sps = rewritten_sps_.sps;
        const Sps* const before = sets_.sps(sps.seq_parameter_set_id);
        if (options_.pic_struct && before->sps.vui.pic_struct_present_flag == 0) adds_pic_struct_ = true;
        changed_sps_.at(sps.seq_parameter_set_id) = std::make_unique<sps_t>(sps);
        if (!rewritten_sps_.unit.empty())
            pending_.push_back({{unit.offset, unit.length, rewritten_sps_.unit}, std::nullopt});
    });
    return true;
}

bool RewriteStream::add_sei(const NalUnit& unit) {
    const SeiUnit sei = read_sei_unit(unit);
    if (!changes_timing() && options_.initial_cpb_delays.empty()) return !sei.damaged;
    if (sei.cut)
        refuse(unit, "the SEI unit is too long to be looked through: " + count_of(unit.length, "byte") + ", " +
                         std::to_string(kSeiBytes) + " are kept");
    Pending pending{{unit.offset, unit.length, rewrite_periods(unit, sei)}, std::nullopt};
    const bool timing = std::any_of(sei.messages.begin(), sei.messages.end(),
                                    [](const SeiMessage& message) { return message.kind.payload_type == kPicTiming; });
    if (timing && changes_timing()) {
        has_timing_ = true;
        if (sei.damaged) refuse(unit, "a message runs past the unit's end");
        if (waiting() != nullptr)
            refuse(unit, "it is the second picture timing message since the last picture that can be read");
        pending.timing = unit;
    }
    if (pending.timing || !pending.change.unit.empty()) pending_.push_back(std::move(pending));
    return !sei.damaged;
}

// The unit with changed buffering period messages; empty when nothing changes.
std::vector<unsigned char> RewriteStream::rewrite_periods(const NalUnit& unit, SeiUnit sei) {
    std::vector<unsigned char> result;
    if (options_.initial_cpb_delays.empty()) return result;
    const std::vector<unsigned char> payload = sei.bytes;
    about(unit, [&] {
        for (const SeiMessage& message : sei.messages) {
            if (message.kind.payload_type != kBufferingPeriod) continue;
            has_buffering_period_ = true;
            PayloadReader in(std::vector<unsigned char>(sei.payload(message).begin(), sei.payload(message).end()));
            const std::uint64_t id = in.ue();
            const Sps* const sps = in.ok() && id <= ParameterSets::kMaxSpsId ? sets_.sps(id) : nullptr;
            rewrite_buffering_period(sei, message, sps != nullptr ? &sps->sps : nullptr, options_);
        }
        if (sei.bytes != payload) result = with_payload(unit, sei.bytes);
    });
    return result;
}

bool RewriteStream::add_slice(const NalUnit& unit) {
    SliceIdentity slice;
    const std::string failure = identify_slice(unit, sets_, slice);
    if (!failure.empty()) {
        if (const Pending* timing = waiting(); timing != nullptr)
            refuse(*timing->timing, "the slice behind the picture timing message, " +
                                        format("unit %" PRIu64, unit.number) + ", cannot be read: " + failure);
        if (options_.timecode)
            refuse(unit, "the slice cannot be read, so that the frames of the stream cannot be counted: " + failure);
        return false;
    }
    if (slice.redundant_pic_cnt > 0) return true;
    if (boundaries_.starts_picture(slice))
        begin_picture(unit, slice);
    else if (const Pending* timing = waiting(); timing != nullptr)
        refuse(*timing->timing, "the picture timing message stands between the slices of a picture");
    return true;
}

void RewriteStream::begin_picture(const NalUnit& unit, const SliceIdentity& slice) {
    const sps_t& sps = slice.beginning.sps->sps;
    Pending* const timing = waiting();
    if (options_.pic_struct && sps.vui.pic_struct_present_flag == 0 && timing == nullptr)
        refuse(unit,
               "the picture has no picture timing message, which every picture has where pic_struct_present_flag "
               "is 1: h264tool insert --timecode writes both");
    if (options_.timecode) {
        const sps_t* const changed = changed_sps_.at(sps.seq_parameter_set_id).get();
        check_rate(unit, changed != nullptr ? *changed : sps);
        if (trial_ == nullptr) order_.add(slice, resets_picture_order(unit, slice));
    }
    if (timing != nullptr) {
        rewrite_timing(*timing, slice);
        if (options_.timecode && trial_ == nullptr) timed_.push_back(pictures_);
    }
    ++pictures_;
}

void RewriteStream::check_rate(const NalUnit& unit, const sps_t& sps) {
    const auto rate = frame_rate(sps);
    if (!rate)
        refuse(unit, "sequence parameter set " + std::to_string(sps.seq_parameter_set_id) +
                         " has no frame rate by which timecodes are counted: give it with --timing");
    if (rate_ && rate_->numerator == rate->numerator && rate_->denominator == rate->denominator) return;
    if (rate_) refuse(unit, "the frame rate changes here, so that timecodes cannot be counted: give one with --timing");
    about(unit, [&] { timecode_rate_ = timecode_rate(*rate, *options_.timecode); });
    first_number_ = frame_number(options_.timecode->timecode, timecode_rate_);
    rate_ = rate;
}

void RewriteStream::rewrite_timing(Pending& pending, const SliceIdentity& slice) {
    const sps_t& before = slice.beginning.sps->sps;
    const sps_t* const changed = changed_sps_.at(before.seq_parameter_set_id).get();
    const sps_t& after = changed != nullptr ? *changed : before;
    TimingChange change;
    if (options_.pic_struct && before.vui.pic_struct_present_flag == 0)
        change.pic_struct = static_cast<unsigned char>(picture_structure(slice));
    if (options_.timecode) {
        const std::uint32_t frame = trial_ != nullptr ? trial_->order_.place(pictures_).frame : 0;
        change.timecode = {timecode_at(first_number_ + frame, timecode_rate_), timecode_rate_,
                           trial_ != nullptr && trial_->begins_day_.count(frame) > 0};
    }
    const NalUnit unit = *std::exchange(pending.timing, std::nullopt);
    if (!change.pic_struct && !change.timecode) return;
    about(unit, [&] { pending.change.unit = rewrite_pic_timing(unit, read_sei_unit(unit), before, after, change); });
}

// The picture timing message whose picture has not begun; null when there is none.
RewriteStream::Pending* RewriteStream::waiting() {
    const auto found = std::find_if(pending_.begin(), pending_.end(),
                                    [](const Pending& pending) { return pending.timing.has_value(); });
    return found != pending_.end() ? &*found : nullptr;
}

bool RewriteStream::take(Change& change) {
    while (!pending_.empty() && !pending_.front().timing) {
        change = std::move(pending_.front().change);
        pending_.pop_front();
        if (!change.unit.empty()) return true;
    }
    return false;
}

void RewriteStream::finish() {
    if (const Pending* timing = waiting(); timing != nullptr)
        refuse(*timing->timing, "there is no picture behind the picture timing message");
    if (options_.changes_sps() && !has_sps_) throw std::runtime_error("there is no sequence parameter set to change");
    if (options_.timecode && !has_timing_)
        throw std::runtime_error(
            "there is no picture timing message to renumber: h264tool insert --timecode writes "
            "them");
    if (!options_.initial_cpb_delays.empty() && !has_buffering_period_)
        throw std::runtime_error("there is no buffering period message to change");
    order_.finish();
    find_days();
}

// Of the frames that have a timecode, in output order, the first one of each day but that of the first frame.
void RewriteStream::find_days() {
    std::set<std::uint32_t> frames;
    for (const std::size_t picture : timed_) frames.insert(order_.place(picture).frame);
    const std::uint64_t frames_a_day = frame_number({24, 0, 0, 0}, timecode_rate_);
    std::optional<std::uint64_t> last_day;
    for (const std::uint32_t frame : frames) {
        const std::uint64_t day = (first_number_ + frame) / frames_a_day;
        if (last_day && day != *last_day) begins_day_.insert(frame);
        last_day = day;
    }
}

}  // namespace h264tool
