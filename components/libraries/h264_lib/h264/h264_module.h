// What the files of the h264 module share.
#pragma once

#include "trace.h"

// The name under which this module's messages are reported.
static constexpr char kModuleFile[] = "h264.c";
