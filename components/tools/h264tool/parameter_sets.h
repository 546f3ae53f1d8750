// The parameter sets of a stream.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "annexb_reader.h"
#include "h264.h"

namespace h264tool {

struct Sps {
    // For reading what refers to it: chroma_format_idc and ChromaArrayType are 1 where they are inferred to be.
    sps_t sps{};
    std::vector<unsigned char> bytes;  // of the unit behind its header byte
};

// How far a picture parameter set was read.
enum class PpsEnd {
    kInSliceGroupId,       // the data end there, which the parser takes for success
    kInWeightedBipredIdc,  // the same
    kBeforeTransform8x8,   // all but the optional elements at the end
    kComplete,
};

struct Pps {
    pps_t pps{};  // elements that were not read are 0
    PpsEnd end = PpsEnd::kComplete;
    std::size_t slice_group_ids = 0;  // entries of slice_group_id in pps
    bool stop_bit_is_element =
        false;  // transform_8x8_mode_flag is the unit's stop bit, which the parser takes for data
    std::vector<unsigned char> bytes;  // of the unit behind its header byte
};

// Why a unit cannot be parsed by a parser that wants three bytes behind the start code and, unless most_bytes is 0, at
// most that many.
std::string parse_failure(const std::string& structure, const NalUnit& unit, std::uint64_t most_bytes = 0);

// Tables of the parameter sets by their ids, filled from the units of a stream as they arrive.
class ParameterSets {
public:
    static constexpr std::uint64_t kMaxSpsId = 31;
    static constexpr std::uint64_t kMaxPpsId = 255;

    // parser_level: level of the diagnostics while the library parses a unit.
    explicit ParameterSets(int parser_level) : parser_level_(parser_level) {}

    int parser_level() const { return parser_level_; }

    // Put a set in the place of the one of its id. They return why the unit cannot be parsed, empty when it can. A unit
    // that cannot leaves its id without a set.
    std::string read_sps(const NalUnit& unit);
    std::string read_pps(const NalUnit& unit);

    // A subset sequence parameter set, to which picture parameter sets of an extension may refer.
    void read_subset_sps(const NalUnit& unit);

    // The set of an id that is in range; null when there is none.
    const Sps* sps(std::uint64_t id) const { return sps_.at(id).get(); }
    const Pps* pps(std::uint64_t id) const { return pps_.at(id).get(); }

    // What the last unit held, as the library read it; for a picture parameter set also the set it refers to.
    const sps_t& last_sps() const { return last_sps_; }
    const Pps& last_pps() const { return last_pps_; }
    const sps_t* sps_of_last_pps() const { return sps_of_last_pps_; }

    // Sets whose content differs from that of the set they replaced.
    std::uint64_t sps_changes() const { return sps_changes_; }
    std::uint64_t pps_changes() const { return pps_changes_; }

private:
    bool parse_pps(const NalUnit& unit, const sps_t& sps);

    int parser_level_;
    H264D_PARSE_CONTEXT context_{};
    std::array<std::unique_ptr<Sps>, kMaxSpsId + 1> sps_;
    std::array<std::unique_ptr<Sps>, kMaxSpsId + 1> subset_sps_;
    std::array<std::unique_ptr<Pps>, kMaxPpsId + 1> pps_;
    sps_t last_sps_{};
    Pps last_pps_;
    const sps_t* sps_of_last_pps_ = nullptr;
    std::uint64_t sps_changes_ = 0;
    std::uint64_t pps_changes_ = 0;
};

}  // namespace h264tool
