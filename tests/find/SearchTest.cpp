// Everybody on the link is asked.
#include <random>

#include "tests/find/FindTest.h"

namespace velmora_test {
namespace {

class Search : public FindTest {
protected:
    // Opens, searches; the search must succeed.
    TargetMap found() {
        TargetMap out;
        EXPECT_TRUE(opened().search(out));
        return out;
    }
    static std::vector<IPAddress> keys(const TargetMap& map) {
        std::vector<IPAddress> out;
        for (const auto& [key, info] : map) out.push_back(key);
        return out;
    }
};

TEST_F(Search, OfAnEmptyLinkTakesThreeWaitsAndFindsNothing) {
    Find& find = opened();
    TargetMap out;
    out[linkLocal(1)].sinkName = "left over";
    EXPECT_EQ(duration([&] { EXPECT_TRUE(find.search(out)); }), 90'000u);
    EXPECT_THAT(out, IsEmpty());
    EXPECT_THAT(log.texts(),
                ElementsAre("Find Multi Send : 3", "Find Multi Send : 3", "Find Multi Send : 3"));
    EXPECT_EQ(log.texts(7).size(), 3u);
}

TEST_F(Search, TakesThreeWaitsForEachInterface) {
    addInterface(linkLocal(9, 0, 5), "wlan0");
    Find& find = opened();
    TargetMap out;
    EXPECT_EQ(duration([&] { EXPECT_TRUE(find.search(out)); }), 180'000u);
    EXPECT_THAT(log.texts(7),
                ElementsAre("Find Multi Send : 5", "Find Multi Send : 3", "Find Multi Send : 5",
                            "Find Multi Send : 3", "Find Multi Send : 5", "Find Multi Send : 3"));
}

TEST_F(Search, AsksTheGroupAtTheControlPortOnEachInterface) {
    addInterface(linkLocal(9, 0, 5), "wlan0");
    found();
    const auto sent = sentByHost();
    ASSERT_EQ(sent.size(), 6u);
    for (std::size_t i = 0; i < sent.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(sent[i].data, (Bytes{0x64, 0, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
        EXPECT_EQ(sent[i].to.address, (std::array<std::uint8_t, 16>{0xff, 2, 0, 0, 0, 0, 0, 0, 0, 0,
                                                                    0, 0, 0, 0, 0, 1}));
        EXPECT_EQ(sent[i].to.port, (std::array<std::uint8_t, 2>{0x4c, 0xba}));
        EXPECT_EQ(sent[i].to.scope, i % 2 == 0 ? 5u : eth0);
    }
}

TEST_F(Search, TellsAllThatIsKnownOfASink) {
    ScriptedTarget target(network, control(1));
    target.product = 77;
    target.name = "living room";
    target.configText = "a=1\nhost=[myaddress]:80\nagain=[myaddress]";
    target.sinks = {{6000, 1, "left"}};
    const TargetMap out = found();
    ASSERT_EQ(out.size(), 1u);
    const auto& [key, info] = *out.begin();
    EXPECT_EQ(key, linkLocal(1, 6000));
    EXPECT_EQ(info.productID, 77u);
    EXPECT_EQ(info.reserved, 0);
    EXPECT_EQ(info.sinkNo, 1);
    EXPECT_EQ(info.version, 1);
    EXPECT_EQ(info.targetName, "living room");
    EXPECT_EQ(info.configText, "a=1\nhost=[fe80::1]:80\nagain=[myaddress]");
    EXPECT_EQ(info.findAddress, control(1));
    EXPECT_EQ(info.sinkName, "left");
    EXPECT_THAT(log.texts(6),
                ElementsAre("Find Target: 77", "Velmora Find Sink Out: living room 1 1 [3]"));
    EXPECT_TRUE(log.has(7, "Find Multi Ack Rcv : 32"));
    EXPECT_TRUE(log.has(7, "FindMultiAck[0,3]Valid : fe80::1"));
}

TEST_F(Search, AsksATargetWithTwoSinksInThisOrder) {
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "left"}, {6001, 1, "right"}};
    found();
    EXPECT_THAT(target.order(),
                ElementsAre("multicast FIND_REQ 0", "multicast FIND_REQ 0", "multicast FIND_REQ 0",
                            "HELLO_REQ", "HELLO_REQ", "SINK_REQ 0", "CONFIG_REQ", "SINK_REQ 1",
                            "SINK_REQ 2"));
}

TEST_F(Search, WithNopBreakProbesAheadOfEverySinkRequest) {
    setting.nopBreak = true;
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "left"}, {6001, 1, "right"}};
    TargetMap out;
    Find& find = opened();
    // 3 silent probes; hello twice, count, configuration and two sinks at 2 x 50 µs.
    EXPECT_EQ(duration([&] { EXPECT_TRUE(find.search(out)); }), 90'000u + 300'000u + 6 * 100u);
    EXPECT_EQ(out.size(), 2u);
    EXPECT_THAT(target.order(),
                ElementsAre("multicast FIND_REQ 0", "multicast FIND_REQ 0", "multicast FIND_REQ 0",
                            "HELLO_REQ", "HELLO_REQ", "NOPBREAK_REQ", "SINK_REQ 0", "CONFIG_REQ",
                            "NOPBREAK_REQ", "SINK_REQ 1", "NOPBREAK_REQ", "SINK_REQ 2"));
}

TEST_F(Search, FailsWhenNopBreakIsAccepted) {
    setting.nopBreak = true;
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "left"}};
    target.behave(Manner::answers, wire::NOPBREAK_REQ::id);
    TargetMap out;
    EXPECT_FALSE(opened().search(out));
    EXPECT_THAT(out, IsEmpty());
}

TEST_F(Search, TakesNoLongerThanItsWaitsAndExchanges) {
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "left"}};
    Find& find = opened();
    TargetMap out;
    EXPECT_EQ(duration([&] { find.search(out); }), 90'000u + 5 * 100u);
}

