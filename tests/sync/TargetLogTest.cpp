#include "sync/TargetLog.h"

#include <gmock/gmock.h>

#include "tests/sync/StreamHarness.h"

namespace {

using namespace velmora_test;
using testing::ElementsAre;
using testing::IsEmpty;
using VELMORA::TargetLog;

// The log thread's loop on the test's own thread; it ends when the socket closes.
struct Channel {
    FakeNetwork network;
    FakeMachine machine;
    TargetLog log{network};
    ScriptedTarget target;
    IPAddress control = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x77}, 5000, 3);
    IPAddress logPort = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x77}, 19642, 3);

    Channel() {
        network.attach(logPort, &target);
        EXPECT_TRUE(log.open(3));
    }
    void say(std::uint64_t at, Bytes data) {
        network.time.in(at, [this, data = std::move(data)] {
            network.send(logPort, network.sent.front().from, data);
        });
    }
    void runUntil(std::uint64_t micros) {
        network.time.in(micros, [this] { log.closeSocket(); });
        log.run();
    }
};

Bytes line(const std::string& text, std::uint16_t kind = 2) {
    return datagram(41, 0, {kind}, Bytes(text.begin(), text.end()));
}

TEST(TargetLog, AsksNothingUntilATargetIsKnown) {
    Channel c;
    c.runUntil(1000000);
    EXPECT_TRUE(c.network.sent.empty());
}

TEST(TargetLog, AsksTheTargetsLogPortOnce) {
    Channel c;
    const LogCapture log(6);
    c.target.on(40, datagram(41, 1));
    c.log.ask(c.control);
    EXPECT_TRUE(c.log.logRequest());
    EXPECT_EQ(c.log.logTarget(), c.logPort);
    c.runUntil(1000000);
    EXPECT_FALSE(c.log.logRequest());
    EXPECT_THAT(c.target.requests, ElementsAre(datagram(40, 0, {1})));
}

TEST(TargetLog, AsksForNoLinesBelowLevel6) {
    Channel c;
    const LogCapture log(5);
    c.log.ask(c.control);
    c.runUntil(1000000);
    EXPECT_THAT(c.target.requests,
                ElementsAre(datagram(40, 0, {0}), datagram(40, 0, {0}), datagram(40, 0, {0})))
        << "three tries of 10 ms, and the silence does not matter";
}

TEST(TargetLog, AsksAgainForANewTarget) {
    Channel c;
    c.log.ask(c.control);
    c.network.time.in(300000, [&] { c.log.ask(c.control); });
    c.target.on(40, datagram(41, 1));
    c.runUntil(1000000);
    EXPECT_EQ(c.target.requests.size(), 2u);
}

TEST(TargetLog, ShowsTextLinesAndSkipsTheRest) {
    Channel c;
    const LogCapture log(6);
    c.target.on(40, datagram(41, 1));
    c.log.ask(c.control);
    Bytes foreign = line("foreign");
    foreign[0] = 101;
    Bytes cut = line("cut short by the way");
    cut.resize(32);
    Bytes longer = line("surplus");
    longer.resize(64, 0x55);
    c.say(1000, line("clock locked"));
    c.say(2000, line("kind 1", 1));
    c.say(3000, datagram(40, 0, {2}, {'i', 'd'}));
    c.say(4000, foreign);
    c.say(5000, cut);
    c.say(6000, longer);
    c.say(7000, Bytes(15, 0));
    c.say(8000, {});
    c.say(9000, line(""));
    c.say(10000, line("12345678"));
    c.runUntil(1000000);
    EXPECT_THAT(log.texts(6), ElementsAre("Target: clock locked", "Target: surplus",
                                          "Target: ", "Target: 12345678"));
}

TEST(TargetLog, EndsWhenAWaitOrAReadFails) {
    {
        Channel c;
        c.network.time.in(5000, [&] { c.network.waitFails = true; });
        c.log.run();
    }
    Channel c;
    c.log.ask(c.control);
    c.target.on(40, [&](const Bytes&) {
        c.say(20000, line("unread"));
        c.network.time.in(19000, [&] { c.network.receiveFails = true; });
        return Datagrams{datagram(41, 1)};
    });
    c.log.run();
}

TEST(TargetLog, RunsOnAThreadAtLevel6AndAboveOnly) {
    Channel c;
    for (const int level : {-1, 5}) {
        const LogCapture log(level);
        c.log.start(c.machine);
    }
    EXPECT_THAT(c.machine.entries, IsEmpty());
    const LogCapture log(6);
    c.log.ask(c.control);
    c.log.start(c.machine);
    EXPECT_EQ(c.machine.entries.size(), 1u);
    EXPECT_FALSE(c.log.logRequest()) << "an earlier session's request is not its own";
}

TEST(TargetLog, ARefusedThreadLeavesTheSessionWithoutLines) {
    Channel c;
    const LogCapture log(6);
    c.machine.refusesThreads = true;
    c.log.start(c.machine);
    c.log.join();
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST(TargetLog, FailsToOpenWhereNoSocketCanBeHad) {
    FakeNetwork network;
    TargetLog log(network);
    network.openFails = true;
    EXPECT_FALSE(log.open(3));
    network.openFails = false;
    network.bindFails = true;
    EXPECT_FALSE(log.open(3));
}

}  // namespace
