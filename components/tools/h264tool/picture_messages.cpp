#include "picture_messages.h"

#include <utility>

#include "nal_types.h"
#include "stream_input.h"
#include "text.h"

namespace h264tool {
namespace {

constexpr std::size_t kSliceBytes = 4096;  // enough for the longest header that a level allows
constexpr std::size_t kMaxPendingBytes = std::size_t{1024} * 1024;
constexpr std::size_t kMaxComplaints = 10;

// Why the messages of a unit cannot be told apart, empty when they can.
std::string damage_of(const NalUnit& unit, const SeiUnit& sei) {
    if (sei.damaged) return "SEI message at " + std::to_string(sei.end) + " runs past the end of the unit";
    if (sei.cut)
        return "too long: " + count_of(unit.length, "byte") + ", " + std::to_string(kUnitBeginning) + " are read";
    return {};
}

}  // namespace

AnnexBReader::KeptBytes PictureMessages::kept_bytes() {
    AnnexBReader::KeptBytes kept{};
    for (const std::size_t type : {kSlice, kPartitionA, kIdrSlice}) kept[type] = kSliceBytes;
    for (const std::size_t type : {kSei, kSps, kPps, kSubsetSps}) kept[type] = kUnitBeginning;
    return kept;
}

void PictureMessages::add(const NalUnit& unit) {
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

void PictureMessages::finish() {
    for (const NalUnit& unit : take_pending()) count(unit, "no picture follows");
    order_.finish();
}

std::vector<NalUnit> PictureMessages::take_pending() {
    pending_bytes_ = 0;
    return std::exchange(pending_, {});
}

void PictureMessages::count(const NalUnit& unit, const std::string& damage) {
    result_.count(unit, !damage.empty());
    if (damage.empty() || complaints_.size() >= kMaxComplaints) return;
    complaints_.push_back("unit " + std::to_string(unit.number) + " at offset " + std::to_string(unit.offset) + ": " +
                          damage);
}

// Returns why the unit cannot be parsed, empty when it can.
std::string PictureMessages::examine(const NalUnit& unit) {
    std::string damage;
    switch (unit.type()) {
        case kSlice:
        case kPartitionA:
        case kIdrSlice:
            return examine_slice(unit);
        case kSps:
        case kPps:
            damage = unit.type() == kSps ? sets_.read_sps(unit) : sets_.read_pps(unit);
            if (damage.empty()) add_set(unit);
            return damage;
        case kSubsetSps:
            sets_.read_subset_sps(unit);
            return damage;
        case kDelimiter:
        case kEndOfSequence:
        case kEndOfStream:
            boundaries_.end_picture();
            return damage;
        default:
            return damage;
    }
}

std::string PictureMessages::examine_slice(const NalUnit& unit) {
    SliceIdentity identity;
    std::string damage = identify_slice(unit, sets_, identity);
    if (!damage.empty()) {
        // The messages belong to a picture that is not known. That is no fault of theirs.
        for (const NalUnit& pending : take_pending()) count(pending, damage_of(pending, read_sei_unit(pending)));
        return damage;
    }
    if (boundaries_.starts_picture(identity)) start_picture(unit, identity);
    if (order_.pictures() > 0) add_slice(identity);
    return damage;
}

void PictureMessages::start_picture(const NalUnit& unit, const SliceIdentity& identity) {
    order_.add(identity, resets_picture_order(unit, identity));
    begin_picture(unit, identity);
    for (const NalUnit& pending : take_pending()) count(pending, read_messages(pending, identity.beginning.sps->sps));
}

std::string PictureMessages::read_messages(const NalUnit& unit, const sps_t& sps) {
    const SeiUnit sei = read_sei_unit(unit);
    std::string damage = damage_of(unit, sei);
    for (const SeiMessage& message : sei.messages) {
        if (!is_wanted(message) || !sei.has_whole(message)) continue;
        SeiRecord record;
        const std::string failure = read_sei_record(sei, message, &sps, record);
        if (damage.empty()) damage = failure;
        if (failure.empty()) store(sei, message, record, sps);
    }
    return damage;
}

}  // namespace h264tool
