// Does the time of a search grow with the number of sinks, and with nothing else?
//
// Processor time of one search on a network in memory, in ms, for 5 and 20 targets of ten sinks;
// the limit is as many times that of one target.
#include <ctime>
#include <memory>
#include <stdexcept>

#include "bench/Context.h"
#include "bench/Stamp.h"
#include "find/Find.h"
#include "tests/support/ScriptedTarget.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_bench {
namespace {

namespace wire = VELMORA::wire;
using ZENNO::IPAddress;

double threadMillis() {
    return static_cast<double>(clockNanos(CLOCK_THREAD_CPUTIME_ID)) * 1e-6;
}

constexpr unsigned sinksOfOne = 10;

// Processor time of one search, of many.
double searchMillis(unsigned targets) {
    velmora_test::FakeNetwork network;
    std::vector<std::unique_ptr<velmora_test::ScriptedTarget>> there;
    for (unsigned i = 0; i < targets; ++i) {
        const auto address = IPAddress::of(
            {0xfe80, 0, 0, 0, 0, 0, 0, static_cast<std::uint16_t>(100 + i)}, wire::ControlPort, 3);
        there.push_back(std::make_unique<velmora_test::ScriptedTarget>(network, address));
        for (unsigned k = 0; k < sinksOfOne; ++k) {
            there.back()->sinks.push_back(
                {static_cast<std::uint16_t>(20000 + k), 1, "sink " + std::to_string(k)});
        }
    }
    VELMORA::Find find({}, network);
    if (!find.open()) throw std::runtime_error("discovery does not open");
    const unsigned searches = 400 / targets;
    const double before = threadMillis();
    for (unsigned i = 0; i < searches; ++i) {
        VELMORA::TargetMap found;
        if (!find.search(found) || found.size() != targets * sinksOfOne) {
            throw std::runtime_error("the search in memory does not find all sinks");
        }
        network.clearSent();
        for (const auto& target : there) target->seen.clear();
    }
    return (threadMillis() - before) / searches;
}

}  // namespace

std::vector<Row> benchSearchGrowth(Context& context) {
    constexpr unsigned some = 5, many = 20;  // targets of ten sinks, beside one
    constexpr double linear = 1.2;
    Pairs ofSome, ofMany;
    for (int i = 1; i <= context.rounds; ++i) {
        context.progress.round(i, context.rounds);
        const double one = searchMillis(1);
        ofSome.add(searchMillis(some), some * one);
        ofMany.add(searchMillis(many), many * one);
    }
    return {{"search",
             "growth with sinks",
             "ms",
             {ofSome.figure("50", linear), ofMany.figure("200", linear)},
             "processor time of a search on a network in memory; beside 5 and 20 times that of 10 "
             "sinks"}};
}

}  // namespace velmora_bench
