// The port at which the driver's log is heard.
#pragma once

#include <cstdint>
#include <string>

#include "src/Network/Link.h"

namespace velmora_log {

inline constexpr std::uint16_t logPort = 19640;

enum class PortAnswer {
    open,
    noSocket,  // on ::1; this system goes without IPv6, as far as can be told
    noRight,   // to this port
    taken,     // links share their ports, and of two on one only one would hear anything
};

// Opens `link` and ties it to `address`, one of ::1; port 0 is any that is free, and stands in
// `address` then.
PortAnswer openLogPort(ZENNO::Link& link, ZENNO::IPAddress& address);

// What is wrong where it is not open, and what helps, as a sentence.
std::string whyNotHeard(PortAnswer answer, std::uint16_t port);

}  // namespace velmora_log
