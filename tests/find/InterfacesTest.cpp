// Which interfaces a Find works on, and its unicast socket.
#include "tests/find/FindTest.h"

namespace velmora_test {
namespace {

using Addresses = std::list<IPAddress>;
using Names = std::list<std::string>;

const IPAddress eth0Address = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 1, 2}, 0, eth0);
const IPAddress global = IPAddress::of({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}, 0, 7);

IPAddress loopback(std::uint32_t scope) {
    IPAddress address = IPAddress::loopbackV6();
    address.scope = scope;
    return address;
}

class Interfaces : public FindTest {
protected:
    Find find{setting, network};
};

TEST_F(Interfaces, AreAllLinkLocalAddressesInOrderWhenNoneIsFixed) {
    addInterface(linkLocal(9, 0, 5), "wlan0");
    addInterface(linkLocal(9, 0, 4), "eth1");
    ASSERT_TRUE(find.open());
    EXPECT_THAT(find.getInterfaces(),
                ElementsAre(linkLocal(9, 0, 4), linkLocal(9, 0, 5), eth0Address));
}

TEST_F(Interfaces, AreReadFreshAtEachCall) {
    ASSERT_TRUE(find.open());
    network.interfaces.clear();
    EXPECT_THAT(find.getInterfaces(), IsEmpty());
    addInterface(linkLocal(9, 0, 5), "wlan0");
    EXPECT_THAT(find.getInterfaces(), ElementsAre(linkLocal(9, 0, 5)));
}

TEST_F(Interfaces, KeepAnAdapterWithTwoLinkLocalAddressesTwice) {
    addInterface(linkLocal(1), "eth0");
    EXPECT_THAT(find.getInterfaces(), ElementsAre(linkLocal(1), eth0Address));
}

TEST_F(Interfaces, LeaveOutWhatIsNotLinkLocalByItsFirstGroup) {
    addInterface(global, "global");
    addInterface(IPAddress::of({0xfd00, 0, 0, 0, 0, 0, 0, 1}, 0, 8), "unique-local");
    addInterface(IPAddress::of({0xfe81, 0, 0, 0, 0, 0, 0, 1}, 0, 8), "rest of fe80::/10");
    addInterface(IPAddress::of({0xfebf, 0, 0, 0, 0, 0, 0, 1}, 0, 8), "end of fe80::/10");
    addInterface(linkLocal(4, 0, 0), "no interface number");
    EXPECT_THAT(find.getInterfaces(), ElementsAre(eth0Address));
}

TEST_F(Interfaces, NeverKeepLoopbackUnlessTheSettingAsksForIt) {
    addInterface(loopback(1), "lo");
    EXPECT_THAT(find.getInterfaces(), ElementsAre(eth0Address));
    EXPECT_FALSE(find.open(std::uint16_t{1}));
}

TEST_F(Interfaces, KeepLoopbackOnlyWithAnInterfaceNumber) {
    setting.loopback = true;
    Find with(setting, network);
    addInterface(loopback(0), "lo");
    EXPECT_THAT(with.getInterfaces(), ElementsAre(eth0Address));
    addInterface(loopback(1), "lo");
    EXPECT_THAT(with.getInterfaces(), ElementsAre(loopback(1), eth0Address));
    EXPECT_TRUE(with.open(std::uint16_t{1}));
    EXPECT_THAT(with.getInterfaces(), ElementsAre(loopback(1)));
}

TEST_F(Interfaces, AreNoneAndOneLineOfLogWhenTheTableCannotBeRead) {
    network.interfacesFail = true;
    EXPECT_THAT(find.getInterfaces(), IsEmpty());
    EXPECT_THAT(log.texts(3), ElementsAre("error getMyLocalAddresV6 Find::open"));
}

TEST_F(Interfaces, ThatAreFixedAreNotLookedUp) {
    ASSERT_TRUE(find.open(Addresses{linkLocal(0x50, 0, 12)}));
    network.interfacesFail = true;
    EXPECT_THAT(find.getInterfaces(), ElementsAre(linkLocal(0x50, 0, 12)));
}

// ---- open ----

class Open : public Interfaces {};

TEST_F(Open, TellsItsReleaseAndHowManyInterfacesAreFixed) {
    EXPECT_TRUE(find.open());
    EXPECT_THAT(log.texts(), ElementsAre("Velmora Find Library ReleaseNo : 112", "Find::open 0"));
    EXPECT_EQ(log.texts(6).size(), 2u);
    log.clear();
    EXPECT_TRUE(find.open(Addresses{linkLocal(1, 0, 4), linkLocal(1, 0, 0), linkLocal(1, 0, 5)}));
    EXPECT_THAT(log.texts(), ElementsAre("Velmora Find Library ReleaseNo : 112", "Find::open 2"));
}

