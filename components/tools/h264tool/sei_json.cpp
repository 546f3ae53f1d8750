// The JSON of SEI messages.
#include <ctime>

#include "sei_records.h"
#include "text.h"

namespace h264tool {
namespace {

using Json = nlohmann::ordered_json;

unsigned unsigned_byte(char byte) { return static_cast<unsigned char>(byte); }

// cc_data() behind its identifiers, ATSC A/53 part 4.
Json to_json(const SEI_cc_t& captions, const sps_t* /*sps*/) {
    Json json;
    json["itu_t_t35_country_code"] = unsigned_byte(captions.itu_t_t35_country_code);
    json["itu_t_t35_provider_code"] = captions.itu_t_t35_provider_code;
    json["user_identifier"] = captions.user_identifier;
    json["user_data_type_code"] = captions.user_data_type_code;
    json["process_cc_data_flag"] = captions.cc_data.process_cc_data_flag;
    json["cc_count"] = captions.cc_data.cc_count;
    Json& triples = json["cc_data_pkts"] = Json::array();
    for (unsigned i = 0; i < captions.cc_data.cc_count; ++i) {
        const caption_t& triple = captions.cc_bytes[i];
        triples.push_back({{"cc_valid", triple.flag},
                           {"cc_type", triple.type},
                           {"cc_data_1", triple.data1},
                           {"cc_data_2", triple.data2}});
    }
    return json;
}

Json to_json(const SEI_afd_t& afd, const sps_t* /*sps*/) {
    Json json;
    json["itu_t_t35_country_code"] = unsigned_byte(afd.itu_t_t35_country_code);
    json["itu_t_t35_provider_code"] = afd.itu_t_t35_provider_code;
    json["user_identifier"] = afd.user_identifier;
    json["active_format_flag"] = afd.afd_data.active_format_flag;
    if (afd.afd_data.active_format_flag != 0) json["active_format"] = afd.afd_data.active_format;
    return json;
}

Json timestamp_to_json(const clock_timestamp_info_t& timestamp, unsigned time_offset_length) {
    Json json;
    json["clock_timestamp_flag"] = timestamp.clock_timestamp_flag;
    if (timestamp.clock_timestamp_flag == 0) return json;
    json["ct_type"] = timestamp.ct_type;
    json["nuit_field_based_flag"] = timestamp.nuit_field_based_flag;
    json["counting_type"] = timestamp.counting_type;
    json["full_timestamp_flag"] = timestamp.full_timestamp_flag;
    json["discontinuity_flag"] = timestamp.discontinuity_flag;
    json["cnt_dropped_flag"] = timestamp.cnt_dropped_flag;
    json["n_frames"] = timestamp.n_frames;
    if (timestamp.full_timestamp_flag != 0) {
        json["seconds_value"] = timestamp.seconds_value;
        json["minutes_value"] = timestamp.minutes_value;
        json["hours_value"] = timestamp.hours_value;
    } else {
        json["seconds_flag"] = timestamp.seconds_flag;
        if (timestamp.seconds_flag != 0) {
            json["seconds_value"] = timestamp.seconds_value;
            json["minutes_flag"] = timestamp.minutes_flag;
        }
        if (timestamp.minutes_flag != 0) {
            json["minutes_value"] = timestamp.minutes_value;
            json["hours_flag"] = timestamp.hours_flag;
        }
        if (timestamp.hours_flag != 0) json["hours_value"] = timestamp.hours_value;
    }
    if (time_offset_length > 0) json["time_offset"] = timestamp.time_offset;
    return json;
}

// pic_timing(), ITU-T H.264 D.1.3.
Json to_json(const sei_pic_timing_t& timing, const sps_t* sps) {
    const vui_t& vui = sps->vui;
    const bool has_delays = vui.CpbDpbDelaysPresentFlag != 0;
    Json json = Json::object();
    if (has_delays) {
        json["cpb_removal_delay"] = timing.cpb_removal_delay;
        json["dpb_output_delay"] = timing.dpb_output_delay;
    }
    if (vui.pic_struct_present_flag == 0) return json;
    json["pic_struct"] = timing.pic_struct;
    const hrd_t& hrd = vui.nal_hrd_parameters_present_flag != 0 ? vui.nal_hrd : vui.vcl_hrd;
    constexpr unsigned kLengthWithoutHrd = 24;
    Json& timestamps = json["clock_timestamp_info"] = Json::array();
    for (int i = 0; i < timing.NumClockTS; ++i)
        timestamps.push_back(
            timestamp_to_json(timing.clock_timestamp_info[i], has_delays ? hrd.time_offset_length : kLengthWithoutHrd));
    return json;
}

template <std::size_t capacity>
Json schedules_to_json(unsigned long count, const unsigned long (&delays)[capacity],
                       const unsigned long (&offsets)[capacity]) {
    Json json{{"initial_cpb_removal_delay", Json::array()}, {"initial_cpb_removal_delay_offset", Json::array()}};
    for (std::size_t i = 0; i < count && i < capacity; ++i) {
        json["initial_cpb_removal_delay"].push_back(delays[i]);
        json["initial_cpb_removal_delay_offset"].push_back(offsets[i]);
    }
    return json;
}

// buffering_period(), ITU-T H.264 D.1.2.
Json to_json(const sei_buffering_period_t& period, const sps_t* sps) {
    Json json;
    json["seq_parameter_set_id"] = period.seq_parameter_set_id;
    if (sps->vui.nal_hrd_parameters_present_flag != 0)
        json["nal_hrd_parameters"] = schedules_to_json(period.valid_NALSchedules, period.initial_cpb_removal_delay,
                                                       period.initial_cpb_removal_delay_offset);
    if (sps->vui.vcl_hrd_parameters_present_flag != 0)
        json["vcl_hrd_parameters"] = schedules_to_json(period.valid_VCLSchedules, period.initial_cpb_removal_delay_vcl,
                                                       period.initial_cpb_removal_delay_offset_vcl);
    return json;
}

Json to_json(const UnregisteredData& data, const sps_t* /*sps*/) {
    std::string uuid;
    for (std::size_t i = 0; i < data.uuid.size(); ++i)
        uuid += format(i == 4 || i == 6 || i == 8 || i == 10 ? "-%02x" : "%02x", static_cast<unsigned>(data.uuid[i]));
    Json json;
    json["uuid_iso_iec_11578"] = uuid;
    if (data.time)
        json["precision_time_stamp"] = {{"status", data.time->status},
                                        {"microseconds", data.time->microseconds},
                                        {"utc", utc_time(data.time->microseconds)}};
    return json;
}

Json to_json(std::monostate /*none*/, const sps_t* /*sps*/) { return {}; }

}  // namespace

const char* record_name(const SeiRecord& record) {
    constexpr const char* kNames[] = {"none",       "closed_captions",  "active_format_description",
                                      "pic_timing", "buffering_period", "user_data_unregistered"};
    return kNames[record.index()];
}

Json record_to_json(const SeiRecord& record, const sps_t* sps) {
    return std::visit([&](const auto& one) { return to_json(one, sps); }, record);
}

std::string utc_time(std::uint64_t microseconds) {
    const std::time_t seconds = static_cast<std::time_t>(microseconds / 1000000);
    std::tm time{};
    gmtime_r(&seconds, &time);
    return format("%04ld-%02d-%02dT%02d:%02d:%02d.%06uZ", static_cast<long>(time.tm_year) + 1900, time.tm_mon + 1,
                  time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec, static_cast<unsigned>(microseconds % 1000000));
}

}  // namespace h264tool
