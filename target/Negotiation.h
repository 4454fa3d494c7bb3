// What is answered on a sink's port before a stream starts, and what a host has said there that the
// stream will need.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/IPAddress.h"
#include "target/Settings.h"
#include "wire/Packet.h"

namespace velmora_target {

class Negotiation {
public:
    explicit Negotiation(const TargetSettings& settings) : settings_(settings) {}

    // The answer to a message of negotiation; nothing for what is none. CONNECT_REQ and what comes
    // after it are the sink's.
    std::optional<ZENNO::Bytes> answer(const VELMORA::wire::PacketView& packet,
                                       const ZENNO::IPAddress& from);

    // What a host asked for ahead of its CONNECT_REQ.
    struct Prelude {
        ZENNO::IPAddress host{};
        std::uint16_t latency = 0;  // granted, 100 µs
        std::string name;           // as shownText has it
        std::uint64_t productId = 0;
    };
    // Handed out once; of a host that said nothing, with the latency that is given unasked.
    Prelude takePrelude(const ZENNO::IPAddress& host);

private:
    std::uint16_t grant(std::uint16_t wanted) const noexcept;
    Prelude& preludeOf(const ZENNO::IPAddress& host);

    const TargetSettings& settings_;
    std::vector<Prelude> preludes_;  // the newest last; hosts that never connect are forgotten
};

}  // namespace velmora_target
