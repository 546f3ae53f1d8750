// Runs a target on the files of directories, or on files: a fuzz target without a fuzzer.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

int main(int argc, char** argv) {
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            files.emplace_back(argv[i]);
            continue;
        }
        for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i]))
            if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const auto& file : files) {
        std::ifstream in(file, std::ios::binary);
        const std::vector<char> content{std::istreambuf_iterator<char>(in), {}};
        if (!in.is_open() || in.bad()) {
            std::fprintf(stderr, "cannot read %s\n", file.c_str());
            return 2;
        }
        std::printf("%s\n", file.c_str());
        std::fflush(stdout);
        // A copy of the exact size, so that reading behind it is noticed.
        const std::vector<unsigned char> bytes(content.begin(), content.end());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::printf("%zu inputs\n", files.size());
    return files.empty() ? 2 : 0;
}
