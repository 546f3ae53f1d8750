// Many threads that read, print, rewrite and write different streams while the level of diagnostics changes.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>

#include "dbgtrace.h"
#include "workload.h"

namespace {

constexpr unsigned kThreads = 8;
constexpr int kSteps = 2000;

std::uint64_t digest_of(const std::vector<test::Bytes>& units, unsigned seed) {
    test::Workload workload(units, seed);
    for (int i = 0; i < kSteps; ++i) workload.step();
    return workload.digest();
}

TEST(Threads, WorkOnStreamsOfTheirOwnWhileTheLevelChanges) {
    const std::array streams{test::read_units(H264_SAMPLES "/interlaced_hrd.h264"),
                             test::read_units(H264_SAMPLES "/progressive_422.h264")};
    for (const auto& units : streams) ASSERT_GT(units.size(), 10U);
    static std::atomic<std::uint64_t> lines;
    lines = 0;
    DbgTraceSetSink([](void*, const dbgtrace_record_t*) { lines.fetch_add(1, std::memory_order_relaxed); }, nullptr);
    DbgTraceSetLevel(0);
    std::array<std::uint64_t, kThreads> expected{};
    for (unsigned i = 0; i < kThreads; ++i) expected.at(i) = digest_of(streams.at(i % 2), i);

    std::array<std::uint64_t, kThreads> digests{};
    std::atomic<unsigned> running = kThreads;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            digests.at(i) = digest_of(streams.at(i % 2), i);
            --running;
        });
    for (int level = 0; running > 0; level = (level + 1) % 9) {
        DbgTraceSetLevel(level);
        std::this_thread::yield();
    }
    for (std::thread& thread : threads) thread.join();
    DbgTraceSetLevel(0);
    DbgTraceSetSink(nullptr, nullptr);
    EXPECT_EQ(digests, expected);
    EXPECT_GT(lines, 0U);
}

}  // namespace
