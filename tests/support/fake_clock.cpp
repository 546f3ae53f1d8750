#include "fake_clock.h"

#include <atomic>

namespace test {
namespace {
std::atomic<bool> faked{false};
std::atomic<std::time_t> now{0};
}  // namespace

void set_time(std::time_t seconds) {
    now = seconds;
    faked = true;
}

void use_system_time() { faked = false; }

}  // namespace test

extern "C" std::time_t time(std::time_t* result) noexcept {
    std::time_t seconds = test::now;
    if (!test::faked) {
        timespec wall{};
        clock_gettime(CLOCK_REALTIME, &wall);
        seconds = wall.tv_sec;
    }
    if (result != nullptr) *result = seconds;
    return seconds;
}
