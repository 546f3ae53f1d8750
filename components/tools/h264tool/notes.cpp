#include "notes.h"

#include <cstdio>

namespace h264tool {
namespace {

bool wants_quiet = false;

}  // namespace

void set_quiet(bool quiet) { wants_quiet = quiet; }

bool is_quiet() { return wants_quiet; }

void note(const std::string& name, const std::string& text) {
    if (!wants_quiet) std::fprintf(stderr, "h264tool: %s: %s\n", name.c_str(), text.c_str());
}

}  // namespace h264tool
