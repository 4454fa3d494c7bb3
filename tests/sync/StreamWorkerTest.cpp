// Whole streams on the clock and the network in memory: start, pace, supply, silence, ends.
#include <gmock/gmock.h>

#include <numeric>

#include "sync/StreamWorker.h"
#include "sync/ThreadMode.h"
#include "tests/sync/StreamHarness.h"

namespace {

using namespace velmora_test;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using Times = std::vector<std::uint64_t>;

Bytes counted(std::size_t bytes, std::uint8_t first = 1) {
    Bytes out(bytes);
    std::iota(out.begin(), out.end(), first);
    return out;
}

// ---- start ----

TEST(StreamWorker, ASilentTargetIsGivenUpAfterThreeTriesOfTenSeconds) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.target.answers.clear();
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.sync.state, Sync::Idle);
    EXPECT_EQ(s.target.requests, Datagrams(3, datagram(8, 0, {0x0202, 0, 0x000c, 0})));
    EXPECT_EQ(s.network.time.time() - FakeClock::start, 30000000u);
    EXPECT_THAT(log.texts(), ElementsAre("wth CR ack none"));
}

TEST(StreamWorker, ARefusedConnectionIsNone) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.target.on(8, datagram(9, 0, {6000}));
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.sync.state, Sync::Idle);
    EXPECT_THAT(s.packets(), IsEmpty());
}

TEST(StreamWorker, AFailingConnectRequestIsAFailure) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.network.sendError = 10051;
    const LogCapture log(6);
    EXPECT_FALSE(s.sync.streamWorker());
    EXPECT_EQ(s.sync.state, Sync::Idle);
    EXPECT_TRUE(log.has(3, "wth CR send err"));
}

TEST(StreamWorker, StreamsToThePortThatTheTargetNames) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.leaveAt(100);
    EXPECT_TRUE(s.sync.streamWorker());
    ASSERT_EQ(s.packets().size(), 1u);
    for (const Datagram& d : s.network.sent) {
        const IPAddress& expected = word16(d.data, 4) == 10 ? s.stream : s.control;
        EXPECT_TRUE(!d.toPeer || d.to == expected);
    }
    EXPECT_EQ(s.sync.target, s.control) << "a later stream asks at the control port again";
}

TEST(StreamWorker, TellsItsStartInOrder) {
    Session s;
    s.prepare(Session::fixRow(1000, 1), 0x100);
    s.sync.playing = 1;
    s.leaveAt(100);
    s.sync.blocks = {Bytes(64)};
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_THAT(log.texts(6),
                ElementsAre("Host Phase Normal", "Play Phase Invert", "redy to play loop start1"));
}

TEST(StreamWorker, FirstTurnAtOnceSecondAfterHalfACycleThenEveryCycle) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.leaveAt(4400);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.packetTimes(), (Times{0, 500, 1500, 2500, 3500}));
    for (const auto& packet : s.packets()) EXPECT_EQ(packet.flags, 0x40);
}

TEST(StreamWorker, AudioEntersBehindThePrefilledCycle) {
    Session s;
    s.prepare(Session::fixRow(1000, 3));
    s.sync.playing = 1;
    s.sync.blocks = {counted(200)};
    int fetchedAtOnce = -1;
    s.at(10, [&] { fetchedAtOnce = s.sync.fetches; });
    s.leaveAt(700);
    EXPECT_TRUE(s.sync.streamWorker());
    const auto packets = s.packets();
    ASSERT_EQ(packets.size(), 6u);
    for (std::uint16_t i = 0; i < 6; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(packets[i].sequence, i);
        EXPECT_EQ(packets[i].at, i < 3 ? 0u : 500u);
        EXPECT_EQ(packets[i].flags, i % 3 == 2 ? 0x40 : 0);
        EXPECT_EQ(packets[i].payload,
                  i < 3 ? Bytes(16, 0) : counted(16, static_cast<std::uint8_t>(1 + 16 * (i - 3))));
    }
    EXPECT_EQ(fetchedAtOnce, 1) << "built right behind the third packet";
    EXPECT_EQ(s.sync.dones, 1) << "the second turn lives on the block in hand";
    EXPECT_EQ(packets[3].data, datagram(10, 0, {3}, counted(16)));
}

