// How a file that is written comes to outlast a loss of power.
#pragma once

#include <cstdio>
#include <functional>

namespace velmora_target {

// Brings all that was written to the medium; false, with errno, when it could not. The target knows
// no such thing: whoever runs it hands it over.
using WriteThrough = std::function<bool(std::FILE*)>;

// No further than to the system.
inline bool flushed(std::FILE* file) {
    return std::fflush(file) == 0;
}

}  // namespace velmora_target
