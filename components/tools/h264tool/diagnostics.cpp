#include "diagnostics.h"

#include <utility>

namespace h264tool {

DiagnosticsCapture::DiagnosticsCapture() : level_before_(DbgTraceGetLevel()) { DbgTraceSetSink(collect, this); }

DiagnosticsCapture::~DiagnosticsCapture() {
    DbgTraceSetLevel(level_before_);
    DbgTraceSetSink(nullptr, nullptr);
}

std::vector<DiagnosticsLine> DiagnosticsCapture::take() { return std::exchange(lines_, {}); }

void DiagnosticsCapture::collect(void* context, const dbgtrace_record_t* record) {
    static_cast<DiagnosticsCapture*>(context)->lines_.push_back({record->level, record->func, record->text});
}

}  // namespace h264tool
