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
