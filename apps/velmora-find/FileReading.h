// A file as it is sent: read whole, before the first datagram leaves.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "base/BufferCS.h"

namespace velmora_find {

// No larger one is read: no target's channel comes near it.
inline constexpr std::uint64_t largestFile = std::uint64_t{1} << 30;  // bytes

// Throws Stop for what cannot be read, for a larger file, and for one whose size is another one
// behind the reading than before. `meanwhile` runs between the two.
ZENNO::Bytes readUnchanged(const std::string& path, const std::function<void()>& meanwhile = {});

}  // namespace velmora_find
