#include "src/Network/Socket.h"

#include <gtest/gtest.h>

#include "platform/Net.h"
#include "tests/support/Sockets.h"

namespace {

using namespace ZENNO;
using namespace velmora_test;

constexpr auto closedHandle = Socket::closedHandle;

IPAddress v4Of(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d,
               std::uint16_t port = 0) {
    IPAddress out;
    out.address[10] = out.address[11] = 0xff;
    out.address[12] = a;
    out.address[13] = b;
    out.address[14] = c;
    out.address[15] = d;
    out.setPortNumber(port);
    return out;
}

// A V4 datagram socket on 127.0.0.1; the port is asked of the system, as bindV4 does not tell it.
IPAddress bindLoopbackV4(Socket& socket) {
    EXPECT_TRUE(socket.bindV4(v4Of(127, 0, 0, 1)));
    platform::Endpoint local;
    EXPECT_EQ(platform::localEndpoint(socket.handle(), local), 0);
    IPAddress address;
    address.address = local.address;
    address.port = local.port;
    return address;
}

TEST(Socket, IsClosedFromTheStart) {
    Socket socket;
    EXPECT_EQ(socket.handle(), ~0ull);
    EXPECT_FALSE(socket.isOpen());
    EXPECT_EQ(socket.kind(), SocketKind::tcpV4);
    EXPECT_EQ(socket.readerSize, 1500u);
    EXPECT_TRUE(socket.isBlocking());
    EXPECT_EQ(socket.lastError(), 0);
    EXPECT_EQ(socket.fixedScope(), 0u);
    EXPECT_EQ(socket.destination(), IPAddress{});
}

TEST(Socket, EveryOperationOnAClosedSocketAnswers) {
    Socket socket;
    IPAddress address = IPAddress::loopbackV6(9);
    Bytes data{1};
    std::uint64_t length = 7, position = 7;
    socket.close();
    EXPECT_FALSE(socket.shutdown());
    EXPECT_FALSE(socket.bindV4(address));
    EXPECT_EQ(socket.lastError(), 10038);
    EXPECT_FALSE(socket.bindV6(address));
    EXPECT_FALSE(socket.setInterface(1));
    EXPECT_FALSE(socket.joinV4(v4Of(239, 1, 2, 3), IPAddress{}));
    EXPECT_FALSE(socket.joinV6(IPAddress::allNodes(0, 1)));
    EXPECT_FALSE(socket.connect(address));
    EXPECT_FALSE(socket.setBlocking(false));
    EXPECT_TRUE(socket.isBlocking());
    EXPECT_FALSE(socket.sendDatagram(data, /*retry=*/true));
    EXPECT_EQ(socket.lastError(), 10038);
    EXPECT_FALSE(socket.sendV4(data, v4Of(127, 0, 0, 1, 9), /*retry=*/true));
    EXPECT_FALSE(socket.send(data));
    EXPECT_FALSE(socket.send(data, 0, position));
    EXPECT_EQ(position, 0u);
    EXPECT_FALSE(socket.receive(data));
    EXPECT_TRUE(data.empty());
    EXPECT_EQ(socket.waitReadable(patience), waitError);
    EXPECT_EQ(socket.poll(), waitError);
    Socket peer;
    EXPECT_EQ(socket.accept(peer, address, patience), waitError);
    EXPECT_FALSE(socket.accept(peer, address));
    EXPECT_FALSE(socket.accept(socket, address));
    std::uint8_t room[4];
    EXPECT_TRUE(socket.receiveFrom(BufferCS{room, sizeof room}, length, address));
    EXPECT_EQ(length, 0u);
}

TEST(Socket, KindsTellStreamFromDatagram) {
    const struct {
        SocketKind kind;
        bool stream, datagram;
    } cases[] = {
        {SocketKind::tcpV4, true, false},           {SocketKind::udpV4, false, true},
        {SocketKind::tcpV6, true, false},           {SocketKind::udpV6, false, true},
        {SocketKind::tcpDual, true, false},         {SocketKind::udpDual, false, true},
        {static_cast<SocketKind>(6), false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.kind));
        Socket socket;
        EXPECT_EQ(socket.open(c.kind), c.stream || c.datagram);
        EXPECT_EQ(socket.isOpen(), c.stream || c.datagram);
        EXPECT_EQ(socket.kind(), c.kind);
        EXPECT_EQ(socket.isStream(), c.stream);
        EXPECT_EQ(socket.isDatagram(), c.datagram);
        EXPECT_TRUE(socket.isBlocking());
    }
}

