// Runs a reader over the bits of a script and compares everything it does with the script.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>

#include "diagnostics.h"
#include "element_script.h"
#include "guarded_buffer.h"
#include "picture_fields.h"

namespace test {

// A record whose bytes all have one value.
template <typename Record>
Record filled(int byte) {
    Record record;
    std::memset(static_cast<void*>(&record), byte, sizeof record);
    return record;
}

inline Bytes head_of(Bytes bytes, std::size_t bits) {
    bytes.resize((bits + 7) / 8);
    return bytes;
}

// What a reader did with the first bits of a stream, behind which there is no readable byte.
template <typename Record>
struct BitsRead {
    using Reader = std::function<int(bitbuffer_t&, Record&)>;

    BitsRead(const Bytes& bytes, std::size_t bits, int level, const Record& before, const Reader& read)
        : memory(head_of(bytes, bits)), record(before), bb{memory.data(), 0, static_cast<unsigned>(bits)} {
        reset(level);
        result = read(bb, record);
        log = recorded_log();
    }
    GuardedBuffer memory;
    Record record;
    bitbuffer_t bb;
    int result;
    Log log;
};

// Reads the first bits of the script's stream at a level.
template <typename Record>
void expect_read(const ElementScript<Record>& script, std::size_t bits, int level, const Record& before,
                 const typename BitsRead<Record>::Reader& read) {
    SCOPED_TRACE(text("%zu of %zu bits, level %d", bits, script.bits().bits(), level));
    const BitsRead<Record> actual(script.bits().bytes(), bits, level, before, read);
    EXPECT_EQ(assertions(), std::vector<std::string>{});
    Record expected = before;
    const std::optional<Outcome> outcome = script.run(bits, actual.bb.bit_buffer, expected);
    if (!outcome) return;
    EXPECT_EQ(actual.result, outcome->result);
    EXPECT_EQ(difference(actual.record, expected), "");
    EXPECT_EQ(actual.log, up_to_level(outcome->log, level));
    if (bits == script.bits().bits() && actual.result == 0) {
        EXPECT_EQ(actual.bb.bit_offset, bits);
    }
}

// The same for the whole stream and for the stream cut behind each of its bits.
template <typename Record>
void expect_reads_at_every_length(const ElementScript<Record>& script, const Record& before,
                                  const typename BitsRead<Record>::Reader& read) {
    const std::size_t all = script.bits().bits();
    expect_read(script, all, 3, before, read);
    for (std::size_t cut = all + 1; cut-- > 0 && !testing::Test::HasFailure();)
        expect_read(script, cut, 7, before, read);
}

}  // namespace test
