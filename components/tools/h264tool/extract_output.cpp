#include "extract_output.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <stdexcept>

#include "insert_options.h"
#include "scc.h"
#include "text.h"

namespace h264tool {
namespace {

// The places of pictures in output order, from 0.
std::vector<std::uint32_t> output_numbers(const StreamExtract& stream) {
    const std::vector<std::uint32_t> pictures = stream.order().in_output_order();
    std::vector<std::uint32_t> numbers(pictures.size());
    for (std::uint32_t i = 0; i < pictures.size(); ++i) numbers[pictures[i]] = i;
    return numbers;
}

// The entries of pictures in output order.
template <typename Entry>
std::vector<const Entry*> in_output_order(const StreamExtract& stream, const std::vector<Entry>& entries) {
    const std::vector<std::uint32_t> numbers = output_numbers(stream);
    std::vector<const Entry*> sorted;
    sorted.reserve(entries.size());
    for (const Entry& entry : entries) sorted.push_back(&entry);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [&](const Entry* a, const Entry* b) { return numbers[a->picture] < numbers[b->picture]; });
    return sorted;
}

std::string two_digits(const std::optional<unsigned char>& number) {
    return number ? format("%02u", unsigned{*number}) : "--";
}

// The fields shown before each frame in output order. A field without another one counts as a frame.
std::vector<std::uint64_t> fields_before(const StreamExtract& stream) {
    std::vector<std::uint64_t> fields(stream.order().frames() + 1);
    for (std::size_t picture = 0; picture < stream.fields().size(); ++picture)
        fields[std::size_t{stream.order().place(picture).frame} + 1] += stream.fields()[picture];
    std::uint64_t sum = 0;
    for (std::size_t i = 1; i < fields.size(); ++i) fields[i] = sum += std::max<std::uint64_t>(fields[i], 2);
    return fields;
}

// The first frame of an SCC file that begins when a frame of the stream does, or later. By the stream's own rate frames
// are shown for as many fields as they say, by a given one all for the same time.
class SccFrames {
public:
    SccFrames(const StreamExtract& stream, const std::optional<FrameRate>& rate)
        : stream_(stream), rate_(rate), fields_before_(fields_before(stream)) {}

    // frame: in output order, not below that of the last call; picture: one of the frame's.
    std::uint64_t first_of(std::uint32_t frame, std::uint32_t picture) {
        if (!rate_) follow_changes(picture);
        const std::optional<FrameRate>& rate = rate_ ? rate_ : current_;
        if (!rate)
            throw std::runtime_error("picture " + std::to_string(picture) +
                                     " has captions and its stream no frame rate: --frame-rate gives one");
        return scc_begin_ + distance(std::min(frame, begin_), frame, *rate);
    }

private:
    std::uint64_t distance(std::uint32_t begin, std::uint32_t end, const FrameRate& rate) const {
        const std::uint64_t fields =
            rate_ ? 2 * std::uint64_t{end - begin} : fields_before_.at(end) - fields_before_.at(begin);
        return multiply_divide(fields, rate.denominator * 15000, rate.numerator * 1001, Rounding::kUp);
    }

    void follow_changes(std::uint32_t picture) {
        const std::vector<RateChange>& rates = stream_.rates();
        for (; next_ < rates.size() && rates[next_].picture <= picture; ++next_) {
            const std::uint32_t begin = stream_.order().place(rates[next_].picture).frame;
            if (current_ && begin > begin_) scc_begin_ += distance(begin_, begin, *current_);
            begin_ = std::max(begin, begin_);
            current_ = rates[next_].rate;
        }
    }

    const StreamExtract& stream_;
    const std::optional<FrameRate> rate_;
    const std::vector<std::uint64_t> fields_before_;
    std::size_t next_ = 0;  // change
    std::optional<FrameRate> current_;
    std::uint32_t begin_ = 0;  // frame from which current_ counts
    std::uint64_t scc_begin_ = 0;
};

// The byte pairs of field 1 that are valid.
std::vector<std::uint16_t> field_1_pairs(const PictureCaptions& captions) {
    std::vector<std::uint16_t> pairs;
    for (std::size_t i = 0; captions.processed && i + 2 < captions.triples.size(); i += 3)
        if ((captions.triples[i] & 7U) == 4)  // cc_valid 1, cc_type 0
            pairs.push_back(static_cast<std::uint16_t>(captions.triples[i + 1] << 8 | captions.triples[i + 2]));
    return pairs;
}

bool is_null(std::uint16_t pair) { return (pair & 0x7F7FU) == 0; }

}  // namespace

