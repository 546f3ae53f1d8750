/* Sends a message of its own through the diagnostics library. */
#include <dbgtrace.h>
#include <stdio.h>

static void print(void* context, const dbgtrace_record_t* record) {
    (void)context;
    printf("%s: %s\n", record->module, record->text);
}

int main(void) {
    HDBG handle = NULL;
    DbgTraceSetSink(print, NULL);
    if (_DoDbgInit("outside", &handle) != 0) return 1;
    _DoDbgPrintEx(handle, DBG_LEVEL_ERROR, __func__, __FILE__, __LINE__, "a message\n");
    _DoDbgUninitEx(&handle, __func__, __FILE__, __LINE__);
    return 0;
}
