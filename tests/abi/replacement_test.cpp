// Another diagnostics library in the place of libdbgtrace, for a program that uses h264_lib as any other does.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "child_process.h"

namespace {

using Lines = std::vector<std::string>;

// What the replacement printed, for a program that ended well and had nothing to say itself.
void check_calls(const test::ChildResult& result) {
    EXPECT_EQ(result.exit_status, 0) << result.output;
    EXPECT_EQ(result.errors, "") << "libdbgtrace was called";
    const Lines lines = test::split_lines(result.output);
    ASSERT_GE(lines.size(), 6u);
    EXPECT_EQ(lines[0], "init H264LIB");
    EXPECT_EQ(lines[1], "print 5 _H264LIB_AutoInit h264.c Called.");
    EXPECT_EQ(lines[lines.size() - 2], "print 5 _H264LIB_AutoShutdown h264.c Called.");
    EXPECT_EQ(lines.back(), "uninit _H264LIB_AutoShutdown h264.c");
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         "print 3 AdvanceBitOffset bitbuffer.c Trying to advance past the end of bit buffer. "
                         "CurrentBitOffset:12, Desired Increment:5, TotalNumBits:16."),
              1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "print 5 H264LIB_Display_sps h264d.c SPS structure:"), 1);
    for (size_t i = 1; i + 1 < lines.size(); ++i) EXPECT_EQ(lines[i].rfind("print ", 0), 0u) << lines[i];
}

TEST(ReplacedDiagnostics, AtLinkTime) { check_calls(test::run_child(RELINKED_PROGRAM, {"replaced"})); }

TEST(ReplacedDiagnostics, AtLoadTime) {
#ifdef WITH_SANITIZER
    GTEST_SKIP() << "The sanitizer's run-time library must come before anything that LD_PRELOAD names.";
#else
    check_calls(test::run_child(C_PROGRAM, {"replaced"}, {"LD_PRELOAD=" REPLACEMENT_LIBRARY}));
#endif
}

}  // namespace
