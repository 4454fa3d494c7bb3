// The session with its real thread over real sockets, on the loopback address: what one thread
// alone cannot show.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "sync/ThreadMode.h"
#include "tests/sync/StreamHarness.h"

namespace {

using namespace velmora_test;

// A target on ::1 with one port for everything, on a thread of its own.
class LoopbackTarget {
public:
    LoopbackTarget() : link_(ZENNO::systemEnvironment().makeLink()) {
        address = IPAddress::loopbackV6();
        EXPECT_TRUE(link_->open(ZENNO::SocketKind::udpV6) && link_->bindV6(address));
        thread_ = std::thread([this] { serve(); });
    }
    ~LoopbackTarget() {
        over_ = true;
        thread_.join();
    }

    IPAddress address;
    std::atomic<bool> silent{false};  // answers nothing
    std::atomic<int> packets{0}, partings{0};

private:
    void serve() {
        Bytes request;
        IPAddress from;
        while (!over_) {
            if (link_->waitReadable(10000) != ZENNO::waitReady) continue;
            if (!link_->receiveFrom(request, from) || request.size() < 16 || silent) continue;
            const auto answer = [&](const Bytes& data) {
                link_->sendDatagramTo(data, from, /*retry=*/true);
            };
            switch (word16(request, 4)) {
                case 8:
                    answer(datagram(9, 1, {address.portNumber()}));
                    break;
                case 10:
                    ++packets;
                    if ((word16(request, 6) & 0x20) != 0) answer(feedbackSays(0));
                    break;
                case 12:
                    ++partings;
                    answer(datagram(13, 1));
                    break;
                default:
                    break;
            }
        }
    }

    std::unique_ptr<ZENNO::Link> link_;
    std::atomic<bool> over_{false};
    std::thread thread_;
};

struct Live {
    LoopbackTarget target;
    TestSync sync{ZENNO::systemEnvironment()};

    // A stream ends by itself when nothing was heard for eight of `infoCycle`, at least a
    // second.
    explicit Live(std::uint32_t mode, std::uint32_t infoCycle = 20000) {
        EXPECT_TRUE(sync.open(mode, infoCycle, 0, "host", 1));
        sync.target = target.address;
        sync.sinkConfig = Session::stereo16;
        sync.profiles[0] = Session::fixRow(1000, 2);
        sync.profileCount = 1;
        sync.supply = [block = Bytes(64)](StreamRef& out) {
            out = {block.data(), block.size()};
            return true;
        };
    }
    // What a SyncBuffer does at its end: the audio ends when the session is told so.
    void letTheAudioEnd() {
        sync.supply = [this, block = Bytes(64)](StreamRef& out) {
            out = {block.data(), block.size()};
            return sync.state != Sync::Disconnecting;
        };
    }
};

TEST(StreamLoopback, AWholeSessionFromConnectToDisconnect) {
    for (const std::uint32_t mode : {std::uint32_t{0}, std::uint32_t{VELMORA::SOCKETNOBLOCK}}) {
        // A machine that stands still for a second shall not end it.
        Live live(mode, 500000);
        live.letTheAudioEnd();
        ASSERT_TRUE(live.sync.connect());
        ASSERT_TRUE(live.sync.connectWait());
        ASSERT_EQ(live.sync.state, Sync::Connected);
        live.sync.play();
        while (live.target.packets < 100 && live.sync.is_connect()) std::this_thread::yield();
        live.sync.disconnect();
        EXPECT_EQ(live.sync.state, Sync::Idle);
        EXPECT_GE(live.target.partings, 1);

        ASSERT_TRUE(live.sync.connect()) << "and again on the same sockets";
        ASSERT_TRUE(live.sync.connectWait());
        EXPECT_EQ(live.sync.state, Sync::Connected);
        live.sync.close();
        EXPECT_EQ(live.sync.state, Sync::Idle);
    }
}

TEST(StreamLoopback, CloseEndsAWorkerThatStillConnects) {
    Live live(0);
    live.target.silent = true;
    ASSERT_TRUE(live.sync.connect());
    EXPECT_EQ(live.sync.state, Sync::Connecting);
    live.sync.close();
    EXPECT_EQ(live.sync.state, Sync::Idle);
}

TEST(StreamLoopback, ASecondOpeningEndsWhatRuns) {
    // At level 6 the first opening has started the target's log thread; the worker streams.
    const LogCapture log(6);
    Live live(0);
    ASSERT_TRUE(live.sync.connect());
    ASSERT_TRUE(live.sync.connectWait());
    ASSERT_TRUE(live.sync.open(0, 20000, 0, "host", 1));
    EXPECT_EQ(live.sync.state, Sync::Idle);
    ASSERT_TRUE(live.sync.open(0, 20000, 0, "host", 1));
}

TEST(StreamLoopback, TheWordsOfTwoThreadsMayChangeAtAnyMoment) {
    Live live(VELMORA::NOSLEEPFORCE);
    live.letTheAudioEnd();
    ASSERT_TRUE(live.sync.connect());
    ASSERT_TRUE(live.sync.connectWait());
    for (int i = 0; i < 20; ++i) {
        live.sync.play();
        live.sync.phaseInvert = static_cast<std::uint8_t>(i & 1);
        const int before = live.target.packets;
        while (live.target.packets < before + 5 && live.sync.is_connect()) {
            std::this_thread::yield();
        }
        live.sync.stop();
    }
    live.sync.disconnect();
    EXPECT_EQ(live.sync.state, Sync::Idle);
}

}  // namespace
