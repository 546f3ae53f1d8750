// Puts a program's own diagnostics in the place of libdbgtrace: these seven functions are all that h264_lib calls.
// Symbols of the program come first when the dynamic linker looks for them. A library of your own with the same seven
// functions does as well, linked before libdbgtrace or named in LD_PRELOAD.
#include <dbgtrace.h>
#include <h264.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

// Ready before any constructor runs: h264_lib opens it when it is loaded.
static struct tagHDBG record = {0, DBG_LEVEL_ERROR};

int _DoDbgInit(const char* module, HDBG* handle) {
    (void)module;
    *handle = &record;
    return 0;
}

void _DoDbgUninitEx(HDBG* handle, const char* func, const char* file, int line) {
    (void)func, (void)file, (void)line;
    *handle = NULL;
}

void _DoDbgPrintEx(HDBG handle, int level, const char* func, const char* file, int line, const char* format, ...) {
    char text[512];
    va_list arguments;
    (void)handle, (void)file, (void)line;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    text[strcspn(text, "\n")] = '\0';
    printf("[%d] %s: %s\n", level, func, text);
}

void _DoDbgPrintBuffer(HDBG handle, int level, const void* start, unsigned int length, const char* label,
                       const char* func, const char* file, int line) {
    (void)start;
    _DoDbgPrintEx(handle, level, func, file, line, "%s: %u bytes\n", label, length);
}

void _DoAssert(const char* expression, const char* func, const char* file, int line) {
    _DoDbgPrintEx(&record, DBG_LEVEL_ERROR, func, file, line, "does not hold: %s\n", expression);
}

void _DoAssertEx(const char* expression, const char* func, const char* file, int line, const char* caller_func,
                 const char* caller_file, int caller_line) {
    (void)func, (void)file, (void)line;
    _DoAssert(expression, caller_func, caller_file, caller_line);
}

void CopyString(char* destination, const char* source, size_t capacity) {
    if (capacity > 0) snprintf(destination, capacity, "%s", source);
}

int main(void) {
    static const unsigned char cut_off[] = {0x00, 0x00, 0x00, 0x01, 0x67, 0x42, 0xc0, 0x0a};
    sps_t sps = {0};
    if (parse_sps_nal(cut_off, sizeof cut_off, &sps)) return 1;
    parse_sps_nal(cut_off, sizeof cut_off, NULL);
    return 0;
}
