// Limits how often a message appears that would repeat for each picture.
#pragma once

#include <atomic>
#include <ctime>

namespace h264 {

// The time at which a message was last due, for the whole process.
class Throttle {
public:
    // Whether more than this many seconds have passed since the message was last due; if so, it is due now.
    bool is_due(std::time_t period) {
        const std::time_t now = std::time(nullptr);
        if (now - last_.load(std::memory_order_relaxed) <= period) return false;
        last_.store(now, std::memory_order_relaxed);
        return true;
    }

private:
    std::atomic<std::time_t> last_{0};
};

}  // namespace h264
