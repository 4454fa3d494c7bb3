// The limit of a stream worker: a loop that waits, sends what the product would, and goes on. One
// system call a datagram and one a wait; nothing comes back. Each datagram has its own place in
// memory, as many of them as the product keeps, all written before: who sends from one buffer reads
// from the nearest cache what no stream has there.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <vector>

#include "base/BufferCS.h"
#include "bench/Shape.h"

namespace velmora_bench {

class BareLoop {
public:
    BareLoop(const Shape& shape, Wait wait, const sockaddr_in6& to);
    ~BareLoop();
    BareLoop(const BareLoop&) = delete;
    BareLoop& operator=(const BareLoop&) = delete;

    void run(double seconds);
    std::uint32_t cycle() const noexcept { return cycle_; }  // µs
    std::uint16_t packetsOfBurst() const noexcept { return count_; }
    std::int64_t secondDueNanos() const noexcept {  // CLOCK_MONOTONIC
        return begin_ + std::int64_t{cycle_} * 1000;
    }

private:
    void sendBurst();
    void waitFor(std::int64_t nanos) const;

    Wait wait_;
    sockaddr_in6 to_;
    int socket_;
    std::uint32_t cycle_ = 0;
    std::uint16_t count_ = 0;
    std::vector<ZENNO::Bytes> packets_;
    std::size_t next_ = 0;
    std::int64_t begin_ = 0;
};

}  // namespace velmora_bench
