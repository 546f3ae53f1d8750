// The text of a printf format.
#pragma once

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace test {

[[gnu::format(printf, 1, 2)]] inline std::string text(const char* format, ...) {
    std::array<char, 512> out{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(out.data(), out.size(), format, arguments);
    va_end(arguments);
    return out.data();
}

}  // namespace test
