// What a target's words do to a running stream: flow, resends, profile, phase.
#include <gmock/gmock.h>

#include <numeric>

#include "sync/ThreadMode.h"
#include "tests/sync/StreamHarness.h"

namespace {

using namespace velmora_test;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

using Times = std::vector<std::uint64_t>;
using Sequences = std::vector<std::uint16_t>;

Sequences sequences(const Session& s) {
    Sequences out;
    for (const auto& packet : s.packets()) out.push_back(packet.sequence);
    return out;
}
Sequences flags(const Session& s) {
    Sequences out;
    for (const auto& packet : s.packets()) out.push_back(packet.flags);
    return out;
}

// ---- flow ----

TEST(StreamFeedback, AVarStreamChangesItsCycleFromTheNextTurn) {
    Session s;
    s.prepare(Session::varRow(1000, 1));
    s.say(600, feedbackSays(-16384));  // adjust +491: cycle 971
    s.leaveAt(3900);
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.packetTimes(), (Times{0, 500, 1500, 2471, 3442}));
    EXPECT_TRUE(log.has(6, "info rcv 2 -1.0000 -1.0000  0.0300 cy=971"));
}

TEST(StreamFeedback, AFixStreamChangesTheFramesOfItsPackets) {
    Session s;
    s.prepare(Session::fixRow(1000, 1, 722534));
    s.say(600, datagram(11, 0, {0, 75, 50}));  // encoding 3: +0.5
    s.leaveAt(200000);
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    // (8192 x 1638) >> 14 = 819, (8192 x 655) >> 14 = 327: adjust -1146, frames 671995
    EXPECT_TRUE(log.has(6, "info rcv 3  0.5000  0.5000 -0.0699 fs=41.0153"));
    const auto packets = s.packets();
    std::size_t frames = 0;
    for (std::size_t i = 3; i < packets.size(); ++i) frames += packets[i].payload.size() / 4;
    EXPECT_NEAR(static_cast<double>(frames),
                static_cast<double>(packets.size() - 3) * 671995 / 16384, 1.0);
    EXPECT_EQ(packets[3].at, 2500u) << "the cycle stays";
}

TEST(StreamFeedback, EachEncodingIsTaken) {
    struct Case {
        const char* why;
        std::array<std::uint16_t, 4> arg;
        const char* text;
    };
    const Case cases[] = {
        {"none", {0, 75, 0}, "info rcv 0  0.0000"},
        {"one", {0x4000}, "info rcv 1  1.0000"},
        {"two, negative", {0xffff}, "info rcv 2 -0.0001"},
        {"two, of nothing", {0x8000}, "info rcv 2  0.0000"},
        {"three", {0, 25, 50}, "info rcv 3 -0.5000"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Session s;
        s.prepare(Session::fixRow(1000, 1));
        s.say(600, datagram(11, 0, c.arg));
        s.leaveAt(700);
        const LogCapture log(6);
        EXPECT_TRUE(s.sync.streamWorker());
        EXPECT_THAT(log.texts(6), Contains(testing::StartsWith(c.text)));
    }
}

TEST(StreamFeedback, TheDepthOfTheAverageComesFromTheMode) {
    Session s(3 << 5);  // four values
    s.prepare(Session::fixRow(1000, 1));
    s.say(600, feedbackSays(4096));
    s.leaveAt(700);
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_THAT(log.texts(6), Contains(testing::StartsWith("info rcv 2  0.2500  0.0625")));
}

TEST(StreamFeedback, TheChangeOfTheAverageIsCountedOnce) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.say(600, feedbackSays(1638));
    s.say(2600, feedbackSays(1638));
    s.leaveAt(2700);
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_THAT(log.texts(6), Contains(HasSubstr("-0.0139 fs=")));  // -228
    EXPECT_THAT(log.texts(6), Contains(HasSubstr("-0.0179 fs=")));  // -293
}

// ---- resend ----

