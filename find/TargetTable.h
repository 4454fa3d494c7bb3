// What is known of the targets over time: the sinks that are there, and which of them came and went
// since somebody asked.
//
// Any thread: the watch writes while the user reads. One mutex guards everything, and nothing that
// waits runs under it.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <mutex>
#include <string>

#include "base/IPAddress.h"
#include "driver/TargetInfo.h"

namespace VELMORA {

struct FoundSink {
    std::uint16_t sinkNo = 0;
    std::uint16_t version = 0;
    std::string name;
};
using SinkMap = std::map<ZENNO::IPAddress, FoundSink>;  // key: the sink's address

constexpr std::size_t mostSinks = 65536;  // in one map of sinks, and in each list of keys

class TargetTable {
public:
    // Brings the entries of the target at `address` up to date with the sinks that it has now. One
    // call takes out at most one vanished sink; several go over several calls. Entries that stay
    // are not refreshed. With `isWhole` false there may be more sinks than these: none is taken
    // out.
    void update(const ZENNO::IPAddress& address, std::uint64_t product, const std::string& name,
                const SinkMap& sinks, bool isWhole = true);
    void remove(const ZENNO::IPAddress& address);  // all sinks of that target
    void takeAdded(TargetMap& out);                // those of them that are still there
    void takeLost(std::list<ZENNO::IPAddress>& out);
    void erase(const ZENNO::IPAddress& key);  // without a word in the list of lost ones
    std::uint64_t size() const;
    void clear();

private:
    TargetMap::iterator lose(TargetMap::iterator entry, const char* log);

    mutable std::mutex mutex_;  // guards all below
    TargetMap targets_;
    // Not yet handed out. Where nobody asks, the oldest give way.
    std::list<ZENNO::IPAddress> lost_;   // keys taken out
    std::list<ZENNO::IPAddress> added_;  // keys put in
};

}  // namespace VELMORA
