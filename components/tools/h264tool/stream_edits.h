// Copies a stream with changes.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "input.h"
#include "output_file.h"
#include "progress.h"

namespace h264tool {

// removed bytes of the input at offset are replaced by inserted ones.
struct Edit {
    std::uint64_t offset = 0;
    std::uint64_t removed = 0;
    std::span<const unsigned char> inserted;
};

// Gives the next edit, in order of offsets and without overlap; false when there is none. What inserted refers to lives
// until the next call.
using EditSource = std::function<bool(Edit& edit)>;

// Copies the input, which is Reading::kAgain, from its beginning; every byte outside the edits is copied as it is.
// Several edits may have the same offset: what they insert comes in their order. progress, when given, counts the bytes
// of the input. Throws std::system_error, or std::runtime_error when the input ends before the last edit.
void copy_with_edits(InputFile& input, OutputFile& output, const EditSource& next_edit, Progress* progress = nullptr);

}  // namespace h264tool
