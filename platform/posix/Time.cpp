#include "platform/Time.h"

#include <sched.h>

#include <ctime>

namespace ZENNO::platform {

namespace {

constexpr std::int64_t nanosPerSecond = 1'000'000'000;

timespec monotonic() noexcept {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time;
}

}  // namespace

std::uint32_t counterMicros() noexcept {
    const timespec time = monotonic();
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(time.tv_sec) * 1'000'000 +
                                      static_cast<std::uint64_t>(time.tv_nsec) / 1000);
}

std::int64_t steadyNanos() noexcept {
    const timespec time = monotonic();
    return time.tv_sec * nanosPerSecond + time.tv_nsec;
}

void sleepNanos(std::int64_t nanos) noexcept {
    if (nanos <= 0) return;
    // A signal may end it early; who needs more calls again.
    const timespec time{nanos / nanosPerSecond, nanos % nanosPerSecond};
    clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
}

void yieldSlice() noexcept {
    sched_yield();
}

// Linux lets real-time threads have 950 ms of each second of a processor (sched_rt_runtime_us); the
// other 50 ms it takes in one piece. An eighth of each wait stays clear of that.
void restFromPolling(std::uint32_t micros) noexcept {
    constexpr std::uint32_t leastWorthwhile = 150;
    constexpr std::int64_t part = 8;
    if (micros < leastWorthwhile) return;
    const int policy = sched_getscheduler(0) & ~SCHED_RESET_ON_FORK;
    if (policy != SCHED_FIFO && policy != SCHED_RR) return;
    sleepNanos(std::int64_t{micros} * 1000 / part);
}

// Here the wait on a socket is as exact as any.
ExactTimer::ExactTimer() noexcept : handle_(nullptr) {}
ExactTimer::~ExactTimer() = default;
void ExactTimer::sleep(std::uint32_t) noexcept {}

// Timers have the resolution of the hardware already; what they lack a thread gets with its
// priority.
bool raiseTimerResolution(bool) noexcept {
    return false;
}

std::uint32_t millisecondTick() noexcept {
    const timespec time = monotonic();
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(time.tv_sec) * 1000 +
                                      static_cast<std::uint64_t>(time.tv_nsec) / 1'000'000);
}

LocalTime localTimeNow() noexcept {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    if (!localtime_r(&now, &parts)) return {};
    return {parts.tm_mon, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec};
}

}  // namespace ZENNO::platform
