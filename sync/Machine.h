// What the stream's threads ask of the machine they run on: its cores, its priorities, a thread.
//
// The product's is systemMachine(), platform/Thread.h behind it. A test hands in one of its own, so
// that every machine and every refusal can be had on any machine.
#pragma once

#include <cstdint>
#include <functional>
#include <thread>

#include "platform/Thread.h"

namespace VELMORA {

class Machine {
public:
    virtual ~Machine() = default;
    virtual std::int32_t physicalCoreCount() noexcept = 0;  // 0 when it cannot be told
    virtual std::uint32_t processPriorityClass() noexcept = 0;
    // the calling thread, and the calling thread's process
    virtual bool setThreadPriority(ZENNO::platform::Priority priority) noexcept = 0;
    virtual bool setThreadAffinity(std::uint64_t mask) noexcept = 0;
    virtual bool setProcessAffinity(std::uint64_t mask) noexcept = 0;
    // Throws std::system_error where no thread can be made.
    virtual std::thread startThread(std::function<void()> entry) = 0;
};

Machine& systemMachine() noexcept;

}  // namespace VELMORA
