#include "find/TargetTable.h"

#include <utility>

#include "base/LogLine.h"

namespace VELMORA {
namespace {

bool isPresent(const TargetMap::value_type& entry, const SinkMap& sinks) {
    const auto sink = sinks.find(entry.first);
    return sink != sinks.end() && sink->second.sinkNo == entry.second.sinkNo &&
           sink->second.version == entry.second.version;
}

void note(std::list<ZENNO::IPAddress>& keys, const ZENNO::IPAddress& key) {
    if (keys.size() == mostSinks) keys.pop_front();
    keys.push_back(key);
}

}  // namespace

TargetMap::iterator TargetTable::lose(TargetMap::iterator entry, const char* log) {
    ZENNO::LogLine(6) << log << entry->second.targetName << " " << entry->second.sinkNo;
    note(lost_, entry->first);
    return targets_.erase(entry);
}

void TargetTable::update(const ZENNO::IPAddress& address, std::uint64_t product,
                         const std::string& name, const SinkMap& sinks, bool isWhole) {
    const std::lock_guard lock(mutex_);
    for (auto entry = targets_.begin(); isWhole && entry != targets_.end(); ++entry) {
        if (entry->second.findAddress != address || isPresent(*entry, sinks)) continue;
        lose(entry, "del Target: ");
        break;
    }
    for (const auto& [key, sink] : sinks) {
        if (targets_.size() == mostSinks && !targets_.contains(key)) continue;
        const auto [entry, isNew] = targets_.try_emplace(key);
        if (!isNew) continue;
        TargetInfo& info = entry->second;
        info.productID = product;
        info.sinkNo = sink.sinkNo;
        info.version = sink.version;
        info.targetName = name;
        info.findAddress = address;
        info.sinkName = sink.name;
        note(added_, key);
        ZENNO::LogLine(6) << "add Target: " << info.targetName << " " << info.sinkNo;
    }
}

void TargetTable::remove(const ZENNO::IPAddress& address) {
    const std::lock_guard lock(mutex_);
    for (auto entry = targets_.begin(); entry != targets_.end();) {
        if (entry->second.findAddress == address) {
            entry = lose(entry, "rem Target: ");
        } else {
            ++entry;
        }
    }
}

void TargetTable::takeAdded(TargetMap& out) {
    out.clear();
    const std::lock_guard lock(mutex_);
    for (const ZENNO::IPAddress& key : added_) {
        const auto entry = targets_.find(key);
        if (entry != targets_.end()) out.insert(*entry);
    }
    added_.clear();
}

void TargetTable::takeLost(std::list<ZENNO::IPAddress>& out) {
    out.clear();
    const std::lock_guard lock(mutex_);
    lost_.swap(out);
}

void TargetTable::erase(const ZENNO::IPAddress& key) {
    const std::lock_guard lock(mutex_);
    targets_.erase(key);
}

std::uint64_t TargetTable::size() const {
    const std::lock_guard lock(mutex_);
    return targets_.size();
}

void TargetTable::clear() {
    const std::lock_guard lock(mutex_);
    targets_.clear();
    lost_.clear();
    added_.clear();
}

}  // namespace VELMORA
