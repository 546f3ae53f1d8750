// h264tool rewrite: writes a stream with changed parameter sets and SEI messages.
#include <CLI/CLI.hpp>

#include <memory>
#include <set>
#include <stdexcept>
#include <system_error>

#include "commands.h"
#include "diagnostics.h"
#include "output_file.h"
#include "progress.h"
#include "rewrite_stream.h"
#include "stream_edits.h"

namespace h264tool {
namespace {

// The command line as it is given.
struct Arguments {
    std::string input;
    std::string output;
    std::string timing;
    int fixed_frame_rate = 0;
    std::string colour;
    std::string sar;
    int full_range = 0;
    std::string level;
    std::string crop;
    bool pic_struct = false;
    std::string timecode;
    std::vector<std::string> initial_cpb_delays;
    std::string hrd = "nal";
};

// Names the input in front of what is wrong with it.
template <class Action>
void about(const InputFile& input, Progress& progress, const Action& action) {
    try {
        action();
    } catch (const std::system_error&) {
        throw;
    } catch (const std::runtime_error& refusal) {
        progress.hide();
        throw std::runtime_error(input.name() + ": " + refusal.what());
    }
}

// Makes all changes of a stream and keeps none. Returns the bytes before the first start code.
std::uint64_t try_changes(RewriteStream& stream, const AnnexBReader::Source& source) {
    AnnexBReader reader(source, RewriteStream::kept_bytes());
    RewriteStream::Change change;
    for (NalUnit unit; reader.next(unit);) {
        stream.add(unit);
        while (stream.take(change)) {
        }
    }
    stream.finish();
    return reader.stray_bytes();
}

// The input from its beginning, apart from where it is read otherwise.
AnnexBReader::Source again(const InputFile& input) {
    return [&input, offset = std::uint64_t{0}](unsigned char* area, std::size_t capacity) mutable {
        const std::size_t count = input.read_at(offset, area, capacity);
        offset += count;
        return count;
    };
}

// Makes the changes one after the other, as they are wanted.
class Edits {
public:
    Edits(const RewriteOptions& options, const RewriteStream& trial, const InputFile& input)
        : stream_(options, &trial), reader_(again(input), RewriteStream::kept_bytes()) {}