struct SilenceCase {
    const char* why;
    SinkConfig format;
    std::uint8_t host;
    std::uint16_t target;
    std::uint8_t prefilled, later;
};

TEST(StreamWorker, SilenceFollowsThePhaseAndThePrefillTheTargetsAlone) {
    SinkConfig msb = Session::dsdLsb;
    msb.word = (msb.word & ~0xffffff00ull) | SinkConfig::dsdMsbBig | (msb.word & 0xffff00000000ull);
    const SilenceCase cases[] = {
        {"PCM", Session::stereo16, 0, 0, 0x00, 0x00},
        {"PCM, host inverts", Session::stereo16, 1, 0, 0x00, 0xff},
        {"PCM, target inverts", Session::stereo16, 0, 0x100, 0xff, 0xff},
        {"PCM, both", Session::stereo16, 1, 0x100, 0xff, 0x00},
        {"DSD LSB", Session::dsdLsb, 0, 0, 0x69, 0x69},
        {"DSD LSB, host inverts", Session::dsdLsb, 1, 0, 0x69, 0x96},
        {"DSD LSB, target inverts", Session::dsdLsb, 0, 0x100, 0x96, 0x96},
        {"DSD MSB", msb, 0, 0, 0x96, 0x96},
        {"DSD MSB, both", msb, 1, 0x100, 0x69, 0x96},
        {"0x180 asks for nothing", Session::stereo16, 0, 0x180, 0x00, 0x00},
        {"0x080 asks for nothing", Session::stereo16, 0, 0x080, 0x00, 0x00},
    };
    for (const SilenceCase& c : cases) {
        SCOPED_TRACE(c.why);
        Session s;
        s.prepare(Session::fixRow(1000, 1), c.target);
        s.sync.sinkConfig = c.format;
        s.sync.phaseInvert = c.host;
        s.leaveAt(600);
        EXPECT_TRUE(s.sync.streamWorker());
        const auto packets = s.packets();
        ASSERT_EQ(packets.size(), 2u);
        EXPECT_THAT(packets[0].payload, Each(c.prefilled));
        EXPECT_THAT(packets[1].payload, Each(c.later));
        EXPECT_FALSE(packets[1].payload.empty());
    }
}

TEST(StreamWorker, LowCpuStartsOnTheLastRow) {
    Session s;
    s.prepare(Session::fixRow(500, 1));
    s.sync.profiles[1] = Session::fixRow(3000, 2, 8 << 14);
    s.sync.profiles[2] = Session::fixRow(4000, 3, 2 << 14);
    s.sync.profileCount = 3;
    s.sync.lowCpu = 1;
    s.leaveAt(2100);
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(log.texts(6).front(), "low cpu change profile 2");
    EXPECT_EQ(s.packetTimes(), (Times{0, 0, 0, 2000, 2000, 2000}));
    EXPECT_EQ(s.packets()[0].payload.size(), 8u);
}

TEST(StreamWorker, AStreamThatNobodyWaitsForAnyMoreDoesNotBegin) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.network.time.in(60, [&] { s.sync.state = Sync::Idle; });  // while CONNECT_ANS is on its way
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.sync.state, Sync::Idle);
    EXPECT_THAT(s.packets(), IsEmpty());
}

TEST(StreamWorker, MorePrefilledPacketsThanTheRingHoldsAreBuiltOneByOne) {
    Session s;
    s.prepare(Session::fixRow(2000000, 40));  // a ring of 32
    s.leaveAt(100);
    EXPECT_TRUE(s.sync.streamWorker());
    const auto packets = s.packets();
    ASSERT_EQ(packets.size(), 40u);
    for (std::uint16_t i = 0; i < 40; ++i) EXPECT_EQ(packets[i].sequence, i);
}

// ---- pace ----

TEST(StreamWorker, ALateTurnIsSaidAndMadeUpForAtOnce) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.sync.playing = 1;
    s.sync.supply = [&, bytes = Bytes(16)](StreamRef& out) {
        if (s.sync.fetches == 3) s.network.time.advance(3400);  // a host that stalls
        out = {bytes.data(), bytes.size()};
        return true;
    };
    s.leaveAt(7400);
    const LogCapture log(4);
    EXPECT_TRUE(s.sync.streamWorker());
    // The third packet is built in the turn of 1500: the one due at 2500 comes at 4900.
    EXPECT_EQ(s.packetTimes(), (Times{0, 500, 1500, 4900, 4900, 5900, 5900, 6900}));
    EXPECT_THAT(log.texts(4), ElementsAre("over time 2400 0 2400 10"));
}

