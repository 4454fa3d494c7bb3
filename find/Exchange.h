// One request and its one answer, on which every unicast message of discovery rides, and the time
// rules of all waits of discovery.
#pragma once

#include <cstdint>

#include "base/BufferCS.h"
#include "base/Clock.h"
#include "base/IPAddress.h"
#include "src/Network/Link.h"

namespace VELMORA {

// What a request came to.
enum AckResult : int {
    ackAccepted = 0,      // an accepted answer came from exactly the one asked
    ackSocketFailed = 1,  // sending, waiting or receiving failed
    ackSilent = 2,        // nothing valid came within 100 ms
    ackRefused = 3,       // a refusal came, from whomever
    ackEcho = 4,          // a datagram with the request's own id came
};

constexpr std::uint32_t ackWait = 100'000;  // µs, from the sending of a request

// What is left of `limit` when `elapsed` has gone by, all in µs that wrap at 32 bits. An `elapsed`
// far beyond the limit is that of a clock that stepped back: the wait then grows by the step.
constexpr std::uint32_t timeLeft(std::uint32_t limit, std::uint32_t elapsed) noexcept {
    const std::uint32_t left = limit - elapsed;
    if (elapsed == limit) return 0;
    if (elapsed < limit) return left > 0x7fffffffu ? 0 : left;
    return elapsed - limit > 0x7fffffffu ? left : 0;
}

// In the same sense. At the limit it has not passed yet.
constexpr bool limitPassed(std::uint32_t limit, std::uint32_t elapsed) noexcept {
    return elapsed != limit && timeLeft(limit, elapsed) == 0;
}

// A limit that runs from its construction.
class TimeLimit {
public:
    TimeLimit(ZENNO::Clock& clock, std::uint32_t limit) noexcept
        : clock_(clock), limit_(limit), start_(clock.now()) {}
    std::uint32_t left() const noexcept { return timeLeft(limit_, clock_.now() - start_); }
    bool passed() const noexcept { return limitPassed(limit_, clock_.now() - start_); }

private:
    ZENNO::Clock& clock_;
    std::uint32_t limit_;  // µs
    std::uint32_t start_;
};

// Waits for datagrams for a time that runs from its construction, whatever arrives meanwhile.
class Listening {
public:
    // What lies in the receive buffer when time is up is still handed out, for the caller may have
    // been kept from reading; but no more than a buffer's fill of small datagrams, so that a flood
    // cannot hold the caller.
    static constexpr unsigned lateDatagrams = 256;

    Listening(ZENNO::Link& link, ZENNO::Clock& clock, std::uint32_t micros) noexcept
        : link_(link), time_(clock, micros), left_(micros) {}
    int wait();  // a Wait value; after waitReady the caller receives one datagram

private:
    ZENNO::Link& link_;
    TimeLimit time_;
    std::uint32_t left_;  // µs, for the next wait
    unsigned late_ = 0;   // datagrams handed out after the time
};

// Sends `message` to `dest` and waits up to ackWait for the answer with `answerId`. Gives an
// AckResult; `answer` holds the whole datagram when it was accepted or refused, and is empty
// otherwise. Nothing is sent twice, and only the headers are looked at.
int sendAck(ZENNO::Link& socket, ZENNO::Clock& clock, const ZENNO::IPAddress& dest,
            const ZENNO::Bytes& message, std::uint32_t answerId, ZENNO::Bytes& answer);

}  // namespace VELMORA
