// The subcommands of h264tool.
#pragma once

namespace CLI {
class App;
}

namespace h264tool {

// What a run tells by its exit status.
enum ExitStatus {
    kExitFine = 0,
    kExitDamaged = 1,  // something in the input could not be parsed
    kExitFailed = 2,   // wrong usage, or input or output failed
};

// Each adds a subcommand to the program; when the command line names it, status receives the result of its run.
void add_dump(CLI::App& program, int& status);
void add_extract(CLI::App& program, int& status);
void add_insert(CLI::App& program, int& status);
void add_report(CLI::App& program, int& status);
void add_rewrite(CLI::App& program, int& status);
void add_summary(CLI::App& program, int& status);

}  // namespace h264tool
