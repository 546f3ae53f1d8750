// What the tests of the SEI readers share.
#pragma once

#include <functional>
#include <optional>

#include "writer_check.h"

namespace test {

// The messages of the SEI readers' module in order of arrival, as "level function: text", without those of the start
// code search and of de-encapsulation. An address behind the given name is one of the library's own and becomes "*".
inline Lines reader_lines(const std::string& own_address = "") {
    Lines found;
    for (const Message& message : records().messages) {
        if (message.file != "h264d.c" || message.func == "_GetNALTypeOffset" ||
            message.func == "SODB_deencapsulation_from_NAL")
            continue;
        EXPECT_GT(message.line, 0);
        EXPECT_EQ(message.text.find('\n'), message.text.size() - 1) << message.text;
        std::string line =
            std::to_string(message.level) + " " + message.func + ": " + message.text.substr(0, message.text.find('\n'));
        const std::size_t at = own_address.empty() ? std::string::npos : line.find(own_address + ":0x");
        if (at != std::string::npos) {
            const std::size_t start = at + own_address.size() + 1;
            line.replace(start, line.find(',', start) - start, "*");
        }
        found.push_back(line);
    }
    return found;
}

// Those of a level and below.
inline Lines up_to(int level, const Lines& lines) {
    Lines kept;
    std::copy_if(lines.begin(), lines.end(), std::back_inserter(kept),
                 [=](const std::string& line) { return line[0] - '0' <= level; });
    return kept;
}

// An SEI unit with these bytes behind its header.
inline Bytes sei_unit(const Bytes& rbsp, int start_code_length = 4) { return nal_unit(0x06, rbsp, start_code_length); }

// A record whose bytes all have one value.
template <typename Record>
Record filled_record(int byte) {
    Record record;
    std::memset(static_cast<void*>(&record), byte, sizeof record);
    return record;
}

// Runs a reader at each level and without handle. It returns what it did, as text; that must not depend on the level,
// and neither may the lines that a level lets out.
inline void expect_same_at_all_levels(const std::function<std::string()>& read, const std::string& own_address = "") {
    set_time(later_than_all_tests());
    reset(8);
    const std::string loud = read();
    const Lines all = reader_lines(own_address);
    const std::vector<std::string> asserted = assertions();
    for (const int level : {0, 3, 4, 5, 6, 7}) {
        set_time(later_than_all_tests());
        reset(level);
        EXPECT_EQ(read(), loud) << level;
        EXPECT_EQ(reader_lines(own_address), up_to(level, all)) << level;
        EXPECT_EQ(assertions(), asserted) << level;
        EXPECT_EQ(records().not_allowed, 0);
    }
    const WithoutHandle silent;
    reset(8);
    EXPECT_EQ(read(), loud);
    EXPECT_EQ(reader_lines(), Lines{});
    EXPECT_EQ(assertions(), asserted);
}

}  // namespace test
