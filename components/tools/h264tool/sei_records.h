// What SEI messages of the kinds hold that the library reads.
#pragma once

#include <array>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <variant>

#include "h264.h"
#include "sei_messages.h"

namespace h264tool {

// MISB ST 0604.
struct PrecisionTime {
    unsigned status = 0;
    std::uint64_t microseconds = 0;  // since the epoch
};

// user_data_unregistered(), ITU-T H.264 D.1.7.
struct UnregisteredData {
    std::array<unsigned char, 16> uuid{};
    std::optional<PrecisionTime> time;
};

using SeiRecord =
    std::variant<std::monostate, SEI_cc_t, SEI_afd_t, sei_pic_timing_t, sei_buffering_period_t, UnregisteredData>;

// Whether reading the message takes a sequence parameter set.
bool needs_sps(const SeiMessage& message);

// Reads a whole message of a unit: the record is empty for a kind that has none. Each is read as if it were alone in
// its unit, so that the others do not count among the bytes that the library can read. sps: null when there is none.
// Returns why the message cannot be read, empty when it can.
std::string read_sei_record(const SeiUnit& unit, const SeiMessage& message, const sps_t* sps, SeiRecord& record);

// Name of the record's kind: "pic_timing"
const char* record_name(const SeiRecord& record);

// Its elements; sps: by which it was read.
nlohmann::ordered_json record_to_json(const SeiRecord& record, const sps_t* sps);

// "2026-01-31T12:34:56.000001Z"
std::string utc_time(std::uint64_t microseconds);

}  // namespace h264tool
