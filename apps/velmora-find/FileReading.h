// A file as it is sent: read whole, before the first datagram leaves.
#pragma once

#include <functional>
#include <string>

#include "base/BufferCS.h"

namespace velmora_find {

// Throws Stop for what cannot be read, and for a file whose size is another one behind the reading
// than before. `meanwhile` runs between the two.
ZENNO::Bytes readUnchanged(const std::string& path, const std::function<void()>& meanwhile = {});

}  // namespace velmora_find