TEST(StreamWorker, WithoutFastFeedbackALateTurnIsNotMadeUpFor) {
    Session s(VELMORA::CRITICAL | VELMORA::NOFASTFEEDBACK);
    s.prepare(Session::fixRow(1000, 1));
    s.sync.playing = 1;
    s.sync.supply = [&, bytes = Bytes(16)](StreamRef& out) {
        if (s.sync.fetches == 3) s.network.time.advance(3400);
        out = {bytes.data(), bytes.size()};
        return true;
    };
    s.leaveAt(7400);
    const LogCapture log(4);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.packetTimes(), (Times{0, 500, 1500, 4900, 5900, 6900}));
    EXPECT_THAT(log.texts(4), ElementsAre("over time 2400 0 0 10"));
}

TEST(StreamWorker, TheOverTimeLineTellsWhatRemainedBeforeAWaitThatLastedTooLong) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    // A datagram's arrival stalls the machine in the middle of a wait.
    s.at(900, [&] { s.network.time.advance(2000); });
    s.leaveAt(3400);
    const LogCapture log(4);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_THAT(log.texts(4), ElementsAre("over time 1400 1000 1400 10"));
}

TEST(StreamWorker, ACycleDrawnAtRandomLiesBetweenItsBoundsAndCarriesAsManyFrames) {
    Session s;
    auto row = Session::fixRow(1000, 1, 48 << 14);
    row.mode = VELMORA::modeRandom;
    row.cycleMin = 700;
    s.prepare(row);
    s.leaveAt(900000);
    EXPECT_TRUE(s.sync.streamWorker());
    const auto packets = s.packets();
    ASSERT_GT(packets.size(), 900u);
    bool varies = false;
    std::size_t bytes = 0;
    for (std::size_t i = 1; i + 1 < packets.size(); ++i) {
        const std::uint64_t step = packets[i + 1].at - packets[i].at;
        ASSERT_GE(step, 700u);
        ASSERT_LE(step, 1000u);
        varies = varies || step != packets[2].at - packets[1].at;
        // The packet behind a turn holds the frames of that turn's step.
        const std::size_t payload = packets[i + 1].payload.size();
        const std::size_t frames = payload / 4, due = step * 48 / 1000;
        ASSERT_GE(frames, due);
        ASSERT_LE(frames, due + 1);
        bytes += payload;
    }
    EXPECT_TRUE(varies);
    const std::uint64_t span = packets.back().at - packets[1].at;
    EXPECT_NEAR(static_cast<double>(bytes) / 4, static_cast<double>(span) * 48 / 1000, 2);
}

TEST(StreamWorker, AFixCycleCarriesItsFractionFromPacketToPacket) {
    Session s;
    s.prepare(Session::fixRow(1000, 1, 722534));  // 44.1 frames
    s.leaveAt(900000);
    EXPECT_TRUE(s.sync.streamWorker());
    const auto packets = s.packets();
    std::size_t frames = 0;
    for (std::size_t i = 1; i < packets.size(); ++i) frames += packets[i].payload.size() / 4;
    EXPECT_EQ(frames, (packets.size() - 1) * 722534 / 16384);
}

