#include "sync/Machine.h"

#include <utility>

namespace VELMORA {

namespace {

class SystemMachine final : public Machine {
public:
    std::int32_t physicalCoreCount() noexcept override {
        return ZENNO::platform::physicalCoreCount();
    }
    std::uint32_t processPriorityClass() noexcept override {
        return ZENNO::platform::processPriorityClass();
    }
    bool setThreadPriority(ZENNO::platform::Priority priority) noexcept override {
        return ZENNO::platform::setThreadPriority(priority);
    }
    bool setThreadAffinity(std::uint64_t mask) noexcept override {
        return ZENNO::platform::setThreadAffinity(mask);
    }
    bool setProcessAffinity(std::uint64_t mask) noexcept override {
        return ZENNO::platform::setProcessAffinity(mask);
    }
    std::thread startThread(std::function<void()> entry) override {
        return std::thread(std::move(entry));
    }
};

}  // namespace

Machine& systemMachine() noexcept {
    static SystemMachine machine;
    return machine;
}

}  // namespace VELMORA
