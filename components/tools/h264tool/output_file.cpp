#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <system_error>
#include <utility>

namespace h264tool {
namespace {

constexpr std::size_t kBufferSize = std::size_t{256} * 1024;
constexpr unsigned kMostLinks = 40;     // that are followed one after the other
constexpr unsigned kMostNames = 10000;  // tried for a temporary file

// Signals that end a program, which leaves no file behind then.
constexpr std::array kSignals{SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE, SIGXFSZ};

// Paths of the temporary files.
std::array<std::atomic<const char*>, 16> temporary_paths;
static_assert(std::atomic<const char*>::is_always_lock_free);

extern "C" void remove_temporary_files(int signal_number) {
    for (const auto& slot : temporary_paths)
        if (const char* const path = slot; path != nullptr) unlink(path);
    // The handler is gone since it was called: the signal ends the program.
    std::raise(signal_number);
}

void handle_signals() {
    static const bool done = [] {
        for (const int number : kSignals) {
            struct sigaction action {};
            if (sigaction(number, nullptr, &action) != 0 || action.sa_handler != SIG_DFL) continue;
            action.sa_handler = remove_temporary_files;
            action.sa_flags = static_cast<int>(SA_RESETHAND);
            sigaction(number, &action, nullptr);
        }
        return true;
    }();
    static_cast<void>(done);
}

// Holds signals off while a file and the list of files change together.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int number : kSignals) sigaddset(&signals, number);
        sigprocmask(SIG_BLOCK, &signals, &before_);
    }
    ~SignalsBlocked() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_{};
};

std::string directory_of(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

// Empty when there is no such file.
std::string canonical(const std::string& path) {
    char* const found = realpath(path.c_str(), nullptr);
    if (found == nullptr) return {};
    std::string result(found);
    std::free(found);
    return result;
}

// The path without symbolic links. The file need not be there; its directory stays as it is when that is not.
std::string resolved(std::string path) {
    for (unsigned i = 0; i < kMostLinks; ++i) {
        if (std::string found = canonical(path); !found.empty()) return found;
        std::array<char, PATH_MAX> target;
        const ssize_t length = readlink(path.c_str(), target.data(), target.size());
        if (length <= 0 || static_cast<std::size_t>(length) == target.size()) break;
        const std::string text(target.data(), static_cast<std::size_t>(length));
        path = text.front() == '/' ? text : directory_of(path).append(text);
    }
    const std::string directory = directory_of(path);
    std::string found = canonical(directory.empty() ? "." : directory);
    if (found.empty()) return path;
    if (found.back() != '/') found += '/';
    return found + path.substr(directory.size());
}

// "-" is a standard stream.
bool read_status(const std::string& path, int standard, struct stat& status) {
    return path == "-" ? fstat(standard, &status) == 0 : stat(path.c_str(), &status) == 0;
}

bool is_same_regular_file(const std::string& a, int standard_a, const std::string& b) {
    struct stat first {};
    struct stat second {};
    return read_status(a, standard_a, first) && read_status(b, STDOUT_FILENO, second) && S_ISREG(first.st_mode) &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

}  // namespace

OutputFile::OutputFile(const std::string& path) : name_(path == "-" ? "standard output" : path) {
    buffer_.reserve(kBufferSize);
    if (path == "-") {
        descriptor_ = STDOUT_FILENO;
        return;
    }
    path_ = resolved(path);
    struct stat status {};
    const bool exists = stat(path_.c_str(), &status) == 0;
    if (exists && !S_ISREG(status.st_mode)) {
        open_in_place();
        return;
    }
    // Who may not write a file may not replace it either.
    if (exists && access(path_.c_str(), W_OK) != 0) fail("cannot write ");
    create_temporary(exists ? S_IRUSR | S_IWUSR : 0666);
    if (exists && fchmod(descriptor_, status.st_mode & 0777) != 0) {
        const int reason = errno;
        close(descriptor_);
        remove_temporary();
        errno = reason;
        fail("cannot set the permissions of ");
    }
}

OutputFile::~OutputFile() {
    if (descriptor_ >= 0 && descriptor_ != STDOUT_FILENO) close(descriptor_);
    remove_temporary();
}

void OutputFile::remove_temporary() {
    if (temporary_path_.empty()) return;
    const SignalsBlocked blocked;
    unlink(temporary_path_.c_str());
    temporary_paths[slot_] = nullptr;
}

void OutputFile::open_in_place() {
    descriptor_ = open(path_.c_str(), O_WRONLY | O_CLOEXEC);
    if (descriptor_ < 0) fail("cannot open ");
}

void OutputFile::create_temporary(unsigned permissions) {
    while (slot_ < temporary_paths.size() && temporary_paths[slot_] != nullptr) ++slot_;
    if (slot_ == temporary_paths.size()) {
        errno = EMFILE;
        fail("cannot create ");
    }
    handle_signals();
    const SignalsBlocked blocked;
    const std::string beginning = directory_of(path_) + ".h264tool-" + std::to_string(getpid()) + '-';
    for (unsigned i = 0; descriptor_ < 0 && i < kMostNames; ++i) {
        temporary_path_ = beginning + std::to_string(i);
        descriptor_ = open(temporary_path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions);
        if (descriptor_ < 0 && errno != EEXIST) break;
    }
    if (descriptor_ < 0) fail("cannot create ");
    temporary_paths[slot_] = temporary_path_.c_str();
}

void OutputFile::write(std::span<const unsigned char> bytes) {
    while (!bytes.empty()) {
        const std::size_t count = std::min(bytes.size(), kBufferSize - buffer_.size());
        buffer_.insert(buffer_.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
        bytes = bytes.subspan(count);
        if (buffer_.size() == kBufferSize) flush();
    }
}

void OutputFile::flush() {
    const unsigned char* next = buffer_.data();
    for (std::size_t left = buffer_.size(); left > 0;) {
        const ssize_t count = ::write(descriptor_, next, left);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail("cannot write ");
        next += count;
        left -= static_cast<std::size_t>(count);
    }
    buffer_.clear();
}

void OutputFile::finish() {
    if (descriptor_ < 0) return;
    flush();
    if (descriptor_ != STDOUT_FILENO && close(std::exchange(descriptor_, -1)) != 0) fail("cannot write ");
}

void OutputFile::commit() {
    finish();
    if (temporary_path_.empty()) return;
    const SignalsBlocked blocked;
    if (rename(temporary_path_.c_str(), path_.c_str()) != 0) fail("cannot create ");
    temporary_paths[slot_] = nullptr;
    temporary_path_.clear();
}

void OutputFile::fail(const char* what) const { throw std::system_error(errno, std::generic_category(), what + name_); }

bool is_same_output(const std::string& a, const std::string& b) {
    if (a == b || is_same_regular_file(a, STDOUT_FILENO, b)) return true;
    return a != "-" && b != "-" && resolved(a) == resolved(b);
}

bool is_same_file(const std::string& input, const std::string& output) {
    return is_same_regular_file(input, STDIN_FILENO, output);
}

}  // namespace h264tool
