#include "bench/Receiver.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <ctime>
#include <stdexcept>

#include "bench/Space.h"
#include "bench/Stamp.h"
#include "wire/StreamMessage.h"

namespace velmora_bench {
namespace {

namespace wire = VELMORA::wire;

int openSocket(const std::string& space, sockaddr_in6& local) {
    if (!space.empty()) enterSpace(space);
    const int socket = ::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket < 0) throw std::runtime_error("no socket");
    stampArrivals(socket);
    const int room = 8 << 20;
    ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    ::setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
    local.sin6_family = AF_INET6;
    local.sin6_addr = in6addr_loopback;
    if (!space.empty()) local = linkLocalAddress();
    if (::bind(socket, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
        throw std::runtime_error("no port for the receiver");
    }
    socklen_t length = sizeof local;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&local), &length);
    return socket;
}

class Server {
public:
    Server(int socket, std::uint16_t port) : socket_(socket), port_(port) {
        seen.burstNanos.reserve(1 << 16);
    }
    Reception seen;

    // Until there is none.
    void takeAll() {
        while (takeOne()) {
        }
    }

private:
    bool takeOne() {
        sockaddr_in6 from{};
        std::int64_t stamp = 0;
        const ssize_t n = receiveStamped(socket_, buffer_, from, stamp);
        if (n <= 0) return false;
        take(n, from, stamp);
        return true;
    }
    void take(ssize_t n, const sockaddr_in6& from, std::int64_t stamp) {
        const auto packet = wire::readPacket({buffer_.data(), static_cast<std::size_t>(n)});
        if (!packet) return;
        switch (packet->id()) {
            case wire::STREAM_DATA::id:
                ++seen.datagrams;
                if (first_) seen.burstNanos.push_back(stamp);
                first_ = (packet->flags() & wire::STREAM_DATA::lastOfBurst) != 0;
                if ((packet->flags() & wire::STREAM_DATA::asksInfo) != 0) {
                    answer(wire::write(wire::INFO_ANS{}), from);
                }
                break;
            case wire::CONNECT_REQ::id: {
                wire::CONNECT_ANS connected;
                connected.streamPort = port_;
                answer(wire::write(connected), from);
                break;
            }
            case wire::DSICONNECT_REQ::id:
                answer(wire::write(wire::DSICONNECT_ANS{}), from);
                break;
            default:
                break;
        }
    }
    void answer(const ZENNO::Bytes& bytes, const sockaddr_in6& to) const {
        ::sendto(socket_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                 sizeof to);
    }

    int socket_;
    std::uint16_t port_;
    bool first_ = true;
    std::array<std::uint8_t, 4096> buffer_{};
};

void serve(const std::string& space, int order, int result) {
    sockaddr_in6 local{};
    const int socket = openSocket(space, local);
    tell(result, local);
    Server server(socket, ntohs(local.sin6_port));
    // It looks now and then and does not wait for datagrams: waking it would be paid by whoever
    // sends, now for each datagram and now for each burst, as it happens to have slept. The times
    // are the kernel's.
    constexpr int rest = 2;  // ms
    pollfd waited{order, POLLIN, 0};
    while (::poll(&waited, 1, rest) == 0) server.takeAll();
    server.takeAll();
    tell(result, server.seen.datagrams);
    tell(result, server.seen.burstNanos);
}

}  // namespace

Receiver::Receiver(const std::string& space)
    : child_([&](int order, int result) { serve(space, order, result); }),
      address_(child_.hear<sockaddr_in6>()) {
    if (!space.empty()) address_.sin6_scope_id = linkLocalAddress().sin6_scope_id;
}

ZENNO::IPAddress Receiver::ipAddress() const {
    ZENNO::IPAddress address{};
    std::memcpy(address.address.data(), &address_.sin6_addr, sizeof address_.sin6_addr);
    address.setPortNumber(ntohs(address_.sin6_port));
    address.scope = address_.sin6_scope_id;
    return address;
}

Reception Receiver::finish() {
    child_.askToEnd();
    Reception seen;
    seen.datagrams = child_.hear<std::uint64_t>();
    seen.burstNanos = child_.hearMany<std::int64_t>();
    return seen;
}

}  // namespace velmora_bench
