// The network in memory that the machines are tested on: that it does what it is trusted with.
#include "tests/support/FakeNetwork.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace velmora_test;
using ZENNO::Link;
using ZENNO::SocketKind;
using ZENNO::waitError;
using ZENNO::waitReady;
using ZENNO::waitTimedOut;

constexpr std::uint16_t control = 19642, notify = 19643;
const IPAddress host = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 1, 2}, 0, 3);
const IPAddress target = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 9, 9}, control, 3);

Bytes bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

// Notes what reaches it, and answers with the same when told to.
class Recorder final : public Peer {
public:
    std::vector<Datagram> got;
    bool answers = false;
    IPAddress self = target;
    void onDatagram(FakeNetwork& network, const Datagram& datagram) override {
        got.push_back(datagram);
        if (answers) network.send(self, datagram.from, datagram.data);
    }
};

class Fake : public testing::Test {
protected:
    Fake() : link(network.makeLink()) {
        EXPECT_TRUE(link->open(SocketKind::udpV6));
        EXPECT_TRUE(link->bindV6(local));
        network.attach(target, &peer);
    }
    Bytes read() {
        Bytes data{1, 2, 3};
        EXPECT_TRUE(link->receiveFrom(data, from));
        return data;
    }

    FakeNetwork network;
    Recorder peer;
    std::unique_ptr<Link> link;
    IPAddress local{}, from{};
};

TEST_F(Fake, NothingHappensAndTimePasses) {
    const auto before = network.time.time();
    EXPECT_EQ(link->waitReadable(1000), waitTimedOut);
    EXPECT_EQ(network.time.time(), before + 1000);
    EXPECT_EQ(link->poll(), waitTimedOut);
    EXPECT_EQ(network.time.time(), before + 1000);
    EXPECT_TRUE(read().empty());
    EXPECT_TRUE(network.sent.empty());
}

TEST_F(Fake, LinksHavePortsOfTheirOwn) {
    EXPECT_NE(local.portNumber(), 0);
    const auto second = network.makeLink();
    EXPECT_FALSE(second->isOpen());
    EXPECT_EQ(network.openLinks(), 1);
    EXPECT_TRUE(second->open(SocketKind::udpV6));
    IPAddress other;
    EXPECT_TRUE(second->bindV6(other));
    EXPECT_NE(other.port, local.port);
    EXPECT_EQ(network.openLinks(), 2);
    second->close();
    EXPECT_EQ(network.openLinks(), 1);
}

TEST_F(Fake, DeliversThereAndBackAfterItsDelay) {
    peer.answers = true;
    const auto start = network.time.time();
    ASSERT_TRUE(link->sendDatagramTo(bytes("ask"), target, true));
    EXPECT_TRUE(peer.got.empty()) << "it is still on its way";
    EXPECT_EQ(link->waitReadable(10000), waitReady);
    EXPECT_EQ(network.time.time(), start + 2 * network.delay) << "ready at once when it came";
    EXPECT_EQ(read(), bytes("ask"));
    EXPECT_EQ(from, target);

    ASSERT_EQ(peer.got.size(), 1u);
    IPAddress sender = host;
    sender.port = local.port;
    EXPECT_EQ(peer.got[0].from, sender);
    EXPECT_EQ(peer.got[0].to, target);
    EXPECT_TRUE(peer.got[0].toPeer);
    ASSERT_EQ(network.sent.size(), 2u);
    EXPECT_FALSE(network.sent[1].toPeer);
    EXPECT_EQ(network.sent[0].time, start);
    network.clearSent();
    EXPECT_TRUE(network.sent.empty());
}

