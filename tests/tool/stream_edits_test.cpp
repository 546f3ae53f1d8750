#include "stream_edits.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "temporary_directory.h"

namespace {

using h264tool::copy_with_edits;
using h264tool::Edit;
using h264tool::InputFile;
using h264tool::OutputFile;

struct Change {
    std::uint64_t offset;
    std::uint64_t removed;
    std::string inserted;
};

std::string changed(const TemporaryDirectory& directory, const std::string& content,
                    const std::vector<Change>& changes) {
    directory.write("in", content);
    InputFile input(directory.file("in"), InputFile::Reading::kAgain);
    {
        OutputFile output(directory.file("out"));
        std::string current;  // is overwritten at each call
        auto next = changes.begin();
        copy_with_edits(input, output, [&](Edit& edit) {
            if (next == changes.end()) return false;
            current = next->inserted;
            edit = {
                next->offset, next->removed, {reinterpret_cast<const unsigned char*>(current.data()), current.size()}};
            ++next;
            return true;
        });
        output.commit();
    }
    return directory.read("out");
}

TEST(StreamEdits, InsertRemoveAndReplace) {
    const TemporaryDirectory directory;
    EXPECT_EQ(changed(directory, "0123456789", {}), "0123456789");
    EXPECT_EQ(changed(directory, "0123456789", {{0, 0, "a"}, {3, 2, "bcd"}, {5, 1, ""}, {10, 0, "z"}}), "a012bcd6789z");
    EXPECT_EQ(changed(directory, "0123456789", {{4, 0, "a"}, {4, 0, "b"}, {4, 1, "c"}}), "0123abc56789");
    EXPECT_EQ(changed(directory, "0123456789", {{0, 10, "x"}}), "x");
    EXPECT_EQ(changed(directory, "", {{0, 0, "x"}}), "x");
}

TEST(StreamEdits, LongStreams) {
    const TemporaryDirectory directory;
    std::string content(1000000, '\0');
    std::iota(content.begin(), content.end(), '\0');
    std::vector<Change> changes;
    std::string expected = content;
    for (const std::size_t offset : {262143U, 262144U, 524288U, 700000U, 999999U}) {
        changes.push_back({offset, offset == 524288 ? 150000U : 1U, "edit"});
    }
    for (auto change = changes.rbegin(); change != changes.rend(); ++change)
        expected.replace(change->offset, change->removed, change->inserted);
    EXPECT_TRUE(changed(directory, content, changes) == expected);
}

TEST(StreamEdits, InputThatBecameShorter) {
    const TemporaryDirectory directory;
    EXPECT_THROW(changed(directory, "0123", {{5, 0, "x"}}), std::runtime_error);
    EXPECT_THROW(changed(directory, "0123", {{3, 2, "x"}}), std::runtime_error);
    EXPECT_EQ(directory.names(), std::vector<std::string>{"in"});
}

TEST(StreamEdits, OverlappingEditsAreTheCallersFault) {
    const TemporaryDirectory directory;
    EXPECT_THROW(changed(directory, "0123", {{1, 2, "x"}, {2, 0, "y"}}), std::logic_error);
}

std::string read_all(InputFile& input) {
    std::string content;
    unsigned char area[1000];
    while (const std::size_t count = input.read(area, sizeof area))
        content.append(reinterpret_cast<const char*>(area), count);
    return content;
}

// Standard input that comes from a descriptor, for as long as this lives.
class StandardInput {
public:
    explicit StandardInput(int descriptor) : before_(dup(STDIN_FILENO)) {
        dup2(descriptor, STDIN_FILENO);
        close(descriptor);
    }
    ~StandardInput() {
        dup2(before_, STDIN_FILENO);
        close(before_);
    }
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;

private:
    int before_;
};

int pipe_with(const std::string& content) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], content.data(), content.size()), static_cast<ssize_t>(content.size()));
    close(ends[1]);
    return ends[0];
}

TEST(InputFile, IsReadAgain) {
    const TemporaryDirectory directory;
    directory.write("in", "content");
    InputFile input(directory.file("in"), InputFile::Reading::kAgain);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(read_all(input), "content");
        input.rewind();
    }
    unsigned char byte = 0;
    EXPECT_EQ(input.read(&byte, 1), 1U);
    input.rewind();
    EXPECT_EQ(read_all(input), "content");
}

TEST(InputFile, PipeIsReadAgain) {
    for (const int bytes_before : {0, 3, 5000}) {
        const std::string content(5000, 'c');
        const StandardInput standard_input(pipe_with(content));
        InputFile input("-", InputFile::Reading::kAgain);
        EXPECT_FALSE(input.size());
        std::vector<unsigned char> area(5000);
        EXPECT_EQ(input.read(area.data(), static_cast<std::size_t>(bytes_before)),
                  static_cast<std::size_t>(bytes_before));
        for (int i = 0; i < 2; ++i) {
            input.rewind();
            EXPECT_EQ(read_all(input), content);
        }
    }
}

TEST(InputFile, StandardInputBeginsWhereItStands) {
    const TemporaryDirectory directory;
    directory.write("in", "skipped content");
    std::FILE* const file = std::fopen(directory.file("in").c_str(), "rb");
    const int descriptor = dup(fileno(file));
    std::fclose(file);
    lseek(descriptor, 8, SEEK_SET);
    const StandardInput standard_input(descriptor);
    InputFile input("-", InputFile::Reading::kAgain);
    EXPECT_EQ(read_all(input), "content");
    input.rewind();
    EXPECT_EQ(read_all(input), "content");
}

TEST(InputFile, ReadOnceIsNotReadAgain) {
    const TemporaryDirectory directory;
    directory.write("in", "content");
    InputFile input(directory.file("in"));
    EXPECT_THROW(input.rewind(), std::logic_error);
}

}  // namespace
