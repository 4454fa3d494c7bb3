// One sink at a known address.
#include "tests/find/FindTest.h"

namespace velmora_test {
namespace {

class ReFind : public FindTest {
protected:
    void SetUp() override {
        info.productID = 1;
        info.reserved = 2;
        info.sinkNo = 3;
        info.version = 4;
        info.targetName = "name before";
        info.configText = "config before";
        info.sinkName = "sink before";
    }
    void expectUntouched() const {
        EXPECT_EQ(info.productID, 1u);
        EXPECT_EQ(info.reserved, 2);
        EXPECT_EQ(info.sinkNo, 3);
        EXPECT_EQ(info.version, 4);
        EXPECT_EQ(info.targetName, "name before");
        EXPECT_EQ(info.configText, "config before");
        EXPECT_EQ(info.findAddress, IPAddress());
        EXPECT_EQ(info.sinkName, "sink before");
    }

    TargetInfo info;
    IPAddress out = control(99);
};

TEST_F(ReFind, TellsTheSinkAndWhatItsTargetSaysOfItself) {
    ScriptedTarget target(network, control(1));
    target.product = 77;
    target.name = "living room";
    target.configText = "at [myaddress] and [myaddress]";
    target.sinks = {{6000, 1, "left"}, {6001, 2, "right"}};
    EXPECT_TRUE(opened().reFind(linkLocal(1, 0, 0), 2, out, info));
    EXPECT_EQ(out, linkLocal(1, 6001));
    EXPECT_EQ(info.sinkNo, 2);
    EXPECT_EQ(info.reserved, 0);
    EXPECT_EQ(info.version, 2);
    EXPECT_EQ(info.targetName, "living room");
    EXPECT_EQ(info.configText, "at [fe80::1] and [myaddress]");
    EXPECT_EQ(info.findAddress, control(1));
    EXPECT_EQ(info.productID, 1u) << "not set";
    EXPECT_EQ(info.sinkName, "sink before") << "not set";
    EXPECT_THAT(target.order(), ElementsAre("SINK_REQ 2", "FIND_REQ", "CONFIG_REQ"))
        << "nobody is greeted";
}

TEST_F(ReFind, ForcesTheControlPortAndTheInterfaceOntoTheAddress) {
    EXPECT_TRUE(opened().reFind(linkLocal(1, 4711, 55), 1, out, info));
    const auto sent = sentByHost();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].to, control(1, eth0));
    EXPECT_EQ(sent[0].to.port, (std::array<std::uint8_t, 2>{0x4c, 0xba}));
}

TEST_F(ReFind, WalksTheInterfacesUntilOneAnswers) {
    addInterface(linkLocal(1, 0, 1), "a");
    addInterface(linkLocal(2, 0, 2), "b");
    addInterface(linkLocal(3, 0, 9), "c");
    ScriptedTarget first(network, control(5, 2)), second(network, control(5, 9));
    first.sinks = second.sinks = {{6000, 1, "s"}};
    Find& find = opened();
    EXPECT_EQ(duration([&] { EXPECT_TRUE(find.reFind(linkLocal(5, 0, 0), 1, out, info)); }),
              100'000u + 3 * 100u);
    EXPECT_EQ(out, linkLocal(5, 6000, 2));
    EXPECT_EQ(info.findAddress, control(5, 2));
    std::vector<std::uint32_t> scopes;
    for (const Datagram& datagram : sentByHost()) scopes.push_back(datagram.to.scope);
    EXPECT_THAT(scopes, ElementsAre(1, 2, 2, 2));
    EXPECT_THAT(second.seen, IsEmpty());
}

TEST_F(ReFind, OfASilentAddressCostsAWaitForEachInterfaceAndGivesNone) {
    addInterface(linkLocal(9, 0, 5), "wlan0");
    Find& find = opened();
    EXPECT_EQ(duration([&] { EXPECT_TRUE(find.reFind(control(1), 1, out, info)); }), 200'000u);
    EXPECT_EQ(out, IPAddress());
    expectUntouched();
}

TEST_F(ReFind, OfASinkThatIsNotThereGivesNone) {
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "s"}};
    EXPECT_TRUE(opened().reFind(control(1), 2, out, info));
    EXPECT_EQ(out, IPAddress());
    expectUntouched();
    EXPECT_THAT(target.order(), ElementsAre("SINK_REQ 2"));
}

TEST_F(ReFind, OfASinkOfANewerVersionGivesNone) {
    setting.maxVersion = 1;
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 2, "s"}};
    EXPECT_TRUE(opened().reFind(control(1), 1, out, info));
    EXPECT_EQ(out, IPAddress());
    expectUntouched();
}

