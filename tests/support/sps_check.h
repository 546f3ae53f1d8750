// Runs a reader of the SPS syntax over the bits of a script and compares everything it does with the script.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "diagnostics.h"
#include "guarded_buffer.h"
#include "sps_fields.h"
#include "syntax_script.h"

namespace test {

// A record whose bytes all have one value.
inline std::unique_ptr<sps_t> filled_record(int byte) {
    auto record = std::make_unique<sps_t>();
    std::memset(static_cast<void*>(record.get()), byte, sizeof *record);
    return record;
}

using SpsReader = std::function<int(bitbuffer_t&, sps_t&)>;

inline int read_sps(bitbuffer_t& bb, sps_t& sps) { return parse_sps(&bb, &sps); }

// The first num_bits bits of the script's stream, without a readable byte behind them.
class ScriptBits {
public:
    ScriptBits(const SyntaxScript& script, std::size_t num_bits)
        : memory_(head(script.bits().bytes(), (num_bits + 7) / 8)),
          bb_{memory_.data(), script.bits_before(), static_cast<unsigned>(num_bits)} {}

    bitbuffer_t& bb() { return bb_; }
    const void* area() { return memory_.data(); }

private:
    static Bytes head(Bytes bytes, std::size_t size) {
        bytes.resize(size);
        return bytes;
    }

    GuardedBuffer memory_;
    bitbuffer_t bb_;
};

// Reads the first num_bits bits into a record of fill bytes, at a level.
inline void expect_read(const SyntaxScript& script, std::size_t num_bits, int level, int fill, const SpsReader& read) {
    SCOPED_TRACE(text("%zu of %zu bits, level %d", num_bits, script.bits().bits(), level));
    ScriptBits bits(script, num_bits);
    const auto actual = filled_record(fill);
    const auto expected = filled_record(fill);
    const Outcome outcome = script.run(num_bits, bits.area(), *expected);
    reset(level);
    const int result = read(bits.bb(), *actual);
    EXPECT_EQ(result, outcome.result);
    EXPECT_EQ(difference(*actual, *expected), "");
    EXPECT_EQ(recorded_log(), up_to_level(outcome.log, level));
    EXPECT_EQ(assertions(), std::vector<std::string>{});
    if (outcome.result == 0) {
        EXPECT_EQ(bits.bb().bit_offset, script.bits().bits());
    }
}

// The same for the whole stream, with all traces and, less talkative, cut behind each of its bits; with all traces
// again where an element is missing entirely or lacks its last bit only.
inline void expect_reads_at_every_length(const SyntaxScript& script, const SpsReader& read) {
    const std::size_t all = script.bits().bits();
    expect_read(script, all, 7, 0xA5, read);
    expect_read(script, all, 3, 0x00, read);
    for (std::size_t cut = script.bits_before(); cut < all && !testing::Test::HasFailure(); ++cut)
        expect_read(script, cut, 3, 0xA5, read);
    for (const std::size_t cut : script.element_cuts()) {
        if (testing::Test::HasFailure()) break;
        expect_read(script, cut, 7, 0x5A, read);
    }
}

}  // namespace test
