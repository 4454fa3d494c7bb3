// How many frames a device plays by a given time: nominal rate times (1 + deviation).
#pragma once

#include <cstdint>

namespace velmora_target {

class PlayClock {
public:
    PlayClock(double framesPerSecond, double ppm) : rate_(framesPerSecond), ppm_(ppm) {}

    void start(std::uint64_t now);  // no frame is due yet
    // Adds to the deviation from `now` on.
    void setCorrection(std::uint64_t now, double ppm);
    std::uint64_t framesDue(std::uint64_t now) const;  // since start

private:
    double exactFrames(std::uint64_t now) const;

    double rate_, ppm_, correction_ = 0;
    std::uint64_t since_ = 0;  // last change of the rate
    double framesThen_ = 0;    // due at that time
};

}  // namespace velmora_target
