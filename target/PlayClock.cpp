#include "target/PlayClock.h"

#include <cmath>

namespace velmora_target {

void PlayClock::start(std::uint64_t now) {
    since_ = now;
    framesThen_ = 0;
}

void PlayClock::setCorrection(std::uint64_t now, double ppm) {
    if (ppm == correction_) return;
    framesThen_ = exactFrames(now);
    since_ = now;
    correction_ = ppm;
}

std::uint64_t PlayClock::framesDue(std::uint64_t now) const {
    return static_cast<std::uint64_t>(std::floor(exactFrames(now)));
}

double PlayClock::exactFrames(std::uint64_t now) const {
    const double rate = rate_ * (1 + (ppm_ + correction_) * 1e-6);
    return framesThen_ + static_cast<double>(now - since_) * rate / 1e6;
}

}  // namespace velmora_target