std::string timecodes_csv(const StreamExtract& stream) {
    const std::vector<std::uint32_t> numbers = output_numbers(stream);
    std::string text = "picture,output_picture,slice_type,clock_timestamp,timecode,discontinuity\n";
    for (const ClockTimestamp& row : stream.timestamps())
        text += format("%" PRIu32 ",%" PRIu32 ",%s,%u,", row.picture, numbers.at(row.picture),
                       slice_type_name(stream.slice_kind_of(row.picture)), unsigned{row.number}) +
                two_digits(row.hours) + ':' + two_digits(row.minutes) + ':' + two_digits(row.seconds) +
                (row.drop_frame ? ';' : ':') + two_digits(row.frames) + (row.discontinuity ? ",1\n" : ",0\n");
    return text;
}

std::string formats_csv(const StreamExtract& stream) {
    const std::vector<std::uint32_t> numbers = output_numbers(stream);
    std::string text = "picture,output_picture,active_format,name\n";
    for (const PictureFormat& row : stream.formats()) {
        text += format("%" PRIu32 ",%" PRIu32 ",", row.picture, numbers.at(row.picture));
        text += row.active_format ? std::to_string(*row.active_format) + ',' + active_format_name(*row.active_format)
                                  : ",no active format";
        text += '\n';
    }
    return text;
}

std::string times_csv(const StreamExtract& stream) {
    const std::vector<std::uint32_t> numbers = output_numbers(stream);
    std::string text = "picture,output_picture,microseconds,time,status\n";
    for (const PictureTime& row : stream.times())
        text += format("%" PRIu32 ",%" PRIu32 ",%" PRIu64 ",%s,0x%02x\n", row.picture, numbers.at(row.picture),
                       row.time.microseconds, utc_time(row.time.microseconds).c_str(), row.time.status);
    return text;
}

std::vector<unsigned char> caption_triples(const StreamExtract& stream) {
    std::vector<unsigned char> bytes;
    for (const PictureCaptions* captions : in_output_order(stream, stream.captions()))
        bytes.insert(bytes.end(), captions->triples.begin(), captions->triples.end());
    return bytes;
}

const char* active_format_name(unsigned active_format) {
    constexpr std::array<const char*, 16> kNames{"undefined",
                                                 "reserved",
                                                 "box 16:9 (top)",
                                                 "box 14:9 (top)",
                                                 "box > 16:9 (centre)",
                                                 "reserved",
                                                 "reserved",
                                                 "reserved",
                                                 "full frame",
                                                 "4:3 (centre)",
                                                 "16:9 (centre)",
                                                 "14:9 (centre)",
                                                 "reserved",
                                                 "4:3 (with shoot and protect 14:9 centre)",
                                                 "16:9 (with shoot and protect 14:9 centre)",
                                                 "16:9 (with shoot and protect 4:3 centre)"};
    return kNames.at(active_format);
}

std::optional<ParsedTimecode> first_timecode(const StreamExtract& stream) {
    const std::vector<std::uint32_t> pictures = stream.order().in_output_order();
    for (const ClockTimestamp& row : stream.timestamps())
        if (row.picture == pictures.front() && row.hours && row.minutes && row.seconds)
            return ParsedTimecode{{*row.hours, *row.minutes, *row.seconds, row.frames}, row.drop_frame};
    return std::nullopt;
}

std::string captions_scc(const StreamExtract& stream, const std::optional<FrameRate>& rate,
                         const ParsedTimecode& start) {
    const TimecodeRate scc_rate{kSccFramesPerSecond, start.drop_frame};
    const std::uint64_t first = frame_number(start.timecode, scc_rate);
    SccFrames scc_frames(stream, rate);
    std::vector<SccLine> lines;
    std::uint64_t next = 0;  // SCC frame behind the last line
    for (const PictureCaptions* captions : in_output_order(stream, stream.captions())) {
        const std::vector<std::uint16_t> pairs = field_1_pairs(*captions);
        if (std::all_of(pairs.begin(), pairs.end(), is_null)) continue;
        std::uint64_t at = scc_frames.first_of(stream.order().place(captions->picture).frame, captions->picture);
        for (const std::uint16_t pair : pairs) {
            const std::uint64_t frame = at++;
            if (is_null(pair)) continue;
            // A pair that has no frame of its own is sent in the next one that is free.
            at = std::max(frame, next);
            if (lines.empty() || at > next) lines.push_back({timecode_at(first + at, scc_rate), start.drop_frame, {}});
            lines.back().pairs.push_back(pair);
            next = ++at;
        }
    }
    return format_scc(lines);
}

}  // namespace h264tool
