#include "output_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>

#include "temporary_directory.h"

namespace {

using h264tool::is_same_file;
using h264tool::is_same_output;
using h264tool::OutputFile;
using Names = std::vector<std::string>;

void write(OutputFile& output, std::string_view text) {
    output.write({reinterpret_cast<const unsigned char*>(text.data()), text.size()});
}

mode_t permissions(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status.st_mode & 07777;
}

std::error_code failure(const std::string& path) {
    try {
        const OutputFile output(path);
        return {};
    } catch (const std::system_error& error) {
        return error.code();
    }
}

TEST(OutputFile, AppearsWhenItIsCommitted) {
    const TemporaryDirectory directory;
    OutputFile output(directory.file("out"));
    EXPECT_EQ(output.name(), directory.file("out"));
    write(output, "some");
    EXPECT_EQ(directory.names().size(), 1U);
    EXPECT_NE(directory.names()[0], "out");
    write(output, " bytes");
    output.commit();
    EXPECT_EQ(directory.names(), Names{"out"});
    EXPECT_EQ(directory.read("out"), "some bytes");
}

TEST(OutputFile, IsWrittenWholeWhateverTheSizesOfItsPieces) {
    const TemporaryDirectory directory;
    std::string all;
    OutputFile output(directory.file("out"));
    for (const std::size_t size : {0U, 1U, 262143U, 1U, 262144U, 262145U, 1000000U, 3U}) {
        const std::string piece(size, static_cast<char>('a' + all.size() % 26));
        write(output, piece);
        all += piece;
    }
    output.commit();
    EXPECT_TRUE(directory.read("out") == all);
}

TEST(OutputFile, LeavesNothingWithoutCommit) {
    const TemporaryDirectory directory;
    directory.write("there", "old");
    {
        OutputFile first(directory.file("out"));
        OutputFile second(directory.file("there"));
        write(first, "new");
        write(second, std::string(500000, 'x'));
        EXPECT_EQ(directory.names().size(), 3U);
    }
    EXPECT_EQ(directory.names(), Names{"there"});
    EXPECT_EQ(directory.read("there"), "old");
}

TEST(OutputFile, PermissionsAreThoseOfTheFileReplacedOrOfTheMask) {
    const TemporaryDirectory directory;
    const mode_t mask = umask(027);
    directory.write("there", "old");
    ASSERT_EQ(chmod(directory.file("there").c_str(), 0604), 0);
    for (const char* name : {"there", "new"}) {
        OutputFile output(directory.file(name));
        output.commit();
    }
    umask(mask);
    EXPECT_EQ(permissions(directory.file("there")), 0604U);
    EXPECT_EQ(permissions(directory.file("new")), 0640U);
}

TEST(OutputFile, FollowsSymbolicLinks) {
    const TemporaryDirectory directory;
    directory.write("there", "old");
    ASSERT_EQ(symlink("there", directory.file("link").c_str()), 0);
    OutputFile output(directory.file("link"));
    write(output, "new");
    output.commit();
    EXPECT_TRUE(std::filesystem::is_symlink(directory.file("link")));
    EXPECT_EQ(directory.read("there"), "new");
}

TEST(OutputFile, CreatesWhatSymbolicLinksPointTo) {
    const TemporaryDirectory directory;
    ASSERT_EQ(mkdir(directory.file("sub").c_str(), 0700), 0);
    ASSERT_EQ(symlink("sub/second", directory.file("first").c_str()), 0);
    ASSERT_EQ(symlink("../third", directory.file("sub/second").c_str()), 0);
    OutputFile output(directory.file("first"));
    write(output, "new");
    output.commit();
    EXPECT_TRUE(std::filesystem::is_symlink(directory.file("first")));
    EXPECT_TRUE(std::filesystem::is_symlink(directory.file("sub/second")));
    EXPECT_EQ(directory.read("third"), "new");
    ASSERT_EQ(symlink("no/file", directory.file("lost").c_str()), 0);
    EXPECT_EQ(failure(directory.file("lost")), std::errc::no_such_file_or_directory);
}

TEST(OutputFile, IsNotThereWhenItIsFinished) {
    const TemporaryDirectory directory;
    OutputFile output(directory.file("out"));
    write(output, "some bytes");
    output.finish();
    EXPECT_NE(directory.names(), Names{"out"});
    output.commit();
    EXPECT_EQ(directory.names(), Names{"out"});
    EXPECT_EQ(directory.read("out"), "some bytes");
}

TEST(OutputFile, NamesOfOneFile) {
    const TemporaryDirectory directory;
    directory.write("there", "old");
    ASSERT_EQ(mkdir(directory.file("sub").c_str(), 0700), 0);
    ASSERT_EQ(symlink("new", directory.file("link").c_str()), 0);
    ASSERT_EQ(link(directory.file("there").c_str(), directory.file("hard").c_str()), 0);
    const auto is_same = [&](const char* a, const char* b) {
        EXPECT_EQ(is_same_output(directory.file(b), directory.file(a)),
                  is_same_output(directory.file(a), directory.file(b)));
        return is_same_output(directory.file(a), directory.file(b));
    };
    EXPECT_TRUE(is_same("there", "sub/../there"));
    EXPECT_TRUE(is_same("there", "hard"));
    EXPECT_TRUE(is_same("new", "./new"));
    EXPECT_TRUE(is_same("new", "sub/../new"));
    EXPECT_TRUE(is_same("new", "link"));
    EXPECT_FALSE(is_same("new", "there"));
    EXPECT_FALSE(is_same("new", "sub/new"));
    EXPECT_TRUE(is_same_output("-", "-"));
    EXPECT_FALSE(is_same_output("-", "./-"));
    EXPECT_TRUE(is_same_file(directory.file("there"), directory.file("hard")));
    EXPECT_FALSE(is_same_file(directory.file("there"), directory.file("new")));
    EXPECT_FALSE(is_same_file("/dev/null", "/dev/null"));
}

TEST(OutputFile, WritesIntoWhatIsNoRegularFile) {
    const TemporaryDirectory directory;
    const std::string pipe = directory.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::string received;
    std::thread reader([&] {
        std::ifstream in(pipe, std::ios::binary);
        received = {std::istreambuf_iterator<char>(in), {}};
    });
    {
        OutputFile output(pipe);
        write(output, "through");
        output.commit();
    }
    reader.join();
    EXPECT_EQ(received, "through");
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
    EXPECT_EQ(directory.names(), Names{"pipe"});
}

TEST(OutputFile, FailuresToCreateAreReported) {
    const TemporaryDirectory directory;
    EXPECT_EQ(failure(directory.file("no/out")), std::errc::no_such_file_or_directory);
    EXPECT_EQ(failure(directory.file("")), std::errc::is_a_directory);
    directory.write("read_only", "old");
    ASSERT_EQ(chmod(directory.file("read_only").c_str(), 0400), 0);
    if (geteuid() != 0) {
        EXPECT_EQ(failure(directory.file("read_only")), std::errc::permission_denied);
    }
}

TEST(OutputFile, FailuresToWriteAreReported) {
    OutputFile output("/dev/full");
    write(output, "lost");
    try {
        output.commit();
        ADD_FAILURE() << "not noticed";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::no_space_on_device);
        EXPECT_NE(std::string(error.what()).find("cannot write /dev/full"), std::string::npos);
    }
}

