// Takes the library's diagnostics.
#pragma once

#include <string>
#include <vector>

#include "dbgtrace.h"

namespace h264tool {

struct DiagnosticsLine {
    int level;
    std::string func;
    std::string text;
};

// Collects all diagnostics of the process while it lives, in place of standard error.
class DiagnosticsCapture {
public:
    DiagnosticsCapture();
    ~DiagnosticsCapture();
    DiagnosticsCapture(const DiagnosticsCapture&) = delete;
    DiagnosticsCapture& operator=(const DiagnosticsCapture&) = delete;

    // Lines collected since the last call.
    std::vector<DiagnosticsLine> take();

private:
    static void collect(void* context, const dbgtrace_record_t* record);

    int level_before_;
    std::vector<DiagnosticsLine> lines_;
};

// The level of diagnostics while this lives.
class DiagnosticsLevel {
public:
    explicit DiagnosticsLevel(int level) : before_(DbgTraceGetLevel()) { DbgTraceSetLevel(level); }
    ~DiagnosticsLevel() { DbgTraceSetLevel(before_); }
    DiagnosticsLevel(const DiagnosticsLevel&) = delete;
    DiagnosticsLevel& operator=(const DiagnosticsLevel&) = delete;

private:
    int before_;
};

}  // namespace h264tool