TEST_F(Search, GivesTwoTargetsTheLowerAddressFirst) {
    ScriptedTarget high(network, control(2));
    high.name = "high";
    high.sinks = {{5000, 1, "h1"}, {5001, 1, "h2"}};
    ScriptedTarget low(network, control(1));
    low.name = "low";
    low.sinks = {{6000, 1, "l1"}};
    const TargetMap out = found();
    EXPECT_THAT(keys(out), ElementsAre(linkLocal(1, 6000), linkLocal(2, 5000), linkLocal(2, 5001)));
    EXPECT_EQ(out.begin()->second.targetName, "low");
    EXPECT_EQ(out.rbegin()->second.targetName, "high");
}

TEST_F(Search, ServesOneTargetAfterTheOther) {
    ScriptedTarget first(network, control(1)), second(network, control(2));
    first.sinks = {{6000, 1, "a"}};
    second.sinks = {{6000, 1, "b"}};
    found();
    EXPECT_LT(first.seen.back().time, second.seen[4].time);
    EXPECT_LT(second.seen[3].time, first.seen[4].time) << "all are greeted ahead of the serving";
}

TEST_F(Search, GivesOneTargetOnTwoInterfacesTwoKeys) {
    addInterface(linkLocal(9, 0, 5), "wlan0");
    ScriptedTarget target(network, control(1, eth0));
    target.alsoAt(control(1, 5));
    target.sinks = {{6000, 1, "s"}};
    const TargetMap out = found();
    EXPECT_THAT(keys(out), ElementsAre(linkLocal(1, 6000, eth0), linkLocal(1, 6000, 5)));
    EXPECT_EQ(out.at(linkLocal(1, 6000, 5)).findAddress, control(1, 5));
    EXPECT_TRUE(log.has(6, "Velmora Find Sink Out: target 1 1 [5]"));
    EXPECT_TRUE(log.has(7, "FindMultiAck[0,5]Valid : fe80::1"));
}

TEST_F(Search, SkipsANumberWithoutASink) {
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "one"}, {0, 1, "two"}, {6002, 1, "three"}};
    const TargetMap out = found();
    EXPECT_THAT(keys(out), ElementsAre(linkLocal(1, 6000), linkLocal(1, 6002)));
    EXPECT_EQ(out.rbegin()->second.sinkNo, 3);
}

TEST_F(Search, SkipsASinkOfANewerVersion) {
    setting.maxVersion = 1;
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 2, "newer"}, {6001, 1, "same"}, {6002, 0, "older"}};
    EXPECT_THAT(keys(found()), ElementsAre(linkLocal(1, 6001), linkLocal(1, 6002)));
    EXPECT_EQ(log.count("Velmora Find protocol version not much : 1<2"), 1);
}

TEST_F(Search, SkipsNoVersionWithoutALimit) {
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 65535, "newest"}};
    EXPECT_EQ(found().size(), 1u);
}

TEST_F(Search, TakesTheLaterOfTwoSinksAtOnePort) {
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "one"}, {6000, 0, "two"}};
    const TargetMap out = found();
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out.begin()->second.sinkNo, 2);
    EXPECT_EQ(out.begin()->second.sinkName, "two");
}

