// What the tests of the functions that write NAL units share.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "bit_writer.h"
#include "diagnostics.h"
#include "fake_clock.h"
#include "format_text.h"
#include "guarded_buffer.h"
#include "h264.h"
#include "test_clock.h"

namespace test {

using Lines = std::vector<std::string>;

// The messages of the writers' module in order of arrival, as "level function: text".
inline Lines lines() {
    Lines found;
    for (const Message& message : records().messages) {
        if (message.file != "h264.c") continue;
        EXPECT_GT(message.line, 0);
        EXPECT_EQ(message.text.find('\n'), message.text.size() - 1) << message.text;
        found.push_back(std::to_string(message.level) + " " + message.func + ": " +
                        message.text.substr(0, message.text.find('\n')));
    }
    return found;
}

// An output buffer with unreadable memory right behind it.
class Output {
public:
    explicit Output(std::size_t size) : memory_(size) { fill(); }

    unsigned char* data() { return memory_.data(); }
    int size() const { return static_cast<int>(memory_.size()); }
    void fill() { std::fill_n(memory_.data(), memory_.size(), kFill); }
    // What has been written, when that is count bytes at the beginning and nothing behind them.
    Bytes written(std::size_t count) {
        EXPECT_LE(count, memory_.size());
        for (std::size_t i = count; i < memory_.size(); ++i)
            if (memory_[i] != kFill) {
                ADD_FAILURE() << "byte " << i << " of " << memory_.size() << " has been written";
                break;
            }
        return {memory_.data(), memory_.data() + std::min(count, memory_.size())};
    }

private:
    static constexpr unsigned char kFill = 0xA5;
    GuardedBuffer memory_;
};

inline const Bytes kSeiHeader = {0x00, 0x00, 0x00, 0x01, 0x06};

inline Bytes join(const Bytes& left, const Bytes& right) {
    Bytes both = left;
    both.insert(both.end(), right.begin(), right.end());
    return both;
}

// Every test starts at a time at which no message is held back, with all levels on.
class WriterTest : public testing::Test {
protected:
    void SetUp() override {
        start_ = later_than_all_tests();
        at(0);
        reset(8);
    }
    void TearDown() override {
        EXPECT_EQ(records().not_allowed, 0);
        use_system_time();
    }

    // Seconds since the test started.
    void at(int seconds) { set_time(start_ + seconds); }

    // The messages of a successful or refused encapsulation as far as level goes, for comparison with lines().
    static Lines encapsulated_lines(const unsigned char* start, std::size_t room, std::size_t size) {
        const auto* first = static_cast<const void*>(start);
        return {text("8 RBSP_encapsulation_within_NAL: outbuf_start:%p, outbuf_end:%p, outbuf_curr:%p", first,
                     static_cast<const void*>(start + room), static_cast<const void*>(start + size))};
    }
    static Lines no_room_lines(long room, long required, long size) {
        return {
            text("3 RBSP_encapsulation_within_NAL: Output buffer length:%ld must be at least %ld for input buffer "
                 "length:%ld. Failed to encapsulate!",
                 room, required, size)};
    }

private:
    std::time_t start_ = 0;
};

}  // namespace test
