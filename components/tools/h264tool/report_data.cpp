// The data of the page that h264tool report makes.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "report_page.h"

namespace h264tool {
namespace {

using Json = nlohmann::ordered_json;

// Units of time a second: a multiple of 90000 in which the frames of all usual rates last a whole number.
constexpr double kClock = 360000;

// Numbers beyond this one are not exact on the page.
constexpr std::int64_t kMaxNumber = (std::int64_t{1} << 53) - 1;

std::int64_t on_page(double number) {
    constexpr auto kMost = static_cast<double>(kMaxNumber);
    return static_cast<std::int64_t>(std::llround(std::clamp(number, -kMost, kMost)));
}

std::int64_t on_page(std::uint64_t number) {
    return static_cast<std::int64_t>(std::min(number, static_cast<std::uint64_t>(kMaxNumber)));
}

template <typename Value>
std::optional<std::int64_t> on_page(const std::optional<Value>& number) {
    return number ? std::optional(on_page(std::uint64_t{*number})) : std::nullopt;
}

// The member of a column; value gives the number of a picture, or nothing.
template <typename Entries, typename Value>
std::string column(const char* name, const Entries& entries, const Value& value) {
    NumberColumn column;
    for (const auto& entry : entries) {
        if (const std::optional<std::int64_t> number = value(entry))
            column.add(*number);
        else
            column.add_nothing();
    }
    return '"' + std::string(name) + "\":" + column.finish();
}

std::string columns(const ReportStream& stream) {
    const std::vector<ReportPicture>& pictures = stream.pictures();
    std::string text = "{";
    const auto add = [&](const char* name, const auto& value) {
        if (text.size() > 1) text += ',';
        text += column(name, pictures, value);
    };
    using Number = std::optional<std::int64_t>;
    add("unit", [](const ReportPicture& one) -> Number { return on_page(one.unit); });
    add("bytes", [](const ReportPicture& one) -> Number { return on_page(one.bytes); });
    add("nal_ref_idc", [](const ReportPicture& one) -> Number { return one.nal_ref_idc; });
    add("structure", [](const ReportPicture& one) -> Number { return one.structure; });
    add("fields", [](const ReportPicture& one) -> Number { return one.fields; });
    add("cpb_removal_delay", [](const ReportPicture& one) { return on_page(one.cpb_removal_delay); });
    add("dpb_output_delay", [](const ReportPicture& one) { return on_page(one.dpb_output_delay); });
    // Seconds of the day times 256, and frames.
    add("timecode", [](const ReportPicture& one) -> Number {
        if (!one.timecode) return std::nullopt;
        const Timecode& timecode = one.timecode->timecode;
        return ((timecode.hours * 60 + timecode.minutes) * 60 + timecode.seconds) * 256 + timecode.frames;
    });
    add("drop_frame", [](const ReportPicture& one) -> Number {
        return one.timecode ? Number(one.timecode->drop_frame ? 1 : 0) : std::nullopt;
    });
    add("discontinuity", [](const ReportPicture& one) -> Number {
        return one.timecode ? Number(one.timecode->discontinuity ? 1 : 0) : std::nullopt;
    });
    add("cc_count", [](const ReportPicture& one) { return on_page(one.cc_count); });
    add("cc_active",
        [](const ReportPicture& one) -> Number { return one.cc_count ? Number(one.cc_active) : std::nullopt; });
    add("active_format",
        [](const ReportPicture& one) { return one.active_format ? Number(*one.active_format) : std::nullopt; });
    add("microseconds", [](const ReportPicture& one) {
        return one.precision ? Number(on_page(one.precision->microseconds)) : std::nullopt;
    });
    add("time_status",
        [](const ReportPicture& one) { return one.precision ? Number(one.precision->status) : std::nullopt; });
    // In output order, the numbers of the pictures in decoding order.
    text += ',' + column("in_output_order", stream.order().in_output_order(),
                         [](std::uint32_t picture) -> Number { return picture; });
    return text + '}';
}

std::string picture_types(const ReportStream& stream) {
    std::string types;
    for (const ReportPicture& picture : stream.pictures())
        types += picture.idr && picture.type == kPictureI ? 'D' : "IPB"[picture.type];
    return types;
}

// One of the two HRDs and its buffer.
class Hrd {
public:
    Hrd(const ReportStream& stream, bool nal) : stream_(stream), nal_(nal), times_(stream.pictures().size()) {}

