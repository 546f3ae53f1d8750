// Small pieces of text.
#pragma once

#include <cstdint>
#include <string>

#include "dbgtrace.h"

namespace h264tool {

// printf into a string; at most 255 characters.
std::string format(const char* text, ...) DBGTRACE_PRINTF(1, 2);

// "1 unit", "2 units"
std::string count_of(std::uint64_t count, const std::string& noun);

// "1,234,567"
std::string grouped(std::uint64_t number);

}  // namespace h264tool
