#include "input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace h264tool {

InputFile::InputFile(const std::string& path)
    : name_(path == "-" ? "standard input" : path),
      descriptor_(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "cannot open " + name_);
}

InputFile::~InputFile() {
    if (descriptor_ != STDIN_FILENO) close(descriptor_);
}

std::optional<std::uint64_t> InputFile::size() const {
    struct stat status {};
    if (fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return static_cast<std::uint64_t>(status.st_size);
}

std::size_t InputFile::read(unsigned char* area, std::size_t capacity) {
    while (true) {
        const ssize_t count = ::read(descriptor_, area, capacity);
        if (count >= 0) return static_cast<std::size_t>(count);
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "cannot read " + name_);
    }
}

}  // namespace h264tool
