// Datagrams that a host never asked for, at the port from which it was last heard: so many a
// second, so many in all. What they are made of is drawn from a seed.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "apps/velmora-relay/Frame.h"

namespace velmora_relay {

enum class FloodKind {
    foreign,    // sound, from an address or a port that the host never spoke to
    malformed,  // from the right one, and no packet at all
    noise,      // from the right one, sound, and no message that exists
    targets,    // each pretends to be one more target that answers a search
};

class Flood {
public:
    struct Settings {
        std::vector<FloodKind> kinds;  // in turn; none: no flood
        std::uint32_t perSecond = 0;
        std::uint64_t most = 0;
    };

    Flood(Settings settings, std::uint32_t seed) : settings_(std::move(settings)), random_(seed) {}

    // Where the host was heard last; the time runs from the first.
    void onHost(const Flow& fromHost, std::uint64_t now);
    // How many are due; the caller makes so many. Never more than a tenth of a second's at once.
    std::uint64_t due(std::uint64_t now);
    ZENNO::Bytes make();
    std::uint64_t made() const noexcept { return made_; }
    std::uint64_t nextDue(std::uint64_t now) const noexcept;  // ~0: never

private:
    bool isOver() const noexcept { return settings_.kinds.empty() || made_ >= settings_.most; }
    std::uint64_t planned(std::uint64_t now) const noexcept {
        return (now - begun_) * settings_.perSecond / 1'000'000;
    }

    const Settings settings_;
    std::mt19937 random_;
    bool knowsHost_ = false;
    Flow toHost_;
    std::uint64_t begun_ = 0, skipped_ = 0, made_ = 0;
};

}  // namespace velmora_relay
