#include "base/Processor.h"

#include "platform/Thread.h"

namespace ZENNO {

std::int32_t physicalCoreCount() noexcept {
    return platform::physicalCoreCount();
}

bool setThreadPriorityLevel(std::uint32_t level) noexcept {
    return platform::setThreadPriority(static_cast<platform::Priority>(threadPriorityOf(level)));
}

std::int32_t priorityClassLevel() noexcept {
    return levelOfPriorityClass(platform::processPriorityClass());
}

bool pinToProcessor(std::uint8_t cpu) noexcept {
    if (cpu >= 64) return false;  // a mask holds no more
    const std::uint64_t mask = std::uint64_t{1} << cpu;
    if (!platform::setThreadAffinity(mask)) return false;
    // That others keep off is a wish: the thread has its processor either way.
    platform::setProcessAffinity(~mask);
    return true;
}

}  // namespace ZENNO
