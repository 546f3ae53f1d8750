// What the fuzz targets are made of. A target defines fuzz(), which is run twice on each input: with the library silent
// and with every message formatted. What it observes must be the same.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

namespace test {

using Bytes = std::vector<unsigned char>;

// Takes values off the bytes of an input. Behind its end all are 0.
class FuzzInput {
public:
    FuzzInput(const unsigned char* data, std::size_t size) : next_(data), end_(data + size) {}

    std::size_t left() const { return static_cast<std::size_t>(end_ - next_); }

    std::uint64_t number(unsigned bytes) {
        std::uint64_t value = 0;
        for (unsigned i = 0; i < bytes; ++i) value = value << 8 | (left() > 0 ? *next_++ : 0U);
        return value;
    }
    std::uint64_t any() { return number(8); }
    std::uint64_t below(std::uint64_t limit) {
        return limit == 0 ? 0 : number(limit <= 0x100 ? 1 : limit <= 0x10000 ? 2 : 8) % limit;
    }
    bool flag() { return below(2) != 0; }

    // As many as there are.
    Bytes bytes(std::size_t size) {
        const std::size_t count = size < left() ? size : left();
        Bytes bytes(next_, next_ + count);
        next_ += count;
        return bytes;
    }
    Bytes rest() { return bytes(left()); }
    // Bytes with their number, at most 65535, before them.
    Bytes chunk() { return bytes(number(2)); }

    // A record of any content.
    template <class Record>
    void fill(Record& record) {
        static_assert(std::is_trivially_copyable_v<Record>);
        const Bytes content = bytes(sizeof record);
        std::memset(&record, 0, sizeof record);
        if (!content.empty()) std::memcpy(&record, content.data(), content.size());
    }

private:
    const unsigned char* next_;
    const unsigned char* end_;
};

// Results and records, one behind the other. Records must have been zeroed, because their padding is observed too.
class Observed {
public:
    template <class Record>
    void add(const Record& record) {
        static_assert(std::is_trivially_copyable_v<Record>);
        append(&record, sizeof record);
    }
    void add(const Bytes& bytes) {
        add(bytes.size());
        if (!bytes.empty()) append(bytes.data(), bytes.size());
    }
    const Bytes& content() const { return content_; }

private:
    void append(const void* data, std::size_t size) {
        const auto* bytes = static_cast<const unsigned char*>(data);
        content_.insert(content_.end(), bytes, bytes + size);
    }

    Bytes content_;
};

// Defined by each target.
void fuzz(FuzzInput& input, Observed& observed);

// A zeroed record, padding included.
template <class Record>
Record zeroed() {
    Record record;
    std::memset(&record, 0, sizeof record);
    return record;
}

// A finding: ends the program.
[[noreturn]] void fail(const char* file, int line, const char* what);
#define FUZZ_CHECK(condition) ((condition) ? void() : test::fail(__FILE__, __LINE__, #condition))

// What a run leaves behind a record or area that it must not touch.
constexpr unsigned char kUntouched = 0xA7;

}  // namespace test
