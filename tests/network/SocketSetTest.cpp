#include "src/Network/SocketSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "tests/support/Sockets.h"

namespace {

using namespace ZENNO;
using namespace velmora_test;

TEST(SocketSet, IgnoresClosedHandles) {
    SocketSet set;
    EXPECT_TRUE(set.empty());
    set.add(Socket::closedHandle);
    EXPECT_TRUE(set.empty());
    set.remove(Socket::closedHandle);
    set.remove(123);
    EXPECT_TRUE(set.empty());
    set.add(123);
    EXPECT_FALSE(set.empty());
    EXPECT_FALSE(set.contains(123)) << "nothing is ready before a wait";
    set.remove(123);
    EXPECT_TRUE(set.empty());
}

TEST(SocketSet, WaitOnNothingIsAnError) {
    SocketSet set;
    EXPECT_EQ(set.wait(patience), waitError);
}

TEST(SocketSet, TellsWhichIsReady) {
    LoopbackSocket sender, one, two, three;
    SocketSet set;
    for (LoopbackSocket* s : {&one, &two, &three}) set.add(s->socket.handle());
    set.add(one.socket.handle());
    EXPECT_EQ(set.wait(1000), waitTimedOut);
    EXPECT_FALSE(set.contains(two.socket.handle()));

    ASSERT_TRUE(sender.socket.sendDatagramTo(bytesOf("x"), two.address, false));
    EXPECT_EQ(set.wait(patience), waitReady);
    EXPECT_FALSE(set.contains(one.socket.handle()));
    EXPECT_TRUE(set.contains(two.socket.handle()));
    EXPECT_FALSE(set.contains(three.socket.handle()));

    set.remove(two.socket.handle());
    EXPECT_EQ(set.wait(0), waitTimedOut);
    EXPECT_FALSE(set.contains(two.socket.handle()));
}

TEST(SocketSet, ClosedSocketInItIsAnError) {
    LoopbackSocket one;
    SocketSet set;
    set.add(one.socket.handle());
    one.socket.close();
    EXPECT_EQ(set.wait(patience), waitError);
}

TEST(SocketSet, SixtyFifthHandleIsNotWaitedFor) {
    std::vector<std::unique_ptr<LoopbackSocket>> sockets;
    for (int i = 0; i < 65; ++i) sockets.push_back(std::make_unique<LoopbackSocket>());
    std::sort(sockets.begin(), sockets.end(),
              [](const auto& a, const auto& b) { return a->socket.handle() < b->socket.handle(); });
    SocketSet set;
    // Last in, first in order: what counts is the order of the handles.
    for (auto it = sockets.rbegin(); it != sockets.rend(); ++it) set.add((*it)->socket.handle());

    LoopbackSocket sender;
    ASSERT_TRUE(sender.socket.sendDatagramTo(bytesOf("x"), sockets[64]->address, false));
    ASSERT_EQ(sockets[64]->socket.waitReadable(patience), waitReady);
    EXPECT_EQ(set.wait(0), waitTimedOut);
    EXPECT_FALSE(set.contains(sockets[64]->socket.handle()));

    ASSERT_TRUE(sender.socket.sendDatagramTo(bytesOf("x"), sockets[63]->address, false));
    EXPECT_EQ(set.wait(patience), waitReady);
    EXPECT_TRUE(set.contains(sockets[63]->socket.handle()));
    EXPECT_FALSE(set.contains(sockets[64]->socket.handle()));
}

}  // namespace
