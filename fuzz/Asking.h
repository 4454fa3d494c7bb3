// A Find whose network is the fuzzer's, and what holds for everything that it asks there: a request
// ends by a datagram that came or by its time, so that nothing anybody says makes it send more than
// it hears.
#pragma once

#include <algorithm>

#include "find/Find.h"
#include "fuzz/World.h"

namespace velmora_fuzz {

constexpr std::uint16_t controlPort = 19642, notifyPort = 19643;

class Asking {
public:
    Asking(Input& input, const VELMORA::FindSetting& setting, bool twoInterfaces)
        : world(input), find(setting, world.network) {
        if (twoInterfaces) world.network.interfaces[linkLocal(0x102, 0, 4)] = {"eth1", "second"};
        require(find.open());
    }

    // `what` takes so long at the most, in simulated µs.
    template <class What>
    auto within(std::uint64_t micros, What what) {
        const std::size_t sent = world.sent();
        const std::uint64_t began = world.now();
        world.mustEndIn(micros + 1);
        const auto result = what();
        // An exchange waits for 100 ms, a pass of a search for 30 on each interface, where it asks
        // those besides that it was told of. What was said before may be heard only now.
        const std::uint64_t waits = (world.now() - began) / 30'000;
        const std::size_t each = 1 + find.extraAddresses.size();
        require(world.sent() - sent <= world.said() + (waits + 2) * each);
        return result;
    }

    World world;
    VELMORA::Find find;
};

}  // namespace velmora_fuzz
