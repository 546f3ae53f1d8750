// The stand-alone diagnostics library. Its state needs neither construction nor destruction, because modules call it
// from constructors that run before those of this library and from destructors that run after them.
#include "dbgtrace.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <type_traits>

#include "line.h"

namespace {

using dbgtrace::Line;

constexpr int kDumpBytesPerLine = 16;

struct Module {
    tagHDBG record;  // a handle points here
    bool is_open;
    char name[DBGTRACE_MAX_MODULE_NAME];
};

// The mutex guards everything but nMaxLevel, which modules read without it, and is held while a sink runs. Records are
// never freed: a thread that still holds a handle when its module is closed reads a valid record.
struct State {
    std::mutex mutex;
    bool has_read_environment;
    bool aborts_on_assertion;
    int level;
    dbgtrace_sink_t sink;
    void* sink_context;
    Module modules[DBGTRACE_MAX_MODULES];
};
constinit State state{};
static_assert(std::is_trivially_destructible_v<State>);

// A forked child must not inherit the mutex locked by a thread that it does not have.
[[maybe_unused]] const int fork_handlers =
    pthread_atfork([] { state.mutex.lock(); }, [] { state.mutex.unlock(); }, [] { state.mutex.unlock(); });

struct Origin {
    const char* func;
    const char* file;
    int line;
};

const char* or_null_text(const char* text) { return text != nullptr ? text : "(null)"; }

void append_level_name(Line& line, int level) {
    static constexpr const char* kNames[] = {"error", "warning", "info", "detail", "debug", "trace"};
    if (level >= DBG_LEVEL_ERROR && level <= DBG_LEVEL_TRACE)
        line.append("%s", kNames[level - DBG_LEVEL_ERROR]);
    else
        line.append("level %d", level);
}

void write_to_standard_error(const char* text, std::size_t length) {
    while (length > 0) {
        const ssize_t written = write(STDERR_FILENO, text, length);
        if (written < 0 && errno != EINTR) return;
        if (written > 0) {
            text += written;
            length -= static_cast<std::size_t>(written);
        }
    }
}

// Emits one line: "MODULE level func (file:line): text". The mutex is held.
DBGTRACE_PRINTF(4, 0)
void emit_list(const char* module, int level, const Origin& origin, const char* format, va_list arguments) {
    const int caller_errno = errno;
    const char* func = or_null_text(origin.func);
    const char* file = or_null_text(origin.file);
    Line line;
    if (state.sink != nullptr) {
        line.append_list(format, arguments);
        line.drop_line_feed();
        const dbgtrace_record_t record{module, level, func, file, origin.line, line.text()};
        state.sink(state.sink_context, &record);
    } else {
        if (module[0] != '\0') line.append("%s ", module);
        append_level_name(line, level);
        line.append(" %s (%s:%d): ", func, file, origin.line);
        line.append_list(format, arguments);
        line.drop_line_feed();
        line.add_line_feed();
        write_to_standard_error(line.text(), line.length());
    }
    errno = caller_errno;
}

DBGTRACE_PRINTF(4, 5)
void emit(const char* module, int level, const Origin& origin, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    emit_list(module, level, origin, format, arguments);
    va_end(arguments);
}

int to_level(long number) { return static_cast<int>(std::clamp<long>(number, 0, DBG_LEVEL_TRACE)); }

void read_environment() {
    state.has_read_environment = true;
    const char* assertion = std::getenv("DBGTRACE_ASSERT");
    state.aborts_on_assertion = assertion != nullptr && std::strcmp(assertion, "abort") == 0;
    state.level = DBG_LEVEL_ERROR;
    const char* level = std::getenv("DBGTRACE_LEVEL");
    if (level == nullptr) return;
    char* end = nullptr;
    const int caller_errno = errno;
    const long number = std::strtol(level, &end, 10);
    errno = caller_errno;
    if (end != level && *end == '\0') {
        state.level = to_level(number);
    } else {
        emit("DBGTRACE", DBG_LEVEL_ERROR, {__func__, "dbgtrace.cpp", __LINE__},
             "DBGTRACE_LEVEL is no number: \"%s\". The level is %d.", level, state.level);
    }
}

// Every entry holds one of these while it uses the state.
class Access {
public:
    Access() : lock_(state.mutex) {
        if (!state.has_read_environment) read_environment();
    }

private:
    std::lock_guard<std::mutex> lock_;
};

void set_max_level(Module& module, int level) {
    std::atomic_ref<int>(module.record.nMaxLevel).store(level, std::memory_order_relaxed);
}

// The open module behind a handle; null for any other handle, which is not dereferenced.
Module* find_module(HDBG handle) {
    for (Module& module : state.modules)
        if (module.is_open && &module.record == handle) return &module;
    return nullptr;
}

void emit_dump_line(const Module& module, int level, const Origin& origin, const unsigned char* bytes,
                    unsigned int offset, int count) {
    char hex[3 * kDumpBytesPerLine + 2] = "";
    char ascii[kDumpBytesPerLine + 1] = "";
    char* end = hex;
    for (int i = 0; i < count; ++i) {
        if (i == kDumpBytesPerLine / 2) *end++ = ' ';
        end += std::snprintf(end, 4, " %02x", bytes[i]);
        ascii[i] = bytes[i] >= 0x20 && bytes[i] < 0x7F ? static_cast<char>(bytes[i]) : '.';
    }
    emit(module.name, level, origin, "%08x %-*s  |%s|", offset, 3 * kDumpBytesPerLine + 1, hex, ascii);
}

// Returns whether the process is to be aborted, for which the mutex must be free.
bool report_assertion(const char* expression, const Origin& origin, const Origin* caller) {
    const Access access;
    if (caller == nullptr) {
        emit("", DBG_LEVEL_ERROR, origin, "Assertion failed: %s", or_null_text(expression));
    } else {
        emit("", DBG_LEVEL_ERROR, origin, "Assertion failed: %s, called by %s (%s:%d)", or_null_text(expression),
             or_null_text(caller->func), or_null_text(caller->file), caller->line);
    }
    return state.aborts_on_assertion;
}

}  // namespace