    // The member of "hrds"; empty when the stream has no such HRD.
    std::string data() {
        const auto& sequences = stream_.sequences();
        if (std::none_of(sequences.begin(), sequences.end(),
                         [&](const auto& one) { return schedule(one).has_value(); }))
            return {};
        run();
        using Number = std::optional<std::int64_t>;
        using Times = std::optional<CpbTimes>;
        std::string text = nal_ ? R"({"name":"NAL","columns":{)" : R"({"name":"VCL","columns":{)";
        text += column("removal", times_,
                       [](const Times& one) { return one ? Number(on_page(one->removal * kClock)) : std::nullopt; });
        text += ',' + column("wait", times_, [](const Times& one) {
                    return one ? Number(on_page((one->removal - one->final_arrival) * kClock)) : std::nullopt;
                });
        text += ',' + column("fullness", times_,
                             [](const Times& one) { return one ? Number(on_page(one->fullness)) : std::nullopt; });
        // For the NAL HRD those of the pictures count.
        if (!nal_)
            text += ',' + column("bytes", stream_.pictures(),
                                 [](const ReportPicture& one) -> Number { return on_page(one.vcl_bytes); });
        return text + "}," + pictures("starts", starts_of_runs_) + ',' +
               pictures("underflows", places([](const CpbTimes& one) { return one.underflow; })) + ',' +
               pictures("overflows", places([](const CpbTimes& one) { return one.overflow; })) + '}';
    }

private:
    const std::optional<CpbSchedule>& schedule(const ReportSequence& sequence) const {
        return nal_ ? sequence.nal : sequence.vcl;
    }
    const std::optional<CpbInitialDelay>& initial_delay(const ReportPicture& picture) const {
        return nal_ ? picture.nal_delay : picture.vcl_delay;
    }
    std::uint64_t bits(const ReportPicture& picture) const { return 8 * (nal_ ? picture.bytes : picture.vcl_bytes); }

    // A buffering period begins a run of its own when it cannot continue what was before it: at the beginning, behind
    // pictures without timing, and where streams were joined, so that its picture's cpb_removal_delay is 0.
    void run() {
        std::vector<CpbAccessUnit> units;
        std::size_t first = 0;
        const auto end_run = [&](std::size_t next) {
            const std::vector<CpbTimes> times = run_cpb(units);
            std::copy(times.begin(), times.end(), times_.begin() + static_cast<std::ptrdiff_t>(first));
            if (!units.empty()) starts_of_runs_.push_back(first);
            units.clear();
            first = next;
        };
        for (std::size_t i = 0; i < stream_.pictures().size(); ++i) {
            const ReportPicture& picture = stream_.pictures()[i];
            const ReportSequence& sequence = stream_.sequences().at(picture.sequence);
            const auto& initial = initial_delay(picture);
            const bool timed = picture.cpb_removal_delay && schedule(sequence) && sequence.tick > 0;
            if (!timed || (initial && picture.cpb_removal_delay == 0)) end_run(i);
            if (!timed || (units.empty() && !initial)) continue;
            if (units.empty()) first = i;
            units.push_back({bits(picture), initial, *picture.cpb_removal_delay, sequence.tick, *schedule(sequence),
                             sequence.low_delay});
        }
        end_run(0);
    }

    template <typename Condition>
    std::vector<std::size_t> places(const Condition& condition) const {
        std::vector<std::size_t> found;
        for (std::size_t i = 0; i < times_.size(); ++i)
            if (times_[i] && condition(*times_[i])) found.push_back(i);
        return found;
    }

    static std::string pictures(const char* name, const std::vector<std::size_t>& numbers) {
        return column(name, numbers, [](std::size_t number) { return std::optional(on_page(std::uint64_t{number})); });
    }

