// The page that h264tool report makes.
#pragma once

#include <cstdint>
#include <string>

#include "output_file.h"
#include "report_stream.h"

namespace h264tool {

struct ReportFacts {
    std::string name;             // of the input
    std::uint64_t size = 0;       // bytes
    std::uint64_t beginning = 0;  // offset of the first unit
};

// What the page shows, as a JSON object. "columns" has an entry for each picture in decoding order, and so have the
// columns of each of "hrds"; see NumberColumn for their form.
std::string report_data(const ReportStream& stream, const ReportFacts& facts);

// Writes the page with everything in it that it needs.
void write_page(OutputFile& output, const std::string& title, const std::string& data);

// Numbers as a JSON array: the difference of each to the one before it, the first to 0; a run of equal differences as
// an array of the difference and their count; null in place of a difference for what is not there.
class NumberColumn {
public:
    void add(std::int64_t number);
    void add_nothing() { add_entry({}); }
    // The array; nothing is added behind that.
    const std::string& finish();

private:
    struct Entry {
        std::int64_t difference = 0;
        bool is_null = true;

        bool operator==(const Entry&) const = default;
    };
    void add_entry(const Entry& entry);
    void put_run();

    std::string text_ = "[";
    std::int64_t last_ = 0;
    Entry entry_;
    std::uint64_t count_ = 0;  // of entry_ in a row
};

}  // namespace h264tool
