#include "platform/Net.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

namespace ZENNO::platform {

namespace {

int descriptor(std::uint64_t handle) noexcept {
    return handle == noSocket ? -1 : static_cast<int>(handle);
}

struct ErrorPair {
    int posix;
    std::int32_t windows;
};
constexpr ErrorPair errorPairs[] = {
    {EAGAIN, 10035},        {ENOBUFS, 10055},      {EINTR, 10004},        {EBADF, 10038},
    {ENOTSOCK, 10038},      {EACCES, 10013},       {EPERM, 10013},        {EFAULT, 10014},
    {EINVAL, 10022},        {EMFILE, 10024},       {EDESTADDRREQ, 10039}, {EMSGSIZE, 10040},
    {ENOPROTOOPT, 10042},   {EOPNOTSUPP, 10045},   {EAFNOSUPPORT, 10047}, {EADDRINUSE, 10048},
    {EADDRNOTAVAIL, 10049}, {ENETDOWN, 10050},     {ENETUNREACH, 10051},  {ECONNABORTED, 10053},
    {ECONNRESET, 10054},    {EISCONN, 10056},      {ENOTCONN, 10057},     {EPIPE, 10058},
    {ETIMEDOUT, 10060},     {ECONNREFUSED, 10061}, {EHOSTUNREACH, 10065},
};

std::int32_t lastNetError() noexcept {
    for (const ErrorPair& pair : errorPairs) {
        if (pair.posix == errno) return pair.windows;
    }
    return errno;
}

std::int32_t errorOf(int result) noexcept {
    return result == 0 ? 0 : lastNetError();
}

int familyOf(int family) noexcept {
    return family == familyV4 ? AF_INET : family == familyV6 ? AF_INET6 : AF_UNSPEC;
}

int typeOf(int type) noexcept {
    return type == typeStream ? SOCK_STREAM : type == typeDatagram ? SOCK_DGRAM : 0;
}

union SocketAddress {
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
};

socklen_t fill(SocketAddress& out, int family, const Endpoint& endpoint) noexcept {
    std::memset(&out, 0, sizeof out);
    if (family == familyV4) {
        out.v4.sin_family = AF_INET;
        std::memcpy(&out.v4.sin_port, endpoint.port.data(), 2);
        std::memcpy(&out.v4.sin_addr, endpoint.address.data() + 12, 4);
        return sizeof out.v4;
    }
    out.v6.sin6_family = AF_INET6;
    std::memcpy(&out.v6.sin6_port, endpoint.port.data(), 2);
    std::memcpy(&out.v6.sin6_addr, endpoint.address.data(), 16);
    out.v6.sin6_scope_id = endpoint.scope;
    return sizeof out.v6;
}

// False for an address of neither family, such as the none of a peer that is gone.
bool take(const SocketAddress& in, Endpoint& endpoint) noexcept {
    if (in.any.sa_family == AF_INET) {
        endpoint = {};
        endpoint.address[10] = endpoint.address[11] = 0xff;
        std::memcpy(endpoint.address.data() + 12, &in.v4.sin_addr, 4);
        std::memcpy(endpoint.port.data(), &in.v4.sin_port, 2);
        return true;
    }
    if (in.any.sa_family == AF_INET6) {
        std::memcpy(endpoint.address.data(), &in.v6.sin6_addr, 16);
        std::memcpy(endpoint.port.data(), &in.v6.sin6_port, 2);
        endpoint.scope = in.v6.sin6_scope_id;
        return true;
    }
    return false;
}

bool set(std::uint64_t handle, int level, int name, const void* value, std::size_t size) noexcept {
    return setsockopt(descriptor(handle), level, name, value, static_cast<socklen_t>(size)) == 0;
}

// What a signal cuts short is done again: there is no such thing on Windows, and no caller knows
// it.
template <class Call>
auto unbroken(Call call) noexcept {
    for (;;) {
        const auto result = call();
        if (result != -1 || errno != EINTR) return result;
    }
}

constexpr int waitFlag(bool mayBlock) noexcept {
    return mayBlock ? 0 : MSG_DONTWAIT;
}

constexpr std::int64_t nanosPerSecond = 1'000'000'000;

std::int64_t steadyNow() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * nanosPerSecond + now.tv_nsec;
}

}  // namespace

NetworkStart startNetwork() noexcept {
    return NetworkStart::ready;  // always there; SIGPIPE is kept away call by call
}

std::uint64_t openSocket(int family, int type) noexcept {
    const int fd = socket(familyOf(family), typeOf(type) | SOCK_CLOEXEC, 0);
    return fd < 0 ? noSocket : static_cast<std::uint64_t>(fd);
}

void closeSocket(std::uint64_t handle) noexcept {
    close(descriptor(handle));
}

