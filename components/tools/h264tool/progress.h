// Tells a person at a terminal how far a long run has come.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace h264tool {

// A line on standard error, shown when that is a terminal, the run has taken a second and
// nobody asked for quiet.
class Progress {
public:
    // total is the size of the input in bytes, when known.
    explicit Progress(std::optional<std::uint64_t> total);
    ~Progress() { hide(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Counts bytes read and from time to time shows their sum.
    void advance(std::uint64_t bytes);
    // Erases the line until it is shown next.
    void hide();

private:
    using Clock = std::chrono::steady_clock;

    std::optional<std::uint64_t> total_;
    bool visible_;
    Clock::time_point next_;
    std::uint64_t done_ = 0;
    bool shown_ = false;
};

}  // namespace h264tool
