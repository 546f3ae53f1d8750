// Program for the tests that need a process of their own. The diagnostics library is linked into it statically, so that
// its first calls come before that library's own initialisation and its last ones after everything else.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "dbgtrace.h"

namespace {

HDBG handle;

// As h264_lib does.
__attribute__((constructor(101))) void open_before_everything_else() {
    _DoDbgInit("CHILD", &handle);
    if (handle->nMaxLevel >= 5) _DoDbgPrintEx(handle, 5, __func__, "child.c", 1, "Called.\n");
}

__attribute__((destructor(101))) void close_after_everything_else() {
    if (handle->nMaxLevel >= 5) _DoDbgPrintEx(handle, 5, __func__, "child.c", 2, "Called.\n");
    _DoDbgUninitEx(&handle, __func__, "child.c", 3);
}

void print_messages() {
    for (int level = 1; level <= 8; ++level)
        if (handle->nMaxLevel >= level) _DoDbgPrintEx(handle, level, "main", "child.c", level, "level %d\n", level);
    std::printf("%d %d\n", handle->nMaxLevel, DbgTraceGetLevel());
}

void break_preconditions() {
    _DoAssert("a", "main", "child.c", 1);
    std::printf("returned\n");
    std::fflush(stdout);
    _DoAssertEx("b", "main", "child.c", 2, "caller", "caller.c", 3);
    std::printf("returned\n");
}

std::atomic<bool> memory_is_exhausted = false;

// Prints a message for which there is no memory.
void print_without_memory() {
    const std::string text(100000, 'x');
    memory_is_exhausted = true;
    _DoDbgPrintEx(handle, 3, "main", "child.c", 1, "%s\n", text.c_str());
    _DoDbgPrintEx(handle, 3, "main", "child.c", 2, "next\n");
    memory_is_exhausted = false;
    _DoDbgPrintEx(handle, 3, "main", "child.c", 3, "%s\n", text.c_str());
}

// Forks while other threads emit; the children emit too. Ends by a signal when one of them hangs.
void fork_while_threads_emit() {
    std::atomic<bool> stop = false;
    std::vector<std::thread> threads;
    threads.reserve(2);
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&stop] {
            while (!stop) _DoDbgPrintEx(handle, 3, "thread", "child.c", 1, "from the parent\n");
        });
    }
    int failed = 0;
    for (int i = 0; i < 100 && failed == 0; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            _DoDbgPrintEx(handle, 3, "main", "child.c", 2, "from a child\n");
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        failed += status != 0;
    }
    stop = true;
    for (std::thread& thread : threads) thread.join();
    std::printf("%d children failed\n", failed);
}

}  // namespace

// The linker sends this program's own calls of malloc here (--wrap).
extern "C" void* __real_malloc(size_t size);
extern "C" void* __wrap_malloc(size_t size) { return memory_is_exhausted ? nullptr : __real_malloc(size); }

int main(int argc, char** argv) {
    const std::string mode = argc == 2 ? argv[1] : "";
    if (mode == "messages")
        print_messages();
    else if (mode == "assertions")
        break_preconditions();
    else if (mode == "no-memory")
        print_without_memory();
    else if (mode == "fork")
        fork_while_threads_emit();
    else
        return 2;
    return 0;
}
