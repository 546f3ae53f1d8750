#include "sei_records.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <vector>

#include "diagnostics.h"
#include "text.h"

namespace h264tool {
namespace {

// What the readers take behind the start code.
constexpr std::size_t kMostCaptionBytes = 128;
constexpr std::size_t kMostAfdBytes = 32;
constexpr std::size_t kMostTimingBytes = 256;

constexpr unsigned char kStartCode[] = {0, 0, 0, 1};
constexpr std::string_view kPrecisionTimeUuid = "MISPmicrosectime";

void append_number(std::vector<unsigned char>& bytes, std::uint64_t number) {
    for (; number >= 255; number -= 255) bytes.push_back(0xFF);
    bytes.push_back(static_cast<unsigned char>(number));
}

// A unit with one message and where its payload begins in it.
struct LoneMessage {
    std::vector<unsigned char> unit;
    SEI_message_t header{};

    std::size_t size() const { return unit.size() - sizeof kStartCode; }
};

LoneMessage alone(const SeiUnit& unit, const SeiMessage& message) {
    std::vector<unsigned char> rbsp;
    append_number(rbsp, message.kind.payload_type);
    append_number(rbsp, message.size);
    LoneMessage lone;
    lone.header.payload_type = static_cast<unsigned char>(message.kind.payload_type);
    lone.header.payload_size = static_cast<unsigned int>(message.size);
    lone.header.payload_index = static_cast<unsigned int>(rbsp.size());
    const std::span<const unsigned char> payload = unit.payload(message);
    rbsp.insert(rbsp.end(), payload.begin(), payload.end());
    rbsp.push_back(0x80);

    // At most an inserted byte for every two, and one place that stays free.
    lone.unit.resize(sizeof kStartCode + 1 + rbsp.size() / 2 * 3 + 4);
    std::copy(std::begin(kStartCode), std::end(kStartCode), lone.unit.begin());
    constexpr std::size_t kPayload = sizeof kStartCode + 1;
    lone.unit[kPayload - 1] = 6;
    const int length = RBSP_encapsulation_within_NAL_Ex(rbsp.data(), static_cast<unsigned int>(rbsp.size()),
                                                        lone.unit.data() + kPayload,
                                                        static_cast<unsigned int>(lone.unit.size() - kPayload), TRUE);
    lone.unit.resize(kPayload + static_cast<std::size_t>(std::max(length, 0)));
    return lone;
}

std::string failure(const char* name, const LoneMessage& message, std::size_t most_bytes) {
    if (message.size() > most_bytes)
        return std::string(name) + " message too long: a unit of " + count_of(message.size(), "byte") + ", " +
               std::to_string(most_bytes) + " can be parsed";
    return std::string(name) + " message cannot be parsed";
}

template <typename Record, typename Parse>
std::string read(const LoneMessage& message, std::size_t most_bytes, SeiRecord& record, Parse parse) {
    Record result{};
    result.header = message.header;
    const bool fine = parse(message.unit.data(), static_cast<int>(message.unit.size()), &result) != 0;
    if (!fine) return failure(record_name(Record{}), message, most_bytes);
    record = result;
    return {};
}

std::string read_user_data(std::span<const unsigned char> payload, SeiRecord& record) {
    constexpr std::size_t kTimeBytes = 12;
    UnregisteredData data;
    if (payload.size() < data.uuid.size()) return {};
    std::copy_n(payload.begin(), data.uuid.size(), data.uuid.begin());
    if (std::equal(data.uuid.begin(), data.uuid.end(), kPrecisionTimeUuid.begin())) {
        payload = payload.subspan(data.uuid.size());
        if (payload.size() < kTimeBytes) return "precision time stamp ends inside its time";
        data.time.emplace().status = payload[0];
        for (const std::size_t i : {1U, 2U, 4U, 5U, 7U, 8U, 10U, 11U})
            data.time->microseconds = data.time->microseconds << 8 | payload[i];
    }
    record = data;
    return {};
}

std::string read_registered(const SeiUnit& unit, const SeiMessage& message, SeiRecord& record) {
    const std::span<const unsigned char> payload = unit.payload(message);
    int classification = SEI_SUID_NONE;
    {
        const DiagnosticsLevel quiet(0);
        if (_FindSEIUserDataRegisteredSUID(payload.data(), static_cast<int>(payload.size()), &classification) == 0)
            return {};
    }
    if (classification == SEI_SUID_CLOSED_CAPTION)
        return read<SEI_cc_t>(alone(unit, message), kMostCaptionBytes, record, parse_sei_cc_nal);
    return read<SEI_afd_t>(alone(unit, message), kMostAfdBytes, record, parse_sei_afd_nal);
}

}  // namespace

bool needs_sps(const SeiMessage& message) {
    return message.kind.payload_type == kPicTiming || message.kind.payload_type == kBufferingPeriod;
}

std::string read_sei_record(const SeiUnit& unit, const SeiMessage& message, const sps_t* sps, SeiRecord& record) {
    record = std::monostate();
    if (needs_sps(message) && sps == nullptr)
        return std::string(sei_name(message.kind.payload_type)) +
               " message cannot be parsed: its sequence parameter set is missing";
    switch (message.kind.payload_type) {
        case kBufferingPeriod:
            return read<sei_buffering_period_t>(
                alone(unit, message), unit.bytes.size() * 2, record,
                [&](const unsigned char* bytes, int length, sei_buffering_period_t* result) {
                    return parse_sei_buffering_period_nal(bytes, length, &sps->vui, result);
                });
        case kPicTiming:
            return read<sei_pic_timing_t>(alone(unit, message), kMostTimingBytes, record,
                                          [&](const unsigned char* bytes, int length, sei_pic_timing_t* result) {
                                              return parse_sei_pictiming_nal(bytes, length, sps, result);
                                          });
        case kUserDataRegistered:
            return read_registered(unit, message, record);
        case kUserDataUnregistered:
            return read_user_data(unit.payload(message), record);
        default:
            return {};
    }
}

}  // namespace h264tool
