// Mixed calls for a long time in constant memory: soak CALLS STREAM...
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "dbgtrace.h"
#include "workload.h"

namespace {

// Of the process, in bytes.
long resident_memory() {
    std::ifstream statm("/proc/self/statm");
    long total = 0;
    long resident = 0;
    statm >> total >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    const std::uint64_t most_calls = std::strtoull(argv[1], nullptr, 10);
    constexpr long kNoise = 512 * 1024;
    DbgTraceSetLevel(0);

    std::vector<test::Workload> workloads;
    for (int i = 2; i < argc; ++i) workloads.emplace_back(test::read_units(argv[i]), static_cast<unsigned>(i));
    std::uint64_t calls = 0;
    long before = 0;
    while (calls < most_calls) {
        calls = 0;
        for (test::Workload& workload : workloads) {
            for (int i = 0; i < 100; ++i) workload.step();
            calls += workload.calls();
        }
        if (calls == 0) return 2;
        if (before == 0 && calls > most_calls / 10) before = resident_memory();
    }
    const long after = resident_memory();
    std::printf("%llu calls; resident memory: %ld bytes after a tenth of them, %ld at the end\n",
                static_cast<unsigned long long>(calls), before, after);
    return before > 0 && after - before <= kNoise ? 0 : 1;
}
