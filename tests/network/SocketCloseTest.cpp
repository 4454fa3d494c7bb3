// Closing from another thread is how the system ends a blocked reader.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "platform/Net.h"
#include "tests/support/Sockets.h"

namespace {

using namespace ZENNO;
using namespace velmora_test;

constexpr std::uint32_t veryLong = 4'000'000'000;  // µs: the test program's own limit comes first

void settle() {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

TEST(SocketClose, EndsABlockedWait) {
    for (const auto kind : {SocketKind::udpV6, SocketKind::udpDual, SocketKind::tcpV6}) {
        SCOPED_TRACE(static_cast<int>(kind));
        LoopbackSocket blocked(kind);
        std::atomic<bool> begun{false};
        int answer = -1;
        std::thread reader([&] {
            begun = true;
            answer = blocked.socket.waitReadable(veryLong);
        });
        while (!begun) std::this_thread::yield();
        settle();
        blocked.socket.close();
        reader.join();
        EXPECT_EQ(answer, waitError);
        EXPECT_FALSE(blocked.socket.isOpen());
    }
}

TEST(SocketClose, EndsABlockedReadAsAnEmptyOne) {
    LoopbackSocket blocked;
    std::atomic<bool> begun{false};
    bool good = false;
    Bytes data{1};
    std::thread reader([&] {
        begun = true;
        IPAddress from;
        good = blocked.socket.receiveFrom(data, from);
    });
    while (!begun) std::this_thread::yield();
    settle();
    blocked.socket.close();
    reader.join();
    EXPECT_TRUE(good);
    EXPECT_TRUE(data.empty());
}

TEST(SocketClose, EndsABlockedAccept) {
    LoopbackSocket listener(SocketKind::tcpV6);
    std::atomic<bool> begun{false};
    bool accepted = true;
    std::thread reader([&] {
        begun = true;
        Socket peer;
        IPAddress from;
        accepted = listener.socket.accept(peer, from);
    });
    while (!begun) std::this_thread::yield();
    settle();
    listener.socket.close();
    reader.join();
    EXPECT_FALSE(accepted);
}

TEST(SocketClose, EndsSeveralWaitsAtOnce) {
    LoopbackSocket blocked;
    std::atomic<int> errors{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i) {
        readers.emplace_back([&] {
            if (blocked.socket.waitReadable(veryLong) == waitError) ++errors;
        });
    }
    settle();
    blocked.socket.close();
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(errors, 4);
}

TEST(SocketClose, FromTwoThreadsIsOnce) {
    for (int round = 0; round < 50; ++round) {
        LoopbackSocket socket;
        std::thread other([&] { socket.socket.close(); });
        socket.socket.close();
        other.join();
        EXPECT_FALSE(socket.socket.isOpen());
    }
}

// A reader that comes late must not wait on, or take the datagrams of, a socket that got the number
// of the closed one.
TEST(SocketClose, NumberIsNotGivenBackUnderAReader) {
    {
        LoopbackSocket probe;
        if (!platform::wakeWaiters(probe.socket.handle())) {
            GTEST_SKIP() << "on this system closing itself is what wakes a reader";
        }
    }
    LoopbackSocket sender;
    Socket churned;
    std::atomic<bool> done{false};
    std::atomic<int> taken{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i) {
        readers.emplace_back([&] {
            Bytes data;
            IPAddress from;
            while (!done) {
                if (churned.receiveFrom(data, from) && !data.empty()) ++taken;
            }
        });
    }
    bool robbed = false;
    for (int round = 0; round < 500 && !robbed; ++round) {
        EXPECT_TRUE(churned.open(SocketKind::udpV6));
        EXPECT_TRUE(churned.setBlocking(false));
        churned.close();
        LoopbackSocket victim;  // most likely gets the number
        EXPECT_TRUE(sender.socket.sendDatagramTo(bytesOf("v"), victim.address, false));
        std::this_thread::sleep_for(std::chrono::microseconds(300));  // time to be robbed
        robbed = victim.socket.waitReadable(patience) != waitReady;
    }
    done = true;
    for (std::thread& reader : readers) reader.join();
    EXPECT_FALSE(robbed);
    EXPECT_EQ(taken, 0);
}

}  // namespace
