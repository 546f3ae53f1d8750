// Runs a target on one input, as libFuzzer calls it.
#include <cstdio>
#include <cstdlib>

#include "dbgtrace.h"
#include "fuzz.h"

namespace {

constexpr int kSilent = 0;
constexpr int kEverything = 8;

// What the messages were, so that their formatting is not left out.
std::size_t formatted = 0;

void take(void*, const dbgtrace_record_t* record) {
    formatted += std::strlen(record->text) + std::strlen(record->func);
}

test::Bytes observe(const unsigned char* data, std::size_t size, int level) {
    DbgTraceSetLevel(level);
    test::FuzzInput input(data, size);
    test::Observed observed;
    test::fuzz(input, observed);
    return observed.content();
}

}  // namespace

void test::fail(const char* file, int line, const char* what) {
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, what);
    std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    DbgTraceSetSink(take, nullptr);
    FUZZ_CHECK(observe(data, size, kSilent) == observe(data, size, kEverything));
    return 0;
}
