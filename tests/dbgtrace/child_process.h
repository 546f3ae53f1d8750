// Runs another program to its end.
#pragma once

#include <string>
#include <vector>

namespace test {

struct ChildResult {
    std::string output;    // standard output
    std::string errors;    // standard error
    int exit_status = -1;  // -1 when a signal ended it
    int signal = 0;        // the signal that ended it
};

// Starts a program with arguments and with this process's environment, less the variables that steer diagnostics, plus
// those given as "NAME=value".
ChildResult run_child(const std::string& program, const std::vector<std::string>& arguments,
                      const std::vector<std::string>& environment = {});

std::vector<std::string> split_lines(const std::string& text);

}  // namespace test
