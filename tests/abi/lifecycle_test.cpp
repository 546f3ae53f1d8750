// Loading and unloading the shared library. This program exports a diagnostics library of its own, which the dynamic
// linker puts in the place of libdbgtrace.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "h264.h"

namespace {

// One call of a diagnostics function.
struct Call {
    std::string function;
    const void* handle = nullptr;  // handle variable for init and uninit, handle for messages
    int level = 0;
    std::string text;  // module, message or expression
    std::string func{};
    std::string file{};
    int line = 0;
};

tagHDBG record{0, 5};
bool init_fails = false;
std::vector<Call> calls;

class Lifecycle : public testing::Test {
protected:
    void SetUp() override {
        calls.clear();
        init_fails = false;
        record.nMaxLevel = 5;
    }

    static void* load() {
        void* library = dlopen(H264_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        EXPECT_NE(library, nullptr) << dlerror();
        return library;
    }
    static bool is_loaded() {
        void* library = dlopen(H264_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
        if (library != nullptr) dlclose(library);
        return library != nullptr;
    }
    static HDBG* handle_variable(void* library) { return static_cast<HDBG*>(dlsym(library, "g_hH264LibDbg")); }

    template <typename Function>
    static Function* function(void* library, const char* name) {
        void* address = dlsym(library, name);
        EXPECT_NE(address, nullptr) << name;
        return reinterpret_cast<Function*>(address);
    }
};

void expect_called_message(const Call& call, const char* func) {
    EXPECT_EQ(call.function, "_DoDbgPrintEx");
    EXPECT_EQ(call.handle, &record);
    EXPECT_EQ(call.level, 5);
    EXPECT_EQ(call.text, "Called.\n");
    EXPECT_EQ(call.func, func);
    EXPECT_EQ(call.file, "h264.c");
    EXPECT_GT(call.line, 0);
}

void expect_uninit(const Call& call, const void* variable) {
    EXPECT_EQ(call.function, "_DoDbgUninitEx");
    EXPECT_EQ(call.handle, variable);
    EXPECT_EQ(call.func, "_H264LIB_AutoShutdown");
    EXPECT_EQ(call.file, "h264.c");
    EXPECT_GT(call.line, 0);
}

TEST_F(Lifecycle, HandleIsOpenedAtLoadAndClosedAtUnload) {
    for (int round = 0; round < 3; ++round) {
        calls.clear();
        void* library = load();
        ASSERT_NE(library, nullptr);
        HDBG* const variable = handle_variable(library);
        ASSERT_NE(variable, nullptr);
        EXPECT_EQ(*variable, &record);
        ASSERT_EQ(calls.size(), 2u);
        EXPECT_EQ(calls[0].function, "_DoDbgInit");
        EXPECT_EQ(calls[0].handle, variable);
        EXPECT_EQ(calls[0].text, "H264LIB");
        expect_called_message(calls[1], "_H264LIB_AutoInit");

        calls.clear();
        ASSERT_EQ(dlclose(library), 0);
        EXPECT_FALSE(is_loaded());
        ASSERT_EQ(calls.size(), 2u);
        expect_called_message(calls[0], "_H264LIB_AutoShutdown");
        expect_uninit(calls[1], variable);
    }
}

TEST_F(Lifecycle, SecondLoadOfALoadedLibraryCallsNothing) {
    void* library = load();
    ASSERT_NE(library, nullptr);
    HDBG* const variable = handle_variable(library);
    calls.clear();
    ASSERT_EQ(load(), library);
    EXPECT_TRUE(calls.empty());
    dlclose(library);
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(*variable, &record);
    dlclose(library);
    ASSERT_EQ(calls.size(), 2u);
    expect_uninit(calls[1], variable);
}

TEST_F(Lifecycle, BelowLevelFiveOnlyTheHandleIsOpenedAndClosed) {
    record.nMaxLevel = 4;
    void* library = load();
    ASSERT_NE(library, nullptr);
    HDBG* const variable = handle_variable(library);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].function, "_DoDbgInit");
    calls.clear();
    dlclose(library);
    ASSERT_EQ(calls.size(), 1u);
    expect_uninit(calls[0], variable);
}

TEST_F(Lifecycle, LevelIsReadAfreshAtEachMessage) {
    record.nMaxLevel = 2;
    void* library = load();
    ASSERT_NE(library, nullptr);
    const auto advance = function<decltype(AdvanceBitOffset)>(library, "AdvanceBitOffset");
    unsigned char area[1] = {0};
    bitbuffer_t bb{area, 0, 8};
    calls.clear();
    EXPECT_EQ(advance(&bb, 9), -1);
    EXPECT_TRUE(calls.empty());
    record.nMaxLevel = 3;
    EXPECT_EQ(advance(&bb, 9), -1);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].level, 3);
    EXPECT_EQ(calls[0].func, "AdvanceBitOffset");
    EXPECT_EQ(calls[0].file, "bitbuffer.c");
    dlclose(library);
}

