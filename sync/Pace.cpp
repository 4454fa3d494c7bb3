#include "sync/Pace.h"

#include <algorithm>

namespace VELMORA {

using ZENNO::hasReached;

Pace::Turn Pace::onTurn(std::uint32_t now, std::uint32_t cycle, const TransferProfile& row,
                        std::uint16_t most, std::mt19937& random) {
    Turn turn;
    std::uint32_t step = cycle;
    // A cycle equal to cycleMin leaves nothing to draw: it is paced as plain Fix.
    if (row.mode == modeRandom && cycle != row.cycleMin && hasReached(cycle, row.cycleMin)) {
        const auto drawn = static_cast<std::uint32_t>(random());
        step = cycle - drawn % (cycle - row.cycleMin + 1);
        turn.factor = static_cast<float>(step) / static_cast<float>(cycle);
    }
    deadline_ += step;

    if (!hasReached(now, deadline_)) {
        if (overTimeScore_ > 0) overTimeScore_ -= 1;
    } else {
        turn.overTime = true;
        turn.late = now - deadline_ + cycle;
        deadline_ = now + cycle;
        owe(turn.late);
        if (overTimeScore_ < 1000) overTimeScore_ += 10;
    }
    turn.lateDebt = lateDebt_;
    turn.burst = burstSize(cycle, row.packetCount, most);
    return turn;
}

std::uint32_t Pace::burstSize(std::uint32_t cycle, std::uint16_t count,
                              std::uint16_t most) noexcept {
    if (!hasReached(lateDebt_, cycle)) return count;
    // Never fewer than the row asks for: a row may have more packets than the target's limit, and a
    // burst below its count would never make up for anything.
    const std::uint32_t burst =
        std::max<std::uint32_t>(count, std::min<std::uint32_t>(2u * count, most));
    if (burst > count) {
        const auto pay = static_cast<std::uint32_t>(std::uint64_t{burst - count} * cycle / count);
        lateDebt_ = hasReached(lateDebt_, pay) ? lateDebt_ - pay : 0;
    }
    return burst;
}

}  // namespace VELMORA
