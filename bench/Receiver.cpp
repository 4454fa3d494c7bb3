#include "bench/Receiver.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <ctime>
#include <stdexcept>

#include "wire/StreamMessage.h"

namespace velmora_bench {
namespace {

void check(bool good, const char* what) {
    if (!good) throw std::runtime_error(what);
}

std::int64_t stampOf(const msghdr& message) {
    for (const cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
         part = CMSG_NXTHDR(const_cast<msghdr*>(&message), const_cast<cmsghdr*>(part))) {
        if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_TIMESTAMPNS) {
            timespec time{};
            std::memcpy(&time, CMSG_DATA(part), sizeof time);
            return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
        }
    }
    return 0;
}

void writeAll(int to, const void* data, std::size_t size) {
    const auto* at = static_cast<const char*>(data);
    while (size != 0) {
        const ssize_t n = write(to, at, size);
        if (n <= 0) _exit(1);
        at += n;
        size -= static_cast<std::size_t>(n);
    }
}

bool readAll(int from, void* data, std::size_t size) {
    auto* at = static_cast<char*>(data);
    while (size != 0) {
        const ssize_t n = read(from, at, size);
        if (n <= 0) return false;
        at += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

Receiver::Receiver() {
    const int socket = ::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    check(socket >= 0, "no socket");
    const int on = 1, room = 8 << 20;
    setsockopt(socket, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    sockaddr_in6 local{};
    local.sin6_family = AF_INET6;
    local.sin6_addr = in6addr_loopback;
    check(bind(socket, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0,
          "no port on ::1");
    socklen_t length = sizeof local;
    getsockname(socket, reinterpret_cast<sockaddr*>(&local), &length);
    address_ = ZENNO::IPAddress::loopbackV6(ntohs(local.sin6_port));

    std::array<int, 2> order{}, result{};
    check(pipe(order.data()) == 0 && pipe(result.data()) == 0, "no pipe");
    process_ = fork();
    check(process_ >= 0, "no process");
    if (process_ == 0) {
        close(order[1]);
        close(result[0]);
        serve(socket, order[0], result[1]);
    }
    close(socket);
    close(order[0]);
    close(result[1]);
    order_ = order[1];
    result_ = result[0];
}

void Receiver::serve(int socket, int order, int result) {
    namespace wire = VELMORA::wire;
    Reception seen;
    seen.burstNanos.reserve(1 << 16);
    bool first = true;
    std::array<std::uint8_t, 4096> buffer{};
    std::array<pollfd, 2> waited = {{{socket, POLLIN, 0}, {order, POLLIN, 0}}};
    for (;;) {
        poll(waited.data(), waited.size(), -1);
        if ((waited[1].revents & (POLLIN | POLLHUP)) != 0) break;
        sockaddr_in6 from{};
        std::array<char, 256> control{};
        iovec piece{buffer.data(), buffer.size()};
        msghdr message{};
        message.msg_name = &from;
        message.msg_namelen = sizeof from;
        message.msg_iov = &piece;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t n = recvmsg(socket, &message, MSG_DONTWAIT);
        if (n <= 0) continue;
        const auto packet = wire::readPacket({buffer.data(), static_cast<std::size_t>(n)});
        if (!packet) continue;
        const auto answer = [&](const ZENNO::Bytes& bytes) {
            sendto(socket, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&from),
                   sizeof from);
        };
        switch (packet->id()) {
            case wire::STREAM_DATA::id:
                ++seen.datagrams;
                if (first) seen.burstNanos.push_back(stampOf(message));
                first = (packet->flags() & wire::STREAM_DATA::lastOfBurst) != 0;
                if ((packet->flags() & wire::STREAM_DATA::asksInfo) != 0)
                    answer(wire::write(wire::INFO_ANS{}));
                break;
            case wire::CONNECT_REQ::id: {
                wire::CONNECT_ANS connected;
                connected.streamPort = address_.portNumber();
                answer(wire::write(connected));
                break;
            }
            case wire::DSICONNECT_REQ::id:
                answer(wire::write(wire::DSICONNECT_ANS{}));
                break;
            default:
                break;
        }
    }
    const std::uint64_t count = seen.burstNanos.size();
    writeAll(result, &seen.datagrams, sizeof seen.datagrams);
    writeAll(result, &count, sizeof count);
    writeAll(result, seen.burstNanos.data(), count * sizeof(std::int64_t));
    _exit(0);
}

Reception Receiver::finish() {
    Reception seen;
    close(order_);
    order_ = -1;
    std::uint64_t count = 0;
    check(readAll(result_, &seen.datagrams, sizeof seen.datagrams) &&
              readAll(result_, &count, sizeof count),
          "the receiver ended early");
    seen.burstNanos.resize(count);
    check(readAll(result_, seen.burstNanos.data(), count * sizeof(std::int64_t)),
          "the receiver ended early");
    close(result_);
    result_ = -1;
    waitpid(process_, nullptr, 0);
    process_ = -1;
    return seen;
}

Receiver::~Receiver() {
    if (order_ >= 0) close(order_);
    if (result_ >= 0) close(result_);
    if (process_ > 0) waitpid(process_, nullptr, 0);
}

}  // namespace velmora_bench