TEST(Socket, SevenIsADatagramKindNoMore) {
    Socket socket;
    EXPECT_FALSE(socket.open(static_cast<SocketKind>(7)));
    EXPECT_FALSE(socket.isStream());
    EXPECT_FALSE(socket.isDatagram());
}

TEST(Socket, OpenClosesWhatIsOpen) {
    LoopbackSocket old;
    ASSERT_TRUE(old.socket.setBlocking(false));
    const IPAddress before = old.address;
    ASSERT_TRUE(old.socket.open(SocketKind::udpV6));
    EXPECT_TRUE(old.socket.isBlocking());

    // Nobody listens at the old address any more.
    LoopbackSocket sender;
    ASSERT_TRUE(sender.socket.sendDatagramTo(bytesOf("gone"), before, false));
    IPAddress fresh = IPAddress::loopbackV6();
    ASSERT_TRUE(old.socket.bindV6(fresh));
    EXPECT_EQ(old.socket.poll(), waitTimedOut);
}

TEST(Socket, FailedOpenLeavesItClosed) {
    Socket socket;
    ASSERT_TRUE(socket.open(SocketKind::udpV6));
    EXPECT_FALSE(socket.open(static_cast<SocketKind>(99)));
    EXPECT_EQ(socket.handle(), closedHandle);
}

TEST(Socket, BindWritesTheAssignedPortBack) {
    LoopbackSocket any;
    EXPECT_NE(any.address.portNumber(), 0);

    IPAddress asked = IPAddress::loopbackV6(any.address.portNumber());
    any.socket.close();
    Socket socket;
    ASSERT_TRUE(socket.open(SocketKind::udpV6));
    ASSERT_TRUE(socket.bindV6(asked));
    EXPECT_EQ(asked.port, any.address.port);
}

TEST(Socket, BindFailureStoresItsError) {
    Socket socket;
    ASSERT_TRUE(socket.open(SocketKind::udpV6));
    IPAddress notOurs = IPAddress::of({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1});
    EXPECT_FALSE(socket.bindV6(notOurs));
    EXPECT_EQ(socket.lastError(), 10049);
    EXPECT_EQ(notOurs.portNumber(), 0);
    EXPECT_TRUE(socket.isOpen());

    ASSERT_TRUE(socket.open(SocketKind::udpV4));
    ASSERT_TRUE(socket.bindV4(v4Of(127, 0, 0, 1)));
    EXPECT_FALSE(socket.bindV4(v4Of(127, 0, 0, 1))) << "bound already";
    EXPECT_EQ(socket.lastError(), 10022);
}

TEST(Socket, BindFixesTheScopeOfLinkLocalAndLoopbackAlone) {
    const struct {
        const char* why;
        IPAddress address;
        std::uint32_t fixed;
    } cases[] = {
        {"a link-local address with a scope",
         IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0xaaaa, 1}, 0, 5), 5},
        {"a link-local address with scope 0", IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0xaaaa, 1}), 0},
        {"fe81 is not link-local here", IPAddress::of({0xfe81, 0, 0, 0, 0, 0, 0, 1}, 0, 5), 0},
        {"::1 with a scope", IPAddress::of({0, 0, 0, 0, 0, 0, 0, 1}, 0, 5), 5},
        {"::1 without one", IPAddress::loopbackV6(), 0},
        {"any address with a scope", IPAddress::of({}, 0, 5), 0},
        {"a global address with a scope", IPAddress::of({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}, 0, 5),
         0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        Socket socket;
        ASSERT_TRUE(socket.open(SocketKind::udpV6));
        IPAddress address = c.address;
        // Whether the machine has the address does not matter: the scope is fixed before.
        [[maybe_unused]] const bool bound = socket.bindV6(address);
        EXPECT_EQ(socket.fixedScope(), c.fixed);
        EXPECT_EQ(address.scope, c.address.scope);

        socket.setDestination(IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 2}, 1, 9));
        EXPECT_EQ(socket.destination().scope, c.fixed != 0 ? c.fixed : 9);
    }
}

