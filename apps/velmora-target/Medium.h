// Files that are to outlast a loss of power.
#pragma once

#include <cstdio>

namespace velmora_target {

// Waits until all that was written to the file is on the medium; false, with errno, when that
// failed. A file that has no medium (a pipe, a device) is through once it is flushed.
bool writeThrough(std::FILE* file);

}  // namespace velmora_target
