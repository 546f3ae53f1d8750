#include "report_stream.h"

#include <algorithm>
#include <array>
#include <utility>

#include "nal_types.h"
#include "pic_struct.h"
#include "pps_json.h"
#include "sps_json.h"
#include "summary_output.h"
#include "text.h"

namespace h264tool {
namespace {

constexpr unsigned kFillerData = 12;

bool is_vcl(unsigned type) { return type >= 1 && type <= 5; }

// Whether a unit stands before the slices of its access unit, ITU-T H.264 7.4.1.2.3.
bool precedes_slices(unsigned type) { return (type >= kSei && type <= kDelimiter) || (type >= 13 && type <= 18); }

std::string sequence_name(const sps_t& sps) {
    std::string name;
    if (const auto size = picture_size(sps))
        name = std::to_string(size->width) + "\u00d7" + std::to_string(size->height) + ", ";
    name += profile_name(sps) + ' ' + level_name(sps);
    if (const auto rate = frame_rate(sps)) name += format(", %.6g frames/s", rate->value());
    return name;
}

std::optional<CpbSchedule> schedule(const sps_t& sps, bool nal, unsigned index) {
    for (const HrdSchedule& one : hrd_schedules(sps))
        if (one.nal == nal && index-- == 0) return CpbSchedule{one.bit_rate, one.cpb_size, one.cbr};
    return std::nullopt;
}

}  // namespace

void ReportStream::add(const NalUnit& unit) {
    PictureMessages::add(unit);
    account(unit);
}

void ReportStream::finish() {
    PictureMessages::finish();
    if (!pictures_.empty()) pictures_.back().bytes += bytes_before_picture_;
}

// Adds the unit's bytes to its picture.
void ReportStream::account(const NalUnit& unit) {
    bytes_before_picture_ += unit.length + unit.trailing_zero_8bits;
    if (pictures_.empty() || !unit.has_header() || precedes_slices(unit.type())) return;
    pictures_.back().bytes += std::exchange(bytes_before_picture_, 0);
    if (is_vcl(unit.type()) || unit.type() == kFillerData)
        pictures_.back().vcl_bytes += unit.length - unit.start_code_length;
}

void ReportStream::add_set(const NalUnit& unit) {
    if (unit.type() == kSps) {
        const std::uint64_t id = parameter_sets().last_sps().seq_parameter_set_id;
        keep_set(unit, "SPS", id, parameter_sets().sps(id)->bytes, sps_to_json(parameter_sets().last_sps()));
    } else if (parameter_sets().sps_of_last_pps() != nullptr) {
        const Pps& pps = parameter_sets().last_pps();
        keep_set(unit, "PPS", pps.pps.picture_parameter_set_id, pps.bytes,
                 pps_to_json(pps, *parameter_sets().sps_of_last_pps()));
    }
}

void ReportStream::keep_set(const NalUnit& unit, const char* kind, std::uint64_t id,
                            const std::vector<unsigned char>& bytes, nlohmann::ordered_json elements) {
    const auto [last, is_new] = last_sets_.try_emplace({kind, id});
    auto& [last_bytes, place] = last->second;
    if (!is_new && last_bytes == bytes) {
        if (place < sets_seen_.size()) ++sets_seen_[place].units;
        return;
    }
    last_bytes = bytes;
    place = kMaxSetVersions;
    if (sets_seen_.size() == kMaxSetVersions) {
        ++sets_left_out_;
        return;
    }
    place = sets_seen_.size();
    sets_seen_.push_back(
        {kind, id, unit.number, unit.offset, static_cast<std::uint32_t>(pictures_.size()), 1, std::move(elements)});
}

void ReportStream::add_slice(const SliceIdentity& identity) {
    if (identity.redundant_pic_cnt > 0) return;
    // A picture is B when it has a B slice, and else P when it has a P slice.
    PictureType& type = pictures_.back().type;
    const SliceKind kind = slice_kind(identity.beginning.slice_type);
    if (kind == kSliceB)
        type = kPictureB;
    else if (type == kPictureI && (kind == kSliceP || kind == kSliceSP))
        type = kPictureP;
}

void ReportStream::begin_picture(const NalUnit& unit, const SliceIdentity& identity) {
    select_sequence(*identity.beginning.sps);
    ReportPicture& picture = pictures_.emplace_back();
    picture.unit = unit.number;
    picture.idr = identity.idr;
    picture.nal_ref_idc = static_cast<std::uint8_t>(identity.nal_ref_idc);
    if (identity.field_pic_flag) picture.structure = identity.bottom_field_flag ? 2 : 1;
    picture.fields = fields_shown({}, identity.field_pic_flag);
    picture.sequence = static_cast<std::uint32_t>(sequences_.size() - 1);
}

void ReportStream::select_sequence(const Sps& sps) {
    if (!sequences_.empty() && sequence_bytes_ == sps.bytes) return;
    sequence_bytes_ = sps.bytes;
    ReportSequence& sequence = sequences_.emplace_back();
    sequence.first_picture = static_cast<std::uint32_t>(pictures_.size());
    sequence.name = sequence_name(sps.sps);
    sequence.rate = frame_rate(sps.sps);
    if (sequence.rate) sequence.tick = 0.5 / sequence.rate->value();
    sequence.nal = schedule(sps.sps, true, schedule_);
    sequence.vcl = schedule(sps.sps, false, schedule_);
    std::size_t nal_schedules = 0;
    std::size_t vcl_schedules = 0;
    for (const HrdSchedule& one : hrd_schedules(sps.sps)) ++(one.nal ? nal_schedules : vcl_schedules);
    nal_schedules_ = std::max(nal_schedules_, nal_schedules);
    vcl_schedules_ = std::max(vcl_schedules_, vcl_schedules);
    sequence.low_delay = sps.sps.vui_parameters_present_flag != 0 && sps.sps.vui.low_delay_hrd_flag != 0;
}

std::string ReportStream::missing_schedule() const {
    if (schedule_ == 0 || schedule_ < std::max(nal_schedules_, vcl_schedules_)) return {};
    std::string reason = "there is no schedule " + std::to_string(schedule_) + ": ";
    if (nal_schedules_ + vcl_schedules_ == 0) return reason + "no picture has HRD parameters";
    const auto hrd = [](const char* name, std::size_t schedules) {
        return schedules == 0 ? std::string()
                              : std::string("the ") + name + " HRD has " + count_of(schedules, "schedule");
    };
    reason += hrd("NAL", nal_schedules_);
    if (nal_schedules_ > 0 && vcl_schedules_ > 0) reason += " and ";
    return reason + hrd("VCL", vcl_schedules_) + ", counted from 0";
}

void ReportStream::store(const SeiUnit&, const SeiMessage&, const SeiRecord& record, const sps_t& sps) {
    ReportPicture& picture = pictures_.back();
    if (const auto* const captions = std::get_if<SEI_cc_t>(&record)) {
        store_captions(*captions);
    } else if (const auto* const format = std::get_if<SEI_afd_t>(&record)) {
        picture.active_format = format->afd_data.active_format_flag != 0 ? int{format->afd_data.active_format} : -1;
    } else if (const auto* const timing = std::get_if<sei_pic_timing_t>(&record)) {
        store_timing(*timing, sps);
    } else if (const auto* const data = std::get_if<UnregisteredData>(&record)) {
        if (data->time) picture.precision = data->time;
    } else if (const auto* const period = std::get_if<sei_buffering_period_t>(&record)) {
        const auto delay = [&](unsigned long schedules, const auto& delays, const auto& offsets) {
            return schedule_ < schedules && schedule_ < MAX_CPB_CNT
                       ? std::optional(CpbInitialDelay{delays[schedule_], offsets[schedule_]})
                       : std::nullopt;
        };
        if (sps.vui.nal_hrd_parameters_present_flag != 0)
            picture.nal_delay = delay(period->valid_NALSchedules, period->initial_cpb_removal_delay,
                                      period->initial_cpb_removal_delay_offset);
        if (sps.vui.vcl_hrd_parameters_present_flag != 0)
            picture.vcl_delay = delay(period->valid_VCLSchedules, period->initial_cpb_removal_delay_vcl,
                                      period->initial_cpb_removal_delay_offset_vcl);
    }
}

void ReportStream::store_captions(const SEI_cc_t& captions) {
    ReportPicture& picture = pictures_.back();
    picture.cc_count = picture.cc_count.value_or(0) + captions.cc_data.cc_count;
    for (unsigned i = 0; i < captions.cc_data.cc_count && captions.cc_data.process_cc_data_flag != 0; ++i) {
        const caption_t& triple = captions.cc_bytes[i];
        if (triple.flag != 0 && ((triple.data1 | triple.data2) & 0x7FU) != 0) ++picture.cc_active;
    }
}

void ReportStream::store_timing(const sei_pic_timing_t& timing, const sps_t& sps) {
    constexpr unsigned kNtscDropFrame = 4;  // counting_type
    ReportPicture& picture = pictures_.back();
    if (sps.vui.CpbDpbDelaysPresentFlag != 0) {
        picture.cpb_removal_delay = timing.cpb_removal_delay;
        picture.dpb_output_delay = timing.dpb_output_delay;
    }
    if (sps.vui.pic_struct_present_flag == 0) return;
    picture.fields = fields_shown(timing.pic_struct, picture.structure != 0);
    for (int i = 0; i < timing.NumClockTS; ++i) {
        const clock_timestamp_info_t& timestamp = timing.clock_timestamp_info[i];
        if (timestamp.clock_timestamp_flag == 0) continue;
        if (timestamp.seconds_flag != 0) seconds_ = timestamp.seconds_value;
        if (timestamp.minutes_flag != 0) minutes_ = timestamp.minutes_value;
        if (timestamp.hours_flag != 0) hours_ = timestamp.hours_value;
        if (!hours_ || !minutes_ || !seconds_) continue;
        const PictureTimecode timecode{{*hours_, *minutes_, *seconds_, timestamp.n_frames},
                                       timestamp.counting_type == kNtscDropFrame || timestamp.cnt_dropped_flag != 0,
                                       timestamp.discontinuity_flag != 0};
        if (picture.timecode)
            picture.others.push_back(timecode);
        else
            picture.timecode = timecode;
    }
}

}  // namespace h264tool
