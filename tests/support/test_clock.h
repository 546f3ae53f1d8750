// Times for the tests of rate limits.
#pragma once

#include <ctime>

namespace test {

// A time that is later than any that an earlier test of this program saw, so that no message is held back from it.
inline std::time_t later_than_all_tests() {
    static std::time_t latest = std::time(nullptr);
    return latest += 1000;
}

}  // namespace test
