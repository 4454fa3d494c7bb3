#include "tests/support/LiveNetwork.h"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace velmora_test {

using ZENNO::Bytes;
using ZENNO::IPAddress;

LiveNetwork::LiveNetwork() = default;

void LiveNetwork::attach(const IPAddress& address, Serve serve) {
    const std::lock_guard lock(mutex_);
    peers_[address] = std::move(serve);
}

void LiveNetwork::detach(const IPAddress& address) {
    const std::lock_guard lock(mutex_);
    peers_.erase(address);
}

std::unique_ptr<ZENNO::Link> LiveNetwork::makeLink() {
    return std::make_unique<LiveLink>(*this);
}

bool LiveNetwork::localAddressesV6(ZENNO::LocalInterfaceMap& out) {
    out.clear();
    out[IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 1, 2}, 0, 3)] = {"eth0", "first adapter"};
    return true;
}

std::vector<LiveNetwork::Datagram> LiveNetwork::serve(const Bytes& data, const IPAddress& to) {
    const std::lock_guard lock(mutex_);
    const bool multicast = to.address[0] == 0xff;
    std::vector<Datagram> answers;
    for (const auto& [address, peer] : peers_) {
        const bool reached =
            multicast ? address.port == to.port && address.scope == to.scope : address == to;
        if (!reached) continue;
        for (Bytes& answer : peer(data)) answers.push_back({address, std::move(answer)});
    }
    return answers;
}

LiveLink::LiveLink(LiveNetwork& network) : network_(network) {}

LiveLink::~LiveLink() {
    LiveLink::close();
}

bool LiveLink::open(ZENNO::SocketKind) {
    const std::lock_guard lock(mailbox_.mutex);
    mailbox_.open = true;
    mailbox_.queue.clear();
    blocking_ = true;
    return true;
}

void LiveLink::close() {
    {
        const std::lock_guard lock(mailbox_.mutex);
        mailbox_.open = false;
        mailbox_.queue.clear();
    }
    mailbox_.changed.notify_all();
}

bool LiveLink::isOpen() const {
    const std::lock_guard lock(mailbox_.mutex);
    return mailbox_.open;
}

bool LiveLink::bindV6(IPAddress& address) {
    fixedScope_ = address.isLinkLocal() ? address.scope : 0;
    if (address.portNumber() == 0) {
        const std::lock_guard lock(network_.mutex_);
        address.setPortNumber(network_.nextPort_++);
    }
    return true;
}

bool LiveLink::joinV6(const IPAddress&) {
    return true;
}

bool LiveLink::setBlocking(bool on) {
    blocking_ = on;
    return true;
}

int LiveLink::waitReadable(std::uint32_t micros) {
    std::unique_lock lock(mailbox_.mutex);
    // The system clock: the one whose waits the thread sanitizer of GCC 12 follows.
    const auto end = std::chrono::system_clock::now() + std::chrono::microseconds(micros);
    mailbox_.changed.wait_until(lock, end,
                                [this] { return !mailbox_.open || !mailbox_.queue.empty(); });
    if (!mailbox_.open) return ZENNO::waitError;
    return mailbox_.queue.empty() ? ZENNO::waitTimedOut : ZENNO::waitReady;
}

bool LiveLink::receiveFrom(ZENNO::BufferCS buffer, std::uint64_t& length, IPAddress& from) {
    const std::lock_guard lock(mailbox_.mutex);
    length = 0;
    if (mailbox_.queue.empty()) return true;
    const LiveNetwork::Datagram datagram = std::move(mailbox_.queue.front());
    mailbox_.queue.pop_front();
    length = std::min<std::uint64_t>(buffer.size, datagram.data.size());
    if (length != 0) std::memcpy(buffer.data, datagram.data.data(), length);
    from = datagram.from;
    return true;
}

std::int64_t LiveLink::sendOnce(ZENNO::BufferCS_const data, const IPAddress& to, bool) noexcept {
    if (!isOpen()) {
        lastError_ = 10038;
        return -1;
    }
    auto answers = network_.serve(Bytes(data.data, data.data + data.size), to);
    if (!answers.empty()) {
        {
            const std::lock_guard lock(mailbox_.mutex);
            for (auto& answer : answers) mailbox_.queue.push_back(std::move(answer));
        }
        mailbox_.changed.notify_all();
    }
    return static_cast<std::int64_t>(data.size);
}

}  // namespace velmora_test
