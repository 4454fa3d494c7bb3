// What a target is: everything that its answers and its playout are made from. Read-only once the
// target stands.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "target/FormatMasks.h"

namespace velmora_target {

struct SinkSettings {
    std::string name;
    std::uint16_t port = 0;        // negotiation; discovery names it
    std::uint16_t streamPort = 0;  // audio; CONNECT_ANS names it. May be the same
    std::uint16_t version = 1;     // of the sink's protocol
};

struct TargetSettings {
    std::string name;
    std::uint64_t productID = 0;
    std::string configText;  // empty: CONFIG_REQ is refused
    std::vector<SinkSettings> sinks;

    FormatMasks formats;
    std::uint16_t latency = 200;   // that a host without a wish gets, 100 µs
    std::uint16_t hwLatency = 10;  // 100 µs
    std::uint16_t mtu = 1500;
    std::uint16_t maxBurst = 15000;                                         // bytes
    std::uint16_t minCycle10 = 100, maxCycle10 = 500, profileFlags = 0x0c;  // 10 µs, 10 µs
    bool phaseInvert = false;                                               // asked of the host

    std::optional<std::uint64_t> bufferMicros;  // playout's aim; else the latency granted
    double clockPpm = 0;                        // own clock against nominal
    int feedbackEncoding = 1;                   // 1, 2 or 3
    std::uint64_t silenceLimit = 5'000'000;     // µs without a packet that end a stream

    // Misbehaviour, for trying what a host makes of it.
    std::set<std::uint16_t> silent;   // answers to these messages are lost
    std::set<std::uint16_t> refused;  // these messages are refused
    double dropPercent = 0;           // of the STREAM_DATA that comes
    std::uint32_t seed = 1;
};

// Latencies that are granted; a wish outside is brought inside. 100 µs each.
constexpr std::uint16_t leastLatency = 5, mostLatency = 20000;

}  // namespace velmora_target
