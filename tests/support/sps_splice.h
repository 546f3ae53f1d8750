// Calls of the splice of a VUI head from bit buffer to bit buffer, and what they trace.
#pragma once

#include "h264d/h264d.h"
#include "sps_rewrite_model.h"
#include "sps_shapes.h"

namespace test {

// One call with a destination of so many bits, nothing readable behind source and destination.
struct Splice {
    static constexpr const char* kName = "_set_sps_vui_parameters";
    static constexpr unsigned char kFill = 0x5A;

    Splice(const Bytes& payload, const sps_t& record, std::size_t room = 2048, int level = 3)
        : source_bytes(payload),
          source(payload),
          destination(Bytes((room + 7) / 8, kFill)),
          source_bb{source.data(), 0, static_cast<unsigned>(8 * payload.size())},
          bb{destination.data(), 0, static_cast<unsigned>(room)},
          length(static_cast<int>(payload.size())),
          capacity(length + 32),
          sps(record) {
        reset(level);
    }

    int run() {
        const int result = _set_sps_vui_parameters(&source_bb, length, &sps, &bb, capacity);
        EXPECT_EQ(source.bytes(), source_bytes);
        return result;
    }
    // The first bits of the destination.
    Bits written(std::size_t bits) { return part(bits_of(destination.bytes()), 0, bits); }
    // Whether the destination is as it was from a bit on.
    bool untouched_from(std::size_t bit) {
        const Bytes fill(destination.size(), kFill);
        return part(bits_of(destination.bytes()), bit) == part(bits_of(fill), bit);
    }

    Bytes source_bytes;
    GuardedBuffer source;
    GuardedBuffer destination;
    bitbuffer_t source_bb;
    bitbuffer_t bb;
    int length;
    int capacity;
    sps_t sps;
};

// The trace of what stands from nal_hrd_parameters_present_flag on.
inline LogLine tail_trace(const Splice& splice) {
    const int start = splice.sps.vui.nal_hrd_parameters_present_offset;
    return {7, Splice::kName,
            text("SpsSodbLength bytes:%d. Current offset in bb:%d, num_bits:%d, IsByteBoudary:%s.", splice.length,
                 start, static_cast<int>(8LL * splice.length - start), start % 8 == 0 ? "TRUE" : "FALSE")};
}

// The traces of a call whose positions lie in the data. Those of one that fails are the first of them.
inline Log splice_traces(Splice& splice) {
    const Bits source = bits_of(splice.source_bytes);
    const auto size = rewritten(source, splice.sps).size();
    const auto rest = source.size() - static_cast<std::size_t>(splice.sps.vui.nal_hrd_parameters_present_offset);
    const auto last_bits = std::min<std::size_t>(rest, 8);
    unsigned last = 0;
    for (const bool bit : part(source, source.size() - last_bits)) last = 2 * last + (bit ? 1 : 0);
    int stop = last == 0 ? -1 : 0;
    while (last != 0 && (last >> stop & 1U) == 0) ++stop;
    auto before_last = static_cast<std::size_t>(splice.sps.vui_parameters_present_offset) + rest - last_bits;
    for (const HeadElement& element : vui_head(splice.sps)) before_last += element.bits.size();
    return {
        tail_trace(splice),
        {7, Splice::kName, text("num_bits:%zu, LastByteNumBits:%zu, LastByte:%#x.", last_bits, last_bits, last)},
        {7, Splice::kName,
         text("Before Trailing bits, bitbuffer BitOffset:%zu, StopBitPos:%d, LastByte:%#x.", before_last, stop, last)},
        {5, "_DisplayBitBuffer",
         text("FINAL NEW SODB SPS BB Addr=%p, NumBits=%u Current Bit Offset=%zu (Byte=%zu, BitOfByte=0).",
              static_cast<void*>(splice.destination.data()), splice.bb.num_bits, size, size / 8),
         "bitbuffer.c"},
        {7, Splice::kName, text("Final new SPS num_bits:%zu, Bytes:%zu.", size, size / 8)}};
}

}  // namespace test
