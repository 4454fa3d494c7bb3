// watch: who comes and who goes.
#include <cstdio>

#include "apps/velmora-find/Address.h"
#include "apps/velmora-find/Commands.h"
#include "apps/velmora-find/ExitCode.h"
#include "apps/velmora-find/Printable.h"
#include "apps/velmora-find/SinkRows.h"
#include "apps/velmora-find/Target.h"
#include "apps/velmora-find/WatchedTable.h"
#include "apps/velmora-find/Watching.h"

namespace velmora_find {
namespace {

using Change = WatchedTable::Change;

constexpr std::uint64_t lookEvery = 100'000;  // µs

class FindWatch final : public Watching {
public:
    explicit FindWatch(VELMORA::Find& find) : find_(find) { find_.startWatch(); }
    // close() rather than stopWatch(): it also ends a first search, which may take two minutes.
    ~FindWatch() override { find_.close(); }
    bool isWatching() override { return find_.isWatching(); }
    void takeLost(std::list<ZENNO::IPAddress>& out) override { find_.takeLost(out); }
    void takeAdded(VELMORA::TargetMap& out) override { find_.takeAdded(out); }

private:
    VELMORA::Find& find_;
};

std::string timeText(const ZENNO::platform::LocalTime& time) {
    char text[40];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d", time.hour, time.minute, time.second);
    return text;
}

class Lines {
public:
    Lines(Context& context, bool json) : context_(context), json_(json) {}

    void change(Change change, const ZENNO::IPAddress& key, const VELMORA::TargetInfo& info) {
        const Links links = Links::of(context_.environment);  // interfaces come and go as well
        const VELMORA::FinderRecord sink = recordOf(info);
        if (json_) {
            Json line = event(change == Change::came ? "added" : "lost");
            line.update(sinkJson(key, sink, links));
            line.erase("config");  // the watch does not ask for it
            print(line);
            return;
        }
        context_.out << timeText(context_.localTime()) << (change == Change::came ? "  + " : "  - ")
                     << printable(sink.targetName) << "  " << shownAddress(sink.findAddress, links)
                     << "  sink " << sink.sinkNo << ", version " << sink.version << std::endl;
    }
    Json event(const char* name) const {
        return {{"event", name}, {"time", timeText(context_.localTime())}};
    }
    void print(const Json& line) { context_.out << line.dump() << std::endl; }
    void tell(const char* name, const std::string& sentence) {
        if (json_) print(event(name));
        context_.talk << sentence << std::endl;
    }

private:
    Context& context_;
    bool json_;
};

}  // namespace

int follow(Context& context, const Options& options, Watching& watch) {
    Lines lines(context, options.json);
    lines.tell("watching", std::string("Waiting for ") +
                               (options.all ? "targets of every product" : "targets") +
                               " to come (+) and go (-); one that was switched off is missed after "
                               "half a minute or more." +
                               (options.seconds ? "" : " Ctrl-C ends it."));
    WatchedTable table;
    const auto look = [&] {
        std::list<ZENNO::IPAddress> lost;
        VELMORA::TargetMap added;
        watch.takeLost(lost);
        watch.takeAdded(added);
        table.update(lost, added,
                     [&](Change change, const ZENNO::IPAddress& key,
                         const VELMORA::TargetInfo& info) { lines.change(change, key, info); });
    };
    ZENNO::Clock& clock = context.environment.clock();
    double passed = 0;  // s; summed up, for the clock wraps
    for (std::uint32_t before = clock.now(); !options.seconds || passed < *options.seconds;) {
        // Asked first: what it has found until it ended is still told.
        const bool goesOn = watch.isWatching();
        look();
        if (!context.out) return exitFile;  // nobody can read what comes
        if (!goesOn) {
            lines.tell("ended",
                       "The watch ended by itself: the network socket failed. Has an "
                       "interface gone?");
            return exitWatchEnded;
        }
        if (context.interrupted()) return exitDone;
        clock.sleep(lookEvery);
        const std::uint32_t now = clock.now();
        passed += (now - before) / 1e6;
        before = now;
    }
    look();
    return exitDone;
}

int watchCommand(Context& context, const Options& options) {
    Asking asking(context, options.all ? everybody() : asTheDriver(), options.interface);
    if (asking.find().getInterfaces().empty()) {
        throw Stop{exitNetwork,
                   "No interface of this computer has an address fe80::, so there is "
                   "nothing to watch; \"velmora-find doctor\" tells more."};
    }
    if (!asking.find().openWatch()) {
        throw Stop{exitNetwork,
                   "The notices of targets (port 19643) cannot be heard: another "
                   "program holds the port, or an interface takes no multicast."};
    }
    context.onWatch();
    FindWatch watch(asking.find());
    return follow(context, options, watch);
}

}  // namespace velmora_find
