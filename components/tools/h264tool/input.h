// The file or standard input that a subcommand reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace h264tool {

class InputFile {
public:
    // Opens a file for reading; "-" is standard input. Throws std::system_error.
    explicit InputFile(const std::string& path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    // Name for messages.
    const std::string& name() const { return name_; }
    // Size of a regular file in bytes.
    std::optional<std::uint64_t> size() const;

    // Reads at most capacity bytes, as soon as there are some; 0 at the end. Throws std::system_error.
    std::size_t read(unsigned char* area, std::size_t capacity);

private:
    std::string name_;
    int descriptor_;
};

}  // namespace h264tool
