// What the command `watch` reads while the watch runs, and its loop. A test puts a script in the
// watch's place.
#pragma once

#include <list>

#include "apps/velmora-find/Context.h"
#include "apps/velmora-find/Links.h"
#include "apps/velmora-find/Options.h"
#include "driver/TargetInfo.h"

namespace velmora_find {

class Watching {
public:
    virtual ~Watching() = default;
    virtual bool isWatching() = 0;
    virtual void takeLost(std::list<ZENNO::IPAddress>& out) = 0;
    virtual void takeAdded(VELMORA::TargetMap& out) = 0;
};

// A line for each change until the seconds are over, the user interrupts, or the watch ends by
// itself. Gives the exit code.
int follow(Context& context, const Options& options, Watching& watch);

}  // namespace velmora_find
