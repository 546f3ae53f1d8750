// h264tool's subcommands on files of any content. What they print and write is observed through their exit status and
// the files they make.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz.h"
#include "program.h"

namespace {

using Arguments = std::vector<std::string>;

// What is printed goes nowhere; findings are reported on standard error.
void silence() {
    static const bool silent = dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO) >= 0;
    FUZZ_CHECK(silent);
}

class Directory {
public:
    Directory() {
        std::string name = (std::filesystem::temp_directory_path() / "h264tool_fuzz_XXXXXX").string();
        FUZZ_CHECK(mkdtemp(name.data()) != nullptr);
        path_ = name;
    }
    ~Directory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    std::string file(const char* name) const { return path_ / name; }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

test::Bytes content_of(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(in), {}};
    return {content.begin(), content.end()};
}

}  // namespace

void test::fuzz(FuzzInput& input, Observed& observed) {
    silence();
    static const Directory directory;
    const std::string in = directory.file("in");
    const std::string out = directory.file("out");
    const std::array<Arguments, 16> commands{{
        {"dump", in},
        {"dump", "--json", in},
        {"dump", "--level", "8", in},
        {"summary", in},
        {"summary", "--json", in},
        {"extract", in, "--timecodes", out, "--frame-rate", "25"},
        {"extract", in, "--captions", out, "--frame-rate", "30000/1001"},
        {"extract", in, "--cc-data", out, "--afd", directory.file("afd"), "--precision-time", directory.file("time")},
        {"insert", in, "-o", out, "--timecode", "09:59:58:20", "--frame-rate", "25"},
        {"insert", in, "-o", out, "--afd", "10", "--precision-time", "1700000000000000", "--frame-rate", "50", "--aud",
         "--end-of-sequence"},
        {"rewrite", in, "-o", out, "--timing", "1001/60000", "--sar", "4:3", "--colour", "1:1:1"},
        {"rewrite", in, "-o", out, "--crop", "2,2,4,4", "--level", "4.1", "--full-range", "1"},
        {"rewrite", in, "-o", out, "--timecode", "00:00:59:20"},
        {"rewrite", in, "-o", out, "--initial-cpb-removal-delay", "0=90000,1", "--hrd", "nal"},
        {"rewrite", in, "-o", out, "--pic-struct"},
        {"report", in, "-o", out},
    }};
    const Arguments& command = commands.at(input.below(commands.size()));
    const Bytes stream = input.rest();
    std::ofstream(in, std::ios::binary)
        .write(reinterpret_cast<const char*>(stream.data()), static_cast<std::streamsize>(stream.size()));
    std::vector<const char*> arguments{"h264tool", "--quiet"};
    for (const std::string& argument : command) arguments.push_back(argument.c_str());
    const int status = h264tool::run_program(static_cast<int>(arguments.size()), arguments.data());
    FUZZ_CHECK(status >= 0 && status <= 2);
    observed.add(status);
    FUZZ_CHECK(content_of(in) == stream);
    // Nothing is left behind but what was asked for.
    for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
        const std::string name = entry.path().filename();
        FUZZ_CHECK(name == "in" || name == "out" || name == "afd" || name == "time");
    }
    // A page bears no time and a stream depends on nothing but its input.
    observed.add(content_of(out));
    for (const char* name : {"out", "afd", "time"}) std::filesystem::remove(directory.file(name));
}
