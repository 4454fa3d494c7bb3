// Priority and placement of the calling thread, in the system's own four levels: 0 time critical,
// 1 raised, 2 normal, 3 idle.
#pragma once

#include <cstdint>

namespace ZENNO {

std::int32_t physicalCoreCount() noexcept;  // hyper-threads do not count; 0 when it cannot be told

bool setThreadPriorityLevel(std::uint32_t level) noexcept;  // anything above 3 is normal
std::int32_t priorityClassLevel() noexcept;                 // of the process

// The calling thread on the one processor, and the rest of the process on all others. False, and
// nothing changed, if there is no such processor. A second use takes its processor out of the reach
// of the first one's thread.
bool pinToProcessor(std::uint8_t cpu) noexcept;

// What the two above are made of: the operating system's number of a level, the level of a class.
constexpr std::int32_t threadPriorityOf(std::uint32_t level) noexcept {
    switch (level) {
        case 0:
            return 15;
        case 1:
            return 2;
        case 3:
            return -15;
        default:
            return 0;
    }
}

constexpr std::int32_t levelOfPriorityClass(std::uint32_t priorityClass) noexcept {
    switch (priorityClass) {
        case 256:  // realtime
            return 0;
        case 128:    // high
        case 32768:  // above normal
            return 1;
        case 64:     // idle
        case 16384:  // below normal
            return 3;
        case 32:  // normal
        default:
            return 2;
    }
}

}  // namespace ZENNO
