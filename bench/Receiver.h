// The far end of a bench: a process of its own that takes a stream, stamps every burst with the
// kernel's time of arrival, and answers what a stream needs answered, feedback 0. In another
// network namespace it sits at the far end of the link; else on the loopback address.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/IPAddress.h"
#include "bench/Child.h"

namespace velmora_bench {

struct Reception {
    std::uint64_t datagrams = 0;
    std::vector<std::int64_t> burstNanos;  // arrival of the first datagram of each, CLOCK_REALTIME
};

class Receiver {
public:
    explicit Receiver(const std::string& space);  // empty: loopback; throws std::runtime_error

    const sockaddr_in6& address() const { return address_; }  // as this namespace reaches it
    ZENNO::IPAddress ipAddress() const;
    Reception finish();  // what came; ends the process

private:
    Child child_;
    sockaddr_in6 address_{};
};

}  // namespace velmora_bench
