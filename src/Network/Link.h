// One end of a datagram conversation: what Socket and the tests' network in memory have in common.
//
// Discovery and the stream are written against Link. The virtual operations are the system calls,
// one each; the retrying send, the stored destination and the vector reads stand on top of them and
// are the same for both.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/BufferCS.h"
#include "base/IPAddress.h"

namespace ZENNO {

enum class SocketKind : std::uint32_t {
    tcpV4 = 0,
    udpV4 = 1,
    tcpV6 = 2,
    udpV6 = 3,
    tcpDual = 4,
    udpDual = 5,
};

// What a wait answers.
enum Wait : int { waitError = 0, waitTimedOut = 1, waitReady = 2 };

// The two errors of a full send buffer, on every platform by these numbers.
constexpr std::int32_t errorWouldBlock = 10035;
constexpr std::int32_t errorNoBuffers = 10055;
constexpr bool isFullBuffer(std::int32_t error) noexcept {
    return error == errorWouldBlock || error == errorNoBuffers;
}
// And two of a port that cannot be had.
constexpr std::int32_t errorNoRight = 10013;
constexpr std::int32_t errorInUse = 10048;

class Link {
public:
    virtual ~Link() = default;

    // ---- system calls, one each ----
    virtual bool open(SocketKind kind) = 0;  // closes what is open first
    virtual void close() = 0;  // nothing on a closed link; any thread: ends a blocked wait
    virtual bool isOpen() const = 0;
    // Ties the link to `address` and fixes its scope (fixedScope) when that is link-local, or ::1
    // with a scope. Writes the assigned port back when port 0 was asked for.
    virtual bool bindV6(IPAddress& address) = 0;
    virtual bool joinV6(const IPAddress& group) = 0;     // interface: group.scope
    virtual bool setBlocking(bool on) = 0;               // `blocking` follows when it worked
    virtual int waitReadable(std::uint32_t micros) = 0;  // a Wait value
    int poll() { return waitReadable(0); }
    // One datagram into `buffer`, cut to its size. Nothing there, or a failing read, is an empty
    // read: true with length 0. False only where the platform's own error test says so.
    virtual bool receiveFrom(BufferCS buffer, std::uint64_t& length, IPAddress& from) = 0;
    // One sendto of all of `data`; `to` carries the scope to use. Bytes taken, or -1 with lastError
    // set. `retried`: a full buffer is waited for in any case, so a link that has yet to tell the
    // system that it must not block need not do it for this call.
    virtual std::int64_t sendOnce(BufferCS_const data, const IPAddress& to,
                                  bool retried) noexcept = 0;

    // ---- common to all ----
    // The scope stored is fixedScope if that is not 0, else the address's own.
    void setDestination(const IPAddress& to) noexcept;
    // The stored destination; scope 0 when the link has a fixed scope.
    void getDestination(IPAddress& out) const noexcept;
    const IPAddress& destination() const noexcept {
        return destination_;
    }  // as stored, scope and all

    // Sends to the stored destination. With `retry` a full buffer or a short send is tried again
    // until all has gone, a non-blocking link being made blocking for so long; without, it is a
    // failure.
    bool sendDatagram(BufferCS_const data, bool retry) noexcept;
    // The same to `to`; the stored destination is not touched.
    bool sendDatagramTo(BufferCS_const data, const IPAddress& to, bool retry) noexcept;

    // Resizes `data` to readerSize, reads, and resizes it to what came.
    bool receiveFrom(Bytes& data, IPAddress& from);

    std::uint64_t readerSize = 1500;  // bytes that a read into a vector takes at most
    bool isBlocking() const noexcept { return blocking_.load(std::memory_order_relaxed); }
    // Of the last failed bind or send, by Windows' number.
    std::int32_t lastError() const noexcept { return lastError_.load(std::memory_order_relaxed); }
    std::uint32_t fixedScope() const noexcept { return fixedScope_; }  // fixed by bindV6, 0 if none

protected:
    // The send loop. `once` is one system call: it is handed all of the data and gives the bytes
    // taken, or -1 with lastError_ set.
    template <class Once>
    bool sendAll(BufferCS_const data, bool retry, Once once) noexcept;

    IPAddress destination_{};
    // Written where the link is opened and by its one sender; a reader beside that one looks at it.
    std::atomic<bool> blocking_{true};
    // Written by whichever thread's send failed last (the log's socket has many), read by anyone.
    std::atomic<std::int32_t> lastError_{0};
    std::uint32_t fixedScope_ = 0;

private:
    IPAddress scoped(IPAddress to) const noexcept;
};

template <class Once>
bool Link::sendAll(BufferCS_const data, bool retry, Once once) noexcept {
    const auto size = static_cast<std::uint32_t>(data.size);  // a datagram's size is a 32-bit count
    data.size = size;
    bool madeBlocking = false;
    for (;;) {
        const std::int64_t sent = once(data);
        if (sent < 0) {
            // Any other error leaves a link that was made blocking as it is.
            if (!retry || !isFullBuffer(lastError())) return false;
        } else if (sent == size) {
            if (madeBlocking) setBlocking(false);
            return true;
        } else if (!retry) {
            return false;
        }
        if (!isBlocking()) {
            madeBlocking = true;
            setBlocking(true);
        }
    }
}

}  // namespace ZENNO
