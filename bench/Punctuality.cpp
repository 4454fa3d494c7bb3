// Does each burst leave when it is due?
//
// Ours: the driver's engine, 44.1 kHz, 2 channels, 32 bits, one datagram a burst. The limit: a bare
// loop that waits the same way, in the scheduling class that the driver's worker was in, and is
// measured directly behind it. A column is a percentile of the lateness of all bursts of a run, in
// µs behind the time at which they were due, as the receiver's kernel stamped them; ours and the
// limit are medians over the rounds, "worst" is the worst of all rounds.
#include <array>
#include <map>
#include <memory>
#include <optional>

#include "bench/Busy.h"
#include "bench/Context.h"
#include "bench/Shape.h"

namespace velmora_bench {
namespace {

struct Mode {
    const char* name;
    std::uint32_t flags;
    Wait wait;
    const char* limit;
};
constexpr Mode modes[] = {
    {"none", 0, Wait::select, "a bare select loop"},
    {"SLEEP0ONCE", VELMORA::SLEEP0ONCE, Wait::select, "a bare select loop"},
    {"NOSHORTSLEEP", VELMORA::NOSHORTSLEEP, Wait::selectThenPoll,
     "a bare loop that selects until 100 us are left, then polls"},
    {"NOSLEEPFORCE", VELMORA::NOSLEEPFORCE, Wait::polling, "a bare loop that polls the clock"},
};
constexpr std::uint32_t cycles[] = {1000, 500, 400};
constexpr double ownSeconds = 0.4;

struct Column {
    const char* name;
    double part;
    double allowedIdle, allowedBusy;
};
constexpr Column columns[] = {
    {"p50", 0.5, 1.15, 0}, {"p99", 0.99, 1.25, 1.5}, {"p99.9", 0.999, 0, 0}, {"worst", 1, 0, 0}};

struct Cell {  // one row in the making
    std::array<Pairs, std::size(columns)> pairs;
    std::vector<double> ours, limit;  // all samples, for the picture
    std::string classText;

    void add(const std::vector<double>& a, const std::vector<double>& b) {
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            pairs[i].add(percentile(a, columns[i].part), percentile(b, columns[i].part));
        }
        ours.insert(ours.end(), a.begin(), a.end());
        limit.insert(limit.end(), b.begin(), b.end());
    }
};
using Cells = std::map<std::size_t, std::map<std::uint32_t, Cell>>;  // by mode, by cycle

// What a select loop at 1000 µs has of each class that the process may be in, p50.
struct Classes {
    Pairs plain, noSlack, realTime, best;
};

void measure(Context& context, Cells& cells, double seconds) {
    for (const std::uint32_t cycle : cycles) {
        for (std::size_t m = 0; m < std::size(modes); ++m) {
            Shape shape;
            shape.cycle = cycle;
            shape.threadMode = VELMORA::CRITICAL | modes[m].flags;
            const Run ours = runProduct(shape, seconds, context.space);
            const Run bare =
                runBare(shape, modes[m].wait, ours.scheduling, seconds * 1.125, context.space);
            Cell& cell = cells[m][cycle];
            cell.add(ours.late(), bare.late());
            cell.classText = ours.scheduling.text();
        }
    }
}

void measureClasses(Context& context, Classes& classes, double seconds) {
    const double ours = median(runProduct({}, seconds, context.space).late());
    const auto bare = [&](const Scheduling& scheduling) {
        return median(runBare({}, Wait::select, scheduling, seconds, context.space).late());
    };
    const double plain = bare({.policy = 0, .rank = 0, .timerSlack = 50'000, .isSet = true});
    const double noSlack = bare({.policy = 0, .rank = 0, .timerSlack = 1, .isSet = true});
    const double realTime = bare({.policy = 1, .rank = 20, .timerSlack = 1, .isSet = true});
    classes.plain.add(ours, plain);
    classes.noSlack.add(ours, noSlack);
    classes.realTime.add(ours, realTime);
    classes.best.add(ours, std::min({plain, noSlack, realTime}));
}

// The other bare loops of the same cycle and load, beside each figure.
void addOthers(Figure& figure, const Cells& cells, std::uint32_t cycle, std::size_t column) {
    const std::pair<std::size_t, const char*> others[] = {
        {0, "select"}, {2, "select, poll"}, {3, "poll"}};
    for (const auto& [mode, name] : others) {
        figure.beside.emplace_back(name, cells.at(mode).at(cycle).pairs[column].figure("").limit);
    }
}

void addRows(std::vector<Row>& rows, const Cells& cells, bool busy, const Context& context) {
    for (const std::uint32_t cycle : cycles) {
        for (std::size_t m = 0; m < std::size(modes); ++m) {
            const Cell& cell = cells.at(m).at(cycle);
            Row row{"punctuality",
                    std::to_string(cycle) + " us, " + modes[m].name + (busy ? ", busy" : ", idle"),
                    "us",
                    {},
                    ""};
            for (std::size_t i = 0; i < std::size(columns); ++i) {
                const Column& c = columns[i];
                const double allowed = busy ? c.allowedBusy : c.allowedIdle;
                row.figures.push_back(c.part < 1 ? cell.pairs[i].figure(c.name, allowed)
                                                 : cell.pairs[i].worst(c.name, allowed));
                addOthers(row.figures.back(), cells, cycle, i);
            }
            row.how = "lateness of a burst at the receiver " + context.path() + ", beside " +
                      modes[m].limit + "; the worker was in: " + cell.classText +
                      (busy ? "; every core busy with a process of the default class" : "");
            rows.push_back(std::move(row));
        }
    }
}

void keepPictures(Context& context, const Cells& cells, const char* load) {
    for (std::size_t m = 0; m < std::size(modes); ++m) {
        const Cell& cell = cells.at(m).at(cycles[0]);
        context.pictures.lateness.push_back({std::string(modes[m].name) + ", 1000 us, " + load,
                                             modes[m].limit, cell.ours, cell.limit});
    }
}

}  // namespace

std::vector<Row> benchPunctuality(Context& context) {
    const double seconds = context.secondsOr(ownSeconds);
    Cells idle, busy;
    Classes classes;
    for (int i = 1; i <= context.rounds; ++i) {
        context.progress.round(i, context.rounds);
        measure(context, idle, seconds);
        measureClasses(context, classes, seconds);
        const Busy load;
        measure(context, busy, seconds);
    }
    std::vector<Row> rows;
    addRows(rows, idle, /*busy=*/false, context);
    addRows(rows, busy, /*busy=*/true, context);
    keepPictures(context, idle, "idle");
    keepPictures(context, busy, "every core busy");

    Figure best = classes.best.figure("p50", 1.15);
    best.beside = {{"default", classes.plain.figure("").limit},
                   {"no slack", classes.noSlack.figure("").limit},
                   {"FIFO 20", classes.realTime.figure("").limit}};
    rows.push_back({"punctuality",
                    "1000 us, none, best class",
                    "us",
                    {best},
                    "the raised priority beside the best of three bare select loops: default "
                    "class, the same with a timer slack of 1 ns, real-time class"});
    return rows;
}

}  // namespace velmora_bench
