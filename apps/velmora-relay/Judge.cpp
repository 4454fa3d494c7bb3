#include "apps/velmora-relay/Judge.h"

#include <algorithm>

namespace velmora_relay {

Judge::Judge(Faults faults, std::uint32_t seed) : faults_(std::move(faults)) {
    for (std::size_t i = 0; i < draws; ++i) {
        std::seed_seq seeds{seed, static_cast<std::uint32_t>(i)};
        random_[i].seed(seeds);
    }
}

Fate Judge::judge(std::uint64_t now) {
    Fate fate;
    fate.isLost = isLost();
    const bool isSeen = happens(seen, faults_.corrupt);
    if (happens(unseen, faults_.corruptUnseen)) fate.corruption = Corruption::unseen;
    if (isSeen) fate.corruption = Corruption::seen;
    fate.isHeldBack = happens(holding, faults_.holdBack);
    const bool isDoubled = happens(doubling, faults_.duplicate);

    fate.due = now + delay();
    if (fate.isLost) return fate;
    if (fate.isHeldBack) {
        fate.due += faults_.heldMicros;
    } else if (faults_.keepsOrder) {
        fate.due = lastDue_ = std::max(fate.due, lastDue_);
    }
    if (isDoubled) fate.copyDue = fate.due;
    return fate;
}

bool Judge::happens(Draw draw, double perMille) {
    return std::uniform_real_distribution<double>(0, 1000)(random_[draw]) < perMille;
}

// In bursts: a chain of two states, good and losing (Gilbert, 1960). It leaves the losing one with
// 1 / mean, and enters it as often as the share over all frames needs.
bool Judge::isLost() {
    if (faults_.meanBurst <= 1) return happens(loss, faults_.lose);
    const double leaves = 1000 / faults_.meanBurst;
    const double enters = leaves * faults_.lose / std::max(1.0, 1000 - faults_.lose);
    inBurst_ = inBurst_ ? !happens(loss, leaves) : happens(loss, enters);
    return inBurst_;
}

std::uint64_t Judge::delay() {
    return std::uniform_int_distribution<std::uint64_t>(faults_.leastDelay,
                                                        faults_.mostDelay)(random_[time]);
}

bool Cuts::isDown(std::uint64_t now) const noexcept {
    if (!begun_) return false;
    const std::uint64_t passed = now - *begun_;
    return std::any_of(cuts_.begin(), cuts_.end(), [passed](const Cut& cut) {
        if (passed < cut.at) return false;
        const std::uint64_t since = passed - cut.at;
        return (cut.every == 0 ? since : since % cut.every) < cut.length;
    });
}

}  // namespace velmora_relay
