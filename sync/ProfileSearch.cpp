// The searching half of TransferConfig: the fewest packets that serve a cycle, the cycle that a
// target's own wishes lead to, and what is taken when they lead nowhere.

#include "base/Clock.h"
#include "base/LogLine.h"
#include "sync/TransferProfile.h"

namespace VELMORA {
namespace {

using ZENNO::hasReached;
using ZENNO::LogLine;

constexpr std::uint32_t sweepStep = 50;  // µs

using Trial = bool (TransferConfig::*)(std::uint32_t& cycle, std::uint16_t count);

// Every search ends: each pass of each loop takes from this, and with nothing left a trial answers
// false. Cycles of a tenth of a second of the fastest formats stay far below it, in a few
// milliseconds; a file or the network may ask for an hour.
class Budget {
public:
    bool take() noexcept { return left_ != 0 && left_-- != 0; }

private:
    std::uint32_t left_ = 1u << 20;  // trials
};

// One packet, two, three: until the cycle is met, or until more packets no longer help; then the
// count before is kept. From PackDataCount on all counts are the same trial, so the pass behind it
// meets its own cycle again or fails for good.
bool trialAuto(TransferConfig& transfer, Trial trial, std::uint32_t& wanted, Budget& budget) {
    std::uint32_t last = 0;
    const std::uint32_t passes = transfer.PackDataCount + 1u;
    for (std::uint32_t count = 1; count <= passes && budget.take(); ++count) {
        std::uint32_t cycle = wanted;
        // The 65536th count is 0, which is PackDataCount as well.
        if ((transfer.*trial)(cycle, static_cast<std::uint16_t>(count))) {
            if (cycle == wanted) return true;
            if (cycle == last) {
                cycle = wanted;
                (transfer.*trial)(cycle, static_cast<std::uint16_t>(count - 1));
                wanted = transfer.cycle;
                return true;
            }
        }
        last = transfer.cycle;  // also of a trial that failed: then it is an older one
    }
    return false;
}

std::uint32_t later(std::uint32_t a, std::uint32_t b) noexcept {
    return hasReached(a, b) ? a : b;
}

class Search {
public:
    Search(TransferConfig& transfer, bool freeCount)
        : transfer_(transfer),
          freeCount_(freeCount),
          min_(transfer.minCycle10 * 10u),
          max_(transfer.maxCycle10 * 10u),
          limit_(transfer.limitCycle),
          // Single precision first, then double; by 64 bits, since a limit near the end of its
          // range leaves it here.
          limit103_(static_cast<std::uint32_t>(static_cast<std::uint64_t>(
              static_cast<double>(static_cast<float>(transfer.limitCycle)) * 1.03))) {}

    bool var();
    bool fix();
    bool random();
    bool fallback(std::uint32_t start);

private:
    bool has(ProfileFlag flag) const noexcept { return (transfer_.profileFlags & flag) != 0; }
    bool attempt(Trial trial, std::uint32_t cycle) {
        if (freeCount_) return trialAuto(transfer_, trial, cycle, budget_);
        return budget_.take() && (transfer_.*trial)(cycle, 1);
    }
    static bool done(const char* kind) {
        LogLine(6) << "PROFILE done " << kind;
        return true;
    }

    // What a cycle that was had is worth.
    enum class Verdict { accepted, tooShort, tooLong };

    // Cycles from `start` upward until one is accepted. They give longer and longer results up to
    // where the packets are full; so a result that is too long, or the same as the last, ends it
    // without success. A cycle that cannot be had at all ends it too, since what does not fit a
    // cycle does not fit a longer one; only a cycle of 0 says nothing about the next.
    template <class Judge>
    bool sweep(Trial trial, std::uint32_t start, Judge judge) {
        std::uint32_t last = 0;
        for (std::uint32_t cycle = start;; cycle += sweepStep) {
            if (!attempt(trial, cycle)) {
                if (cycle != 0) return false;
                continue;
            }
            const std::uint32_t result = transfer_.cycle;
            const Verdict verdict = judge(result);
            if (verdict == Verdict::accepted) return true;
            if (verdict == Verdict::tooLong || result == last) return false;
            last = result;
        }
    }

