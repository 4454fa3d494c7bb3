#include "platform/Net.h"

// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
#include <iphlpapi.h>
// clang-format on

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace ZENNO::platform {

namespace {

// Options by their numbers: not all headers have all names.
constexpr int optionDontFragment = 14;
constexpr int optionMtuDiscover = 71;
constexpr int optionUnicastInterfaceV6 = 31;

SOCKET socketOf(std::uint64_t handle) noexcept {
    return static_cast<SOCKET>(handle);
}

std::int32_t errorOf(int result) noexcept {
    return result == 0 ? 0 : WSAGetLastError();
}

union SocketAddress {
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
};

int fill(SocketAddress& out, int family, const Endpoint& endpoint) noexcept {
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
    return setsockopt(socketOf(handle), level, name, static_cast<const char*>(value),
                      static_cast<int>(size)) == 0;
}

// Room for a name of 2048 bytes and its end; one that does not fit comes out empty.
std::string utf8(const wchar_t* wide) {
    if (wide == nullptr) return {};
    std::string out(2049, '\0');
    const int size = WideCharToMultiByte(CP_UTF8, 0, wide, -1, out.data(),
                                         static_cast<int>(out.size()), nullptr, nullptr);
    out.resize(size > 0 ? static_cast<std::size_t>(size) - 1 : 0);
    return out;
}

}  // namespace

NetworkStart startNetwork() noexcept {
    WSADATA data{};
    const int result = WSAStartup(2, &data);
    if (std::atexit([] { WSACleanup(); }) != 0) return NetworkStart::noExitHook;
    return result == 0 ? NetworkStart::ready : NetworkStart::failed;
}

std::uint64_t openSocket(int family, int type) noexcept {
    return static_cast<std::uint64_t>(socket(family, type, 0));
}

void closeSocket(std::uint64_t handle) noexcept {
    closesocket(socketOf(handle));
}

bool shutdownSocket(std::uint64_t handle) noexcept {
    return shutdown(socketOf(handle), SD_BOTH) == 0;
}

bool wakeWaiters(std::uint64_t) noexcept {
    return false;  // select and recvfrom end when the handle is closed
}

bool setOption(std::uint64_t handle, SocketOption option, std::uint32_t value) noexcept {
    const auto setNumber = [&](int level, int name) {
        return set(handle, level, name, &value, sizeof value);
    };
    switch (option) {
        case SocketOption::broadcast:
            return setNumber(SOL_SOCKET, SO_BROADCAST);
        case SocketOption::noDelay:
            return setNumber(IPPROTO_TCP, TCP_NODELAY);
        case SocketOption::reuseAddress:
            return setNumber(SOL_SOCKET, SO_REUSEADDR);
        case SocketOption::dontFragment:
            return setNumber(IPPROTO_IP, optionDontFragment);
        case SocketOption::mtuDiscover:
            return setNumber(IPPROTO_IP, optionMtuDiscover);
        case SocketOption::v6Only:
            return setNumber(IPPROTO_IPV6, IPV6_V6ONLY);
        case SocketOption::multicastInterfaceV4:
            return setNumber(IPPROTO_IP, IP_MULTICAST_IF);
        case SocketOption::multicastInterfaceV6:
            return setNumber(IPPROTO_IPV6, IPV6_MULTICAST_IF);
        case SocketOption::unicastInterfaceV6:
            return setNumber(IPPROTO_IPV6, optionUnicastInterfaceV6);
    }
    return false;
}

bool setSocketBlocking(std::uint64_t handle, bool on) noexcept {
    u_long nonBlocking = on ? 0 : 1;
    return ioctlsocket(socketOf(handle), static_cast<long>(FIONBIO), &nonBlocking) == 0;
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
    const int size = fill(address, family, local);
    // As on POSIX: where the sockets underneath are Linux's, a reusing socket that asks for any
    // port may be given one that another such socket holds. So reuse is off while the system
    // chooses.
    const bool chooses = local.port[0] == 0 && local.port[1] == 0;
    BOOL reuse = FALSE;
    int reuseSize = sizeof reuse;
    if (chooses) {
        getsockopt(socketOf(handle), SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<char*>(&reuse),
                   &reuseSize);
    }
    if (reuse != FALSE) setOption(handle, SocketOption::reuseAddress, 0);
    const std::int32_t error = errorOf(bind(socketOf(handle), &address.any, size));
    if (reuse != FALSE) setOption(handle, SocketOption::reuseAddress, 1);
    return error;
}

std::int32_t localEndpoint(std::uint64_t handle, Endpoint& local) noexcept {
    SocketAddress address{};
    int size = sizeof address;
    const std::int32_t error = errorOf(getsockname(socketOf(handle), &address.any, &size));
    if (error == 0) take(address, local);
    return error;
}

std::int32_t listenOn(std::uint64_t handle, int backlog) noexcept {
    return errorOf(listen(socketOf(handle), backlog));
}

std::int32_t connectSocket(std::uint64_t handle, int family, const Endpoint& to) noexcept {
    SocketAddress address;
    const int size = fill(address, family, to);
    return errorOf(connect(socketOf(handle), &address.any, size));
}

std::uint64_t acceptSocket(std::uint64_t handle, Endpoint& from) noexcept {
    SocketAddress address{};
    int size = sizeof address;
    const SOCKET peer = accept(socketOf(handle), &address.any, &size);
    if (peer != INVALID_SOCKET) take(address, from);
    return static_cast<std::uint64_t>(peer);
}

bool blockingIsByCall() noexcept {
    return false;
}

std::int64_t sendTo(std::uint64_t handle, int family, const std::uint8_t* data, std::uint64_t size,
                    const Endpoint& to, std::int32_t& error, bool) noexcept {
    SocketAddress address;
    const int length = fill(address, family, to);
    const int sent = sendto(socketOf(handle), reinterpret_cast<const char*>(data),
                            static_cast<int>(size), 0, &address.any, length);
    if (sent == SOCKET_ERROR) error = WSAGetLastError();
    return sent;
}

std::int64_t sendOn(std::uint64_t handle, const std::uint8_t* data, std::uint64_t size,
                    std::int32_t& error, bool) noexcept {
    const int sent =
        send(socketOf(handle), reinterpret_cast<const char*>(data), static_cast<int>(size), 0);
    if (sent == SOCKET_ERROR) error = WSAGetLastError();
    return sent;
}

std::int64_t receiveFrom(std::uint64_t handle, std::uint8_t* data, std::uint64_t size,
                         Endpoint& from, std::int32_t& error, bool) noexcept {
    SocketAddress address{};
    int length = sizeof address;
    int got = recvfrom(socketOf(handle), reinterpret_cast<char*>(data), static_cast<int>(size), 0,
                       &address.any, &length);
    if (got == SOCKET_ERROR) {
        error = WSAGetLastError();
        if (error != WSAEMSGSIZE) return -1;
        got = static_cast<int>(size);  // the buffer is full of what there was room for
    }
    take(address, from);
    return got;
}

std::int64_t receiveOn(std::uint64_t handle, std::uint8_t* data, std::uint64_t size,
                       std::int32_t& error, bool) noexcept {
    const int got =
        recv(socketOf(handle), reinterpret_cast<char*>(data), static_cast<int>(size), 0);
    if (got == SOCKET_ERROR) error = WSAGetLastError();
    return got;
}

int waitUntilReadable(std::span<const std::uint64_t> handles, std::span<bool> ready,
                      std::uint32_t micros) noexcept {
    static_assert(waitLimit <= FD_SETSIZE);
    std::fill(ready.begin(), ready.end(), false);
    if (handles.empty() || handles.size() > waitLimit) return -1;
    fd_set readable;
    readable.fd_count = static_cast<u_int>(handles.size());
    std::uint64_t highest = 0;
    for (std::size_t i = 0; i < handles.size(); ++i) {
        readable.fd_array[i] = socketOf(handles[i]);
        highest = std::max(highest, handles[i]);
    }
    timeval time{static_cast<long>(micros / 1'000'000), static_cast<long>(micros % 1'000'000)};
    const int count = select(static_cast<int>(highest + 1), &readable, nullptr, nullptr, &time);
    if (count <= 0) return count < 0 ? -1 : 0;
    for (std::size_t i = 0; i < handles.size(); ++i) {
        ready[i] = FD_ISSET(socketOf(handles[i]), &readable) != 0;
    }
    return count;
}

bool listAdapters(int family, std::vector<Adapter>& out) {
    out.clear();
    const auto asked = static_cast<ULONG>(family);
    ULONG size = 0;
    if (GetAdaptersAddresses(asked, 0, nullptr, nullptr, &size) != ERROR_BUFFER_OVERFLOW) {
        return false;
    }
    // As many whole records as hold the bytes asked for, so that the list is aligned.
    std::vector<IP_ADAPTER_ADDRESSES> list(size / sizeof(IP_ADAPTER_ADDRESSES) + 1);
    if (GetAdaptersAddresses(asked, 0, nullptr, list.data(), &size) != 0) return false;
    for (const IP_ADAPTER_ADDRESSES* entry = list.data(); entry != nullptr; entry = entry->Next) {
        Adapter adapter{entry->IfIndex, utf8(entry->FriendlyName), utf8(entry->Description), {}};
        for (const IP_ADAPTER_UNICAST_ADDRESS* unicast = entry->FirstUnicastAddress;
             unicast != nullptr; unicast = unicast->Next) {
            if (unicast->Address.lpSockaddr->sa_family != family) continue;
            SocketAddress address{};
            std::memcpy(&address, unicast->Address.lpSockaddr,
                        family == familyV4 ? sizeof address.v4 : sizeof address.v6);
            Endpoint endpoint;
            take(address, endpoint);
            endpoint.port = {};
            endpoint.scope = 0;
            adapter.addresses.push_back(endpoint);
        }
        out.push_back(std::move(adapter));
    }
    return true;
}

}  // namespace ZENNO::platform
