// A network in memory in real time, for any number of threads: what a driver with its workers
// running stands on. A datagram to a peer is served at once, on the sender's thread; its answers
// lie in the link's queue when the send returns.
//
// Use it where real threads meet. Where time matters, FakeNetwork moves it by hand.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "src/Network/Environment.h"

namespace velmora_test {

class LiveLink;

class LiveNetwork final : public ZENNO::Environment {
public:
    // One interface, fe80::1:2 on scope 3.
    LiveNetwork();

    // What a peer answers to one datagram. Calls come one at a time.
    using Serve = std::function<std::vector<ZENNO::Bytes>(const ZENNO::Bytes& datagram)>;
    // Answers at `address`, port and scope included, and to multicast at its port and scope.
    void attach(const ZENNO::IPAddress& address, Serve serve);
    void detach(const ZENNO::IPAddress& address);

    ZENNO::Clock& clock() noexcept override { return ZENNO::systemClock(); }
    std::unique_ptr<ZENNO::Link> makeLink() override;
    bool localAddressesV6(ZENNO::LocalInterfaceMap& out) override;

private:
    friend class LiveLink;
    struct Datagram {
        ZENNO::IPAddress from{};
        ZENNO::Bytes data;
    };
    struct Mailbox {
        mutable std::mutex mutex;
        std::condition_variable changed;
        bool open = false;
        std::deque<Datagram> queue;
    };

    std::vector<Datagram> serve(const ZENNO::Bytes& data, const ZENNO::IPAddress& to);

    std::mutex mutex_;  // over the two below, and held while a peer serves
    std::map<ZENNO::IPAddress, Serve> peers_;
    std::uint16_t nextPort_ = 50000;
};

class LiveLink final : public ZENNO::Link {
public:
    explicit LiveLink(LiveNetwork& network);
    ~LiveLink() override;
    bool open(ZENNO::SocketKind kind) override;
    void close() override;
    bool isOpen() const override;
    bool bindV6(ZENNO::IPAddress& address) override;
    bool joinV6(const ZENNO::IPAddress& group) override;
    bool setBlocking(bool on) override;
    int waitReadable(std::uint32_t micros) override;
    bool receiveFrom(ZENNO::BufferCS buffer, std::uint64_t& length,
                     ZENNO::IPAddress& from) override;
    using Link::receiveFrom;
    std::int64_t sendOnce(ZENNO::BufferCS_const data, const ZENNO::IPAddress& to,
                          bool) noexcept override;

private:
    LiveNetwork& network_;
    LiveNetwork::Mailbox mailbox_;
};

}  // namespace velmora_test
