// What a frame goes through between two interfaces. It has neither: whoever runs it hands over what
// came in, and sends what comes out. That is what lets hours of a bad link run in a test.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>

#include "apps/velmora-relay/DelayQueue.h"
#include "apps/velmora-relay/Flood.h"
#include "apps/velmora-relay/Judge.h"
#include "apps/velmora-relay/Options.h"

namespace velmora_relay {

struct Counts {
    std::uint64_t frames = 0;     // that came
    std::uint64_t datagrams = 0;  // UDP among them
    std::uint64_t acted = 0;      // datagrams that faults could act on
    std::uint64_t actedBytes = 0;
    std::uint64_t lost = 0, doubled = 0, heldBack = 0, corrupted = 0, corruptedUnseen = 0;
    std::uint64_t delayed = 0;   // those held back among them
    std::uint64_t cut = 0;       // frames that met a link that was down
    std::uint64_t overflow = 0;  // frames for which there was no room
};

class Relay {
public:
    // False: it could not be sent.
    using Send = std::function<bool(int side, std::span<const std::uint8_t> frame)>;

    Relay(const Options& options, Send send);

    // `side`, 0 or 1, is where it came in; it leaves at the other one.
    void onFrame(int side, std::span<std::uint8_t> frame, std::uint64_t now);
    void onTime(std::uint64_t now);
    std::uint64_t nextTime(std::uint64_t now) const noexcept;  // ~0: never

    // By the side where frames came in.
    const Counts& counts(int side) const noexcept {
        return counts_[static_cast<std::size_t>(side)];
    }
    // Datagrams of the flood that were sent, and how long it was from the first to the last, µs.
    std::uint64_t flooded() const noexcept { return flooded_; }
    std::uint64_t floodMicros() const noexcept { return lastFlood_ - firstFlood_; }

private:
    void pass(int side, std::span<const std::uint8_t> frame, std::uint64_t due, std::uint64_t now);
    void flood(std::uint64_t now);

    const std::size_t above_;
    const bool thenAll_;
    bool largerCame_ = false;
    const std::array<bool, 2> acts_;
    Send send_;
    std::array<Judge, 2> judges_;
    Cuts cuts_;
    Flood flood_;
    DelayQueue queue_;
    std::array<Counts, 2> counts_;
    std::uint64_t flooded_ = 0, firstFlood_ = 0, lastFlood_ = 0;
};

}  // namespace velmora_relay
