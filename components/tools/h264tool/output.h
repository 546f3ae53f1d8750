// Standard output, checked.
#pragma once

#include <string_view>

#include "progress.h"

namespace h264tool {

class Output {
public:
    // The progress display, which must outlive this, makes room whenever output goes to a terminal.
    explicit Output(Progress& progress);

    // Both throw std::system_error; its code is EPIPE when the reader of a pipe has gone.
    void write(std::string_view text);
    // Writes out what is buffered. Without this call a full disk goes unnoticed.
    void flush();

private:
    Progress& progress_;
    bool terminal_;
};

}  // namespace h264tool
