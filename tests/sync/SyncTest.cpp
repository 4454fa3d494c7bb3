// The session's states and its caller's operations. The worker's thread does not run here.
#include "sync/Sync.h"

#include <gmock/gmock.h>

#include <thread>

#include "tests/sync/StreamHarness.h"

namespace {

using namespace velmora_test;
using testing::ElementsAre;
using testing::IsEmpty;

struct Idle {
    FakeNetwork network;
    FakeMachine machine;
    TestSync sync{network};

    Idle() { sync.setMachine(machine); }
    bool open(std::uint32_t mode = 1) { return sync.open(mode, 100000, 3, "host", 7); }
    void makeReady() {
        sync.sinkConfig = Session::stereo16;
        sync.profiles[0] = Session::fixRow(1000, 1);
        sync.profileCount = 1;
    }
};

TEST(Sync, StartsWithNothingButADefaultTransfer) {
    FakeNetwork network;
    const Sync sync(network);
    EXPECT_EQ(sync.state, Sync::Idle);
    EXPECT_EQ(sync.transfer.cycle, 1000000u);
    EXPECT_EQ(sync.transfer.packetCount, 1);
    EXPECT_EQ(sync.transfer.framesQ14, 0u);
    EXPECT_EQ(sync.profileCount, 0);
    EXPECT_EQ(sync.maxPacketSize, 0);
    EXPECT_EQ(sync.threadMode, 0u);
    EXPECT_EQ(sync.copyStream, &VELMORA::convertCopy);
    EXPECT_EQ(network.openLinks(), 0) << "its sockets exist, but are not open";
    EXPECT_FALSE(sync.is_connect());
}

TEST(Sync, OpensBothSocketsAndStoresWhatItIsGiven) {
    Idle s;
    s.sync.phaseInvert = 1;
    s.sync.state = Sync::Connected;
    s.sync.playing = 1;
    const LogCapture log(7);
    EXPECT_TRUE(s.open(0x121));
    EXPECT_EQ(s.network.openLinks(), 2);
    EXPECT_EQ(s.sync.phaseInvert, 0);
    EXPECT_EQ(s.sync.threadMode, 0x121u);
    EXPECT_EQ(s.sync.infoCycle, 100000u);
    EXPECT_EQ(s.sync.maxPacketSize, 1428);
    EXPECT_EQ(s.sync.maxPacketCount, 10);
    EXPECT_EQ(s.sync.clientName, "host");
    EXPECT_EQ(s.sync.productId, 7u);
    EXPECT_EQ(s.sync.state, Sync::Idle);
    EXPECT_EQ(s.sync.playing, 0);
    EXPECT_THAT(log.texts(6), ElementsAre("Velmora Sync Library ReleaseNo : 112 [3]"));
    EXPECT_EQ(s.machine.entries.size(), 1u) << "at this level the target's log is read";
}

TEST(Sync, ReadsTheTargetsLogAtLevel6Only) {
    Idle s;
    const LogCapture log(5);
    EXPECT_TRUE(s.open());
    EXPECT_TRUE(s.machine.entries.empty());
}

TEST(Sync, FailsToOpenWithoutItsSockets) {
    Idle s;
    s.network.openFails = true;
    EXPECT_FALSE(s.open());
    EXPECT_EQ(s.sync.maxPacketSize, 0) << "not got so far";
    s.network.openFails = false;
    s.network.bindFails = true;
    EXPECT_FALSE(s.open());
    s.network.bindFails = false;
    EXPECT_TRUE(s.open());
}

TEST(Sync, ConnectStartsTheWorkerOfAValidFormat) {
    Idle s;
    s.open();
    s.makeReady();
    s.sync.playing = 1;
    const LogCapture log(7);
    EXPECT_TRUE(s.sync.connect());
    EXPECT_EQ(s.sync.state, Sync::Connecting);
    EXPECT_EQ(s.sync.playing, 0);
    EXPECT_EQ(s.machine.entries.size(), 1u);
    EXPECT_TRUE(s.sync.is_connect());
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST(Sync, ConnectRefusesAnInvalidFormat) {
    Idle s;
    s.open();
    s.makeReady();
    s.sync.sinkConfig = {};
    s.sync.state = Sync::Connected;
    const LogCapture log(7);
    EXPECT_FALSE(s.sync.connect());
    EXPECT_TRUE(log.has(3, "sinkConfig invalid"));
    EXPECT_EQ(s.sync.state, Sync::Idle);
    EXPECT_EQ(s.network.openLinks(), 2);
    EXPECT_TRUE(s.machine.entries.empty());
}

TEST(Sync, ARefusedThreadClosesTheSessionAndThrowsNothing) {
    Idle s;
    s.open();
    s.makeReady();
    s.machine.refusesThreads = true;
    const LogCapture log(7);
    EXPECT_NO_THROW(EXPECT_FALSE(s.sync.connect()));
    EXPECT_TRUE(log.has(3, "Sync Worker Start Error"));
    EXPECT_EQ(s.network.openLinks(), 0);
    EXPECT_EQ(s.sync.state, Sync::Idle);
    EXPECT_THROW(s.sync.startWorker(), std::system_error);
}

struct RowCase {
    const char* why;
    void (*spoil)(TestSync&);
};
constexpr RowCase rowCases[] = {
    {"no cycle", [](TestSync& s) { s.profiles[0].cycle = 0; }},
    {"no packet", [](TestSync& s) { s.profiles[0].packetCount = 0; }},
    {"a ring of 65536",
     [](TestSync& s) {
         s.profiles[0].cycle = 1;
         s.profiles[0].packetCount = 1;
     }},
    {"never a frame", [](TestSync& s) { s.profiles[0].framesQ14 = 0; }},
    {"no room for a frame", [](TestSync& s) { s.maxPacketSize = 3; }},
    {"a fallback row without a cycle", [](TestSync& s) { s.profileCount = 2; }},
    {"a fallback row without a packet",
     [](TestSync& s) {
         s.profileCount = 2;
         s.profiles[1] = Session::fixRow(2000, 0);
     }},
    {"a ring beyond all measure: short cycles, and the longest packets",
     [](TestSync& s) {
         s.maxPacketSize = 65526;
         s.profiles[0] = {.cycle = 400, .framesQ14 = 20 << 14, .packetCount = 1};
         s.profiles[1] = {.cycle = 30000, .fixedBytes = 60000, .packetCount = 1};
         s.profileCount = 2;
     }},
    {"more rows than there are", [](TestSync& s) { s.profileCount = 11; }},
};

TEST(Sync, RowsThatCannotBeRunStartNoWorker) {
    for (const RowCase& c : rowCases) {
        SCOPED_TRACE(c.why);
        Idle s;
        s.open();
        s.makeReady();
        c.spoil(s.sync);
        {
            const LogCapture log(7);
            EXPECT_FALSE(s.sync.connect());
            EXPECT_TRUE(log.has(3, "Sync Worker Start Error"));
        }
        EXPECT_TRUE(s.machine.entries.empty());
        s.sync.state = Sync::Connecting;
        EXPECT_FALSE(s.sync.streamWorker()) << "nor does the worker itself run by them";
        EXPECT_EQ(s.sync.state, Sync::Idle);
    }
}

TEST(Sync, ConnectWaitAnswersAtOnceWhereNothingConnects) {
    for (const std::uint32_t state : {Sync::Idle, Sync::Disconnecting}) {
        Idle s;
        s.sync.state = state;
        const LogCapture log(7);
        EXPECT_FALSE(s.sync.connectWait());
        EXPECT_THAT(log.texts(), IsEmpty());
    }
}

TEST(Sync, ConnectWaitTellsHowItEnded) {
    Idle s;
    const LogCapture log(7);
    s.sync.state = Sync::Connected;
    EXPECT_TRUE(s.sync.connectWait());
    EXPECT_THAT(log.texts(6), ElementsAre("connectWait notimeout", "connectWait 2"));
}

TEST(Sync, ConnectWaitGivesUpAtItsLimit) {
    Idle s;
    EXPECT_EQ(s.sync.connectWaitLimit_, std::chrono::seconds(50));
    s.sync.connectWaitLimit_ = std::chrono::milliseconds(1);
    s.sync.state = Sync::Connecting;
    const LogCapture log(7);
    EXPECT_TRUE(s.sync.connectWait());
    EXPECT_THAT(log.texts(6), ElementsAre("connectWait timeout", "connectWait 1"));
    EXPECT_EQ(s.sync.state, Sync::Connecting);
}

TEST(Sync, ConnectWaitIsWokenByTheWorker) {
    // The session fails to announce itself on another thread: the state goes to Idle with a notify.
    Idle s;
    s.open();
    s.network.sendError = 10051;
    s.sync.state = Sync::Connecting;
    std::thread worker([&] { s.sync.connectPrepare(); });
    s.sync.connectWait();
    worker.join();
    EXPECT_EQ(s.sync.state, Sync::Idle);
}

TEST(Sync, IsConnectedInItsThreeLiveStates) {
    Idle s;
    for (std::uint32_t state = 0; state < 5; ++state) {
        s.sync.state = state;
        EXPECT_EQ(s.sync.is_connect(), state >= 1 && state <= 3) << state;
    }
}

TEST(Sync, PlayAndStopSetTheWordAndSendNothing) {
    Idle s;
    s.open();
    s.sync.state = Sync::Connected;
    const LogCapture log(7);
    s.sync.play();
    EXPECT_EQ(s.sync.playing, 1);
    s.sync.stop();
    EXPECT_EQ(s.sync.playing, 0);
    EXPECT_THAT(log.texts(6), ElementsAre("play 2", "stop 2"));
    EXPECT_TRUE(s.network.sent.empty());
}

TEST(Sync, DisconnectDoesNothingUnlessConnected) {
    for (const std::uint32_t state : {Sync::Idle, Sync::Connecting, Sync::Disconnecting}) {
        Idle s;
        s.sync.state = state;
        const LogCapture log(7);
        s.sync.disconnect();
        EXPECT_EQ(s.sync.state, state);
        EXPECT_THAT(log.texts(), IsEmpty());
    }
}

TEST(Sync, DisconnectAsksForTheEndAndSaysSo) {
    Idle s;
    s.sync.state = Sync::Connected;
    const LogCapture log(7);
    s.sync.disconnect();
    EXPECT_EQ(s.sync.state, Sync::Disconnecting) << "there is no worker here to end it";
    EXPECT_THAT(log.texts(6), ElementsAre("discone"));
}

TEST(Sync, CloseEndsBothSockets) {
    Idle s;
    s.sync.close();
    s.open();
    s.sync.close();
    EXPECT_EQ(s.network.openLinks(), 0);
    s.sync.close();
    EXPECT_TRUE(s.open()) << "and they can be opened again";
}

TEST(Sync, HasNoAudioOfItsOwn) {
    FakeNetwork network;
    Sync sync(network);
    const LogCapture log(7);
    VELMORA::StreamRef block;
    EXPECT_FALSE(sync.getNewStream(block));
    EXPECT_TRUE(log.has(3, "getNewStream not set err"));
    EXPECT_TRUE(sync.getNewStreamDone());
}

TEST(Sync, AFormatIsTakenWholeOrNotAtAll) {
    Idle s;
    s.sync.pcmSupport = 0x0000'fffe'0000'0602;
    EXPECT_TRUE(s.sync.isSupported(Session::stereo16));
    EXPECT_TRUE(s.sync.setStreamFormat(Session::stereo16));
    EXPECT_EQ(s.sync.sinkConfig, Session::stereo16);
    EXPECT_EQ(s.sync.hostFormat, Session::stereo16);
    s.sync.copyStream = VELMORA::convertSwap;
    EXPECT_FALSE(s.sync.setStreamFormat(Session::dsdLsb));
    EXPECT_EQ(s.sync.sinkConfig, Session::stereo16);
    EXPECT_EQ(s.sync.copyStream, &VELMORA::convertSwap);

    s.sync.dsdLsbSupport = 0x0000'ffff'0291'0002;  // LSB, big-endian words
    EXPECT_TRUE(s.sync.setStreamFormat(Session::dsdLsb));
    EXPECT_EQ(s.sync.hostFormat, Session::dsdLsb);
    EXPECT_EQ(s.sync.sinkConfig.word & 0xffffff00, SinkConfig::dsdLsbBig);
    EXPECT_EQ(s.sync.copyStream, &VELMORA::convertSwap);
}

// ---- transfer ----

TEST(SessionTransfer, EachOperationRunsOnTheSessionsFormatAndLimits) {
    struct Case {
        const char* why;
        bool (*run)(TestSync&);
        std::uint32_t mode;
        bool good;
    };
    const Case cases[] = {
        {"Fix", [](TestSync& s) { return s.configTransferFix(1000, 0); }, 1, true},
        {"FixAuto", [](TestSync& s) { return s.configTransferFixAuto(1000); }, 1, true},
        {"Var", [](TestSync& s) { return s.configTransferVar(1000, 0); }, 0, true},
        {"VarAuto", [](TestSync& s) { return s.configTransferVarAuto(1000); }, 0, true},
        {"Random", [](TestSync& s) { return s.configTransferRandom(800, 1000, 0); }, 2, true},
        {"Random without room", [](TestSync& s) { return s.configTransferRandom(1000, 1000, 0); },
         0, false},
        {"VarASIO", [](TestSync& s) { return s.configTransferVarASIO(192); }, 0, true},
        {"VarASIO of nothing", [](TestSync& s) { return s.configTransferVarASIO(0); }, 0, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Idle s;
        s.open();
        s.sync.sinkConfig = Session::stereo16;
        s.sync.profileCount = 2;
        EXPECT_EQ(c.run(s.sync), c.good);
        EXPECT_EQ(s.sync.transfer.config, Session::stereo16);
        EXPECT_EQ(s.sync.transfer.PackDataSize, 1428);
        EXPECT_EQ(s.sync.transfer.PackDataCount, 10);
        EXPECT_EQ(s.sync.transfer.limitCycle, 400u);
        if (c.good) {
            EXPECT_EQ(s.sync.profileCount, 1);
            EXPECT_EQ(s.sync.profiles[0], s.sync.transfer);
            EXPECT_EQ(s.sync.profiles[0].mode, c.mode);
            EXPECT_NE(s.sync.cycle(), 0u);
        } else {
            EXPECT_EQ(s.sync.profileCount, 2);
            EXPECT_EQ(s.sync.cycle(), 0u);
        }
    }
}

TEST(SessionTransfer, AProfileMakesTwoRows) {
    Idle s;
    s.open();
    s.sync.sinkConfig = Session::stereo16;
    s.sync.transfer.minCycle10 = 40;
    s.sync.transfer.maxCycle10 = 200;
    s.sync.transfer.profileFlags = VELMORA::ProfileSweep;
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.configTransferProfile(500, 0, 3000));
    EXPECT_EQ(s.sync.profileCount, 2);
    EXPECT_EQ(s.sync.cycle(), 500u);
    EXPECT_EQ(s.sync.profiles[1].cycle, 3000u);
    EXPECT_FALSE(s.sync.transfer.forceAuto);
    const auto texts = log.texts(6);
    EXPECT_EQ(texts.front(), "configTransferAuto  limit500 maxPacketSize1428 maxPacketCount10");
    EXPECT_EQ(texts[1], "configTransferAuto 0");
    EXPECT_EQ(texts.back(), "configTransferAuto done");
    EXPECT_EQ(log.count("configTransferAuto done"), 3);
}

TEST(SessionTransfer, AProfileThatCannotBeFoundIsAFailure) {
    Idle s;
    s.open();
    s.sync.sinkConfig = Session::stereo16;
    s.sync.maxPacketSize = 0;
    EXPECT_FALSE(s.sync.configTransferProfile(500, 0, 3000));
    EXPECT_EQ(s.sync.profileCount, 0);
}

TEST(SessionTransfer, ACopyOfTheWorkingRecordHasTheSessionsDefaults) {
    Idle s;
    s.open();
    s.sync.sinkConfig = Session::stereo16;
    s.sync.transfer.minCycle10 = 7;
    const VELMORA::TransferConfig copy = s.sync.transferConfig();
    EXPECT_EQ(copy.config, Session::stereo16);
    EXPECT_EQ(copy.PackDataSize, 1428);
    EXPECT_EQ(copy.PackDataCount, 10);
    EXPECT_EQ(copy.limitCycle, 400u);
    EXPECT_EQ(copy.minCycle10, 7);
    EXPECT_EQ(s.sync.transfer.config, SinkConfig{}) << "the record itself is not touched";
}

TEST(SessionTransfer, TheBytesOfACycleAreThoseOfItsFixedPackets) {
    Idle s;
    s.sync.profiles[0] = Session::varRow(1000, 3, 360);
    EXPECT_EQ(s.sync.cycleBytes(), 1080u);
    s.sync.profiles[0].cycleMin = 5;
    EXPECT_EQ(s.sync.cycleMin(), 5u);
}

}  // namespace
