#include "bench/Shape.h"

#include <sched.h>
#include <sys/prctl.h>

#include <algorithm>
#include <stdexcept>

#include "bench/Stats.h"

namespace velmora_bench {

VELMORA::SinkConfig Shape::config() const {
    VELMORA::SinkConfig config(format);
    if (!config.setRate(rate) || !config.setChannels(channels)) {
        throw std::runtime_error("there is no such stream");
    }
    return config;
}

Scheduling Scheduling::ofThisThread() {
    Scheduling now;
    sched_param parameter{};
    ::sched_getparam(0, &parameter);
    now.policy = ::sched_getscheduler(0);
    now.rank = parameter.sched_priority;
    now.timerSlack = static_cast<unsigned long>(::prctl(PR_GET_TIMERSLACK));
    now.isSet = true;
    return now;
}

void Scheduling::apply() const {
    sched_param parameter{};
    parameter.sched_priority = rank;
    ::sched_setscheduler(0, policy, &parameter);
    ::prctl(PR_SET_TIMERSLACK, timerSlack);
}

std::string Scheduling::text() const {
    const int kind = policy & ~SCHED_RESET_ON_FORK;
    std::string text = kind == SCHED_FIFO ? "FIFO " + std::to_string(rank)
                       : kind == SCHED_RR ? "RR " + std::to_string(rank)
                                          : "default class";
    return text + ", slack " + std::to_string(timerSlack) + " ns";
}

std::vector<double> Run::late() const {
    constexpr std::uint32_t settling = 50'000;  // µs
    if (seen.burstNanos.size() < 3) throw std::runtime_error("the stream did not arrive");
    const std::vector<std::int64_t> fromSecond(seen.burstNanos.begin() + 1, seen.burstNanos.end());
    std::vector<double> all = lateness(fromSecond, secondDue, cycle);
    const auto skipped = std::min<std::size_t>(settling / cycle, all.size() / 2);
    all.erase(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(skipped));
    return all;
}

}  // namespace velmora_bench
