// Finding targets and their sinks on the local links.
//
// One Find has one unicast socket and no lock around it: one thread at a time. Only the operations
// of the target table, stopWatch(), isWatching() and close() may be called while the watch runs.
//
//   Interfaces.cpp   which interfaces, and the sockets
//   Exchange.cpp     one request and its answer
//   Sinks.cpp        the questions that one target is asked
//   Search.cpp       everybody is asked: search, reFind and the multicast passes
//   TargetTable.cpp  what is known over time
//   Watch.cpp        the thread that keeps the table up to date
//   Transfer.cpp     a buffer of bytes to a channel of a target
//   Settings.cpp     a target's own settings, its texts and its value
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
#include "find/SettingItem.h"
#include "find/TargetTable.h"
#include "find/Transfer.h"
#include "src/Network/Environment.h"

namespace VELMORA {

struct FoundTarget {
    std::uint64_t product = 0;
    std::string name;
};
using FoundMap = std::map<ZENNO::IPAddress, FoundTarget>;  // key: the control address

// What comes in from a link where nobody is trusted has bounds. No network of real targets comes
// near them; past them, what was found stands. See mostSinks too.
constexpr std::size_t mostAnswers = 1024;            // senders that one map of answers holds
constexpr std::uint32_t greetingLimit = 30'000'000;  // µs before the last of them is greeted
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

    // ---- the watch: a thread that keeps the target table up to date. After openWatch ----
    // One that still runs is ended first. std::system_error where no thread can be made.
    void startWatch();
    // At once. The thread sees it within a second while it listens and nothing comes; not before
    // the end of its first search (two minutes at most), nor while it asks targets, about a minute
    // at most for each step of a pass. close() ends it sooner.
    void stopWatch();
    void joinWatch();         // waits until the thread has ended; the owner's thread alone
    bool isWatching() const;  // false too when the socket failed: the table can still be read

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

    // ---- a buffer of bytes to a channel, counted from 0: find/Transfer.h ----
    bool Transfer(const ZENNO::IPAddress& target, int no, ZENNO::BufferCS_const data,
                  std::uint64_t limit);  // logs each block
    bool Transfer(const ZENNO::IPAddress& target, int no, ZENNO::BufferCS_const data,
                  std::uint64_t limit, const TransferProgress& progress);
    bool Transfer(const ZENNO::IPAddress& target, int no, ZENNO::BufferCS_const data,
                  std::uint64_t limit, const TransferProgress& progress, TransferFigures& figures);
    // Tells and asks how a channel stands. `status` is the target's answer when it gives true.
    bool transferStatus(const ZENNO::IPAddress& target, int no, std::uint16_t& crc,
                        std::uint16_t& status);

    // ---- a target's own settings, numbered from 1. Each step is one exchange, without a retry.
    // False: an answer was refused, missing or for another number ----
    // False leaves the items read so far in `out`. `alternative` reads the other value that a
    // target may hold beside the current one.
    bool getItems(const ZENNO::IPAddress& target, SettingList& out, bool alternative);
    bool setItem(const ZENNO::IPAddress& target, std::uint16_t no, const std::string& text,
                 std::uint16_t value);
    bool setItem(const ZENNO::IPAddress& target, std::uint16_t no, const std::string& text);
    bool setItem(const ZENNO::IPAddress& target, std::uint16_t no, std::uint16_t value);
    bool commitItems(const ZENNO::IPAddress& target, bool keep);  // keep: beyond its next start
    // `out` is empty where they give false.
    bool readInfoA(const ZENNO::IPAddress& target, std::string& out);
    bool readInfoB(const ZENNO::IPAddress& target, std::string& out);
    bool readInfoIndexed(const ZENNO::IPAddress& target, std::uint16_t index, std::string& out);
    bool writeValue(const ZENNO::IPAddress& target, bool on, std::uint16_t value);

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
    friend class Watch;
    template <class Request>
    bool readText(const ZENNO::IPAddress& target, const Request& request, std::string& out);
    bool readItem(const ZENNO::IPAddress& target, std::uint16_t no, bool alternative,
                  SettingItem& item);
    bool readChoices(const ZENNO::IPAddress& target, std::uint16_t no, const TimeLimit& limit,
                     std::size_t& choices, SettingItem& item);
    void watchTargets();
    // One request of wire/, with the answer that it names.
    template <class Request>
    int ask(const ZENNO::IPAddress& address, const Request& request, ZENNO::Bytes& answer) {
        return sendAck(address, write(request), Request::answer, answer);
    }
    bool localInterfaces(ZENNO::LocalInterfaceMap& out);
    bool receiveAnswers(std::map<ZENNO::IPAddress, ZENNO::Bytes>& acks);
    bool mayAskForSinks(const ZENNO::IPAddress& address);
    using TakeSink = std::function<void(const ZENNO::IPAddress& key, FoundSink&& sink)>;
    bool walkSinks(const ZENNO::IPAddress& address, std::uint16_t count, const TakeSink& take,
                   bool& isWhole);
    bool readSinks(const ZENNO::IPAddress& address, SinkMap& sinks, bool& isWhole);
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
