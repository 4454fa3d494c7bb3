// The processor's own count of cache misses of one thread, where the system hands it out.
#pragma once

#include <linux/perf_event.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

namespace velmora_bench {

class CacheMisses {
public:
    CacheMisses() = default;
    ~CacheMisses() {
        if (counter_ >= 0) ::close(counter_);
    }
    CacheMisses(const CacheMisses&) = delete;
    CacheMisses& operator=(const CacheMisses&) = delete;

    void openForThisThread() noexcept {
        perf_event_attr wanted{};
        wanted.size = sizeof wanted;
        wanted.type = PERF_TYPE_HARDWARE;
        wanted.config = PERF_COUNT_HW_CACHE_MISSES;
        wanted.exclude_hv = 1;
        counter_ = static_cast<int>(::syscall(SYS_perf_event_open, &wanted, 0, -1, -1, 0));
    }
    // Since it was opened; -1 where the system does not tell.
    std::int64_t read() const noexcept {
        std::int64_t count = -1;
        if (counter_ < 0 || ::read(counter_, &count, sizeof count) != sizeof count) return -1;
        return count;
    }

private:
    int counter_ = -1;
};

}  // namespace velmora_bench
