#include "calloc_watch.h"

namespace test {
namespace {
thread_local CallocWatch* active = nullptr;
}  // namespace

CallocWatch::CallocWatch(int failing) : failing_(failing) { active = this; }
CallocWatch::~CallocWatch() { active = nullptr; }

bool CallocWatch::grants(std::size_t size) {
    sizes_.push_back(size);
    return sizes_.size() != static_cast<std::size_t>(failing_);
}

}  // namespace test

extern "C" {

void* __real_calloc(std::size_t number, std::size_t size);
void __real_free(void* area);

void* __wrap_calloc(std::size_t number, std::size_t size) {
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
