// When to ask for missing packets again, and from where.
//
// The host answers a request by sending everything from the first wanted packet to its newest once
// more, and meanwhile no new audio: requests are worth being sparing with. It keeps about a second
// of packets and ends the stream when asked for more, so that a hole is given up long before that.
#pragma once

#include <cstdint>
#include <optional>

#include "target/PacketQueue.h"

namespace velmora_target {

class ResendRequests {
public:
    struct Request {
        std::uint16_t from = 0;  // oldest sequence wanted
        std::uint16_t last = 0;  // newest one that is missing
    };

    // How long a packet has been missing, at least, when it is asked for; µs, both. What has just
    // been overtaken may yet come by itself, and what is too old the host may no longer have.
    struct Ages {
        std::uint64_t youngest = 0, oldest = 400'000;
    };
    ResendRequests() = default;
    explicit ResendRequests(Ages ages) : ages_(ages) {}

    static constexpr std::uint64_t leastSpacing = 3'000;  // between any two requests
    static constexpr std::uint64_t repeatAfter = 5'000;   // or two bursts, if that is longer

    // A request that is to go out now, or none. Marks the holes as asked for.
    std::optional<Request> due(PacketQueue& queue, std::uint64_t burstMicros, std::uint64_t now);
    // When `due` may next have something to say; ~0 if not before another packet comes.
    std::uint64_t nextTime(const PacketQueue& queue, std::uint64_t burstMicros,
                           std::uint64_t now) const;
    std::uint64_t sent() const noexcept { return sent_; }

private:
    std::uint64_t earliest(const PacketQueue::Hole& first, const PacketQueue& queue,
                           std::uint64_t burstMicros) const;
    const Ages ages_{};
    std::uint64_t lastRequest_ = 0, sent_ = 0;
};

}  // namespace velmora_target
