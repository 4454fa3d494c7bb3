// Which system calls each thread of a piece of work makes: it runs in a process of its own, stopped
// by the kernel at each call. That costs some µs a call, so times mean nothing there; counts do.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace velmora_bench {

// Counted between a thread's first and its second mark, by number.
using SystemCalls = std::map<long, std::uint64_t>;
struct TracedThread {
    int mark = 0;  // what it said at its first one
    SystemCalls calls;
};

// On a thread of the work: from here on it counts, or does not any more. `who` is 1 or above.
void markThread(int who) noexcept;

// Throws std::runtime_error where the kernel does not allow it or the work failed.
std::vector<TracedThread> traceCalls(const std::function<void()>& work);

std::string systemCallName(long number);

}  // namespace velmora_bench
