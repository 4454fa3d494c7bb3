// What a later poll makes of the targets that the pass before it saw.
#include "tests/find/WatchScript.h"

namespace velmora_test {
namespace {

constexpr Micros secondPoll = firstListen + 32 * second;  // nobody notifies
constexpr Micros compared = secondPoll + findTime;
constexpr Micros passTime = 32 * second + findTime;  // from poll to poll, likewise

class WatchCompare : public WatchTest {
protected:
    WatchCompare() {
        target.sinks = {{6000, 1, "one"}};
        target.product = 12345678901234567890u;  // does not fit a signed number
    }
    // From `time` on, multicast reaches nobody.
    void groupFailsAt(Micros time) {
        network.fate = [time](const Datagram& datagram) -> Fate {
            const bool lost =
                datagram.to.address[0] == 0xff && datagram.time >= FakeClock::start + time;
            return lost ? Fate{} : Fate{{0, std::nullopt}};
        };
    }
    // What the story tells behind the first pass, up to the exit of the second.
    std::vector<std::string> ofSecondPass() const {
        const auto all = story();
        std::vector<std::string> out;
        int exits = 0;
        for (const std::string& text : all) {
            if (text.starts_with("exit ") && exits++ == 1) break;
            if (exits == 1 && !text.starts_with("exit ")) out.push_back(text);
        }
        return out;
    }
    ScriptedTarget target{network, control(1)};
    const IPAddress key = linkLocal(1, 6000);
};

TEST_F(WatchCompare, SaysNothingOfATargetThatAnswersAgain) {
    runUntil(secondPoll + 40 * second);
    EXPECT_THAT(ofSecondPass(), IsEmpty());
    EXPECT_EQ(find->targetCount(), 1u);
    EXPECT_THAT(askedAt(control(1), wire::FIND_REQ::id), IsEmpty());
    EXPECT_THAT(lost(), IsEmpty());
}

TEST_F(WatchCompare, LosesATargetThatIsGoneAfterThreeTries) {
    leavesAt(10 * second, control(1));
    runUntil(secondPoll + 40 * second);
    EXPECT_THAT(ofSecondPass(),
                ElementsAre("retry 1", "retry 1", "retry 1", "lost 1", "rem Target: target 1"));
    EXPECT_THAT(askedAt(control(1), wire::FIND_REQ::id),
                ElementsAre(compared, compared + 100'000, compared + 200'000));
    EXPECT_THAT(times(6, "retry 1"),
                ElementsAre(compared + 100'000, compared + 200'000, compared + 300'000));
    EXPECT_THAT(times(6, "lost 1"), ElementsAre(compared + 300'000));
    EXPECT_EQ(find->targetCount(), 0u);
    EXPECT_THAT(lost(), ElementsAre(key));
    EXPECT_THAT(added(), IsEmpty()) << "came and went";
}

TEST_F(WatchCompare, AsksInTheseBytes) {
    leavesAt(10 * second, control(1));
    runUntil(secondPoll + second);
    int unicast = 0;
    for (const Datagram& datagram : sentByHost()) {
        if (datagram.to != control(1) || datagram.data[4] != 0) continue;
        EXPECT_EQ(datagram.data, findReqToOne);
        ++unicast;
    }
    EXPECT_EQ(unicast, 3);
}

TEST_F(WatchCompare, LeavesATargetAloneThatMissedTheMulticastButLives) {
    groupFailsAt(second);
    runUntil(secondPoll + second);
    EXPECT_THAT(ofSecondPass(), ElementsAre("can not lost: 12345678901234567890"));
    EXPECT_THAT(times(6, "can not lost: 12345678901234567890"), ElementsAre(compared));
    EXPECT_THAT(askedAt(control(1), wire::FIND_REQ::id), ElementsAre(compared));
    EXPECT_EQ(find->targetCount(), 1u);
    EXPECT_THAT(lost(), IsEmpty());
}

TEST_F(WatchCompare, TakesAnAnswerToAnyOfItsThreeTries) {
    groupFailsAt(second);
    target.behave(Manner::silent, wire::FIND_REQ::id, 0);
    at(compared + 250'000 - 100'000, [&] {
        // Silent to the first two.
        target.behave(Manner::answers, wire::FIND_REQ::id, 0);
    });
    runUntil(secondPoll + second);
    EXPECT_THAT(ofSecondPass(),
                ElementsAre("retry 1", "retry 1", "can not lost: 12345678901234567890"));
    EXPECT_EQ(find->targetCount(), 1u);
}

TEST_F(WatchCompare, LosesATargetWhenTheSocketCannotSend) {
    at(10 * second, [&] { network.sendError = 10051; });
    runUntil(secondPoll + 40 * second);
    EXPECT_THAT(ofSecondPass(),
                ElementsAre("retry 1", "retry 1", "retry 1", "lost 1", "rem Target: target 1"));
    EXPECT_THAT(times(6, "lost 1"), ElementsAre(compared));
    EXPECT_EQ(count(6, "exit notify mode alldown : 0"), 1u) << "the watch goes on";
}

TEST_F(WatchCompare, AsksInTheOrderOfTheAddresses) {
    target.sinks.clear();
    ScriptedTarget other(network, control(3)), third(network, control(2));
    for (const std::uint16_t last : std::initializer_list<std::uint16_t>{1, 2, 3})
        leavesAt(10 * second, control(last));
    runUntil(secondPoll + 2 * second);
    std::vector<std::uint16_t> asked;
    for (const Datagram& datagram : sentByHost()) {
        if (datagram.time >= FakeClock::start + compared && datagram.to.address[0] == 0xfe) {
            asked.push_back(datagram.to.word(7));
        }
    }
    EXPECT_THAT(asked, ElementsAre(1, 1, 1, 2, 2, 2, 3, 3, 3));
    EXPECT_EQ(count(6, "lost 1"), 3u) << "also of those that have no sink";
}

// What is compared is what the last poll found and what notified since, and no more.
TEST_F(WatchCompare, DoesNotAskAgainForATargetThatTheLastPollMissed) {
    groupFailsAt(second);
    leavesAt(compared + second, control(1));
    runUntil(secondPoll + 3 * passTime);
    EXPECT_EQ(count(6, "can not lost: 12345678901234567890"), 1u);
    EXPECT_EQ(count(6, "retry 1"), 0u);
    EXPECT_EQ(find->targetCount(), 1u);
}

TEST_F(WatchCompare, AsksForAKnownSenderOfNotifyThatThePollMissed) {
    ScriptedTarget sender(network, control(2));
    sender.sinks = {{6001, 1, "two"}};
    sender.product = 77;
    leaves(control(2));
    comesAt(5 * second, control(2), sender);
    sender.behave(Manner::silent, wire::FIND_REQ::id, 1);  // to the poll alone
    notifyAt(6 * second, control(2), 1);
    runUntil(40 * second);
    EXPECT_THAT(story(),
                ElementsAre("Startup mode finish", "add Target: target 1", "add Target: target 1",
                            "exit notify mode nomuch : 2", "can not lost: 77"));
    EXPECT_EQ(find->targetCount(), 2u);
}

class WatchCompareWith : public WatchCompare, public testing::WithParamInterface<Manner> {};

TEST_P(WatchCompareWith, TakesAnythingButAnAcceptedAnswerForNone) {
    at(10 * second, [&] { target.behave(GetParam(), wire::FIND_REQ::id); });
    if (GetParam() == Manner::foreignSender || GetParam() == Manner::otherPort ||
        GetParam() == Manner::otherScope) {
        // The poll would find it under that other address, at which nobody answers.
        groupFailsAt(10 * second);
    }
    runUntil(secondPoll + 2 * second);
    EXPECT_THAT(ofSecondPass(),
                ElementsAre("retry 1", "retry 1", "retry 1", "lost 1", "rem Target: target 1"));
    EXPECT_THAT(lost(), ElementsAre(key));
}

INSTANTIATE_TEST_SUITE_P(EveryManner, WatchCompareWith,
                         testing::Values(Manner::silent, Manner::refuses, Manner::echoes,
                                         Manner::foreignSender, Manner::otherPort,
                                         Manner::otherScope));

// ---- the table after a poll ----

class WatchUpdate : public WatchCompare {};

TEST_F(WatchUpdate, PutsEverybodyWhoAnsweredIntoTheTableInTheOrderOfTheAddresses) {
    target.name = "first";
    ScriptedTarget other(network, control(3)), third(network, control(2));
    other.name = "last";
    third.name = "middle";
    other.sinks = third.sinks = {{6000, 1, "one"}, {6001, 1, "two"}};
    runUntil(second);
    EXPECT_THAT(story(),
                ElementsAre("Startup mode finish", "add Target: first 1", "add Target: middle 1",
                            "add Target: middle 2", "add Target: last 1", "add Target: last 2"));
    const TargetMap entries = added();
    ASSERT_EQ(entries.size(), 5u);
    const TargetInfo& info = entries.at(linkLocal(1, 6000));
    EXPECT_EQ(info.productID, 12345678901234567890u);
    EXPECT_EQ(info.targetName, "first");
    EXPECT_EQ(info.sinkName, "one");
    EXPECT_EQ(info.findAddress, control(1));
    EXPECT_EQ(info.configText, "");
}

TEST_F(WatchUpdate, AddsANewSinkAtTheNextPoll) {
    at(10 * second, [&] { target.sinks.push_back({6001, 1, "two"}); });
    runUntil(secondPoll + second);
    EXPECT_THAT(ofSecondPass(), ElementsAre("add Target: target 2"));
    EXPECT_EQ(times(6, "add Target: target 2"), std::vector<Micros>{compared});
}

TEST_F(WatchUpdate, TakesOneVanishedSinkOutAPass) {
    target.sinks = {{6000, 1, "one"}, {6001, 1, "two"}, {6002, 1, "three"}};
    at(10 * second, [&] { target.sinks.resize(1); });
    std::vector<std::uint64_t> counts;
    for (int pass = 1; pass < 5; ++pass) {
        at(secondPoll + (static_cast<Micros>(pass) - 1) * passTime + second,
           [&] { counts.push_back(find->targetCount()); });
    }
    runUntil(secondPoll + 4 * passTime);
    EXPECT_THAT(counts, ElementsAre(2, 1, 1, 1));
    EXPECT_EQ(times(6, "del Target: target 2"), std::vector<Micros>{compared});
    EXPECT_EQ(times(6, "del Target: target 3"), std::vector<Micros>{compared + passTime});
    EXPECT_THAT(lost(), ElementsAre(linkLocal(1, 6001), linkLocal(1, 6002)));
}

TEST_F(WatchUpdate, ServesATargetThatTheFilterLetsPassAlone) {
    setting.filterID = 7;
    target.product = 7;
    ScriptedTarget refused(network, control(2));
    refused.product = 9;
    refused.sinks = {{6000, 1, "one"}};
    runUntil(secondPoll + second);
    EXPECT_EQ(find->targetCount(), 1u);
    EXPECT_EQ(refused.count(wire::SINK_REQ::id), 0);
    EXPECT_EQ(refused.count(wire::HELLO_REQ::id), 3) << "but it is greeted by each search";
    EXPECT_THAT(ofSecondPass(), IsEmpty()) << "and it is not known";
}

TEST_F(WatchUpdate, PutsATargetBackThatWasLost) {
    leavesAt(10 * second, control(1));
    comesAt(40 * second, control(1), target);
    runUntil(secondPoll + 2 * passTime);
    EXPECT_EQ(count(6, "add Target: target 1"), 2u);
    EXPECT_EQ(find->targetCount(), 1u);
    EXPECT_THAT(lost(), ElementsAre(key));
    EXPECT_EQ(added().size(), 1u) << "one key, put in twice";
}

}  // namespace
}  // namespace velmora_test
