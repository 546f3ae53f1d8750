// Takes the numbers out of a traced text.
#pragma once

#include <cstdio>
#include <string>

namespace test {

// Reads the values of a printf format back (%d and %x, %p in their variants). False when the text is not exactly what
// the format makes of those values.
template <typename... Values>
bool parse_trace(const std::string& text, const char* format, Values*... values) {
    std::string scan_format;  // scanf knows no %#x
    for (const char* c = format; *c != '\0'; ++c)
        if (*c != '#') scan_format += *c;
    if (sscanf(text.c_str(), scan_format.c_str(), values...) != static_cast<int>(sizeof...(values))) return false;
    char again[512];
    snprintf(again, sizeof again, format, *values...);
    return text == again;
}

}  // namespace test
