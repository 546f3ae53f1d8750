// Prints syntax elements one line each, so that a display can be held beside the syntax table it shows.
#pragma once

#include <concepts>

#include "h264d/h264d.h"

// A printer for one function, at one level. Values are shown with their low 32 bits.
class SyntaxPrinter {
public:
    // function: the name messages are reported under.
    SyntaxPrinter(int level, const char* function) : level_(level), function_(function) {}

    // name=value, unsigned
    template <std::integral T>
    void u(const char* name, T value, int line = __builtin_LINE()) const {
        if (h264::is_emitted(level_)) print(line, "%s=%u.\n", name, h264::low32(value));
    }
    // name=value, signed
    template <std::integral T>
    void d(const char* name, T value, int line = __builtin_LINE()) const {
        if (h264::is_emitted(level_)) print(line, "%s=%d.\n", name, h264::low32s(value));
    }
    // name[i]=value, unsigned
    template <std::integral T>
    void u_at(const char* name, int i, T value, int line = __builtin_LINE()) const {
        if (h264::is_emitted(level_)) print(line, "%s[%d]=%u.\n", name, i, h264::low32(value));
    }
    // name[i]=value, signed
    template <std::integral T>
    void d_at(const char* name, int i, T value, int line = __builtin_LINE()) const {
        if (h264::is_emitted(level_)) print(line, "%s[%d]=%d.\n", name, i, h264::low32s(value));
    }

private:
    template <typename... Arguments>
    void print(int line, const char* format, Arguments... arguments) const {
        _DoDbgPrintEx(g_hH264LibDbg, level_, function_, kModuleFile, line, format, arguments...);
    }

    int level_;
    const char* function_;
};

// How many of a transmitted number of entries an array of this size holds, and the same for a number minus 1.
constexpr int stored_entries(unsigned long transmitted, int size) {
    return transmitted < static_cast<unsigned long>(size) ? static_cast<int>(transmitted) : size;
}
constexpr int stored_entries_minus1(unsigned long transmitted_minus1, int size) {
    return transmitted_minus1 < static_cast<unsigned long>(size) ? static_cast<int>(transmitted_minus1 + 1) : size;
}