TEST_F(Open, SucceedsWithoutAnyLinkLocalAddressAndThenFindsNothing) {
    network.interfaces.clear();
    ScriptedTarget target(network, control(1));
    EXPECT_TRUE(find.open());
    EXPECT_THAT(find.getInterfaces(), IsEmpty());
    TargetMap out;
    EXPECT_EQ(duration([&] { EXPECT_TRUE(find.search(out)); }), 0u);
    EXPECT_THAT(out, IsEmpty());
}

TEST_F(Open, DropsAnEntryOfScopeZeroAndSoTakesAllInterfaces) {
    EXPECT_TRUE(find.open(Addresses{linkLocal(1, 0, 0)}));
    EXPECT_THAT(find.getInterfaces(), ElementsAre(eth0Address));
}

TEST_F(Open, AnEntryOfScopeZeroForgetsAnEarlierList) {
    EXPECT_TRUE(find.open(Addresses{linkLocal(1, 0, 5)}));
    EXPECT_TRUE(find.open(Addresses{linkLocal(1, 0, 0)}));
    EXPECT_THAT(find.getInterfaces(), ElementsAre(eth0Address));
}

TEST_F(Open, WithoutAListKeepsAnEarlierOne) {
    EXPECT_TRUE(find.open(Addresses{linkLocal(1, 0, 5)}));
    EXPECT_TRUE(find.open());
    EXPECT_THAT(find.getInterfaces(), ElementsAre(linkLocal(1, 0, 5)));
    EXPECT_TRUE(log.has(6, "Find::open 1"));
}

TEST_F(Open, TakesTheListAsItIsGivenAndInItsOrder) {
    EXPECT_TRUE(find.open(Addresses{global, linkLocal(1, 77, 5), global}));
    EXPECT_THAT(find.getInterfaces(), ElementsAre(global, linkLocal(1, 77, 5), global));
}

TEST_F(Open, AgainClosesTheSocketFirst) {
    EXPECT_TRUE(find.open());
    EXPECT_TRUE(find.open());
    EXPECT_EQ(network.openLinks(), 1);
}

TEST_F(Open, FailsWithTheSocket) {
    network.openFails = true;
    EXPECT_FALSE(find.open());
    EXPECT_THAT(log.texts(3), ElementsAre("error socket open Find::open"));
    log.clear();
    network.openFails = false;
    network.bindFails = true;
    EXPECT_FALSE(find.open());
    EXPECT_THAT(log.texts(3), ElementsAre("error socket bind Find::open"));
}

TEST_F(Open, ByAnAddressTakesThatInterface) {
    EXPECT_TRUE(find.open(linkLocal(1, 0, 5)));
    EXPECT_THAT(find.getInterfaces(), ElementsAre(linkLocal(1, 0, 5)));
}

TEST_F(Open, ByAnAddressAndPortOfZeroTakesAllWhateverTheScope) {
    IPAddress none;
    none.scope = 5;
    EXPECT_TRUE(find.open(none));
    EXPECT_THAT(find.getInterfaces(), ElementsAre(eth0Address));
}

TEST_F(Open, ByAPortAloneIsAnInterface) {
    EXPECT_TRUE(find.open(IPAddress::of({}, 1, 5)));
    EXPECT_THAT(find.getInterfaces(), ElementsAre(IPAddress::of({}, 1, 5)));
}

TEST_F(Open, ByNumberTakesItsFirstLinkLocalAddress) {
    addInterface(linkLocal(9, 0, 5), "wlan0");
    addInterface(linkLocal(8, 0, 5), "wlan0");
    EXPECT_TRUE(find.open(std::uint16_t{5}));
    EXPECT_THAT(find.getInterfaces(), ElementsAre(linkLocal(8, 0, 5)));
    EXPECT_THAT(log.texts(), ElementsAre("Velmora Find Library ReleaseNo : 112", "Find::open 1"));
}

TEST_F(Open, ByNumberZeroTakesAll) {
    EXPECT_TRUE(find.open(std::uint16_t{0}));
    EXPECT_THAT(find.getInterfaces(), ElementsAre(eth0Address));
}

TEST_F(Open, ByANumberThatMatchesNothingFailsWithoutAWord) {
    EXPECT_FALSE(find.open(std::uint16_t{44}));
    EXPECT_THAT(log.texts(), IsEmpty());
    EXPECT_EQ(network.openLinks(), 0);
}

TEST_F(Open, ByTheNumberOfAnAdapterWithOnlyAGlobalAddressFails) {
    addInterface(global, "global");
    EXPECT_FALSE(find.open(std::uint16_t{7}));
    EXPECT_THAT(find.getInterfaces(), ElementsAre(eth0Address));
}

TEST_F(Open, ByNumberComparesTheWholeScope) {
    addInterface(linkLocal(9, 0, 0x10005), "far");
    EXPECT_FALSE(find.open(std::uint16_t{5}));
}