int _DoDbgInit(const char* module, HDBG* handle) {
    if (handle == nullptr) return -1;
    *handle = nullptr;
    const Access access;
    for (Module& candidate : state.modules) {
        if (candidate.is_open) continue;
        candidate.is_open = true;
        CopyString(candidate.name, or_null_text(module), sizeof candidate.name);
        set_max_level(candidate, state.level);
        *handle = &candidate.record;
        return 0;
    }
    return -1;
}

void _DoDbgUninitEx(HDBG* handle, const char*, const char*, int) {
    if (handle == nullptr || *handle == nullptr) return;
    const Access access;
    if (Module* module = find_module(*handle)) {
        module->is_open = false;
        set_max_level(*module, 0);
    }
    *handle = nullptr;
}

void _DoDbgPrintEx(HDBG handle, int level, const char* func, const char* file, int line, const char* format, ...) {
    const Access access;
    const Module* module = find_module(handle);
    if (module == nullptr) return;
    va_list arguments;
    va_start(arguments, format);
    emit_list(module->name, level, {func, file, line}, or_null_text(format), arguments);
    va_end(arguments);
}

void _DoDbgPrintBuffer(HDBG handle, int level, const void* start, unsigned int length, const char* label,
                       const char* func, const char* file, int line) {
    const Access access;
    const Module* module = find_module(handle);
    if (module == nullptr) return;
    const Origin origin{func, file, line};
    emit(module->name, level, origin, "%s (%u bytes)", or_null_text(label), length);
    if (start == nullptr) return;
    const auto* bytes = static_cast<const unsigned char*>(start);
    for (unsigned int done = 0; done < length;) {
        const unsigned int count = std::min<unsigned int>(length - done, kDumpBytesPerLine);
        emit_dump_line(*module, level, origin, bytes + done, done, static_cast<int>(count));
        done += count;
    }
}

void _DoAssert(const char* expression, const char* func, const char* file, int line) {
    if (report_assertion(expression, {func, file, line}, nullptr)) std::abort();
}

void _DoAssertEx(const char* expression, const char* func, const char* file, int line, const char* caller_func,
                 const char* caller_file, int caller_line) {
    const Origin caller{caller_func, caller_file, caller_line};
    if (report_assertion(expression, {func, file, line}, &caller)) std::abort();
}

void CopyString(char* destination, const char* source, size_t capacity) {
    if (destination == nullptr || capacity == 0) return;
    const std::size_t length = source != nullptr ? strnlen(source, capacity - 1) : 0;
    if (length > 0) std::memcpy(destination, source, length);
    destination[length] = '\0';
}

void DbgTraceSetSink(dbgtrace_sink_t sink, void* context) {
    const Access access;
    state.sink = sink;
    state.sink_context = context;
}

void DbgTraceSetLevel(int level) {
    const Access access;
    state.level = to_level(level);
    for (Module& module : state.modules)
        if (module.is_open) set_max_level(module, state.level);
}

int DbgTraceGetLevel() {
    const Access access;
    return state.level;
}
