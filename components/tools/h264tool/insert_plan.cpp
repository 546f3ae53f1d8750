#include "insert_plan.h"

#include <algorithm>
#include <cinttypes>
#include <span>
#include <stdexcept>
#include <string_view>

#include "h264.h"
#include "nal_types.h"
#include "rewrite_sps.h"
#include "sei_messages.h"
#include "stream_input.h"
#include "text.h"

namespace h264tool {
namespace {

constexpr std::size_t kSliceBytes = 4096;  // enough for the longest header that a level allows
constexpr unsigned kPrefix = 14;
constexpr unsigned kUnknownSlice = 1U << kSliceKinds;

[[noreturn]] void refuse(const NalUnit& unit, const std::string& reason) {
    throw std::runtime_error(format("unit %" PRIu64 " at offset %" PRIu64 ": ", unit.number, unit.offset) + reason);
}

// Whether a unit behind the slices of a picture begins the next access unit, ITU-T H.264 7.4.1.2.3.
bool begins_access_unit(unsigned type) { return (type >= kSei && type <= kDelimiter) || (type >= 14 && type <= 18); }

bool is_slice(unsigned type) { return (type >= 1 && type <= 5) || type == 19 || type == 20 || type == 21; }

// ATSC A/53 cc_data() behind country, provider and identifier.
bool is_captions(const SeiKind& kind, std::span<const unsigned char> payload) {
    constexpr unsigned char kCcData = 3;
    return kind.user_identifier == "GA94" && payload.size() > 7 && payload[7] == kCcData;
}

// MISB ST 0604.
bool is_precision_time(const SeiKind& kind, std::span<const unsigned char> payload) {
    constexpr std::string_view kIdentifier = "MISPmicrosectime";
    return kind.payload_type == kUserDataUnregistered && payload.size() >= kIdentifier.size() &&
           std::equal(kIdentifier.begin(), kIdentifier.end(), payload.begin());
}

// The first primary_pic_type whose pictures may have these kinds of slices, ITU-T H.264 Table 7-5.
unsigned primary_pic_type(unsigned slice_kinds) {
    constexpr unsigned kP = 1U << kSliceP;
    constexpr unsigned kB = 1U << kSliceB;
    constexpr unsigned kI = 1U << kSliceI;
    constexpr unsigned kSp = 1U << kSliceSP;
    constexpr unsigned kSi = 1U << kSliceSI;
    constexpr std::array<unsigned, 7> kAllowed{kI,        kI | kP,  kI | kP | kB,       kSi,
                                               kSi | kSp, kI | kSi, kI | kSi | kP | kSp};
    const auto* const found =
        std::find_if(kAllowed.begin(), kAllowed.end(), [&](unsigned allowed) { return (slice_kinds & ~allowed) == 0; });
    return static_cast<unsigned>(found - kAllowed.begin());
}

// The unit with pic_struct_present_flag 1; empty when that is not possible.
std::vector<unsigned char> with_pic_struct(const NalUnit& unit) {
    RewriteOptions options;
    options.pic_struct = true;
    try {
        return rewrite_sps(unit, options).unit;
    } catch (const std::runtime_error&) {
        return {};
    }
}

}  // namespace

AnnexBReader::KeptBytes InsertPlan::kept_bytes() {
    AnnexBReader::KeptBytes kept{};
    for (const std::size_t type : {kSlice, kPartitionA, kIdrSlice}) kept[type] = kSliceBytes;
    for (const std::size_t type : {kSei, kSps, kPps, kSubsetSps}) kept[type] = kUnitBeginning;
    return kept;
}

void InsertPlan::add(const NalUnit& unit) {
    size_ = unit.offset + unit.length + unit.trailing_zero_8bits;
    if (!unit.has_header()) {
        prefix_.reset();
        result_.count(unit, true);
        return;
    }
    const unsigned type = unit.type();
    if (begins_access_unit(type)) {
        if (!access_unit_ || access_unit_goes_on_) {
            access_unit_ = unit.offset;
            access_unit_goes_on_ = false;
            has_delimiter_ = false;
        }
        has_delimiter_ = has_delimiter_ || type == kDelimiter;
    }
    result_.count(unit, !examine(unit));
    prefix_ = type == kPrefix ? std::optional(unit.offset) : std::nullopt;
    if (is_slice(type)) {
        ended_ = false;
        end_of_stream_.reset();
        access_unit_goes_on_ = access_unit_.has_value();
    }
}

// False when the unit is damaged.
bool InsertPlan::examine(const NalUnit& unit) {
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
        case kEndOfSequence:
            ended_ = true;
            end_picture();
            return true;
        case kEndOfStream:
            end_of_stream_ = unit.offset;
            end_picture();
            return true;
        case kDelimiter:
            end_picture();
            return true;
        default:
            return true;
    }
}

bool InsertPlan::add_slice(const NalUnit& unit) {
    SliceIdentity slice;
    if (const std::string reason = identify_slice(unit, sets_, slice); !reason.empty()) {
        if (options_.needs_frame_rate()) refuse(unit, reason + ": it cannot be read, so that frames cannot be counted");
        slice_kinds_ |= kUnknownSlice;
        return false;
    }
    if (slice.redundant_pic_cnt > 0) return true;
    if (boundaries_.starts_picture(slice)) begin_picture(unit, slice);
    slice_kinds_ |= 1U << slice_kind(slice.beginning.slice_type);
    access_unit_.reset();
    access_unit_goes_on_ = false;
    return true;
}

