// How punctual the host is: a burst is a run of packets up to the one that is marked as its last.
#pragma once

#include <algorithm>
#include <cstdint>

namespace velmora_target {

class BurstMeter {
public:
    void onPacket(std::uint64_t stamp, bool lastOfBurst) noexcept {
        if (atStart_) {
            if (bursts_ != 0) {
                longestGap_ = std::max(longestGap_, stamp - std::min(stamp, previous_));
                const std::uint64_t cycle = stamp - std::min(stamp, begun_);
                cycle_ = bursts_ == 1 ? cycle : (7 * cycle_ + cycle) / 8;
            }
            begun_ = stamp;
        }
        previous_ = stamp;
        atStart_ = lastOfBurst;
        if (lastOfBurst) ++bursts_;
    }

    std::uint64_t bursts() const noexcept { return bursts_; }
    std::uint64_t longestGap() const noexcept { return longestGap_; }  // µs, end to beginning
    std::uint64_t cycle() const noexcept { return cycle_; }  // µs, beginning to beginning, smoothed

private:
    bool atStart_ = true;  // the next packet opens a burst
    std::uint64_t bursts_ = 0, previous_ = 0, begun_ = 0, longestGap_ = 0, cycle_ = 0;
};

}  // namespace velmora_target
