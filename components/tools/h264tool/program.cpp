#include "program.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <iostream>
#include <new>
#include <string>
#include <system_error>
#include <vector>

#include "commands.h"
#include "input_check.h"
#include "notes.h"

namespace h264tool {
namespace {

int report(const char* reason) {
    std::fprintf(stderr, "h264tool: %s\n", reason);
    return kExitFailed;
}

int run(int argc, const char* const* argv) {
    CLI::App program("Shows what the NAL units of H.264 (ITU-T H.264 | ISO/IEC 14496-10) byte streams contain.",
                     "h264tool");
    program.set_version_flag("--version", "h264tool " H264TOOL_VERSION);
    program.require_subcommand(1);
    const std::string footer =
        "Exit status: 0 fine, 1 something in the input could not be parsed, 2 wrong usage, failed input or output, or "
        "a "
        "stream that cannot be changed as asked for.";
    program.footer(footer);
    int status = kExitFine;
    add_dump(program, status);
    add_extract(program, status);
    add_insert(program, status);
    add_report(program, status);
    add_rewrite(program, status);
    add_summary(program, status);
    set_quiet(false);
    std::vector<CLI::App*> apps = program.get_subcommands([](const CLI::App*) { return true; });
    for (CLI::App* command : apps) command->footer(footer);
    apps.push_back(&program);
    for (CLI::App* app : apps)
        app->add_flag_callback(
               "-q,--quiet", [] { set_quiet(true); }, "No progress and no notes on standard error")
            ->trigger_on_parse();
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // Also the way --help and --version come.
        const bool wrong_usage = program.exit(error) != 0;
        if (!std::cout.flush()) return report("cannot write standard output");
        return wrong_usage ? kExitFailed : kExitFine;
    } catch (const std::system_error& error) {
        // The reader of a text, such as head, has seen enough. What others write is of use only when it is whole.
        const bool is_text = program.got_subcommand("dump") || program.got_subcommand("summary");
        if (!is_text || error.code() != std::errc::broken_pipe) throw;
        return kExitFine;
    }
    return status;
}

}  // namespace

int run_program(int argc, const char* const* argv) {
    try {
        return run(argc, argv);
    } catch (const NoByteStream& error) {
        report(error.what());
        return kExitDamaged;
    } catch (const std::bad_alloc&) {
        return report("out of memory");
    } catch (const std::exception& error) {
        return report(error.what());
    }
}

}  // namespace h264tool
