// watch: who comes and who goes.
#include <deque>

#include "apps/velmora-find/WatchedTable.h"
#include "apps/velmora-find/Watching.h"
#include "tests/apps/FindWorld.h"

namespace velmora_test {
namespace {

using Change = velmora_find::WatchedTable::Change;
using testing::ElementsAre;
using VELMORA::TargetInfo;
using VELMORA::TargetMap;

TargetInfo sinkOf(const std::string& name, std::uint16_t version = 1) {
    TargetInfo info;
    info.targetName = name;
    info.sinkName = "Main";
    info.sinkNo = 1;
    info.version = version;
    info.findAddress = onLink(2);
    return info;
}
const IPAddress keyA = onLink(2, 19650), keyB = onLink(4, 19650);

// ---- the table ----

class FindWatchedTable : public testing::Test {
protected:
    std::vector<std::string> update(const std::list<IPAddress>& lost, const TargetMap& added) {
        std::vector<std::string> told;
        table.update(lost, added, [&](Change change, const IPAddress&, const TargetInfo& info) {
            told.push_back((change == Change::came ? "+" : "-") + info.targetName +
                           std::to_string(info.version));
        });
        return told;
    }
    velmora_find::WatchedTable table;
};

TEST_F(FindWatchedTable, TellsNothingWhileNothingHappens) {
    EXPECT_THAT(update({}, {}), IsEmpty());
}

TEST_F(FindWatchedTable, TellsWhoCameAndWhoWent) {
    EXPECT_THAT(update({}, {{keyA, sinkOf("a")}, {keyB, sinkOf("b")}}), ElementsAre("+a1", "+b1"));
    EXPECT_THAT(update({keyA}, {}), ElementsAre("-a1"));
    EXPECT_THAT(update({keyA}, {}), IsEmpty());
    EXPECT_EQ(table.size(), 1u);
}

TEST_F(FindWatchedTable, PassesOverASinkThatCameAndWentUnseen) {
    EXPECT_THAT(update({keyA}, {}), IsEmpty());
}

TEST_F(FindWatchedTable, TellsAReplacedSinkAsGoneAndCome) {
    update({}, {{keyA, sinkOf("a")}});
    EXPECT_THAT(update({keyA}, {{keyA, sinkOf("a", 2)}}), ElementsAre("-a1", "+a2"));
    EXPECT_EQ(table.size(), 1u);
}

TEST_F(FindWatchedTable, TellsALossOnceThatIsReadAfterItsReplacement) {
    update({}, {{keyA, sinkOf("a")}});
    EXPECT_THAT(update({}, {{keyA, sinkOf("a", 2)}}), ElementsAre("-a1", "+a2"));
    EXPECT_THAT(update({keyA}, {}), IsEmpty());
    EXPECT_THAT(update({keyA}, {}), ElementsAre("-a2"));
}

TEST_F(FindWatchedTable, TellsALossThatFollowsTheReplacementAtOnce) {
    update({}, {{keyA, sinkOf("a")}});
    update({}, {{keyA, sinkOf("a", 2)}});
    EXPECT_THAT(update({keyA, keyA}, {}), ElementsAre("-a2"));
}

// ---- the loop ----

class ScriptedWatch final : public velmora_find::Watching {
public:
    struct Turn {
        std::list<IPAddress> lost;
        TargetMap added;
    };
    std::deque<Turn> turns;
    std::function<void()> onEnd = [] {};  // when the turns are used up
    bool runs = true;