void InsertPlan::begin_picture(const NalUnit& unit, const SliceIdentity& identity) {
    complete_delimiter();
    if (access_unit_goes_on_) slice_kinds_ = kUnknownSlice;
    check_sequence(unit, identity);
    check_repetition(unit, identity);
    order_.add(identity, resets_picture_order(unit, identity));

    const std::uint64_t offset = prefix_.value_or(unit.offset);
    const bool needs_delimiter = options_.delimiters && !(access_unit_ && has_delimiter_);
    if (needs_delimiter) pending_.insert(pending_.begin(), {access_unit_.value_or(offset), 0, Point::kDelimiter});
    pending_.push_back({offset, static_cast<std::uint32_t>(picture_structure(identity)), Point::kPicture});
    flush_pending();
    if (!needs_delimiter) return;
    const auto last = std::find_if(points_.rbegin(), points_.rend(),
                                   [](const Point& point) { return point.kind == Point::kDelimiter; });
    delimiter_ = static_cast<std::size_t>(points_.rend() - last) - 1;
}

void InsertPlan::end_picture() {
    complete_delimiter();
    boundaries_.end_picture();
}

// The slices of the current picture are known.
void InsertPlan::complete_delimiter() {
    if (delimiter_) points_[*delimiter_].value = primary_pic_type(slice_kinds_);
    delimiter_.reset();
    slice_kinds_ = 0;
}

// What the sequence parameter set of a picture must say for its messages.
void InsertPlan::check_sequence(const NalUnit& unit, const SliceIdentity& slice) {
    const sps_t& sps = slice.beginning.sps->sps;
    const std::string name = "sequence parameter set " + std::to_string(sps.seq_parameter_set_id);
    if (options_.timecode && sps.vui_parameters_present_flag == 0)
        refuse(unit, name + " has no VUI, by which picture timing messages are read: --timecode cannot be inserted");
    if (options_.timecode && sps.vui.CpbDpbDelaysPresentFlag != 0)
        refuse(unit, name +
                         " has HRD parameters, so that picture timing messages have delays, which are not known: "
                         "--timecode cannot be inserted");
    if (options_.needs_frame_rate() && !options_.frame_rate) {
        const auto rate = frame_rate(sps);
        if (!rate) refuse(unit, name + " has no frame rate: give it with --frame-rate");
        if (rate_ && (rate_->numerator != rate->numerator || rate_->denominator != rate->denominator))
            refuse(unit, "the frame rate changes here: give one for the whole stream with --frame-rate");
        rate_ = rate;
    }
    if (!options_.timecode || sps.vui.pic_struct_present_flag != 0) return;
    const auto number = current_sets_.at(sps.seq_parameter_set_id);
    if (!number || parameter_sets_[*number].changed.empty())
        refuse(unit, "pic_struct_present_flag of " + name + " cannot be set: --timecode cannot be inserted");
    parameter_sets_[*number].used = true;
}

// By the stream's own rate frames are counted as if they lasted alike.
void InsertPlan::check_repetition(const NalUnit& unit, const SliceIdentity& slice) {
    const std::optional<unsigned> pic_struct = pic_structs_.take(slice.beginning.sps->sps);
    if (pic_struct && *pic_struct > kLastWithoutRepetition)
        refuse(unit, "pic_struct " + std::to_string(*pic_struct) +
                         " of the picture repeats a field or the frame, so that frames do not last alike: give how "
                         "many there are in a second with --frame-rate");
}

bool InsertPlan::add_sps(const NalUnit& unit) {
    if (!sets_.read_sps(unit).empty()) return false;
    const sps_t& sps = sets_.last_sps();
    auto& current = current_sets_.at(sps.seq_parameter_set_id);
    current.reset();
    if (!options_.timecode || sps.vui_parameters_present_flag == 0 || sps.vui.pic_struct_present_flag != 0) return true;
    const auto next = static_cast<std::uint32_t>(parameter_sets_.size());
    current = parameter_set_numbers_.try_emplace(std::string(unit.bytes.begin(), unit.bytes.end()), next).first->second;
    if (*current == next) parameter_sets_.push_back({unit.length, with_pic_struct(unit), false});
    pending_.push_back({unit.offset, *current, Point::kParameterSet});
    return true;
}

// Refuses streams that have already what would be inserted.
bool InsertPlan::add_sei(const NalUnit& unit) {
    const SeiUnit sei = read_sei_unit(unit);
    if (options_.needs_frame_rate() && !options_.frame_rate) pic_structs_.add(sei);
    for (const SeiMessage& message : sei.messages) {
        const std::span<const unsigned char> payload = sei.payload(message);
        if (options_.timecode && message.kind.payload_type == kPicTiming)
            refuse(unit,
                   "the stream has picture timing messages already: --timecode cannot be inserted, rewrite "
                   "--timecode changes those that are there");
        if (options_.captions && is_captions(message.kind, payload))
            refuse(unit, "the stream has captions already: --captions cannot be inserted");
        if (options_.afd && message.kind.user_identifier == "DTG1")
            refuse(unit, "the stream has an active format description already: --afd cannot be inserted");
        if (options_.precision_time && is_precision_time(message.kind, payload))
            refuse(unit, "the stream has precision time already: --precision-time cannot be inserted");
    }
    return !sei.damaged;
}

void InsertPlan::flush_pending() {
    std::stable_sort(pending_.begin(), pending_.end(),
                     [](const Point& a, const Point& b) { return a.offset < b.offset; });
    points_.insert(points_.end(), pending_.begin(), pending_.end());
    pending_.clear();
}

void InsertPlan::finish() {
    end_picture();
    if (order_.pictures() == 0) throw std::runtime_error("there is no picture into which something can be inserted");
    if (options_.end_of_sequence && !ended_)
        pending_.push_back({end_of_stream_.value_or(size_), 0, Point::kEndOfSequence});
    flush_pending();
    order_.finish();
}

}  // namespace h264tool