TEST_F(Fake, FateOfADatagram) {
    const struct {
        const char* why;
        Fate fate;
        std::vector<std::pair<std::uint64_t, std::string>> arrivals;  // µs after sending
    } cases[] = {
        {"lost", {}, {}},
        {"delivered", {{50, {}}}, {{50, "datagram"}}},
        {"delayed", {{7000, {}}}, {{7000, "datagram"}}},
        {"doubled", {{50, {}}, {90, {}}}, {{50, "datagram"}, {90, "datagram"}}},
        {"cut", {{50, 4}}, {{50, "data"}}},
        {"cut to more than it has", {{50, 400}}, {{50, "datagram"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        network.fate = [&](const Datagram&) { return c.fate; };
        const auto start = network.time.time();
        network.send(target, local, bytes("datagram"));
        std::vector<std::pair<std::uint64_t, std::string>> arrivals;
        while (network.time.time() < start + 10000) {
            const auto left = static_cast<std::uint32_t>(start + 10000 - network.time.time());
            if (link->waitReadable(left) != waitReady) break;
            const Bytes data = read();
            arrivals.emplace_back(network.time.time() - start,
                                  std::string(data.begin(), data.end()));
        }
        EXPECT_EQ(arrivals, c.arrivals);
        network.time.advance(10000);
    }
}

TEST_F(Fake, FateTurnsTheOrderRound) {
    network.fate = [](const Datagram& d) {
        return Fate{{d.data == bytes("first") ? 500u : 50u, std::nullopt}};
    };
    network.send(target, local, bytes("first"));
    network.send(target, local, bytes("second"));
    network.time.advance(1000);
    EXPECT_EQ(read(), bytes("second"));
    EXPECT_EQ(read(), bytes("first"));
    EXPECT_TRUE(read().empty());
}

TEST_F(Fake, LongDatagramIsCutToTheReader) {
    network.send(target, local, Bytes(2000, 7));
    ASSERT_EQ(link->waitReadable(1000), waitReady);
    EXPECT_EQ(read().size(), 1500u);
}

TEST_F(Fake, UnicastReachesExactlyThePeerMeant) {
    Recorder otherScope, otherPort;
    IPAddress scope5 = target, port7 = target;
    scope5.scope = 5;
    port7.setPortNumber(7);
    network.attach(scope5, &otherScope);
    network.attach(port7, &otherPort);
    ASSERT_TRUE(link->sendDatagramTo(bytes("x"), target, false));
    network.time.advance(1000);
    EXPECT_EQ(peer.got.size(), 1u);
    EXPECT_TRUE(otherScope.got.empty());
    EXPECT_TRUE(otherPort.got.empty());

    network.attach(target, nullptr);
    ASSERT_TRUE(link->sendDatagramTo(bytes("x"), target, false));
    network.time.advance(1000);
    EXPECT_EQ(peer.got.size(), 1u) << "gone";
}

TEST_F(Fake, MulticastReachesPeersByPortAndScope) {
    Recorder neighbour, otherScope, otherPort;
    IPAddress second = target, scope5 = target, port7 = target;
    second.address[15] = 0x77;
    scope5.scope = 5;
    port7.setPortNumber(7);
    network.attach(second, &neighbour);
    network.attach(scope5, &otherScope);
    network.attach(port7, &otherPort);
    ASSERT_TRUE(link->sendDatagramTo(bytes("all"), IPAddress::allNodes(control, 3), false));
    network.time.advance(1000);
    EXPECT_EQ(peer.got.size(), 1u);
    EXPECT_EQ(neighbour.got.size(), 1u);
    EXPECT_TRUE(otherScope.got.empty());
    EXPECT_TRUE(otherPort.got.empty());
    EXPECT_EQ(peer.got[0].to.address[0], 0xff) << "a peer can tell that it came to all";
}

TEST_F(Fake, MulticastReachesLinksThatJoinedOnThatScope) {
    const auto joined = network.makeLink(), elsewhere = network.makeLink(),
               stranger = network.makeLink();
    for (Link* l : {joined.get(), elsewhere.get(), stranger.get()}) {
        IPAddress any = IPAddress::of({}, notify);
        ASSERT_TRUE(l->open(SocketKind::udpV6));
        ASSERT_TRUE(l->bindV6(any));
    }
    ASSERT_TRUE(joined->joinV6(IPAddress::allNodes(0, 3)));
    ASSERT_TRUE(elsewhere->joinV6(IPAddress::allNodes(0, 5)));
    network.send(target, IPAddress::allNodes(notify, 3), bytes("notify"));
    network.time.advance(1000);
    EXPECT_EQ(joined->poll(), waitReady);
    EXPECT_EQ(elsewhere->poll(), waitTimedOut);
    EXPECT_EQ(stranger->poll(), waitTimedOut);
    EXPECT_EQ(link->poll(), waitTimedOut) << "another port";

    // A link that was opened anew has joined nothing.
    ASSERT_TRUE(joined->open(SocketKind::udpV6));
    IPAddress any = IPAddress::of({}, notify);
    ASSERT_TRUE(joined->bindV6(any));
    network.send(target, IPAddress::allNodes(notify, 3), bytes("notify"));
    network.time.advance(1000);
    EXPECT_EQ(joined->poll(), waitTimedOut);
}

TEST_F(Fake, ScopeIsFixedAsOnASocket) {
    const struct {
        const char* why;
        IPAddress address;
        std::uint32_t fixed;
    } cases[] = {
        {"link-local", IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 1, 2}, 0, 3), 3},
        {"link-local without one", IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 1, 2}), 0},
        {"loopback", IPAddress::of({0, 0, 0, 0, 0, 0, 0, 1}, 0, 1), 1},
        {"any", IPAddress::of({}, 0, 3), 0},
        {"global", IPAddress::of({0x2001, 0, 0, 0, 0, 0, 0, 1}, 0, 3), 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        IPAddress address = c.address;
        EXPECT_TRUE(link->bindV6(address));
        EXPECT_EQ(link->fixedScope(), c.fixed);
    }
}

