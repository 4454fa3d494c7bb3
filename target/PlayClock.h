// How many frames a device plays by a given time: nominal rate times (1 + deviation).
#pragma once

#include <cstdint>
#include <optional>

namespace velmora_target {

// A deviation that comes and goes, as with the warmth of a quartz: a sine that begins with 0 and
// reaches `ppm` to either side.
struct ClockDrift {
    double ppm = 0;
    double seconds = 1;  // there and back; more than 0
};

class PlayClock {
public:
    PlayClock(double framesPerSecond, double ppm, ClockDrift drift = {})
        : rate_(framesPerSecond), ppm_(ppm), drift_(drift) {}

    // No frame is due yet. The drift begins with the first start and goes on through later ones.
    void start(std::uint64_t now);
    std::uint64_t framesDue(std::uint64_t now) const;  // since start
    double deviation(std::uint64_t now) const;         // with the drift, ppm

private:
    double driftPhase(std::uint64_t now) const;
    double driftFrames(std::uint64_t now) const;

    double rate_, ppm_;
    ClockDrift drift_;
    std::optional<std::uint64_t> began_;
    std::uint64_t since_ = 0;  // the newest start
};

}  // namespace velmora_target
