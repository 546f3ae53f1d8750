#include "input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace h264tool {
namespace {

// A file without a name.
int open_temporary() {
    const char* const directory = std::getenv("TMPDIR");
    std::string path = directory != nullptr && *directory != '\0' ? directory : "/tmp";
    path += "/h264tool-XXXXXX";
    const int descriptor = mkostemp(path.data(), O_CLOEXEC);
    if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "cannot create " + path);
    unlink(path.c_str());
    return descriptor;
}

}  // namespace

InputFile::InputFile(const std::string& path, Reading reading)
    : name_(path == "-" ? "standard input" : path),
      descriptor_(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC)),
      reading_(reading) {
    if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "cannot open " + name_);
    if (reading == Reading::kOnce) return;
    if (size()) beginning_ = lseek(descriptor_, 0, SEEK_CUR);
    struct stat status {};
    const bool directory = fstat(descriptor_, &status) == 0 && S_ISDIR(status.st_mode);
    if ((!size() || beginning_ < 0) && !directory) copy_ = open_temporary();
}

InputFile::~InputFile() {
    if (descriptor_ != STDIN_FILENO) close(descriptor_);
    if (copy_ >= 0) close(copy_);
}

std::optional<std::uint64_t> InputFile::size() const {
    struct stat status {};
    if (fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return static_cast<std::uint64_t>(status.st_size);
}

std::size_t InputFile::read(unsigned char* area, std::size_t capacity) {
    if (reading_copy_) return read_from(copy_, area, capacity);
    if (reading_ == Reading::kAgain && end_) capacity = std::min<std::uint64_t>(capacity, *end_ - position_);
    const std::size_t count = read_from(descriptor_, area, capacity);
    position_ += count;
    if (count == 0 && capacity > 0 && !end_) end_ = position_;
    if (check_) check_->look({area, count}, name_);
    if (copy_ >= 0) keep({area, count});
    return count;
}

void InputFile::rewind() {
    if (reading_ == Reading::kOnce) throw std::logic_error("input is read once");
    if (copy_ >= 0 && !reading_copy_) {
        std::vector<unsigned char> area(std::size_t{64} * 1024);
        while (read(area.data(), area.size()) > 0) {
        }
        reading_copy_ = true;
    }
    if (lseek(copy_ >= 0 ? copy_ : descriptor_, copy_ >= 0 ? 0 : beginning_, SEEK_SET) < 0)
        throw std::system_error(errno, std::generic_category(), "cannot read " + name_ + " again");
    position_ = 0;
}

std::size_t InputFile::read_at(std::uint64_t offset, unsigned char* area, std::size_t capacity) const {
    if (reading_ == Reading::kOnce || (copy_ >= 0 && !reading_copy_)) throw std::logic_error("input is not at hand");
    const std::int64_t first = copy_ >= 0 ? 0 : beginning_;
    if (copy_ < 0 && end_) capacity = std::min<std::uint64_t>(capacity, *end_ - std::min(offset, *end_));
    while (true) {
        const ssize_t count =
            pread(copy_ >= 0 ? copy_ : descriptor_, area, capacity, first + static_cast<std::int64_t>(offset));
        if (count >= 0) return static_cast<std::size_t>(count);
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "cannot read " + name_ + " again");
    }
}

std::size_t InputFile::read_from(int descriptor, unsigned char* area, std::size_t capacity) {
    while (true) {
        const ssize_t count = ::read(descriptor, area, capacity);
        if (count >= 0) return static_cast<std::size_t>(count);
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "cannot read " + name_);
    }
}

void InputFile::keep(std::span<const unsigned char> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(copy_, bytes.data(), bytes.size());
        if (count >= 0)
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        else if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "cannot keep a copy of " + name_);
    }
}

}  // namespace h264tool
