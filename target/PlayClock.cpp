#include "target/PlayClock.h"

#include <cmath>
#include <numbers>

namespace velmora_target {

void PlayClock::start(std::uint64_t now) {
    if (!began_) began_ = now;
    since_ = now;
}

std::uint64_t PlayClock::framesDue(std::uint64_t now) const {
    const double rate = rate_ * (1 + ppm_ * 1e-6);
    return static_cast<std::uint64_t>(std::floor(static_cast<double>(now - since_) * rate / 1e6 +
                                                 driftFrames(now) - driftFrames(since_)));
}

double PlayClock::deviation(std::uint64_t now) const {
    return ppm_ + drift_.ppm * std::sin(driftPhase(now));
}

double PlayClock::driftPhase(std::uint64_t now) const {
    const double seconds = began_ ? static_cast<double>(now - *began_) / 1e6 : 0;
    return 2 * std::numbers::pi * seconds / drift_.seconds;
}

// The integral of the drift since it began.
double PlayClock::driftFrames(std::uint64_t now) const {
    if (drift_.ppm == 0) return 0;
    const double most = rate_ * drift_.ppm * 1e-6 * drift_.seconds / (2 * std::numbers::pi);
    return most * (1 - std::cos(driftPhase(now)));
}

}  // namespace velmora_target
