// What the functions that rewrite sequence parameter sets must make of the bits, told bit by bit and without any code
// of the library.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "encapsulation_model.h"
#include "h264.h"

namespace test {

using Bits = std::vector<bool>;

inline Bits bits_of(const Bytes& bytes) {
    Bits bits;
    for (const unsigned char byte : bytes)
        for (unsigned i = 8; i-- > 0;) bits.push_back((byte >> i & 1U) != 0);
    return bits;
}

// The last byte is filled up with zeros.
inline Bytes bytes_of(const Bits& bits) {
    Bytes bytes((bits.size() + 7) / 8, 0);
    for (std::size_t i = 0; i < bits.size(); ++i)
        if (bits[i]) bytes[i / 8] = static_cast<unsigned char>(bytes[i / 8] | 0x80U >> i % 8);
    return bytes;
}

// Bits from start up to end.
inline Bits part(const Bits& bits, std::size_t start, std::size_t end = SIZE_MAX) {
    return {bits.begin() + static_cast<long>(start), bits.begin() + static_cast<long>(std::min(end, bits.size()))};
}

inline void append(Bits& bits, const Bits& more) { bits.insert(bits.end(), more.begin(), more.end()); }

inline Bits code_u(unsigned n, std::uint64_t value) {
    Bits bits;
    while (n-- > 0) bits.push_back((value >> n & 1U) != 0);
    return bits;
}

inline unsigned golomb_zeros(std::uint64_t value) {
    unsigned zeros = 0;
    while ((value + 1) >> zeros > 1) ++zeros;
    return zeros;
}

inline Bits code_ue(std::uint64_t value) {
    const unsigned zeros = golomb_zeros(value);
    Bits bits(zeros, false);
    append(bits, code_u(zeros + 1, value + 1));
    return bits;
}

// One element of the part that is written anew.
struct HeadElement {
    std::string failure;  // the message when it does not fit
    Bits bits;
};

// vui_parameters_present_flag up to fixed_frame_rate_flag of a record.
inline std::vector<HeadElement> vui_head(const sps_t& sps) {
    const vui_t& vui = sps.vui;
    std::vector<HeadElement> elements;
    const auto u = [&](unsigned n, std::uint64_t value, const std::string& name) {
        elements.push_back({"Failed to set " + name + ".", code_u(n, value)});
    };
    const auto ue = [&](std::uint64_t value, const std::string& name) {
        elements.push_back({"Failed to set " + name + " as golomb.", code_ue(value)});
    };
    const auto flag = [&](int value, const std::string& name) {
        u(1, value != 0 ? 1 : 0, name);
        return value != 0;
    };
    flag(sps.vui_parameters_present_flag, "vui_parameters_present_flag");
    if (flag(vui.aspect_ratio_info_present_flag, "aspect_ratio_info_present_flag")) {
        u(8, vui.aspect_ratio_idc, "aspect_ratio_idc");
        if (vui.aspect_ratio_idc == 255) {
            u(16, vui.sar_width, "sar_width");
            u(16, vui.sar_height, "sar_width");
        }
    }
    if (flag(vui.overscan_info_present_flag, "overscan_info_present_flag"))
        flag(vui.overscan_appropriate_flag, "overscan_appropriate_flag");
    if (flag(vui.video_signal_type_present_flag, "video_signal_type_present_flag")) {
        u(3, vui.video_format, "video_format");
        flag(vui.video_full_range_flag, "video_full_range_flag");
        if (flag(vui.colour_description_present_flag, "colour_description_present_flag")) {
            u(8, vui.colour_primaries, "colour_primaries");
            u(8, vui.transfer_characteristics, "transfer_characteristics");
            u(8, vui.matrix_coefficients, "matrix_coefficients");
        }
    }
    if (flag(vui.chroma_loc_info_present_flag, "chroma_loc_info_present_flag")) {
        ue(vui.chroma_sample_loc_type_top_field, "chroma_sample_loc_type_top_field");
        ue(vui.chroma_sample_loc_type_bottom_field, "chroma_sample_loc_type_bottom_field");
    }
    if (flag(vui.timing_info_present_flag, "vui_timing_info_present_flag")) {
        u(32, vui.num_units_in_tick, "vui_num_units_in_tick");
        u(32, vui.time_scale, "vui_time_scale");
        flag(vui.fixed_frame_rate_flag, "fixed_frame_rate_flag");
    }
    return elements;
}

// The payload with the head of the record's VUI, filled up to whole bytes.
inline Bits rewritten(const Bits& source, const sps_t& sps) {
    Bits bits = part(source, 0, static_cast<std::size_t>(sps.vui_parameters_present_offset));
    for (const HeadElement& element : vui_head(sps)) append(bits, element.bits);
    append(bits, part(source, static_cast<std::size_t>(sps.vui.nal_hrd_parameters_present_offset)));
    while (bits.size() % 8 != 0) bits.push_back(false);
    return bits;
}

// The unit that is made from a unit of this payload.
inline Bytes rewritten_unit(const Bytes& unit, const Bytes& payload, const sps_t& sps) {
    const std::size_t header = unit[2] == 1 ? 4 : 5;
    Bytes made(unit.begin(), unit.begin() + static_cast<long>(header));
    const Bytes rewritten_payload = bytes_of(rewritten(bits_of(payload), sps));
    const Encapsulated out = encapsulation_model(rewritten_payload, unit.size() + 68 - header);
    // A refused encapsulation leaves the header alone.
    made.insert(made.end(), out.bytes.begin(), out.bytes.begin() + out.result);
    return made;
}

// An area that is written at a position, as far as its bits go.
struct AreaModel {
    Bits bits;
    std::size_t position = 0;

