// The watch's thread: how it begins, how it ends, and what is left when it does.
#include <atomic>
#include <chrono>
#include <system_error>
#include <thread>

#include "tests/find/WatchScript.h"
#include "tests/support/LiveNetwork.h"

namespace velmora_test {
namespace {

class WatchThread : public WatchTest {
protected:
    WatchThread() { target.sinks = {{6000, 1, "one"}}; }
    // The state that a failure leaves: no word of it, no watch, and the table as it was.
    void expectEndedAt(Micros time, std::uint64_t entries) {
        EXPECT_EQ(ended, time);
        EXPECT_FALSE(find->isWatching());
        EXPECT_EQ(find->targetCount(), entries);
        EXPECT_EQ(added().size(), entries);
        EXPECT_THAT(texts(3), IsEmpty());
        EXPECT_THAT(texts(4), IsEmpty());
        EXPECT_THAT(texts(5), IsEmpty());
    }
    ScriptedTarget target{network, control(1)};
};

TEST_F(WatchThread, IsNotThereAtFirst) {
    openedForWatch();
    EXPECT_FALSE(find->isWatching());
    find->joinWatch();
    find->stopWatch();
    find->joinWatch();
    EXPECT_FALSE(find->isWatching());
    EXPECT_THAT(sentByHost(), IsEmpty());
}

TEST_F(WatchThread, IsWatchingUntilItIsStopped) {
    std::vector<bool> watching;
    at(1, [&] { watching.push_back(find->isWatching()); });
    at(10 * second, [&] { watching.push_back(find->isWatching()); });
    at(20 * second + 1, [&] { watching.push_back(find->isWatching()); });
    runUntil(20 * second);
    EXPECT_THAT(watching, ElementsAre(true, true, false));
    EXPECT_FALSE(find->isWatching());
}

TEST_F(WatchThread, SeesAStopWithinASecond) {
    runUntil(10 * second);
    EXPECT_EQ(ended, firstListen + 10 * second);
    EXPECT_EQ(find->targetCount(), 1u) << "a stop touches nothing in the table";
    EXPECT_THAT(lost(), IsEmpty());
    EXPECT_THAT(story(), ElementsAre("Startup mode finish", "add Target: target 1"));
}

TEST_F(WatchThread, SeesAStopBehindADatagramAtOnce) {
    notifyAt(10 * second + 1000, control(1), 1);
    runUntil(10 * second);
    EXPECT_EQ(ended, 10 * second + 1000);
    EXPECT_EQ(target.count(wire::HELLO_REQ::id), 3) << "the datagram itself is served";
}

TEST_F(WatchThread, IsNotHinderedByAStopBeforeItsStart) {
    openedForWatch();
    find->stopWatch();
    runUntil(10 * second);
    EXPECT_EQ(find->targetCount(), 1u);
}

TEST_F(WatchThread, StartsUpAnewEachTimeAndKeepsTheTable) {
    runUntil(10 * second);
    timed.lines.clear();
    runUntil(20 * second);
    EXPECT_EQ(count(6, "Startup mode finish"), 1u);
    EXPECT_EQ(count(6, "add Target: target 1"), 0u);
    EXPECT_EQ(find->targetCount(), 1u);
    EXPECT_EQ(added().size(), 1u);
}

TEST_F(WatchThread, KnowsNobodyOfAnEarlierRun) {
    runUntil(10 * second);
    timed.lines.clear();
    leaves(control(1));
    ScriptedTarget other(network, control(2));
    runUntil(20 * second);
    EXPECT_EQ(count(6, "retry 1"), 0u);
    EXPECT_EQ(find->targetCount(), 1u) << "whom nobody compared stays";
}

TEST_F(WatchThread, IsJoinedByTheNextStart) {
    openedForWatch();
    at(40 * second, [this] { find->stopWatch(); });
    at(80 * second, [this] { find->stopWatch(); });
    find->startWatch();
    while (find->isWatching()) std::this_thread::yield();
    find->startWatch();
    find->joinWatch();
    EXPECT_EQ(count(6, "Startup mode finish"), 2u);
    EXPECT_FALSE(find->isWatching());
}

TEST_F(WatchThread, OpenWatchForgetsWhatAnEarlierRunFound) {
    runUntil(10 * second);
    EXPECT_TRUE(find->openWatch());
    EXPECT_EQ(find->targetCount(), 0u);
    EXPECT_THAT(added(), IsEmpty());
}

// ---- failures: each ends the thread, without a word ----

TEST_F(WatchThread, EndsWhenTheFirstSearchFails) {
    openedForWatch();
    network.waitFails = true;
    run();
    expectEndedAt(0, 0);
    EXPECT_THAT(texts(6), IsEmpty());
}

TEST_F(WatchThread, EndsWhenTheSecondSearchOfTheStartFails) {
    at(100'000, [&] { network.waitFails = true; });
    run();
    expectEndedAt(100'000, 0);
    EXPECT_EQ(count(6, "Startup mode finish"), 0u);
}

TEST_F(WatchThread, EndsWhenNothingCanBeSentToWhoAnswered) {
    target.onRequest = [&](const ScriptedTarget::Seen& seen) {
        if (seen.multicast) network.sendError = 10051;
    };
    run();
    expectEndedAt(findTime, 0);
}

TEST_F(WatchThread, EndsWhenAPollFails) {
    at(20 * second, [&] {
        target.onRequest = [&](const ScriptedTarget::Seen& seen) {
            if (seen.multicast) network.sendError = 10051;
        };
    });
    run();
    expectEndedAt(firstListen + 32 * second + findTime, 1);
    EXPECT_THAT(lost(), IsEmpty());
}

TEST_F(WatchThread, EndsWhenATargetCannotBeAskedForItsSinksAfterAPoll) {
    target.onRequest = [&](const ScriptedTarget::Seen& seen) {
        if (seen.id == wire::HELLO_REQ::id && target.count(seen.id) == 2) {
            network.sendError = 10051;
        }
    };
    run();
    expectEndedAt(firstListen, 0);
    EXPECT_EQ(count(6, "Startup mode finish"), 1u);
}

TEST_F(WatchThread, EndsWhenTheWaitForNotifyFails) {
    at(5 * second, [&] { network.waitFails = true; });
    run();
    expectEndedAt(5 * second, 1);
}

TEST_F(WatchThread, EndsWhenTheReceivingOfNotifyFails) {
    at(5 * second, [&] { network.receiveFails = true; });
    notifyAt(6 * second, control(1), 1);
    run();
    expectEndedAt(6 * second, 1);
    EXPECT_EQ(count(7, "fe80::1 3 64001000018000000100000000000000"), 0u);
}

TEST_F(WatchThread, EndsWhenASenderCannotBeIdentified) {
    at(5 * second, [&] { network.sendError = 10051; });
    notifyAt(6 * second, control(1), 1);
    run();
    expectEndedAt(6 * second, 1);
}

TEST_F(WatchThread, EndsWhenASenderCannotBeAskedForItsSinks) {
    notifyAt(5 * second, control(1), 1);
    at(5 * second + 1, [&] { network.sendError = 10051; });
    notifyAt(6 * second, control(1), 2);
    run();
    expectEndedAt(6 * second, 1);
}

TEST_F(WatchThread, EndsWhenOpenWatchWasLeftOut) {
    find = &opened();
    timed.lines.clear();
    run();
    expectEndedAt(firstListen, 1);
}

TEST_F(WatchThread, CanBeStartedAgainAfterAFailure) {
    at(5 * second, [&] { network.waitFails = true; });
    run();
    network.waitFails = false;
    runUntil(30 * second);
    EXPECT_GE(ended, 30 * second);
    EXPECT_EQ(count(6, "Startup mode finish"), 2u);
}

// ---- with a thread beside it: a network in real time ----

class WatchLive : public testing::Test {
protected:
    WatchLive() {
        network.attach(control(1), [](const Bytes& datagram) -> std::vector<Bytes> {
            switch (wire::load16(datagram, 4)) {
                case wire::FIND_REQ::id:
                    return {write(wire::FIND_ANS{.targetName = "t"})};
                case wire::HELLO_REQ::id:
                    return {write(wire::HELLO_ANS{})};
                case wire::SINK_REQ::id:
                    if (wire::load16(datagram, 8) == 0) return {write(wire::SINK_ANS{.count = 1})};
                    return {write(wire::SINK_ANS{.port = 6000})};
                default:
                    return {};
            }
        });
    }
    static void waitUntil(const std::function<bool()>& isSo) {
        while (!isSo()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    LiveNetwork network;
    LogCapture log{6};
    FindSetting setting;
};

TEST_F(WatchLive, IsEndedByClose) {
    Find find(setting, network);
    ASSERT_TRUE(find.open());
    ASSERT_TRUE(find.openWatch());
    find.startWatch();
    EXPECT_TRUE(find.isWatching());
    waitUntil([&] { return find.targetCount() == 1; });
    find.close();
    EXPECT_FALSE(find.isWatching());
    EXPECT_EQ(find.targetCount(), 1u) << "the table can still be read";
    TargetMap added;
    find.takeAdded(added);
    EXPECT_EQ(added.size(), 1u);
    find.joinWatch();
}

TEST_F(WatchLive, IsEndedByCloseDuringItsStart) {
    network.detach(control(1));
    Find find(setting, network);
    ASSERT_TRUE(find.open());
    ASSERT_TRUE(find.openWatch());
    find.startWatch();
    waitUntil([&] { return log.has("Startup mode retry"); });
    find.close();
    EXPECT_FALSE(find.isWatching());
    EXPECT_LT(log.count("Startup mode retry"), 111) << "not only after its 120 s";
}

TEST_F(WatchLive, IsEndedByTheDestructor) {
    {
        Find find(setting, network);
        ASSERT_TRUE(find.open());
        ASSERT_TRUE(find.openWatch());
        find.startWatch();
        waitUntil([&] { return find.targetCount() == 1; });
    }
    EXPECT_EQ(log.count("Startup mode finish"), 1);
}

TEST_F(WatchLive, IsEndedByAnotherOpen) {
    Find find(setting, network);
    ASSERT_TRUE(find.open());
    ASSERT_TRUE(find.openWatch());
    find.startWatch();
    waitUntil([&] { return find.targetCount() == 1; });
    EXPECT_TRUE(find.open());
    EXPECT_FALSE(find.isWatching());
}

TEST_F(WatchLive, IsEndedByItsNextStart) {
    Find find(setting, network);
    ASSERT_TRUE(find.open());
    ASSERT_TRUE(find.openWatch());
    find.startWatch();
    waitUntil([&] { return find.targetCount() == 1; });
    find.startWatch();
    EXPECT_TRUE(find.isWatching());
    waitUntil([&] { return log.count("Startup mode finish") == 2; });
    find.stopWatch();
    EXPECT_FALSE(find.isWatching());
    find.joinWatch();
    EXPECT_FALSE(find.isWatching());
}

// The watch cannot wait for itself.
TEST_F(WatchLive, CannotCloseItsOwnFind) {
    Find find(setting, network);
    ASSERT_TRUE(find.open());
    ASSERT_TRUE(find.openWatch());
    std::atomic<bool> isStarted = false;
    std::atomic<int> refusals = 0;
    network.attach(control(1), [&](const Bytes&) -> std::vector<Bytes> {
        waitUntil([&] { return isStarted.load(); });
        if (refusals++ == 0) {
            EXPECT_THROW(find.close(), std::system_error);
        }
        return {};
    });
    find.startWatch();
    isStarted = true;
    find.joinWatch();
    EXPECT_FALSE(find.isWatching());
    EXPECT_GE(refusals.load(), 1);
}

TEST_F(WatchLive, LetsTheTableBeReadAllTheTime) {
    Find find(setting, network);
    ASSERT_TRUE(find.open());
    ASSERT_TRUE(find.openWatch());
    find.startWatch();
    TargetMap entries;
    std::list<IPAddress> lost;
    while (entries.empty()) {
        find.takeAdded(entries);
        find.takeLost(lost);
        EXPECT_LE(find.targetCount(), 1u);
    }
    EXPECT_EQ(entries.begin()->first, linkLocal(1, 6000));
    find.eraseTarget(linkLocal(1, 6000));
    EXPECT_EQ(find.targetCount(), 0u);
    find.stopWatch();
    find.joinWatch();
}

}  // namespace
}  // namespace velmora_test
