// Writes syntax elements one line each, so that a writer can be held beside the syntax table it implements.
#pragma once

#include "h264d/h264d.h"

// A writer for one function. An element that does not fit is reported at level 3 as that function's, with the line of
// the call.
class SyntaxWriter {
public:
    // function: the name messages are reported under.
    SyntaxWriter(bitbuffer_t* bits, const char* function) : bits_(bits), function_(function) {}

    // Position in bits.
    unsigned int position() const { return bits_->bit_offset; }

    // u(1)
    [[nodiscard]] bool flag(int value, const char* element, int line = __builtin_LINE()) {
        const auto bit = static_cast<unsigned int>(value);
        return __DoSetNextBit(bits_, bit, function_, kModuleFile, line) == 0 || fail(element, line);
    }
    // u(n), n up to 8
    [[nodiscard]] bool u(unsigned int n, unsigned char value, const char* element, int line = __builtin_LINE()) {
        return SetNextNBitsFromUint8(bits_, n, value) == 0 || fail(element, line);
    }
    // u(n), n up to 16
    [[nodiscard]] bool u(unsigned int n, unsigned short value, const char* element, int line = __builtin_LINE()) {
        return SetNextNBitsFromUint16(bits_, n, value) == 0 || fail(element, line);
    }
    // u(n); an n above 32, which a parameter set may give, fails.
    [[nodiscard]] bool u(unsigned int n, unsigned long value, const char* element, int line = __builtin_LINE()) {
        return SetNextNBitsFromUint32(bits_, n, value) == 0 || fail(element, line);
    }
    // i(n); an n above 32 fails, and so does 1.
    [[nodiscard]] bool i(unsigned int n, signed long value, const char* element, int line = __builtin_LINE()) {
        return SetNextNBitsFromInt32(bits_, n, value) == 0 || fail(element, line);
    }
    // ue(v)
    [[nodiscard]] bool ue(unsigned long value, const char* element, int line = __builtin_LINE()) {
        return SetUint32Golomb(bits_, value) == 0 || fail(element, line);
    }

private:
    // Reports a failure and returns false.
    bool fail(const char* element, int line) const {
        if (h264::is_emitted(3))
            _DoDbgPrintEx(g_hH264LibDbg, 3, function_, kModuleFile, line, "Failed to set %s.\n", element);
        return false;
    }

    bitbuffer_t* bits_;
    const char* function_;
};