TEST(StreamWorker, OnlyTheLastPacketOfABurstMayBlock) {
    struct Case {
        const char* why;
        std::uint32_t mode;
        std::uint16_t packetCount;
        std::uint16_t fullAt;  // sequence at whose send the buffer is full
        bool met;              // by a non-blocking socket
    };
    const Case cases[] = {
        {"the first of three", 0, 3, 3, true},
        {"the second of three", 0, 3, 4, true},
        {"the last of three", 0, 3, 5, false},
        {"a burst of one", 0, 1, 3, false},
        {"SOCKETNOBLOCK, the last", VELMORA::SOCKETNOBLOCK, 3, 5, true},
        {"SOCKETNOBLOCK, a burst of one", VELMORA::SOCKETNOBLOCK, 1, 3, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Session s(c.mode);
        s.prepare(Session::fixRow(1000, c.packetCount));
        bool met = false;
        s.network.fate = [&](const Datagram& d) {
            if (d.toPeer && word16(d.data, 4) == 10) {
                const std::uint16_t sequence = word16(d.data, 8);
                if (sequence == c.fullAt) met = s.network.sendFullTimes == 0;
                // Full for the send behind this one, and for that alone.
                s.network.sendFullTimes = sequence + 1 == c.fullAt ? 1 : 0;
            }
            return Fate{{50, {}}};
        };
        s.leaveAt(4400);
        EXPECT_TRUE(s.sync.streamWorker()) << "a full buffer makes a send block, and no failure";
        EXPECT_EQ(met, c.met);
        const auto packets = s.packets();
        ASSERT_EQ(packets.size(), 5u * c.packetCount);
        for (std::uint16_t i = 0; i < packets.size(); ++i) EXPECT_EQ(packets[i].sequence, i);
    }
}

TEST(StreamWorker, SequenceNumbersWrapWithoutASpecialStep) {
    Session s;
    s.prepare(Session::fixRow(1000, 30, 1 << 14));
    s.keepAlive(2300000);
    s.say(2190000, resendFrom(65530));
    s.leaveAt(2190800);
    EXPECT_TRUE(s.sync.streamWorker());
    const auto packets = s.packets();
    ASSERT_GT(packets.size(), 65700u);
    std::size_t again = packets.size();
    for (std::size_t i = 0; i < packets.size(); ++i) {
        if (packets[i].sequence == static_cast<std::uint16_t>(i)) continue;
        again = i;
        break;
    }
    ASSERT_LT(again, packets.size());
    EXPECT_GT(again, 65536u);
    EXPECT_EQ(packets[again].sequence, 65530);
}

// ---- waiting ----

struct ModeCase {
    const char* why;
    std::uint32_t mode;
    int yieldsAtLeast, yieldsAtMost;
};

TEST(StreamWorker, EveryWayOfWaitingKeepsTheBeat) {
    const ModeCase cases[] = {
        {"waiting", 0, 0, 0},
        {"a turn behind a wait counts as having yielded", VELMORA::SLEEP0ONCE, 1, 1},
        {"a yield a pass", VELMORA::SLEEP0ALWAYS, 5, 20},
        {"polling the end", VELMORA::NOSHORTSLEEP, 0, 0},
        {"polling", VELMORA::NOSLEEP4CORE, 0, 0},
        {"polling by force", VELMORA::NOSLEEPFORCE, 0, 0},
        {"polling, one yield a cycle", VELMORA::NOSLEEPFORCE | VELMORA::SLEEP0ONCE, 5, 6},
        {"polling with yields", VELMORA::NOSLEEPFORCE | VELMORA::SLEEP0ALWAYS, 1000, 6000},
    };
    for (const ModeCase& c : cases) {
        SCOPED_TRACE(c.why);
        Session s(c.mode);
        s.prepare(Session::fixRow(1000, 1));
        s.network.time.tickPerRead = 1;
        s.leaveAt(5300);
        EXPECT_TRUE(s.sync.streamWorker());
        const auto packets = s.packets();
        ASSERT_EQ(packets.size(), 6u);
        for (std::size_t i = 1; i < 6; ++i) {
            const std::uint64_t due = i * 1000 - 500;
            EXPECT_GE(packets[i].at, due);
            EXPECT_LE(packets[i].at, due + 10);
        }
        EXPECT_GE(s.network.time.yields, c.yieldsAtLeast);
        EXPECT_LE(s.network.time.yields, c.yieldsAtMost);
    }
}

TEST(StreamWorker, APollingThreadReadsOneDatagramATurn) {
    Session s(VELMORA::NOSLEEPFORCE);
    s.prepare(Session::fixRow(1000, 1));
    s.network.time.tickPerRead = 1;
    s.say(600, feedbackSays(1));
    s.say(601, feedbackSays(2));
    s.leaveAt(3400);
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    int infos = 0;
    for (const std::string& text : log.texts()) infos += text.starts_with("info rcv") ? 1 : 0;
    EXPECT_EQ(infos, 2) << "in the turns of 1500 and 2500";
}

TEST(StreamWorker, AWaitingThreadReadsAtOnce) {
    Session s;
    s.prepare(Session::fixRow(100000, 1));
    s.say(600, datagram(13, 1));
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.network.time.time() - s.begin, 600u);
}

