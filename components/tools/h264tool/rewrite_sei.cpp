#include "rewrite_sei.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>

#include "pic_struct.h"
#include "rewrite_unit.h"
#include "sei_records.h"
#include "text.h"

namespace h264tool {
namespace {

using Bytes = std::vector<unsigned char>;

[[noreturn]] void fail(const std::string& reason) { throw std::runtime_error(reason); }

template <class Record>
Record read(const SeiUnit& sei, const SeiMessage& message, const sps_t* sps) {
    SeiRecord record;
    const std::string failure = read_sei_record(sei, message, sps, record);
    if (!failure.empty()) fail(failure);
    return std::get<Record>(record);
}

// The writer takes the length of time_offset from whichever HRD record has one, and looks at the HRDs' flags for the
// delays. This gives it what the reader goes by.
sps_t for_writer(const sps_t& sps) {
    constexpr unsigned char kWithoutDelays = 24;
    sps_t result = sps;
    vui_t& vui = result.vui;
    const hrd_t& hrd = vui.nal_hrd_parameters_present_flag != 0 ? vui.nal_hrd : vui.vcl_hrd;
    const unsigned char length = vui.CpbDpbDelaysPresentFlag != 0 ? hrd.time_offset_length : kWithoutDelays;
    vui.nal_hrd.time_offset_length = vui.vcl_hrd.time_offset_length = length;
    return result;
}

// The unit with a message in place of its own.
NalUnit write(const NalUnit& unit, const sps_t& sps, const sei_pic_timing_t& timing) {
    const sps_t writer_sps = for_writer(sps);
    unsigned char* result = nullptr;
    unsigned int length = 0;
    const bool fine = H264Lib_Set_SEIPictiming_NAL(unit.bytes.data(), static_cast<unsigned int>(unit.bytes.size()),
                                                   &writer_sps, &timing, &result, &length) != 0;
    if (!fine) fail("the picture timing message does not fit the 32 bytes that can be written");
    const std::unique_ptr<unsigned char, decltype(&H26XLib_Release_sps_buffer)> owner(result,
                                                                                      H26XLib_Release_sps_buffer);
    constexpr unsigned int kWithoutPayload = 3;
    if (length <= unit.start_code_length + kWithoutPayload)
        fail("the picture timing message does not fit the 32 bytes that can be written");
    return as_unit({result, result + length}, unit.start_code_length);
}

// Reads a unit that was written; its one message is the whole of it.
sei_pic_timing_t read_back(const NalUnit& unit, const sps_t& sps) {
    const SeiUnit sei = read_sei_unit(unit);
    if (sei.damaged || sei.messages.size() != 1) fail("the picture timing message cannot be read back");
    return read<sei_pic_timing_t>(sei, sei.messages.front(), &sps);
}

void set_timecode(sei_pic_timing_t& timing, const TimingChange::FrameTimecode& frame) {
    constexpr unsigned char kNoDropping = 1;
    constexpr unsigned char kLowestDropped = 4;  // counting_type, ITU-T H.264 Table D-3
    clock_timestamp_info_t* const begin = timing.clock_timestamp_info;
    clock_timestamp_info_t* const end = begin + timing.NumClockTS;
    const auto is_present = [](const clock_timestamp_info_t& timestamp) { return timestamp.clock_timestamp_flag != 0; };
    if (std::none_of(begin, end, is_present)) {
        *begin = {};
        begin->clock_timestamp_flag = 1;
        begin->ct_type = timing.pic_struct == 0 ? 0 : 1;  // progressive, interlaced
        begin->counting_type = kNoDropping;
    }
    const Timecode& timecode = frame.timecode;
    const unsigned first_number = frame.rate.drop_frame ? frame.rate.frames_per_second / 15 : 0;
    const bool behind_dropped =
        first_number > 0 && timecode.frames == first_number && timecode.seconds == 0 && timecode.minutes % 10 != 0;
    for (clock_timestamp_info_t* timestamp = begin; timestamp != end; ++timestamp) {
        if (!is_present(*timestamp)) continue;
        timestamp->full_timestamp_flag = 1;
        timestamp->seconds_flag = timestamp->minutes_flag = timestamp->hours_flag = 1;
        timestamp->counting_type =
            frame.rate.drop_frame ? kLowestDropped : std::min(timestamp->counting_type, kNoDropping);
        timestamp->cnt_dropped_flag = static_cast<int>(behind_dropped);
        timestamp->discontinuity_flag = static_cast<int>(frame.begins_again);
        timestamp->n_frames = static_cast<unsigned char>(timecode.frames);
        timestamp->seconds_value = static_cast<unsigned char>(timecode.seconds);
        timestamp->minutes_value = static_cast<unsigned char>(timecode.minutes);
        timestamp->hours_value = static_cast<unsigned char>(timecode.hours);
    }
}

void set_pic_struct(sei_pic_timing_t& timing, unsigned char pic_struct) {
    constexpr unsigned char kTopFieldFirst = 3;
    timing.pic_struct = pic_struct;
    timing.NumClockTS = pic_struct < kTopFieldFirst ? 1 : 2;
}

bool same(const sei_pic_timing_t& a, const sei_pic_timing_t& b, const sps_t& sps) {
    return record_to_json(a, &sps) == record_to_json(b, &sps);
}

}  // namespace

Bytes rewrite_pic_timing(const NalUnit& unit, const SeiUnit& sei, const sps_t& before, const sps_t& after,
                         const TimingChange& change) {
    if (sei.messages.size() != 1)
        fail("the picture timing message shares its unit with " + count_of(sei.messages.size() - 1, "other message") +
             ", which cannot be carried over");
    const std::uint64_t size = unit.length - unit.start_code_length;
    if (size > H264_MAX_SEI_PICTIMING_SIZE_BYTES)
        fail("the unit of the picture timing message is too long: " + count_of(size, "byte") +
             " behind the start code, " + std::to_string(H264_MAX_SEI_PICTIMING_SIZE_BYTES) + " can be changed");

    auto timing = read<sei_pic_timing_t>(sei, sei.messages.front(), &before);
    // What is written without a change must be what is there: everything in the message is understood then.
    SeiUnit unchanged = read_sei_unit(write(unit, before, timing));
    Bytes payload = sei.bytes;
    trim_zeros(payload);
    if (unchanged.bytes != payload)
        fail("the picture timing message does not have the form that can be written, so that more of it would change");

    if (change.pic_struct) set_pic_struct(timing, *change.pic_struct);
    if (change.timecode) {
        if (after.vui.pic_struct_present_flag == 0)
            fail(
                "the picture timing message has no timecode, because pic_struct_present_flag of sequence parameter "
                "set " +
                std::to_string(after.seq_parameter_set_id) + " is 0: set it with --pic-struct");
        if (timing.pic_struct > kLastWithoutRepetition)
            fail("pic_struct " + std::to_string(timing.pic_struct) +
                 " repeats a field or the frame, so that timecodes cannot be counted by frames");
        set_timecode(timing, *change.timecode);
    }
    const NalUnit result = write(unit, after, timing);
    if (!same(read_back(result, after), timing, after))
        fail("the picture timing message cannot be changed: what was written is not what is read back");
    return read_sei_unit(result).bytes == payload ? Bytes() : result.bytes;
}

void rewrite_buffering_period(SeiUnit& sei, const SeiMessage& message, const sps_t* sps,
                              const RewriteOptions& options) {
    auto period = read<sei_buffering_period_t>(sei, message, sps);
    const vui_t& vui = sps->vui;
    const bool nal = options.hrd == Hrd::kNal;
    const std::string name = nal ? "NAL" : "VCL";
    if ((nal ? vui.nal_hrd_parameters_present_flag : vui.vcl_hrd_parameters_present_flag) == 0)
        fail("sequence parameter set " + std::to_string(sps->seq_parameter_set_id) + " has no " + name +
             " HRD, whose delays are to be changed" + (nal ? ": choose with --hrd" : ""));
    if (!nal && vui.nal_hrd_parameters_present_flag != 0)
        fail("the VCL HRD's delays cannot be changed where there is a NAL HRD, whose delays stand before them");
    const hrd_t& hrd = nal ? vui.nal_hrd : vui.vcl_hrd;
    const std::uint64_t length = hrd.initial_cpb_removal_delay_length_minus1 + std::uint64_t{1};
    const std::uint64_t schedules = std::uint64_t{hrd.cpb_cnt_minus1} + 1;
    // The reader counts from the beginning of a unit with this message alone.
    period.after_sps_id_offset +=
        (static_cast<int>(message.payload_index) - static_cast<int>(period.header.payload_index)) * 8;
    std::uint64_t end = static_cast<std::uint64_t>(period.after_sps_id_offset) + 2 * length * schedules;
    if (nal && vui.vcl_hrd_parameters_present_flag != 0)
        end += 2 * (vui.vcl_hrd.initial_cpb_removal_delay_length_minus1 + std::uint64_t{1}) *
               (std::uint64_t{vui.vcl_hrd.cpb_cnt_minus1} + 1);
    if (end > 8 * (message.payload_index + message.size))
        fail("the buffering period message is shorter than the HRD parameters say");

    unsigned long(&delays)[MAX_CPB_CNT] = nal ? period.initial_cpb_removal_delay : period.initial_cpb_removal_delay_vcl;
    unsigned long(&offsets)[MAX_CPB_CNT] =
        nal ? period.initial_cpb_removal_delay_offset : period.initial_cpb_removal_delay_offset_vcl;
    for (const InitialCpbDelay& change : options.initial_cpb_delays) {
        if (change.schedule >= schedules)
            fail("there is no schedule " + std::to_string(change.schedule) + ": the " + name + " HRD has " +
                 count_of(schedules, "schedule") + ", counted from 0");
        for (const std::uint32_t value : {change.delay, change.offset.value_or(0)})
            if (length < 32 && value >> length != 0)
                fail("the value " + std::to_string(value) + " does not fit the " + count_of(length, "bit") +
                     " of the " + name + " HRD's initial delays");
        delays[change.schedule] = change.delay;
        if (change.offset) offsets[change.schedule] = *change.offset;
        const sei_bp_set_t values{change.schedule, static_cast<int>(options.hrd), delays[change.schedule],
                                  offsets[change.schedule]};
        bitbuffer_t bits{};
        DoInitBitBuffer(&bits, sei.bytes.data(), static_cast<int>(sei.bytes.size()) * NUM_BITS_IN_BYTE);
        if (set_sei_buffering_period(&bits, static_cast<int>(sei.bytes.size()), &vui, &values, &period) == 0)
            fail("the buffering period message cannot be changed");
    }
    const auto result = read<sei_buffering_period_t>(sei, message, sps);
    if (record_to_json(result, sps) != record_to_json(period, sps))
        fail("the buffering period message cannot be changed: what was written is not what is read back");
}

}  // namespace h264tool
