#include "rewrite_sps.h"

#include <cinttypes>
#include <memory>
#include <stdexcept>
#include <string>

#include "parameter_sets.h"
#include "payload_reader.h"
#include "rewrite_unit.h"
#include "sps_json.h"
#include "sps_properties.h"
#include "text.h"

namespace h264tool {
namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t kCropRoom = 4 * 8 + 1;  // bytes for four codes

[[noreturn]] void fail(const std::string& reason) { throw std::runtime_error(reason); }

std::string name_of(const sps_t& sps) { return "sequence parameter set " + std::to_string(sps.seq_parameter_set_id); }

bitbuffer_t bits_of(Bytes& bytes) {
    bitbuffer_t bits{};
    DoInitBitBuffer(&bits, bytes.data(), static_cast<int>(bytes.size()) * NUM_BITS_IN_BYTE);
    return bits;
}

// Reads a payload, behind whose elements nothing but the stop bit may stand: where more does, the elements were not
// understood.
sps_t read(Bytes& payload) {
    sps_t sps{};
    bitbuffer_t bits = bits_of(payload);
    if (parse_sps(&bits, &sps) != 0) fail("sequence parameter set cannot be parsed");
    unsigned long long bit = 0;
    bool fine = GetNextNBitsAsUint64(&bits, 1, &bit) == 0 && bit == 1;
    while (fine && bits.bit_offset < bits.num_bits) fine = GetNextNBitsAsUint64(&bits, 1, &bit) == 0 && bit == 0;
    if (!fine) fail(name_of(sps) + " does not end where its elements do, so that it is not understood");
    return sps;
}

// ITU-T H.264 A.3: Level 1b of the early profiles is level_idc 11 with constraint_set3_flag.
void set_level(Bytes& payload, sps_t& wanted, const Level& level) {
    constexpr unsigned char kLevel11 = 11;
    const bool early = wanted.profile_idc == 66 || wanted.profile_idc == 77 || wanted.profile_idc == 88;
    const bool set3 = (wanted.constraint_flags & 0x10) != 0;
    if (level_name(wanted) == level.name) return;
    if (early && !set3 && level.name == "1b")
        fail("--level: level 1b of the " + profile_name(wanted) +
             " profile is told by constraint_set3_flag, which cannot be changed");
    if (early && set3 && level.level_idc == kLevel11)
        fail("--level: level 1.1 would be read as level 1b, because constraint_set3_flag of " + name_of(wanted) +
             " is 1, which cannot be changed");
    if (early && set3 && wanted.level_idc == kLevel11)
        fail("--level: level 1b of " + name_of(wanted) +
             " is told by constraint_set3_flag, which has to be 0 at level " + level.name + " and cannot be changed");
    wanted.level_idc = early && level.name == "1b" ? kLevel11 : level.level_idc;
    bitbuffer_t bits = bits_of(payload);
    set_sps_level_idc(&bits, &wanted);
}

std::uint64_t offset_of(const char* side, std::uint32_t pixels, std::uint64_t unit, const sps_t& sps) {
    if (pixels % unit == 0) return pixels / unit;
    fail(format("--crop: %s on the %s %s no multiple of %" PRIu64 ", which is the crop unit of %s %s",
                count_of(pixels, "pixel").c_str(), side, pixels == 1 ? "is" : "are", unit,
                chroma_format_name(sps).c_str(),
                sps.frame_mbs_only_flag != 0 ? "frames" : "pictures that may be fields"));
}

void set_crop(Bytes& payload, sps_t& wanted, const Cropping& crop) {
    const auto unit = crop_unit(wanted);
    if (!unit) fail("--crop: the chroma format of " + name_of(wanted) + " is unknown");
    const PictureSize size = coded_size(wanted);
    sps_t changed = wanted;
    changed.frame_crop_left_offset = offset_of("left", crop.left, unit->x, wanted);
    changed.frame_crop_right_offset = offset_of("right", crop.right, unit->x, wanted);
    changed.frame_crop_top_offset = offset_of("top", crop.top, unit->y, wanted);
    changed.frame_crop_bottom_offset = offset_of("bottom", crop.bottom, unit->y, wanted);
    if (std::uint64_t{crop.left} + crop.right >= size.width || std::uint64_t{crop.top} + crop.bottom >= size.height)
        fail(format("--crop: nothing is left of the %" PRIu64 "x%" PRIu64 " pixels of %s", size.width, size.height,
                    name_of(wanted).c_str()));
    const bool is_so = wanted.frame_crop_left_offset == changed.frame_crop_left_offset &&
                       wanted.frame_crop_right_offset == changed.frame_crop_right_offset &&
                       wanted.frame_crop_top_offset == changed.frame_crop_top_offset &&
                       wanted.frame_crop_bottom_offset == changed.frame_crop_bottom_offset;
    if (is_so) return;  // without offsets they are 0

    const auto length = static_cast<int>(payload.size());
    payload.resize(payload.size() + kCropRoom);
    bitbuffer_t bits = bits_of(payload);
    // Its result is the new length in one of two cases only.
    if (set_sps_crop(&bits, length, &changed) < 0) fail("--crop: " + name_of(wanted) + " is too long to be changed");
    payload.resize((bits.bit_offset + 7) / 8);
    trim_zeros(payload);
    wanted = changed;
}

// The elements of the VUI, in the record. True when some other than those of timing in a VUI that has timing change.
bool change_vui(sps_t& wanted, const RewriteOptions& options) {
    vui_t& vui = wanted.vui;
    bool changes = false;
    if (options.sar) {
        changes = true;
        vui.aspect_ratio_info_present_flag = 1;
        vui.aspect_ratio_idc = options.sar->aspect_ratio_idc;
        vui.sar_width = options.sar->width;
        vui.sar_height = options.sar->height;
    }
    if (options.full_range || options.colour) {
        constexpr unsigned char kUnspecified = 5;
        changes = true;
        if (vui.video_signal_type_present_flag == 0) {
            vui.video_format = kUnspecified;
            vui.video_full_range_flag = 0;
            vui.colour_description_present_flag = 0;
        }
        vui.video_signal_type_present_flag = 1;
        vui.video_full_range_flag = options.full_range.value_or(vui.video_full_range_flag);
    }
    if (options.colour) {
        vui.colour_description_present_flag = 1;
        vui.colour_primaries = options.colour->primaries;
        vui.transfer_characteristics = options.colour->transfer;
        vui.matrix_coefficients = options.colour->matrix;
    }
    if (options.timing) {
        if (vui.timing_info_present_flag == 0) {
            changes = true;
            vui.fixed_frame_rate_flag = 0;
        }
        vui.timing_info_present_flag = 1;
        vui.num_units_in_tick = options.timing->num_units_in_tick;
        vui.time_scale = options.timing->time_scale;
        getMAXFPSForVUI(vui.time_scale, vui.num_units_in_tick, &vui.MaxFPS);
    }
    if (options.fixed_frame_rate) {
        if (vui.timing_info_present_flag == 0)
            fail("--fixed-frame-rate: " + name_of(wanted) + " has no timing: give it with --timing");
        vui.fixed_frame_rate_flag = *options.fixed_frame_rate;
    }
    return changes;
}

// Writes the beginning of the VUI anew, which may change its length.
void splice_vui(const NalUnit& unit, Bytes& payload, const sps_t& record) {
    const Bytes source = with_payload(unit, payload);
    const std::size_t behind_start_code = source.size() - unit.start_code_length;
    if (behind_start_code > MAX_PARAMETER_SET_BYTES)
        fail(format("%s is too long to be changed: %zu bytes behind the start code", name_of(record).c_str(),
                    behind_start_code));
    unsigned char* result = nullptr;
    UINT length = 0;
    const bool fine = H264Lib_Set_sps_vui_parameters_NAL(source.data(), static_cast<unsigned int>(source.size()),
                                                         &record, &result, &length) != 0;
    if (!fine) fail(name_of(record) + " is too long to be changed");
    const std::unique_ptr<unsigned char, decltype(&H26XLib_Release_sps_buffer)> owner(result,
                                                                                      H26XLib_Release_sps_buffer);
    if (length <= unit.start_code_length + 1)
        fail(format("%s is too long to be changed: there is no room for the result behind its %zu bytes",
                    name_of(record).c_str(), behind_start_code));
    payload = payload_of(as_unit({result, result + length}, unit.start_code_length));
    trim_zeros(payload);
}

void set_vui(const NalUnit& unit, Bytes& payload, sps_t& wanted, const RewriteOptions& options) {
    if (wanted.vui_parameters_present_flag == 0)
        fail(std::string(options.vui_option()) + ": " + name_of(wanted) + " has no VUI, and none can be added");
    if (options.colour && options.colour->matrix == 0 && (!has_chroma_format(wanted) || wanted.chroma_format_idc != 3))
        fail("--colour: matrix_coefficients 0 (GBR) is for 4:4:4 only, and " + name_of(wanted) + " has " +
             chroma_format_name(wanted));
    const sps_t before = read(payload);
    const std::string elements = sps_to_json(wanted).dump();
    const bool splices = change_vui(wanted, options);
    if (sps_to_json(wanted).dump() != elements) {
        // Cropping has moved the VUI: the positions are those of the payload as it is now.
        sps_t record = before;
        change_vui(record, options);
        if (splices) {
            splice_vui(unit, payload, record);
        } else {
            bitbuffer_t bits = bits_of(payload);
            set_vui_timing_info(&bits, &record.vui);
        }
    }
    if (!options.pic_struct || wanted.vui.pic_struct_present_flag != 0) return;
    vui_t vui = read(payload).vui;
    bitbuffer_t bits = bits_of(payload);
    set_vui_pic_struct_present_flag(&bits, &vui);
    wanted.vui.pic_struct_present_flag = 1;
}

}  // namespace