    const ReportStream& stream_;
    const bool nal_;
    std::vector<std::optional<CpbTimes>> times_;
    std::vector<std::size_t> starts_of_runs_;
};

Json schedule_to_json(const std::optional<CpbSchedule>& schedule) {
    if (!schedule) return nullptr;
    return {{"bit_rate", schedule->bit_rate}, {"cpb_size", schedule->cpb_size}, {"cbr_flag", schedule->cbr ? 1 : 0}};
}

Json sequences_to_json(const ReportStream& stream) {
    Json json = Json::array();
    for (const ReportSequence& sequence : stream.sequences()) {
        Json one;
        one["first"] = sequence.first_picture;
        one["name"] = sequence.name;
        one["rate"] = sequence.rate ? Json{sequence.rate->numerator, sequence.rate->denominator} : Json();
        one["low_delay_hrd_flag"] = sequence.low_delay ? 1 : 0;
        one["nal"] = schedule_to_json(sequence.nal);
        one["vcl"] = schedule_to_json(sequence.vcl);
        json.push_back(std::move(one));
    }
    return json;
}

Json sets_to_json(const ReportStream& stream) {
    Json json = Json::array();
    for (const SetVersion& version : stream.sets())
        json.push_back({{"kind", version.kind},
                        {"id", version.id},
                        {"unit", version.unit},
                        {"offset", version.offset},
                        {"picture", version.picture},
                        {"units", version.units},
                        {"elements", version.elements}});
    return json;
}

// Each a picture and the frames by which its timecode is off, or null.
Json jumps_to_json(const ReportStream& stream) {
    std::vector<TimedFrame> frames(stream.order().frames());
    std::vector<std::uint32_t> pictures(frames.size());
    std::vector<bool> begun(frames.size());
    for (const std::uint32_t number : stream.order().in_output_order()) {
        const std::uint32_t place = stream.order().place(number).frame;
        const ReportPicture& picture = stream.pictures()[number];
        TimedFrame& frame = frames[place];
        if (begun[place]) {
            frame.fields += picture.fields;
        } else {
            begun[place] = true;
            pictures[place] = number;
            frame.fields = picture.fields;
            const auto& rate = stream.sequences().at(picture.sequence).rate;
            constexpr double kMostFrames = 256;  // n_frames has eight bits
            if (rate) frame.frames_per_second = static_cast<unsigned>(std::min(std::ceil(rate->value()), kMostFrames));
        }
        if (frame.timecode && picture.timecode) {
            frame.others.push_back(*picture.timecode);
        } else if (picture.timecode) {
            frame.timecode = picture.timecode;
            pictures[place] = number;
        }
        frame.others.insert(frame.others.end(), picture.others.begin(), picture.others.end());
    }
    Json json = Json::array();
    for (const TimecodeJump& jump : find_timecode_jumps(frames))
        json.push_back({pictures[jump.frame], jump.by ? Json(*jump.by) : Json()});
    return json;
}

}  // namespace

void NumberColumn::add(std::int64_t number) {
    add_entry({number - last_, false});
    last_ = number;
}

void NumberColumn::add_entry(const Entry& entry) {
    if (count_ > 0 && !(entry == entry_)) put_run();
    entry_ = entry;
    ++count_;
}

void NumberColumn::put_run() {
    const std::string entry = entry_.is_null ? "null" : std::to_string(entry_.difference);
    constexpr std::uint64_t kLeastRun = 4;
    const std::string run = '[' + entry + ',' + std::to_string(count_) + ']';
    for (std::uint64_t i = 0; i < (count_ < kLeastRun ? count_ : 1); ++i) {
        if (text_.size() > 1) text_ += ',';
        text_ += count_ < kLeastRun ? entry : run;
    }
    count_ = 0;
}

const std::string& NumberColumn::finish() {
    if (count_ > 0) put_run();
    return text_ += ']';
}

std::string report_data(const ReportStream& stream, const ReportFacts& facts) {
    Json json;
    json["file"] = facts.name;
    json["size"] = facts.size;
    json["beginning"] = facts.beginning;
    json["damaged_units"] = stream.result().damaged_units();
    json["complaints"] = stream.complaints();
    json["clock"] = kClock;
    json["frames"] = stream.order().frames();
    json["sequences"] = sequences_to_json(stream);
    json["sets"] = sets_to_json(stream);
    json["sets_left_out"] = stream.sets_left_out();
    json["jumps"] = jumps_to_json(stream);
    json["types"] = picture_types(stream);
    // Names may be no UTF-8.
    std::string text = json.dump(-1, ' ', false, Json::error_handler_t::replace);
    text.pop_back();
    text += ",\"columns\":" + columns(stream) + ",\"hrds\":[";
    const std::string nal = Hrd(stream, true).data();
    const std::string vcl = Hrd(stream, false).data();
    text += nal + (nal.empty() || vcl.empty() ? "" : ",") + vcl;
    return text + "]}";
}

}  // namespace h264tool
