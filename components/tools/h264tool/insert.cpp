// h264tool insert: writes a stream with SEI messages, delimiters or an end of sequence put in.
#include <CLI/CLI.hpp>

#include <array>
#include <cerrno>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "commands.h"
#include "diagnostics.h"
#include "insert_messages.h"
#include "insert_options.h"
#include "insert_plan.h"
#include "output_file.h"
#include "progress.h"
#include "stream_edits.h"

namespace h264tool {
namespace {

// The command line as it is given.
struct Arguments {
    std::string input;
    std::string output;
    std::string timecode;
    std::string frame_rate;
    bool drop_frame = false;
    std::string captions;
    std::string afd;
    std::string precision_time;
    std::string user_data;
    InsertOptions options;
};

// Makes the bytes for one point of the plan after the other.
class Edits {
public:
    Edits(const InsertPlan& plan, const InsertMessages& messages) : plan_(plan), messages_(messages) {}

    bool next(Edit& edit) {
        while (point_ < plan_.points().size()) {
            const InsertPlan::Point& point = plan_.points()[point_++];
            edit = {point.offset, 0, {}};
            bytes_.clear();
            make(point, edit);
            if (bytes_.empty()) continue;
            edit.inserted = bytes_;
            return true;
        }
        return false;
    }

private:
    void make(const InsertPlan::Point& point, Edit& edit) {
        switch (point.kind) {
            case InsertPlan::Point::kDelimiter:
                append_library_unit([&](unsigned char* area, unsigned size) {
                    return format_au_delimiter_nalu(area, size, point.value);
                });
                return;
            case InsertPlan::Point::kEndOfSequence:
                append_library_unit(format_end_of_sequence_nalu);
                return;
            case InsertPlan::Point::kParameterSet: {
                const InsertPlan::ParameterSet& set = plan_.parameter_set(point);
                if (!set.used) return;
                edit.removed = set.length;
                bytes_ = set.changed;
                return;
            }
            case InsertPlan::Point::kPicture:
                messages_.append(plan_.order().place(picture_++), static_cast<PictureStructure>(point.value), bytes_);
                return;
        }
    }

    template <class Write>
    void append_library_unit(const Write& write) {
        std::array<unsigned char, 16> unit;
        const int length = write(unit.data(), static_cast<unsigned>(unit.size()));
        if (length <= 0) throw std::runtime_error("cannot write a NAL unit");
        bytes_.assign(unit.begin(), unit.begin() + length);
    }

