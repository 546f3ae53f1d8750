// Splitting a byte stream into NAL units by plain search in the whole of it.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "annexb_reader.h"

namespace test {

using h264tool::AnnexBReader;
using h264tool::NalUnit;
using Bytes = std::vector<unsigned char>;

struct Split {
    std::vector<NalUnit> units;
    std::uint64_t leading_zeros = 0;
    std::uint64_t stray_bytes = 0;
};

// Gives a whole buffer in pieces of at most step bytes.
inline AnnexBReader::Source source_of(const Bytes& stream, std::size_t step) {
    return [&stream, step, position = std::size_t{0}](unsigned char* area, std::size_t capacity) mutable {
        const std::size_t count = std::min({step, capacity, stream.size() - position});
        if (count > 0) std::memcpy(area, stream.data() + position, count);
        position += count;
        return count;
    };
}

inline Split read_all(AnnexBReader& reader) {
    Split split;
    NalUnit unit;
    while (reader.next(unit)) split.units.push_back(unit);
    split.leading_zeros = reader.leading_zero_8bits();
    split.stray_bytes = reader.stray_bytes();
    return split;
}

inline Split read_all(const Bytes& stream, std::size_t chunk_size) {
    AnnexBReader reader(source_of(stream, chunk_size), AnnexBReader::all_of_every_unit(), chunk_size);
    return read_all(reader);
}

// The same by plain search in the whole buffer.
inline Split model(const Bytes& stream) {
    Split split;
    const Bytes prefix{0, 0, 1};
    std::vector<std::size_t> starts;
    std::vector<std::size_t> lengths;
    for (std::size_t i = 0; i + 3 <= stream.size(); ++i) {
        if (!std::equal(prefix.begin(), prefix.end(), stream.begin() + static_cast<std::ptrdiff_t>(i))) continue;
        const bool long_code = i > 0 && stream[i - 1] == 0;
        starts.push_back(long_code ? i - 1 : i);
        lengths.push_back(long_code ? 4 : 3);
    }
    const std::size_t first = starts.empty() ? stream.size() : starts[0];
    while (split.leading_zeros < first && stream[split.leading_zeros] == 0) ++split.leading_zeros;
    split.stray_bytes = first - split.leading_zeros;
    for (std::size_t i = 0; i < starts.size(); ++i) {
        const std::size_t limit = i + 1 < starts.size() ? starts[i + 1] : stream.size();
        std::size_t end = limit;
        while (end > starts[i] + lengths[i] && stream[end - 1] == 0) --end;
        NalUnit unit;
        unit.number = i + 1;
        unit.offset = starts[i];
        unit.length = end - starts[i];
        unit.start_code_length = static_cast<unsigned>(lengths[i]);
        unit.trailing_zero_8bits = limit - end;
        unit.bytes.assign(stream.begin() + static_cast<std::ptrdiff_t>(starts[i]),
                          stream.begin() + static_cast<std::ptrdiff_t>(end));
        split.units.push_back(unit);
    }
    return split;
}

// What differs; empty when nothing does.
inline std::string difference(const Split& actual, const Split& expected) {
    if (actual.leading_zeros != expected.leading_zeros) return "leading zeros";
    if (actual.stray_bytes != expected.stray_bytes) return "stray bytes";
    if (actual.units.size() != expected.units.size()) return "number of units";
    for (std::size_t i = 0; i < actual.units.size(); ++i) {
        const NalUnit& a = actual.units[i];
        const NalUnit& e = expected.units[i];
        const std::string unit = " of unit " + std::to_string(i + 1);
        if (a.number != e.number) return "number" + unit;
        if (a.offset != e.offset) return "offset" + unit;
        if (a.length != e.length) return "length" + unit;
        if (a.start_code_length != e.start_code_length) return "start code length" + unit;
        if (a.trailing_zero_8bits != e.trailing_zero_8bits) return "trailing zeros" + unit;
        if (a.bytes != e.bytes) return "bytes" + unit;
    }
    return "";
}

}  // namespace test
