// Emission test, message, dump and assertion macros. A file that uses them defines kModuleFile, the name of its module
// as diagnostics report it ("bitbuffer.c", "golomb.c", "h264.c" or "h264d.c").
#pragma once

#include <atomic>
#include <cstddef>

#include "h264.h"

namespace h264 {

// At this level and above every accessor reports what it does to each byte.
constexpr int kByteTraceLevel = 7;

// Whether messages of a level are emitted. The diagnostics library may change the level from another thread.
inline bool is_emitted(int level) {
    const HDBG handle = g_hH264LibDbg;
    return handle != nullptr && std::atomic_ref<int>(handle->nMaxLevel).load(std::memory_order_relaxed) >= level;
}

// A 64-bit value as %d and %u print it: its low 32 bits.
template <typename T>
constexpr unsigned int low32(T value) {
    return static_cast<unsigned int>(value);
}

// low32 for %d.
template <typename T>
constexpr int low32s(T value) {
    return static_cast<int>(low32(value));
}

}  // namespace h264

// A message, emitted when the level allows; no argument is computed before that is known. The line feed that ends every
// message is added.
#define LOG(level, ...) LOG_AS(__func__, level, __VA_ARGS__)

// The same for code that several functions share: function is the name of the one that was called.
#ifdef __cppcheck__  // It does not know __VA_OPT__; this lets it check the arguments.
#define LOG_AS(function, level, ...) \
    _DoDbgPrintEx(g_hH264LibDbg, (level), (function), kModuleFile, __LINE__, __VA_ARGS__)
#else
#define LOG_AS(function, level, format, ...)                                         \
    do {                                                                             \
        if (h264::is_emitted(level))                                                 \
            _DoDbgPrintEx(g_hH264LibDbg, (level), (function), kModuleFile, __LINE__, \
                          format "\n" __VA_OPT__(, ) __VA_ARGS__);                   \
    } while (0)
#endif

// A hex dump of length bytes from start.
#define LOG_BUFFER(level, start, length, label)                                                                     \
    do {                                                                                                            \
        if (h264::is_emitted(level))                                                                                \
            _DoDbgPrintBuffer(g_hH264LibDbg, (level), (start), (length), (label), __func__, kModuleFile, __LINE__); \
    } while (0)

// Reports a precondition that does not hold; execution goes on.
#define DO_ASSERT(expression)                                                       \
    do {                                                                            \
        if (!(expression)) _DoAssert(#expression, __func__, kModuleFile, __LINE__); \
    } while (0)

// The same for code that several functions share: function is the name of the one that was called.
#define DO_ASSERT_AS(function, expression)                                            \
    do {                                                                              \
        if (!(expression)) _DoAssert(#expression, (function), kModuleFile, __LINE__); \
    } while (0)

// The same in a function that knows its caller's location as func, file and line.
#define DO_ASSERT_EX(expression)                                                                        \
    do {                                                                                                \
        if (!(expression)) _DoAssertEx(#expression, __func__, kModuleFile, __LINE__, func, file, line); \
    } while (0)
