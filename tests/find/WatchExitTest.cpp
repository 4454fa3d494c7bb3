// What the watch does as time goes by while it listens: the pings, and the three ways out.
#include "tests/find/WatchScript.h"

namespace velmora_test {
namespace {

// Times are told from the first moment of listening.
class WatchExit : public WatchTest {
protected:
    WatchExit() {
        target.sinks = {{6000, 1, "one"}};
        target.product = 77;
        other.sinks = {{6001, 1, "one"}, {6002, 1, "two"}};
        other.product = 78;
        leaves(control(2));
        comesAt(second / 10, control(2), other);  // behind the first search
        other.behave(Manner::silent, wire::FIND_REQ::id, 1);
    }
    static constexpr Micros listening(Micros seconds) { return firstListen + seconds * second; }
    std::vector<std::string> exits() const {
        std::vector<std::string> out;
        for (const std::string& text : story()) {
            if (text.starts_with("exit ")) out.push_back(text);
        }
        return out;
    }
    void firstKeepsNotifying(Micros end) {
        notifyEvery(10 * second, listening(5), end, control(1), 100);
    }
    ScriptedTarget target{network, control(1)};
    ScriptedTarget other{network, control(2)};  // deaf to polls
};

// ---- the way out "alldown" ----

TEST_F(WatchExit, AllDownWhenNobodyNotifiesAtTheFirstCheckBehindTheQuietTime) {
    runUntil(listening(40));
    // At 30 s exactly the quiet time has not passed: it has at 31 s, and the check is at 32 s.
    EXPECT_EQ(times(6, "exit notify mode alldown : 1"), std::vector<Micros>{listening(32)});
    EXPECT_THAT(exits(), ElementsAre("exit notify mode alldown : 1"));
}

TEST_F(WatchExit, PollsAboutEvery30SecondsWhereNobodyNotifies) {
    runUntil(200 * second);
    const Micros pass = 32 * second + findTime;
    EXPECT_THAT(polls(), ElementsAre(0, findTime, listening(32), listening(32) + pass,
                                     listening(32) + 2 * pass, listening(32) + 3 * pass,
                                     listening(32) + 4 * pass, listening(32) + 5 * pass));
    EXPECT_EQ(exits().size(), 6u);
    EXPECT_EQ(count(6, "Startup mode finish"), 1u);
    EXPECT_EQ(count(6, "Startup mode retry"), 0u);
}

TEST_F(WatchExit, AllDownTellsTheSizeOfTheTable) {
    other.behave(Manner::answers, wire::FIND_REQ::id, 1);
    runUntil(listening(40));
    EXPECT_THAT(exits(), ElementsAre("exit notify mode alldown : 3"));
}

TEST_F(WatchExit, AllDownWhenTheOnlySenderIsLost) {
    notifyAt(listening(10), control(1), 1);
    leavesAt(listening(15), control(1));
    runUntil(listening(42));
    EXPECT_THAT(story(), ElementsAre("Startup mode finish", "add Target: target 1", "retry 2",
                                     "retry 2", "retry 2", "lost 2", "rem Target: target 1",
                                     "exit notify mode alldown : 0"));
    EXPECT_THAT(times(6, "retry 2"), ElementsAre(listening(41) + 100'000, listening(41) + 200'000,
                                                 listening(41) + 300'000));
    EXPECT_EQ(times(6, "lost 2"), times(6, "exit notify mode alldown : 0"));
}

TEST_F(WatchExit, AllDownIsTestedAheadOfNoMuch) {
    notifyAt(listening(1), control(2), 1);
    leavesAt(listening(2), control(2));
    runUntil(listening(34));
    EXPECT_THAT(exits(), ElementsAre("exit notify mode alldown : 1"));
    EXPECT_EQ(count(6, "lost 2"), 1u);
}

// ---- the way out "nomuch" ----

TEST_F(WatchExit, NoMuchWhenATargetAnsweredThePollButDoesNotNotify) {
    notifyAt(listening(10), control(2), 1);
    runUntil(listening(40));
    EXPECT_THAT(exits(), ElementsAre("exit notify mode nomuch : 3"));
    EXPECT_EQ(times(6, "exit notify mode nomuch : 3"), std::vector<Micros>{listening(32)});
}

TEST_F(WatchExit, NoMuchIsAskedForOnlyWherePollsAreAnswered) {
    leaves(control(1));
    constexpr Micros listen = 111 * (second + findTime);  // nobody answered for 120 s
    notifyEvery(10 * second, listen + 5 * second, listen + 200 * second, control(2), 1);
    runUntil(listen + 122 * second);
    EXPECT_THAT(exits(), ElementsAre("exit time mode : 2"));
    EXPECT_EQ(times(6, "exit time mode : 2"), std::vector<Micros>{listen + 121 * second});
}

TEST_F(WatchExit, NoMuchIsNotTheWayOutWhereEverybodyNotifies) {
    firstKeepsNotifying(listening(200));
    notifyEvery(10 * second, listening(7), listening(200), control(2), 1);
    runUntil(listening(122));
    EXPECT_THAT(exits(), ElementsAre("exit time mode : 3"));
}

TEST_F(WatchExit, NoMuchAlsoCountsALostSenderAsHeard) {
    notifyAt(listening(1), control(1), 1);
    at(listening(2), [&] { target.behave(Manner::silent, wire::FIND_REQ::id); });
    notifyEvery(10 * second, listening(7), listening(200), control(2), 1);
    runUntil(listening(122));
    EXPECT_THAT(exits(), ElementsAre("exit time mode : 2"));
    EXPECT_GT(count(6, "lost 2"), 1u);
}

TEST_F(WatchExit, NoMuchIsTestedAheadOfTheTime) {
    // What is not sound keeps the watch from looking at the time until 125 s have gone.
    for (Micros time = listening(0) + second / 4; time < listening(125); time += second / 2) {
        sendAt(time, control(2), {1, 2, 3});
    }
    notifyAt(listening(125), control(2), 1);
    notifyAt(listening(125) + second / 4, control(2), 2);
    runUntil(listening(126));
    EXPECT_THAT(exits(), ElementsAre("exit notify mode nomuch : 3"));
    EXPECT_EQ(times(6, "exit notify mode nomuch : 3"),
              std::vector<Micros>{listening(125) + second / 4});
}

TEST_F(WatchExit, AllDownIsTestedAheadOfTheTime) {
    for (Micros time = listening(0) + second / 4; time < listening(125); time += second / 2) {
        sendAt(time, control(2), {1, 2, 3});
    }
    runUntil(listening(130));
    EXPECT_THAT(exits(), ElementsAre("exit notify mode alldown : 1"));
    EXPECT_EQ(times(6, "exit notify mode alldown : 1"),
              std::vector<Micros>{listening(124) + second * 3 / 4 + 2 * second});
}

// ---- the way out "time" ----

TEST_F(WatchExit, TimeWhenMoreThan120SecondsHavePassed) {
    firstKeepsNotifying(listening(400));
    runUntil(listening(365));
    // Not at 120 s exactly, but at the next check.
    EXPECT_THAT(polls(), ElementsAre(0, findTime, listening(121), listening(242), listening(363)));
    EXPECT_THAT(exits(),
                ElementsAre("exit time mode : 1", "exit time mode : 1", "exit time mode : 1"));
}

// ---- pings ----

TEST_F(WatchExit, NobodyIsPingedInTheFirst30Seconds) {
    notifyAt(listening(0) + 1, control(1), 1);
    runUntil(listening(30));
    EXPECT_THAT(askedAt(control(1), wire::FIND_REQ::id), ElementsAre(listening(0) + 1))
        << "its own introduction";
}

TEST_F(WatchExit, ASenderIsPingedWhenItsWordIsOlderThan30Seconds) {
    notifyAt(listening(10), control(1), 1);
    runUntil(listening(122));
    // At 40 s it is 30 s old, which is not older. An answered ping makes it young again.
    EXPECT_EQ(times(6, "can not lost: 77"),
              (std::vector<Micros>{listening(41), listening(72), listening(103)}));
    EXPECT_THAT(exits(), ElementsAre("exit time mode : 1"));
    EXPECT_EQ(count(6, "retry 2"), 0u);
    EXPECT_EQ(find->targetCount(), 1u);
    EXPECT_THAT(lost(), IsEmpty());
}

TEST_F(WatchExit, APingGoesOutInTheBytesOfFindReq) {
    notifyAt(listening(10), control(1), 1);
    runUntil(listening(42));
    int pings = 0;
    for (const Datagram& datagram : sentByHost()) {
        if (datagram.to != control(1) || datagram.time < FakeClock::start + listening(30)) continue;
        EXPECT_EQ(datagram.data, findReqToOne);
        ++pings;
    }
    EXPECT_EQ(pings, 1) << "no HELLO_REQ goes with it";
}

TEST_F(WatchExit, AnAnswerToAnyOfThreePingsIsEnough) {
    notifyAt(listening(10), control(1), 1);
    at(listening(40), [&] { target.behave(Manner::silent, wire::FIND_REQ::id); });
    at(listening(41) + 150'000, [&] { target.behave(Manner::answers, wire::FIND_REQ::id); });
    runUntil(listening(43));
    EXPECT_THAT(story(), ElementsAre("Startup mode finish", "add Target: target 1", "retry 2",
                                     "retry 2", "can not lost: 77"));
    EXPECT_EQ(find->targetCount(), 1u);
}

TEST_F(WatchExit, ARefusedPingIsNoAnswer) {
    notifyAt(listening(10), control(1), 1);
    at(listening(40), [&] { target.behave(Manner::refuses, wire::FIND_REQ::id); });
    runUntil(listening(41) + 1);
    EXPECT_EQ(count(6, "retry 2"), 3u);
    EXPECT_THAT(times(6, "lost 2"), ElementsAre(listening(41)));
    EXPECT_THAT(lost(), ElementsAre(linkLocal(1, 6000)));
}

TEST_F(WatchExit, ASocketThatCannotSendLosesTheSenderWithoutEnding) {
    notifyAt(listening(10), control(1), 1);
    at(listening(40), [&] { network.sendError = 10051; });
    at(listening(42), [&] { network.sendError = 0; });
    runUntil(listening(60));
    EXPECT_EQ(count(6, "retry 2"), 3u);
    EXPECT_THAT(times(6, "lost 2"), ElementsAre(listening(41)));
    EXPECT_EQ(count(6, "exit notify mode alldown : 0"), 1u);
    EXPECT_GE(ended, listening(60)) << "the watch went on until it was stopped";
}

TEST_F(WatchExit, SendersArePingedInTheOrderOfTheirAddresses) {
    notifyAt(listening(3), control(2), 1);
    notifyAt(listening(3), control(1), 1);
    runUntil(listening(35));
    std::vector<std::uint16_t> asked;
    for (const Datagram& datagram : sentByHost()) {
        if (datagram.time >= FakeClock::start + listening(31)) {
            asked.push_back(datagram.to.word(7));
        }
    }
    EXPECT_THAT(asked, ElementsAre(1, 2));
    EXPECT_THAT(times(6, "can not lost: 78"), ElementsAre(listening(34)));
}

TEST_F(WatchExit, ALostSenderIsPingedAgainAtEachCheckUntilThePassEnds) {
    firstKeepsNotifying(listening(200));
    notifyAt(listening(1), control(2), 1);
    leavesAt(listening(2), control(2));
    runUntil(listening(125));
    const auto losses = times(6, "lost 2");
    EXPECT_EQ(count(6, "retry 2"), 3 * losses.size());
    EXPECT_EQ(count(6, "rem Target: target 1"), 1u) << "its sinks are gone with the first";
    EXPECT_EQ(count(6, "rem Target: target 2"), 1u);
    ASSERT_GT(losses.size(), 60u);
    for (std::size_t i = 1; i < losses.size(); ++i) {
        EXPECT_LE(losses[i] - losses[i - 1], second + 300'000) << "a wait and three pings";
    }
    ASSERT_EQ(exits().size(), 1u);
    EXPECT_EQ(exits().front(), "exit time mode : 1");
    EXPECT_EQ(losses.back(), times(6, "exit time mode : 1").front());
    EXPECT_EQ(count(6, "retry 1"), 0u) << "and the next pass knows nothing of it";
    EXPECT_EQ(count(6, "lost 1"), 0u);
}

TEST_F(WatchExit, ALostSenderThatAnswersAPingStaysLostUntilItNotifies) {
    firstKeepsNotifying(listening(200));
    notifyAt(listening(1), control(2), 1);
    leavesAt(listening(2), control(2));
    comesAt(listening(40), control(2), other);
    std::uint64_t between = 9;
    at(listening(90), [&] { between = find->targetCount(); });
    notifyAt(listening(91), control(2), 1);
    runUntil(listening(92));
    EXPECT_EQ(count(6, "can not lost: 78"), 2u) << "30 s apart, for an answer makes it young";
    EXPECT_EQ(between, 1u);
    EXPECT_EQ(find->targetCount(), 3u);
}

TEST_F(WatchExit, ALostSenderIsPutBackByTheNextPoll) {
    notifyAt(listening(10), control(1), 1);
    at(listening(15), [&] { target.behave(Manner::silent, wire::FIND_REQ::id); });
    at(listening(41) + 299'000, [&] { target.behave(Manner::answers, wire::FIND_REQ::id); });
    runUntil(listening(42));
    EXPECT_THAT(story(), ElementsAre("Startup mode finish", "add Target: target 1", "retry 2",
                                     "retry 2", "retry 2", "lost 2", "rem Target: target 1",
                                     "exit notify mode alldown : 0", "add Target: target 1"));
}

}  // namespace
}  // namespace velmora_test