TEST(Socket, ASecondBindFreesTheScopeAgain) {
    Socket socket;
    IPAddress tied = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0xaaaa, 1}, 0, 5);
    ASSERT_TRUE(socket.open(SocketKind::udpV6));
    [[maybe_unused]] const bool bound = socket.bindV6(tied);
    ASSERT_EQ(socket.fixedScope(), 5u);
    ASSERT_TRUE(socket.open(SocketKind::udpV6));
    IPAddress any;
    ASSERT_TRUE(socket.bindV6(any));
    EXPECT_EQ(socket.fixedScope(), 0u);
}

TEST(Socket, SendsToTheStoredDestinationAndToAnother) {
    LoopbackSocket sender, first, second;
    sender.socket.setDestination(first.address);
    ASSERT_TRUE(sender.socket.sendDatagram(bytesOf("one"), false));
    ASSERT_TRUE(sender.socket.sendDatagramTo(bytesOf("two"), second.address, false));
    ASSERT_TRUE(sender.socket.sendDatagram(bytesOf("three"), true));

    IPAddress from;
    EXPECT_EQ(nextDatagram(first.socket, from), bytesOf("one"));
    EXPECT_EQ(from, sender.address);
    EXPECT_EQ(nextDatagram(first.socket, from), bytesOf("three"));
    EXPECT_EQ(nextDatagram(second.socket, from), bytesOf("two"));
    EXPECT_EQ(first.socket.poll(), waitTimedOut);
}

TEST(Socket, SendFailureStoresItsError) {
    LoopbackSocket sender;
    const Bytes tooLong(70000, 1);
    EXPECT_FALSE(sender.socket.sendDatagramTo(tooLong, sender.address, /*retry=*/true));
    EXPECT_EQ(sender.socket.lastError(), 10040);
}

TEST(Socket, ReadOfNothingIsEmptyAndGood) {
    LoopbackSocket socket;
    ASSERT_TRUE(socket.socket.setBlocking(false));
    EXPECT_FALSE(socket.socket.isBlocking());
    std::uint8_t room[16];
    std::uint64_t length = 99;
    IPAddress from = IPAddress::loopbackV6(77);
    EXPECT_TRUE(socket.socket.receiveFrom(BufferCS{room, sizeof room}, length, from));
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(from, IPAddress::loopbackV6(77));
    Bytes data{1, 2, 3};
    EXPECT_TRUE(socket.socket.receiveFrom(data, from));
    EXPECT_TRUE(data.empty());
}

TEST(Socket, LongDatagramArrivesCutToTheReader) {
    LoopbackSocket sender, receiver;
    const Bytes whole(2000, 0x11);
    ASSERT_TRUE(sender.socket.sendDatagramTo(whole, receiver.address, false));
    ASSERT_TRUE(sender.socket.sendDatagramTo(whole, receiver.address, false));
    IPAddress from;
    EXPECT_EQ(nextDatagram(receiver.socket, from), Bytes(1500, 0x11));
    EXPECT_EQ(from, sender.address);
    receiver.socket.readerSize = 4096;
    EXPECT_EQ(nextDatagram(receiver.socket, from), whole);
}

TEST(Socket, WaitTellsReadyFromTimeOut) {
    LoopbackSocket sender, receiver;
    EXPECT_EQ(receiver.socket.waitReadable(0), waitTimedOut);
    EXPECT_EQ(receiver.socket.waitReadable(300), waitTimedOut);
    ASSERT_TRUE(sender.socket.sendDatagramTo(bytesOf("x"), receiver.address, false));
    EXPECT_EQ(receiver.socket.waitReadable(patience), waitReady);
    EXPECT_EQ(receiver.socket.waitReadable(0), waitReady) << "a wait takes nothing";
    EXPECT_EQ(receiver.socket.poll(), waitReady);
}

