#include "src/Network/Socket.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "platform/Net.h"
#include "src/Network/LocalInterfaces.h"
#include "src/Network/Startup.h"

namespace ZENNO {

namespace net = platform;

namespace {

static_assert(Socket::closedHandle == net::noSocket);

constexpr int backlog = 1000;

struct KindRow {
    SocketKind kind;
    int family, type;
    int v6Only;  // -1: not set
};
constexpr KindRow kindRows[] = {
    {SocketKind::tcpV4, net::familyV4, net::typeStream, -1},
    {SocketKind::udpV4, net::familyV4, net::typeDatagram, -1},
    {SocketKind::tcpV6, net::familyV6, net::typeStream, 1},
    {SocketKind::udpV6, net::familyV6, net::typeDatagram, 1},
    {SocketKind::tcpDual, net::familyV6, net::typeStream, 0},
    {SocketKind::udpDual, net::familyV6, net::typeDatagram, 0},
};

KindRow rowOf(SocketKind kind) noexcept {
    for (const KindRow& row : kindRows) {
        if (row.kind == kind) return row;
    }
    return {kind, net::familyNone, net::typeNone, -1};  // the system refuses it
}

net::Endpoint endpointOf(const IPAddress& address) noexcept {
    return {address.address, address.port, address.scope};
}

IPAddress addressOf(const net::Endpoint& endpoint) noexcept {
    IPAddress address;
    address.address = endpoint.address;
    address.port = endpoint.port;
    address.scope = endpoint.scope;
    return address;
}

}  // namespace

// Holds the handle for one call: close() does not give its number back while a Use of it lives
// (where the system lets it wait for that), so a call never lands on another's new socket.
class Socket::Use {
public:
    explicit Use(Socket& socket) noexcept : socket_(socket) {
        // In one order with close(): either it sees us counted, or we see the handle gone.
        socket_.users_.fetch_add(1, std::memory_order_seq_cst);
        handle_ = socket_.handle_.load(std::memory_order_seq_cst);
        // Who found it gone holds nothing: close() does not wait for those that keep trying.
        if (handle_ == closedHandle) leave();
    }
    ~Use() {
        if (handle_ != closedHandle) leave();
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    std::uint64_t handle() const noexcept { return handle_; }
    explicit operator bool() const noexcept { return handle_ != closedHandle; }
    bool isStillOpen() const noexcept { return socket_.handle() == handle_; }

private:
    void leave() noexcept { socket_.users_.fetch_sub(1, std::memory_order_release); }

    Socket& socket_;
    std::uint64_t handle_;
};

Socket::Socket() {
    startNetworkOnce();
}

Socket::~Socket() {
    close();
}

bool Socket::isStream() const noexcept {
    const auto value = static_cast<std::uint32_t>(kind_);
    return value < 6 && value % 2 == 0;
}

bool Socket::isDatagram() const noexcept {
    const auto value = static_cast<std::uint32_t>(kind_);
    return value < 7 && value % 2 == 1;
}

bool Socket::open(SocketKind kind) {
    close();
    kind_ = kind;
    const KindRow row = rowOf(kind);
    const std::uint64_t handle = net::openSocket(row.family, row.type);
    if (handle == closedHandle) return false;
    if (kind == SocketKind::udpV4) {
        if (!net::setOption(handle, net::SocketOption::broadcast, 1)) {
            net::closeSocket(handle);
            return false;
        }
        net::setSocketBlocking(handle, true);
    }
    // What a system or a kind does not have is passed over.
    net::setOption(handle, net::SocketOption::noDelay, 1);
    net::setOption(handle, net::SocketOption::reuseAddress, 1);
    net::setOption(handle, net::SocketOption::dontFragment, 1);
    net::setOption(handle, net::SocketOption::mtuDiscover, 1);
    if (row.v6Only >= 0) {
        net::setOption(handle, net::SocketOption::v6Only, static_cast<std::uint32_t>(row.v6Only));
    }
    blocking_ = systemBlocks_ = true;
    handle_.store(handle);
    return true;
}

void Socket::close() {
    const std::uint64_t handle = handle_.exchange(closedHandle, std::memory_order_seq_cst);
    if (handle == closedHandle) return;
    if (isStream()) net::shutdownSocket(handle);
    if (net::wakeWaiters(handle)) {
        while (users_.load(std::memory_order_seq_cst) != 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
    }
    net::closeSocket(handle);
}

bool Socket::shutdown() {
    const Use use(*this);
    return use && net::shutdownSocket(use.handle());
}

bool Socket::bindV4(const IPAddress& address) {
    const Use use(*this);
    // 16 zero bytes need no case of their own: their last four are any address.
    if (const auto error = net::bindSocket(use.handle(), net::familyV4, endpointOf(address))) {
        lastError_ = error;
        return false;
    }
    return !isDatagram() || net::setOption(use.handle(), net::SocketOption::broadcast, 1);
}

bool Socket::bindV6(IPAddress& address) {
    const Use use(*this);
    const bool tied = address.isLinkLocal() || (address.isLoopback() && address.scope != 0);
    fixedScope_ = tied ? address.scope : 0;
    net::Endpoint local = endpointOf(address);
    local.scope = fixedScope_;
    if (const auto error = net::bindSocket(use.handle(), net::familyV6, local)) {
        lastError_ = error;
        return false;
    }
    if (address.portNumber() == 0) {
        if (net::localEndpoint(use.handle(), local) != 0) return false;
        address.port = local.port;
    }
    if (isStream() && net::listenOn(use.handle(), backlog) != 0) return false;
    if (fixedScope_ != 0) setInterface(fixedScope_);
    return true;
}

bool Socket::setInterface(std::uint32_t scope) {
    const Use use(*this);
    return net::setOption(use.handle(), net::SocketOption::multicastInterfaceV6, scope) &&
           net::setOption(use.handle(), net::SocketOption::unicastInterfaceV6, scope);
}

bool Socket::joinV4(const IPAddress& group) {
    LocalInterfaceMap locals;
    if (!getMyLocalAddresV4(locals)) return false;
    return std::all_of(locals.begin(), locals.end(),
                       [&](const auto& entry) { return joinV4(group, entry.first); });
}

bool Socket::joinV4(const IPAddress& group, const IPAddress& interface) {
    const Use use(*this);
    return net::joinGroupV4(use.handle(), group.v4Raw(), interface.v4Raw());
}

bool Socket::joinV6(const IPAddress& group) {
    const Use use(*this);
    return net::joinGroupV6(use.handle(), group.address, group.scope);
}

bool Socket::setBlocking(bool on) {
    const Use use(*this);
    if (!use) return false;
    const bool before = blocking_.exchange(on, std::memory_order_relaxed);
    if (!on || settleMode(use)) return true;
    blocking_.store(before, std::memory_order_relaxed);
    return false;
}

// From here on the system has the mode that `blocking` tells. False when it refused.
bool Socket::settleMode(const Use& use) noexcept {
    if (net::blockingIsByCall()) return true;
    const bool on = isBlocking();
    if (systemBlocks_.load(std::memory_order_relaxed) == on) return true;
    if (!net::setSocketBlocking(use.handle(), on)) return false;
    systemBlocks_.store(on, std::memory_order_relaxed);
    return true;
}

int Socket::waitReadable(std::uint32_t micros) {
    const Use use(*this);
    if (!use) return waitError;
    const std::uint64_t handles[] = {use.handle()};
    bool ready[1];
    const int count = net::waitUntilReadable(handles, ready, micros);
    // A socket that was closed under the wait looks readable to some systems.
    if (count < 0 || !use.isStillOpen()) return waitError;
    return ready[0] ? waitReady : waitTimedOut;
}

int Socket::accept(Socket& peer, IPAddress& from, std::uint32_t micros) {
    const int answer = waitReadable(micros);
    if (answer != waitReady) return answer;
    return accept(peer, from) ? waitReady : waitError;
}

bool Socket::accept(Socket& peer, IPAddress& from) {
    peer.close();
    const Use use(*this);
    settleMode(use);
    net::Endpoint endpoint;
    const std::uint64_t handle = net::acceptSocket(use.handle(), endpoint);
    if (handle == closedHandle) return false;
    from.address = endpoint.address;
    from.port = endpoint.port;
    peer.kind_ = kind_;
    // Some systems hand the listener's mode down, some do not.
    peer.blocking_ = peer.systemBlocks_ = true;
    net::setSocketBlocking(handle, true);
    peer.handle_.store(handle);
    return true;
}

bool Socket::connect(const IPAddress& to) {
    const Use use(*this);
    settleMode(use);
    net::Endpoint endpoint = endpointOf(to);
    endpoint.scope = 0;
    return net::connectSocket(use.handle(), net::familyV6, endpoint) == 0;
}

std::int64_t Socket::sendOnce(BufferCS_const data, const IPAddress& to, bool retried) noexcept {
    const Use use(*this);
    if (!retried) settleMode(use);
    std::int32_t error = 0;
    const std::int64_t sent = net::sendTo(use.handle(), net::familyV6, data.data, data.size,
                                          endpointOf(to), error, isBlocking());
    if (sent < 0) lastError_.store(error, std::memory_order_relaxed);
    return sent;
}

bool Socket::sendV4(BufferCS_const data, const IPAddress& to, bool retry) {
    const auto toAll = [&] {
        return sendAll(data, retry, [&](BufferCS_const all) {
            const Use use(*this);
            if (!retry) settleMode(use);
            std::int32_t error = 0;
            const std::int64_t sent = net::sendTo(use.handle(), net::familyV4, all.data, all.size,
                                                  endpointOf(to), error, isBlocking());
            if (sent < 0) lastError_.store(error, std::memory_order_relaxed);
            return sent;
        });
    };
    constexpr std::uint8_t multicast = 239;  // no other first byte is taken for multicast
    if (to.address[12] != multicast) return toAll();

    LocalInterfaceMap locals;
    if (!getMyLocalAddresV4(locals)) return false;
    return std::all_of(locals.begin(), locals.end(), [&](const auto& entry) {
        const Use use(*this);
        return net::setOption(use.handle(), net::SocketOption::multicastInterfaceV4,
                              entry.first.v4Raw()) &&
               toAll();
    });
}

bool Socket::send(BufferCS_const data) {
    std::uint64_t position = 0;
    return send(data, 0, position) && position == data.size;
}

bool Socket::send(BufferCS_const data, std::uint64_t offset, std::uint64_t& position) {
    const Use use(*this);
    settleMode(use);
    position = 0;
    offset = std::min(offset, data.size);
    std::int32_t error = 0;
    const std::int64_t sent =
        net::sendOn(use.handle(), data.data + offset, data.size - offset, error, isBlocking());
    if (sent < 0) {
        lastError_.store(error, std::memory_order_relaxed);
        return false;
    }
    position = offset + static_cast<std::uint64_t>(sent);
    return true;
}

bool Socket::receiveFrom(BufferCS buffer, std::uint64_t& length, IPAddress& from) {
    const Use use(*this);
    settleMode(use);
    length = 0;
    net::Endpoint endpoint;
    std::int32_t error = 0;
    const std::int64_t got =
        net::receiveFrom(use.handle(), buffer.data, buffer.size, endpoint, error, isBlocking());
    if (got <= 0) return true;
    length = static_cast<std::uint64_t>(got);
    from = addressOf(endpoint);
    return true;
}

bool Socket::receiveFromV4(BufferCS buffer, std::uint64_t& length, IPAddress& from) {
    return receiveFrom(buffer, length, from);  // the address comes in mapped form
}

bool Socket::receiveFromV4(Bytes& data, IPAddress& from) {
    return Link::receiveFrom(data, from);
}

bool Socket::receive(BufferCS buffer, std::uint64_t& length) {
    const Use use(*this);
    settleMode(use);
    length = 0;
    std::int32_t error = 0;
    const std::int64_t got =
        net::receiveOn(use.handle(), buffer.data, buffer.size, error, isBlocking());
    if (got < 0) return error == errorWouldBlock;
    length = static_cast<std::uint64_t>(got);
    return got > 0;
}

bool Socket::receive(Bytes& data) {
    data.resize(readerSize);
    std::uint64_t length = 0;
    const bool good = receive(BufferCS{data.data(), data.size()}, length);
    data.resize(good ? length : 0);
    return good;
}

}  // namespace ZENNO
