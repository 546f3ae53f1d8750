// h264tool: shows what the NAL units of H.264 byte streams contain.
#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <iostream>
#include <new>
#include <system_error>

#include "commands.h"

namespace {

int report(const char* reason) {
    std::fprintf(stderr, "h264tool: %s\n", reason);
    return h264tool::kExitFailed;
}

int run(int argc, char** argv) {
    CLI::App program("Shows what the NAL units of H.264 (ITU-T H.264 | ISO/IEC 14496-10) byte streams contain.",
                     "h264tool");
    program.set_version_flag("--version", "h264tool " H264TOOL_VERSION);
    program.require_subcommand(1);
    program.footer(
        "Exit status: 0 fine, 1 something in the input could not be parsed, 2 wrong usage or failed input or output.");
    int status = h264tool::kExitFine;
    h264tool::add_dump(program, status);
    h264tool::add_summary(program, status);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // Also the way --help and --version come.
        const bool wrong_usage = program.exit(error) != 0;
        if (!std::cout.flush()) return report("cannot write standard output");
        return wrong_usage ? h264tool::kExitFailed : h264tool::kExitFine;
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::system_error& error) {
        // The reader of the output, such as head, has seen enough.
        if (error.code() == std::errc::broken_pipe) return h264tool::kExitFine;
        return report(error.what());
    } catch (const std::bad_alloc&) {
        return report("out of memory");
    } catch (const std::exception& error) {
        return report(error.what());
    }
}
