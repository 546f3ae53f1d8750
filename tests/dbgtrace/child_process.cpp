#include "child_process.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace test {
namespace {

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

File temporary_file() {
    File file(std::tmpfile(), std::fclose);
    if (!file) throw std::runtime_error("cannot create a temporary file");
    return file;
}

std::string content(FILE* file) {
    std::rewind(file);
    std::string text;
    char part[4096];
    for (size_t length; (length = std::fread(part, 1, sizeof part, file)) > 0;) text.append(part, length);
    return text;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> all;
    all.reserve(texts.size() + 1);
    for (std::string& text : texts) all.push_back(text.data());
    all.push_back(nullptr);
    return all;
}

}  // namespace

ChildResult run_child(const std::string& program, const std::vector<std::string>& arguments,
                      const std::vector<std::string>& environment) {
    std::vector<std::string> argument_texts{program};
    argument_texts.insert(argument_texts.end(), arguments.begin(), arguments.end());
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable)
        if (std::string(*variable).rfind("DBGTRACE_", 0) != 0) variables.emplace_back(*variable);
    variables.insert(variables.end(), environment.begin(), environment.end());

    const File output = temporary_file();
    const File errors = temporary_file();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fileno(output.get()), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fileno(errors.get()), STDERR_FILENO);
    pid_t child = 0;
    const int failure = posix_spawn(&child, program.c_str(), &actions, nullptr, pointers(argument_texts).data(),
                                    pointers(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) throw std::runtime_error("cannot start " + program);

    int status = 0;
    if (waitpid(child, &status, 0) != child) throw std::runtime_error("cannot wait for " + program);
    ChildResult result;
    result.output = content(output.get());
    result.errors = content(errors.get());
    if (WIFEXITED(status)) result.exit_status = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
    return result;
}

std::vector<std::string> split_lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

}  // namespace test
