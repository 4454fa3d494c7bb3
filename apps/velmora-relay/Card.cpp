#include "apps/velmora-relay/Card.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace velmora_relay {

namespace {

constexpr int buffered = 8 << 20;  // bytes; some seconds of an ordinary stream

}  // namespace

Card::~Card() {
    if (socket_ >= 0) ::close(socket_);
}

std::string Card::open(const std::string& name) {
    const unsigned number = ::if_nametoindex(name.c_str());
    if (number == 0) return "there is no interface " + name;
    socket_ = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket_ < 0) return std::string("no raw socket: ") + std::strerror(errno);

    const int on = 1;
    // Or each frame would come back to us as we send it.
    ::setsockopt(socket_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on);
    ::setsockopt(socket_, SOL_SOCKET, SO_RCVBUFFORCE, &buffered, sizeof buffered);
    packet_mreq all{};
    all.mr_ifindex = static_cast<int>(number);
    all.mr_type = PACKET_MR_PROMISC;
    ::setsockopt(socket_, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &all, sizeof all);
    // Bound last: with the protocol frames begin to come.
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(number);
    if (::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return "cannot use " + name + ": " + std::strerror(errno);
    }
    return {};
}

Card::Received Card::receive(std::span<std::uint8_t> buffer, std::span<std::uint8_t>& frame) {
    for (;;) {
        const ssize_t size = ::recv(socket_, buffer.data(), buffer.size(), MSG_TRUNC);
        if (size < 0) {
            if (errno == EINTR) continue;
            return errno == EAGAIN ? Received::none : Received::gone;
        }
        if (static_cast<std::size_t>(size) > buffer.size()) continue;
        frame = buffer.first(static_cast<std::size_t>(size));
        return Received::frame;
    }
}

bool Card::send(std::span<const std::uint8_t> frame) {
    return ::send(socket_, frame.data(), frame.size(), 0) == static_cast<ssize_t>(frame.size());
}

}  // namespace velmora_relay
