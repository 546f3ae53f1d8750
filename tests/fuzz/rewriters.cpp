// Rewriting units by records that were read from them, changed, or that belong to other bits altogether.
#include <algorithm>

#include "fuzz.h"
#include "guarded_buffer.h"
#include "h264.h"
#include "lost_memory.h"

namespace {

using test::Bytes;
using test::FuzzInput;
using test::GuardedBuffer;
using test::Observed;

// A payload with room behind it, as the in-place functions take it.
class Payload {
public:
    Payload(const Bytes& unit, std::size_t spare) : area_(unit.size() + spare) {
        std::fill_n(area_.data(), area_.size(), test::kUntouched);
        const std::size_t start_code = unit.size() > 3 && unit[2] == 1 ? 3 : std::min<std::size_t>(4, unit.size());
        bytes_ = std::max(
            0, SODB_deencapsulation_from_NAL(unit.data() + start_code, static_cast<unsigned>(unit.size() - start_code),
                                             area_.data(), static_cast<unsigned>(area_.size())));
    }
    int bytes() const { return bytes_; }
    bitbuffer_t bits(std::size_t capacity_in_bits) {
        return {area_.data(), 0, static_cast<unsigned>(std::min(capacity_in_bits, 8 * area_.size()))};
    }
    std::size_t size() const { return area_.size(); }
    Bytes content() const { return area_.bytes(); }

private:
    GuardedBuffer area_;
    int bytes_ = 0;
};

void change(FuzzInput& input, sps_t& sps) {
    vui_t& vui = sps.vui;
    for (int* flag :
         {&vui.aspect_ratio_info_present_flag, &vui.overscan_info_present_flag, &vui.video_signal_type_present_flag,
          &vui.colour_description_present_flag, &vui.chroma_loc_info_present_flag, &vui.timing_info_present_flag})
        if (input.below(4) == 0) *flag = static_cast<int>(input.below(3));
    vui.aspect_ratio_idc = static_cast<unsigned char>(input.number(1));
    vui.num_units_in_tick = input.number(5);
    vui.time_scale = input.number(4);
    vui.chroma_sample_loc_type_top_field = input.number(input.below(6) == 0 ? 8 : 1);
    // Positions that are not those of the unit.
    for (int* position : {&sps.vui_parameters_present_offset, &sps.frame_cropping_offset, &vui.timing_info_offset,
                          &vui.nal_hrd_parameters_present_offset, &vui.pic_struct_present_offset})
        if (input.below(16) == 0) *position = static_cast<int>(input.number(input.flag() ? 4 : 1));
    sps.frame_crop_left_offset = input.number(1);
    sps.frame_crop_bottom_offset = input.number(input.below(6) == 0 ? 8 : 1);
    if (input.below(8) == 0) sps.frame_cropping_flag = static_cast<int>(input.below(3));
}

void rewrite_sps(FuzzInput& input, const Bytes& unit, sps_t& sps, Observed& observed) {
    GuardedBuffer in(unit);
    unsigned char* rewritten = nullptr;
    unsigned length = 0;
    const BOOL result =
        H264Lib_Set_sps_vui_parameters_NAL(in.data(), static_cast<unsigned>(unit.size()), &sps, &rewritten, &length);
    FUZZ_CHECK(in.bytes() == unit);
    observed.add(result);
    if (result != FALSE) {
        FUZZ_CHECK(rewritten != nullptr && length <= unit.size() + 68);
        observed.add(Bytes(rewritten, rewritten + length));
        auto again = test::zeroed<sps_t>();
        observed.add(parse_sps_nal(rewritten, static_cast<int>(length), &again));
    }
    H26XLib_Release_sps_buffer(rewritten);

    Payload payload(unit, input.below(40));
    const auto capacity = 8 * payload.size() - input.below(8);
    using Setter = int (*)(bitbuffer_t*, sps_t*);
    constexpr Setter kSetters[] = {
        set_sps_level_idc, [](bitbuffer_t* bits, sps_t* record) { return set_vui_timing_info(bits, &record->vui); },
        [](bitbuffer_t* bits, sps_t* record) { return set_vui_pic_struct_present_flag(bits, &record->vui); }};
    for (const Setter set : kSetters) {
        bitbuffer_t bits = payload.bits(capacity);
        observed.add(set(&bits, &sps));
        observed.add(bits.bit_offset);
    }
    bitbuffer_t bits = payload.bits(capacity);
    const int bytes = input.below(16) == 0 ? static_cast<int>(input.number(input.flag() ? 4 : 1)) : payload.bytes();
    observed.add(set_sps_crop(&bits, bytes, &sps));
    observed.add(bits.bit_offset);
    observed.add(payload.content());
    observed.add(sps);
}

SEI_message_t first_message(const Bytes& unit) {
    auto header = test::zeroed<SEI_message_t>();
    int payload_offset = 0;
    int nal_type_offset = 0;
    int kind = 0;
    BOOL more = FALSE;
    DetermineSEIType(unit.data(), static_cast<int>(unit.size()), &payload_offset, &nal_type_offset, &header, &kind,
                     &more);
    return header;
}

void rewrite_pic_timing(FuzzInput& input, const Bytes& unit, const sps_t& sps, Observed& observed) {
    auto pic_timing = test::zeroed<sei_pic_timing_t>();
    if (input.flag()) {
        input.fill(pic_timing);
    } else {
        pic_timing.header = first_message(unit);
        parse_sei_pictiming_nal(unit.data(), static_cast<int>(unit.size()), &sps, &pic_timing);
        pic_timing.clock_timestamp_info[0].time_offset = static_cast<long>(input.any());
        pic_timing.clock_timestamp_info[0].seconds_value = static_cast<unsigned char>(input.number(1));
        pic_timing.NumClockTS = static_cast<int>(input.below(5));
    }
    GuardedBuffer in(unit);
    unsigned char* rewritten = nullptr;
    unsigned length = 0;
    // A unit that is too long or too short loses 32 bytes.
    const test::MemoryThatIsLost lost;
    const BOOL result = H264Lib_Set_SEIPictiming_NAL(in.data(), static_cast<unsigned>(unit.size()), &sps, &pic_timing,
                                                     &rewritten, &length);
    FUZZ_CHECK(in.bytes() == unit);
    observed.add(result);
    if (result != FALSE) {
        FUZZ_CHECK(rewritten != nullptr && length <= H264_MAX_SEI_PICTIMING_SIZE_BYTES);
        observed.add(Bytes(rewritten, rewritten + length));
    }
    H26XLib_Release_sps_buffer(rewritten);
}

void rewrite_buffering_period(FuzzInput& input, const Bytes& unit, const sps_t& sps, Observed& observed) {
    auto buffering_period = test::zeroed<sei_buffering_period_t>();
    if (input.below(4) == 0) {
        input.fill(buffering_period);
    } else {
        buffering_period.header = first_message(unit);
        parse_sei_buffering_period_nal(unit.data(), static_cast<int>(unit.size()), &sps.vui, &buffering_period);
    }
    sei_bp_set_t values{};
    values.SchedSelIdx = input.number(input.below(8) == 0 ? 8 : 1);
    values.enHRDCbpType = static_cast<int>(input.below(4));
    values.initial_cpb_removal_delay = input.number(4);
    values.initial_cpb_removal_delay_offset = input.number(5);
    Payload payload(unit, 0);
    bitbuffer_t bits = payload.bits(8 * static_cast<std::size_t>(payload.bytes()));
    observed.add(set_sei_buffering_period(&bits, payload.bytes(), &sps.vui, &values, &buffering_period));
    observed.add(bits.bit_offset);
    observed.add(payload.content());
}

}  // namespace

void test::fuzz(FuzzInput& input, Observed& observed) {
    auto sps = zeroed<sps_t>();
    const bool has_sei = input.flag();
    const Bytes sps_unit = input.chunk();
    const Bytes sei_unit = has_sei ? input.chunk() : Bytes{};
    parse_sps_nal(sps_unit.data(), static_cast<int>(sps_unit.size()), &sps);
    if (input.below(8) == 1) input.fill(sps);
    if (input.flag()) change(input, sps);
    if (has_sei) {
        rewrite_pic_timing(input, sei_unit, sps, observed);
        rewrite_buffering_period(input, sei_unit, sps, observed);
    } else {
        rewrite_sps(input, sps_unit, sps, observed);
    }
}
