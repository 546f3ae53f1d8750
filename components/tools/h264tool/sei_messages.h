// The messages of supplemental enhancement information (SEI) units.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "annexb_reader.h"

namespace h264tool {

// payloadType, ITU-T H.264 D.1.1, of the messages that are looked into.
enum SeiPayloadType {
    kBufferingPeriod = 0,
    kPicTiming = 1,
    kUserDataRegistered = 4,
    kUserDataUnregistered = 5,
};

// What a message is.
struct SeiKind {
    std::uint64_t payload_type = 0;
    // Of user_data_registered_itu_t_t35() of ATSC A/53: "GA94", "DTG1"; "other" of other registered user data.
    std::string user_identifier;

    auto operator<=>(const SeiKind&) const = default;
};

// "pic_timing", ITU-T H.264 D.1.1; "reserved_sei_message" for an unknown type
const char* sei_name(std::uint64_t payload_type);

struct SeiMessage {
    SeiKind kind;
    std::uint64_t size = 0;         // payloadSize
    std::size_t offset = 0;         // of the message in the unit's bytes
    std::size_t payload_index = 0;  // of its payload there
};

// A unit taken apart, ITU-T H.264 7.3.2.3.
struct SeiUnit {
    std::vector<unsigned char> bytes;  // behind the header byte, emulation prevention removed
    std::vector<SeiMessage> messages;
    bool cut = false;      // the unit has more than the bytes that were kept
    bool damaged = false;  // a message runs past the unit's end
    std::size_t end = 0;   // of the messages, in bytes

    // What of a message's payload was kept.
    std::span<const unsigned char> payload(const SeiMessage& message) const;
    bool has_whole(const SeiMessage& message) const { return payload(message).size() == message.size; }
};

SeiUnit read_sei_unit(const NalUnit& unit);

// How far the library walks a unit's messages.
struct SeiWalk {
    std::vector<int> classifications;  // SEI_SUID_... of the messages that are found, which are the first ones
    std::string end_reason;            // why others are not found; empty when there are none
};

SeiWalk walk_sei_messages(const NalUnit& unit, const SeiUnit& sei);

// "SEI_SUID_NONE"
const char* classification_name(int classification);

}  // namespace h264tool
