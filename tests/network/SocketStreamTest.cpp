#include <gtest/gtest.h>

#include "src/Network/Socket.h"
#include "tests/support/Sockets.h"

namespace {

using namespace ZENNO;
using namespace velmora_test;

// Both ends of a connection over ::1.
struct Connection {
    LoopbackSocket listener{SocketKind::tcpV6};
    Socket client, server;
    IPAddress from = IPAddress::of({1, 2, 3, 4, 5, 6, 7, 8}, 1, 42);

    Connection() {
        EXPECT_TRUE(client.open(SocketKind::tcpV6));
        EXPECT_TRUE(client.connect(listener.address));
        EXPECT_EQ(listener.socket.accept(server, from, patience), waitReady);
    }
};

TEST(SocketStream, AcceptTellsWhoCame) {
    Connection both;
    EXPECT_TRUE(both.server.isOpen());
    EXPECT_TRUE(both.server.isStream());
    EXPECT_TRUE(both.from.isLoopback());
    EXPECT_NE(both.from.portNumber(), 0);
    EXPECT_EQ(both.from.scope, 42u) << "the scope is not accept's to write";
}

TEST(SocketStream, AcceptWithoutTheWait) {
    LoopbackSocket listener(SocketKind::tcpV6);
    Socket client, server;
    ASSERT_TRUE(client.open(SocketKind::tcpV6));
    ASSERT_TRUE(client.connect(listener.address));
    IPAddress from;
    ASSERT_TRUE(listener.socket.accept(server, from));
    EXPECT_TRUE(server.isOpen());
}

TEST(SocketStream, AcceptTimesOutAndLeavesThePeerAlone) {
    LoopbackSocket listener(SocketKind::tcpV6);
    LoopbackSocket peer;
    IPAddress from;
    EXPECT_EQ(listener.socket.accept(peer.socket, from, 1000), waitTimedOut);
    EXPECT_TRUE(peer.socket.isOpen());
}

TEST(SocketStream, AcceptReplacesAnOpenPeer) {
    LoopbackSocket listener(SocketKind::tcpV6);
    LoopbackSocket peer;
    Socket client;
    ASSERT_TRUE(client.open(SocketKind::tcpV6));
    ASSERT_TRUE(client.connect(listener.address));
    IPAddress from;
    ASSERT_EQ(listener.socket.accept(peer.socket, from, patience), waitReady);
    EXPECT_TRUE(peer.socket.isStream());
    ASSERT_TRUE(client.send(bytesOf("hello")));
    Bytes data;
    ASSERT_EQ(peer.socket.waitReadable(patience), waitReady);
    ASSERT_TRUE(peer.socket.receive(data));
    EXPECT_EQ(data, bytesOf("hello"));
}

TEST(SocketStream, AcceptOfADatagramSocketFails) {
    LoopbackSocket sender, notAListener;
    ASSERT_TRUE(sender.socket.sendDatagramTo(bytesOf("x"), notAListener.address, false));
    Socket peer;
    IPAddress from;
    EXPECT_EQ(notAListener.socket.accept(peer, from, patience), waitError);
    EXPECT_FALSE(peer.isOpen());
}

TEST(SocketStream, BytesGoBothWays) {
    Connection both;
    ASSERT_TRUE(both.client.send(bytesOf("to the server")));
    Bytes data;
    ASSERT_EQ(both.server.waitReadable(patience), waitReady);
    ASSERT_TRUE(both.server.receive(data));
    EXPECT_EQ(data, bytesOf("to the server"));

    std::uint64_t position = 0;
    ASSERT_TRUE(both.server.send(bytesOf("and back"), 4, position));
    EXPECT_EQ(position, 8u);
    std::uint8_t room[16];
    std::uint64_t length = 0;
    ASSERT_EQ(both.client.waitReadable(patience), waitReady);
    ASSERT_TRUE(both.client.receive(BufferCS{room, sizeof room}, length));
    EXPECT_EQ(Bytes(room, room + length), bytesOf("back"));
}

TEST(SocketStream, OffsetBehindTheEndSendsNothing) {
    Connection both;
    std::uint64_t position = 0;
    EXPECT_TRUE(both.client.send(bytesOf("abc"), 9, position));
    EXPECT_EQ(position, 3u);
    EXPECT_EQ(both.server.poll(), waitTimedOut);
}

TEST(SocketStream, FullBufferIsAFailureWithItsNumber) {
    Connection both;
    ASSERT_TRUE(both.client.setBlocking(false));
    const Bytes chunk(1 << 16, 3);
    std::uint64_t position = 0;
    int rounds = 0;
    while (both.client.send(chunk, 0, position) && ++rounds < 10000) {
        ASSERT_GT(position, 0u);
    }
    EXPECT_EQ(position, 0u);
    EXPECT_TRUE(isFullBuffer(both.client.lastError())) << both.client.lastError();
    EXPECT_FALSE(both.client.send(chunk));
}

TEST(SocketStream, WouldBlockIsAnEmptyRead) {
    Connection both;
    ASSERT_TRUE(both.server.setBlocking(false));
    Bytes data{1, 2};
    EXPECT_TRUE(both.server.receive(data));
    EXPECT_TRUE(data.empty());
}

TEST(SocketStream, PeerThatClosedEndsTheRead) {
    Connection both;
    both.client.close();
    ASSERT_EQ(both.server.waitReadable(patience), waitReady);
    Bytes data{1, 2};
    EXPECT_FALSE(both.server.receive(data));
    EXPECT_TRUE(data.empty());
}

TEST(SocketStream, ShutdownEndsTheConnection) {
    Connection both;
    EXPECT_TRUE(both.client.shutdown());
    EXPECT_TRUE(both.client.isOpen());
    Bytes data;
    ASSERT_EQ(both.server.waitReadable(patience), waitReady);
    EXPECT_FALSE(both.server.receive(data));
    EXPECT_FALSE(both.client.send(bytesOf("x")));
    EXPECT_EQ(both.client.lastError(), 10058);
}

TEST(SocketStream, ConnectToNobodyFails) {
    LoopbackSocket listener(SocketKind::tcpV6);
    const IPAddress nobody = listener.address;
    listener.socket.close();
    Socket client;
    ASSERT_TRUE(client.open(SocketKind::tcpV6));
    EXPECT_FALSE(client.connect(nobody));
}

TEST(SocketStream, ConnectGoesByNoScope) {
    LoopbackSocket listener(SocketKind::tcpV6);
    IPAddress scoped = listener.address;
    scoped.scope = 0x7fff'fff0;
    Socket client;
    ASSERT_TRUE(client.open(SocketKind::tcpV6));
    EXPECT_TRUE(client.connect(scoped));
}

TEST(SocketStream, BindV4OfAStreamDoesNotListen) {
    Socket socket;
    ASSERT_TRUE(socket.open(SocketKind::tcpV4));
    IPAddress any;
    EXPECT_TRUE(socket.bindV4(any));
    Socket peer;
    EXPECT_FALSE(socket.accept(peer, any));
}

}  // namespace
