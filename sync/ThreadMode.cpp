#include "sync/ThreadMode.h"

#include <utility>

namespace VELMORA {

namespace {

constexpr std::int32_t smallMachineCores = 2;
constexpr std::uint32_t shortCycle = 1000;     // µs: below it a small machine does not keep up
constexpr std::uint16_t shortLatency = 2000;   // 100 µs
constexpr std::uint32_t shortRemaining = 100;  // µs

}  // namespace

FittedMode fitToMachine(std::uint32_t threadMode, std::int32_t cores, std::uint16_t latency,
                        std::uint32_t firstCycle) noexcept {
    FittedMode fitted{threadMode, false};
    if ((threadMode & NOSLEEPFORCE) == 0 && cores <= smallMachineCores) {
        fitted.threadMode &= ~std::uint32_t{NOSLEEP4CORE};
        fitted.lowCpu = firstCycle < shortCycle;
    }
    if (latency <= shortLatency) fitted.threadMode &= ~std::uint32_t{NOFASTFEEDBACK};
    return fitted;
}

std::string threadStartText(std::uint32_t threadMode, std::int32_t cores, std::uint32_t infoCycle) {
    struct Word {
        std::uint32_t flag;
        const char* text;
    };
    static constexpr Word words[] = {
        {CRITICAL, "CRITICAL "},           {NOSHORTSLEEP, "NOSHORTSLEEP "},
        {NOSLEEP4CORE, "NOSLEEP4CORE "},   {NOSLEEPFORCE, "NOSLEEPFORCE "},
        {SOCKETNOBLOCK, "SOCKETNOBLOCK "}, {OCCUPIED, "OCCUPIED "},
    };
    std::string text = "wth start ";
    for (const Word& word : words) {
        if ((threadMode & word.flag) != 0) text += word.text;
    }
    text += "CPU:" + std::to_string(cores);
    text += " FEEDBACK:" + std::to_string(feedbackDepth(threadMode));
    text += (threadMode & NOFASTFEEDBACK) != 0 ? " NOFASTFEEDBACK " : " ";
    text += " Info=" + std::to_string(infoCycle / 1000);
    return text;
}

Waiting::Pass Waiting::onPass(std::uint32_t remaining) noexcept {
    Pass pass{false, false};
    if ((mode_ & SLEEP0ALWAYS) != 0 || ((mode_ & SLEEP0ONCE) != 0 && !sleepDone_)) {
        pass.yields = true;
        sleepDone_ = true;
    }
    pass.polls = neverSleeps() || ((mode_ & NOSHORTSLEEP) != 0 && remaining <= shortRemaining);
    return pass;
}

std::uint32_t Waiting::waitFor(std::uint32_t remaining) const noexcept {
    const bool pollsTheEnd = (mode_ & NOSHORTSLEEP) != 0 && remaining > shortRemaining;
    return pollsTheEnd ? remaining - shortRemaining : remaining;
}

bool Waiting::takeRest() noexcept {
    return neverSleeps() && !std::exchange(restDone_, true);
}

}  // namespace VELMORA
