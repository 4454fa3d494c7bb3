// The watch's first search: it goes on until somebody answers, but not for ever.
#include "tests/find/WatchScript.h"

namespace velmora_test {
namespace {

class WatchStartup : public WatchTest {};

TEST_F(WatchStartup, OfAnEmptyLinkIsTriedAgainASecondAfterEachSearchFor120Seconds) {
    runUntil(125 * second);
    std::vector<Micros> expected;
    for (Micros turn = 0; turn * (second + findTime) <= 120 * second; ++turn) {
        expected.push_back(turn * (second + findTime) + findTime);
    }
    ASSERT_EQ(expected.size(), 111u);
    EXPECT_EQ(times(6, "Startup mode retry"), expected);
    EXPECT_EQ(texts(6).size(), 111u);
    EXPECT_EQ(network.time.sleeps, 111);
    EXPECT_EQ(find->targetCount(), 0u);
}

TEST_F(WatchStartup, IsFollowedByAFirstEmptyPass) {
    runUntil(160 * second);
    const Micros listen = 111 * (second + findTime);
    EXPECT_EQ(times(6, "exit notify mode alldown : 0"), std::vector<Micros>{listen + 32 * second});
    EXPECT_EQ(count(6, "Startup mode finish"), 0u);
    EXPECT_EQ(count(6, "Startup mode retry"), 111u);
}

// Without an interface a search takes no time, and the 121st try begins exactly at the limit.
TEST_F(WatchStartup, StillTriesAtTheLimitItself) {
    network.interfaces.clear();
    runUntil(121 * second + 1);
    const auto retries = times(6, "Startup mode retry");
    ASSERT_EQ(retries.size(), 121u);
    EXPECT_EQ(retries.back(), 120 * second);
}

TEST_F(WatchStartup, AsksOnceMoreWhenSomebodyAnswers) {
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "one"}};
    runUntil(second);
    EXPECT_THAT(target.order(),
                ElementsAre("multicast FIND_REQ 1", "multicast FIND_REQ 1", "multicast FIND_REQ 1",
                            "HELLO_REQ", "multicast FIND_REQ 1", "multicast FIND_REQ 1",
                            "multicast FIND_REQ 1", "HELLO_REQ", "SINK_REQ 0", "SINK_REQ 1"));
    EXPECT_THAT(texts(6), ElementsAre("Find Target: 0", "Find Target: 0", "Startup mode finish",
                                      "add Target: target 1"));
    EXPECT_EQ(times(6, "Startup mode finish"), std::vector<Micros>{2 * findTime});
    EXPECT_EQ(network.time.sleeps, 0);
}

TEST_F(WatchStartup, AsksInTheseBytes) {
    runUntil(second);
    const auto sent = sentByHost();
    ASSERT_GE(sent.size(), 3u);
    for (const Datagram& datagram : sent) {
        EXPECT_EQ(datagram.data, findReqMode1);
        EXPECT_EQ(datagram.to, IPAddress::allNodes(19642, eth0));
    }
}

TEST_F(WatchStartup, FindsWhomTheFirstOfItsTwoSearchesMissed) {
    ScriptedTarget early(network, control(1)), late(network, control(2));
    early.sinks = late.sinks = {{6000, 1, "one"}};
    leaves(control(2));
    comesAt(findTime + 10'000, control(2), late);
    runUntil(second);
    EXPECT_EQ(find->targetCount(), 2u);
}

TEST_F(WatchStartup, KeepsWhoAnsweredOnlyTheFirstOfItsTwoSearches) {
    ScriptedTarget early(network, control(1)), steady(network, control(2));
    early.sinks = steady.sinks = {{6000, 1, "one"}};
    network.fate = [](const Datagram& datagram) -> Fate {
        const bool isLater = datagram.time - FakeClock::start >= findTime;
        if (isLater && !datagram.toPeer && datagram.from == control(1) &&
            wire::load16(datagram.data, 4) == wire::FIND_ANS::id) {
            return {};
        }
        return {{0, std::nullopt}};
    };
    runUntil(second);
    EXPECT_EQ(find->targetCount(), 2u);
    EXPECT_EQ(early.count(wire::HELLO_REQ::id), 1);
    EXPECT_EQ(steady.count(wire::HELLO_REQ::id), 2);
}

TEST_F(WatchStartup, FinishesWithTheTryThatSomebodyAnswers) {
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "one"}};
    leaves(control(1));
    comesAt(10 * second, control(1), target);
    runUntil(15 * second);
    EXPECT_EQ(count(6, "Startup mode retry"), 10u);
    EXPECT_EQ(times(6, "Startup mode finish"),
              std::vector<Micros>{10 * (second + findTime) + 2 * findTime});
    EXPECT_EQ(find->targetCount(), 1u);
}

TEST_F(WatchStartup, IsStoppedOnlyWhenItIsOver) {
    bool watchingThen = true;
    at(11 * second, [&] { watchingThen = find->isWatching(); });
    runUntil(10 * second);
    EXPECT_FALSE(watchingThen);
    EXPECT_EQ(count(6, "Startup mode retry"), 111u);
    EXPECT_EQ(texts(6).size(), 111u) << "and nothing is listened to behind it";
    EXPECT_EQ(ended, 111 * (second + findTime));
}

TEST_F(WatchStartup, ServesWhoAnswersAfterAStop) {
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "one"}};
    leaves(control(1));
    comesAt(50 * second, control(1), target);
    runUntil(10 * second);
    EXPECT_EQ(find->targetCount(), 1u);
    ASSERT_EQ(count(6, "Startup mode finish"), 1u);
    EXPECT_EQ(ended, times(6, "Startup mode finish").front());
}

TEST_F(WatchStartup, TakesATargetThatTheFilterRefusesForNone) {
    setting.filterID = 7;
    ScriptedTarget target(network, control(1));
    target.product = 9;
    runUntil(125 * second);
    EXPECT_EQ(count(6, "Startup mode retry"), 111u);
    EXPECT_EQ(count(6, "Startup mode finish"), 0u);
    EXPECT_EQ(count(6, "Find Skip : 9 7"), 111u);
}

// Nobody reads the socket meanwhile: the datagrams wait in it.
TEST_F(WatchStartup, HearsAfterwardsWhoNotifiedMeanwhile) {
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "one"}};
    leaves(control(1));
    notifyAt(5 * second, control(1), 5);
    comesAt(111 * (second + findTime) - 1, control(1), target);
    runUntil(122 * second);
    EXPECT_EQ(count(6, "Startup mode retry"), 111u);
    EXPECT_EQ(find->targetCount(), 1u);
}

}  // namespace
}  // namespace velmora_test