TEST_F(Lifecycle, FailedInitLeavesASilentLibraryThatWorks) {
    init_fails = true;
    record.nMaxLevel = 8;
    void* library = load();
    ASSERT_NE(library, nullptr);
    HDBG* const variable = handle_variable(library);
    ASSERT_NE(variable, nullptr);
    EXPECT_EQ(*variable, nullptr);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].function, "_DoDbgInit");
    EXPECT_EQ(calls[0].text, "H264LIB");

    calls.clear();
    unsigned char area[2] = {0xA5, 0x48};
    bitbuffer_t bb{};
    EXPECT_EQ(function<decltype(__DoInitBitBuffer)>(library, "__DoInitBitBuffer")(&bb, area, 16, "f", "f.c", 1), 0);
    unsigned char value = 0;
    EXPECT_EQ(function<decltype(GetNextNBitsAsUint8)>(library, "GetNextNBitsAsUint8")(&bb, 8, &value), 0);
    EXPECT_EQ(value, 0xA5);
    unsigned long number = 0;
    EXPECT_EQ(function<decltype(GetUint32Golomb)>(library, "GetUint32Golomb")(&bb, &number), 0);
    EXPECT_EQ(number, 1u);
    const auto advance = function<decltype(AdvanceBitOffset)>(library, "AdvanceBitOffset");
    EXPECT_EQ(advance(&bb, 9), -1);
    function<decltype(DisplayBitBuffer)>(library, "DisplayBitBuffer")(&bb, "label");
    static const unsigned char unit[] = {0x00, 0x00, 0x00, 0x01, 0x67, 0x42, 0xC0, 0x0A, 0xDA, 0x0B, 0x13, 0x90};
    sps_t sps{};
    EXPECT_EQ(function<decltype(parse_sps_nal)>(library, "parse_sps_nal")(unit, sizeof unit, &sps), TRUE);
    EXPECT_EQ(sps.pic_width_in_mbs_minus1, 10u);
    EXPECT_EQ(function<decltype(parse_sps_nal)>(library, "parse_sps_nal")(unit, 9, &sps), FALSE);
    function<decltype(H264LIB_Display_sps)>(library, "H264LIB_Display_sps")(&sps);
    EXPECT_TRUE(calls.empty());

    // Assertions do not depend on the handle.
    EXPECT_EQ(advance(nullptr, 1), -1);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].function, "_DoAssert");
    EXPECT_EQ(calls[0].text, "bb != NULL");

    calls.clear();
    dlclose(library);
    EXPECT_FALSE(is_loaded());
    ASSERT_EQ(calls.size(), 1u);
    expect_uninit(calls[0], variable);
}

}  // namespace

int _DoDbgInit(const char* module, HDBG* handle) {
    calls.push_back({"_DoDbgInit", handle, 0, module});
    if (init_fails) return -1;
    *handle = &record;
    return 0;
}

void _DoDbgUninitEx(HDBG* handle, const char* func, const char* file, int line) {
    calls.push_back({"_DoDbgUninitEx", handle, 0, "", func, file, line});
    *handle = nullptr;
}

void _DoDbgPrintEx(HDBG handle, int level, const char* func, const char* file, int line, const char* format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    calls.push_back({"_DoDbgPrintEx", handle, level, text, func, file, line});
}

void _DoDbgPrintBuffer(HDBG handle, int level, const void*, unsigned int, const char* label, const char* func,
                       const char* file, int line) {
    calls.push_back({"_DoDbgPrintBuffer", handle, level, label, func, file, line});
}

void _DoAssert(const char* expression, const char* func, const char* file, int line) {
    calls.push_back({"_DoAssert", nullptr, 0, expression, func, file, line});
}

void _DoAssertEx(const char* expression, const char* func, const char* file, int line, const char*, const char*, int) {
    calls.push_back({"_DoAssertEx", nullptr, 0, expression, func, file, line});
}

void CopyString(char* destination, const char* source, size_t capacity) {
    std::snprintf(destination, capacity, "%s", source);
}