TEST(StreamFeedback, LostPacketsAreSentAgainBeforeNewOnes) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.say(3000, resendFrom(1, 2));  // 0, 1, 2, 3 are out: three are wanted
    s.leaveAt(6600);
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    // Three cycles of sending are owed: the bursts are doubled until they are paid.
    EXPECT_EQ(sequences(s), (Sequences{0, 1, 2, 3, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(s.packetTimes(),
              (Times{0, 500, 1500, 2500, 3500, 3500, 4500, 4500, 5500, 5500, 6500}));
    EXPECT_EQ(flags(s), (Sequences{0x40, 0x40, 0x40, 0x40, 0, 0x40, 0, 0x40, 0, 0x40, 0x40}));
    EXPECT_TRUE(log.has(6, "   cout resend 1   2 3"));
}

TEST(StreamFeedback, APacketSentAgainKeepsItsBytesAndHasTheLongerForm) {
    for (const std::uint32_t bytes : {16u, 17u, 22u, 23u, 24u}) {
        SCOPED_TRACE(bytes);
        Session s;
        s.prepare(Session::varRow(1000, 1, bytes));
        s.sync.playing = 1;
        Bytes audio(400);
        std::iota(audio.begin(), audio.end(), std::uint8_t{1});
        s.sync.blocks = {audio};
        s.say(1600, resendFrom(2));
        s.leaveAt(2600);
        EXPECT_TRUE(s.sync.streamWorker());
        const auto packets = s.packets();
        ASSERT_EQ(packets.size(), 5u);
        ASSERT_EQ(packets[3].sequence, 2);
        Bytes expected = packets[2].data;
        expected[6] = 0;  // not the last of this burst
        if (bytes % 8 == 0 || bytes % 8 == 7) expected.resize(expected.size() + 8);
        EXPECT_EQ(packets[3].data, expected);
    }
}

TEST(StreamFeedback, AResendNeverAsksForFeedback) {
    Session s(1, 1000);
    s.prepare(Session::fixRow(1000, 1));
    s.say(2600, resendFrom(0));
    s.leaveAt(4600);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(sequences(s), (Sequences{0, 1, 2, 3, 0, 1, 2, 3}));
    EXPECT_EQ(flags(s), (Sequences{0x40, 0x40, 0x60, 0x60, 0, 0x40, 0, 0x40}));
}

TEST(StreamFeedback, WithoutFastFeedbackResendsAreNotMadeRoomFor) {
    Session s(VELMORA::NOFASTFEEDBACK);
    s.prepare(Session::fixRow(1000, 1));
    s.say(3000, resendFrom(2));
    s.leaveAt(5600);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(sequences(s), (Sequences{0, 1, 2, 3, 2, 3, 4}));
    EXPECT_EQ(s.packetTimes(), (Times{0, 500, 1500, 2500, 3500, 4500, 5500}));
}

TEST(StreamFeedback, ALaterRequestReplacesAnEarlierOne) {
    Session s(VELMORA::NOFASTFEEDBACK);
    s.prepare(Session::fixRow(1000, 1));
    s.say(4000, resendFrom(0));  // 5 wanted
    s.say(4600, resendFrom(4));  // only the newest
    s.leaveAt(7600);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(sequences(s), (Sequences{0, 1, 2, 3, 4, 0, 4, 5, 6}));
}

TEST(StreamFeedback, ARequestForNothingClearsWhatIsPending) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.say(3000, resendFrom(2));
    s.say(3001, resendFrom(4));
    s.leaveAt(3600);
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_TRUE(log.has(6, "   cout resend 4   0 0"));
    EXPECT_EQ(s.packets().back().sequence, 5);
    EXPECT_EQ(s.packets().size(), 6u) << "but the booked time is spent on new packets";
}

TEST(StreamFeedback, WhatTheRingNoLongerHoldsEndsTheStream) {
    struct Case {
        const char* why;
        std::uint16_t from;
        const char* text;  // empty: the stream goes on
    };
    // A ring of 32 slots (25 a second) and 33 packets out by 1.3 s.
    const Case cases[] = {
        {"all that it holds but one", 2, ""},
        {"as many as it has slots", 1, "   cout error 1   9 32"},
        {"what is not sent yet", 34, "   cout error 34   9 65535"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Session s;
        s.prepare(Session::fixRow(40000, 1));
        s.keepAlive(1000000);
        s.say(1270000, resendFrom(c.from, 9));
        s.leaveAt(1290000);
        const LogCapture log(6);
        EXPECT_TRUE(s.sync.streamWorker());
        EXPECT_EQ(s.sync.state, Sync::Idle);
        ASSERT_EQ(s.packets().size(), 33u);
        if (*c.text != 0) {
            EXPECT_EQ(log.texts(6).back(), c.text);
            EXPECT_EQ(s.network.time.time() - s.begin, 1270000u);
        } else {
            EXPECT_EQ(s.network.time.time() - s.begin, 1290000u);
        }
    }
}

TEST(StreamFeedback, ASlotThatNeverWasIsSentAsAnEmptyPacket) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.say(100, resendFrom(65535));  // sequence is 1
    s.leaveAt(600);
    EXPECT_TRUE(s.sync.streamWorker());
    std::size_t empty = 0;
    for (const Datagram& d : s.network.sent) {
        if (d.toPeer && word16(d.data, 4) == 0) {
            ++empty;
            EXPECT_EQ(d.data.size(), 24u);
        }
    }
    EXPECT_EQ(empty, 1u);
}

// ---- profile ----

struct ProfileCase {
    const char* why;
    std::int32_t profileCount;
    int lateTurns;
    bool feedback;
    bool changes;
};
constexpr ProfileCase profileCases[] = {
    {"twenty late turns and a word of the target", 2, 20, true, true},
    {"nineteen are not enough", 2, 19, true, false},
    {"without a word nothing changes", 2, 20, false, false},
    {"one row has no other", 1, 20, true, false},
    {"of three rows the last", 3, 20, true, true},
};

TEST(StreamFeedback, AMachineThatComesLateGetsTheLastRow) {
    for (const ProfileCase& c : profileCases) {
        SCOPED_TRACE(c.why);
        Session s(VELMORA::NOFASTFEEDBACK);
        s.prepare(Session::fixRow(1000, 1));
        s.sync.profiles[1] = Session::fixRow(3000, 2, 8 << 14);
        s.sync.profiles[2] = Session::fixRow(3000, 2, 8 << 14);
        s.sync.profileCount = c.profileCount;
        s.sync.playing = 1;
        int late = 0;
        s.sync.supply = [&, block = Bytes(32)](StreamRef& out) {
            out = {block.data(), block.size()};
            if (++late <= c.lateTurns) s.network.time.advance(2000);
            return true;
        };
        s.sync.profiles[0].framesQ14 = 8 << 14;
        const std::uint64_t quiet = 60000;
        // The twentieth late turn is that of 40000; a timely one follows at 41000.
        if (c.feedback) s.say(40500, feedbackSays(0));
        s.leaveAt(quiet);
        const LogCapture log(4);
        EXPECT_TRUE(s.sync.streamWorker());
        const std::string text =
            "over time change profile 0 to " + std::to_string(c.profileCount - 1);
        EXPECT_EQ(log.has(4, text), c.changes);
        EXPECT_THAT(log.texts(4), c.changes ? Contains(text)
                                            : testing::Matcher<std::vector<std::string>>(
                                                  Not(Contains(HasSubstr("change profile")))));
        const auto times = s.packetTimes();
        const std::uint64_t step = times[times.size() - 1] - times[times.size() - 3];
        EXPECT_EQ(step, c.changes ? 3000u : 2000u) << "two packets every 3 ms, or one every ms";
    }
}

TEST(StreamFeedback, TheChangeOfProfileIsOneWay) {
    Session s(VELMORA::NOFASTFEEDBACK);
    s.prepare(Session::varRow(1000, 1));
    s.sync.profiles[1] = Session::varRow(5000, 1, 32);
    s.sync.profileCount = 2;
    s.sync.playing = 1;
    int fetched = 0;
    s.sync.supply = [&, block = Bytes(16)](StreamRef& out) {
        out = {block.data(), block.size()};
        if (++fetched <= 30) s.network.time.advance(2000);
        return true;
    };
    for (std::uint64_t t = 60000; t < 400000; t += 20000) s.say(t, feedbackSays(0));
    s.leaveAt(400000);
    const LogCapture log(4);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(log.count("over time change profile 0 to 1"), 1);
    const auto times = s.packetTimes();
    EXPECT_EQ(times[times.size() - 1] - times[times.size() - 2], 5000u);
    EXPECT_EQ(s.packets().back().payload.size(), 32u);
}

// ---- phase ----

TEST(StreamFeedback, AChangeOfPhaseTakesEffectWithTheNextPacketBuilt) {
    Session s;
    s.prepare(Session::fixRow(1000, 1));
    s.say(600, feedbackSays(0, 0x100));
    s.leaveAt(2600);
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    const auto packets = s.packets();
    EXPECT_EQ(packets[2].payload, Bytes(16, 0)) << "already built";
    EXPECT_EQ(packets[3].payload, Bytes(16, 0xff));
    EXPECT_EQ(s.sync.copyStream, &VELMORA::convertInvert);
    EXPECT_EQ(log.count("Host Phase Normal"), 2);
    EXPECT_EQ(log.count("Play Phase Normal"), 1);
    EXPECT_EQ(log.count("Play Phase Invert"), 1);
}

TEST(StreamFeedback, ThePhaseHoldsUntilTheNextFeedbackSaysOtherwise) {
    struct Case {
        const char* why;
        std::uint16_t connect;
        Bytes info;
        std::uint8_t host;  // at the time of the feedback
        bool inverted;      // afterwards
        int steps;
    };
    const Case cases[] = {
        {"asked for at the connection, and held", 0x100, datagram(11, 0x100), 0, true, 1},
        {"withdrawn by a feedback without it", 0x100, datagram(11, 0), 0, false, 2},
        {"0x180 withdraws it too", 0x100, datagram(11, 0x180), 0, false, 2},
        {"0x080 as well", 0x100, datagram(11, 0x080), 0, false, 2},
        {"a resend request says nothing about it", 0x100, datagram(11, 0x008, {0, 2}), 0, true, 1},
        {"the host's own change is noticed", 0, datagram(11, 0), 1, true, 2},
        {"both change and cancel out", 0, datagram(11, 0x100), 1, false, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Session s;
        s.prepare(Session::fixRow(1000, 1), c.connect);
        s.at(540, [&] { s.sync.phaseInvert = c.host; });
        s.say(600, c.info);
        s.leaveAt(2600);
        const LogCapture log(6);
        EXPECT_TRUE(s.sync.streamWorker());
        EXPECT_EQ(s.packets().back().payload[0], c.inverted ? 0xff : 0x00);
        EXPECT_EQ(log.count("Host Phase Normal") + log.count("Host Phase Invert"), c.steps);
        EXPECT_EQ(s.sync.copyStream, c.inverted ? &VELMORA::convertInvert : &VELMORA::convertCopy);
    }
}

TEST(StreamFeedback, EachFamilyOfConversionsStaysAFamily) {
    struct Case {
        const char* why;
        VELMORA::CopyStream normal, inverted;
    };
    const Case cases[] = {
        {"plain", VELMORA::convertCopy, VELMORA::convertInvert},
        {"swap", VELMORA::convertSwap, VELMORA::convertSwapInvert},
        {"full reversal", VELMORA::convertReverse32, VELMORA::convertReverse32Invert},
        {"reversal in bytes", VELMORA::convertReverseBytes, VELMORA::convertReverseBytesInvert},
        {"any other counts as plain", [](std::uint8_t*, const std::uint8_t*, std::uint64_t) {},
         VELMORA::convertInvert},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Session s;
        s.prepare(Session::fixRow(1000, 1), 0x100);
        s.sync.copyStream = c.normal;
        s.leaveAt(100);
        EXPECT_TRUE(s.sync.streamWorker());
        EXPECT_EQ(s.sync.copyStream, c.inverted);
    }
}

}  // namespace