    TransferConfig& transfer_;
    const bool freeCount_;
    const std::uint32_t min_, max_, limit_, limit103_;  // µs
    Budget budget_;
};

bool Search::var() {
    const auto judge = [this](std::uint32_t cycle) {
        if (!has(ProfileLimitOnly) && !hasReached(max_, cycle)) return Verdict::tooLong;
        const bool bound = has(ProfileLimitOnly) || hasReached(cycle, min_);
        return bound && hasReached(cycle, limit103_) ? Verdict::accepted : Verdict::tooShort;
    };
    if (has(ProfileSweep)) {
        return sweep(&TransferConfig::trialVar, later(min_, limit_), judge) && done("Var");
    }
    if (!attempt(&TransferConfig::trialVar, max_)) return false;
    if (judge(transfer_.cycle) == Verdict::accepted) return done("Var");
    return has(ProfileLimitOnly);  // taken all the same, without a word
}

bool Search::fix() {
    const auto judge = [this](std::uint32_t cycle) {
        const bool bound = has(ProfileLimitOnly) || hasReached(cycle, min_);
        return bound && hasReached(cycle, limit_) ? Verdict::accepted : Verdict::tooShort;
    };
    if (has(ProfileSweep)) {
        // The maximum does not bind here.
        const std::uint32_t start = has(ProfileLimitOnly) ? limit_ : later(min_, limit_);
        return sweep(&TransferConfig::trialFix, start, judge) && done("Fix");
    }
    if (!attempt(&TransferConfig::trialFix, max_)) return false;
    const std::uint32_t cycle = transfer_.cycle;
    if (!has(ProfileLimitOnly) && !hasReached(max_, cycle)) return false;
    return judge(cycle) == Verdict::accepted && done("Fix");
}

bool Search::random() {
    std::uint32_t cycle = max_;
    return transfer_.trialRandom(later(min_, limit_), cycle, 0) && done("Random");
}

// Upward from `start` with as many packets as it takes, bound by the caller's limit alone.
bool Search::fallback(std::uint32_t start) {
    const Trial trial = has(ProfileVar) ? &TransferConfig::trialVar : &TransferConfig::trialFix;
    return sweep(trial, start, [this](std::uint32_t cycle) {
        return hasReached(cycle, limit103_) ? Verdict::accepted : Verdict::tooShort;
    });
}

}  // namespace

bool TransferConfig::trialFixAuto(std::uint32_t& wanted) {
    Budget budget;
    return trialAuto(*this, &TransferConfig::trialFix, wanted, budget);
}

bool TransferConfig::trialVarAuto(std::uint32_t& wanted) {
    Budget budget;
    return trialAuto(*this, &TransferConfig::trialVar, wanted, budget);
}

bool TransferConfig::searchProfile() {
    cycle = 0;
    if (minCycle10 == 0 && maxCycle10 == 0 && profileFlags == 0) return false;
    LogLine(6) << "PROFILE min=" << minCycle10 << " max=" << maxCycle10 << " prof" << profileFlags
               << " config" << config.word << " PackDataSize" << PackDataSize << " PackDataCount"
               << PackDataCount << " limitCycle" << limitCycle;

    Search search(*this, forceAuto || (profileFlags & ProfileMultiPacket) != 0);
    if ((profileFlags & ProfileVar) != 0) return search.var();
    // Random is asked for together with Var, which has won by then: no target gets it by its flags,
    // and the targets that set 0x10 have always been served with Var. Kept in this order.
    constexpr unsigned asksForRandom = ProfileVar | ProfileRandom;
    if ((profileFlags & asksForRandom) == asksForRandom) return search.random();
    return search.fix();
}

bool TransferConfig::configTransferAuto(std::uint32_t wanted) {
    LogLine(6) << "configTransferAuto " << wanted;
    bool found = searchProfile();
    if (!found) {
        forceAuto = true;
        found = searchProfile();
        if (!found) {
            LogLine(6) << "configTransferAuto falt";
            const std::uint16_t countBefore = PackDataCount;
            PackDataCount = 65535;
            found = Search(*this, /*freeCount=*/true).fallback(wanted != 0 ? wanted : limitCycle);
            PackDataCount = countBefore;
        }
        forceAuto = false;
    }
    if (found) LogLine(6) << "configTransferAuto done";
    return found;
}

}  // namespace VELMORA
