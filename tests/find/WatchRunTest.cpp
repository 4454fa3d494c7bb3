// The watch over hours: targets come, go, fall silent, notify, repeat themselves and start anew,
// and the table tells at each moment who is there. The clock's 32 bits wrap three times on the way.
#include <algorithm>

#include "tests/find/WatchScript.h"

namespace velmora_test {
namespace {

class WatchRun : public WatchTest {
protected:
    // What a user sees who looks at the table now and then.
    void expectAt(Micros time, const char* why, std::vector<IPAddress> newOnes,
                  std::vector<IPAddress> lostOnes, std::uint64_t count) {
        at(time, [=, this] {
            ++looks;
            SCOPED_TRACE(why);
            std::vector<IPAddress> keys;
            for (const auto& [key, info] : added()) keys.push_back(key);
            const auto gone = lost();
            EXPECT_EQ(keys, newOnes);
            EXPECT_EQ(std::vector<IPAddress>(gone.begin(), gone.end()), lostOnes);
            EXPECT_EQ(find->targetCount(), count);
            EXPECT_TRUE(find->isWatching());
        });
    }
    int looks = 0;
};

TEST_F(WatchRun, OverThreeHoursTellsWhoIsThere) {
    ScriptedTarget a(network, control(1)), b(network, control(2));
    a.name = "a";
    a.product = 71;
    a.sinks = {{6000, 1, "one"}};
    b.name = "b";
    b.product = 72;
    b.sinks = {{6100, 1, "one"}, {6101, 1, "two"}};
    leaves(control(1));
    leaves(control(2));
    const IPAddress a1 = linkLocal(1, 6000), a2 = linkLocal(1, 6001);
    const IPAddress b1 = linkLocal(2, 6100), b2 = linkLocal(2, 6101);

    expectAt(600 * second, "nobody", {}, {}, 0);
    comesAt(601 * second, control(1), a);
    expectAt(640 * second, "a is found by a poll, at most some 33 s later", {a1}, {}, 1);

    notifyEvery(20 * second, 1200 * second, 3000 * second, control(1), 1);
    expectAt(3000 * second, "a notifies, and polls are 121 s apart", {}, {}, 1);
    expectAt(3590 * second, "a notifies no more, but answers", {}, {}, 1);
    leavesAt(3600 * second, control(1));
    expectAt(3640 * second, "a is gone", {}, {a1}, 0);

    comesAt(4205 * second, control(1), a);
    notifyAt(4206 * second, control(1), 0);
    expectAt(4207 * second, "a starts, and says so", {a1}, {}, 1);
    notifyEvery(20 * second, 4226 * second, 7000 * second, control(1), 1);

    comesAt(5000 * second, control(2), b);
    expectAt(5130 * second, "b does not notify: a poll finds it", {b1, b2}, {}, 3);

    at(6000 * second, [&] { a.sinks = {{6001, 1, "other"}}; });
    notifyAt(6001 * second, control(1), 0);
    expectAt(6002 * second, "a starts anew with another sink", {a2}, {a1}, 3);

    for (Micros time = 7000; time < 8500; time += 20) notifyAt(time * second, control(1), 9);
    expectAt(7990 * second, "a repeats its word, and answers when asked", {}, {}, 3);

    leavesAt(8000 * second, control(2));
    expectAt(8040 * second, "b is gone", {}, {b1, b2}, 1);
    at(8100 * second, [&] { a.behaveToAll(Manner::silent); });
    expectAt(8140 * second, "a repeats its word and answers nobody", {}, {a2}, 0);
    // Each pass takes the repeated word for a first one. It tells nobody who it is.
    expectAt(8500 * second, "a notifies as before and tells nothing of itself", {}, {}, 0);

    leavesAt(8510 * second, control(1));
    at(9000 * second, [&] { a.behaveToAll(Manner::answers); });
    comesAt(9001 * second, control(1), a);
    comesAt(9001 * second, control(2), b);
    expectAt(9040 * second, "both are back", {a2, b1, b2}, {}, 3);
    leavesAt(10000 * second, control(1));
    leavesAt(10000 * second, control(2));
    expectAt(10040 * second, "both are gone", {}, {a2, b1, b2}, 0);

    constexpr Micros end = 3 * 3600 * second + 100 * second;
    runUntil(end);
    EXPECT_EQ(looks, 14);
    EXPECT_GE(ended, end);
    EXPECT_LE(ended, end + second);
}

// While a target notifies as it should, everybody is asked every two minutes; else about every 30
// s.
TEST_F(WatchRun, OverThreeHoursKeepsToItsRhythm) {
    ScriptedTarget target(network, control(1));
    notifyEvery(10 * second, 3600 * second, 7200 * second, control(1), 1);
    runUntil(3 * 3600 * second);
    const auto all = polls();
    const auto between = [&](Micros begin, Micros end) {
        return std::count_if(all.begin(), all.end(),
                             [&](Micros poll) { return poll >= begin && poll < end; });
    };
    EXPECT_NEAR(static_cast<double>(between(0, 3600 * second)), 3600 / 32.09, 2);
    EXPECT_NEAR(static_cast<double>(between(3600 * second, 7200 * second)), 3600 / 121.09, 2);
    EXPECT_NEAR(static_cast<double>(between(7200 * second, 10800 * second)), 3600 / 32.09, 5);
    EXPECT_EQ(count(6, "retry 1"), 0u);
    EXPECT_EQ(count(6, "retry 2"), 0u);
}

TEST_F(WatchRun, OfATargetOnTwoLinksTellsTwoEntries) {
    addInterface(linkLocal(0x105, 0, 5), "wlan0");
    ScriptedTarget target(network, control(1));
    target.alsoAt(control(1, 5));
    target.sinks = {{6000, 1, "one"}};
    expectAt(second, "once a link", {linkLocal(1, 6000), linkLocal(1, 6000, 5)}, {}, 2);
    // One of its links fails; on the other it goes on.
    leavesAt(10 * second, control(1, 5));
    expectAt(45 * second, "one link is left", {}, {linkLocal(1, 6000, 5)}, 1);
    runUntil(50 * second);
    EXPECT_EQ(looks, 2);
}

TEST_F(WatchRun, OfATargetThatNotifiesOnTwoLinksKeepsTheTwoApart) {
    addInterface(linkLocal(0x105, 0, 5), "wlan0");
    ScriptedTarget target(network, control(1));
    target.alsoAt(control(1, 5));
    target.sinks = {{6000, 1, "one"}};
    notifyEvery(10 * second, 5 * second, 130 * second, control(1), 1);
    notifyEvery(10 * second, 5 * second, 50 * second, control(1, 5), 1);
    leavesAt(50 * second, control(1, 5));
    expectAt(60 * second, "it is not missed yet", {linkLocal(1, 6000), linkLocal(1, 6000, 5)}, {},
             2);
    expectAt(80 * second, "one link is left", {}, {linkLocal(1, 6000, 5)}, 1);
    runUntil(118 * second);
    EXPECT_EQ(looks, 2);
    EXPECT_EQ(polls(3).size(), 2u) << "all in the first pass";
    EXPECT_EQ(polls(5).size(), 2u);
}

TEST_F(WatchRun, OfTwoTargetsLosesTheOneThatGoes) {
    ScriptedTarget a(network, control(1)), b(network, control(2));
    a.sinks = b.sinks = {{6000, 1, "one"}};
    leavesAt(10 * second, control(1));
    expectAt(9 * second, "both", {linkLocal(1, 6000), linkLocal(2, 6000)}, {}, 2);
    expectAt(40 * second, "one", {}, {linkLocal(1, 6000)}, 1);
    runUntil(100 * second);
    EXPECT_EQ(looks, 2);
    EXPECT_EQ(find->targetCount(), 1u);
}

}  // namespace
}  // namespace velmora_test