RewrittenSps rewrite_sps(const NalUnit& unit, const RewriteOptions& options) {
    const std::uint64_t size = unit.length - unit.start_code_length;
    if (size < 3 || size > MAX_PARAMETER_SET_BYTES)
        fail(parse_failure("sequence parameter set", unit, MAX_PARAMETER_SET_BYTES));
    Bytes payload = payload_of(unit);
    trim_zeros(payload);
    const Bytes before = payload;
    RewrittenSps result;
    result.sps = read(payload);
    sps_t wanted = result.sps;
    if (options.level) set_level(payload, wanted, *options.level);
    if (options.crop) set_crop(payload, wanted, *options.crop);
    if (options.vui_option() != nullptr) set_vui(unit, payload, wanted, options);

    result.sps = read(payload);
    if (sps_to_json(result.sps) != sps_to_json(wanted))
        fail(name_of(wanted) + " cannot be changed: what was written is not what is read back");
    if (payload == before) return result;
    result.unit = with_payload(unit, payload);
    const std::size_t length = result.unit.size() - unit.start_code_length;
    if (length > MAX_PARAMETER_SET_BYTES)
        fail(format("%s is too long to be changed: it would have %zu bytes behind the start code, %d can be parsed",
                    name_of(wanted).c_str(), length, MAX_PARAMETER_SET_BYTES));
    return result;
}

}  // namespace h264tool
