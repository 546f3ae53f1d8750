// The diagnostics library used by many threads at a time. Run with the thread sanitizer this also checks its locking.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "capture.h"
#include "child_process.h"
#include "dbgtrace.h"

namespace {

constexpr int kThreads = 4;

void run_threads(const std::function<void(int)>& body) {
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i) threads.emplace_back(body, i);
    for (std::thread& thread : threads) thread.join();
}

// As h264_lib reads it.
int max_level(HDBG handle) { return std::atomic_ref<int>(handle->nMaxLevel).load(std::memory_order_relaxed); }

// Everything in it is plain: the library must not use it from two threads at a time, nor after it was replaced.
struct Counter {
    bool is_in_use = true;
    bool is_running = false;
    int lines = 0;
    int errors = 0;

    static void take(void* context, const dbgtrace_record_t* record) {
        auto& self = *static_cast<Counter*>(context);
        self.errors += self.is_running || !self.is_in_use;
        self.is_running = true;
        self.errors += std::string(record->module) != "TESTMODULE" && record->module[0] != '\0';
        ++self.lines;
        self.is_running = false;
    }
};

TEST(DbgTraceThreads, EveryLineReachesTheSinkThatIsSetWhileSinkAndLevelChange) {
    constexpr int kChanges = 1000;
    int lines = 0;
    int errors = 0;
    DbgTraceSetLevel(3);
    auto current = std::make_unique<Counter>();
    DbgTraceSetSink(Counter::take, current.get());
    const test::Module module;

    std::atomic<bool> stop = false;
    std::thread changer([&] {
        for (int i = 0; i < kChanges; ++i) {
            DbgTraceSetLevel(i % 9);
            auto next = std::make_unique<Counter>();
            DbgTraceSetSink(Counter::take, next.get());
            current->is_in_use = false;
            lines += current->lines;
            errors += current->errors;
            current = std::move(next);
        }
        stop = true;
    });
    std::atomic<int> emitted = 0;
    std::atomic<int> failures = 0;
    run_threads([&](int thread) {
        const test::Module own;
        int rounds = 0;
        do {
            const int level = max_level(module.handle);
            if (level < 0 || level > 8 || DbgTraceGetLevel() > 8) ++failures;
            _DoDbgPrintEx(module.handle, 3, "func", "file.c", thread, "message %d\n", rounds);
            _DoDbgPrintBuffer(own.handle, 3, "0123456789", 10, "label", "func", "file.c", thread);
            _DoAssert("a", "func", "file.c", thread);
            const test::Module brief;
            if (brief.handle == nullptr) ++failures;
            ++rounds;
        } while (!stop);
        emitted += 4 * rounds;
    });
    changer.join();
    DbgTraceSetSink(nullptr, nullptr);
    DbgTraceSetLevel(3);
    EXPECT_EQ(lines + current->lines, emitted);
    EXPECT_EQ(errors + current->errors, 0);
    EXPECT_EQ(failures, 0);
}

TEST(DbgTraceThreads, LinesOnStandardErrorDoNotMix) {
    constexpr int kRounds = 200;
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::tmpfile(), std::fclose);
    ASSERT_NE(file, nullptr);
    const int saved = dup(STDERR_FILENO);
    dup2(fileno(file.get()), STDERR_FILENO);
    {
        const test::Module module;
        run_threads([&](int thread) {
            const std::string text(static_cast<size_t>(500 + 1000 * thread), static_cast<char>('a' + thread));
            for (int i = 0; i < kRounds; ++i)
                _DoDbgPrintEx(module.handle, 3, "func", "file.c", thread, "%s\n", text.c_str());
        });
    }
    dup2(saved, STDERR_FILENO);
    close(saved);

    std::rewind(file.get());
    std::vector<int> found(kThreads, 0);
    std::string content;
    for (int character; (character = std::fgetc(file.get())) != EOF;) content.push_back(static_cast<char>(character));
    const std::vector<std::string> lines = test::split_lines(content);
    EXPECT_EQ(lines.size(), static_cast<size_t>(kThreads * kRounds));
    for (const std::string& line : lines) {
        for (int thread = 0; thread < kThreads; ++thread) {
            const std::string text(static_cast<size_t>(500 + 1000 * thread), static_cast<char>('a' + thread));
            found[static_cast<size_t>(thread)] +=
                line == "TESTMODULE error func (file.c:" + std::to_string(thread) + "): " + text;
        }
    }
    EXPECT_EQ(found, std::vector<int>(kThreads, kRounds));
}

// The lines of one hex dump follow one another.
TEST(DbgTraceThreads, HexDumpsDoNotMix) {
    constexpr int kRounds = 200;
    test::SinkCapture sink;
    const test::Module module;
    run_threads([&](int thread) {
        const unsigned char bytes[48] = {};
        for (int i = 0; i < kRounds; ++i)
            _DoDbgPrintBuffer(module.handle, 3, bytes, sizeof bytes, "zeros", "func", "file.c", thread);
    });
    ASSERT_EQ(sink.records.size(), static_cast<size_t>(kThreads * kRounds * 4));
    for (size_t i = 0; i < sink.records.size(); ++i) {
        EXPECT_EQ(sink.records[i].line, sink.records[i - i % 4].line);
        EXPECT_EQ(sink.records[i].text.substr(0, 8),
                  (std::vector<std::string>{"zeros (4", "00000000", "00000010", "00000020"})[i % 4]);
    }
}

}  // namespace
