// One socket of the system, and all that its sockets have in common: the options at open, how a
// link-local address meets its interface number, what counts as a failed send, and a way of reading
// that needs no error codes.
//
// No lock: one reader and one writer thread may use a socket together. Closing from a third thread
// is how a blocked reader is ended; its wait then answers waitError.
#pragma once

#include <atomic>
#include <cstdint>

#include "src/Network/Link.h"

namespace ZENNO {

class Socket final : public Link {
public:
    static constexpr std::uint64_t closedHandle = ~0ull;

    // The first one of the process starts the system's network; throws Err when that fails.
    Socket();
    ~Socket() override;
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    // ---- Link ----
    bool open(SocketKind kind) override;
    void close() override;
    bool isOpen() const override { return handle() != closedHandle; }
    bool bindV6(IPAddress& address) override;  // stream kinds listen from here on
    bool joinV6(const IPAddress& group) override;
    bool setBlocking(bool on) override;
    int waitReadable(std::uint32_t micros) override;
    // Never false: what cannot be read, a closed socket included, is an empty read. `from` changes
    // only when something came.
    bool receiveFrom(BufferCS buffer, std::uint64_t& length, IPAddress& from) override;
    using Link::receiveFrom;
    std::int64_t sendOnce(BufferCS_const data, const IPAddress& to, bool retried) noexcept override;

    // ---- what a Socket has beyond a Link ----
    std::uint64_t handle() const noexcept { return handle_.load(); }
    SocketKind kind() const noexcept { return kind_; }
    bool isStream() const noexcept;
    bool isDatagram() const noexcept;

    bool shutdown();  // both ways; true if the system had no error
    // An address of 16 zero bytes is any; datagram kinds may broadcast afterwards.
    bool bindV4(const IPAddress& address);
    bool setInterface(std::uint32_t scope);  // for all sends, multicast and unicast
    bool joinV4(const IPAddress& group);     // on every local IPv4 address; ends at a failure
    bool joinV4(const IPAddress& group, const IPAddress& interface);

    // Waits as waitReadable; when ready closes `peer`, accepts into it and fills the address and
    // port of `from`, not its scope. A Wait value; waitError also when nothing could be accepted.
    int accept(Socket& peer, IPAddress& from, std::uint32_t micros);
    bool accept(Socket& peer, IPAddress& from);  // without the wait
    bool connect(const IPAddress& to);           // IPv6, scope 0

    // As sendDatagram, to an IPv4 address; to 239.x.x.x once from every local IPv4 address.
    bool sendV4(BufferCS_const data, const IPAddress& to, bool retry);
    bool send(BufferCS_const data);  // stream kinds; true if one send took all
    // One send of what lies behind `offset`; `position` is where the next one goes on, 0 on
    // failure.
    bool send(BufferCS_const data, std::uint64_t offset, std::uint64_t& position);

    bool receiveFromV4(BufferCS buffer, std::uint64_t& length, IPAddress& from);
    bool receiveFromV4(Bytes& data, IPAddress& from);
    // Stream kinds. False when the peer has closed or the read failed; what would block is an empty
    // read.
    bool receive(BufferCS buffer, std::uint64_t& length);
    bool receive(Bytes& data);

private:
    class Use;
    bool settleMode(const Use& use) noexcept;

    // Written by whoever opens and closes, read by every thread that uses the socket.
    std::atomic<std::uint64_t> handle_{closedHandle};
    // How many threads are inside a call on the handle: each counts itself in and out, close()
    // reads it.
    std::atomic<std::uint32_t> users_{0};
    SocketKind kind_ = SocketKind::tcpV4;
    // The mode that the system has. It may still block where `blocking` says no longer: most bursts
    // are over before that would be seen.
    std::atomic<bool> systemBlocks_{true};
};

}  // namespace ZENNO
