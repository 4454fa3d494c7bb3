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
    std::uint64_t cut = 0;       // frames that met a link that was down
    std::uint64_t overflow = 0;  // frames for which there was no room
};

class Relay {
public:
    using Send = std::function<void(int side, std::span<const std::uint8_t> frame)>;

    Relay(const Options& options, Send send);

    // `side`, 0 or 1, is where it came in; it leaves at the other one.
    void onFrame(int side, std::span<std::uint8_t> frame, std::uint64_t now);
    void onTime(std::uint64_t now);
    std::uint64_t nextTime(std::uint64_t now) const noexcept;  // ~0: never

    // By the side where frames came in.
    const Counts& counts(int side) const noexcept {
        return counts_[static_cast<std::size_t>(side)];
    }
    std::uint64_t flooded() const noexcept { return flood_.made(); }

private:
    void pass(int side, std::span<const std::uint8_t> frame, std::uint64_t due, std::uint64_t now);

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
};

}  // namespace velmora_relay
