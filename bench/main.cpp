// velmora-bench: is the driver as punctual, as cheap and as small as it must be?
//
// Each line of the table is one column of a row:
//
//   ours      our figure: the median of the rounds
//   limit     what would be enough, measured in the same round directly behind ours
//   ratio     the median of the rounds' ratios, each pair by itself; 1.00 is the limit itself, more
//             is worse
//   allowed   the largest ratio that we accept, "-" where none is laid down; "over" marks a line
//             above it. What stands behind that are further figures to compare with.
//
// What is real-time is told by p50, p99, p99.9 and the worst: a mean says nothing about a stream.
// Below the table a sentence for each row tells how it is measured; what a group of rows asks
// stands at the top of its file.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <iostream>

#include "bench/Context.h"
#include "bench/Plot.h"
#include "bench/Report.h"
#include "bench/Responder.h"

namespace {

using namespace velmora_bench;

constexpr double runOverhead = 0.08;  // seconds that a run takes beside its stream

const Group groups[] = {
    {"punctuality", "does each burst leave when it is due?", benchPunctuality,
     [](const Context& c) { return c.rounds * 52 * (c.secondsOr(0.4) * 1.125 + runOverhead); }},
    {"cpu", "what does a second of stream cost?", benchCpu,
     [](const Context& c) { return c.rounds * 22 * (c.secondsOr(0.5) * 1.1 + runOverhead); }},
    {"calls", "what does the driver ask of the system while it streams?", benchCalls,
     [](const Context& c) { return 6 * (c.secondsOr(1) + runOverhead); }},
    {"pieces", "how fast are the loops that every byte passes?", benchPieces,
     [](const Context& c) { return c.rounds * 73 * 0.03; }},
    {"log", "what does a line of log cost?", benchLog,
     [](const Context& c) { return c.rounds * 0.1; }},
    {"opening", "how long do init, start and stop take?", benchOpening,
     [](const Context& c) { return c.interfaces == 0 || c.space.empty() ? 0.0 : c.rounds * 0.45; }},
    {"memory", "what does a playing stream hold?", benchMemory,
     [](const Context& c) { return c.secondsOr(1) + runOverhead; }},
    {"feedback", "how does the flow follow a target whose clock is off?", benchFeedbackStep,
     [](const Context&) { return 10.0; }},
    {"discovery", "how long does a search take?", benchDiscovery,
     [](const Context& c) { return c.interfaces == 0 ? 0.0 : c.rounds * 0.1; }},
    {"list", "how long does velmora-find list take?", benchList,
     [](const Context& c) {
         return c.interfaces == 0 || c.findProgram.empty() ? 0.0 : c.rounds * 0.1;
     }},
    {"send", "how fast does a transfer go?", benchSend,
     [](const Context& c) { return c.interfaces == 0 ? 0.0 : c.rounds * 0.5; }},
    {"search", "how does a search grow?", benchSearchGrowth,
     [](const Context& c) { return c.rounds * 0.6; }},
};

struct Options {
    std::vector<std::string> only, jsonFiles;
    std::string compareFile, plotFolder;
    bool asResponder = false;
};

std::string footer() {
    std::string text = "Groups of rows:\n";
    for (const Group& group : groups) {
        text += "  " + std::string(group.name) +
                std::string(14 - std::string(group.name).size(), ' ') + group.question + "\n";
    }
    return text +
           "Exit codes: 0 all rows within what is allowed; 1 a row is over; 2 a bench could not "
           "run.";
}

void setUp(CLI::App& app, Options& options, Context& context) {
    std::vector<std::string> names;
    for (const Group& group : groups) names.emplace_back(group.name);
    app.footer(footer());
    app.add_option("--only", options.only, "these groups of rows")->check(CLI::IsMember(names));
    app.add_option("--rounds", context.rounds, "rounds of each row")
        ->check(CLI::Range(1, 99))
        ->capture_default_str();
    app.add_option("--seconds", context.seconds, "of stream, each run; else each group's own")
        ->check(CLI::Range(0.2, 60.0));
    app.add_option("--json", options.jsonFiles, "writes the rows there too; may be repeated")
        ->type_name("FILE")
        ->allow_extra_args(false);
    app.add_option("--compare", options.compareFile, "an earlier run's JSON: before and after")
        ->type_name("FILE");
    app.add_option("--plot", options.plotFolder, "draws lateness.svg and cpu.svg there")
        ->type_name("FOLDER");
    app.add_option("--space", context.space,
                   "network namespace of the far end; else all stays on loopback");
    app.add_option("--interfaces", context.interfaces,
                   "with what needs a target, over so many interfaces; one must be there");
    app.add_option("--find", context.findProgram, "velmora-find, for its row");
    app.add_flag("--respond", options.asResponder, "be the bare end of the row send, until ended");
}

// What fails is told, and leaves the rows of the other groups alone.
std::vector<Row> runGroups(const Options& options, Context& context, bool& allRan) {
    const auto isWanted = [&](const Group& group) {
        const auto& only = options.only;
        return (only.empty() || std::find(only.begin(), only.end(), group.name) != only.end()) &&
               group.takes(context) != 0;
    };
    for (const Group& group : groups) {
        if (isWanted(group)) context.progress.plan(group.takes(context));
    }
    std::vector<Row> rows;
    for (const Group& group : groups) {
        if (!isWanted(group)) continue;
        context.progress.begin(group.name, group.takes(context));
        try {
            for (Row& row : group.run(context)) rows.push_back(std::move(row));
        } catch (const std::exception& e) {
            std::cerr << '\n' << group.name << ": " << e.what() << '\n';
            allRan = false;
        }
        context.progress.end();
    }
    return rows;
}

bool isWithin(const Row& row) {
    return std::none_of(row.figures.begin(), row.figures.end(),
                        [](const Figure& f) { return f.isOver(); });
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    Context context;
    CLI::App app("Is the driver as punctual, as cheap and as small as it must be?");
    setUp(app, options, context);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;
    }
    if (options.asResponder) return respond();
    std::signal(SIGPIPE, SIG_IGN);  // a far end may have gone before it was told to
    try {
        // Read first: it may be the file that is written below.
        std::vector<Row> before;
        if (!options.compareFile.empty()) before = readJson(options.compareFile);
        bool allRan = true;
        const std::vector<Row> rows = runGroups(options, context, allRan);
        printTable(rows);
        printHow(rows);
        if (!options.compareFile.empty()) printComparison(before, rows);
        for (const std::string& file : options.jsonFiles) writeJson(rows, context.rounds, file);
        if (!options.plotFolder.empty()) drawPictures(context.pictures, options.plotFolder);
        if (!allRan) return 2;
        return std::all_of(rows.begin(), rows.end(), isWithin) ? 0 : 1;
    } catch (const std::exception& e) {
        std::cerr << e.what() << '\n';
        return 2;
    }
}
