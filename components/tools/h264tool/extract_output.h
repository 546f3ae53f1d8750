// The files that h264tool extract writes.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "extract_stream.h"
#include "timecode.h"

namespace h264tool {

// A header line and a row for each timestamp, in decoding order. The other tables are made in the same way.
std::string timecodes_csv(const StreamExtract& stream);
std::string formats_csv(const StreamExtract& stream);
std::string times_csv(const StreamExtract& stream);

// The triples of all pictures in output order.
std::vector<unsigned char> caption_triples(const StreamExtract& stream);

// The name of an active_format, SMPTE ST 2016-1.
const char* active_format_name(unsigned active_format);

// The timecode of the first picture in output order, when it has one.
std::optional<ParsedTimecode> first_timecode(const StreamExtract& stream);

// An SCC file of the CEA-608 pairs of field 1. rate: instead of the stream's own; start: the timecode of the first
// picture, whose notation is that of the file. Throws std::runtime_error when pictures with captions have no rate.
std::string captions_scc(const StreamExtract& stream, const std::optional<FrameRate>& rate,
                         const ParsedTimecode& start);

}  // namespace h264tool
