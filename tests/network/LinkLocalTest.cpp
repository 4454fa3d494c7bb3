// Interface numbers on real sockets: two ends of a cable in a namespace.
#include <gtest/gtest.h>

#include <set>

#include "src/Network/LocalInterfaces.h"
#include "tests/support/Namespace.h"
#include "tests/support/Sockets.h"

namespace {

using namespace ZENNO;
using namespace velmora_test;

IPAddress linkLocalOf(std::uint32_t scope) {
    LocalInterfaceMap map;
    EXPECT_TRUE(getMyLinkLocalAddresV6(map, false));
    for (const auto& [address, names] : map) {
        if (address.scope == scope) return address;
    }
    ADD_FAILURE() << "no link-local address on interface " << scope;
    return {};
}

// Bound as discovery binds: to any address.
struct FreeSocket {
    Socket socket;
    IPAddress address;
    explicit FreeSocket(std::uint16_t port = 0) {
        address.setPortNumber(port);
        EXPECT_TRUE(socket.open(SocketKind::udpV6));
        EXPECT_TRUE(socket.bindV6(address));
    }
};

TEST(LinkLocal, MulticastGoesOutWhereTheDestinationsScopeSays) {
    VELMORA_IN_NAMESPACE(Wiring::cable, [](const Cable& cable) {
        FreeSocket listener(19643), sender;
        ASSERT_TRUE(listener.socket.joinV6(IPAddress::allNodes(0, cable.far)));
        ASSERT_TRUE(sender.socket.sendDatagramTo(
            bytesOf("hello"), IPAddress::allNodes(19643, cable.near), /*retry=*/true));
        IPAddress expected = linkLocalOf(cable.near);
        expected.port = sender.address.port;
        expected.scope = cable.far;  // the interface on which it came
        // The sending end may hear itself first.
        IPAddress from;
        do {
            ASSERT_EQ(nextDatagram(listener.socket, from), bytesOf("hello"));
        } while (from.scope == cable.near);
        EXPECT_EQ(from, expected);
    });
}

TEST(LinkLocal, UnicastGoesToTheScopeOfTheSender) {
    VELMORA_IN_NAMESPACE(Wiring::cable, [](const Cable& cable) {
        FreeSocket a, b;
        IPAddress to = linkLocalOf(cable.far);
        to.scope = cable.near;
        to.port = b.address.port;
        ASSERT_TRUE(a.socket.sendDatagramTo(bytesOf("ask"), to, false));
        IPAddress from;
        ASSERT_EQ(nextDatagram(b.socket, from), bytesOf("ask"));
        ASSERT_TRUE(b.socket.sendDatagramTo(bytesOf("answer"), from, false));
        EXPECT_EQ(nextDatagram(a.socket, from), bytesOf("answer"));
        EXPECT_EQ(from, to) << "the answer's sender is the address that was asked";
    });
}

TEST(LinkLocal, BindTiesTheSocketToItsInterface) {
    VELMORA_IN_NAMESPACE(Wiring::cable, [](const Cable& cable) {
        Socket tied;
        IPAddress here = linkLocalOf(cable.near);
        ASSERT_TRUE(tied.open(SocketKind::udpV6));
        ASSERT_TRUE(tied.bindV6(here)) << tied.lastError();
        EXPECT_EQ(tied.fixedScope(), cable.near);
        EXPECT_NE(here.portNumber(), 0);

        FreeSocket listener(19643);
        ASSERT_TRUE(listener.socket.joinV6(IPAddress::allNodes(0, cable.far)));
        // Another interface in the address does not count.
        ASSERT_TRUE(
            tied.sendDatagramTo(bytesOf("tied"), IPAddress::allNodes(19643, cable.far), false));
        IPAddress from;
        do {
            ASSERT_EQ(nextDatagram(listener.socket, from), bytesOf("tied"));
        } while (from.scope == cable.near);
        EXPECT_EQ(from.scope, cable.far) << "out at one end, in at the other";
        EXPECT_EQ(from.port, here.port);
    });
}

TEST(LinkLocal, BindWithoutAScopeTiesNothing) {
    VELMORA_IN_NAMESPACE(Wiring::cable, [](const Cable& cable) {
        Socket socket;
        IPAddress here = linkLocalOf(cable.near);
        here.scope = 0;
        ASSERT_TRUE(socket.open(SocketKind::udpV6));
        // Which interface is meant cannot be told, and this system refuses to guess.
        EXPECT_FALSE(socket.bindV6(here));
        EXPECT_EQ(socket.lastError(), 10022);
        EXPECT_EQ(socket.fixedScope(), 0u);
    });
}

TEST(LinkLocal, SetInterfaceTakesARealOne) {
    VELMORA_IN_NAMESPACE(Wiring::cable, [](const Cable& cable) {
        FreeSocket socket;
        EXPECT_TRUE(socket.socket.setInterface(cable.near));
        EXPECT_FALSE(socket.socket.setInterface(cable.far + 100));
    });
}

TEST(LinkLocal, LoopbackBoundWithItsNumberStillReachesItself) {
    VELMORA_IN_NAMESPACE(Wiring::cable, [](const Cable& cable) {
        LoopbackSocket receiver;
        Socket tied;
        IPAddress here = IPAddress::loopbackV6();
        here.scope = cable.loopback;
        ASSERT_TRUE(tied.open(SocketKind::udpV6));
        ASSERT_TRUE(tied.bindV6(here));
        EXPECT_EQ(tied.fixedScope(), cable.loopback);
        ASSERT_TRUE(tied.sendDatagramTo(bytesOf("x"), receiver.address, false));
        IPAddress from;
        EXPECT_EQ(nextDatagram(receiver.socket, from), bytesOf("x"));
    });
}

TEST(LinkLocal, LongDatagramLeavesInFragments) {
    VELMORA_IN_NAMESPACE(Wiring::cable, [](const Cable& cable) {
        FreeSocket a, b;
        b.socket.readerSize = 4096;
        IPAddress to = linkLocalOf(cable.far);
        to.scope = cable.near;
        to.port = b.address.port;
        const Bytes longer(4000, 0x21);  // than the 1500 of the cable
        ASSERT_TRUE(a.socket.sendDatagramTo(longer, to, false)) << a.socket.lastError();
        IPAddress from;
        EXPECT_EQ(nextDatagram(b.socket, from), longer);
    });
}

IPAddress v4(std::uint32_t hostOrder, std::uint16_t port = 0) {
    return IPAddress::of({0, 0, 0, 0, 0, 0xffff, static_cast<std::uint16_t>(hostOrder >> 16),
                          static_cast<std::uint16_t>(hostOrder)},
                         port);
}

TEST(LinkLocal, MulticastV4GoesOutOnceFromEveryLocalAddress) {
    VELMORA_IN_NAMESPACE(Wiring::cable, [](const Cable&) {
        runIp("link set lo multicast on");
        runIp("addr add 192.0.2.1/24 dev near");
        runIp("addr add 198.51.100.1/24 dev far");
        Socket listener, sender;
        ASSERT_TRUE(listener.open(SocketKind::udpV4));
        ASSERT_TRUE(listener.bindV4(v4(0, 19700)));
        ASSERT_TRUE(listener.joinV4(v4(0xef010203)));
        ASSERT_TRUE(sender.open(SocketKind::udpV4));
        ASSERT_TRUE(sender.sendV4(bytesOf("m"), v4(0xef010203, 19700), /*retry=*/true))
            << sender.lastError();

        std::set<IPAddress> senders;
        Bytes data;
        IPAddress from;
        while (listener.waitReadable(100'000) == waitReady) {
            ASSERT_TRUE(listener.receiveFromV4(data, from));
            EXPECT_EQ(data, bytesOf("m"));
            from.port = {};
            senders.insert(from);
        }
        // The system's own copies alone are certain: those that crossed the cable are looked at
        // with suspicion, since their sender is this very machine.
        EXPECT_EQ(senders, (std::set{v4(0x7f000001), v4(0xc0000201), v4(0xc6336401)}));

        EXPECT_FALSE(listener.joinV4(v4(0xef010203), v4(0x7f000001))) << "joined there already";
        EXPECT_TRUE(listener.joinV4(v4(0xef010204), v4(0xc0000201)));
        EXPECT_TRUE(listener.joinV4(v4(0xef010204), v4(0xc6336401)));
    });
}

TEST(LinkLocal, MulticastV4EndsAtTheFirstFailure) {
    VELMORA_IN_NAMESPACE(Wiring::cable, [](const Cable&) {
        Socket socket;
        ASSERT_TRUE(socket.open(SocketKind::udpV4));
        EXPECT_FALSE(socket.joinV4(v4(0x0a000001))) << "no group";
        EXPECT_FALSE(socket.joinV4(v4(0xef010203), v4(0xc0000207))) << "not our address";
        EXPECT_FALSE(socket.sendV4(Bytes(70000, 1), v4(0xef010203, 19700), false));
        EXPECT_EQ(socket.lastError(), 10040);
    });
}

TEST(LinkLocal, MulticastV4WithoutLocalAddressesIsNothing) {
    VELMORA_IN_NAMESPACE(Wiring::bare, [](const Cable&) {
        // No local address: nothing is sent, and nothing has failed.
        Socket socket;
        ASSERT_TRUE(socket.open(SocketKind::udpV4));
        EXPECT_TRUE(socket.sendV4(bytesOf("m"), v4(0xef010203, 19700), false));
        EXPECT_TRUE(socket.joinV4(v4(0xef010203)));
        // 224 is not taken for multicast: one plain send, for which there is no road here.
        EXPECT_FALSE(socket.sendV4(bytesOf("m"), v4(0xe0000001, 19700), false));
        EXPECT_EQ(socket.lastError(), 10051);
    });
}

}  // namespace
