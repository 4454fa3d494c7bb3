// What goes into a target and what comes out: it has no socket and no clock of its own.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/IPAddress.h"
#include "wire/Packet.h"

namespace velmora_target {

struct Arrival {
    std::uint64_t now = 0;    // µs, monotonic; never runs back from one call to the next
    std::uint64_t stamp = 0;  // when the datagram reached this machine, same clock; at most `now`
    std::uint16_t localPort = 0;
    ZENNO::IPAddress from{};
    VELMORA::wire::ConstBytes datagram{};
};

struct Outgoing {
    std::uint16_t localPort = 0;  // that it has to come from
    ZENNO::IPAddress to{};
    ZENNO::Bytes data;
};

struct Mail {
    std::vector<Outgoing> datagrams;
    std::vector<std::string> lines;  // events, for whoever runs the target
};

}  // namespace velmora_target