TEST_F(Search, ServesATargetWithoutConfigurationAfterAHundredMilliseconds) {
    ScriptedTarget target(network, control(1));
    target.configText = "text";
    target.sinks = {{6000, 1, "s"}};
    target.behave(Manner::silent, wire::CONFIG_REQ::id);
    Find& find = opened();
    TargetMap out;
    EXPECT_EQ(duration([&] { EXPECT_TRUE(find.search(out)); }), 90'000u + 4 * 100u + 100'000u);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out.begin()->second.configText, "");
}

TEST_F(Search, ServesATargetThatRefusesOrEchoesItsConfiguration) {
    ScriptedTarget target(network, control(1));
    target.configText = "text";
    target.sinks = {{6000, 1, "s"}};
    for (const Manner manner : {Manner::refuses, Manner::echoes}) {
        target.behave(manner, wire::CONFIG_REQ::id);
        const TargetMap out = found();
        ASSERT_EQ(out.size(), 1u);
        EXPECT_EQ(out.begin()->second.configText, "");
    }
}

TEST_F(Search, GivesATargetThatTellsNoSinksNoKey) {
    ScriptedTarget target(network, control(1));
    EXPECT_THAT(found(), IsEmpty());
    EXPECT_EQ(target.count(wire::CONFIG_REQ::id), 1);
}

TEST_F(Search, LosesNoTargetToItsSilence) {
    ScriptedTarget mute(network, control(1)), good(network, control(2));
    mute.sinks = good.sinks = {{6000, 1, "s"}};
    mute.behaveToAll(Manner::silent);
    mute.behave(Manner::answers, wire::FIND_REQ::id);
    EXPECT_THAT(keys(found()), ElementsAre(linkLocal(2, 6000)));
}

TEST_F(Search, FindsATargetThatAnswersOnlyTheThirdPass) {
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "s"}};
    int lost = 2;
    network.fate = [&](const Datagram& datagram) {
        if (datagram.to.address[0] == 0xff && lost-- > 0) return Fate{};
        return Fate{{50, std::nullopt}};
    };
    EXPECT_EQ(found().size(), 1u);
}

TEST_F(Search, TakesNoAnswerTwice) {
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "s"}};
    network.fate = [](const Datagram&) { return Fate{{50, std::nullopt}, {60, std::nullopt}}; };
    EXPECT_EQ(found().size(), 1u);
}

// ---- the filter ----

TEST_F(Search, FiltersByProductAndGreetsWhoIsRefused) {
    ScriptedTarget none(network, control(1)), mine(network, control(2)), other(network, control(3)),
        further(network, control(4));
    mine.product = 100;
    other.product = 200;
    further.product = 300;
    none.sinks = mine.sinks = other.sinks = further.sinks = {{6000, 1, "s"}};
    setting.filterID = 100;
    setting.furtherIDs = {300};
    EXPECT_THAT(keys(found()),
                ElementsAre(linkLocal(1, 6000), linkLocal(2, 6000), linkLocal(4, 6000)));
    EXPECT_TRUE(log.has(6, "Find Skip : 200 100"));
    EXPECT_THAT(other.order(), ElementsAre("multicast FIND_REQ 0", "multicast FIND_REQ 0",
                                           "multicast FIND_REQ 0", "HELLO_REQ"));

    setting.filterID = 0;
    EXPECT_EQ(found().size(), 4u);
}

// ---- failures ----

