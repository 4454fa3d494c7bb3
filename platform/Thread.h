// Priorities and placement of threads, by Windows' numbers on every system. Both bodies pass
// tests/platform/ThreadTest.cpp.
#pragma once

#include <cstdint>

namespace ZENNO::platform {

enum class Priority : int { timeCritical = 15, highest = 2, normal = 0, idle = -15 };

constexpr std::uint32_t realtimePriorityClass = 256;

// The calling thread. On POSIX a raised priority means the best that the process may have: no timer
// slack, and a real-time class where that is allowed; asking for it does not fail. The way back
// from idle takes a right that not every process has.
bool setThreadPriority(Priority priority) noexcept;
// The calling thread on the processors of `mask`; false where none of them can be had.
bool setThreadAffinity(std::uint64_t mask) noexcept;
// The process on the processors of `mask`. On POSIX this leaves the calling thread where it is: who
// asks for it has just taken a processor for himself.
bool setProcessAffinity(std::uint64_t mask) noexcept;
// 256 realtime, 128 high, 32768 above normal, 32 normal, 16384 below normal, 64 idle; 0 on failure.
std::uint32_t processPriorityClass() noexcept;
std::int32_t physicalCoreCount() noexcept;  // 0 when it cannot be told; hyper-threads do not count

}  // namespace ZENNO::platform
