// h264tool summary: what a whole stream is, on one page.
#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "commands.h"
#include "diagnostics.h"
#include "stream_input.h"
#include "stream_summary.h"
#include "summary_output.h"

namespace h264tool {
namespace {

struct Options {
    std::string file;
    bool json = false;
};

int run(const Options& options) {
    StreamInput input(options.file, StreamSummary::kept_bytes());
    DiagnosticsCapture diagnostics;
    DbgTraceSetLevel(0);
    StreamSummary summary;
    AnnexBReader& units = input.units();
    InputFacts facts;
    for (NalUnit unit; units.next(unit);) {
        facts.size += unit.length + unit.trailing_zero_8bits;
        summary.add(unit);
    }
    summary.finish();
    facts.name = input.name();
    facts.stray_bytes = units.stray_bytes();
    facts.size += units.leading_zero_8bits() + units.stray_bytes();
    input.output().write(options.json ? summary_to_json(summary, facts) : summary_to_text(summary, facts));
    input.finish();
    return summary.result().report(input.name(), units.stray_bytes());
}

}  // namespace

std::vector<HrdSchedule> hrd_schedules(const sps_t& sps) {
    std::vector<HrdSchedule> schedules;
    if (sps.vui_parameters_present_flag == 0) return schedules;
    const auto add = [&](const hrd_t& hrd, bool nal) {
        for (unsigned long i = 0; i <= hrd.cpb_cnt_minus1 && i < MAX_CPB_CNT; ++i)
            schedules.push_back({nal, (std::uint64_t{hrd.bit_rate_value_minus1[i]} + 1) << (6 + hrd.bit_rate_scale),
                                 (std::uint64_t{hrd.cpb_size_value_minus1[i]} + 1) << (4 + hrd.cpb_size_scale),
                                 hrd.cbr_flag[i] != 0});
    };
    if (sps.vui.nal_hrd_parameters_present_flag != 0) add(sps.vui.nal_hrd, true);
    if (sps.vui.vcl_hrd_parameters_present_flag != 0) add(sps.vui.vcl_hrd, false);
    return schedules;
}

double bit_rate(std::uint64_t bytes, double duration) { return 8.0 * static_cast<double>(bytes) / duration; }

void add_summary(CLI::App& program, int& status) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand("summary", "Tell on one page what a stream is");
    command->add_option("FILE", options->file, "Annex B byte stream; - reads standard input")->required();
    command->add_flag("--json", options->json, "Print a JSON object");
    command->callback([options, &status] { status = run(*options); });
}

}  // namespace h264tool
