// The NAL units of an input, with progress.
#pragma once

#include <cstddef>
#include <string>

#include "annexb_reader.h"
#include "input.h"
#include "output.h"
#include "progress.h"

namespace h264tool {

// As much of a unit as the subcommands look at: more than any header or parameter set has.
constexpr std::size_t kUnitBeginning = std::size_t{64} * 1024;

class StreamInput {
public:
    // path: "-" is standard input; kept_bytes: see AnnexBReader. Throws std::system_error.
    StreamInput(const std::string& path, const AnnexBReader::KeptBytes& kept_bytes);

    const std::string& name() const { return file_.name(); }
    AnnexBReader& units() { return reader_; }
    Output& output() { return output_; }

    // Writes out what is buffered, and ends the progress display.
    void finish();

private:
    std::size_t read(unsigned char* area, std::size_t capacity);

    InputFile file_;
    Progress progress_;
    Output output_;
    AnnexBReader reader_;
};

}  // namespace h264tool