TEST(Socket, V4DatagramsCarryMappedAddresses) {
    Socket sender, receiver;
    ASSERT_TRUE(sender.open(SocketKind::udpV4));
    ASSERT_TRUE(receiver.open(SocketKind::udpV4));
    const IPAddress here = bindLoopbackV4(sender), there = bindLoopbackV4(receiver);
    ASSERT_TRUE(sender.sendV4(bytesOf("four"), there, false));
    ASSERT_TRUE(sender.sendV4(bytesOf("five!"), there, true));

    IPAddress from = IPAddress::of({1, 2, 3, 4, 5, 6, 7, 8}, 1, 2);
    Bytes data;
    ASSERT_EQ(receiver.waitReadable(patience), waitReady);
    ASSERT_TRUE(receiver.receiveFromV4(data, from));
    EXPECT_EQ(data, bytesOf("four"));
    EXPECT_EQ(from, here);
    std::uint8_t room[4];
    std::uint64_t length = 0;
    ASSERT_EQ(receiver.waitReadable(patience), waitReady);
    ASSERT_TRUE(receiver.receiveFromV4(BufferCS{room, sizeof room}, length, from));
    EXPECT_EQ(length, 4u) << "cut to the buffer";
    ASSERT_TRUE(receiver.setBlocking(false));
    ASSERT_TRUE(receiver.receiveFromV4(data, from));
    EXPECT_TRUE(data.empty());
}

TEST(Socket, BindV4TakesZeroBytesForAny) {
    Socket sender, receiver;
    ASSERT_TRUE(receiver.open(SocketKind::udpV4));
    ASSERT_TRUE(receiver.bindV4(IPAddress{}));
    platform::Endpoint local;
    ASSERT_EQ(platform::localEndpoint(receiver.handle(), local), 0);
    IPAddress there = v4Of(127, 0, 0, 1);
    there.port = local.port;
    ASSERT_TRUE(sender.open(SocketKind::udpV4));
    ASSERT_TRUE(sender.sendV4(bytesOf("any"), there, false));
    IPAddress from;
    EXPECT_EQ(nextDatagram(receiver, from), bytesOf("any"));
}

TEST(Socket, DualStackTakesBothFamilies) {
    Socket dual;
    ASSERT_TRUE(dual.open(SocketKind::udpDual));
    IPAddress any;
    ASSERT_TRUE(dual.bindV6(any));
    Socket four;
    ASSERT_TRUE(four.open(SocketKind::udpV4));
    const IPAddress here = bindLoopbackV4(four);
    ASSERT_TRUE(four.sendV4(bytesOf("4"), v4Of(127, 0, 0, 1, any.portNumber()), false));
    IPAddress from;
    EXPECT_EQ(nextDatagram(dual, from), bytesOf("4"));
    EXPECT_EQ(from, here);

    LoopbackSocket six;
    ASSERT_TRUE(
        six.socket.sendDatagramTo(bytesOf("6"), IPAddress::loopbackV6(any.portNumber()), false));
    EXPECT_EQ(nextDatagram(dual, from), bytesOf("6"));
    EXPECT_EQ(from, six.address);
}

TEST(Socket, SixAloneTakesNoFour) {
    Socket six;
    ASSERT_TRUE(six.open(SocketKind::udpV6));
    IPAddress any;
    ASSERT_TRUE(six.bindV6(any));
    Socket four;
    ASSERT_TRUE(four.open(SocketKind::udpV4));
    ASSERT_TRUE(four.sendV4(bytesOf("4"), v4Of(127, 0, 0, 1, any.portNumber()), false));
    LoopbackSocket sender;
    ASSERT_TRUE(
        sender.socket.sendDatagramTo(bytesOf("6"), IPAddress::loopbackV6(any.portNumber()), false));
    IPAddress from;
    EXPECT_EQ(nextDatagram(six, from), bytesOf("6"));
    EXPECT_EQ(six.poll(), waitTimedOut);
}

TEST(Socket, JoinsNoGroupOnAnInterfaceThatIsNotThere) {
    Socket socket;
    ASSERT_TRUE(socket.open(SocketKind::udpV6));
    EXPECT_FALSE(socket.joinV6(IPAddress::allNodes(0, 0x7fff'fff0)));
    EXPECT_EQ(socket.lastError(), 0) << "a join stores no error";
    EXPECT_FALSE(socket.setInterface(0x7fff'fff0));
}

}  // namespace