TEST(StreamWorker, TheLastTwoTicksOfAWaitAreSleptExactly) {
    struct Case {
        std::uint32_t cycle;
        std::vector<std::uint32_t> sleeps;  // of the first two cycles
    };
    const Case cases[] = {
        {10000, {500, 500, 500, 500, 500, 500, 500, 500}},
        {1300, {500, 150, 500, 500, 300}},  // shorter than two ticks: as a whole
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.cycle);
        Session s;
        s.prepare(Session::fixRow(c.cycle, 1));
        s.network.time.hasExactSleep = true;
        s.leaveAt(c.cycle * 3 / 2 + 1);
        EXPECT_TRUE(s.sync.streamWorker());
        const auto packets = s.packets();
        ASSERT_EQ(packets.size(), 3u);
        EXPECT_EQ(packets[1].at, c.cycle / 2);
        EXPECT_EQ(packets[2].at, c.cycle / 2 + c.cycle);
        auto& sleeps = s.network.time.exactSleeps;
        ASSERT_GE(sleeps.size(), c.sleeps.size());
        sleeps.resize(c.sleeps.size());
        EXPECT_EQ(sleeps, c.sleeps);
    }
}

TEST(StreamWorker, RightBeforeADeadlineWhoPollsItsEndLooksAtTheClockAlone) {
    struct Case {
        std::uint64_t at;        // of a resend request; the deadline is 1500
        std::uint16_t sequence;  // of the packet that goes out there
    };
    for (const Case& c : {Case{1450, 0}, Case{1490, 2}}) {
        SCOPED_TRACE(c.at);
        Session s(VELMORA::NOSHORTSLEEP);
        s.prepare(Session::fixRow(1000, 1));
        s.network.time.tickPerRead = 1;
        s.say(c.at, resendFrom(0));
        s.leaveAt(2300);
        EXPECT_TRUE(s.sync.streamWorker());
        const auto packets = s.packets();
        ASSERT_GE(packets.size(), 3u);
        EXPECT_EQ(packets[2].sequence, c.sequence);
    }
}

TEST(StreamWorker, WhatComesDuringAnExactSleepIsReadBehindIt) {
    Session s;
    s.prepare(Session::fixRow(3000, 1));
    s.network.time.hasExactSleep = true;
    s.say(2600, datagram(13, 1));
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.network.time.time() - s.begin, 3000u) << "slept from 2500 to 3000";
}

// ---- supply ----

TEST(StreamWorker, AStopPlaysTheBlockInHandAndThenSilence) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.sync.playing = 1;
    s.sync.blocks = {counted(24)};
    s.at(100, [&] { s.sync.stop(); });
    s.leaveAt(2600);
    EXPECT_TRUE(s.sync.streamWorker());
    const auto packets = s.packets();
    ASSERT_EQ(packets.size(), 4u);
    EXPECT_EQ(packets[1].payload, counted(16));
    Bytes rest = counted(8, 17);
    rest.resize(16, 0);
    EXPECT_EQ(packets[2].payload, rest);
    EXPECT_EQ(packets[3].payload, Bytes(16, 0));
}

TEST(StreamWorker, TellsItsSupplierOnceATurnInWhichItFetched) {
    Session s;
    s.prepare(Session::fixRow(1000, 2));
    s.sync.playing = 1;
    for (int i = 0; i < 20; ++i) s.sync.blocks.push_back(counted(8));
    s.leaveAt(600);
    EXPECT_TRUE(s.sync.streamWorker());
    // first turn: one packet is built (two blocks); second: two (four blocks)
    EXPECT_EQ(s.sync.fetches, 6);
    EXPECT_EQ(s.sync.dones, 2);
}

TEST(StreamWorker, NoAudioInTimeIsFatal) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.sync.playing = 1;
    const LogCapture log(6);
    EXPECT_FALSE(s.sync.streamWorker());
    EXPECT_TRUE(log.has(4, "buffer timeout "));
}

