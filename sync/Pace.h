// When the next burst is due and how many packets it has; never reads a clock.
//
// A late turn starts its cycle afresh, and what it was late by is owed to the target: the debt is
// paid with bursts of up to twice the size. Times are u32 µs and wrap.
#pragma once

#include <cstdint>
#include <random>

#include "base/Clock.h"
#include "sync/TransferProfile.h"

namespace VELMORA {

class Pace {
public:
    // `catchUp`: lateness is owed. Without, it is forgotten, but still counts as over time.
    Pace(std::uint32_t now, std::uint32_t cycle, bool catchUp) noexcept
        : deadline_(now - cycle / 2), catchUp_(catchUp) {}

    bool isDue(std::uint32_t now) const noexcept { return ZENNO::hasReached(now, deadline_); }
    std::uint32_t remaining(std::uint32_t now) const noexcept { return deadline_ - now; }

    struct Turn {
        float factor = 1.0f;         // of the cycle: below 1 where it was drawn shorter
        bool overTime = false;       // the next deadline had passed as well
        std::uint32_t late = 0;      // µs, when over time
        std::uint32_t lateDebt = 0;  // µs, as it stood before this turn paid of it
        std::uint32_t burst = 0;     // packets to send
    };
    // A turn at `now`: sets the next deadline. `cycle` is the present one, `row` the profile in
    // use, `most` the largest burst allowed.
    Turn onTurn(std::uint32_t now, std::uint32_t cycle, const TransferProfile& row,
                std::uint16_t most, std::mt19937& random);

    // Packets that go out beside the stream's own have to be made room for.
    void owe(std::uint32_t micros) noexcept {
        if (catchUp_) lateDebt_ += micros;
    }

    std::uint32_t deadline() const noexcept { return deadline_; }
    std::uint32_t lateDebt() const noexcept { return lateDebt_; }
    // 10 up for a late turn, 1 down for a timely one: more than one late in eleven makes it climb.
    std::int32_t overTimeScore() const noexcept { return overTimeScore_; }

private:
    std::uint32_t burstSize(std::uint32_t cycle, std::uint16_t count, std::uint16_t most) noexcept;

    std::uint32_t deadline_;
    std::uint32_t lateDebt_ = 0;
    std::int32_t overTimeScore_ = 0;
    bool catchUp_;
};

}  // namespace VELMORA
