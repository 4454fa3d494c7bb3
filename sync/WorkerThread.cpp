// The stream worker's thread: what becomes of its mode on this machine, where it runs and how
// urgently; then the stream.
#include <exception>

#include "base/LogLine.h"
#include "sync/Sync.h"
#include "sync/ThreadMode.h"

namespace VELMORA {

using ZENNO::LogLine;
using ZENNO::platform::Priority;

bool Sync::startWorker() {
    if (!hasRunnableProfiles()) return false;
    workerThread_ = machine_->startThread([this] { workerEntry(); });
    return true;
}

void Sync::workerEntry() noexcept {
    try {
        const bool high = (threadMode & CRITICAL) != 0;
        const std::int32_t cores = machine_->physicalCoreCount();
        const FittedMode fitted = fitToMachine(threadMode, cores, latency, profiles[0].cycle);
        threadMode = fitted.threadMode;
        lowCpu = fitted.lowCpu ? 1 : 0;
        if (ZENNO::logLevelEnabled(6)) {
            LogLine(6) << threadStartText(threadMode, cores, infoCycle);
        }
        // Nobody is told of a thread that cannot be placed: a waiting caller runs into its limit.
        if (!placeThread(high)) {
            state.store(Idle, std::memory_order_release);
            return;
        }
        streamWorker();
        state.store(Idle, std::memory_order_release);
        LogLine(6) << "wth end";
    } catch (const std::exception&) {
        // No memory for the ring. The host's process has nobody else to take it.
        setStateAndNotify(Idle);
    }
}

bool Sync::placeThread(bool high) {
    if (machine_->processPriorityClass() == ZENNO::platform::realtimePriorityClass) {
        LogLine(6) << "wth Rialtime Class not chnage priority";
    } else if (!machine_->setThreadPriority(high ? Priority::timeCritical : Priority::highest)) {
        return false;
    }
    if ((threadMode & OCCUPIED) == 0) return true;
    // The third logical processor, else the second; the rest of the process keeps off it, if it
    // can. That mask outlives the stream.
    for (const std::uint64_t processor : {std::uint64_t{4}, std::uint64_t{2}}) {
        if (!machine_->setThreadAffinity(processor)) continue;
        machine_->setProcessAffinity(~processor);
        return true;
    }
    return false;
}

}  // namespace VELMORA
