// Time in the system: u32 microseconds of a monotonic counter, which wrap about every 71.6 minutes.
// Differences are taken with wrap; order is defined only for times less than 2^31 µs apart.
//
// Whatever waits or paces is handed a Clock, so that a test can move time by hand.
#pragma once

#include <cstdint>
#include <memory>

namespace ZENNO {

// Of one thread: sleeps that end nearer to their time than its waits on a socket do.
class ExactSleep {
public:
    virtual ~ExactSleep() = default;
    virtual void sleep(std::uint32_t micros) noexcept = 0;
};

class Clock {
public:
    virtual ~Clock() = default;
    virtual std::uint32_t now() noexcept = 0;      // µs, wraps
    virtual void sleep(std::uint64_t micros) = 0;  // at least so long
    virtual void yield() noexcept = 0;             // the rest of the time slice
    // Once a cycle, by a thread that polls the clock for a deadline that is `micros` away. Where
    // the system punishes a thread that never sleeps, this sleeps for a small part of it.
    virtual void rest(std::uint32_t /*micros*/) noexcept {}
    // None where waits on sockets are exact themselves, or nothing is better.
    virtual std::unique_ptr<ExactSleep> exactSleep() { return nullptr; }
};

Clock& systemClock() noexcept;  // the performance counter

std::uint32_t nowMicros() noexcept;  // systemClock().now()

// 0 if equal, -1 if a is earlier than b, 1 if later, by the shorter way round; two times exactly
// half a turn apart are ordered by the formula alone: compareWrapped(0, 0x80000000) is 1.
int compareWrapped(std::uint32_t a, std::uint32_t b) noexcept;

// True when `time` is at or behind `mark`.
constexpr bool hasReached(std::uint32_t time, std::uint32_t mark) noexcept {
    return time - mark <= 0x7fffffffu;
}

// Sleeps until the steady clock (nanoseconds, platform::steadyNanos) reaches `steadyNanos`.
void sleepUntil(std::int64_t steadyNanos);

}  // namespace ZENNO
