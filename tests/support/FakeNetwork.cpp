#include "tests/support/FakeNetwork.h"

#include <algorithm>
#include <cstring>

namespace velmora_test {

FakeNetwork::FakeNetwork() {
    interfaces[IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 1, 2}, 0, 3)] = {"eth0", "first adapter"};
}

FakeNetwork::~FakeNetwork() = default;

void FakeNetwork::attach(const IPAddress& address, Peer* peer) {
    if (peer == nullptr) {
        peers_.erase(address);
    } else {
        peers_[address] = peer;
    }
}

int FakeNetwork::openLinks() const {
    return static_cast<int>(
        std::count_if(links_.begin(), links_.end(), [](const FakeLink* l) { return l->open_; }));
}

std::unique_ptr<ZENNO::Link> FakeNetwork::makeLink() {
    return std::make_unique<FakeLink>(*this);
}

bool FakeNetwork::localAddressesV6(ZENNO::LocalInterfaceMap& out) {
    out.clear();
    if (interfacesFail) return false;
    out = interfaces;
    return true;
}

void FakeNetwork::book(const Datagram& datagram,
                       const std::function<void(const Datagram&)>& arrive) {
    sent.push_back(datagram);
    const Fate arrivals = fate ? fate(datagram) : Fate{{delay, std::nullopt}};
    for (const Arrival& arrival : arrivals) {
        Datagram copy = datagram;
        if (arrival.cutTo && *arrival.cutTo < copy.data.size()) copy.data.resize(*arrival.cutTo);
        time.in(arrival.delay, [copy = std::move(copy), arrive] { arrive(copy); });
    }
}

void FakeNetwork::fromHost(const FakeLink& link, ZENNO::BufferCS_const data, const IPAddress& to) {
    Datagram datagram;
    datagram.time = time.time();
    datagram.toPeer = true;
    datagram.to = to;
    datagram.data.assign(data.data, data.data + data.size);
    // The sender is the host's own address on that interface, with the link's port.
    for (const auto& [address, names] : interfaces) {
        if (address.scope == to.scope && address.isLinkLocal()) {
            datagram.from = address;
            break;
        }
    }
    datagram.from.scope = to.scope;
    datagram.from.port = link.local_.port;
    book(datagram, [this](const Datagram& arrived) {
        const bool multicast = arrived.to.address[0] == 0xff;
        std::vector<IPAddress> reached;
        for (const auto& [address, peer] : peers_) {
            const bool same =
                multicast ? address.port == arrived.to.port && address.scope == arrived.to.scope
                          : address == arrived.to;
            if (same) reached.push_back(address);
        }
        // One that hears it may take another off the network.
        for (const IPAddress& address : reached) {
            const auto found = peers_.find(address);
            if (found != peers_.end()) found->second->onDatagram(*this, arrived);
        }
    });
}

void FakeNetwork::send(const IPAddress& from, const IPAddress& to, Bytes data) {
    Datagram datagram;
    datagram.time = time.time();
    datagram.from = from;
    datagram.to = to;
    datagram.data = std::move(data);
    book(datagram, [this](const Datagram& arrived) {
        for (FakeLink* link : links_) {
            if (!link->open_ || link->local_.port != arrived.to.port) continue;
            if (arrived.to.address[0] == 0xff) {
                const bool member = std::any_of(link->groups_.begin(), link->groups_.end(),
                                                [&](const IPAddress& group) {
                                                    return group.address == arrived.to.address &&
                                                           group.scope == arrived.from.scope;
                                                });
                if (!member) continue;
            }
            if (link->queue_.size() < link->room) link->queue_.push_back(arrived);
        }
    });
}

FakeLink::FakeLink(FakeNetwork& network) : network_(network) {
    network_.links_.push_back(this);
}

FakeLink::~FakeLink() {
    std::erase(network_.links_, this);
}

bool FakeLink::open(ZENNO::SocketKind) {
    close();
    open_ = !network_.openFails;
    blocking_ = true;
    return open_;
}

void FakeLink::close() {
    open_ = false;
    queue_.clear();
    groups_.clear();
}

bool FakeLink::bindV6(IPAddress& address) {
    fixedScope_ =
        address.isLinkLocal() || (address.isLoopback() && address.scope != 0) ? address.scope : 0;
    if (!open_ || network_.bindFails) {
        lastError_ = open_ ? 10048 : 10038;
        return false;
    }
    if (address.portNumber() == 0) address.setPortNumber(network_.nextPort_++);
    local_ = address;
    return true;
}

bool FakeLink::joinV6(const IPAddress& group) {
    if (!open_ || network_.joinFails) return false;
    groups_.push_back(group);
    return true;
}

bool FakeLink::setBlocking(bool on) {
    ++modeSwitches;
    if (!open_) return false;
    blocking_ = on;
    return true;
}

int FakeLink::waitReadable(std::uint32_t micros) {
    FakeClock& time = network_.time;
    const std::uint64_t end = time.time() + micros;
    for (;;) {
        if (!open_ || network_.waitFails) return ZENNO::waitError;
        if (!queue_.empty()) return ZENNO::waitReady;
        if (time.nextEvent() > end) break;
        time.advanceTo(time.nextEvent());
    }
    time.advanceTo(end);
    if (!open_ || network_.waitFails) return ZENNO::waitError;
    return queue_.empty() ? ZENNO::waitTimedOut : ZENNO::waitReady;
}

bool FakeLink::receiveFrom(ZENNO::BufferCS buffer, std::uint64_t& length, IPAddress& from) {
    length = 0;
    if (network_.receiveFails) return false;
    if (queue_.empty()) return true;
    const Datagram datagram = std::move(queue_.front());
    queue_.pop_front();
    length = std::min<std::uint64_t>(buffer.size, datagram.data.size());
    if (length != 0) std::memcpy(buffer.data, datagram.data.data(), length);
    from = datagram.from;
    return true;
}

std::int64_t FakeLink::sendOnce(ZENNO::BufferCS_const data, const IPAddress& to, bool) noexcept {
    if (!open_) {
        lastError_ = 10038;
        return -1;
    }
    if (network_.sendError != 0) {
        lastError_ = network_.sendError;
        return -1;
    }
    if (network_.sendFullTimes > 0 && !blocking_) {
        --network_.sendFullTimes;
        lastError_ = ZENNO::errorWouldBlock;
        return -1;
    }
    network_.fromHost(*this, data, to);
    return static_cast<std::int64_t>(data.size);
}

}  // namespace velmora_test
