// Coded slice NAL units and what they refer to.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "annexb_reader.h"
#include "h264.h"
#include "parameter_sets.h"
#include "payload_reader.h"

namespace h264tool {

// slice_type modulo 5, ITU-T H.264 Table 7-6.
enum SliceKind { kSliceP, kSliceB, kSliceI, kSliceSP, kSliceSI, kSliceKinds };

inline SliceKind slice_kind(std::uint64_t slice_type) { return static_cast<SliceKind>(slice_type % kSliceKinds); }

// "P"; slice_type: 0 to 9
const char* slice_type_name(std::uint64_t slice_type);

// The first elements of a slice header and the parameter sets they lead to.
struct SliceBeginning {
    bool readable = false;  // whether these three elements can be read
    std::uint64_t first_mb_in_slice = 0;
    std::uint64_t slice_type = 0;
    std::uint64_t pic_parameter_set_id = 0;
    const Pps* pps = nullptr;
    const Sps* sps = nullptr;
};

// Reads the beginning of a slice and finds its parameter sets. Returns why the slice cannot be read on, empty when it
// can; payload is behind pic_parameter_set_id then.
std::string read_slice_beginning(const NalUnit& unit, PayloadReader& payload, const ParameterSets& sets,
                                 SliceBeginning& beginning);

struct Slice {
    slice_header_t header{};
    SliceBeginning beginning;
    // Elements of the header of which it does not tell whether they were transmitted.
    bool has_abs_diff_pic_num_minus1 = false;
    bool has_long_term_pic_num = false;
    std::vector<bool> has_luma_weight_l0;  // for the entries that were read and fit
    std::vector<bool> has_luma_weight_l1;
    // A flag says that chroma weights follow. The parser does not read them, so that all behind the flag is wrong.
    bool has_chroma_weights = false;
};

// Reads the header of a slice. Returns why it cannot be read, empty when it can.
std::string parse_slice(const NalUnit& unit, const ParameterSets& sets, Slice& slice);

bool has_pred_weight_table(const pps_t& pps, std::uint64_t slice_type);

// ref_pic_list_modification() and pred_weight_table() by the standard's syntax, ITU-T H.264 7.3.3.1 and 7.3.3.2.
struct ReferenceTables {
    SliceKind kind;
    std::array<std::uint64_t, 2> num_ref_idx_active_minus1;
    bool has_weights;
    bool has_chroma;

    // Reads them from their first bit on. Returns whether there are chroma weights.
    bool read(PayloadReader& in) const;
};

}  // namespace h264tool
