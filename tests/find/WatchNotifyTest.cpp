// A target that notifies: what its change word brings about.
#include "tests/find/WatchScript.h"

namespace velmora_test {
namespace {

// One target answers the polls, so that the watch listens from firstListen on; the one that
// notifies is deaf to them, and its coming and going is told by its datagrams alone.
class WatchNotify : public WatchTest {
protected:
    WatchNotify() {
        leaves(sender);
        comesAt(second / 2, sender, target);
        target.behave(Manner::silent, wire::FIND_REQ::id, 1);
        target.sinks = {{6000, 1, "one"}};
        target.name = "room";
        target.product = 77;
    }
    // The steady one notifies as well and holds the pass open for its 120 s.
    void holdPassOpen() {
        notifyEvery(10 * second, firstListen + 5 * second, 200 * second, control(1), 100);
    }
    int identified() const { return target.count(wire::HELLO_REQ::id); }
    int updated() const { return target.count(wire::SINK_REQ::id) / 2; }  // with one sink
    std::vector<std::string> storyBehindStartup() const {
        auto out = story();
        if (!out.empty()) out.erase(out.begin());
        return out;
    }
    const IPAddress sender = control(2);
    ScriptedTarget steady{network, control(1)};
    ScriptedTarget target{network, sender};
};

TEST_F(WatchNotify, OfANewSenderIdentifiesItAndAddsItAtOnce) {
    notifyAt(2 * second, sender, 5);
    runUntil(3 * second);
    EXPECT_THAT(target.order(), ElementsAre("FIND_REQ", "HELLO_REQ", "SINK_REQ 0", "SINK_REQ 1"));
    EXPECT_THAT(storyBehindStartup(), ElementsAre("add Target: room 1"));
    EXPECT_EQ(times(6, "add Target: room 1"), std::vector<Micros>{2 * second});
    const TargetMap entries = added();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries.begin()->first, linkLocal(2, 6000));
    EXPECT_EQ(entries.begin()->second.findAddress, sender);
    EXPECT_EQ(entries.begin()->second.productID, 77u);
    EXPECT_EQ(entries.begin()->second.targetName, "room");
    EXPECT_EQ(entries.begin()->second.sinkName, "one");
    EXPECT_THAT(askedAt(sender, wire::FIND_REQ::id), ElementsAre(2 * second));
}

TEST_F(WatchNotify, Words555CountOnceAndAreSilenceBehindThat) {
    holdPassOpen();
    for (const Micros time : std::initializer_list<Micros>{2, 12, 22})
        notifyAt(time * second, sender, 5);
    runUntil(firstListen + 60 * second);
    EXPECT_EQ(identified(), 1);
    EXPECT_EQ(updated(), 1);
    const auto pings = times(6, "can not lost: 77");
    ASSERT_FALSE(pings.empty());
    // 30 s after the first, when the first check behind the 30 s of listening comes.
    EXPECT_GT(pings.front(), 32 * second);
    EXPECT_LT(pings.front(), 34 * second);
}

TEST_F(WatchNotify, Words120IdentifyTwiceAndUpdateThreeTimes) {
    notifyAt(2 * second, sender, 1);
    notifyAt(3 * second, sender, 2);
    notifyAt(4 * second, sender, 0);
    runUntil(5 * second);
    EXPECT_THAT(target.order(),
                ElementsAre("FIND_REQ", "HELLO_REQ", "SINK_REQ 0", "SINK_REQ 1",  // 1
                            "SINK_REQ 0", "SINK_REQ 1",                           // 2
                            "FIND_REQ", "HELLO_REQ", "SINK_REQ 0", "SINK_REQ 1"));
    EXPECT_THAT(storyBehindStartup(), ElementsAre("add Target: room 1"));
}

TEST_F(WatchNotify, OfWord0FirstIsAFirstAndARepeated0IsNothing) {
    notifyAt(2 * second, sender, 0);
    notifyAt(3 * second, sender, 0);
    runUntil(4 * second);
    EXPECT_EQ(identified(), 1);
    EXPECT_EQ(updated(), 1);
    EXPECT_EQ(find->targetCount(), 1u);
}

TEST_F(WatchNotify, ReadsAll16BitsOfTheWord) {
    notifyAt(2 * second, sender, 0x0100);
    notifyAt(3 * second, sender, 0x0200);
    notifyAt(4 * second, sender, 0xffff);
    runUntil(5 * second);
    EXPECT_EQ(identified(), 1) << "none of them is 0";
    EXPECT_EQ(updated(), 3);
}

TEST_F(WatchNotify, AWordThatChangesBackCounts) {
    for (Micros i = 0; i < 4; ++i) {
        notifyAt((2 + i) * second, sender, static_cast<std::uint16_t>(1 + i % 2));
    }
    runUntil(7 * second);
    EXPECT_EQ(updated(), 4);
}

TEST_F(WatchNotify, BringsNewAndVanishedSinksAtOnce) {
    notifyAt(2 * second, sender, 1);
    at(3 * second, [&] { target.sinks = {{6001, 1, "two"}}; });
    notifyAt(4 * second, sender, 2);
    runUntil(5 * second);
    EXPECT_THAT(storyBehindStartup(),
                ElementsAre("add Target: room 1", "del Target: room 1", "add Target: room 1"));
    EXPECT_THAT(lost(), ElementsAre(linkLocal(2, 6000)));
    EXPECT_EQ(added().begin()->first, linkLocal(2, 6001));
}

TEST_F(WatchNotify, TakesNewNameAndProductOnlyFromARestart) {
    notifyAt(2 * second, sender, 1);
    at(3 * second, [&] {
        target.name = "hall";
        target.product = 78;
        target.sinks.push_back({6001, 1, "two"});
    });
    notifyAt(4 * second, sender, 2);
    at(5 * second, [&] { target.sinks.push_back({6002, 1, "three"}); });
    notifyAt(6 * second, sender, 0);
    runUntil(7 * second);
    EXPECT_THAT(storyBehindStartup(),
                ElementsAre("add Target: room 1", "add Target: room 2", "add Target: hall 3"));
    const TargetMap entries = added();
    EXPECT_EQ(entries.at(linkLocal(2, 6001)).productID, 77u);
    EXPECT_EQ(entries.at(linkLocal(2, 6002)).productID, 78u);
}

TEST_F(WatchNotify, IsAnsweredAtTheSendersOwnPort) {
    const IPAddress other = linkLocal(2, 5555);
    target.alsoAt(other);
    notifyAt(2 * second, other, 1);
    runUntil(3 * second);
    EXPECT_THAT(askedAt(other, wire::FIND_REQ::id), ElementsAre(2 * second));
    EXPECT_THAT(askedAt(sender, wire::FIND_REQ::id), IsEmpty());
    ASSERT_EQ(find->targetCount(), 1u);
    EXPECT_EQ(added().begin()->second.findAddress, other);
}

// ---- who is not added ----

TEST_F(WatchNotify, OfATargetThatTheFilterRefusesKeepsItActiveAndOutOfTheTable) {
    setting.filterID = 7;
    steady.product = 7;
    notifyEvery(10 * second, 2 * second, 40 * second, sender, 1);
    runUntil(40 * second);
    EXPECT_EQ(identified(), 1);
    EXPECT_EQ(target.count(wire::SINK_REQ::id), 0);
    EXPECT_EQ(find->targetCount(), 0u);
    EXPECT_EQ(count(6, "Find Skip : 77 7"), 1u);
    // Somebody is active, and only so is it asked whether the steady one is heard.
    EXPECT_EQ(count(6, "exit notify mode nomuch : 0"), 1u);
}

TEST_F(WatchNotify, OfARefusedTargetPingsItAsAnyOther) {
    setting.filterID = 7;
    steady.product = 7;
    holdPassOpen();
    notifyAt(2 * second, sender, 1);
    runUntil(firstListen + 40 * second);
    EXPECT_EQ(count(6, "can not lost: 77"), 1u);
    EXPECT_EQ(target.count(wire::SINK_REQ::id), 0);
}

TEST_F(WatchNotify, OfARefusedTargetAsksItAgainWhenItStartsAnew) {
    setting.filterID = 7;
    notifyAt(2 * second, sender, 1);
    at(3 * second, [&] { target.product = 7; });
    notifyAt(4 * second, sender, 2);
    notifyAt(6 * second, sender, 0);
    std::vector<std::uint64_t> counts;
    at(5 * second, [&] { counts.push_back(find->targetCount()); });
    at(7 * second, [&] { counts.push_back(find->targetCount()); });
    runUntil(8 * second);
    EXPECT_THAT(counts, ElementsAre(0, 1));
    EXPECT_EQ(identified(), 2);
}

TEST_F(WatchNotify, OfATargetThatDoesNotTellWhoItIsKeepsItOutOfTheTable) {
    target.behave(Manner::silent, wire::FIND_REQ::id);
    notifyAt(2 * second, sender, 1);
    at(3 * second, [&] { target.behave(Manner::answers, wire::FIND_REQ::id); });
    notifyAt(4 * second, sender, 2);
    notifyAt(6 * second, sender, 0);
    std::vector<std::uint64_t> counts;
    at(5 * second, [&] { counts.push_back(find->targetCount()); });
    at(7 * second, [&] { counts.push_back(find->targetCount()); });
    runUntil(8 * second);
    EXPECT_THAT(counts, ElementsAre(0, 1));
    EXPECT_EQ(updated(), 1);
}

TEST_F(WatchNotify, OfARestartThatNobodyIdentifiesAddsNothing) {
    notifyAt(2 * second, sender, 1);
    at(3 * second, [&] {
        target.behave(Manner::silent, wire::FIND_REQ::id);
        target.sinks.push_back({6001, 1, "two"});
    });
    notifyAt(4 * second, sender, 0);
    notifyAt(6 * second, sender, 1);
    runUntil(7 * second);
    EXPECT_EQ(find->targetCount(), 1u);
    EXPECT_EQ(updated(), 1);
}

// ---- its time ----

TEST_F(WatchNotify, OfARepeatedWordDoesNotMakeASenderYounger) {
    holdPassOpen();
    for (Micros time = 10; time < 60; ++time) notifyAt(firstListen + time * second, sender, 5);
    runUntil(firstListen + 60 * second);
    const auto pings = times(6, "can not lost: 77");
    ASSERT_FALSE(pings.empty());
    EXPECT_EQ(pings.front(), firstListen + 41 * second);
}

TEST_F(WatchNotify, OfAChangedWordMakesASenderYounger) {
    holdPassOpen();
    notifyAt(firstListen + 5 * second, sender, 5);
    notifyAt(firstListen + 20 * second, sender, 6);
    runUntil(firstListen + 60 * second);
    EXPECT_EQ(times(6, "can not lost: 77"), std::vector<Micros>{firstListen + 51 * second});
}

// ---- after it was lost, and in the next pass ----

TEST_F(WatchNotify, OfALostSenderIsAFirstEvenWithTheSameWord) {
    holdPassOpen();
    notifyAt(2 * second, sender, 5);
    leavesAt(3 * second, sender);
    comesAt(50 * second, sender, target);
    std::uint64_t between = 9;
    at(45 * second, [&] { between = find->targetCount(); });
    notifyAt(51 * second, sender, 5);
    runUntil(52 * second);
    EXPECT_EQ(between, 0u);
    EXPECT_EQ(identified(), 2);
    EXPECT_EQ(find->targetCount(), 1u);
    EXPECT_THAT(lost(), ElementsAre(linkLocal(2, 6000)));
}

TEST_F(WatchNotify, IsAFirstAgainInEachPass) {
    notifyAt(2 * second, sender, 5);  // the pass ends 32 s later: the steady one does not notify
    notifyAt(40 * second, sender, 5);
    runUntil(41 * second);
    EXPECT_EQ(count(6, "exit notify mode nomuch : 1"), 1u);
    EXPECT_EQ(identified(), 2);
}

TEST_F(WatchNotify, OfTwoSendersAreTwo) {
    ScriptedTarget other(network, control(3));
    other.behave(Manner::silent, wire::FIND_REQ::id, 1);
    other.sinks = {{6000, 1, "one"}};
    other.name = "hall";
    notifyAt(2 * second, control(3), 5);
    notifyAt(2 * second, sender, 5);
    notifyAt(3 * second, control(3), 6);
    runUntil(4 * second);
    EXPECT_EQ(find->targetCount(), 2u);
    EXPECT_EQ(updated(), 1);
    EXPECT_EQ(other.count(wire::SINK_REQ::id), 4);
}

}  // namespace
}  // namespace velmora_test
