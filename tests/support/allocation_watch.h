// Watches the library's memory, and makes it run out on demand. For test programs that are linked with
// --wrap=calloc, --wrap=malloc and --wrap=free.
#pragma once

#include <cstddef>
#include <set>
#include <vector>

namespace test {

// While it lives it counts this thread's calls of calloc and malloc. One at a time.
class AllocationWatch {
public:
    // failing: which of the calls fails, 1 is the first; 0: none.
    explicit AllocationWatch(int failing = 0);
    ~AllocationWatch();
    AllocationWatch(const AllocationWatch&) = delete;
    AllocationWatch& operator=(const AllocationWatch&) = delete;

    // Bytes asked for by each call.
    const std::vector<std::size_t>& sizes() const { return sizes_; }
    // Areas that were given and not freed.
    std::size_t not_freed() const { return areas_.size(); }

    // For the replaced functions.
    bool grants(std::size_t size);
    void given(void* area) { areas_.insert(area); }
    void freed(void* area) { areas_.erase(area); }

private:
    int failing_;
    std::vector<std::size_t> sizes_;
    std::set<void*> areas_;
};

// Where they were called from since this was emptied, watched or not: return addresses, those of the callers of
// allocate_area and allocate_raw_area where these are functions of their own.
std::set<void*>& allocation_sites();

}  // namespace test