// How a program ends that gets a signal while it writes.
int status_after(const std::string& path, int signal_number, bool ignored) {
    const pid_t child = fork();
    if (child == 0) {
        if (ignored) std::signal(signal_number, SIG_IGN);
        OutputFile first(path);
        std::optional<OutputFile> second(path + "2");
        write(first, std::string(500000, 'x'));
        second->commit();
        second.reset();
        std::raise(signal_number);
        first.commit();
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

TEST(OutputFile, SignalsRemoveTheTemporaryFile) {
    for (const int signal_number : {SIGHUP, SIGINT, SIGTERM, SIGQUIT, SIGPIPE}) {
        const TemporaryDirectory directory;
        const rlimit no_core{0, 0};
        setrlimit(RLIMIT_CORE, &no_core);
        const int status = status_after(directory.file("out"), signal_number, false);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal_number) << signal_number;
        EXPECT_EQ(directory.names(), Names{"out2"}) << signal_number;
    }
}

TEST(OutputFile, SignalsThatAreIgnoredStayIgnored) {
    const TemporaryDirectory directory;
    EXPECT_EQ(status_after(directory.file("out"), SIGHUP, true), 0);
    EXPECT_EQ(directory.names().size(), 2U);
    EXPECT_EQ(directory.read("out").size(), 500000U);
}

TEST(OutputFile, FileSizeLimitLeavesNothing) {
    const TemporaryDirectory directory;
    const pid_t child = fork();
    if (child == 0) {
        const rlimit limit{300000, 300000};
        setrlimit(RLIMIT_FSIZE, &limit);
        OutputFile output(directory.file("out"));
        write(output, std::string(2000000, 'x'));
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGXFSZ);
    EXPECT_EQ(directory.names(), Names{});
}

}  // namespace