    bool next(Edit& edit) {
        while (!stream_.take(change_)) {
            if (!reader_.next(unit_)) return false;
            stream_.add(unit_);
        }
        edit = {change_.offset, change_.length, change_.unit};
        return true;
    }

private:
    RewriteStream stream_;
    AnnexBReader reader_;
    NalUnit unit_;
    RewriteStream::Change change_;
};

int run(const Arguments& arguments, const RewriteOptions& options) {
    const DiagnosticsCapture diagnostics;
    DbgTraceSetLevel(0);
    InputFile input(arguments.input, InputFile::Reading::kAgain);
    input.expect_byte_stream();
    // It is read twice, and what finds the changes is not counted the second time.
    Progress progress(input.size() ? std::optional(2 * *input.size()) : std::nullopt);
    RewriteStream trial(options);
    int status = kExitFine;
    about(input, progress, [&] {
        const std::uint64_t stray_bytes = try_changes(trial, [&](unsigned char* area, std::size_t capacity) {
            const std::size_t count = input.read(area, capacity);
            progress.advance(count);
            return count;
        });
        input.rewind();
        // How long a message becomes depends on its timecode.
        if (options.timecode) {
            RewriteStream numbered(options, &trial);
            try_changes(numbered, again(input));
        }
        progress.hide();
        status = trial.result().report(input.name(), stray_bytes);
    });

    OutputFile output(arguments.output);
    Edits edits(options, trial, input);
    copy_with_edits(
        input, output, [&](Edit& edit) { return edits.next(edit); }, &progress);
    output.commit();
    return status;
}

// Throws CLI::ParseError for what is wrong without looking at any file.
RewriteOptions interpret(const Arguments& arguments, const CLI::App& command) {
    RewriteOptions options;
    const auto parse = [&](const char* name, const auto& action) {
        if (command.count(name) == 0) return;
        try {
            action();
        } catch (const std::invalid_argument& error) {
            throw CLI::ValidationError(name, error.what());
        }
    };
    parse("--timing", [&] { options.timing = parse_timing(arguments.timing); });
    parse("--fixed-frame-rate", [&] { options.fixed_frame_rate = arguments.fixed_frame_rate; });
    parse("--colour", [&] { options.colour = parse_colour(arguments.colour); });
    parse("--sar", [&] { options.sar = parse_sample_aspect_ratio(arguments.sar); });
    parse("--full-range", [&] { options.full_range = arguments.full_range; });
    parse("--level", [&] { options.level = parse_level(arguments.level); });
    parse("--crop", [&] { options.crop = parse_cropping(arguments.crop); });
    options.pic_struct = arguments.pic_struct;
    parse("--timecode", [&] {
        options.timecode = parse_timecode(arguments.timecode);
        if (!options.timecode)
            throw std::invalid_argument("'" + arguments.timecode +
                                        "' is no timecode HH:MM:SS:FF, or HH:MM:SS;FF for drop frame");
        const Timecode& timecode = options.timecode->timecode;
        if (timecode.hours > 23 || timecode.minutes > 59 || timecode.seconds > 59)
            throw std::invalid_argument("there is no timecode " + arguments.timecode + " at any frame rate");
    });
    parse("--initial-cpb-removal-delay", [&] {
        std::set<unsigned> schedules;
        for (const std::string& text : arguments.initial_cpb_delays) {
            options.initial_cpb_delays.push_back(parse_initial_cpb_delay(text));
            if (!schedules.insert(options.initial_cpb_delays.back().schedule).second)
                throw std::invalid_argument("'" + text + "' gives the schedule a second time");
        }
    });
    options.hrd = arguments.hrd == "vcl" ? Hrd::kVcl : Hrd::kNal;
    if (!options.changes_sps() && !options.changes_sei())
        throw CLI::ValidationError("rewrite", "there is nothing to change: give one of the options that say what");
    return options;
}

void add_sps_options(CLI::App& command, Arguments& arguments) {
    command
        .add_option("--timing", arguments.timing,
                    "num_units_in_tick and time_scale, such as 1001/60000 for 29.97 frames a second")
        ->type_name("UNITS/SCALE");
    command.add_option("--fixed-frame-rate", arguments.fixed_frame_rate, "fixed_frame_rate_flag")
        ->check(CLI::IsMember({0, 1}));
    command
        .add_option("--colour", arguments.colour,
                    "colour_primaries, transfer_characteristics and matrix_coefficients, such as 9:16:9")
        ->type_name("P:T:M");
    command.add_option("--sar", arguments.sar, "Sample aspect ratio, such as 40:33")->type_name("W:H");
    command.add_option("--full-range", arguments.full_range, "video_full_range_flag")->check(CLI::IsMember({0, 1}));
    command.add_option("--level", arguments.level, "Level, such as 4.1")->type_name("LEVEL");
    command
        .add_option("--crop", arguments.crop, "Pixels of the coded picture that are cut off, instead of those that are")
        ->type_name("L,R,T,B");
    command.add_flag("--pic-struct", arguments.pic_struct,
                     "pic_struct_present_flag 1, and pic_struct in the picture timing message of each picture");
}

}  // namespace

void add_rewrite(CLI::App& program, int& status) {
    const auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand(
        "rewrite", "Write a stream with other timing, colour, aspect ratio, level, cropping or timecodes");
    command->add_option("FILE", arguments->input, "Annex B byte stream; - reads standard input")->required();
    command->add_option("-o,--output", arguments->output, "The new stream; - writes standard output")
        ->required()
        ->type_name("FILE");
    add_sps_options(*command, *arguments);
    command
        ->add_option("--timecode", arguments->timecode,
                     "Timecodes of the picture timing messages, counted in output order from that of the first frame: "
                     "HH:MM:SS:FF, or HH:MM:SS;FF for drop frame")
        ->type_name("TIMECODE");
    CLI::Option* delays =
        command
            ->add_option("--initial-cpb-removal-delay", arguments->initial_cpb_delays,
                         "Initial delay of a schedule, and its offset, in buffering period messages, in ticks of 90 "
                         "kHz; once for each schedule")
            ->type_name("SCHEDULE=DELAY[,OFFSET]")
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command->add_option("--hrd", arguments->hrd, "Whose schedule that is: nal (the default) or vcl")
        ->check(CLI::IsMember({"nal", "vcl"}))
        ->needs(delays);
    command->callback([arguments, command, &status] { status = run(*arguments, interpret(*arguments, *command)); });
}

}  // namespace h264tool
