// h264tool report: a page on which a stream can be looked at.
#include <CLI/CLI.hpp>

#include <memory>
#include <stdexcept>
#include <string>

#include "commands.h"
#include "diagnostics.h"
#include "notes.h"
#include "report_page.h"
#include "report_stream.h"
#include "stream_input.h"

namespace h264tool {
namespace {

struct Options {
    std::string file;
    std::string output;
    unsigned schedule = 0;
};

int run(const Options& options) {
    if (is_same_file(options.file, options.output))
        throw std::runtime_error("'" + options.output + "' is the input: the page would replace it");
    const DiagnosticsCapture diagnostics;
    DbgTraceSetLevel(0);
    StreamInput input(options.file, ReportStream::kept_bytes());
    AnnexBReader& units = input.units();
    ReportStream stream(options.schedule);
    ReportFacts facts;
    for (NalUnit unit; units.next(unit);) {
        facts.size += unit.length + unit.trailing_zero_8bits;
        stream.add(unit);
    }
    stream.finish();
    input.finish();
    facts.name = input.name();
    facts.beginning = units.leading_zero_8bits() + units.stray_bytes();
    facts.size += facts.beginning;
    for (const std::string& complaint : stream.complaints()) note(input.name(), complaint);
    if (const std::string missing = stream.missing_schedule(); !missing.empty())
        throw std::runtime_error(input.name() + ": " + missing);
    OutputFile output(options.output);
    write_page(output, facts.name, report_data(stream, facts));
    output.commit();
    return stream.result().report(input.name(), units.stray_bytes());
}

}  // namespace

void add_report(CLI::App& program, int& status) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand(
        "report", "Make a page on which a stream can be looked at: sizes, rates, buffers, timing");
    command->add_option("FILE", options->file, "Annex B byte stream; - reads standard input")->required();
    command
        ->add_option("-o,--output", options->output,
                     "The page, an HTML file that needs no other; - writes standard output")
        ->required()
        ->check([](const std::string& path) {
            return path.empty() ? std::string("the name of a file is empty") : std::string();
        })
        ->type_name("FILE");
    command
        ->add_option("--schedule", options->schedule,
                     "The delivery schedule of the HRDs to look at (SchedSelIdx), from 0 to 31")
        ->check(CLI::Range(0U, 31U))
        ->capture_default_str();
    command->callback([options, &status] { status = run(*options); });
}

}  // namespace h264tool
