// Which sinks are there, as it follows from what came and what went. The two lists of the target
// table are read one after the other, so a sink that is replaced in between stands in the list of
// new ones before its loss is told: that loss is then not told twice.
#pragma once

#include <functional>
#include <list>
#include <map>

#include "driver/TargetInfo.h"

namespace velmora_find {

class WatchedTable {
public:
    enum class Change { came, went };
    using Tell = std::function<void(Change change, const ZENNO::IPAddress& key,
                                    const VELMORA::TargetInfo& info)>;

    // What the table has handed out, the lost ones read first.
    void update(const std::list<ZENNO::IPAddress>& lost, const VELMORA::TargetMap& added,
                const Tell& tell);
    std::size_t size() const { return there_.size(); }

private:
    VELMORA::TargetMap there_;
    std::map<ZENNO::IPAddress, int> toldAhead_;  // losses that are still to come
};

}  // namespace velmora_find
