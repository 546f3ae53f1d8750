// Splits an Annex B byte stream into NAL units.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <vector>

namespace h264tool {

// byte_stream_nal_unit(), ITU-T H.264 B.1.1. A unit ends at the zero bytes before the next start code; other zero
// bytes inside it belong to it, although a conforming unit never has three of them in a row.
struct NalUnit {
    std::uint64_t number = 0;               // from 1
    std::uint64_t offset = 0;               // of the first byte of the start code
    std::uint64_t length = 0;               // bytes with the start code, without trailing zero bytes
    unsigned start_code_length = 0;         // 3 or 4
    std::uint64_t trailing_zero_8bits = 0;  // zero bytes behind the unit that are not part of the next start code
    std::vector<unsigned char> bytes;       // from the start code on, as much as the reader keeps

    bool has_header() const { return length > start_code_length; }
    unsigned char header() const { return bytes[start_code_length]; }
    unsigned type() const { return header() & 0x1FU; }
    unsigned ref_idc() const { return header() >> 5 & 3U; }
    bool forbidden_zero_bit() const { return (header() & 0x80U) != 0; }
};

// Reads chunk by chunk and keeps one chunk and one unit, or the beginning of one, in memory.
class AnnexBReader {
public:
    static constexpr std::size_t kChunkSize = std::size_t{256} * 1024;

    // Stores at most capacity bytes in area and returns their number; 0 at the end of the stream.
    using Source = std::function<std::size_t(unsigned char* area, std::size_t capacity)>;

    // How much of a unit to keep, by its type: bytes from the header byte on, of which at least that one is kept.
    using KeptBytes = std::array<std::size_t, 32>;
    static constexpr std::size_t kWhole = std::numeric_limits<std::size_t>::max();
    static KeptBytes all_of_every_unit();

    explicit AnnexBReader(Source source, const KeptBytes& kept_bytes = all_of_every_unit(),
                          std::size_t chunk_size = kChunkSize);

    // Reads the next unit; false at the end of the stream, with unit unchanged.
    bool next(NalUnit& unit);

    // What stood before the first start code, complete after the first call of next(): zero bytes at the very
    // beginning, and everything from the first other byte on. The offset of the first unit is their sum.
    std::uint64_t leading_zero_8bits() const { return leading_zeros_; }
    std::uint64_t stray_bytes() const { return stray_bytes_; }

private:
    bool fill();
    bool find_start_code();
    void take(const unsigned char* begin, const unsigned char* end);
    void append(const unsigned char* begin, const unsigned char* end);
    void add_prefix_zeros(std::uint64_t zeros);
    void begin_unit(unsigned start_code_length);

    Source source_;
    KeptBytes kept_by_type_;
    std::vector<unsigned char> chunk_;
    std::size_t next_ = 0;            // first byte of chunk_ that is not taken yet
    std::size_t filled_ = 0;          // bytes in chunk_
    std::uint64_t chunk_offset_ = 0;  // of the first byte of chunk_ in the stream
    bool at_end_ = false;

    std::uint64_t zeros_ = 0;  // zero bytes just before next_ of which it is open whether they belong to the unit
    bool started_ = false;     // a start code was found
    bool in_unit_ = false;     // unit_ is being read
    NalUnit unit_;
    std::uint64_t units_ = 0;
    std::size_t kept_bytes_ = 0;  // bytes of unit_ to keep
    std::uint64_t leading_zeros_ = 0;
    std::uint64_t stray_bytes_ = 0;
};

}  // namespace h264tool