    const InsertPlan& plan_;
    const InsertMessages& messages_;
    std::size_t point_ = 0;
    std::size_t picture_ = 0;
    std::vector<unsigned char> bytes_;
};

// Finds out where the stream is changed; returns what of it could not be parsed as an exit status.
int make_plan(InputFile& input, Progress& progress, InsertPlan& plan) {
    AnnexBReader reader(
        [&](unsigned char* area, std::size_t capacity) {
            const std::size_t count = input.read(area, capacity);
            progress.advance(count);
            return count;
        },
        InsertPlan::kept_bytes());
    try {
        for (NalUnit unit; reader.next(unit);) plan.add(unit);
        plan.finish();
    } catch (const std::system_error&) {
        throw;
    } catch (const std::runtime_error& refusal) {
        progress.hide();
        throw std::runtime_error(input.name() + ": " + refusal.what());
    }
    progress.hide();
    return plan.result().report(input.name(), reader.stray_bytes());
}

int run(const Arguments& arguments) {
    const InsertOptions& options = arguments.options;
    const DiagnosticsCapture diagnostics;
    DbgTraceSetLevel(0);
    // What can be said without the stream is said before it is read.
    if (options.frame_rate || !options.needs_frame_rate()) InsertMessages(options, options.frame_rate);
    InputFile input(arguments.input, InputFile::Reading::kAgain);
    input.expect_byte_stream();
    // It is read twice.
    Progress progress(input.size() ? std::optional(2 * *input.size()) : std::nullopt);
    InsertPlan plan(options);
    const int status = make_plan(input, progress, plan);
    const InsertMessages messages(options, plan.rate());
    messages.check_fits(plan.order().frames());

    OutputFile output(arguments.output);
    Edits edits(plan, messages);
    copy_with_edits(
        input, output, [&](Edit& edit) { return edits.next(edit); }, &progress);
    output.commit();
    return status;
}

std::vector<SccLine> read_captions(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::system_error(errno, std::generic_category(), "cannot open " + path);
    try {
        errno = 0;
        return read_scc(file);
    } catch (const std::runtime_error& error) {
        const int reason = errno;
        if (file.bad()) throw std::system_error(reason, std::generic_category(), "cannot read " + path);
        throw std::runtime_error(path + ": " + error.what());
    }
}

// Why a name is wrong; empty when it is not.
std::string check_file_name(const std::string& name) { return name.empty() ? "the name of a file is empty" : ""; }

// Throws CLI::ParseError for what is wrong without looking at any file.
InsertOptions interpret(const Arguments& arguments, const CLI::App& command) {
    const auto given = [&](const char* name) { return command.count(name) > 0; };
    InsertOptions options = arguments.options;
    const auto parse = [&](const char* name, const auto& action) {
        if (!given(name)) return;
        try {
            action();
        } catch (const std::invalid_argument& error) {
            throw CLI::ValidationError(name, error.what());
        }
    };
    parse("--timecode", [&] {
        options.timecode = parse_timecode(arguments.timecode);
        if (!options.timecode)
            throw std::invalid_argument("'" + arguments.timecode +
                                        "' is no timecode HH:MM:SS:FF, or HH:MM:SS;FF for drop frame");
        options.timecode->drop_frame = options.timecode->drop_frame || arguments.drop_frame;
    });
    parse("--frame-rate", [&] { options.frame_rate = parse_frame_rate(arguments.frame_rate); });
    parse("--user-data", [&] { options.user_data = parse_user_data(arguments.user_data); });
    parse("--afd", [&] { options.afd = parse_active_format(arguments.afd); });
    parse("--precision-time", [&] { options.precision_time = parse_microseconds(arguments.precision_time); });
    if (given("--captions")) options.captions.emplace();
    options.captions_file = arguments.captions;
    if (!options.inserts_anything())
        throw CLI::ValidationError("insert", "there is nothing to insert: give one of the options that say what");
    if (options.frame_rate && !options.needs_frame_rate())
        throw CLI::ValidationError("--frame-rate", "is for --timecode, --captions and --precision-time");
    return options;
}

}  // namespace

void add_insert(CLI::App& program, int& status) {
    const auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand(
        "insert", "Write a stream with timecodes, captions or other messages put in front of its pictures");
    command->add_option("FILE", arguments->input, "Annex B byte stream; - reads standard input")->required();
    command->add_option("-o,--output", arguments->output, "The new stream; - writes standard output")
        ->required()
        ->check(check_file_name)
        ->type_name("FILE");
    CLI::Option* timecode = command
                                ->add_option("--timecode", arguments->timecode,
                                             "Picture timing with timecodes, counted in output order from that of "
                                             "the first frame: HH:MM:SS:FF, or HH:MM:SS;FF for drop frame")
                                ->type_name("TIMECODE");
    command->add_flag("--drop-frame", arguments->drop_frame, "Leave out frame numbers as SMPTE 12M does at 29.97 Hz")
        ->needs(timecode);
    command
        ->add_option("--frame-rate", arguments->frame_rate,
                     "Frames a second, such as 25 or 30000/1001, instead of what the stream says")
        ->type_name("RATE");
    command
        ->add_option("--captions", arguments->captions,
                     "CEA-608 captions of a Scenarist SCC file, whose timecodes count from 00:00:00:00, or from "
                     "--timecode when that is given")
        ->check(check_file_name)
        ->type_name("FILE.scc");
    command->add_option("--afd", arguments->afd, "Active format description, a code from 0 to 15")->type_name("CODE");
    command
        ->add_option("--precision-time", arguments->precision_time,
                     "MISP precision time: microseconds since 1970 of the first frame")
        ->type_name("MICROSECONDS");
    command
        ->add_option("--user-data", arguments->user_data,
                     "Unregistered user data: 32 hexadecimal digits, a colon and a text of 1 to 238 bytes")
        ->type_name("UUID:TEXT");
    command->add_flag("--aud", arguments->options.delimiters, "An access unit delimiter where there is none");
    command->add_flag("--end-of-sequence", arguments->options.end_of_sequence, "An end of sequence unit at the end");
    command->callback([arguments, command, &status] {
        arguments->options = interpret(*arguments, *command);
        if (arguments->options.captions) arguments->options.captions = read_captions(arguments->captions);
        status = run(*arguments);
    });
}

}  // namespace h264tool
