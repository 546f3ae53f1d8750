// What depends on the environment of a process, its start and its end.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include "child_process.h"

namespace {

using test::ChildResult;
using test::split_lines;
using Lines = std::vector<std::string>;

ChildResult run(const std::string& mode, const std::vector<std::string>& environment = {}) {
    return test::run_child(DBGTRACE_CHILD, {mode}, environment);
}

TEST(DbgTraceProcess, LevelAtStartIsErrorWhenTheEnvironmentSaysNothing) {
    const ChildResult result = run("messages");
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.output, "3 3\n");
    EXPECT_EQ(result.errors,
              "CHILD level 1 main (child.c:1): level 1\n"
              "CHILD level 2 main (child.c:2): level 2\n"
              "CHILD error main (child.c:3): level 3\n");
}

TEST(DbgTraceProcess, EnvironmentSetsTheLevelFromTheFirstMessageToTheLast) {
    const ChildResult result = run("messages", {"DBGTRACE_LEVEL=5"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.output, "5 5\n");
    EXPECT_EQ(result.errors,
              "CHILD info open_before_everything_else (child.c:1): Called.\n"
              "CHILD level 1 main (child.c:1): level 1\n"
              "CHILD level 2 main (child.c:2): level 2\n"
              "CHILD error main (child.c:3): level 3\n"
              "CHILD warning main (child.c:4): level 4\n"
              "CHILD info main (child.c:5): level 5\n"
              "CHILD info close_after_everything_else (child.c:2): Called.\n");
}

TEST(DbgTraceProcess, LevelZeroIsSilent) {
    const ChildResult result = run("messages", {"DBGTRACE_LEVEL=0"});
    EXPECT_EQ(result.output, "0 0\n");
    EXPECT_EQ(result.errors, "");
}

TEST(DbgTraceProcess, LevelOutsideTheRangeCountsAsItsNearestEnd) {
    for (const std::string above : {"9", "2147483648", "99999999999999999999"})
        EXPECT_EQ(run("messages", {"DBGTRACE_LEVEL=" + above}).output, "8 8\n") << above;
    for (const std::string below : {"-1", "-4294967290", "-99999999999999999999"}) {
        const ChildResult result = run("messages", {"DBGTRACE_LEVEL=" + below});
        EXPECT_EQ(result.output, "0 0\n") << below;
        EXPECT_EQ(result.errors, "") << below;
    }
}

TEST(DbgTraceProcess, LevelThatIsNoNumberIsReportedOnceAndIgnored) {
    for (const std::string text : {"", "debug", "5x", "5 ", "0x5", "%s%n"}) {
        const ChildResult result = run("messages", {"DBGTRACE_LEVEL=" + text});
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.output, "3 3\n") << text;
        const Lines lines = split_lines(result.errors);
        ASSERT_EQ(lines.size(), 4u) << text;
        EXPECT_EQ(lines[0].rfind("DBGTRACE error read_environment (dbgtrace.cpp:", 0), 0u) << lines[0];
        const std::string report = "): DBGTRACE_LEVEL is no number: \"" + text + "\". The level is 3.";
        ASSERT_GT(lines[0].size(), report.size());
        EXPECT_EQ(lines[0].substr(lines[0].size() - report.size()), report);
        EXPECT_EQ(lines[3], "CHILD error main (child.c:3): level 3");
    }
}

TEST(DbgTraceProcess, AssertionsReturnUnlessTheEnvironmentSaysAbort) {
    for (const std::string value : {"", "DBGTRACE_ASSERT=", "DBGTRACE_ASSERT=abort!", "DBGTRACE_ASSERT=1"}) {
        const ChildResult result = run("assertions", value.empty() ? Lines{} : Lines{value});
        EXPECT_EQ(result.exit_status, 0) << value;
        EXPECT_EQ(result.output, "returned\nreturned\n") << value;
        EXPECT_EQ(result.errors,
                  "error main (child.c:1): Assertion failed: a\n"
                  "error main (child.c:2): Assertion failed: b, called by caller (caller.c:3)\n")
            << value;
    }
}

TEST(DbgTraceProcess, AssertionAbortsAfterItsReportWhenTheEnvironmentSaysSo) {
    const ChildResult result = run("assertions", {"DBGTRACE_ASSERT=abort", "DBGTRACE_LEVEL=0"});
    EXPECT_EQ(result.signal, SIGABRT);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "error main (child.c:1): Assertion failed: a\n");
}

TEST(DbgTraceProcess, MessageIsCutWhenThereIsNoMemoryForIt) {
    const ChildResult result = run("no-memory");
    EXPECT_EQ(result.exit_status, 0);
    const Lines lines = split_lines(result.errors);
    ASSERT_EQ(lines.size(), 3u);
    const std::string start = "CHILD error main (child.c:1): ";
    EXPECT_EQ(lines[0].substr(0, start.size()), start);
    EXPECT_GE(lines[0].size(), 1000u);
    EXPECT_LE(lines[0].size(), 1024u);
    EXPECT_EQ(lines[0].find_first_not_of('x', start.size()), std::string::npos);
    EXPECT_EQ(lines[1], "CHILD error main (child.c:2): next");
    EXPECT_EQ(lines[2], "CHILD error main (child.c:3): " + std::string(100000, 'x'));
}

TEST(DbgTraceProcess, ForkedChildrenEmitWhileThreadsOfTheParentDo) {
    const ChildResult result = run("fork");
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.output, "0 children failed\n");
    const Lines lines = split_lines(result.errors);
    const std::string from_child = "CHILD error main (child.c:2): from a child";
    EXPECT_EQ(std::count(lines.begin(), lines.end(), from_child), 100);
    const auto from_parent = std::count(lines.begin(), lines.end(), "CHILD error thread (child.c:1): from the parent");
    EXPECT_EQ(static_cast<size_t>(from_parent) + 100, lines.size());
}

}  // namespace
