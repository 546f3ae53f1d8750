// Replaces time() for the whole test program, so that rate limits can be tested without waiting.
#pragma once

#include <ctime>

namespace test {

// From now on time() returns this many seconds.
void set_time(std::time_t seconds);
// time() is the system's again.
void use_system_time();

}  // namespace test
