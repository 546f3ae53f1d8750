/* Another diagnostics library, with the seven functions that h264_lib calls and nothing more. It prints each call to
   standard output. */
#include <stdarg.h>
#include <stdio.h>

#include "dbgtrace.h"

static struct tagHDBG record = {0, DBG_LEVEL_INFO};

int _DoDbgInit(const char* module, HDBG* handle) {
    printf("init %s\n", module);
    *handle = &record;
    return 0;
}

void _DoDbgUninitEx(HDBG* handle, const char* func, const char* file, int line) {
    printf("uninit %s %s\n", func, file);
    if (line <= 0 || *handle != &record) printf("wrong arguments\n");
    *handle = NULL;
    fflush(stdout);
}

void _DoDbgPrintEx(HDBG handle, int level, const char* func, const char* file, int line, const char* format, ...) {
    va_list arguments;
    printf("print %d %s %s ", level, func, file);
    if (line <= 0 || handle != &record) printf("wrong arguments\n");
    va_start(arguments, format);
    vprintf(format, arguments);
    va_end(arguments);
}

void _DoDbgPrintBuffer(HDBG handle, int level, const void* start, unsigned int length, const char* label,
                       const char* func, const char* file, int line) {
    printf("dump %d %s %s %s %u\n", level, func, file, label, length);
    if (line <= 0 || handle != &record || start == NULL) printf("wrong arguments\n");
}

void _DoAssert(const char* expression, const char* func, const char* file, int line) {
    printf("assert %s %s %s %d\n", expression, func, file, line);
}

void _DoAssertEx(const char* expression, const char* func, const char* file, int line, const char* caller_func,
                 const char* caller_file, int caller_line) {
    printf("assert %s %s %s %d %s %s %d\n", expression, func, file, line, caller_func, caller_file, caller_line);
}

void CopyString(char* destination, const char* source, size_t capacity) {
    size_t i;
    if (capacity == 0) return;
    for (i = 0; i + 1 < capacity && source[i] != '\0'; ++i) destination[i] = source[i];
    destination[i] = '\0';
}
