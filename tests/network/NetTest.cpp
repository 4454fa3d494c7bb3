// The seam over the system's sockets, natively and under Wine.
#include "platform/Net.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <vector>

#include "tests/support/Sockets.h"

namespace {

namespace net = ZENNO::platform;
using namespace velmora_test;

net::Endpoint onLoopback() {
    net::Endpoint endpoint;
    endpoint.address[15] = 1;
    return endpoint;
}

class Net : public testing::Test {
protected:
    ZENNO::Socket starter_;  // the network runs
};

TEST_F(Net, RefusesWhatIsNoFamily) {
    EXPECT_EQ(net::openSocket(net::familyNone, net::typeNone), net::noSocket);
}

TEST_F(Net, ErrorsHaveTheNumbersOfWindows) {
    EXPECT_EQ(net::bindSocket(net::noSocket, net::familyV6, onLoopback()), 10038);
    const std::uint64_t socket = net::openSocket(net::familyV6, net::typeDatagram);
    ASSERT_NE(socket, net::noSocket);
    net::Endpoint foreign = onLoopback();
    foreign.address[0] = 0x20;
    EXPECT_EQ(net::bindSocket(socket, net::familyV6, foreign), 10049);
    EXPECT_EQ(net::bindSocket(socket, net::familyV6, onLoopback()), 0);
    EXPECT_EQ(net::bindSocket(socket, net::familyV6, onLoopback()), 10022);

    net::Endpoint local;
    ASSERT_EQ(net::localEndpoint(socket, local), 0);
    const std::uint64_t rival = net::openSocket(net::familyV6, net::typeDatagram);
    EXPECT_EQ(net::bindSocket(rival, net::familyV6, local), 10048);

    ASSERT_TRUE(net::setSocketBlocking(socket, false));
    std::uint8_t room[8];
    net::Endpoint from;
    std::int32_t error = 0;
    EXPECT_EQ(net::receiveFrom(socket, room, sizeof room, from, error), -1);
    EXPECT_EQ(error, 10035);
    EXPECT_EQ(net::receiveOn(socket, room, sizeof room, error = 0), -1);
    net::closeSocket(rival);
    net::closeSocket(socket);
}

TEST_F(Net, ACallMayDeclineToBlock) {
    const std::uint64_t socket = net::openSocket(net::familyV6, net::typeDatagram);
    ASSERT_EQ(net::bindSocket(socket, net::familyV6, onLoopback()), 0);
    ASSERT_TRUE(net::blockingIsByCall() || net::setSocketBlocking(socket, false));
    std::uint8_t room[8];
    net::Endpoint from;
    std::int32_t error = 0;
    EXPECT_EQ(net::receiveFrom(socket, room, sizeof room, from, error, /*mayBlock=*/false), -1);
    EXPECT_EQ(error, 10035);
    EXPECT_EQ(net::receiveOn(socket, room, sizeof room, error = 0, /*mayBlock=*/false), -1);
    EXPECT_EQ(error, 10035);
    net::closeSocket(socket);
}

TEST_F(Net, PortsThatTheSystemChoosesAreNeverShared) {
    // Sockets that may reuse addresses: the system must not take that for leave to hand a port out
    // twice.
    std::vector<std::unique_ptr<LoopbackSocket>> sockets;
    std::set<std::uint16_t> ports;
    for (int i = 0; i < 500; ++i) {
        sockets.push_back(std::make_unique<LoopbackSocket>());
        EXPECT_TRUE(ports.insert(sockets.back()->address.portNumber()).second);
    }
}

TEST_F(Net, ReuseLetsASecondSocketAskForTheSamePort) {
    LoopbackSocket first;
    ZENNO::Socket second;
    ASSERT_TRUE(second.open(ZENNO::SocketKind::udpV6));
    ZENNO::IPAddress same = first.address;
    EXPECT_TRUE(second.bindV6(same));
}

TEST_F(Net, WaitsOnHandlesOfAnySize) {
    std::vector<std::unique_ptr<LoopbackSocket>> sockets;
    do {
        sockets.push_back(std::make_unique<LoopbackSocket>());
        if (!sockets.back()->socket.isOpen()) GTEST_SKIP() << "no handles above 1023 to be had";
    } while (sockets.back()->socket.handle() <= 1023);
    LoopbackSocket& high = *sockets.back();
    EXPECT_EQ(high.socket.waitReadable(1000), ZENNO::waitTimedOut);
    ASSERT_TRUE(sockets[0]->socket.sendDatagramTo(bytesOf("x"), high.address, false));
    EXPECT_EQ(high.socket.waitReadable(patience), ZENNO::waitReady);
}

TEST_F(Net, WaitRefusesNothingAndTooMany) {
    bool ready[65];
    EXPECT_EQ(net::waitUntilReadable({}, {}, 0), -1);
    const std::vector<std::uint64_t> many(65, starter_.handle());
    EXPECT_EQ(net::waitUntilReadable(many, ready, 0), -1);
    const std::uint64_t closed[] = {net::noSocket};
    EXPECT_EQ(net::waitUntilReadable(closed, std::span(ready).first(1), 0), -1);
}

TEST_F(Net, WaitCountsTheReady) {
    LoopbackSocket a, b, c;
    ASSERT_TRUE(a.socket.sendDatagramTo(bytesOf("1"), a.address, false));
    ASSERT_TRUE(a.socket.sendDatagramTo(bytesOf("2"), c.address, false));
    ASSERT_EQ(a.socket.waitReadable(patience), ZENNO::waitReady);
    ASSERT_EQ(c.socket.waitReadable(patience), ZENNO::waitReady);
    const std::uint64_t handles[] = {a.socket.handle(), b.socket.handle(), c.socket.handle()};
    bool ready[3] = {};
    EXPECT_EQ(net::waitUntilReadable(handles, ready, 0), 2);
    EXPECT_TRUE(ready[0]);
    EXPECT_FALSE(ready[1]);
    EXPECT_TRUE(ready[2]);
}

}  // namespace
