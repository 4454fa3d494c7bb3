// What a target is: everything that its answers and its playout are made from. Once the target
// stands, only settings that a host commits change it (target/Items.h), and the formats go with the
// output.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "target/FormatMasks.h"
#include "target/Misbehaviour.h"
#include "target/PlayClock.h"

namespace velmora_target {

struct SinkSettings {
    std::string name;
    std::uint16_t port = 0;        // negotiation; discovery names it
    std::uint16_t streamPort = 0;  // audio; CONNECT_ANS names it. May be the same
    std::uint16_t version = 1;     // of the sink's protocol
};

// How a channel wants what is transferred to it cut.
struct ChannelSettings {
    std::uint32_t packetBytes = 1024, blockPackets = 64, blocks = 4096;  // each from 1
    std::uint64_t capacity() const noexcept {
        return std::uint64_t{packetBytes} * blockPackets * blocks;
    }
};

struct TargetSettings {
    std::string name;
    std::string release;  // of the program; empty if it is not to be told
    std::uint64_t productID = 0;
    std::string configText;  // empty: CONFIG_REQ is refused
    std::vector<SinkSettings> sinks;

    FormatMasks formats;
    std::uint16_t latency = 200;             // that a host without a wish gets, 100 µs
    std::optional<std::uint16_t> hwLatency;  // 100 µs; else that of the output in force
    std::uint16_t deviceLatency = 400;       // of a sound device, 100 µs
    std::uint16_t mtu = 1500;
    std::uint16_t maxBurst = 15000;                                         // bytes
    std::uint16_t minCycle10 = 100, maxCycle10 = 500, profileFlags = 0x0c;  // 10 µs, 10 µs
    bool phaseInvert = false;                                               // asked of the host

    std::optional<std::uint64_t> bufferMicros;       // playout's aim; else the latency granted
    double clockPpm = 0;                             // own clock against nominal
    ClockDrift clockDrift{};                         // and what comes and goes of that
    int feedbackEncoding = 1;                        // 1, 2 or 3
    std::uint64_t silenceLimit = 5'000'000;          // µs without a packet that end a stream
    std::uint64_t askAfter = 0, askUntil = 400'000;  // µs that a packet is missing, to ask for it
    std::string output = "none";                     // as target/OutputChoice.h has it
    std::string outputFolder;  // of the files that hosts name; empty: they name none

    bool announces = true;                  // NOTIFY
    std::vector<ChannelSettings> channels;  // none: transfers are refused
    std::uint16_t burstLimit = 65535;       // bytes in a burst; 65535: no limit

    // Misbehaviour, for trying what a host makes of it.
    std::set<std::uint16_t> silent;               // answers to these messages are lost
    std::set<std::uint16_t> refused;              // these messages are refused
    double dropPercent = 0;                       // of the STREAM_DATA that comes
    std::map<std::uint16_t, double> lost;         // percent of these messages, as they come
    std::map<std::uint16_t, double> lostAnswers;  // percent of the answers to these
    std::uint16_t endStatus = 65535;              // told at the end of a whole transfer
    Manners manners;                              // done wrong at these messages
    std::uint32_t seed = 1;
};

// Whether one of these is to be lost now. What has no share draws no number, so that a seed gives
// the same losses whatever else is asked for.
inline bool isLost(const std::map<std::uint16_t, double>& shares, std::uint16_t id,
                   std::mt19937& random) {
    const auto share = shares.find(id);
    return share != shares.end() &&
           std::uniform_real_distribution<double>(0, 100)(random) < share->second;
}

// Latencies that are granted; a wish outside is brought inside. 100 µs each.
constexpr std::uint16_t leastLatency = 5, mostLatency = 20000;

}  // namespace velmora_target
