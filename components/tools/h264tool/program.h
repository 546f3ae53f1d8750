// The command h264tool as a function.
#pragma once

namespace h264tool {

// Takes what main() is given and returns the exit status.
int run_program(int argc, const char* const* argv);

}  // namespace h264tool
