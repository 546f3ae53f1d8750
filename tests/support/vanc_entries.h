// Ancillary entries for the tests of the writers.
#pragma once

#include <cstring>
#include <vector>

#include "bit_writer.h"
#include "h264.h"

namespace test {

// An entry of a kind whose payload is all ones.
inline vanc_t entry_of(unsigned suid) {
    vanc_t entry;
    std::memset(&entry, 0xFF, sizeof entry);
    entry.suid = suid;
    return entry;
}

inline vanc_t caption_of(int flag, int type, int data1, int data2) {
    vanc_t entry = entry_of(SEI_SUID_CLOSED_CAPTION);
    const auto byte = [](int value) { return static_cast<unsigned char>(value); };
    entry.vanc_data.caption = {byte(flag), byte(type), byte(data1), byte(data2)};
    return entry;
}

inline vanc_t afd_of(int flag, int format) {
    vanc_t entry = entry_of(SEI_SUID_AFD);
    entry.vanc_data.afd_data.active_format_flag = flag;
    entry.vanc_data.afd_data.active_format = static_cast<unsigned char>(format);
    return entry;
}

inline unsigned bytes_of(const std::vector<vanc_t>& entries) { return static_cast<unsigned>(entries.size() * 273); }

// The entries as they lie in memory.
inline Bytes packed(const std::vector<vanc_t>& entries) {
    Bytes bytes(entries.size() * sizeof(vanc_t));
    if (!entries.empty()) std::memcpy(bytes.data(), entries.data(), bytes.size());
    return bytes;
}

}  // namespace test
