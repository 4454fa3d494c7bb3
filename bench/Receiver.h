// The far end of a bench: a process of its own on the loopback address that takes a stream, stamps
// every burst with the kernel's time of arrival, and answers what a stream needs answered, feedback
// 0.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <vector>

#include "base/IPAddress.h"

namespace velmora_bench {

struct Reception {
    std::uint64_t datagrams = 0;
    std::vector<std::int64_t> burstNanos;  // arrival of the first datagram of each burst
};

class Receiver {
public:
    Receiver();   // forks; throws std::runtime_error
    ~Receiver();  // ends the process if `finish` did not
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    const ZENNO::IPAddress& address() const { return address_; }
    Reception finish();  // what came; ends the process

private:
    [[noreturn]] void serve(int socket, int order, int result);

    ZENNO::IPAddress address_{};
    pid_t process_ = -1;
    int order_ = -1, result_ = -1;  // pipes: the word to end, and what came
};

}  // namespace velmora_bench
