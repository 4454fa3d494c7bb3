// What the dissector has to show of a datagram, worked out by this tree's own decoder.
#pragma once

#include <cstdint>
#include <optional>

#include "tests/dissector/Tshark.h"
#include "wire/Packet.h"

namespace velmora_test {

// What the request of an answer told: some answers are read by what was asked for.
struct Asked {
    std::optional<std::uint16_t> number;  // +8 of the request
    std::string supportFamily;            // what SUPPORT_REQ asked for, in words
    std::optional<std::uint16_t> probeSum;
    bool isSignedItem = false;
    std::string streamFormat;            // what CONNECT_REQ asked for, in words
    std::uint32_t streamFrameBytes = 0;  // 0: not known
};

// The fields of the datagram itself: header, message, payload, filler, surplus. Nothing of what the
// dissector finds out by looking at several datagrams.
Fields expectedFields(const VELMORA::wire::PacketView& packet, const Asked& asked);
// The same of what is shown, to be compared with that.
Fields ownFields(const Shown& shown);

}  // namespace velmora_test
