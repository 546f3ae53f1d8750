#include "scc.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <string_view>

#include "text.h"

namespace h264tool {
namespace {

constexpr std::string_view kHeader = "Scenarist_SCC V1.0";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t\r";

[[noreturn]] void fail(std::size_t line, const std::string& reason) {
    throw std::runtime_error("line " + std::to_string(line) + ": " + reason);
}

// Takes the next word off the text; empty at its end.
std::string_view next_word(std::string_view& text) {
    const std::size_t begin = std::min(text.find_first_not_of(kBlanks), text.size());
    text.remove_prefix(begin);
    const std::size_t end = std::min(text.find_first_of(kBlanks), text.size());
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(end);
    return word;
}

std::string quoted(std::string_view word) { return '\'' + std::string(word.substr(0, 40)) + '\''; }

SccLine parse_line(std::string_view text, std::size_t number) {
    SccLine line;
    line.number = number;
    const std::string_view start = next_word(text);
    const auto timecode = parse_timecode(start);
    if (!timecode) fail(number, quoted(start) + " is no timecode HH:MM:SS:FF");
    line.start = timecode->timecode;
    line.drop_frame = timecode->drop_frame;
    if (!exists(line.start, {kSccFramesPerSecond, line.drop_frame}))
        fail(number, "there is no timecode " + std::string(start));
    for (std::string_view word = next_word(text); !word.empty(); word = next_word(text)) {
        std::uint16_t pair = 0;
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), pair, 16);
        if (word.size() != 4 || error != std::errc() || end != word.data() + word.size())
            fail(number, quoted(word) + " is no byte pair of four hexadecimal digits");
        line.pairs.push_back(pair);
    }
    if (line.pairs.empty()) fail(number, "there are no byte pairs behind the timecode");
    return line;
}

}  // namespace

std::vector<SccLine> read_scc(std::istream& in) {
    std::vector<SccLine> lines;
    std::string text;
    std::size_t number = 1;
    if (!std::getline(in, text)) fail(number, in.bad() ? "cannot be read" : "the file is empty");
    std::string_view header = text;
    if (header.starts_with(kByteOrderMark)) header.remove_prefix(kByteOrderMark.size());
    header = header.substr(0, header.find_last_not_of(kBlanks) + 1);
    if (header != kHeader) fail(number, "is not '" + std::string(kHeader) + "'");
    while (std::getline(in, text)) {
        ++number;
        if (text.find_first_not_of(kBlanks) != std::string::npos) lines.push_back(parse_line(text, number));
    }
    if (in.bad()) fail(number, "cannot be read");
    return lines;
}

std::string format_scc(const std::vector<SccLine>& lines) {
    std::string text = std::string(kHeader) + '\n';
    for (const SccLine& line : lines) {
        text += '\n' + to_text(line.start, line.drop_frame);
        char separator = '\t';
        for (const std::uint16_t pair : line.pairs) {
            text += separator + format("%04x", pair);
            separator = ' ';
        }
        text += '\n';
    }
    return text;
}

}  // namespace h264tool