TEST(StreamWorker, AudioPassesTheConversionInForce) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.sync.copyStream = VELMORA::convertSwap;
    s.sync.phaseInvert = 1;
    s.sync.playing = 1;
    s.sync.blocks = {counted(16), Bytes(16)};
    s.leaveAt(600);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.sync.copyStream, &VELMORA::convertSwapInvert);
    EXPECT_EQ(s.packets()[1].payload, (Bytes{0xfb, 0xfc, 0xfd, 0xfe, 0xf7, 0xf8, 0xf9, 0xfa, 0xf3,
                                             0xf4, 0xf5, 0xf6, 0xef, 0xf0, 0xf1, 0xf2}));
}

TEST(StreamWorker, ABlockThatEndsInsideAWordStaysWithinItsPacket) {
    Session s;
    s.prepare(Session::varRow(1000, 1, 19));
    s.sync.sinkConfig = Session::dsdLsb;
    s.sync.copyStream = VELMORA::convertReverse32;
    s.sync.playing = 1;
    s.sync.supply = [&, odd = Bytes(13, 0xff)](StreamRef& out) {
        out = {odd.data(), odd.size()};
        return true;
    };
    s.leaveAt(3400);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.packets().back().payload.size(), 19u);
}

// ---- requests for feedback, silence ----

TEST(StreamWorker, AsksForFeedbackWithTheLastPacketOfATurnEveryInfoCycle) {
    Session s(1, 2000);
    s.prepare(Session::fixRow(1000, 2));
    s.leaveAt(5600);
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    std::vector<std::uint64_t> asked;
    for (const auto& packet : s.packets()) {
        if ((packet.flags & 0x20) == 0) continue;
        EXPECT_EQ(packet.flags, 0x60);
        EXPECT_EQ(packet.sequence % 2, 1);
        asked.push_back(packet.at);
    }
    EXPECT_EQ(asked, (Times{2500, 4500}));
    const auto at = static_cast<std::uint32_t>(s.begin + 2500);
    EXPECT_TRUE(log.has(6, "Request Info " + std::to_string(at)));
}

TEST(StreamWorker, SilenceEndsTheStreamAtItsLimit) {
    struct Case {
        const char* why;
        std::uint32_t infoCycle, limit;
    };
    const Case cases[] = {
        {"at least a second", 1000, 1000000},
        {"the default", 100000, 1000000},
        {"eight info cycles", 125000, 1000000},
        {"more than a second", 125001, 1000008},
        {"two minutes", 15000000, 120000000},
        {"eight times too much for 32 bits", 0x20000000, 0x7fffffff},
        {"beyond half the clock", 0xffffffff, 0x7fffffff},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(VELMORA::noAnswerLimitFor(c.infoCycle), c.limit);
        if (c.limit > 120000000) continue;
        Session s(1, c.infoCycle);
        s.prepare(Session::fixRow(100000, 1));
        const LogCapture log(6);
        EXPECT_TRUE(s.sync.streamWorker());
        EXPECT_EQ(s.sync.state, Sync::Idle);
        // The turns come at 50, 150, 250 ... ms.
        const std::uint32_t told = (c.limit - 50000 + 99999) / 100000 * 100000 + 50000;
        EXPECT_TRUE(log.has(6, "   timeout " + std::to_string(told)));
    }
}

TEST(StreamWorker, WhatIsNoWordOfTheTargetDoesNotKeepItAlive) {
    Bytes foreign = datagram(99, 0);
    foreign[0] = 101;
    Bytes claims = datagram(99, 0);
    claims[2] = 24;
    struct Case {
        const char* why;
        Bytes data;
        int from;  // 0 target, 1 stranger, 2 its control port, 3 another scope
        bool alive;
    };
    const Case cases[] = {
        {"any id of the target", datagram(99, 0), 0, true},
        {"a stranger", datagram(99, 0), 1, false},
        {"the control port", datagram(99, 0), 2, false},
        {"another scope", datagram(99, 0), 3, false},
        {"as much as a read takes", datagram(99, 0, {}, Bytes(4080)), 0, true},
        {"more than a read takes is cut, and claims too much", datagram(99, 0, {}, Bytes(4088)), 0,
         false},
        {"15 bytes", Bytes(15), 0, false},
        {"a foreign magic", foreign, 0, false},
        {"a claim of more than came", claims, 0, false},
        {"nothing", {}, 0, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Session s;
        s.prepare(Session::fixRow(100000, 1));
        IPAddress scope = s.stream;
        scope.scope = 4;
        const IPAddress from[] = {s.stream, s.stranger, s.control, scope};
        s.sayFrom(from[c.from], 600000, c.data);
        EXPECT_TRUE(s.sync.streamWorker());
        const std::uint64_t end = s.network.time.time() - s.begin;
        EXPECT_EQ(end, c.alive ? 1650000u : 1050000u);
    }
}

TEST(StreamWorker, TheTargetMayEndTheStream) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.say(3333, datagram(13, 0));
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.sync.state, Sync::Idle);
    EXPECT_EQ(log.texts(6).back(), "DSICONNECT_ANS ");
}

