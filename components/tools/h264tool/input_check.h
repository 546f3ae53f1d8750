// Tells inputs that are no Annex B byte stream.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <span>
#include <string>
#include <utility>

namespace h264tool {

// Nothing of the input can be parsed; the text names the input and says what to do.
class NoByteStream : public std::exception {
public:
    explicit NoByteStream(std::string text) : text_(std::move(text)) {}
    const char* what() const noexcept override { return text_.c_str(); }

private:
    std::string text_;
};

// Looks at the beginning of an input, up to its first start code.
class InputCheck {
public:
    static constexpr std::uint64_t kLimit = 1000000;  // bytes in which a start code is expected

    // The bytes in order, in pieces of any size, and nothing at the end of the input. Throws NoByteStream, whose text
    // begins with the name, when the bytes are those of another format or have no start code.
    void look(std::span<const unsigned char> bytes, const std::string& name);

private:
    void look_at_beginning(const std::string& name) const;

    static constexpr std::size_t kPacket = 188;  // of a transport stream

    bool done_ = false;
    bool found_ = false;  // a start code
    bool only_zeros_ = true;
    std::uint64_t position_ = 0;  // bytes looked at
    unsigned zeros_ = 0;          // just before that position, at most 2 counted
    std::array<unsigned char, 2 * kPacket + 1> beginning_{};
};

}  // namespace h264tool
