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

std::uint64_t digest_of(const std::vector<test::Bytes>& units, unsigned seed, bool changes_level) {
    test::Workload workload(units, seed);
    for (int i = 0; i < kSteps; ++i) {
        if (changes_level && i % 50 == 0) DbgTraceSetLevel(i / 50 % 9);
        workload.step();
    }
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
    for (unsigned i = 0; i < kThreads; ++i) expected.at(i) = digest_of(streams.at(i % 2), i, false);

    std::array<std::uint64_t, kThreads> digests{};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] { digests.at(i) = digest_of(streams.at(i % 2), i, true); });
    for (std::thread& thread : threads) thread.join();
    DbgTraceSetLevel(0);
    DbgTraceSetSink(nullptr, nullptr);
    EXPECT_EQ(digests, expected);
    EXPECT_GT(lines, 0U);
}

}  // namespace
