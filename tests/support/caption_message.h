// Caption messages as the writer should make them.
#pragma once

#include "encapsulation_model.h"
#include "vanc_entries.h"
#include "writer_check.h"

namespace test {

// cc_data_1 and cc_data_2 of the caption at an index.
inline vanc_t numbered_caption(unsigned index) {
    return caption_of(static_cast<int>(index % 2), static_cast<int>(index % 4), static_cast<int>(index % 251),
                      static_cast<int>(255 - index % 256));
}

inline std::vector<vanc_t> numbered_captions(unsigned count) {
    std::vector<vanc_t> entries;
    for (unsigned i = 0; i < count; ++i) entries.push_back(numbered_caption(i));
    return entries;
}

// The unit with the entries' captions, as far as count goes, and padding of one type.
inline Bytes caption_unit(const std::vector<vanc_t>& entries, unsigned count, int padding_type = 0) {
    const auto byte = [](unsigned value) { return static_cast<unsigned char>(value); };
    Bytes rbsp = {0x04, byte(11 + 3 * count), 0xB5, 0x00, 0x31, 'G', 'A', '9', '4', 0x03, byte(count | 0xC0), 0xFF};
    unsigned triples = 0;
    for (const vanc_t& entry : entries) {
        if (entry.suid != 2 || triples == count) continue;
        const caption_t caption = entry.vanc_data.caption;
        BitWriter triple;
        triple.u(5, 0x1F).u(1, caption.flag).u(2, caption.type).u(8, caption.data1).u(8, caption.data2);
        rbsp = join(rbsp, triple.bytes());
        ++triples;
    }
    for (; triples < count; ++triples) {
        const BitWriter triple = BitWriter().u(5, 0x1F).u(1, 0).u(2, static_cast<unsigned>(padding_type)).u(16, 0);
        rbsp = join(rbsp, triple.bytes());
    }
    return join(kSeiHeader, emulation_prevented(join(rbsp, {0xFF, 0x80})));
}

// Bytes that an output must have for a count of triples.
inline int caption_room(unsigned count) { return static_cast<int>(5 + (14 + 3 * count + 2) / 3 * 4); }

}  // namespace test
