// Bytes with unreadable memory right behind them or right before them, so that a read or write outside ends the test.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <new>
#include <vector>

namespace test {

enum class Guard { kBehind, kBefore };

class GuardedBuffer {
public:
    explicit GuardedBuffer(std::size_t size, Guard guard = Guard::kBehind) : size_(size) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        mapped_ = (size / page + 3) * page;
        void* area = mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (area == MAP_FAILED) throw std::bad_alloc();
        start_ = static_cast<unsigned char*>(area);
        if (mprotect(start_, page, PROT_NONE) != 0 || mprotect(start_ + mapped_ - page, page, PROT_NONE) != 0)
            throw std::bad_alloc();
        data_ = guard == Guard::kBehind ? start_ + mapped_ - page - size : start_ + page;
    }
    explicit GuardedBuffer(const std::vector<unsigned char>& bytes, Guard guard = Guard::kBehind)
        : GuardedBuffer(bytes.size(), guard) {
        if (!bytes.empty()) std::memcpy(data_, bytes.data(), bytes.size());
    }
    ~GuardedBuffer() { munmap(start_, mapped_); }
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    unsigned char* data() { return data_; }
    std::size_t size() const { return size_; }
    unsigned char& operator[](std::size_t i) { return data_[i]; }
    std::vector<unsigned char> bytes() const { return {data_, data_ + size_}; }

private:
    std::size_t size_;
    std::size_t mapped_ = 0;
    unsigned char* start_ = nullptr;
    unsigned char* data_ = nullptr;
};

}  // namespace test
