#include "output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace h264tool {
namespace {

// Static, because standard output uses it until the program has ended.
char buffer[std::size_t{64} * 1024];

[[noreturn]] void fail() { throw std::system_error(errno, std::generic_category(), "cannot write standard output"); }

}  // namespace

Output::Output(Progress& progress) : progress_(progress), terminal_(isatty(STDOUT_FILENO) != 0) {
    if (!terminal_) std::setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
}

void Output::write(std::string_view text) {
    if (terminal_) progress_.hide();
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) fail();
}

void Output::flush() {
    if (std::fflush(stdout) != 0) fail();
}

}  // namespace h264tool
