#include "platform/Thread.h"

#include <dirent.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string_view>

#include "platform/posix/Topology.h"

namespace ZENNO::platform {

namespace {

// Modest, so that the system's own threads of this class stay in front. Who paces goes before who
// fills.
constexpr int timeCriticalRank = 20;
constexpr int highestRank = 10;

constexpr unsigned long leastTimerSlack = 1;    // ns
constexpr unsigned long defaultTimerSlack = 0;  // what the thread was born with, about 50 µs

bool setScheduling(int policy, int rank = 0) noexcept {
    sched_param parameter{};
    parameter.sched_priority = rank;
    return sched_setscheduler(0, policy, &parameter) == 0;
}

cpu_set_t processorsOf(std::uint64_t mask) noexcept {
    cpu_set_t set;
    CPU_ZERO(&set);
    for (std::size_t cpu = 0; cpu < 64; ++cpu) {
        if (mask >> cpu & 1) CPU_SET(cpu, &set);
    }
    return set;
}

struct CloseFolder {
    void operator()(DIR* folder) const noexcept { closedir(folder); }
};
using Folder = std::unique_ptr<DIR, CloseFolder>;

// The number that is the whole rest of a name; -1 for another name.
long numberIn(const char* digits) noexcept {
    char* end = nullptr;
    if (*digits < '0' || *digits > '9') return -1;
    const long number = std::strtol(digits, &end, 10);
    return *end == '\0' ? number : -1;
}

bool readTopology(long cpu, const char* name, int& value) noexcept {
    char path[96];
    std::snprintf(path, sizeof path, "/sys/devices/system/cpu/cpu%ld/topology/%s", cpu, name);
    std::FILE* file = std::fopen(path, "re");
    if (!file) return false;
    const bool read = std::fscanf(file, "%d", &value) == 1;
    std::fclose(file);
    return read;
}

}  // namespace

bool setThreadPriority(Priority priority) noexcept {
    const bool raised = priority == Priority::timeCritical || priority == Priority::highest;
    prctl(PR_SET_TIMERSLACK, raised ? leastTimerSlack : defaultTimerSlack);
    if (raised) {
        // Threads that the host makes on this one do not inherit the class. Where it is refused,
        // most of the effect is there already: the slack is gone.
        setScheduling(SCHED_FIFO | SCHED_RESET_ON_FORK,
                      priority == Priority::timeCritical ? timeCriticalRank : highestRank);
        return true;
    }
    const int policy = priority == Priority::idle ? SCHED_IDLE : SCHED_OTHER;
    // Who has once been raised may have to keep the mark for children.
    return setScheduling(policy) || setScheduling(policy | SCHED_RESET_ON_FORK);
}

bool setThreadAffinity(std::uint64_t mask) noexcept {
    const cpu_set_t set = processorsOf(mask);
    return sched_setaffinity(0, sizeof set, &set) == 0;
}

bool setProcessAffinity(std::uint64_t mask) noexcept {
    const cpu_set_t set = processorsOf(mask);
    const Folder tasks(opendir("/proc/self/task"));
    if (!tasks) return false;
    const long self = gettid();
    bool allMoved = true;
    while (const dirent* entry = readdir(tasks.get())) {
        const long id = numberIn(entry->d_name);
        if (id < 0 || id == self) continue;
        const bool moved = sched_setaffinity(static_cast<pid_t>(id), sizeof set, &set) == 0;
        if (!moved && errno != ESRCH) allMoved = false;  // ESRCH: it has ended meanwhile
    }
    return allMoved;
}

std::uint32_t processPriorityClass() noexcept {
    const pid_t process = getpid();
    const int policy = sched_getscheduler(process) & ~SCHED_RESET_ON_FORK;
    if (policy == SCHED_FIFO || policy == SCHED_RR) return realtimePriorityClass;
    if (policy == SCHED_IDLE) return 64;
    const int nice = getpriority(PRIO_PROCESS, static_cast<id_t>(process));
    if (nice <= -10) return 128;
    if (nice < 0) return 32768;
    if (nice == 0) return 32;
    return nice < 19 ? 16384 : 64;
}

std::int32_t physicalCoreCount() noexcept try {
    const Folder processors(opendir("/sys/devices/system/cpu"));
    if (!processors) return 0;
    std::vector<ProcessorPlace> places;
    while (const dirent* entry = readdir(processors.get())) {
        const std::string_view name = entry->d_name;
        if (!name.starts_with("cpu")) continue;
        const long cpu = numberIn(entry->d_name + 3);
        ProcessorPlace place;
        // A processor that is switched off has no place.
        if (cpu >= 0 && readTopology(cpu, "physical_package_id", place.package) &&
            readTopology(cpu, "core_id", place.core)) {
            places.push_back(place);
        }
    }
    return distinctCores(places);
} catch (const std::exception&) {
    return 0;
}

}  // namespace ZENNO::platform
