// The clocks that the system has. Both bodies pass tests/platform/TimeTest.cpp.
#pragma once

#include <cstdint>

namespace ZENNO::platform {

std::uint32_t counterMicros() noexcept;    // monotonic, µs since an arbitrary start, low 32 bits
std::int64_t steadyNanos() noexcept;       // the same clock, ns
std::uint32_t millisecondTick() noexcept;  // ms since an arbitrary start, wraps

// About so long: a signal may cut it short, Windows rounds it up to milliseconds. Nothing for 0 and
// below.
void sleepNanos(std::int64_t nanos) noexcept;
void yieldSlice() noexcept;  // gives up the rest of the time slice

// Of a thread that polls the clock and has just begun to wait for a time `micros` away: a small
// part of that is slept where the system takes a processor by force from a thread of its class that
// never sleeps. Well below the time, for whatever a wake-up takes; nothing where that is short.
void restFromPolling(std::uint32_t micros) noexcept;

// A timer of one thread that ends nearer to its time than a wait on a socket does. Usable only
// where there is a difference: on Windows 10 and later. There a socket's wait ends with a tick of
// the system, this one within a fraction of it.
class ExactTimer {
public:
    ExactTimer() noexcept;
    ~ExactTimer();
    ExactTimer(const ExactTimer&) = delete;
    ExactTimer& operator=(const ExactTimer&) = delete;

    bool isUsable() const noexcept { return handle_ != nullptr; }
    void sleep(std::uint32_t micros) noexcept;  // at once where it is not usable

private:
    void* handle_;
};

// 1 ms ticks while on; each `on` wants its `off`. False where there is no such thing.
bool raiseTimerResolution(bool on) noexcept;

struct LocalTime {
    int month = 0;  // 0 to 11
    int day = 1;
    int hour = 0, minute = 0, second = 0;
};
LocalTime localTimeNow() noexcept;

}  // namespace ZENNO::platform
