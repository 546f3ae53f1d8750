// Fields, Exp-Golomb codes and bit strings, across the library's boundary. Times are of one call, or by the byte.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>

#include "bitbuffer.h"
#include "calls.h"

namespace {

using bench::Bytes;

constexpr std::size_t kArea = 65536;
constexpr int kCalls = 4096;

Bytes random_bytes(std::size_t size) {
    std::minstd_rand random(7);
    Bytes bytes(size);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random() >> 8);
    return bytes;
}

bitbuffer_t over(Bytes& bytes) { return {bytes.data(), 0, static_cast<unsigned>(8 * bytes.size())}; }

std::vector<unsigned> random_widths(unsigned most) {
    std::minstd_rand random(5);
    std::vector<unsigned> widths(kCalls);
    for (unsigned& width : widths) width = static_cast<unsigned>(1 + random() % most);
    return widths;
}

template <class Value>
void get_field(benchmark::State& state, int (*get)(bitbuffer_t*, unsigned, Value*), unsigned most) {
    Bytes bytes = random_bytes(kArea);
    const auto widths = random_widths(most);
    bitbuffer_t bits = over(bytes);
    Value value{};
    for (auto _ : state) {
        bits.bit_offset = 0;
        for (const unsigned width : widths) {
            get(&bits, width, &value);
            benchmark::DoNotOptimize(value);
        }
    }
    state.SetItemsProcessed(state.iterations() * kCalls);
}
BENCHMARK_CAPTURE(get_field, u8, GetNextNBitsAsUint8, 8U)->Name("call/get_8");
BENCHMARK_CAPTURE(get_field, u32, GetNextNBitsAsUint32, 32U)->Name("call/get_32");
BENCHMARK_CAPTURE(get_field, u64, GetNextNBitsAsUint64, 64U)->Name("call/get_64");

void set_field(benchmark::State& state) {
    Bytes bytes(kArea);
    const auto widths = random_widths(32);
    bitbuffer_t bits = over(bytes);
    for (auto _ : state) {
        bits.bit_offset = 0;
        for (const unsigned width : widths) SetNextNBitsFromUint32(&bits, width, 0x55555555);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kCalls);
}
BENCHMARK(set_field)->Name("call/set_32");

// Values as syntax elements have them: mostly small.
unsigned long value_of(std::minstd_rand& random) { return random() >> (20 + random() % 11); }

void golomb(benchmark::State& state, bool read) {
    Bytes bytes(kArea);
    bitbuffer_t bits = over(bytes);
    std::vector<unsigned long> values(kCalls);
    std::minstd_rand random(3);
    for (unsigned long& value : values) value = value_of(random);
    for (const unsigned long value : values) SetUint32Golomb(&bits, value);
    unsigned long value = 0;
    for (auto _ : state) {
        bits.bit_offset = 0;
        if (read)
            for (int i = 0; i < kCalls; ++i) {
                GetUint32Golomb(&bits, &value);
                benchmark::DoNotOptimize(value);
            }
        else
            for (const unsigned long next : values) SetUint32Golomb(&bits, next);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kCalls);
}
BENCHMARK_CAPTURE(golomb, read, true)->Name("call/get_ue");
BENCHMARK_CAPTURE(golomb, write, false)->Name("call/set_ue");

void string(benchmark::State& state, bool write, unsigned offset) {
    Bytes bytes = random_bytes(kArea + 1);
    Bytes other = random_bytes(kArea);
    bitbuffer_t bits = over(bytes);
    for (auto _ : state) {
        bits.bit_offset = offset;
        const int failed = write ? SetNextNBitsFromString(&bits, 8 * kArea, other.data())
                                 : GetNextNBitsAsStringEx(&bits, 8 * kArea, other.data(), kArea);
        if (failed != 0) state.SkipWithError("string");
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kArea));
}
BENCHMARK_CAPTURE(string, get_aligned, false, 0U)->Name("call/get_string_aligned");
BENCHMARK_CAPTURE(string, set_aligned, true, 0U)->Name("call/set_string_aligned");
BENCHMARK_CAPTURE(string, get_unaligned, false, 3U)->Name("call/get_string_unaligned");
BENCHMARK_CAPTURE(string, set_unaligned, true, 3U)->Name("call/set_string_unaligned");

void copy(benchmark::State& state) {
    const Bytes bytes = random_bytes(kArea);
    Bytes other(kArea);
    for (auto _ : state) {
        std::memcpy(other.data(), bytes.data(), kArea);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kArea));
}
BENCHMARK(copy)->Name("memcpy/string");

}  // namespace
