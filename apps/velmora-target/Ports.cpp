#include "apps/velmora-target/Ports.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/Time.h"
#include "src/Network/LocalInterfaces.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_target {

namespace {

constexpr int receiveBuffer = 4 << 20;  // a stalled second of an ordinary stream fits

int descriptorOf(const ZENNO::Socket& socket) {
    return static_cast<int>(socket.handle());
}

// Sockets share ports willingly here, and then only one of them hears anything. A plain bind tells
// whether somebody has the port already.
bool isTaken(std::uint16_t number) {
    const int probe = ::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (probe < 0) return false;
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(number);
    const int on = 1;
    ::setsockopt(probe, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
    const bool taken =
        ::bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0;
    ::close(probe);
    return taken;
}

// How long ago the kernel's stamp was taken, µs.
std::uint64_t ageOf(const timespec& stamp) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const std::int64_t nanos =
        (now.tv_sec - stamp.tv_sec) * 1'000'000'000LL + now.tv_nsec - stamp.tv_nsec;
    // A step of the wall clock must not look like an hour in the queue.
    return nanos < 0 || nanos > 10'000'000'000LL ? 0 : static_cast<std::uint64_t>(nanos) / 1000;
}

}  // namespace

std::uint64_t nowMicros() noexcept {
    return static_cast<std::uint64_t>(ZENNO::platform::steadyNanos()) / 1000;
}

std::string Ports::open(const TargetSettings& settings,
                        const std::vector<std::string>& interfaces) {
    std::string failure = openPort(VELMORA::wire::ControlPort);
    for (const SinkSettings& sink : settings.sinks) {
        if (failure.empty()) failure = openPort(sink.port);
        if (failure.empty() && sink.streamPort != sink.port) failure = openPort(sink.streamPort);
    }
    if (!failure.empty()) return failure;

    wanted_ = interfaces;
    lookAround();
    for (const std::string& name : wanted_) {
        if (std::find(names_.begin(), names_.end(), name) == names_.end()) {
            return "no interface " + name + " with a link-local address";
        }
    }
    return scopes_.empty() ? "no interface has a link-local address" : std::string();
}

std::string Ports::openPort(std::uint16_t number) {
    const std::string name = "UDP port " + std::to_string(number);
    if (isTaken(number)) return name + " is taken";
    auto port = std::make_unique<Port>();
    port->number = number;
    ZENNO::IPAddress any;
    any.setPortNumber(number);
    if (!port->socket.open(ZENNO::SocketKind::udpV6) || !port->socket.bindV6(any) ||
        !port->socket.setBlocking(false)) {
        return "cannot open " + name;
    }
    const int on = 1, fd = descriptorOf(port->socket);
    ::setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    ::setsockopt(fd, IPPROTO_IPV6, IPV6_RECVPKTINFO, &on, sizeof on);
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    set_.add(port->socket.handle());
    ports_.push_back(std::move(port));
    return {};
}

bool Ports::lookAround() {
    ZENNO::LocalInterfaceMap interfaces;
    if (!ZENNO::getMyLinkLocalAddresV6(interfaces, /*keepLoopback=*/true)) return false;
    std::set<std::uint32_t> scopes;
    std::vector<std::string> names;
    for (const auto& [address, interface] : interfaces) {
        const bool isWanted = wanted_.empty() || std::find(wanted_.begin(), wanted_.end(),
                                                           interface.name) != wanted_.end();
        if (!isWanted || !scopes.insert(address.scope).second) continue;
        names.push_back(interface.name);
        // The kernel hears the group on its own; joining says that we do, to switches as well.
        if (!scopes_.contains(address.scope)) {
            ports_.front()->socket.joinV6(
                ZENNO::IPAddress::allNodes(VELMORA::wire::ControlPort, address.scope));
        }
    }
    const bool changed = scopes != scopes_;
    scopes_ = std::move(scopes);
    names_ = std::move(names);
    return changed;
}

bool Ports::wait(std::uint64_t micros) {
    first_ = (first_ + 1) % ports_.size();
    return set_.wait(static_cast<std::uint32_t>(std::min<std::uint64_t>(micros, 1'000'000))) !=
           ZENNO::waitError;
}

bool Ports::receive(Arrival& arrival) {
    // A burst comes on one port: that one is emptied first, and after each wait another.
    for (std::size_t i = 0; i < ports_.size(); ++i) {
        const std::size_t at = (first_ + i) % ports_.size();
        if (receiveOn(*ports_[at], arrival)) {
            first_ = at;
            return true;
        }
    }
    return false;
}

bool Ports::receiveOn(Port& port, Arrival& arrival) {
    for (;;) {
        sockaddr_in6 from{};
        iovec piece{buffer_.data(), buffer_.size()};
        alignas(cmsghdr) std::array<char, 256> control;
        msghdr message{};
        message.msg_name = &from;
        message.msg_namelen = sizeof from;
        message.msg_iov = &piece;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t size = ::recvmsg(descriptorOf(port.socket), &message, MSG_DONTWAIT);
        if (size < 0) return false;

        std::uint64_t age = 0;
        std::uint32_t interface = 0;
        for (cmsghdr* c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
            if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMPNS) {
                timespec stamp{};
                std::memcpy(&stamp, CMSG_DATA(c), sizeof stamp);
                age = ageOf(stamp);
            } else if (c->cmsg_level == IPPROTO_IPV6 && c->cmsg_type == IPV6_PKTINFO) {
                in6_pktinfo info{};
                std::memcpy(&info, CMSG_DATA(c), sizeof info);
                interface = info.ipi6_ifindex;
            }
        }
        // The sockets hear every interface; a target that was told which ones to serve is not there
        // on the others.
        if (!wanted_.empty() && !scopes_.contains(interface)) continue;

        arrival.now = nowMicros();
        arrival.stamp = arrival.now - std::min(age, arrival.now);
        arrival.localPort = port.number;
        std::memcpy(arrival.from.address.data(), &from.sin6_addr, 16);
        std::memcpy(arrival.from.port.data(), &from.sin6_port, 2);
        arrival.from.scope = from.sin6_scope_id;
        arrival.datagram = {buffer_.data(), static_cast<std::size_t>(size)};
        return true;
    }
}

void Ports::send(const Outgoing& datagram) {
    for (const auto& port : ports_) {
        if (port->number != datagram.localPort) continue;
        // One that does not go out is a datagram lost: hosts ask again.
        port->socket.sendDatagramTo(datagram.data, datagram.to, /*retry=*/true);
        return;
    }
}

}  // namespace velmora_target
