// What every group of rows is handed, and the groups.
#pragma once

#include <string>
#include <vector>

#include "bench/Progress.h"
#include "bench/Row.h"
#include "bench/Stats.h"

namespace velmora_bench {

// What the pictures are drawn from, filled by the groups on the way.
struct Pictures {
    struct Histogram {
        std::string title, limitName;
        std::vector<double> ours, limit;  // µs
    };
    std::vector<Histogram> lateness;
    std::vector<Point> cpu;  // x: channels x kHz, y: ms of processor time a second
    Line cpuLine;
};

struct Context {
    int rounds = 9;
    double seconds = 0;       // of stream a round; 0: each group's own
    std::string space;        // the target's network namespace; empty: loopback
    unsigned interfaces = 0;  // over which one target can be found; 0: none is there
    std::string findProgram;  // velmora-find
    Progress progress{};
    Pictures pictures{};

    double secondsOr(double own) const noexcept { return seconds != 0 ? seconds : own; }
    // For the sentence below a row.
    std::string path() const {
        return space.empty() ? "over loopback" : "over a veth to another namespace";
    }
};

struct Group {
    const char* name;
    const char* question;
    std::vector<Row> (*run)(Context& context);
    // Seconds that it takes, so that the time left can be told; 0: it cannot run here.
    double (*takes)(const Context& context);
};

std::vector<Row> benchPunctuality(Context& context);
std::vector<Row> benchCpu(Context& context);
std::vector<Row> benchCalls(Context& context);
std::vector<Row> benchPieces(Context& context);
std::vector<Row> benchLog(Context& context);
std::vector<Row> benchOpening(Context& context);
std::vector<Row> benchMemory(Context& context);
std::vector<Row> benchFeedbackStep(Context& context);
std::vector<Row> benchDiscovery(Context& context);
std::vector<Row> benchList(Context& context);
std::vector<Row> benchSend(Context& context);
std::vector<Row> benchSearchGrowth(Context& context);

}  // namespace velmora_bench
