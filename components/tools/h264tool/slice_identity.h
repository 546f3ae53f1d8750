// What tells the pictures apart to which the slices of a stream belong.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "slice_unit.h"

namespace h264tool {

// The elements of a slice header by which pictures are told apart.
struct SliceIdentity {
    SliceBeginning beginning;
    bool idr = false;
    unsigned nal_ref_idc = 0;
    std::uint64_t colour_plane_id = 0;
    std::uint64_t frame_num = 0;
    bool field_pic_flag = false;
    bool bottom_field_flag = false;
    std::uint64_t idr_pic_id = 0;
    std::uint64_t pic_order_cnt_lsb = 0;
    std::int64_t delta_pic_order_cnt_bottom = 0;
    std::array<std::int64_t, 2> delta_pic_order_cnt{};
    std::uint64_t redundant_pic_cnt = 0;
    unsigned position = 0;  // behind these elements, in bits of the payload
};

// Reads them from a slice or data partition A. Returns why that is not possible, empty when it is.
std::string identify_slice(const NalUnit& unit, const ParameterSets& sets, SliceIdentity& slice);

// Whether the slice, of a reference picture that is not IDR, has memory_management_control_operation 5. Read by the
// standard's syntax: the library does not come to it behind chroma weights.
bool resets_picture_order(const NalUnit& unit, const SliceIdentity& slice);

// Finds where primary coded pictures begin. Slices of auxiliary coded pictures are not given to it.
class PictureBoundaries {
public:
    // Takes the next slice in decoding order and tells whether it is the first one of a primary coded picture. Slices
    // of redundant coded pictures never are.
    bool starts_picture(const SliceIdentity& slice);
    // The picture is complete, as in front of a delimiter: a slice that follows belongs to another one.
    void end_picture();

private:
    std::optional<SliceIdentity> last_;  // the last slice of the picture that is not complete
    bool has_first_mb_ = false;          // a slice of it began with macroblock 0
};

// Whether two pictures that follow each other in decoding order are the fields of one frame, when the first is not
// already the second field of another. ITU-T H.264 3.30.
bool are_fields_of_one_frame(const SliceIdentity& first, const SliceIdentity& second);

}  // namespace h264tool