bool shutdownSocket(std::uint64_t handle) noexcept {
    return shutdown(descriptor(handle), SHUT_RDWR) == 0;
}

bool wakeWaiters(std::uint64_t handle) noexcept {
    // close() wakes nobody: a thread inside poll or recvfrom holds the open file and sleeps on.
    // shutdown() wakes them all, also on a datagram socket without a peer, for which it answers
    // ENOTCONN after the deed.
    shutdown(descriptor(handle), SHUT_RDWR);
    return true;
}

bool setOption(std::uint64_t handle, SocketOption option, std::uint32_t value) noexcept {
    const int number = static_cast<int>(value);
    const auto setNumber = [&](int level, int name) {
        return set(handle, level, name, &number, sizeof number);
    };
    switch (option) {
        case SocketOption::broadcast:
            return setNumber(SOL_SOCKET, SO_BROADCAST);
        case SocketOption::noDelay:
            return setNumber(IPPROTO_TCP, TCP_NODELAY);
        case SocketOption::reuseAddress:
            return setNumber(SOL_SOCKET, SO_REUSEADDR);
        case SocketOption::dontFragment:
        case SocketOption::mtuDiscover: {
            // Two names on Windows, one thing here: IPv4 datagrams carry the don't-fragment bit and
            // one that is longer than the path allows is refused. IPv6 stays at the system's own
            // way, as it does there: a datagram longer than the link's MTU leaves in fragments.
            const int mode = number != 0 ? IP_PMTUDISC_DO : IP_PMTUDISC_DONT;
            return set(handle, IPPROTO_IP, IP_MTU_DISCOVER, &mode, sizeof mode);
        }
        case SocketOption::v6Only:
            return setNumber(IPPROTO_IPV6, IPV6_V6ONLY);
        case SocketOption::multicastInterfaceV4: {
            in_addr address{};
            address.s_addr = value;
            return set(handle, IPPROTO_IP, IP_MULTICAST_IF, &address, sizeof address);
        }
        case SocketOption::multicastInterfaceV6:
            return setNumber(IPPROTO_IPV6, IPV6_MULTICAST_IF);
        case SocketOption::unicastInterfaceV6: {
            const std::uint32_t wire = htonl(value);  // network order on this system alone
            return set(handle, IPPROTO_IPV6, IPV6_UNICAST_IF, &wire, sizeof wire);
        }
    }
    return false;
}

bool setSocketBlocking(std::uint64_t handle, bool on) noexcept {
    int nonBlocking = on ? 0 : 1;
    return ioctl(descriptor(handle), FIONBIO, &nonBlocking) == 0;
}

bool joinGroupV4(std::uint64_t handle, std::uint32_t groupRaw,
                 std::uint32_t interfaceRaw) noexcept {
    ip_mreq request{};
    request.imr_multiaddr.s_addr = groupRaw;
    request.imr_interface.s_addr = interfaceRaw;
    return set(handle, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request);
}

bool joinGroupV6(std::uint64_t handle, const std::array<std::uint8_t, 16>& group,
                 std::uint32_t scope) noexcept {
    ipv6_mreq request{};
    std::memcpy(&request.ipv6mr_multiaddr, group.data(), 16);
    request.ipv6mr_interface = scope;
    return set(handle, IPPROTO_IPV6, IPV6_JOIN_GROUP, &request, sizeof request);
}

std::int32_t bindSocket(std::uint64_t handle, int family, const Endpoint& local) noexcept {
    SocketAddress address;
    const socklen_t size = fill(address, family, local);
    const int fd = descriptor(handle);
    // Asked for any port, Linux counts one that another reusing socket holds as free, and two
    // sockets would share their datagrams. So reuse is off while it chooses.
    const bool chooses = local.port[0] == 0 && local.port[1] == 0;
    int reuse = 0;
    socklen_t reuseSize = sizeof reuse;
    if (chooses) getsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &reuse, &reuseSize);
    if (reuse != 0) setOption(handle, SocketOption::reuseAddress, 0);
    const std::int32_t error = errorOf(bind(fd, &address.any, size));
    if (reuse != 0) setOption(handle, SocketOption::reuseAddress, 1);
    return error;
}

std::int32_t localEndpoint(std::uint64_t handle, Endpoint& local) noexcept {
    SocketAddress address{};
    socklen_t size = sizeof address;
    const std::int32_t error = errorOf(getsockname(descriptor(handle), &address.any, &size));
    if (error == 0) take(address, local);
    return error;
}

std::int32_t listenOn(std::uint64_t handle, int backlog) noexcept {
    return errorOf(listen(descriptor(handle), backlog));
}

std::int32_t connectSocket(std::uint64_t handle, int family, const Endpoint& to) noexcept {
    SocketAddress address;
    const socklen_t size = fill(address, family, to);
    return errorOf(connect(descriptor(handle), &address.any, size));
}

