// When a datagram came, by the kernel's own stamp (CLOCK_REALTIME, ns).
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <span>

namespace velmora_bench {

inline void stampArrivals(int socket) {
    const int on = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
}

inline std::int64_t nanosOf(const timespec& time) noexcept {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

inline std::int64_t clockNanos(clockid_t clock) noexcept {
    timespec now{};
    ::clock_gettime(clock, &now);
    return nanosOf(now);
}

// By how much the clock of the stamps is ahead of the monotonic one: the tightest of some readings,
// since a thread may lose its processor between two.
inline std::int64_t stampOffsetNanos() noexcept {
    std::int64_t offset = 0, tightest = INT64_MAX;
    for (int i = 0; i < 16; ++i) {
        const std::int64_t before = clockNanos(CLOCK_MONOTONIC);
        const std::int64_t stamp = clockNanos(CLOCK_REALTIME);
        const std::int64_t after = clockNanos(CLOCK_MONOTONIC);
        if (after - before >= tightest) continue;
        tightest = after - before;
        offset = stamp - before - (after - before) / 2;
    }
    return offset;
}

// Without waiting; as recvmsg answers.
inline ssize_t receiveStamped(int socket, std::span<std::uint8_t> buffer, sockaddr_in6& from,
                              std::int64_t& stamp) {
    std::array<char, 256> control{};
    iovec piece{buffer.data(), buffer.size()};
    msghdr message{};
    message.msg_name = &from;
    message.msg_namelen = sizeof from;
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t n = ::recvmsg(socket, &message, MSG_DONTWAIT);
    stamp = 0;
    if (n < 0) return n;
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
         part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_TIMESTAMPNS) continue;
        timespec time{};
        std::memcpy(&time, CMSG_DATA(part), sizeof time);
        stamp = nanosOf(time);
    }
    return n;
}

}  // namespace velmora_bench
