// The diagnostics library called directly, in one thread.
#include "dbgtrace.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "capture.h"

namespace {

using test::Module;
using test::SinkCapture;
using test::StandardErrorCapture;
using Texts = std::vector<std::string>;

class DbgTrace : public testing::Test {
protected:
    void SetUp() override { DbgTraceSetLevel(DBG_LEVEL_ERROR); }
    void TearDown() override { DbgTraceSetSink(nullptr, nullptr); }
};

TEST_F(DbgTrace, InitFillsTheHandleWithARecordAtTheCurrentLevel) {
    DbgTraceSetLevel(6);
    const Module module;
    EXPECT_EQ(module.result, 0);
    ASSERT_NE(module.handle, nullptr);
    EXPECT_EQ(module.handle->nMaxLevel, 6);
}

TEST_F(DbgTrace, InitWithoutAVariableToFillFails) { EXPECT_EQ(_DoDbgInit("TESTMODULE", nullptr), -1); }

TEST_F(DbgTrace, UninitSetsTheHandleToNullAndMayBeRepeated) {
    HDBG handle = nullptr;
    ASSERT_EQ(_DoDbgInit("TESTMODULE", &handle), 0);
    _DoDbgUninitEx(&handle, "func", "file.c", 1);
    EXPECT_EQ(handle, nullptr);
    _DoDbgUninitEx(&handle, "func", "file.c", 1);
    EXPECT_EQ(handle, nullptr);
    _DoDbgUninitEx(nullptr, "func", "file.c", 1);
}

TEST_F(DbgTrace, ClosedModuleIsSilent) {
    SinkCapture sink;
    HDBG handle = nullptr;
    ASSERT_EQ(_DoDbgInit("TESTMODULE", &handle), 0);
    const HDBG kept = handle;
    _DoDbgUninitEx(&handle, "func", "file.c", 1);
    EXPECT_EQ(kept->nMaxLevel, 0);
    _DoDbgPrintEx(kept, 3, "func", "file.c", 1, "late\n");
    _DoDbgPrintBuffer(kept, 3, "late", 4, "late", "func", "file.c", 1);
    EXPECT_EQ(sink.texts(), Texts{});
    HDBG stale = kept;
    _DoDbgUninitEx(&stale, "func", "file.c", 1);
    EXPECT_EQ(stale, nullptr);
}

TEST_F(DbgTrace, NullOrForeignHandleIsSilent) {
    SinkCapture sink;
    tagHDBG foreign{0, 8};
    for (const HDBG handle : {HDBG{nullptr}, &foreign}) {
        _DoDbgPrintEx(handle, 3, "func", "file.c", 1, "text\n");
        _DoDbgPrintBuffer(handle, 3, "text", 4, "label", "func", "file.c", 1);
    }
    EXPECT_EQ(sink.texts(), Texts{});
    HDBG handle = &foreign;
    _DoDbgUninitEx(&handle, "func", "file.c", 1);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(foreign.nMaxLevel, 8);
}

TEST_F(DbgTrace, AsManyModulesAsTheHeaderSaysAreOpenAtATime) {
    std::vector<HDBG> handles(DBGTRACE_MAX_MODULES);
    for (HDBG& handle : handles) ASSERT_EQ(_DoDbgInit("TESTMODULE", &handle), 0);
    tagHDBG other{};
    HDBG one_more = &other;
    EXPECT_EQ(_DoDbgInit("TESTMODULE", &one_more), -1);
    EXPECT_EQ(one_more, nullptr);

    _DoDbgUninitEx(&handles[5], "func", "file.c", 1);
    EXPECT_EQ(_DoDbgInit("TESTMODULE", &handles[5]), 0);
    for (size_t i = 0; i < handles.size(); ++i)
        for (size_t j = 0; j < i; ++j) EXPECT_NE(handles[i], handles[j]);
    for (HDBG& handle : handles) _DoDbgUninitEx(&handle, "func", "file.c", 1);
}

TEST_F(DbgTrace, SinkReceivesEveryPartOfAMessage) {
    SinkCapture sink;
    const Module first("FIRST");
    const Module second("SECOND");
    _DoDbgPrintEx(first.handle, 3, "parse", "one.c", 12, "cannot parse %s %d.\n", "element", 7);
    _DoDbgPrintEx(second.handle, 8, "display", "two.c", 34, "Done.\n");
    ASSERT_EQ(sink.records.size(), 2u);
    EXPECT_EQ(sink.records[0].module, "FIRST");
    EXPECT_EQ(sink.records[0].level, 3);
    EXPECT_EQ(sink.records[0].func, "parse");
    EXPECT_EQ(sink.records[0].file, "one.c");
    EXPECT_EQ(sink.records[0].line, 12);
    EXPECT_EQ(sink.records[0].text, "cannot parse element 7.");
    EXPECT_EQ(sink.records[1].module, "SECOND");
    EXPECT_EQ(sink.records[1].level, 8);
    EXPECT_EQ(sink.records[1].func, "display");
    EXPECT_EQ(sink.records[1].file, "two.c");
    EXPECT_EQ(sink.records[1].line, 34);
    EXPECT_EQ(sink.records[1].text, "Done.");
}

TEST_F(DbgTrace, SinkTakesThePlaceOfStandardErrorUntilItIsRemoved) {
    StandardErrorCapture standard_error;
    const Module module;
    {
        SinkCapture sink;
        _DoDbgPrintEx(module.handle, 3, "func", "file.c", 1, "to the sink\n");
        _DoDbgPrintBuffer(module.handle, 3, "A", 1, "to the sink", "func", "file.c", 1);
        _DoAssert("to the sink", "func", "file.c", 1);
        EXPECT_EQ(sink.records.size(), 4u);
    }
    EXPECT_EQ(standard_error.writes(), Texts{});
    _DoDbgPrintEx(module.handle, 3, "func", "file.c", 1, "to standard error\n");
    EXPECT_EQ(standard_error.writes(), Texts{"TESTMODULE error func (file.c:1): to standard error\n"});
}

TEST_F(DbgTrace, StandardErrorLineNamesTheLevel) {
    StandardErrorCapture standard_error;
    const Module module;
    for (int level = 1; level <= 9; ++level) _DoDbgPrintEx(module.handle, level, "func", "file.c", level, "Called.\n");
    EXPECT_EQ(standard_error.writes(),
              (Texts{"TESTMODULE level 1 func (file.c:1): Called.\n", "TESTMODULE level 2 func (file.c:2): Called.\n",
                     "TESTMODULE error func (file.c:3): Called.\n", "TESTMODULE warning func (file.c:4): Called.\n",
                     "TESTMODULE info func (file.c:5): Called.\n", "TESTMODULE detail func (file.c:6): Called.\n",
                     "TESTMODULE debug func (file.c:7): Called.\n", "TESTMODULE trace func (file.c:8): Called.\n",
                     "TESTMODULE level 9 func (file.c:9): Called.\n"}));
}

TEST_F(DbgTrace, EachLineOfStandardErrorIsOneWrite) {
    StandardErrorCapture standard_error;
    const Module module;
    const std::string long_text(20000, 'x');
    _DoDbgPrintEx(module.handle, 3, "func", "file.c", 1, "%s\n", long_text.c_str());
    _DoDbgPrintBuffer(module.handle, 3, "0123456789abcdefg", 17, "label", "func", "file.c", 2);
    _DoAssert("a != b", "func", "file.c", 3);
    const std::string dump = "TESTMODULE error func (file.c:2): ";
    const std::string full = "00000000  30 31 32 33 34 35 36 37  38 39 61 62 63 64 65 66  |0123456789abcdef|\n";
    const std::string rest = "00000010  67                                                |g|\n";
    EXPECT_EQ(standard_error.writes(),
              (Texts{"TESTMODULE error func (file.c:1): " + long_text + "\n", dump + "label (17 bytes)\n", dump + full,
                     dump + rest, "error func (file.c:3): Assertion failed: a != b\n"}));
}

TEST_F(DbgTrace, ExactlyOneClosingLineFeedIsRemovedAndAMissingOneAdded) {
    const Module module;
    {
        SinkCapture sink;
        for (const char* text : {"", "\n", "\n\n", "a", "a\n", "a\nb\n"})
            _DoDbgPrintEx(module.handle, 3, "func", "file.c", 1, "%s", text);
        EXPECT_EQ(sink.texts(), (Texts{"", "", "\n", "a", "a", "a\nb"}));
    }
    StandardErrorCapture standard_error;
    _DoDbgPrintEx(module.handle, 3, "func", "file.c", 1, "no line feed");
    EXPECT_EQ(standard_error.writes(), Texts{"TESTMODULE error func (file.c:1): no line feed\n"});
}

// Around the length at which a line no longer fits on the stack, and far beyond it.
TEST_F(DbgTrace, MessageOfAnyLengthArrivesWhole) {
    const Module module;
    std::vector<size_t> lengths{4096, 100000, 3000000};
    for (size_t length = 900; length <= 1100; ++length) lengths.push_back(length);
    SinkCapture sink;
    for (const size_t length : lengths) {
        std::string text(length, '\0');
        for (size_t i = 0; i < length; ++i) text[i] = static_cast<char>('a' + i % 26);
        _DoDbgPrintEx(module.handle, 3, "func", "file.c", 1, "%s\n", text.c_str());
        ASSERT_EQ(sink.records.back().text, text);
        _DoDbgPrintEx(module.handle, 3, "func", "file.c", 1, "%s", text.c_str());
        ASSERT_EQ(sink.records.back().text, text);
    }
    for (size_t length = 900; length <= 1100; ++length) {
        StandardErrorCapture standard_error;
        DbgTraceSetSink(nullptr, nullptr);
        const std::string text(length, 'x');
        _DoDbgPrintEx(module.handle, 3, "func", "file.c", 1, "%s\n", text.c_str());
        ASSERT_EQ(standard_error.writes(), Texts{"TESTMODULE error func (file.c:1): " + text + "\n"});
    }
}

TEST_F(DbgTrace, LongFunctionAndFileNamesArriveWhole) {
    const Module module;
    const std::string func(3000, 'f');
    const std::string file(5000, 'g');
    StandardErrorCapture standard_error;
    _DoDbgPrintEx(module.handle, 3, func.c_str(), file.c_str(), 1, "text\n");
    EXPECT_EQ(standard_error.writes(), Texts{"TESTMODULE error " + func + " (" + file + ":1): text\n"});
}

TEST_F(DbgTrace, LongModuleNameIsCut) {
    SinkCapture sink;
    const std::string name(200, 'n');
    const Module module(name.c_str());
    _DoDbgPrintEx(module.handle, 3, "func", "file.c", 1, "text\n");
    ASSERT_EQ(sink.records.size(), 1u);
    EXPECT_EQ(sink.records[0].module, name.substr(0, DBGTRACE_MAX_MODULE_NAME - 1));
}

TEST_F(DbgTrace, ModuleNameIsCopied) {
    SinkCapture sink;
    char name[] = "BEFORE";
    const Module module(name);
    std::strcpy(name, "AFTER");
    _DoDbgPrintEx(module.handle, 3, "func", "file.c", 1, "text\n");
    ASSERT_EQ(sink.records.size(), 1u);
    EXPECT_EQ(sink.records[0].module, "BEFORE");
}

TEST_F(DbgTrace, NullTextsAreShownAsSuch) {
    const Module module(nullptr);
    const char* no_format = nullptr;
    {
        SinkCapture sink;
        _DoDbgPrintEx(module.handle, 3, nullptr, nullptr, 1, no_format, 0);
        _DoDbgPrintBuffer(module.handle, 3, "A", 1, nullptr, nullptr, nullptr, 2);
        _DoAssert(nullptr, nullptr, nullptr, 3);
        _DoAssertEx(nullptr, nullptr, nullptr, 4, nullptr, nullptr, 5);
        ASSERT_EQ(sink.records.size(), 5u);
        for (const auto& record : sink.records) {
            EXPECT_EQ(record.func, "(null)");
            EXPECT_EQ(record.file, "(null)");
        }
        EXPECT_EQ(sink.records[0].module, "(null)");
        EXPECT_EQ(sink.records[0].text, "(null)");
        EXPECT_EQ(sink.records[1].text, "(null) (1 bytes)");
        EXPECT_EQ(sink.records[3].text, "Assertion failed: (null)");
        EXPECT_EQ(sink.records[4].text, "Assertion failed: (null), called by (null) ((null):5)");
    }
    StandardErrorCapture standard_error;
    _DoDbgPrintEx(module.handle, 3, nullptr, nullptr, 1, no_format, 0);
    EXPECT_EQ(standard_error.writes(), Texts{"(null) error (null) ((null):1): (null)\n"});
}

TEST_F(DbgTrace, MessageThatCannotBeFormattedShowsItsFormat) {
    SinkCapture sink;
    const Module module;
    const wchar_t no_character[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    _DoDbgPrintEx(module.handle, 3, "func", "file.c", 1, "before %ls after\n", no_character);
    EXPECT_EQ(sink.texts(), Texts{"before %ls after"});
}

TEST_F(DbgTrace, HexDumpHasSixteenBytesALine) {
    SinkCapture sink;
    const Module module;
    unsigned char bytes[40];
    for (size_t i = 0; i < sizeof bytes; ++i) bytes[i] = static_cast<unsigned char>(i + 0x1A);
    bytes[38] = 0x7E;
    bytes[39] = 0x7F;
    _DoDbgPrintBuffer(module.handle, 6, bytes, sizeof bytes, "Bitbuffer data", "display", "bitbuffer.c", 7);
    EXPECT_EQ(sink.texts(), (Texts{"Bitbuffer data (40 bytes)",
                                   "00000000  1a 1b 1c 1d 1e 1f 20 21  22 23 24 25 26 27 28 29  |...... !\"#$%&'()|",
                                   "00000010  2a 2b 2c 2d 2e 2f 30 31  32 33 34 35 36 37 38 39  |*+,-./0123456789|",
                                   "00000020  3a 3b 3c 3d 3e 3f 7e 7f                           |:;<=>?~.|"}));
    for (const auto& record : sink.records) {
        EXPECT_EQ(record.module, "TESTMODULE");
        EXPECT_EQ(record.level, 6);
        EXPECT_EQ(record.func, "display");
        EXPECT_EQ(record.file, "bitbuffer.c");
        EXPECT_EQ(record.line, 7);
    }
}

TEST_F(DbgTrace, HexDumpShowsBytesAbove127AsDots) {
    SinkCapture sink;
    const Module module;
    const unsigned char bytes[] = {0x80, 0xFF, 0x00, 0x41};
    _DoDbgPrintBuffer(module.handle, 6, bytes, 4, "high", "func", "file.c", 1);
    ASSERT_EQ(sink.records.size(), 2u);
    EXPECT_EQ(sink.records[1].text, "00000000  80 ff 00 41                                       |...A|");
}

TEST_F(DbgTrace, HexDumpOfNothingIsItsHeading) {
    SinkCapture sink;
    const Module module;
    _DoDbgPrintBuffer(module.handle, 6, "A", 0, "empty", "func", "file.c", 1);
    _DoDbgPrintBuffer(module.handle, 6, nullptr, 5, "null", "func", "file.c", 1);
    EXPECT_EQ(sink.texts(), (Texts{"empty (0 bytes)", "null (5 bytes)"}));
}

TEST_F(DbgTrace, AssertionsAreReportedAtEveryLevelAndReturn) {
    SinkCapture sink;
    DbgTraceSetLevel(0);
    _DoAssert("bb != NULL", "GetNextBitEx", "bitbuffer.c", 21);
    _DoAssertEx("value < 2", "__DoSetNextBit", "bitbuffer.c", 22, "write_flag", "program.c", 99);
    ASSERT_EQ(sink.records.size(), 2u);
    EXPECT_EQ(sink.texts(), (Texts{"Assertion failed: bb != NULL",
                                   "Assertion failed: value < 2, called by write_flag (program.c:99)"}));
    EXPECT_EQ(sink.records[0].func, "GetNextBitEx");
    EXPECT_EQ(sink.records[0].line, 21);
    EXPECT_EQ(sink.records[1].func, "__DoSetNextBit");
    EXPECT_EQ(sink.records[1].line, 22);
    for (const auto& record : sink.records) {
        EXPECT_EQ(record.module, "");
        EXPECT_EQ(record.level, DBG_LEVEL_ERROR);
        EXPECT_EQ(record.file, "bitbuffer.c");
    }
}

TEST_F(DbgTrace, LevelReachesModulesOpenedBeforeAndAfter) {
    const Module before("BEFORE");
    DbgTraceSetLevel(7);
    const Module after("AFTER");
    EXPECT_EQ(before.handle->nMaxLevel, 7);
    EXPECT_EQ(after.handle->nMaxLevel, 7);
    EXPECT_EQ(DbgTraceGetLevel(), 7);
    DbgTraceSetLevel(0);
    EXPECT_EQ(before.handle->nMaxLevel, 0);
    EXPECT_EQ(after.handle->nMaxLevel, 0);
}

TEST_F(DbgTrace, LevelOutsideTheRangeCountsAsItsNearestEnd) {
    const Module module;
    DbgTraceSetLevel(9);
    EXPECT_EQ(DbgTraceGetLevel(), 8);
    EXPECT_EQ(module.handle->nMaxLevel, 8);
    DbgTraceSetLevel(-1);
    EXPECT_EQ(DbgTraceGetLevel(), 0);
    EXPECT_EQ(module.handle->nMaxLevel, 0);
    DbgTraceSetLevel(2147483647);
    EXPECT_EQ(DbgTraceGetLevel(), 8);
    DbgTraceSetLevel(-2147483647 - 1);
    EXPECT_EQ(DbgTraceGetLevel(), 0);
}

TEST_F(DbgTrace, ErrnoIsKept) {
    StandardErrorCapture standard_error;
    const Module module;
    close(STDERR_FILENO);
    errno = 12345;
    _DoDbgPrintEx(module.handle, 3, "func", "file.c", 1, "nowhere to go\n");
    _DoAssert("nowhere", "func", "file.c", 1);
    EXPECT_EQ(errno, 12345);
}

TEST(CopyStringTest, CopiesWhatFitsAndClosesIt) {
    char destination[8];
    const auto copy = [&](const char* source, size_t capacity) {
        std::memset(destination, '#', sizeof destination);
        CopyString(destination, source, capacity);
        return std::string(destination, sizeof destination);
    };
    EXPECT_EQ(copy("FRAME", 8), std::string("FRAME\0##", 8));
    EXPECT_EQ(copy("FRAME", 6), std::string("FRAME\0##", 8));
    EXPECT_EQ(copy("FRAME", 5), std::string("FRAM\0###", 8));
    EXPECT_EQ(copy("FRAME", 1), std::string("\0#######", 8));
    EXPECT_EQ(copy("FRAME", 0), "########");
    EXPECT_EQ(copy("", 8), std::string("\0#######", 8));
    EXPECT_EQ(copy(nullptr, 8), std::string("\0#######", 8));
    CopyString(nullptr, "FRAME", 8);
}

TEST(CopyStringTest, ReadsNothingBehindTheCapacity) {
    const char unclosed[3] = {'a', 'b', 'c'};
    char destination[3];
    CopyString(destination, unclosed, 3);
    EXPECT_STREQ(destination, "ab");
}

}  // namespace