TEST_F(Open, ByNumberGoesOnWithTheNextAddressWhenOneFails) {
    addInterface(linkLocal(8, 0, 5), "wlan0");
    addInterface(linkLocal(9, 0, 5), "wlan0");
    network.bindFails = true;
    EXPECT_FALSE(find.open(std::uint16_t{5}));
    EXPECT_EQ(log.count("error socket bind Find::open"), 2);
}

TEST_F(Open, ByNumberFailsWhenTheTableCannotBeRead) {
    network.interfacesFail = true;
    EXPECT_FALSE(find.open(std::uint16_t{3}));
    EXPECT_THAT(log.texts(), ElementsAre("error getMyLocalAddresV6 Find::open"));
    EXPECT_TRUE(log.has(3, "error getMyLocalAddresV6 Find::open"));
}

TEST_F(Open, ByNameTakesTheFirstAddressOfEachInTheirOrder) {
    addInterface(linkLocal(9, 0, 5), "wlan0");
    addInterface(linkLocal(8, 0, 5), "wlan0");
    EXPECT_TRUE(find.open(Names{"wlan0", "", "eth0"}));
    EXPECT_THAT(find.getInterfaces(), ElementsAre(linkLocal(8, 0, 5), eth0Address));
    EXPECT_THAT(log.texts(), ElementsAre("much interface wlan0 fe80::8 ifno:5",
                                         "much interface eth0 fe80::1:2 ifno:3",
                                         "Velmora Find Library ReleaseNo : 112", "Find::open 2"));
    EXPECT_EQ(log.texts(6).size(), 4u);
}

TEST_F(Open, ByANameThatIsNotThereFailsAndOpensNothing) {
    EXPECT_FALSE(find.open(Names{"eth0", "eth9", "eth0"}));
    EXPECT_THAT(log.texts(),
                ElementsAre("much interface eth0 fe80::1:2 ifno:3", "not much interface eth9"));
    EXPECT_TRUE(log.has(3, "not much interface eth9"));
    EXPECT_EQ(network.openLinks(), 0);
}

TEST_F(Open, ByANameThatDiffersInCaseFails) {
    EXPECT_FALSE(find.open(Names{"Eth0"}));
    EXPECT_TRUE(log.has(3, "not much interface Eth0"));
}

TEST_F(Open, ByANameOfAnAdapterWithOnlyAGlobalAddressFails) {
    addInterface(global, "global");
    EXPECT_FALSE(find.open(Names{"global"}));
}

TEST_F(Open, ByEmptyNamesAloneTakesAll) {
    EXPECT_TRUE(find.open(Names{"", ""}));
    EXPECT_THAT(find.getInterfaces(), ElementsAre(eth0Address));
    EXPECT_TRUE(find.open(Names{}));
    EXPECT_THAT(find.getInterfaces(), ElementsAre(eth0Address));
}

TEST_F(Open, ByNameFailsWhenTheTableCannotBeRead) {
    network.interfacesFail = true;
    EXPECT_FALSE(find.open(Names{"eth0"}));
    EXPECT_THAT(log.texts(3), ElementsAre("error getMyLocalAddresV6 Find::open"));
}

TEST_F(Open, IsMissingAfterConstruction) {
    EXPECT_EQ(network.openLinks(), 0);
    Bytes answer;
    EXPECT_EQ(find.sendAck(control(1), write(wire::FIND_REQ{}), 1, answer),
              VELMORA::ackSocketFailed);
}

// Bound to no interface, the socket lets the scope of each destination decide.
TEST_F(Open, LeavesTheSocketUntied) {
    ScriptedTarget target(network, control(1, 8));
    addInterface(linkLocal(9, 0, 8), "eth1");
    ASSERT_TRUE(find.open(std::uint16_t{3}));
    log.clear();
    EXPECT_TRUE(find.ping(control(1, 8)));
    EXPECT_THAT(log.texts(), ElementsAre("sendAck[0,8,8]RCV:0"));
}

// ---- close ----

TEST_F(Open, IsUndoneByCloseWhichLeavesTheWatchSocketAlone) {
    ASSERT_TRUE(find.open());
    ASSERT_TRUE(find.openWatch());
    EXPECT_EQ(network.openLinks(), 2);
    find.close();
    EXPECT_EQ(network.openLinks(), 1);
    find.close();
    EXPECT_EQ(network.openLinks(), 1);
}

TEST_F(Open, IsUndoneByTheDestructorAltogether) {
    {
        Find other(setting, network);
        ASSERT_TRUE(other.open());
        ASSERT_TRUE(other.openWatch());
        EXPECT_EQ(network.openLinks(), 2);
    }
    EXPECT_EQ(network.openLinks(), 0);
}

TEST_F(Open, ClosedInTheMiddleOfARequestEndsItAsAFailureOfTheSocket) {
    ScriptedTarget target(network, control(1));
    ASSERT_TRUE(find.open());
    target.onRequest = [&](const ScriptedTarget::Seen&) { find.close(); };
    EXPECT_FALSE(find.hello(control(1)));
}

}  // namespace
}  // namespace velmora_test