// ---- failures ----

TEST(StreamWorker, EndsByItsRowWhenTheSocketFails) {
    struct Case {
        const char* why;
        std::function<void(Session&)> fault;
        bool normal;
        int level;
        const char* text;
    };
    const Case cases[] = {
        {"a wait", [](Session& s) { s.at(700, [&s] { s.network.waitFails = true; }); }, false, 3,
         "wth udp wait error"},
        {"a closed socket", [](Session& s) { s.at(700, [&s] { s.sync.close(); }); }, false, 3,
         "wth udp wait error"},
        {"the look behind a turn",
         [](Session& s) {
             s.network.fate = [&s](const Datagram& d) {
                 if (d.toPeer && word16(d.data, 4) == 10) s.network.waitFails = true;
                 return Fate{{50, {}}};
             };
         },
         false, 3, "wth udp wait2 error"},
        {"a read",
         [](Session& s) {
             s.at(600, [&s] { s.network.receiveFails = true; });
             s.say(700, datagram(99, 0));
         },
         true, 6, "udp rcv error "},
        {"a send", [](Session& s) { s.at(700, [&s] { s.network.sendError = 10065; }); }, false, 3,
         "wth udp send error 10065"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Session s;
        s.prepare(Session::fixRow(1000, 1));
        c.fault(s);
        const LogCapture log(6);
        EXPECT_EQ(s.sync.streamWorker(), c.normal);
        EXPECT_TRUE(log.has(c.level, c.text));
        EXPECT_EQ(log.texts().back(), c.text);
        if (c.normal) {
            EXPECT_EQ(s.sync.state, Sync::Idle);
        }
    }
}

TEST(StreamWorker, ASendOfAnOldPacketThatFailsIsAFailureToo) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.say(3000, resendFrom(2));
    s.at(3001, [&] { s.network.sendError = 10051; });
    const LogCapture log(3);
    EXPECT_FALSE(s.sync.streamWorker());
    EXPECT_THAT(log.texts(), ElementsAre("wth udp send error 10051"));
}

// ---- trace ----

TEST(StreamWorker, AtLevel6TheTraceOfFiftyMillisecondsIsLogged) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.leaveAt(60000);
    {
        const LogCapture log(6);
        EXPECT_TRUE(s.sync.streamWorker());
        std::vector<std::string> records;
        for (const std::string& text : log.texts(6)) {
            if (text.size() == 1412) records.push_back(text);
        }
        ASSERT_EQ(records.size(), 1u);
        const Bytes record(records[0].begin(), records[0].end());
        // 0, 500, 1500 ... 50500: 52 packets
        EXPECT_EQ(word16(record, 0), 0);
        EXPECT_EQ(word16(record, 2), 52 | 0x100);
        const auto begin = static_cast<std::uint32_t>(s.begin);
        EXPECT_EQ(word16(record, 4) | std::uint32_t{word16(record, 6)} << 16, begin);
        EXPECT_EQ(word16(record, 8), 32 + 74);
        EXPECT_EQ(word16(record, 12) | std::uint32_t{word16(record, 14)} << 16, begin + 500);
    }
    Session quiet;
    quiet.prepare(Session::fixRow(1000, 1));
    quiet.leaveAt(60000);
    const LogCapture log(5);
    EXPECT_TRUE(quiet.sync.streamWorker());
    EXPECT_THAT(log.texts(), IsEmpty());
}

}  // namespace
