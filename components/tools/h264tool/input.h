// The file or standard input that a subcommand reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "input_check.h"

namespace h264tool {

class InputFile {
public:
    enum class Reading {
        kOnce,
        kAgain,  // rewind() is wanted: what cannot seek is kept in a temporary file
    };

    // Opens a file for reading; "-" is standard input. Throws std::system_error.
    explicit InputFile(const std::string& path, Reading reading = Reading::kOnce);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    // Name for messages.
    const std::string& name() const { return name_; }
    // Size of a regular file in bytes.
    std::optional<std::uint64_t> size() const;

    // From now on read() throws NoByteStream for what InputCheck refuses; to be called before the first read.
    void expect_byte_stream() { check_.emplace(); }

    // Reads at most capacity bytes, as soon as there are some; 0 at the end. Throws std::system_error.
    std::size_t read(unsigned char* area, std::size_t capacity);

    // Reads at most capacity bytes from a distance to the first byte on, wherever read() goes on; only behind rewind().
    // 0 at the end. Throws std::system_error.
    std::size_t read_at(std::uint64_t offset, unsigned char* area, std::size_t capacity) const;

    // Begins again with the first byte; only with Reading::kAgain. What cannot seek was read to its end before, or is
    // now. Where read() has met the end is the end from then on, even when the file grows. Throws std::system_error.
    void rewind();

private:
    std::size_t read_from(int descriptor, unsigned char* area, std::size_t capacity);
    void keep(std::span<const unsigned char> bytes);

    std::string name_;
    int descriptor_;
    Reading reading_;
    std::int64_t beginning_ = 0;        // where a file that can seek begins
    std::uint64_t position_ = 0;        // from there, of read()
    std::optional<std::uint64_t> end_;  // likewise, once it was met
    int copy_ = -1;                     // the temporary file
    bool reading_copy_ = false;
    std::optional<InputCheck> check_;
};

}  // namespace h264tool
