// Work areas on the heap.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace h264 {

struct FreeArea {
    void operator()(unsigned char* area) const { std::free(area); }
};
using HeapArea = std::unique_ptr<unsigned char, FreeArea>;

// An area of zeros; null when there is no memory.
inline HeapArea allocate_area(std::size_t bytes) {
    return HeapArea(static_cast<unsigned char*>(std::calloc(1, bytes)));
}

// An area whose bytes may be anything; null when there is no memory. For what is large and of which little is used.
inline HeapArea allocate_raw_area(std::size_t bytes) {
    return HeapArea(static_cast<unsigned char*>(std::malloc(bytes)));
}

}  // namespace h264
