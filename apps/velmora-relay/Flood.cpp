#include "apps/velmora-relay/Flood.h"

#include <algorithm>

namespace velmora_relay {

namespace {

constexpr std::uint16_t infoAnswer = 11, findAnswer = 1, noMessage = 99;

// A sound header without payload, as every message of the protocol begins.
ZENNO::Bytes header(std::uint16_t id, std::uint16_t flags) {
    ZENNO::Bytes packet(16);
    packet[0] = 100;
    packet[2] = 16;
    packet[4] = static_cast<std::uint8_t>(id);
    packet[5] = static_cast<std::uint8_t>(id >> 8);
    packet[6] = static_cast<std::uint8_t>(flags);
    return packet;
}

}  // namespace

void Flood::onHost(const Flow& fromHost, std::uint64_t now) {
    if (!knowsHost_) begun_ = now;
    knowsHost_ = true;
    toHost_ = fromHost.reversed();
    if (fromHost.isToGroup()) {
        // Nobody sends from a group's address.
        toHost_.from = {0xfe, 0x80};
        toHost_.from[15] = 1;
        toHost_.fromCard = {2, 0, 0, 0, 0, 1};
    }
}

std::uint64_t Flood::due(std::uint64_t now) {
    if (!knowsHost_ || isOver()) return 0;
    const std::uint64_t atOnce = std::max<std::uint64_t>(1, settings_.perSecond / 10);
    std::uint64_t behind = planned(now) - std::min(planned(now), made_ + skipped_);
    if (behind > atOnce) {
        skipped_ += behind - atOnce;  // a relay that was away does not make up for it
        behind = atOnce;
    }
    return std::min(behind, settings_.most - made_);
}

std::uint64_t Flood::nextDue(std::uint64_t now) const noexcept {
    // A millisecond's worth at a time.
    return knowsHost_ && !isOver() ? now + 1000 : ~0ull;
}

ZENNO::Bytes Flood::make() {
    Flow flow = toHost_;
    ZENNO::Bytes payload;
    switch (settings_.kinds[made_++ % settings_.kinds.size()]) {
        case FloodKind::foreign:
            // It asks for everything to be sent again.
            payload = header(infoAnswer, 0x09);
            if (random_() % 2 == 0) {
                flow.fromPort = static_cast<std::uint16_t>(flow.fromPort + 1 + random_() % 1000);
            } else {
                flow.from[14] = static_cast<std::uint8_t>(flow.from[14] ^ (1 + random_() % 255));
            }
            break;
        case FloodKind::malformed:
            payload.resize(random_() % 64);
            for (std::uint8_t& byte : payload) byte = static_cast<std::uint8_t>(random_());
            // Every other one looks like a packet, and claims more than there is.
            if (payload.size() >= 16 && random_() % 2 == 0) {
                payload[0] = 100;
                payload[1] = 0;
                payload[3] = 0xff;
            }
            break;
        case FloodKind::noise:
            payload = header(noMessage, 1);
            break;
        case FloodKind::targets:
            payload = header(findAnswer, 1);
            for (std::size_t i = 8; i < 16; ++i)
                payload[i] = static_cast<std::uint8_t>("KORVENTE"[i - 8]);
            for (std::size_t i = 8; i < 16; ++i)
                flow.from[i] = static_cast<std::uint8_t>(random_());
            flow.fromPort = 19642;
            break;
    }
    return makeFrame(flow, payload);
}

}  // namespace velmora_relay
