#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "notes.h"

namespace h264tool {
namespace {

constexpr std::chrono::milliseconds kDelay{1000};
constexpr std::chrono::milliseconds kInterval{200};
constexpr std::uint64_t kMegabyte = 1000000;

}  // namespace

Progress::Progress(std::optional<std::uint64_t> total)
    : total_(total), visible_(isatty(STDERR_FILENO) != 0 && !is_quiet()), next_(Clock::now() + kDelay) {}

void Progress::advance(std::uint64_t bytes) {
    if (!visible_) return;
    done_ += bytes;
    const Clock::time_point now = Clock::now();
    if (now < next_) return;
    next_ = now + kInterval;
    shown_ = true;
    if (total_ && *total_ > 0) {
        const double percent = 100.0 * static_cast<double>(std::min(done_, *total_)) / static_cast<double>(*total_);
        std::fprintf(stderr, "\r\033[K%3.0f%% of %" PRIu64 " MB", percent, *total_ / kMegabyte);
    } else {
        std::fprintf(stderr, "\r\033[K%" PRIu64 " MB", done_ / kMegabyte);
    }
    std::fflush(stderr);
}

void Progress::hide() {
    if (!shown_) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    shown_ = false;
}

}  // namespace h264tool
