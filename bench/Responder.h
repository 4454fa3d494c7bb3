// The bare end of a transfer: every burst is acknowledged, nothing is kept or looked at.
#pragma once

#include <cstdint>

namespace velmora_bench {

constexpr std::uint16_t responderPort = 19700;

// How a transfer is cut, by the responder and by the target beside it.
struct Cut {
    static constexpr std::uint64_t packetBytes = 1424, blockPackets = 32, blocks = 8192;
};

// Answers until the process is ended. 2 where there is no socket.
int respond();

}  // namespace velmora_bench