TEST_F(Fake, FaultsOfTheHostsLinks) {
    IPAddress any;
    network.openFails = true;
    EXPECT_FALSE(link->open(SocketKind::udpV6));
    EXPECT_FALSE(link->isOpen());
    network.openFails = false;
    ASSERT_TRUE(link->open(SocketKind::udpV6));
    network.bindFails = true;
    EXPECT_FALSE(link->bindV6(any));
    EXPECT_EQ(link->lastError(), 10048);
    network.bindFails = false;
    ASSERT_TRUE(link->bindV6(any));
    network.joinFails = true;
    EXPECT_FALSE(link->joinV6(IPAddress::allNodes(0, 3)));
    network.waitFails = true;
    EXPECT_EQ(link->waitReadable(10), waitError);
    network.receiveFails = true;
    Bytes data{1};
    EXPECT_FALSE(link->receiveFrom(data, from));
    EXPECT_TRUE(data.empty());
    network.sendError = 10051;
    EXPECT_FALSE(link->sendDatagramTo(bytes("x"), target, true));
    EXPECT_EQ(link->lastError(), 10051);
    EXPECT_TRUE(network.sent.empty());
    ZENNO::LocalInterfaceMap map;
    EXPECT_TRUE(network.localAddressesV6(map));
    EXPECT_TRUE(map.contains(host));
    network.interfacesFail = true;
    EXPECT_FALSE(network.localAddressesV6(map));
    EXPECT_TRUE(map.empty());
}

TEST_F(Fake, FullBufferIsMetByNonBlockingLinksAlone) {
    auto& fake = dynamic_cast<FakeLink&>(*link);
    network.sendFullTimes = 1;
    ASSERT_TRUE(link->sendDatagramTo(bytes("x"), target, false)) << "blocking: it waits";
    ASSERT_TRUE(link->setBlocking(false));
    EXPECT_FALSE(link->sendDatagramTo(bytes("x"), target, false));
    EXPECT_EQ(link->lastError(), ZENNO::errorWouldBlock);
    network.sendFullTimes = 1;
    fake.modeSwitches = 0;
    EXPECT_TRUE(link->sendDatagramTo(bytes("x"), target, true));
    EXPECT_EQ(fake.modeSwitches, 2);
    EXPECT_FALSE(link->isBlocking());
}

TEST_F(Fake, ClosedLinkAnswersLikeAClosedSocket) {
    link->close();
    EXPECT_EQ(link->waitReadable(10), waitError);
    EXPECT_TRUE(read().empty());
    EXPECT_FALSE(link->sendDatagramTo(bytes("x"), target, true));
    EXPECT_EQ(link->lastError(), 10038);
    EXPECT_FALSE(link->bindV6(local));
    EXPECT_FALSE(link->joinV6(IPAddress::allNodes(0, 3)));
    EXPECT_FALSE(link->setBlocking(false));
    EXPECT_TRUE(link->isBlocking());
    network.send(target, local, bytes("late"));
    network.time.advance(1000);
    ASSERT_TRUE(link->open(SocketKind::udpV6));
    ASSERT_TRUE(link->bindV6(local));
    EXPECT_EQ(link->poll(), waitTimedOut) << "what came while it was closed is gone";
}

TEST_F(Fake, LinkClosedDuringAWaitEndsIt) {
    network.time.in(500, [&] { link->close(); });
    const auto start = network.time.time();
    EXPECT_EQ(link->waitReadable(1'000'000), waitError);
    EXPECT_EQ(network.time.time(), start + 500);
}

TEST_F(Fake, LinkMayGoWhileADatagramIsOnItsWay) {
    network.send(target, local, bytes("late"));
    link.reset();
    network.time.advance(1000);
}

TEST_F(Fake, PeerMayGoWhileOneIsDelivered) {
    // A target that takes its neighbour off the network when it hears something.
    struct Bully final : Peer {
        IPAddress victim;
        void onDatagram(FakeNetwork& network, const Datagram&) override {
            network.attach(victim, nullptr);
        }
    } bully;
    IPAddress first = target;
    first.address[15] = 1;  // comes before the other
    bully.victim = target;
    network.attach(first, &bully);
    ASSERT_TRUE(link->sendDatagramTo(bytes("all"), IPAddress::allNodes(control, 3), false));
    network.time.advance(1000);
    EXPECT_TRUE(peer.got.empty());
}

}  // namespace