std::uint64_t acceptSocket(std::uint64_t handle, Endpoint& from) noexcept {
    SocketAddress address{};
    socklen_t size = sizeof address;
    const int fd =
        unbroken([&] { return accept4(descriptor(handle), &address.any, &size, SOCK_CLOEXEC); });
    if (fd < 0) return noSocket;
    take(address, from);
    return static_cast<std::uint64_t>(fd);
}

bool blockingIsByCall() noexcept {
    return true;
}

std::int64_t sendTo(std::uint64_t handle, int family, const std::uint8_t* data, std::uint64_t size,
                    const Endpoint& to, std::int32_t& error, bool mayBlock) noexcept {
    SocketAddress address;
    const socklen_t length = fill(address, family, to);
    const int flags = MSG_NOSIGNAL | waitFlag(mayBlock);
    const ssize_t sent = unbroken(
        [&] { return sendto(descriptor(handle), data, size, flags, &address.any, length); });
    if (sent < 0) error = lastNetError();
    return sent;
}

std::int64_t sendOn(std::uint64_t handle, const std::uint8_t* data, std::uint64_t size,
                    std::int32_t& error, bool mayBlock) noexcept {
    const int flags = MSG_NOSIGNAL | waitFlag(mayBlock);
    const ssize_t sent = unbroken([&] { return send(descriptor(handle), data, size, flags); });
    if (sent < 0) error = lastNetError();
    return sent;
}

std::int64_t receiveFrom(std::uint64_t handle, std::uint8_t* data, std::uint64_t size,
                         Endpoint& from, std::int32_t& error, bool mayBlock) noexcept {
    SocketAddress address{};
    const ssize_t got = unbroken([&] {
        socklen_t length = sizeof address;
        return recvfrom(descriptor(handle), data, size, waitFlag(mayBlock), &address.any, &length);
    });
    if (got < 0) {
        error = lastNetError();
    } else {
        take(address, from);
    }
    return got;
}

std::int64_t receiveOn(std::uint64_t handle, std::uint8_t* data, std::uint64_t size,
                       std::int32_t& error, bool mayBlock) noexcept {
    const ssize_t got =
        unbroken([&] { return recv(descriptor(handle), data, size, waitFlag(mayBlock)); });
    if (got < 0) error = lastNetError();
    return got;
}

int waitUntilReadable(std::span<const std::uint64_t> handles, std::span<bool> ready,
                      std::uint32_t micros) noexcept {
    std::fill(ready.begin(), ready.end(), false);
    if (handles.empty() || handles.size() > waitLimit) return -1;
    pollfd polled[waitLimit];
    for (std::size_t i = 0; i < handles.size(); ++i) {
        polled[i] = {descriptor(handles[i]), POLLIN, 0};
        if (polled[i].fd < 0) return -1;  // poll would pass it over in silence
    }
    const std::int64_t end = steadyNow() + static_cast<std::int64_t>(micros) * 1000;
    std::int64_t left = static_cast<std::int64_t>(micros) * 1000;
    int count = 0;
    for (;;) {
        const timespec time{left / nanosPerSecond, left % nanosPerSecond};
        count = ppoll(polled, handles.size(), &time, nullptr);
        if (count >= 0 || errno != EINTR) break;
        left = std::max<std::int64_t>(end - steadyNow(), 0);
    }
    if (count <= 0) return count;
    for (std::size_t i = 0; i < handles.size(); ++i) {
        if ((polled[i].revents & POLLNVAL) != 0) return -1;
        ready[i] = polled[i].revents != 0;  // an error pending is read like data
    }
    return count;
}

bool listAdapters(int family, std::vector<Adapter>& out) {
    out.clear();
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return false;
    try {
        // One entry for each link, and one for each address with the name of its link.
        for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
            const std::string name = entry->ifa_name;
            auto adapter = std::find_if(out.begin(), out.end(),
                                        [&](const Adapter& known) { return known.name == name; });
            if (adapter == out.end()) {
                out.push_back({if_nametoindex(entry->ifa_name), name, name, {}});
                adapter = out.end() - 1;
            }
            if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != familyOf(family)) {
                continue;
            }
            SocketAddress address{};
            std::memcpy(&address, entry->ifa_addr,
                        family == familyV4 ? sizeof address.v4 : sizeof address.v6);
            Endpoint endpoint;
            take(address, endpoint);
            endpoint.port = {};
            endpoint.scope = 0;
            adapter->addresses.push_back(endpoint);
        }
    } catch (...) {
        freeifaddrs(list);
        throw;
    }
    freeifaddrs(list);
    return !out.empty();
}

}  // namespace ZENNO::platform
