// Makes one of the main calls a number of times, for a tool that counts instructions: count_calls NAME TIMES SETTING.
// SETTING is none (without a diagnostics handle) or a level. Without arguments it prints the names.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "calls.h"
#include "dbgtrace.h"

int main(int argc, char** argv) {
    if (argc == 1) {
        for (const bench::Call& call : bench::calls()) std::puts(call.name.c_str());
        return 0;
    }
    if (argc != 4) return 2;
    const std::string setting = argv[3];
    if (setting == "none")
        g_hH264LibDbg = nullptr;
    else if (setting.find_first_not_of("0123456789") == std::string::npos)
        DbgTraceSetLevel(std::atoi(argv[3]));
    else
        return 2;
    for (const bench::Call& call : bench::calls()) {
        if (call.name != argv[1]) continue;
        for (long i = std::atol(argv[2]); i > 0; --i) call.run();
        return 0;
    }
    return 2;
}
