// The port at which the driver's log is heard.
#pragma once

#include <cstdint>

#include "src/Network/Link.h"

namespace velmora_log {

inline constexpr std::uint16_t logPort = 19640;

// Opens `link` and ties it to `address`, one of ::1; port 0 is any that is free, and stands in
// `address` then. False where somebody holds the port already: links share their ports, and of two
// on one only one would hear anything.
bool openLogPort(ZENNO::Link& link, ZENNO::IPAddress& address);

}  // namespace velmora_log