TEST_F(Search, FailsWithTheSocketAtEveryStep) {
    struct Case {
        const char* why;
        std::uint16_t id;
        int nth;  // request of that id at which the socket fails
        std::size_t found;
    };
    constexpr Case cases[] = {
        {"the second pass", 0, 2, 0},      {"the first greeting", 22, 1, 0},
        {"the second greeting", 22, 2, 0}, {"the count", 2, 1, 0},
        {"the configuration", 16, 1, 0},   {"the first sink", 2, 2, 0},
        {"the second sink", 2, 3, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        ScriptedTarget target(network, control(1));
        target.sinks = {{6000, 1, "one"}, {6001, 1, "two"}};
        target.onRequest = [&](const ScriptedTarget::Seen& seen) {
            if (seen.id == c.id && target.count(c.id) == c.nth) network.waitFails = true;
        };
        TargetMap out;
        out[linkLocal(7)];
        Find& find = opened();
        EXPECT_FALSE(find.search(out));
        EXPECT_EQ(out.size(), c.found);
        network.waitFails = false;
    }
}

TEST_F(Search, FailsWhenAnAnswerCannotBeReceived) {
    ScriptedTarget target(network, control(1));
    network.receiveFails = true;
    TargetMap out;
    EXPECT_FALSE(opened().search(out));
    EXPECT_THAT(out, IsEmpty());
}

TEST_F(Search, FailsOnAFindThatIsNotOpen) {
    Find find(setting, network);
    TargetMap out;
    EXPECT_FALSE(find.search(out));
}

// ---- targets that would not let a search end ----

TEST_F(Search, EndsThoughATargetClaimsSinksWithoutEnd) {
    ScriptedTarget endless(network, control(1)), good(network, control(2));
    endless.countTold = 65535;
    endless.sinks = {{6000, 1, "real"}};
    for (std::uint32_t no = 2; no < 65535; ++no) {
        endless.behave(Manner::silent, wire::SINK_REQ::id, static_cast<std::uint16_t>(no));
    }
    good.sinks = {{6000, 1, "good"}};
    Find& find = opened();
    TargetMap out;
    const std::uint64_t took = duration([&] { EXPECT_TRUE(find.search(out)); });
    EXPECT_THAT(keys(out), ElementsAre(linkLocal(1, 6000), linkLocal(2, 6000)));
    EXPECT_LT(took, VELMORA::sinkWalkLimit + 1'000'000u);
}

TEST_F(Search, EndsThoughEveryTargetClaimsSinksWithoutEnd) {
    std::vector<std::unique_ptr<ScriptedTarget>> targets;
    for (std::uint16_t i = 1; i <= 8; ++i) {
        targets.push_back(std::make_unique<ScriptedTarget>(network, control(i)));
        targets.back()->countTold = 65535;
        targets.back()->behave(Manner::silent, wire::SINK_REQ::id);
        targets.back()->behave(Manner::answers, wire::SINK_REQ::id, 0);
        targets.back()->behave(Manner::answers, wire::SINK_REQ::id, 1);
        targets.back()->sinks = {{6000, 1, "s"}};
    }
    Find& find = opened();
    TargetMap out;
    const std::uint64_t took = duration([&] { EXPECT_TRUE(find.search(out)); });
    EXPECT_THAT(keys(out), ElementsAre(linkLocal(1, 6000), linkLocal(2, 6000), linkLocal(3, 6000),
                                       linkLocal(4, 6000)));
    EXPECT_LT(took, VELMORA::searchLimit + VELMORA::sinkWalkLimit + 1'000'000u);
}

// Two hundred silent numbers are none too many: what lies behind them is still found.
TEST_F(Search, WalksThroughSilenceToTheSinkBehindIt) {
    ScriptedTarget target(network, control(1));
    target.sinks.assign(200, {0, 0, ""});
    target.sinks.push_back({6000, 1, "last"});
    for (std::uint16_t no = 1; no <= 200; ++no) {
        target.behave(Manner::silent, wire::SINK_REQ::id, no);
    }
    const TargetMap out = found();
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out.begin()->second.sinkNo, 201);
}

// Whatever comes back, a search ends, and names only what a well-formed answer told.
TEST_F(Search, EndsUnderRandomAnswers) {
    std::random_device device;
    const unsigned seed = device();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    ZENNO::logLevel = 3;
    for (int round = 0; round < 50; ++round) {
        ScriptedTarget target(network, control(1));
        target.sinks = {{6000, 1, "s"}, {6001, 1, "t"}};
        for (auto& [id, reply] : target.replies) {
            reply = [&random, sound = reply](const wire::PacketView& request) {
                Bytes data = sound(request);
                for (int n = 0; n < 3; ++n) {  // sizes, ids and flags are hit often
                    data[random() % (random() % 2 == 0 ? 8 : data.size())] =
                        static_cast<std::uint8_t>(random());
                }
                data[9] = 0;  // no counts of thousands: those have tests of their own
                data.resize(random() % 3 == 0 ? random() % (data.size() + 1) : data.size());
                if (data.size() >= 7 && random() % 4 != 0) data[6] = 1;
                return data;
            };
        }
        Find& find = opened();
        TargetMap out;
        const std::uint64_t took = duration([&] { EXPECT_TRUE(find.search(out)); });
        EXPECT_LT(took, VELMORA::sinkWalkLimit + 2'000'000u);
        for (const auto& [key, info] : out) EXPECT_NE(key.portNumber(), 0);
    }
}

}  // namespace
}  // namespace velmora_test
