// The tool's stream splitter against plain search, at every chunk size and with limits on what is kept.
#include <algorithm>

#include "annexb_model.h"
#include "fuzz.h"

void test::fuzz(FuzzInput& input, Observed& observed) {
    const auto chunk_size = static_cast<std::size_t>(1 + input.below(64));
    const auto step = static_cast<std::size_t>(1 + input.below(64));
    const auto kept = static_cast<std::size_t>(input.below(8));
    const Bytes stream = input.rest();
    const Split expected = model(stream);

    AnnexBReader whole(source_of(stream, step), AnnexBReader::all_of_every_unit(), chunk_size);
    const Split split = read_all(whole);
    FUZZ_CHECK(difference(split, expected).empty());

    AnnexBReader::KeptBytes limits;
    limits.fill(kept);
    AnnexBReader limited(source_of(stream, step), limits, chunk_size);
    Split beginnings = read_all(limited);
    FUZZ_CHECK(beginnings.units.size() == expected.units.size());
    for (std::size_t i = 0; i < beginnings.units.size(); ++i) {
        NalUnit& unit = beginnings.units[i];
        const NalUnit& reference = expected.units[i];
        const std::size_t most = unit.start_code_length + std::max<std::size_t>(kept, 1);
        FUZZ_CHECK(unit.bytes.size() == std::min<std::size_t>(most, reference.bytes.size()));
        FUZZ_CHECK(std::equal(unit.bytes.begin(), unit.bytes.end(), reference.bytes.begin()));
        unit.bytes = reference.bytes;
    }
    FUZZ_CHECK(difference(beginnings, expected).empty());
    observed.add(split.units.size());
}
