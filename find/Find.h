// Finding targets and their sinks on the local links.
//
// One Find has one unicast socket and no lock around it: one thread at a time. Only the operations
// of the target table and close() may be called while the watch runs.
//
//   Interfaces.cpp   which interfaces, and the sockets
//   Exchange.cpp     one request and its answer
//   Sinks.cpp        the questions that one target is asked
//   Search.cpp       everybody is asked: search, reFind and the multicast passes
//   TargetTable.cpp  what is known over time
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "base/IPAddress.h"
#include "driver/TargetInfo.h"
#include "find/Exchange.h"
#include "find/ProductFilter.h"
#include "find/TargetTable.h"
#include "src/Network/Environment.h"

namespace VELMORA {

struct FoundTarget {
    std::uint64_t product = 0;
    std::string name;
};
using FoundMap = std::map<ZENNO::IPAddress, FoundTarget>;  // key: the control address

// What comes in from a link where nobody is trusted has bounds. No network of real targets comes
// near them; past them, what was found stands.
constexpr std::size_t mostAnswers = 1024;            // senders that one map of answers holds
constexpr std::size_t mostSinks = 65536;             // in the map that a search fills, about
constexpr std::uint32_t sinkWalkLimit = 30'000'000;  // µs for all sinks of one target
constexpr std::uint32_t searchLimit = 120'000'000;   // µs before the last target is begun

class Find {
public:
    static constexpr std::uint64_t refusedProduct = VELMORA::refusedProduct;

    Find(const FindSetting& setting, ZENNO::Environment& environment);
    ~Find();
    Find(const Find&) = delete;
    Find& operator=(const Find&) = delete;

    // ---- sockets and interfaces. False: not open ----
    // An empty list keeps the list of an earlier open; no list at all means every link-local
    // interface. An entry of scope 0 is dropped.
    bool open(const std::list<ZENNO::IPAddress>& interfaces);
    bool open();
    bool open(const ZENNO::IPAddress& interface);    // by one of its addresses; none: as open()
    bool open(std::uint16_t interfaceNumber);        // 0: as open()
    bool open(const std::list<std::string>& names);  // by friendly name, byte for byte
    std::list<ZENNO::IPAddress> getInterfaces();     // in use, read fresh
    bool openWatch();  // the socket that NOTIFY comes to; empties the target table
    void close();      // the unicast socket, and the watch if it runs

    // ---- asking everybody ----
    // False is a failure of the socket (or an answered NOPBREAK_REQ); `out` is then of no use.
    // Nobody there is true and an empty map.
    bool search(TargetMap& out);
    // One sink at an address whose interface is not known. True with an empty outAddress when it
    // did not answer; `info` is then as it was.
    bool reFind(const ZENNO::IPAddress& address, std::uint16_t sinkNo, ZENNO::IPAddress& outAddress,
                TargetInfo& info);
    bool findMulti(FoundMap& found, std::uint8_t mode);  // adds to `found`
    bool sendMulti(const ZENNO::Bytes& message, std::map<ZENNO::IPAddress, ZENNO::Bytes>& acks);

    // ---- asking one target ----
    bool ping(const ZENNO::IPAddress& address);
    bool hello(const ZENNO::IPAddress& address);
    bool getSinkCount(const ZENNO::IPAddress& address, std::uint16_t& count, std::uint16_t& second);
    bool getSink(const ZENNO::IPAddress& address, std::uint16_t sinkNo, ZENNO::IPAddress& out,
                 std::uint16_t& version, std::string& name);
    bool getSinks(const ZENNO::IPAddress& address, SinkMap& sinks);  // adds to `sinks`
    bool identify(const ZENNO::IPAddress& address, std::uint64_t& product, std::string& name);
    std::uint64_t filterProduct(std::uint64_t id);

    // ---- the target table: any thread, but for addTarget, which asks the target ----
    bool addTarget(const ZENNO::IPAddress& address, std::uint64_t product, const std::string& name);
    void removeTarget(const ZENNO::IPAddress& address);
    void takeAdded(TargetMap& out);
    void takeLost(std::list<ZENNO::IPAddress>& out);
    void eraseTarget(const ZENNO::IPAddress& key);
    std::uint64_t targetCount();

    int sendAck(const ZENNO::IPAddress& dest, const ZENNO::Bytes& message, std::uint32_t answerId,
                ZENNO::Bytes& answer);

    // Also asked by sendMulti, by unicast, once an interface, at the port that each one holds.
    // Assigned after open.
    std::list<ZENNO::IPAddress> extraAddresses;

private:
    // One request of wire/, with the answer that it names.
    template <class Request>
    int ask(const ZENNO::IPAddress& address, const Request& request, ZENNO::Bytes& answer) {
        return sendAck(address, write(request), Request::answer, answer);
    }
    bool localInterfaces(ZENNO::LocalInterfaceMap& out);
    bool receiveAnswers(std::map<ZENNO::IPAddress, ZENNO::Bytes>& acks);
    bool mayAskForSinks(const ZENNO::IPAddress& address);
    using TakeSink = std::function<void(const ZENNO::IPAddress& key, FoundSink&& sink)>;
    bool walkSinks(const ZENNO::IPAddress& address, std::uint16_t count, const TakeSink& take);
    bool askConfig(const ZENNO::IPAddress& address, bool& answered, std::string& text);
    bool searchTarget(const ZENNO::IPAddress& address, const FoundTarget& target, TargetMap& out);

    const FindSetting setting_;
    ZENNO::Environment& environment_;
    std::list<ZENNO::IPAddress> interfaces_;     // fixed; empty means all link-local ones
    std::unique_ptr<ZENNO::Link> socket_;        // unicast: all requests and answers
    std::unique_ptr<ZENNO::Link> notifySocket_;  // NOTIFY alone; the watch reads it
    TargetTable table_;
    // The watch may go on. Written by the owner's thread and, at its end, by the watch; read by
    // both.
    std::atomic<bool> running_{false};
    std::thread watch_;
};

}  // namespace VELMORA
