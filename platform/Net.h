// Sockets and network adapters. Plain functions in the system's own values, and by Windows' numbers
// on every system: families 2 and 23, types 1 and 2, and the error codes (10035 and 10055 for a
// full send buffer). Errors that have no such number come out as the system's own. Both bodies pass
// tests/network/NetTest.cpp.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace ZENNO::platform {

// ---- the network as a whole ----

enum class NetworkStart { ready, noExitHook, failed };

// Asks the system for its sockets and books their return for the end of the process. Once is
// enough; the caller keeps count.
NetworkStart startNetwork() noexcept;

// ---- sockets ----

constexpr std::uint64_t noSocket = ~0ull;

constexpr int familyNone = 0, familyV4 = 2, familyV6 = 23;
constexpr int typeNone = 0, typeStream = 1, typeDatagram = 2;

struct Endpoint {
    std::array<std::uint8_t, 16> address{};  // network order; IPv4 in mapped form
    std::array<std::uint8_t, 2> port{};      // network order
    std::uint32_t scope = 0;                 // IPv6 only
};

// Each option takes a number; interface numbers are in host order, multicastInterfaceV4 takes the
// four bytes of an address as they stand in memory.
enum class SocketOption {
    broadcast,
    noDelay,
    reuseAddress,
    dontFragment,  // these two speak of IPv4 alone, on an IPv6 socket too
    mtuDiscover,
    v6Only,
    multicastInterfaceV4,
    multicastInterfaceV6,
    unicastInterfaceV6,
};

std::uint64_t openSocket(int family, int type) noexcept;  // noSocket on failure
void closeSocket(std::uint64_t handle) noexcept;
bool shutdownSocket(std::uint64_t handle) noexcept;  // both ways
// Before closeSocket, when other threads may be inside a call on this handle. True: they are all on
// their way out, and the number must not be given back before they have left. False: closing itself
// is what ends their calls here.
bool wakeWaiters(std::uint64_t handle) noexcept;

bool setOption(std::uint64_t handle, SocketOption option, std::uint32_t value) noexcept;
bool setSocketBlocking(std::uint64_t handle, bool on) noexcept;
bool joinGroupV4(std::uint64_t handle, std::uint32_t groupRaw, std::uint32_t interfaceRaw) noexcept;
bool joinGroupV6(std::uint64_t handle, const std::array<std::uint8_t, 16>& group,
                 std::uint32_t scope) noexcept;

// These four give 0, or an error.
std::int32_t bindSocket(std::uint64_t handle, int family, const Endpoint& local) noexcept;
std::int32_t localEndpoint(std::uint64_t handle, Endpoint& local) noexcept;
std::int32_t listenOn(std::uint64_t handle, int backlog) noexcept;
std::int32_t connectSocket(std::uint64_t handle, int family, const Endpoint& to) noexcept;
std::uint64_t acceptSocket(std::uint64_t handle, Endpoint& from) noexcept;  // noSocket on failure

// Whether a call may block where it says so itself. Where this is false the socket's mode rules
// alone and `mayBlock` is not looked at; where it is true, the mode costs no system call of its own
// and setSocketBlocking is not needed.
bool blockingIsByCall() noexcept;

// Bytes moved, or -1 and `error`. One system call each.
std::int64_t sendTo(std::uint64_t handle, int family, const std::uint8_t* data, std::uint64_t size,
                    const Endpoint& to, std::int32_t& error, bool mayBlock = true) noexcept;
std::int64_t sendOn(std::uint64_t handle, const std::uint8_t* data, std::uint64_t size,
                    std::int32_t& error, bool mayBlock = true) noexcept;
// A datagram longer than `size` comes cut, and `size` is the answer.
std::int64_t receiveFrom(std::uint64_t handle, std::uint8_t* data, std::uint64_t size,
                         Endpoint& from, std::int32_t& error, bool mayBlock = true) noexcept;
std::int64_t receiveOn(std::uint64_t handle, std::uint8_t* data, std::uint64_t size,
                       std::int32_t& error, bool mayBlock = true) noexcept;

// Waits until one of at most 64 handles can be read without blocking, or the time is over: the
// number of ready ones, 0 for a time-out, -1 for an error (no handles at all is one). `ready[i]` is
// set accordingly for each handle. Microseconds count where the system can. One system call.
constexpr std::size_t waitLimit = 64;
int waitUntilReadable(std::span<const std::uint64_t> handles, std::span<bool> ready,
                      std::uint32_t micros) noexcept;

// ---- adapters ----

struct Adapter {
    std::uint32_t index = 0;          // interface number
    std::string name, description;    // UTF-8
    std::vector<Endpoint> addresses;  // unicast, of the family asked for; port and scope 0
};

// Every adapter, whatever its kind and state. False when the system gives no list or an empty one.
bool listAdapters(int family, std::vector<Adapter>& out);

}  // namespace ZENNO::platform
