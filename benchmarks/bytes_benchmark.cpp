// Emulation prevention in and out: the library's (call), the best plain loop with memchr and block copies (plain), and
// a loop that takes a byte at a time (bytewise).
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>

#include "calls.h"

namespace {

using bench::Bytes;

constexpr unsigned char kHeader = 0x65;

// The position of the next two zero bytes in a row, or the end.
const unsigned char* find_zeros(const unsigned char* from, const unsigned char* end) {
    while (end - from >= 2) {
        const void* found = std::memchr(from, 0, static_cast<std::size_t>(end - from - 1));
        if (found == nullptr) return end;
        from = static_cast<const unsigned char*>(found);
        if (from[1] == 0) return from;
        from += 2;
    }
    return end;
}

std::size_t plain_encapsulation(const Bytes& in, unsigned char* out) {
    const unsigned char* from = in.data();
    const unsigned char* const end = from + in.size();
    unsigned char* to = out;
    while (from < end) {
        const unsigned char* zeros = find_zeros(from, end);
        const unsigned char* stop = zeros == end ? end : zeros + 2;
        std::memcpy(to, from, static_cast<std::size_t>(stop - from));
        to += stop - from;
        from = stop;
        if (zeros != end && from < end && *from <= 3) *to++ = 3;
    }
    return static_cast<std::size_t>(to - out);
}

std::size_t plain_deencapsulation(const Bytes& in, unsigned char* out) {
    const unsigned char* from = in.data() + 1;
    const unsigned char* const end = in.data() + in.size();
    unsigned char* to = out;
    while (from < end) {
        const unsigned char* zeros = find_zeros(from, end);
        const unsigned char* stop = zeros == end ? end : zeros + 2;
        std::memcpy(to, from, static_cast<std::size_t>(stop - from));
        to += stop - from;
        from = stop;
        if (zeros != end && from < end && *from == 3) ++from;
    }
    return static_cast<std::size_t>(to - out);
}

std::size_t bytewise_encapsulation(const Bytes& in, unsigned char* out) {
    unsigned char* to = out;
    int zeros = 0;
    for (const unsigned char byte : in) {
        if (zeros == 2 && byte <= 3) {
            *to++ = 3;
            zeros = 0;
        }
        *to++ = byte;
        zeros = byte == 0 ? zeros + 1 : 0;
    }
    return static_cast<std::size_t>(to - out);
}

std::size_t bytewise_deencapsulation(const Bytes& in, unsigned char* out) {
    unsigned char* to = out;
    int zeros = 0;
    for (std::size_t i = 1; i < in.size(); ++i) {
        if (zeros == 2 && in[i] == 3) {
            zeros = 0;
            continue;
        }
        *to++ = in[i];
        zeros = in[i] == 0 ? zeros + 1 : 0;
    }
    return static_cast<std::size_t>(to - out);
}

std::size_t encapsulation(const Bytes& in, unsigned char* out) {
    return static_cast<std::size_t>(RBSP_encapsulation_within_NAL(in.data(), static_cast<unsigned>(in.size()), out,
                                                                  static_cast<unsigned>(2 * in.size() + 16)));
}

std::size_t deencapsulation(const Bytes& in, unsigned char* out) {
    return static_cast<std::size_t>(SODB_deencapsulation_from_NAL(in.data(), static_cast<unsigned>(in.size()), out,
                                                                  static_cast<unsigned>(2 * in.size() + 16)));
}

// What a unit holds: coded slices, zeros, or zeros and others at random.
Bytes payload(const std::string& kind, std::size_t size) {
    if (kind == "real") {
        const Bytes& data = bench::samples().slice_data;
        return {data.begin(), data.begin() + static_cast<std::ptrdiff_t>(size)};
    }
    Bytes bytes(size);
    std::minstd_rand random(1);
    if (kind == "half_zeros")
        for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random() % 2 == 0 ? 0 : random());
    return bytes;
}

using Mover = std::size_t (*)(const Bytes& in, unsigned char* out);

void move(benchmark::State& state, Mover mover, const Bytes& in) {
    Bytes out(2 * in.size() + 16);
    for (auto _ : state) {
        if (mover(in, out.data()) == 0) state.SkipWithError("nothing written");
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(in.size()));
}

[[maybe_unused]] const bool registered = [] {
    const struct {
        const char* name;
        Mover in;
        Mover out;
    } kinds[] = {{"call", encapsulation, deencapsulation},
                 {"plain", plain_encapsulation, plain_deencapsulation},
                 {"bytewise", bytewise_encapsulation, bytewise_deencapsulation}};
    for (const char* data : {"real", "zeros", "half_zeros"})
        for (const auto& [size, text] : {std::pair(64, "64B"), {1024, "1KB"}, {65536, "64KB"}, {1'000'000, "1MB"}}) {
            const Bytes bytes = payload(data, static_cast<std::size_t>(size));
            Bytes unit(2 * bytes.size() + 16);
            unit[0] = kHeader;
            unit.resize(1 + bytewise_encapsulation(bytes, unit.data() + 1));
            const std::string suffix = std::string("_") + data + "_" + text;
            for (const auto& kind : kinds)
                benchmark::RegisterBenchmark((kind.name + ("/encapsulation" + suffix)).c_str(), move, kind.in, bytes);
            for (const auto& kind : kinds)
                benchmark::RegisterBenchmark((kind.name + ("/deencapsulation" + suffix)).c_str(), move, kind.out, unit);
        }
    return true;
}();

}  // namespace