TEST_F(ReFind, WithoutAnInterfaceAsksNobody) {
    network.interfaces.clear();
    EXPECT_TRUE(opened().reFind(control(1), 1, out, info));
    EXPECT_EQ(out, IPAddress());
    EXPECT_THAT(sentByHost(), IsEmpty());
}

TEST_F(ReFind, MayHaveItsResultWhereItsAddressWas) {
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "s"}};
    IPAddress both = linkLocal(1);
    EXPECT_TRUE(opened().reFind(both, 1, both, info));
    EXPECT_EQ(both, linkLocal(1, 6000));
}

TEST_F(ReFind, TakesAChosenTargetWhateverItsProduct) {
    setting.filterID = 5;
    ScriptedTarget target(network, control(1));
    target.product = 6;
    target.sinks = {{6000, 1, "s"}};
    EXPECT_TRUE(opened().reFind(control(1), 1, out, info));
    EXPECT_EQ(out, linkLocal(1, 6000));
    EXPECT_THAT(log.texts(6), IsEmpty()) << "the filter is not asked";
}

TEST_F(ReFind, GoesOnWhenTheTargetDoesNotTellItsName) {
    for (const Manner manner : {Manner::silent, Manner::refuses, Manner::echoes}) {
        ScriptedTarget target(network, control(1));
        target.sinks = {{6000, 1, "s"}};
        target.configText = "text";
        target.behave(manner, wire::FIND_REQ::id);
        EXPECT_TRUE(opened().reFind(control(1), 1, out, info));
        EXPECT_EQ(out, linkLocal(1, 6000));
        EXPECT_EQ(info.targetName, "name before");
        EXPECT_EQ(info.configText, "text");
    }
}

TEST_F(ReFind, LeavesTheTextWhenTheTargetGivesNoConfiguration) {
    for (const Manner manner : {Manner::silent, Manner::refuses, Manner::echoes}) {
        ScriptedTarget target(network, control(1));
        target.sinks = {{6000, 1, "s"}};
        target.configText = "text";
        target.behave(manner, wire::CONFIG_REQ::id);
        EXPECT_TRUE(opened().reFind(control(1), 1, out, info));
        EXPECT_EQ(out, linkLocal(1, 6000));
        EXPECT_EQ(info.configText, "config before");
    }
}

TEST_F(ReFind, StoresAnEmptyConfigurationThatWasGiven) {
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "s"}};
    EXPECT_TRUE(opened().reFind(control(1), 1, out, info));
    EXPECT_EQ(info.configText, "");
}

TEST_F(ReFind, WithNopBreakProbesOnEachInterface) {
    setting.nopBreak = true;
    addInterface(linkLocal(9, 0, 2), "a");
    ScriptedTarget target(network, control(1, eth0));
    target.sinks = {{6000, 1, "s"}};
    EXPECT_TRUE(opened().reFind(control(1), 1, out, info));
    std::vector<std::pair<std::uint16_t, std::uint32_t>> sent;  // id, scope
    for (const Datagram& datagram : sentByHost()) {
        sent.emplace_back(wire::load16(datagram.data, 4), datagram.to.scope);
    }
    EXPECT_THAT(sent, ElementsAre(std::pair(42, 2u), std::pair(2, 2u), std::pair(42, eth0),
                                  std::pair(2, eth0), std::pair(0, eth0), std::pair(16, eth0)));
}

TEST_F(ReFind, FailsWhenNopBreakIsAccepted) {
    setting.nopBreak = true;
    ScriptedTarget target(network, control(1));
    target.sinks = {{6000, 1, "s"}};
    target.behave(Manner::answers, wire::NOPBREAK_REQ::id);
    EXPECT_FALSE(opened().reFind(control(1), 1, out, info));
    EXPECT_EQ(out, IPAddress());
    expectUntouched();
}

TEST_F(ReFind, FailsWithTheSocketAtEveryStep) {
    for (const std::uint16_t failing :
         {wire::SINK_REQ::id, wire::FIND_REQ::id, wire::CONFIG_REQ::id}) {
        SCOPED_TRACE(failing);
        ScriptedTarget target(network, control(1));
        target.sinks = {{6000, 1, "s"}};
        target.onRequest = [&](const ScriptedTarget::Seen& seen) {
            network.waitFails = seen.id == failing;
        };
        EXPECT_FALSE(opened().reFind(control(1), 1, out, info));
        network.waitFails = false;
    }
}

}  // namespace
}  // namespace velmora_test
