// h264tool extract: writes what the SEI messages of a stream carry to files.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "commands.h"
#include "diagnostics.h"
#include "extract_output.h"
#include "extract_stream.h"
#include "insert_options.h"
#include "notes.h"
#include "output_file.h"
#include "stream_input.h"

namespace h264tool {
namespace {

// The command line; paths that are not given are empty.
struct Options {
    std::string file;
    std::string timecodes;
    std::string captions;
    std::string cc_data;
    std::string afd;
    std::string precision_time;
    std::string captions_start;
    std::string frame_rate;

    std::vector<std::string> outputs() const {
        std::vector<std::string> paths;
        for (const std::string* path : {&timecodes, &captions, &cc_data, &afd, &precision_time})
            if (!path->empty()) paths.push_back(*path);
        return paths;
    }
};

constexpr TimecodeRate scc_rate(bool drop_frame) { return {kSccFramesPerSecond, drop_frame}; }

// In the counting of SCC files: the timecode given, else that of the stream, else zero.
ParsedTimecode captions_start(const Options& options, const StreamExtract& stream,
                              const std::optional<FrameRate>& given_rate) {
    constexpr ParsedTimecode kZero{{}, true};
    if (!options.captions_start.empty()) return parse_timecode(options.captions_start).value_or(kZero);
    std::optional<ParsedTimecode> start = first_timecode(stream);
    const std::optional<FrameRate> rate =
        given_rate || stream.rates().empty() ? given_rate : stream.rates().front().rate;
    if (!start || !rate) return kZero;
    const std::uint64_t numbers = (rate->numerator + rate->denominator - 1) / rate->denominator;
    start->timecode.frames =
        static_cast<unsigned>(std::uint64_t{start->timecode.frames} * kSccFramesPerSecond / numbers);
    // Numbers that drop frame counting leaves out.
    for (int i = 0; i < 2 && !exists(start->timecode, scc_rate(start->drop_frame)); ++i) ++start->timecode.frames;
    return exists(start->timecode, scc_rate(start->drop_frame)) ? *start : kZero;
}

// The files are there when all of them are written.
class Outputs {
public:
    void write(const std::string& path, std::span<const unsigned char> bytes) {
        if (!path.empty()) files_.emplace_back(path).write(bytes);
    }
    void write(const std::string& path, const std::string& text) {
        write(path, {reinterpret_cast<const unsigned char*>(text.data()), text.size()});
    }
    void commit() {
        for (OutputFile& file : files_) file.finish();
        for (OutputFile& file : files_) file.commit();
    }

private:
    std::deque<OutputFile> files_;
};

int run(const Options& options) {
    const DiagnosticsCapture diagnostics;
    DbgTraceSetLevel(0);
    const std::optional<FrameRate> rate =
        options.frame_rate.empty() ? std::nullopt : std::optional(parse_frame_rate(options.frame_rate));
    StreamInput input(options.file, StreamExtract::kept_bytes());
    ExtractSelection selection;
    selection.captions = !options.captions.empty() || !options.cc_data.empty();
    selection.timestamps = !options.timecodes.empty() || (!options.captions.empty() && options.captions_start.empty());
    selection.durations = !options.captions.empty() && options.frame_rate.empty();
    selection.formats = !options.afd.empty();
    selection.times = !options.precision_time.empty();
    StreamExtract stream(selection);
    for (NalUnit unit; input.units().next(unit);) stream.add(unit);
    stream.finish();
    input.finish();
    for (const std::string& complaint : stream.complaints()) note(input.name(), complaint);

    Outputs outputs;
    // These first: without a frame rate nothing is written.
    if (!options.captions.empty())
        outputs.write(options.captions, captions_scc(stream, rate, captions_start(options, stream, rate)));
    if (!options.timecodes.empty()) outputs.write(options.timecodes, timecodes_csv(stream));
    if (!options.cc_data.empty()) outputs.write(options.cc_data, caption_triples(stream));
    if (!options.afd.empty()) outputs.write(options.afd, formats_csv(stream));
    if (!options.precision_time.empty()) outputs.write(options.precision_time, times_csv(stream));
    outputs.commit();
    return stream.result().report(input.name(), input.units().stray_bytes());
}

// Why an argument is wrong; empty when it is not.
std::string check_frame_rate(const std::string& text) {
    try {
        parse_frame_rate(text);
        return {};
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
}

std::string check_captions_start(const std::string& text) {
    const std::optional<ParsedTimecode> start = parse_timecode(text);
    if (!start) return "'" + text + "' is not of the form HH:MM:SS:FF or HH:MM:SS;FF";
    return exists(start->timecode, scc_rate(start->drop_frame)) ? "" : "there is no frame " + text;
}

void check_outputs(const Options& options) {
    const std::vector<std::string> paths = options.outputs();
    if (paths.empty())
        throw CLI::RequiredError("One of --timecodes, --captions, --cc-data, --afd and --precision-time");
    for (auto path = paths.begin(); path != paths.end(); ++path) {
        if (is_same_file(options.file, *path)) throw CLI::ValidationError("'" + *path + "' is the input");
        if (std::any_of(paths.begin(), path, [&](const std::string& other) { return is_same_output(other, *path); }))
            throw CLI::ValidationError("'" + *path + "' is to be written twice");
    }
}

}  // namespace

void add_extract(CLI::App& program, int& status) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand("extract", "Write timecodes, captions and the like to files");
    command->add_option("FILE", options->file, "Annex B byte stream; - reads standard input")->required();
    const auto add_output = [&](const char* name, std::string& path, const char* description) {
        return command->add_option(name, path, description)->type_name("FILE")->check([](const std::string& value) {
            return value.empty() ? std::string("the name of a file is empty") : std::string();
        });
    };
    add_output("--timecodes", options->timecodes, "Clock timestamps, as comma-separated values");
    CLI::Option* captions =
        add_output("--captions", options->captions, "CEA-608 captions of field 1, as a Scenarist file (SCC)");
    add_output("--cc-data", options->cc_data, "Caption data as they are, three bytes each, in output order");
    add_output("--afd", options->afd, "Active format descriptions, as comma-separated values");
    add_output("--precision-time", options->precision_time,
               "Precision time stamps (MISB ST 0604), as comma-separated values");
    command
        ->add_option("--captions-start", options->captions_start,
                     "Timecode of the first picture in the Scenarist file, HH:MM:SS:FF or with drop frame HH:MM:SS;FF; "
                     "that of the stream without, or 00:00:00;00")
        ->check(check_captions_start)
        ->type_name("TIMECODE")
        ->needs(captions);
    command
        ->add_option("--frame-rate", options->frame_rate,
                     "Frames a second, such as 25 or 30000/1001, instead of the stream's own; for captions")
        ->check(check_frame_rate)
        ->type_name("RATE")
        ->needs(captions);
    command->final_callback([options, &status] {
        check_outputs(*options);
        status = run(*options);
    });
}

}  // namespace h264tool
