#include "platform/Time.h"

#include <windows.h>

#include <mmsystem.h>  // behind windows.h, on which it stands

#include <algorithm>
#include <limits>

namespace ZENNO::platform {

namespace {

// The performance counter in units of 1/perSecond s. Whole seconds and the rest are taken apart:
// the plain product leaves 64 bits after some days of uptime, and the clock would jump there.
std::int64_t counterIn(std::int64_t perSecond) noexcept {
    static const std::int64_t frequency = [] {
        LARGE_INTEGER value;
        QueryPerformanceFrequency(&value);
        return static_cast<std::int64_t>(value.QuadPart);
    }();
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    return counter.QuadPart / frequency * perSecond +
           counter.QuadPart % frequency * perSecond / frequency;
}

}  // namespace

std::uint32_t counterMicros() noexcept {
    return static_cast<std::uint32_t>(counterIn(1'000'000));
}

std::int64_t steadyNanos() noexcept {
    return counterIn(1'000'000'000);
}

void sleepNanos(std::int64_t nanos) noexcept {
    if (nanos <= 0) return;
    // Up to the next millisecond, so that a rest below one is still a sleep.
    const std::int64_t millis = nanos / 1'000'000 + (nanos % 1'000'000 != 0 ? 1 : 0);
    constexpr std::int64_t most = std::numeric_limits<DWORD>::max() - 1;  // all ones is forever
    Sleep(static_cast<DWORD>(std::min(millis, most)));
}

void yieldSlice() noexcept {
    Sleep(0);
}

// No class of threads is throttled here.
void restFromPolling(std::uint32_t) noexcept {}

ExactTimer::ExactTimer() noexcept {
    constexpr DWORD highResolution = 0x2;  // CREATE_WAITABLE_TIMER_HIGH_RESOLUTION
    handle_ = CreateWaitableTimerExW(nullptr, nullptr, highResolution, TIMER_ALL_ACCESS);
}

ExactTimer::~ExactTimer() {
    if (handle_ != nullptr) CloseHandle(handle_);
}

void ExactTimer::sleep(std::uint32_t micros) noexcept {
    LARGE_INTEGER due;
    due.QuadPart = -std::int64_t{micros} * 10;  // below 0: from now on, in units of 100 ns
    if (handle_ == nullptr || !SetWaitableTimer(handle_, &due, 0, nullptr, nullptr, FALSE)) return;
    WaitForSingleObject(handle_, INFINITE);
}

bool raiseTimerResolution(bool on) noexcept {
    return (on ? timeBeginPeriod(1) : timeEndPeriod(1)) == TIMERR_NOERROR;
}

std::uint32_t millisecondTick() noexcept {
    return timeGetTime();
}

LocalTime localTimeNow() noexcept {
    SYSTEMTIME now;
    GetLocalTime(&now);
    return {now.wMonth - 1, now.wDay, now.wHour, now.wMinute, now.wSecond};
}

}  // namespace ZENNO::platform
