// The table and the greeting, where a link is worse than any real one: what has not been asked
// cannot be missed, and nobody holds the watch for long.
#include "tests/find/WatchScript.h"

namespace velmora_test {
namespace {

class WatchTable : public WatchTest {};

TEST_F(WatchTable, ReportsNoSinkLostThatAWalkCutShortDidNotReach) {
    ScriptedTarget target(network, control(1));
    for (std::uint16_t no = 1; no <= 500; ++no) {
        target.sinks.push_back({static_cast<std::uint16_t>(6000 + no), 1, "sink"});
    }
    Find& found = openedForWatch();
    ASSERT_TRUE(found.addTarget(control(1), 7, "t"));
    ASSERT_EQ(found.targetCount(), 500u);
    // Each answer comes just in time now: some 300 of them fit in 30 s.
    target.answerDelay[wire::SINK_REQ::id] = 99'000;
    for (int call = 0; call < 3; ++call) {
        EXPECT_LE(duration([&] { EXPECT_TRUE(found.addTarget(control(1), 7, "t")); }),
                  VELMORA::sinkWalkLimit + 2 * second / 10);
        EXPECT_EQ(found.targetCount(), 500u);
        EXPECT_THAT(lost(), IsEmpty());
    }
    EXPECT_EQ(count(6, "del Target: t 500"), 0u);
}

TEST_F(WatchTable, ReportsAVanishedSinkWhenItsNumberIsBehindTheCount) {
    ScriptedTarget target(network, control(1));
    target.sinks = {{6001, 1, "one"}, {6002, 1, "two"}};
    Find& found = openedForWatch();
    ASSERT_TRUE(found.addTarget(control(1), 7, "t"));
    target.sinks.pop_back();
    ASSERT_TRUE(found.addTarget(control(1), 7, "t"));
    EXPECT_THAT(lost(), ElementsAre(linkLocal(1, 6002))) << "a whole walk: it is gone";
}

TEST_F(WatchTable, ReportsAVanishedSinkWithTheNextWholeWalk) {
    ScriptedTarget target(network, control(1));
    for (std::uint16_t no = 1; no <= 400; ++no) {
        target.sinks.push_back({static_cast<std::uint16_t>(6000 + no), 1, "sink"});
    }
    Find& found = openedForWatch();
    ASSERT_TRUE(found.addTarget(control(1), 7, "t"));
    target.answerDelay[wire::SINK_REQ::id] = 99'000;
    target.sinks[4].port = 0;
    ASSERT_TRUE(found.addTarget(control(1), 7, "t"));
    EXPECT_THAT(lost(), IsEmpty());
    target.answerDelay.clear();
    ASSERT_TRUE(found.addTarget(control(1), 7, "t"));
    EXPECT_THAT(lost(), ElementsAre(linkLocal(1, 6005)));
    EXPECT_EQ(found.targetCount(), 399u);
}

// The sinks that a cut walk did reach are as good as any.
TEST_F(WatchTable, AddsTheNewSinksOfACutWalk) {
    ScriptedTarget target(network, control(1));
    target.answerDelay[wire::SINK_REQ::id] = 99'000;
    for (std::uint16_t no = 1; no <= 400; ++no) {
        target.sinks.push_back({static_cast<std::uint16_t>(6000 + no), 1, "sink"});
    }
    Find& found = openedForWatch();
    ASSERT_TRUE(found.addTarget(control(1), 7, "t"));
    EXPECT_GE(found.targetCount(), 300u);
    EXPECT_LT(found.targetCount(), 310u);
}

// Answers from as many addresses as a stranger likes, none of which is there.
TEST_F(WatchTable, IsNotHeldByTheGreetingOfForgedSenders) {
    class Forger final : public Peer {
    public:
        void onDatagram(FakeNetwork& network, const Datagram& datagram) override {
            if (datagram.to.address[0] != 0xff) return;
            for (std::uint16_t i = 0; i < 1024; ++i) {
                network.send(linkLocal(static_cast<std::uint16_t>(0x1000 + i), 19642),
                             datagram.from, write(wire::FIND_ANS{.targetName = "x"}));
            }
        }
    } forger;
    network.attach(control(9), &forger);
    Find& found = openedForWatch();
    VELMORA::FoundMap answers;
    const Micros taken = duration([&] { EXPECT_TRUE(found.findMulti(answers, 1)); });
    EXPECT_LE(taken, findTime + 31 * second);
    EXPECT_LE(answers.size(), VELMORA::mostAnswers);
}

// A network of real targets is far from that limit: each is greeted, if none of them answers, too.
TEST_F(WatchTable, StillGreetsAHundredTargets) {
    std::vector<std::unique_ptr<ScriptedTarget>> targets;
    for (std::uint16_t i = 0; i < 100; ++i) {
        targets.push_back(std::make_unique<ScriptedTarget>(network, control(i)));
        targets.back()->behave(Manner::silent, wire::HELLO_REQ::id);
    }
    Find& found = openedForWatch();
    VELMORA::FoundMap answers;
    EXPECT_TRUE(found.findMulti(answers, 1));
    EXPECT_EQ(answers.size(), 100u);
    for (const auto& target : targets) EXPECT_EQ(target->count(wire::HELLO_REQ::id), 1);
}

}  // namespace
}  // namespace velmora_test
