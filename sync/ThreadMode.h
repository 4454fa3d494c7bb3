// How the stream worker's thread behaves: the flags that a user may set, what becomes of them on
// the machine at hand, and what a pass does while its deadline has not come.
#pragma once

#include <cstdint>
#include <string>

namespace VELMORA {

enum ThreadMode : std::uint32_t {
    CRITICAL = 0x001,       // thread priority 15 instead of 2
    NOSHORTSLEEP = 0x002,   // polls the clock when 100 µs or less remain
    NOSLEEP4CORE = 0x004,   // polls the clock always; dropped on machines of at most 2 cores
    SOCKETNOBLOCK = 0x008,  // the stream socket stays non-blocking
    OCCUPIED = 0x010,       // the worker takes a processor for itself
    FEEDBACK = 0x0e0,       // depth of feedback averaging, less 1
    NOFASTFEEDBACK =
        0x100,             // lateness and lost packets are not caught up; dropped at short latency
    SLEEP0ONCE = 0x200,    // one yield a cycle while waiting
    SLEEP0ALWAYS = 0x400,  // a yield a pass while waiting
    NOSLEEPFORCE = 0x800,  // polls the clock always, on any machine
};

constexpr std::uint32_t feedbackDepth(std::uint32_t threadMode) noexcept {
    return ((threadMode >> 5) & 7) + 1;
}

struct FittedMode {
    std::uint32_t threadMode = 0;
    bool lowCpu = false;  // start on the last row of profiles, which has the longer cycle

    friend bool operator==(const FittedMode&, const FittedMode&) = default;
};

// `cores` physical ones, 0 when unknown, which counts as a small machine; `latency` in 100 µs,
// `firstCycle` of the first profile in µs.
FittedMode fitToMachine(std::uint32_t threadMode, std::int32_t cores, std::uint16_t latency,
                        std::uint32_t firstCycle) noexcept;

// The log line of the thread's start.
std::string threadStartText(std::uint32_t threadMode, std::int32_t cores, std::uint32_t infoCycle);

// What a pass does while its deadline has not come.
class Waiting {
public:
    struct Pass {
        bool yields;  // gives up its time slice first
        bool polls;   // then looks at the clock again at once; else waits on the socket

        friend bool operator==(const Pass&, const Pass&) = default;
    };

    explicit Waiting(std::uint32_t threadMode) noexcept : mode_(threadMode) {}
    Pass onPass(std::uint32_t remaining) noexcept;  // µs to the deadline
    // A pass found its deadline already there. A turn that follows a wait in the same pass does
    // not come by here: its cycle counts as having yielded.
    void onDeadlineMet() noexcept { sleepDone_ = restDone_ = false; }
    // Asked where a pass waits on the socket: for how long, µs. Who polls the end of a cycle is
    // awake when it begins.
    std::uint32_t waitFor(std::uint32_t remaining) const noexcept;
    // Asked where a pass polls: true once a cycle for a thread that never waits on the socket, and
    // so never sleeps.
    bool takeRest() noexcept;

private:
    bool neverSleeps() const noexcept { return (mode_ & (NOSLEEP4CORE | NOSLEEPFORCE)) != 0; }

    std::uint32_t mode_;
    bool sleepDone_ = false, restDone_ = false;
};

}  // namespace VELMORA
