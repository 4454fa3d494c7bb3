#include "platform/Thread.h"

#include <windows.h>

#include <algorithm>
#include <new>
#include <vector>

namespace ZENNO::platform {

bool setThreadPriority(Priority priority) noexcept {
    return SetThreadPriority(GetCurrentThread(), static_cast<int>(priority)) != 0;
}

bool setThreadAffinity(std::uint64_t mask) noexcept {
    return SetThreadAffinityMask(GetCurrentThread(), mask) != 0;
}

bool setProcessAffinity(std::uint64_t mask) noexcept {
    return SetProcessAffinityMask(GetCurrentProcess(), mask) != 0;
}

std::uint32_t processPriorityClass() noexcept {
    return GetPriorityClass(GetCurrentProcess());
}

std::int32_t physicalCoreCount() noexcept try {
    DWORD bytes = 0;
    if (GetLogicalProcessorInformation(nullptr, &bytes) ||
        GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
        return 0;
    }
    using Record = SYSTEM_LOGICAL_PROCESSOR_INFORMATION;
    std::vector<Record> records(bytes / sizeof(Record));
    bytes = static_cast<DWORD>(records.size() * sizeof(Record));
    if (!GetLogicalProcessorInformation(records.data(), &bytes)) return 0;
    return static_cast<std::int32_t>(std::count_if(
        records.begin(), records.end(),
        [](const Record& record) { return record.Relationship == RelationProcessorCore; }));
} catch (const std::bad_alloc&) {
    return 0;
}

}  // namespace ZENNO::platform
