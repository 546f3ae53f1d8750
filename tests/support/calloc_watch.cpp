#include "calloc_watch.h"

#include <execinfo.h>
#include <unwind.h>

#include <algorithm>
#include <iterator>

#include "heap_area.h"

namespace test {
namespace {

thread_local CallocWatch* active = nullptr;

void* site_of(void* caller) {
    if (_Unwind_FindEnclosingFunction(caller) != reinterpret_cast<void*>(&h264::allocate_area)) return caller;
    void* frames[8];
    void** const end = frames + backtrace(frames, static_cast<int>(std::size(frames)));
    void** const found = std::find(frames, end, caller);
    return end - found > 1 ? found[1] : caller;
}

}  // namespace

CallocWatch::CallocWatch(int failing) : failing_(failing) { active = this; }
CallocWatch::~CallocWatch() { active = nullptr; }

bool CallocWatch::grants(std::size_t size) {
    sizes_.push_back(size);
    return sizes_.size() != static_cast<std::size_t>(failing_);
}

std::set<void*>& allocation_sites() {
    static std::set<void*> sites;
    return sites;
}

}  // namespace test

extern "C" {

void* __real_calloc(std::size_t number, std::size_t size);
void __real_free(void* area);

void* __wrap_calloc(std::size_t number, std::size_t size) {
    test::allocation_sites().insert(test::site_of(__builtin_return_address(0)));
    test::CallocWatch* const watch = test::active;
    if (watch == nullptr) return __real_calloc(number, size);
    if (!watch->grants(number * size)) return nullptr;
    void* const area = __real_calloc(number, size);
    watch->given(area);
    return area;
}

void __wrap_free(void* area) {
    if (test::active != nullptr) test::active->freed(area);
    __real_free(area);
}
}
