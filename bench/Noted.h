// A thread of the product, as a look from inside finds it: who it is and what it costs.
#pragma once

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <ctime>
#include <functional>

#include "bench/CacheMisses.h"
#include "bench/Heap.h"
#include "bench/Shape.h"
#include "bench/Stamp.h"

namespace velmora_bench {

class NotedThread {
public:
    // On the thread itself, as often as one likes: the first time counts.
    void note(bool countMisses) noexcept {
        if (known_.load(std::memory_order_relaxed)) return;
        ::pthread_getcpuclockid(::pthread_self(), &clock_);
        counts_ = &threadCounts();
        scheduling_ = Scheduling::ofThisThread();
        if (countMisses) misses_.openForThisThread();
        known_.store(true, std::memory_order_release);
    }

    // On any thread, while that one lives.
    bool isKnown() const noexcept { return known_.load(std::memory_order_acquire); }
    std::int64_t cpuNanos() const noexcept { return clockNanos(clock_); }
    ThreadCounts counts() const noexcept { return {counts_->allocations, counts_->locks}; }
    std::int64_t cacheMisses() const noexcept { return misses_.read(); }
    Scheduling scheduling() const { return scheduling_; }

private:
    std::atomic<bool> known_{false};
    clockid_t clock_{};
    const volatile ThreadCounts* counts_ = nullptr;
    Scheduling scheduling_{};
    CacheMisses misses_;
};

}  // namespace velmora_bench
