// What there is to tell about a whole stream.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <vector>

#include "parameter_sets.h"
#include "pic_struct.h"
#include "picture_counter.h"
#include "run_result.h"
#include "sei_messages.h"

namespace h264tool {

struct UnitCount {
    std::uint64_t units = 0;
    std::uint64_t bytes = 0;  // with start codes
};

// The pictures that are coded by sequence parameter sets of the same content.
struct Sequence {
    Sps sps;
    FrameCounts frames;
    std::uint64_t fields = 0;  // for which they are shown
    std::uint64_t bytes = 0;   // of their access units, zero bytes behind the units included

    // In seconds, by VUI timing, when there are frames.
    std::optional<double> duration() const;
};

// What is known of the parameter sets of one kind.
struct SetCount {
    std::bitset<ParameterSets::kMaxPpsId + 1> ids;
    std::uint64_t changes = 0;
};

class StreamSummary {
public:
    // Sequences beyond this number are left out.
    static constexpr std::size_t kMaxSequences = 100;

    // How much of a unit add() wants to see.
    static AnnexBReader::KeptBytes kept_bytes();

    // Takes the next unit of the stream.
    void add(const NalUnit& unit);
    // The stream has ended.
    void finish();

    std::uint64_t units() const;
    std::uint64_t unit_bytes() const;  // of all units, without zero bytes behind them
    const std::array<UnitCount, 32>& units_by_type() const { return units_by_type_; }
    const UnitCount& units_without_header() const { return units_without_header_; }
    std::uint64_t trailing_zero_bytes() const { return trailing_zero_bytes_; }
    const RunResult& result() const { return result_; }

    const std::deque<Sequence>& sequences() const { return sequences_; }
    bool has_more_sequences() const { return has_more_sequences_; }
    const PictureCounter& pictures() const { return pictures_; }
    const std::array<std::uint64_t, kSliceKinds>& slices() const { return slices_; }
    // In seconds; nothing unless all frames have timing.
    std::optional<double> duration() const;

    const std::map<SeiKind, std::uint64_t>& sei_messages() const { return sei_messages_; }
    SetCount sequence_parameter_sets() const { return {sps_ids_, sets_.sps_changes()}; }
    SetCount picture_parameter_sets() const { return {pps_ids_, sets_.pps_changes()}; }

private:
    bool examine(const NalUnit& unit);
    bool add_slice(const NalUnit& unit);
    void select_sequence(const Sps& sps);
    void account(const NalUnit& unit);

    ParameterSets sets_{0};
    RunResult result_;
    std::array<UnitCount, 32> units_by_type_{};
    UnitCount units_without_header_;
    std::uint64_t trailing_zero_bytes_ = 0;
    std::deque<Sequence> sequences_;
    bool has_more_sequences_ = false;
    Sequence left_out_;
    Sequence* sequence_ = nullptr;            // of the last picture
    std::uint64_t bytes_before_picture_ = 0;  // of units that belong to the next picture
    PictureCounter pictures_;
    std::array<std::uint64_t, kSliceKinds> slices_{};
    std::map<SeiKind, std::uint64_t> sei_messages_;
    PicStructs pic_structs_;
    std::bitset<ParameterSets::kMaxPpsId + 1> sps_ids_;
    std::bitset<ParameterSets::kMaxPpsId + 1> pps_ids_;
};

}  // namespace h264tool
