// A network in memory, on a FakeClock, for one thread: links of the host on one side, peers
// (targets) on the other, and between them a fate for every datagram: delivered, lost, doubled,
// delayed, cut.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "src/Network/Environment.h"
#include "tests/support/FakeClock.h"

namespace velmora_test {

using ZENNO::Bytes;
using ZENNO::IPAddress;

struct Datagram {
    std::uint64_t time = 0;  // of sending, FakeClock::time
    IPAddress from{}, to{};
    bool toPeer = false;  // host to target
    Bytes data;
};

// What becomes of one datagram. Several entries double it; none loses it.
struct Arrival {
    std::uint64_t delay = 0;           // µs on the way
    std::optional<std::size_t> cutTo;  // bytes that are left
};
using Fate = std::vector<Arrival>;

class FakeNetwork;

// The other side of a conversation. `to` tells whether it came by multicast; answers go by
// FakeNetwork::send.
class Peer {
public:
    virtual ~Peer() = default;
    virtual void onDatagram(FakeNetwork& network, const Datagram& datagram) = 0;
};

class FakeLink;

class FakeNetwork final : public ZENNO::Environment {
public:
    FakeNetwork();
    ~FakeNetwork() override;

    FakeClock time;
    ZENNO::LocalInterfaceMap
        interfaces;               // what the host has; one fe80::1:2 on scope 3 ("eth0") at first
    bool interfacesFail = false;  // localAddressesV6 answers false
    std::function<Fate(const Datagram&)> fate;  // unset: everything arrives after `delay`
    std::uint64_t delay = 50;                   // µs
    std::vector<Datagram> sent;                 // everything ever sent, both ways, lost or not

    // Faults of the host's own links, in force while set.
    bool openFails = false, bindFails = false, joinFails = false, waitFails = false,
         receiveFails = false;
    std::int32_t sendError = 0;  // every send fails with this error
    int sendFullTimes = 0;  // so many sends find the buffer full (10035) on a non-blocking link

    // A peer answers at `address` (port and scope included); multicast to its port on its scope
    // reaches it as well. Detached by nullptr.
    void attach(const IPAddress& address, Peer* peer);
    // A datagram of a peer's to a host link; found by port (and group, for multicast).
    void send(const IPAddress& from, const IPAddress& to, Bytes data);
    void clearSent() { sent.clear(); }
    int openLinks() const;

    // Environment
    ZENNO::Clock& clock() noexcept override { return time; }
    std::unique_ptr<ZENNO::Link> makeLink() override;
    bool localAddressesV6(ZENNO::LocalInterfaceMap& out) override;

private:
    friend class FakeLink;
    void fromHost(const FakeLink& link, ZENNO::BufferCS_const data, const IPAddress& to);
    void book(const Datagram& datagram, const std::function<void(const Datagram&)>& arrive);
    std::uint16_t nextPort_ = 50000;
    std::vector<FakeLink*> links_;
    std::map<IPAddress, Peer*> peers_;
};

class FakeLink final : public ZENNO::Link {
public:
    explicit FakeLink(FakeNetwork& network);
    ~FakeLink() override;
    bool open(ZENNO::SocketKind kind) override;
    void close() override;
    bool isOpen() const override { return open_; }
    bool bindV6(IPAddress& address) override;
    bool joinV6(const IPAddress& group) override;
    bool setBlocking(bool on) override;
    int waitReadable(std::uint32_t micros) override;
    bool receiveFrom(ZENNO::BufferCS buffer, std::uint64_t& length, IPAddress& from) override;
    using Link::receiveFrom;
    std::int64_t sendOnce(ZENNO::BufferCS_const data, const IPAddress& to, bool) noexcept override;

    int modeSwitches = 0;         // calls of setBlocking
    std::size_t room = SIZE_MAX;  // datagrams that can lie here unread; more are lost
    std::size_t unread() const { return queue_.size(); }

private:
    friend class FakeNetwork;
    FakeNetwork& network_;
    bool open_ = false;
    IPAddress local_{};
    std::vector<IPAddress> groups_;
    std::deque<Datagram> queue_;
};

}  // namespace velmora_test
