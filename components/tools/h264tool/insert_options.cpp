#include "insert_options.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <numeric>
#include <stdexcept>

namespace h264tool {
namespace {

__extension__ typedef unsigned __int128 Wide;

// The writer of picture timing messages takes frame numbers below this.
constexpr std::uint64_t kMostFramesPerSecond = 86;
constexpr unsigned kMostActiveFormat = 15;
constexpr std::string_view kPrecisionTimeUuid = "MISPmicrosectime";
constexpr std::size_t kMostUserData = 238;  // for a payloadSize of one byte

[[noreturn]] void fail(const std::string& reason) { throw std::invalid_argument(reason); }

// Whether the whole text is a number of a type.
template <class Number>
bool parse_number(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

// The UUID is written without emulation prevention: what must not stand in a unit must not begin in it.
bool breaks_unit(const UserData& data) {
    std::string bytes(data.uuid.begin(), data.uuid.end());
    bytes += data.text;
    for (std::size_t i = 0; i < data.uuid.size() && i + 2 < bytes.size(); ++i)
        if (bytes[i] == 0 && bytes[i + 1] == 0 && static_cast<unsigned char>(bytes[i + 2]) <= 3) return true;
    return false;
}

}  // namespace

FrameRate parse_frame_rate(std::string_view text) {
    const std::size_t slash = text.find('/');
    std::uint32_t numerator = 0;
    std::uint32_t denominator = 1;
    const bool fine = parse_number(text.substr(0, slash), numerator) &&
                      (slash == std::string_view::npos || parse_number(text.substr(slash + 1), denominator));
    if (!fine || numerator == 0 || denominator == 0)
        fail("'" + std::string(text) + "' is no frame rate such as 25 or 30000/1001");
    const std::uint32_t divisor = std::gcd(numerator, denominator);
    return {numerator / divisor, denominator / divisor};
}

std::int64_t parse_microseconds(std::string_view text) {
    std::int64_t number = -1;
    if (!parse_number(text, number) || number < 0)
        fail("'" + std::string(text) + "' is no number of microseconds from 0 to 9223372036854775807");
    return number;
}

unsigned parse_active_format(std::string_view text) {
    unsigned code = 0;
    if (!parse_number(text, code) || code > kMostActiveFormat)
        fail("'" + std::string(text) + "' is no code from 0 to " + std::to_string(kMostActiveFormat));
    return code;
}

UserData parse_user_data(std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) fail("there is no colon between UUID and text");
    UserData data;
    std::string digits(text.substr(0, colon));
    if (digits.size() == 36)
        for (const std::size_t hyphen : {23U, 18U, 13U, 8U})
            if (digits[hyphen] == '-') digits.erase(hyphen, 1);
    bool fine = digits.size() == 2 * data.uuid.size();
    for (std::size_t i = 0; fine && i < data.uuid.size(); ++i) {
        const char* const begin = digits.data() + 2 * i;
        const auto [end, error] = std::from_chars(begin, begin + 2, data.uuid[i], 16);
        fine = error == std::errc() && end == begin + 2;
    }
    if (!fine) fail("'" + std::string(text.substr(0, colon)) + "' is no UUID of 32 hexadecimal digits");
    if (std::equal(data.uuid.begin(), data.uuid.end(), kPrecisionTimeUuid.begin()))
        fail("the UUID is that of precision time stamps, which --precision-time inserts");
    if (data.uuid.front() == 0xFF) fail("a message whose UUID begins with FF cannot be read back by the library");
    data.text = text.substr(colon + 1);
    if (data.text.empty()) fail("there is no text behind the UUID");
    if (data.text.size() > kMostUserData)
        fail("the text has " + std::to_string(data.text.size()) + " bytes, " + std::to_string(kMostUserData) +
             " fit a message");
    if (breaks_unit(data)) fail("the UUID has zero bytes that would look like the end of the message's unit");
    return data;
}

TimecodeRate timecode_rate(const FrameRate& rate, const ParsedTimecode& first) {
    const std::string name = std::to_string(rate.numerator) + '/' + std::to_string(rate.denominator);
    const std::uint64_t scaled = rate.numerator * 1001;
    const bool whole = rate.numerator % rate.denominator == 0;
    const bool slow = !whole && scaled % (rate.denominator * 1000) == 0;
    if (!whole && !slow) fail("timecodes count whole frames a second, or 1000/1001 of that: " + name + " is neither");
    const std::uint64_t frames = whole ? rate.numerator / rate.denominator : scaled / (rate.denominator * 1000);
    if (frames > kMostFramesPerSecond)
        fail("timecodes count up to " + std::to_string(kMostFramesPerSecond) + " frames a second, not " + name);
    if (first.drop_frame && !(slow && (frames == 30 || frames == 60)))
        fail("drop frame counting is for 30000/1001 and 60000/1001 frames a second, not " + name);
    const TimecodeRate result{static_cast<unsigned>(frames), first.drop_frame};
    if (!exists(first.timecode, result))
        fail("there is no timecode " + to_text(first.timecode, first.drop_frame) + " at " + name + " frames a second");
    return result;
}

std::uint64_t multiply_divide(std::uint64_t a, std::uint64_t b, std::uint64_t c, Rounding rounding) {
    const Wide quotient = (Wide{a} * b + (rounding == Rounding::kUp ? c - 1 : 0)) / c;
    constexpr auto kMost = std::numeric_limits<std::uint64_t>::max();
    return quotient > kMost ? kMost : static_cast<std::uint64_t>(quotient);
}

}  // namespace h264tool
