#include "apps/velmora-find/WatchedTable.h"

namespace velmora_find {

void WatchedTable::update(const std::list<ZENNO::IPAddress>& lost, const VELMORA::TargetMap& added,
                          const Tell& tell) {
    for (const ZENNO::IPAddress& key : lost) {
        if (const auto ahead = toldAhead_.find(key); ahead != toldAhead_.end()) {
            if (--ahead->second == 0) toldAhead_.erase(ahead);
            continue;
        }
        const auto sink = there_.find(key);
        if (sink == there_.end()) continue;  // came and went unseen
        tell(Change::went, key, sink->second);
        there_.erase(sink);
    }
    for (const auto& [key, info] : added) {
        if (const auto sink = there_.find(key); sink != there_.end()) {
            tell(Change::went, key, sink->second);
            ++toldAhead_[key];
        }
        there_[key] = info;
        tell(Change::came, key, info);
    }
}

}  // namespace velmora_find