    bool put(const Bits& more) {
        if (position + more.size() > bits.size()) return false;
        std::copy(more.begin(), more.end(), bits.begin() + static_cast<long>(position));
        position += more.size();
        return true;
    }
    // The zeros and the one, then the rest: the first part stays when only the second does not fit.
    bool put_ue(std::uint64_t value) {
        const Bits code = code_ue(value);
        const unsigned prefix = golomb_zeros(value) + 1;
        return put(part(code, 0, prefix)) && put(part(code, prefix));
    }
};

// set_sps_crop over an area whose first payload_bytes are the payload.
struct CropModel {
    AreaModel area;
    int result = -1;
    std::vector<std::string> failures;  // messages at level 3

    CropModel(const Bits& before, std::size_t payload_bytes, const sps_t& sps) : area{before, 0} {
        const bool replaces = sps.frame_cropping_flag == 1;
        const auto flag = static_cast<std::size_t>(sps.frame_cropping_offset);
        const std::size_t end = 8 * payload_bytes;
        const std::size_t start = replaces ? static_cast<std::size_t>(sps.vui_parameters_present_offset) : flag + 1;
        const Bits tail = part(before, start, end);
        std::fill(area.bits.begin() + static_cast<long>(flag) + 1, area.bits.begin() + static_cast<long>(end), false);
        area.bits[flag] = true;
        area.position = flag + 1;
        const auto offset = [&](std::uint64_t value, const char* name) {
            if (!area.put_ue(value)) failures.push_back(std::string("Failed to set crop ") + name + " as golomb.");
        };
        offset(sps.frame_crop_left_offset, "left");
        offset(sps.frame_crop_right_offset, "right");
        offset(sps.frame_crop_top_offset, "top");
        offset(sps.frame_crop_bottom_offset, "bottom");
        if (!area.put(tail)) {
            failures.push_back("Failed to set " + std::to_string(tail.size()) + " bits as string.");
            return;
        }
        result = static_cast<int>(((replaces ? area.bits.size() : area.position) + 7) / 8 * 8);
    }
};

}  // namespace test
