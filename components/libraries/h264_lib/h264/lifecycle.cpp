// Load and unload: the diagnostics handle.
#include "h264/h264_module.h"

HDBG g_hH264LibDbg = nullptr;

__attribute__((constructor)) static void _H264LIB_AutoInit() {
    _DoDbgInit("H264LIB", &g_hH264LibDbg);
    LOG(5, "Called.");
}

__attribute__((destructor)) static void _H264LIB_AutoShutdown() {
    LOG(5, "Called.");
    _DoDbgUninitEx(&g_hH264LibDbg, __func__, kModuleFile, __LINE__);
}
