// What a run says on standard error about its input.
#pragma once

#include <string>

namespace h264tool {

// --quiet: no notes and no progress. What ends a run is said all the same.
void set_quiet(bool quiet);
bool is_quiet();

// "h264tool: NAME: TEXT", where name is that of the input.
void note(const std::string& name, const std::string& text);

}  // namespace h264tool
