#include "diagnostics.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "h264.h"

namespace test {
namespace {

tagHDBG record{0, 8};

std::mutex& guard() {
    static std::mutex mutex;
    return mutex;
}

// To be called before the entry is added.
std::size_t next_order() {
    const Records& all = records();
    return all.messages.size() + all.dumps.size() + all.assertions.size();
}

void check_allowed(HDBG handle, int level) {
    if (handle != &record || level > __atomic_load_n(&record.nMaxLevel, __ATOMIC_RELAXED)) ++records().not_allowed;
}

std::string without_line_feed(const std::string& text) {
    return text.empty() || text.back() != '\n' ? text : text.substr(0, text.size() - 1);
}

}  // namespace

Records& records() {
    // Never destroyed: the library still reports when the program's own objects are gone.
    static Records& all = *new Records;
    return all;
}

void clear() {
    const std::lock_guard lock(guard());
    records() = Records{};
}

void reset(int level) {
    clear();
    set_level(level);
}

void set_level(int level) { __atomic_store_n(&record.nMaxLevel, level, __ATOMIC_RELAXED); }

std::vector<std::string> texts(int level) {
    std::vector<std::string> found;
    for (const Message& message : records().messages)
        if (message.level == level) found.push_back(without_line_feed(message.text));
    return found;
}

std::vector<std::string> texts_with_function(int level) {
    std::vector<std::string> found;
    for (const Message& message : records().messages)
        if (message.level == level) found.push_back(message.func + ": " + without_line_feed(message.text));
    return found;
}

const Message* find(const std::string& text) {
    for (const Message& message : records().messages)
        if (without_line_feed(message.text) == text) return &message;
    return nullptr;
}

int count(const std::string& text) {
    int found = 0;
    for (const Message& message : records().messages) found += without_line_feed(message.text) == text;
    return found;
}

std::vector<std::string> assertions() {
    std::vector<std::string> expressions;
    for (const Assertion& assertion : records().assertions) expressions.push_back(assertion.expression);
    return expressions;
}

WithoutHandle::WithoutHandle() : saved_(g_hH264LibDbg) { g_hH264LibDbg = nullptr; }
WithoutHandle::~WithoutHandle() { g_hH264LibDbg = saved_; }

}  // namespace test

using test::check_allowed;
using test::guard;
using test::next_order;
using test::records;

int _DoDbgInit(const char*, HDBG* handle) {
    const std::lock_guard lock(guard());
    ++records().inits;
    *handle = &test::record;
    return 0;
}

void _DoDbgUninitEx(HDBG* handle, const char*, const char*, int) {
    const std::lock_guard lock(guard());
    ++records().uninits;
    *handle = nullptr;
}

void _DoDbgPrintEx(HDBG handle, int level, const char* func, const char* file, int line, const char* format, ...) {
    char text[2048];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const std::lock_guard lock(guard());
    check_allowed(handle, level);
    records().messages.push_back({level, func, file, line, text, next_order()});
}

void _DoDbgPrintBuffer(HDBG handle, int level, const void* start, unsigned int length, const char* label,
                       const char* func, const char* file, int line) {
    const auto* bytes = static_cast<const unsigned char*>(start);
    const std::lock_guard lock(guard());
    check_allowed(handle, level);
    records().dumps.push_back({level, label, func, file, line, {bytes, bytes + length}, next_order()});
}

void _DoAssert(const char* expression, const char* func, const char* file, int line) {
    const std::lock_guard lock(guard());
    records().assertions.push_back({expression, func, file, line, false, "", "", 0, next_order()});
}

void _DoAssertEx(const char* expression, const char* func, const char* file, int line, const char* caller_func,
                 const char* caller_file, int caller_line) {
    const std::lock_guard lock(guard());
    records().assertions.push_back(
        {expression, func, file, line, true, caller_func, caller_file, caller_line, next_order()});
}

void CopyString(char* destination, const char* source, size_t capacity) {
    {
        const std::lock_guard lock(guard());
        records().copies.push_back({source, capacity});
    }
    if (capacity == 0) return;
    strncpy(destination, source, capacity - 1);
    destination[capacity - 1] = '\0';
}
