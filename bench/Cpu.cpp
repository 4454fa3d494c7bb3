// What does a second of stream cost?
//
// In ms of processor time for each second of stream. "worker" is the thread that sends, "process"
// are all of the driver's threads, the one that interleaves the host's blocks among them. The limit
// is a bare loop that waits by select and sends as many datagrams of the same size at the same
// times, each from its own place in memory; it is measured directly behind.
#include <cstdio>

#include "bench/Context.h"
#include "bench/Shape.h"

namespace velmora_bench {
namespace {

using VELMORA::SinkConfig;

constexpr double ownSeconds = 0.5;
constexpr double allowedAlways = 1.4;

struct Format {
    const char* name;
    Shape shape;
    double allowed;
};
const Format formats[] = {
    {"44.1 kHz, 2 ch, 16 bits", {44100, 2, SinkConfig::pcm16}, allowedAlways},
    {"192 kHz, 2 ch, 32 bits", {192000, 2, SinkConfig::pcm32}, allowedAlways},
    {"192 kHz, 8 ch, 32 bits", {192000, 8, SinkConfig::pcm32}, 1.15},
    {"1536 kHz, 2 ch, 32 bits", {1536000, 2, SinkConfig::pcm32}, allowedAlways},
    {"DSD64, 2 ch", {2822400, 2, SinkConfig::dsdMsbBig}, allowedAlways},
    {"DSD256, 2 ch", {11289600, 2, SinkConfig::dsdMsbBig}, allowedAlways},
    {"DSD1024, 2 ch", {45158400, 2, SinkConfig::dsdMsbBig}, allowedAlways},
};

// From 2 x 44.1 kHz to 8 x 384 kHz.
const Shape growing[] = {{44100, 2},  {96000, 2}, {192000, 2}, {48000, 8},
                         {384000, 2}, {96000, 8}, {192000, 8}, {384000, 8}};

double perSecond(double cpu, const Run& run) {
    return cpu / run.seconds * 1e3;  // ms
}

Row growthRow(Context& context, const std::vector<std::vector<double>>& costs) {
    std::vector<Point> points;
    std::string list;
    for (std::size_t i = 0; i < std::size(growing); ++i) {
        const double load = growing[i].channels * growing[i].rate / 1e3;
        points.push_back({load, median(costs[i])});
        char text[48];
        std::snprintf(text, sizeof text, "%s%.0f: %.1f", i == 0 ? "" : ", ", load, points[i].y);
        list += text;
    }
    const Line line = fitLine(points);
    context.pictures.cpu = points;
    context.pictures.cpuLine = line;
    constexpr double wanted = 0.98;
    return {"cpu",
            "growth with channels x rate",
            "",
            {{"R2", line.r2, wanted, line.r2 > 0 ? wanted / line.r2 : 1e9, 1},
             {"ms per 1000 ch x kHz", line.slope * 1000},
             {"ms at 0", line.intercept}},
            "a straight line through the process's time at 2 x 44.1 to 8 x 384 kHz, 32 bits (" +
                list + " ms); R2 has to be 0.98 at least"};
}

}  // namespace

std::vector<Row> benchCpu(Context& context) {
    const double seconds = context.secondsOr(ownSeconds);
    std::vector<Pairs> workers(std::size(formats)), processes(std::size(formats));
    std::vector<std::vector<double>> costs(std::size(growing));
    for (int i = 1; i <= context.rounds; ++i) {
        context.progress.round(i, context.rounds);
        for (std::size_t f = 0; f < std::size(formats); ++f) {
            const Run ours = runProduct(formats[f].shape, seconds, context.space);
            const Run bare =
                runBare(formats[f].shape, Wait::select, ours.scheduling, seconds, context.space);
            const double limit = perSecond(bare.workerCpu, bare);
            workers[f].add(perSecond(ours.workerCpu, ours), limit);
            processes[f].add(perSecond(ours.processCpu, ours), limit);
        }
        for (std::size_t g = 0; g < std::size(growing); ++g) {
            const Run ours = runProduct(growing[g], seconds, context.space);
            costs[g].push_back(perSecond(ours.processCpu, ours));
        }
    }
    std::vector<Row> rows;
    for (std::size_t f = 0; f < std::size(formats); ++f) {
        rows.push_back({"cpu",
                        formats[f].name,
                        "ms",
                        {workers[f].figure("worker", formats[f].allowed),
                         processes[f].figure("process", formats[f].allowed)},
                        "processor time for each second of stream " + context.path() +
                            ", cycle 1000 us; the bare loop sends as many datagrams of the same "
                            "size, a second of them ready in memory, and waits by select"});
    }
    rows.push_back(growthRow(context, costs));
    return rows;
}

}  // namespace velmora_bench