    bool isWatching() override {
        if (turns.empty()) onEnd();
        return runs;
    }
    void takeLost(std::list<IPAddress>& out) override {
        if (!turns.empty()) out = turns.front().lost;
    }
    void takeAdded(TargetMap& out) override {
        if (turns.empty()) return;
        out = turns.front().added;
        turns.pop_front();
    }
};

class FindFollow : public FindWorld {
protected:
    int follow() {
        out.str("");
        talk.str("");
        return velmora_find::follow(context, options, watch);
    }
    std::vector<Json> lines() const {
        std::vector<Json> all;
        std::istringstream text(out.str());
        for (std::string line; std::getline(text, line);) all.push_back(Json::parse(line));
        return all;
    }
    ScriptedWatch watch;
    velmora_find::Options options;
};

TEST_F(FindFollow, EndsWithItsSeconds) {
    options.seconds = 2.5;
    const auto before = network.time.time();
    EXPECT_EQ(follow(), velmora_find::exitDone);
    EXPECT_NEAR(static_cast<double>(network.time.time() - before), 2.5e6, 1e5);
    EXPECT_THAT(out.str(), IsEmpty());
    EXPECT_THAT(talk.str(), HasSubstr("Waiting for targets to come (+) and go (-)"));
}

TEST_F(FindFollow, LastsLongerThanItsClockCounts) {
    options.seconds = 2 * 4294.967296;  // two turns of 32 bits of microseconds
    const auto before = network.time.time();
    EXPECT_EQ(follow(), velmora_find::exitDone);
    EXPECT_NEAR(static_cast<double>(network.time.time() - before), 2 * 4294967296.0, 2e5);
}

TEST_F(FindFollow, EndsAtAnInterrupt) {
    bool interrupted = false;
    context.interrupted = [&] { return interrupted; };
    watch.turns = {{{}, {{keyA, sinkOf("a")}}}};
    watch.onEnd = [&] { interrupted = true; };
    EXPECT_EQ(follow(), velmora_find::exitDone);
    EXPECT_THAT(talk.str(), HasSubstr("Ctrl-C ends it"));
    EXPECT_EQ(out.str(), "09:08:07  + a(Main)  fe80::2%eth0  sink 1, version 1\n");
}

TEST_F(FindFollow, SaysSoWhenTheWatchEndedByItselfAndTellsWhatItFoundBefore) {
    watch.turns = {{{}, {{keyA, sinkOf("a")}}}, {{keyA}, {}}};
    watch.onEnd = [&] { watch.runs = false; };
    EXPECT_EQ(follow(), velmora_find::exitWatchEnded);
    EXPECT_EQ(out.str(),
              "09:08:07  + a(Main)  fe80::2%eth0  sink 1, version 1\n"
              "09:08:07  - a(Main)  fe80::2%eth0  sink 1, version 1\n");
    EXPECT_THAT(talk.str(), HasSubstr("The watch ended by itself"));
}

TEST_F(FindFollow, EndsWhenItsOutputHasGone) {
    out.setstate(std::ios::badbit);
    options.seconds = 1000;
    watch.turns = {{{}, {{keyA, sinkOf("a")}}}};
    const auto before = network.time.time();
    EXPECT_EQ(follow(), velmora_find::exitFile);
    EXPECT_LT(network.time.time() - before, 1'000'000u);
}

TEST_F(FindFollow, GivesAnObjectALine) {
    options.json = true;
    watch.turns = {{{}, {{keyA, sinkOf("a\x1b")}}}, {{keyA}, {}}};
    watch.onEnd = [&] { watch.runs = false; };
    EXPECT_EQ(follow(), velmora_find::exitWatchEnded);
    const auto all = lines();
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all[0]["event"], "watching");
    EXPECT_EQ(all[1]["event"], "added");
    EXPECT_EQ(all[1]["time"], "09:08:07");
    EXPECT_EQ(all[1]["name"], "a\\x1b(Main)");
    EXPECT_EQ(all[1]["address"], "fe80::2%eth0");
    EXPECT_EQ(all[2]["event"], "lost");
    EXPECT_EQ(all[3]["event"], "ended");
}

// ---- the command ----

using FindWatch = FindWorld;

TEST_F(FindWatch, NeedsAnInterfaceAndItsPort) {
    network.interfaces.clear();
    EXPECT_EQ(run({"watch", "--seconds", "1"}), velmora_find::exitNetwork);
    EXPECT_THAT(talk.str(), HasSubstr("nothing to watch"));
    network.interfaces[onLink(1, 0)] = {"eth0", ""};
    network.joinFails = true;
    EXPECT_EQ(run({"watch", "--seconds", "1"}), velmora_find::exitNetwork);
    EXPECT_THAT(talk.str(), HasSubstr("19643"));
    EXPECT_EQ(network.openLinks(), 0);
}

}  // namespace
}  // namespace velmora_test
