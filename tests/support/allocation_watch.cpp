#include "allocation_watch.h"

#include <execinfo.h>
#include <unwind.h>

#include <algorithm>
#include <iterator>

#include "heap_area.h"

namespace test {
namespace {

thread_local AllocationWatch* active = nullptr;

void* site_of(void* caller) {
    void* const function = _Unwind_FindEnclosingFunction(caller);
    if (function != reinterpret_cast<void*>(&h264::allocate_area) &&
        function != reinterpret_cast<void*>(&h264::allocate_raw_area))
        return caller;
    void* frames[8];
    void** const end = frames + backtrace(frames, static_cast<int>(std::size(frames)));
    void** const found = std::find(frames, end, caller);
    return end - found > 1 ? found[1] : caller;
}

}  // namespace

AllocationWatch::AllocationWatch(int failing) : failing_(failing) { active = this; }
AllocationWatch::~AllocationWatch() { active = nullptr; }

bool AllocationWatch::grants(std::size_t size) {
    sizes_.push_back(size);
    return sizes_.size() != static_cast<std::size_t>(failing_);
}

std::set<void*>& allocation_sites() {
    // Never destroyed: what measures coverage allocates when the program has ended.
    static auto& sites = *new std::set<void*>;
    return sites;
}

// A call from there that asks for so many bytes, which allocate gives when they are granted.
template <typename Allocate>
static void* watched(void* caller, std::size_t size, Allocate allocate) {
    allocation_sites().insert(site_of(caller));
    AllocationWatch* const watch = active;
    if (watch == nullptr) return allocate();
    if (!watch->grants(size)) return nullptr;
    void* const area = allocate();
    watch->given(area);
    return area;
}

}  // namespace test

extern "C" {

void* __real_calloc(std::size_t number, std::size_t size);
void* __real_malloc(std::size_t size);
void __real_free(void* area);

void* __wrap_calloc(std::size_t number, std::size_t size) {
    return test::watched(__builtin_return_address(0), number * size, [=] { return __real_calloc(number, size); });
}

void* __wrap_malloc(std::size_t size) {
    return test::watched(__builtin_return_address(0), size, [=] { return __real_malloc(size); });
}

void __wrap_free(void* area) {
    if (test::active != nullptr) test::active->freed(area);
    __real_free(area);
}
}
