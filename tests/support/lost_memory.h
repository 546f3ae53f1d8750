// Leave for the one place where the library loses memory.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define H264_TEST_HAS_LSAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define H264_TEST_HAS_LSAN 1
#endif
#endif
#ifdef H264_TEST_HAS_LSAN
#include <sanitizer/lsan_interface.h>
#endif

namespace test {

// While it lives, leak checks leave out what is allocated.
class MemoryThatIsLost {
public:
    MemoryThatIsLost() {
#ifdef H264_TEST_HAS_LSAN
        __lsan_disable();
#endif
    }
    ~MemoryThatIsLost() {
#ifdef H264_TEST_HAS_LSAN
        __lsan_enable();
#endif
    }
    MemoryThatIsLost(const MemoryThatIsLost&) = delete;
    MemoryThatIsLost& operator=(const MemoryThatIsLost&) = delete;
};

}  // namespace test
