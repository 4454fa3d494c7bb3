// From the packet trace to figures: against the driver's own pace, whose lateness is known.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "apps/log/Picture.h"
#include "apps/log/StreamReader.h"
#include "tests/logview/DrivenStream.h"

namespace {

using namespace velmora_log;
using testing::HasSubstr;
using testing::Not;
using velmora_test::DrivenStream;
using velmora_test::messageOf;
using velmora_test::traceOf;

constexpr std::uint32_t begin = 0xffff'0000;  // so that each stream crosses the wrap

struct Rig {
    Figures figures;
    StreamReader reader{figures};
    DrivenStream::Say say = [this](const Message& message) { reader.take(message); };

    DrivenStream stream(std::uint32_t cycle, std::uint16_t packets, std::uint32_t at = begin) {
        return DrivenStream(at, {.cycle = cycle, .framesQ14 = 1, .packetCount = packets}, say);
    }
};

// By the nearest rank, as Distribution has it.
std::uint32_t rankOf(std::vector<std::uint32_t> values, double part) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1) + 0.5)];
}

// Of a wait that ends some 20 µs late, and now and then much later.
std::uint32_t someLateness(std::mt19937& random) {
    const std::uint32_t usual = 5 + static_cast<std::uint32_t>(random()) % 40;
    return random() % 50 == 0 ? usual + static_cast<std::uint32_t>(random()) % 400 : usual;
}

// ---- the values ----

TEST(LogDistribution, OfNothingIsNothing) {
    const Distribution none;
    EXPECT_EQ(none.count(), 0u);
    EXPECT_EQ(none.at(0.5), 0u);
    EXPECT_EQ(none.most(), 0u);
}

TEST(LogDistribution, IsExactForSmallValuesAndNearForLargeOnes) {
    Distribution d;
    for (std::uint32_t v = 1; v <= 100; ++v) d.add(v);
    EXPECT_EQ(d.at(0), 1u);
    EXPECT_EQ(d.at(0.5), 51u);
    EXPECT_EQ(d.at(0.99), 99u);
    EXPECT_EQ(d.at(1), 100u);
    EXPECT_EQ(d.upTo(10), 10u);
    for (const std::uint32_t v : {255u, 4095u, 4096u, 4097u, 8191u, 8192u, 70'001u, 0x7fff'ffffu,
                                  0x8000'0000u, 0xffff'ffffu}) {
        Distribution one;
        one.add(v);
        one.add(0xffff'ffff);
        EXPECT_GE(one.at(0), v);
        EXPECT_LE(one.at(0) - v, v / 2048) << v;
        EXPECT_EQ(one.most(), 0xffff'ffffu);
    }
}

TEST(LogTimeline, GrowsLongerWithoutGrowing) {
    Timeline line;
    constexpr std::int64_t hours = 100ll * 3600 * 1'000'000;
    for (int i = 0; i < 1000; ++i) {
        line.addLateness(hours / 1000 * i, 10);
        if (i % 100 == 0) line.addResend(hours / 1000 * i);
    }
    line.addLateTurn(-5);
    EXPECT_LE(line.pieces().size(), Timeline::mostPieces);
    EXPECT_GT(line.pieces().size(), Timeline::mostPieces / 4);
    std::uint32_t bursts = 0, resends = 0;
    for (const auto& piece : line.pieces()) {
        bursts += piece.count;
        resends += piece.resends;
    }
    EXPECT_EQ(bursts, 1000u);
    EXPECT_EQ(resends, 10u);
    EXPECT_EQ(line.pieces()[0].lateTurns, 1u);
    EXPECT_GE(line.pieceMicros() * static_cast<std::int64_t>(line.pieces().size()),
              hours / 1000 * 999);
}

TEST(LogCycle, IsEstimatedFromBurstsOfAnySize) {
    for (const int packets : {1, 2, 3, 8, 20}) {
        SCOPED_TRACE(packets);
        std::mt19937 random(7);
        std::vector<std::int64_t> times;
        for (int n = 0; n < 300; ++n) {
            const std::int64_t start = n * 1003 + std::int64_t{someLateness(random)};
            for (int i = 0; i < packets; ++i) times.push_back(start + i * 9);
        }
        EXPECT_EQ(estimateCycle(times), 1003u);
    }
    EXPECT_EQ(estimateCycle({}), std::nullopt);
    EXPECT_EQ(estimateCycle(std::vector<std::int64_t>(7, 5)), std::nullopt);
    EXPECT_EQ(estimateCycle(std::vector<std::int64_t>(500, 5)), std::nullopt) << "no time passes";
}

// ---- streams ----

TEST(Punctuality, OfNothingIsNothing) {
    Rig rig;
    rig.reader.finish();
    EXPECT_EQ(rig.figures.late.count(), 0u);
    EXPECT_EQ(rig.figures.streams, 0u);
    EXPECT_THAT(figuresText(rig.figures), Not(HasSubstr("Punctuality")));
}

TEST(Punctuality, OfAPunctualStreamIsWhatTheWorkerSaw) {
    for (const std::uint16_t packets : std::initializer_list<std::uint16_t>{1, 2, 5, 17}) {
        SCOPED_TRACE(packets);
        Rig rig;
        auto stream = rig.stream(1000, packets);
        stream.sayStart();
        std::mt19937 random(packets);
        for (int n = 0; n < 5000; ++n) stream.turn(someLateness(random));
        rig.reader.finish();
        EXPECT_EQ(stream.overTimes, 0);
        EXPECT_EQ(rig.figures.lateTurns, 0u);
        EXPECT_EQ(rig.figures.missing, 0u);
        EXPECT_EQ(rig.figures.streams, 1u);
        EXPECT_EQ(rig.figures.cycle, 1000u);
        EXPECT_FALSE(rig.figures.cycleIsEstimated);
        // What lies in the record that was not complete at the end is not known.
        EXPECT_GT(rig.figures.late.count(), 4900u);
        EXPECT_LE(rig.figures.late.count(), stream.really.size());
        for (const double part : {0.5, 0.9, 0.99}) {
            EXPECT_NEAR(rig.figures.late.at(part), rankOf(stream.really, part), 2) << part;
        }
        EXPECT_NEAR(rig.figures.late.most(), rankOf(stream.really, 1), 5);
    }
}

// The start is heard, so even a stream whose every burst is late is not called punctual.
TEST(Punctuality, SeesWhatIsAlwaysLate) {
    Rig rig;
    auto stream = rig.stream(1000, 1);
    stream.sayStart();
    for (int n = 0; n < 500; ++n) stream.turn(300);
    EXPECT_NEAR(rig.figures.late.at(0.5), 300, 1);
    EXPECT_NEAR(rig.figures.late.at(0), 300, 1);
}

// Each burst that is late by a cycle starts the cycle afresh; the next ones are doubled.
TEST(Punctuality, FollowsFreshStartsAndDoubledBursts) {
    for (const std::uint16_t packets : std::initializer_list<std::uint16_t>{1, 3}) {
        SCOPED_TRACE(packets);
        Rig rig;
        auto stream = rig.stream(1000, packets);
        stream.sayStart();
        std::mt19937 random(3);
        for (int n = 0; n < 5000; ++n) {
            const bool stalls = random() % 37 == 0;
            stream.turn(stalls ? 1100 + static_cast<std::uint32_t>(random()) % 3000
                               : someLateness(random));
        }
        ASSERT_GT(stream.overTimes, 50);
        EXPECT_EQ(rig.figures.lateTurns, static_cast<std::uint64_t>(stream.overTimes));
        EXPECT_EQ(rig.figures.worstLateTurn, rankOf(stream.really, 1));
        EXPECT_EQ(rig.figures.missing, 0u);
        for (const double part : {0.5, 0.9, 0.97, 0.99, 1.0}) {
            const double really = rankOf(stream.really, part);
            EXPECT_NEAR(rig.figures.late.at(part), really, 8 + really / 100) << part;
        }
    }
}

// A turn in time whose sending takes longer than a cycle: the next turns catch up, and nothing
// starts afresh.
TEST(Punctuality, AHeldUpSendIsNoLateTurn) {
    Rig rig;
    auto stream = rig.stream(1000, 1);
    stream.sayStart();
    for (int n = 0; n < 3000; ++n) {
        const bool isHeldUp = n % 200 == 100;
        stream.turn(20, isHeldUp ? 1250 : 7);
        if (isHeldUp) stream.turn(277);
    }
    EXPECT_EQ(stream.overTimes, 0);
    EXPECT_NEAR(rig.figures.late.at(0.5), 20, 1);
    EXPECT_NEAR(rig.figures.late.at(0.98), 20, 1);
    EXPECT_NEAR(rig.figures.late.most(), 1270, 10);
    EXPECT_GT(rig.figures.late.count(), 2900u);
}

// Both at once, and in the same record.
TEST(Punctuality, HeldUpSendsAndLateTurnsAreToldApart) {
    Rig rig;
    auto stream = rig.stream(1000, 1);
    stream.sayStart();
    for (int n = 0; n < 3000; ++n) {
        if (n % 73 == 40) {
            stream.turn(20, 1450);
            stream.turn(477);
        }
        stream.turn(n % 73 == 50 ? 1400 : 20);
    }
    EXPECT_EQ(stream.overTimes, 41);
    EXPECT_NEAR(rig.figures.late.at(0.5), 20, 2);
    EXPECT_NEAR(rig.figures.late.at(0.95), 20, 2);
    EXPECT_NEAR(rig.figures.late.most(), 1470, 12);
    EXPECT_GT(rig.figures.late.count(), 2900u) << "none is taken for a part of another";
}

// Late turns whose words were not heard: the stream is found again behind each.
TEST(Punctuality, FindsFreshStartsThatWereNotTold) {
    Figures figures;
    StreamReader reader(figures);
    DrivenStream stream(begin, {.cycle = 1000, .framesQ14 = 1, .packetCount = 1},
                        [&](const Message& message) {
                            if (!message.text.starts_with("over time ")) reader.take(message);
                        });
    stream.sayStart();
    for (int n = 0; n < 3000; ++n) stream.turn(n % 300 == 50 ? 2700 : 20);
    EXPECT_EQ(figures.lateTurns, 0u);
    EXPECT_NEAR(figures.late.at(0.5), 20, 10);
    EXPECT_LE(figures.late.at(0.98), 60u);
    EXPECT_NEAR(figures.late.most(), 2700, 20);
}

TEST(Punctuality, OfAStreamThatWasJoinedIsToldFromItsEarliestBurst) {
    Rig rig;
    auto stream = rig.stream(1250, 2);
    std::mt19937 random(5);
    for (int n = 0; n < 4000; ++n) {
        stream.losesTrace = n < 100;
        stream.turn(someLateness(random));
    }
    rig.reader.finish();
    EXPECT_EQ(rig.figures.cycle, 1250u);
    EXPECT_TRUE(rig.figures.cycleIsEstimated);
    EXPECT_GT(rig.figures.late.count(), 3800u);
    // 5 µs is the least that any of them is late.
    EXPECT_NEAR(rig.figures.late.at(0.5), rankOf(stream.really, 0.5) - 5, 2);
    EXPECT_NEAR(rig.figures.late.at(0.95), rankOf(stream.really, 0.95) - 5, 4);
}

TEST(Punctuality, OfAShortJoinedStreamIsCountedAtTheEnd) {
    Rig rig;
    auto stream = rig.stream(1000, 1);
    for (int n = 0; n < 180; ++n) {
        stream.losesTrace = n < 60;
        stream.turn(10);
    }
    EXPECT_EQ(rig.figures.late.count(), 0u);
    rig.reader.finish();
    EXPECT_GT(rig.figures.late.count(), 90u);
    EXPECT_EQ(rig.figures.late.most(), 0u);
}

TEST(Punctuality, FollowsACycleThatFollowsTheTarget) {
    Rig rig;
    auto stream = rig.stream(2000, 3);
    stream.sayStart();
    std::mt19937 random(9);
    for (int n = 0; n < 20'000; ++n) {
        stream.turn(someLateness(random));
        if (n % 50 == 49) {
            stream.changeCycle(1995 + static_cast<std::uint32_t>(random()) % 11);
        }
    }
    EXPECT_EQ(rig.figures.missing, 0u);
    EXPECT_GT(rig.figures.late.count(), 19'900u);
    for (const double part : {0.5, 0.9, 0.99}) {
        EXPECT_NEAR(rig.figures.late.at(part), rankOf(stream.really, part), 15) << part;
    }
}

TEST(Punctuality, LearnsTheCycleFromFeedbackThatTellsIt) {
    Rig rig;
    auto stream = rig.stream(2000, 1);
    for (int n = 0; n < 300; ++n) {
        stream.turn(20);
        if (n == 100) stream.changeCycle(2000);
    }
    EXPECT_EQ(rig.figures.cycle, 2000u);
    EXPECT_FALSE(rig.figures.cycleIsEstimated);
    EXPECT_GT(rig.figures.late.count(), 150u);
}

TEST(Punctuality, AfterAChangeOfProfileTheCycleIsLearntAnew) {
    Rig rig;
    auto first = rig.stream(1000, 1);
    first.sayStart();
    for (int n = 0; n < 300; ++n) first.turn(20);
    rig.say(messageOf("over time change profile 0 to 1", 4));
    auto second = rig.stream(5000, 1, begin + 300'000);
    for (int n = 0; n < 400; ++n) {
        second.losesTrace = n < 20;  // in which it is late by design
        second.turn(20);
    }
    rig.reader.finish();
    EXPECT_EQ(rig.figures.profileChanges, 1u);
    EXPECT_EQ(rig.figures.lateTurns, 0u) << "its words begin like those of a late turn";
    EXPECT_EQ(rig.figures.cycle, 5000u);
    EXPECT_TRUE(rig.figures.cycleIsEstimated);
    EXPECT_LE(rig.figures.late.most(), 25u);
}

TEST(Punctuality, OfDrawnCyclesTellsNoLateness) {
    Rig rig;
    rig.say(messageOf("start cycle=2000usec 500.000000Hz size=0 cycleMin=1000usec 1000.000000Hz"));
    rig.say(messageOf("redy to play loop start1"));
    std::vector<SentPacket> packets;
    for (std::uint32_t n = 0; n < 50; ++n) {
        packets.push_back({begin + n * 1500, 442});
        packets.push_back({begin + n * 1500 + 7, 442});
    }
    rig.say(messageOf(traceOf(packets)));
    EXPECT_TRUE(rig.figures.cycleIsDrawn);
    EXPECT_EQ(rig.figures.late.count(), 0u);
    EXPECT_EQ(rig.figures.apart.count(), 49u);
    EXPECT_EQ(rig.figures.apart.most(), 1500u);
    EXPECT_THAT(figuresText(rig.figures), HasSubstr("drawn at random"));
    EXPECT_FALSE(figuresJson(rig.figures).contains("lateMicros"));
}

// ---- what was not heard ----

TEST(Punctuality, RecordsThatAreMissingAreNoLateness) {
    Rig rig;
    auto stream = rig.stream(1000, 1);
    stream.sayStart();
    for (int n = 0; n < 1000; ++n) {
        stream.losesTrace = n >= 300 && n < 500;
        stream.turn(10);
    }
    EXPECT_EQ(rig.figures.missing, 1u);
    EXPECT_LE(rig.figures.late.most(), 12u);
    EXPECT_EQ(rig.figures.streams, 1u);
}

TEST(Punctuality, AStallIsLatenessAndNothingIsMissing) {
    Rig rig;
    auto stream = rig.stream(1000, 1);
    stream.sayStart();
    for (int n = 0; n < 300; ++n) stream.turn(10);
    stream.turn(80'000);
    for (int n = 0; n < 300; ++n) stream.turn(10);
    EXPECT_EQ(rig.figures.missing, 0u);
    EXPECT_EQ(rig.figures.lateTurns, 1u);
    EXPECT_EQ(rig.figures.worstLateTurn, 80'000u);
    EXPECT_NEAR(rig.figures.late.most(), 80'000, 10);
}

TEST(Punctuality, StreamsBehindOneAnotherAreCountedEach) {
    Rig rig;
    for (const std::uint32_t at : {begin, 1'000u, 0x4000'0000u}) {
        auto stream = rig.stream(1000, 1, at);
        stream.sayStart();
        for (int n = 0; n < 200; ++n) stream.turn(10);
    }
    EXPECT_EQ(rig.figures.streams, 3u);
    EXPECT_EQ(rig.figures.missing, 0u);
    EXPECT_LE(rig.figures.late.most(), 12u);
    EXPECT_NEAR(static_cast<double>(rig.figures.streamMicros), 3 * 153'000.0, 6'000.0);
}

TEST(Punctuality, ACounterThatStepsBackIsAnotherStream) {
    Rig rig;
    rig.say(messageOf(traceOf({{1'000'000, 442}, {1'001'000, 442}})));
    rig.say(messageOf(traceOf({{5'000, 442}, {4'000, 442}, {6'000, 442}})));
    rig.reader.finish();
    EXPECT_EQ(rig.figures.streams, 2u);
    EXPECT_EQ(rig.figures.packets, 5u);
    EXPECT_EQ(rig.figures.wireBytes, 5u * 442);
}

// ---- the driver's own words ----

TEST(Punctuality, CountsWhatTheDriverSaysItself) {
    Rig rig;
    rig.say(messageOf("   cout resend 17   20 12"));
    rig.say(messageOf("   cout resend 18   18 3"));
    rig.say(messageOf("SyncBuffer not enough mute data return 4096", 4));
    rig.say(messageOf("SyncBuffer not enough Timeout", 4));
    rig.say(messageOf("over time 1381 291 1381 10", 4));
    rig.say(messageOf("over time 99999999999 1 1 1", 4));
    rig.say(messageOf("over time ", 4));
    rig.say(messageOf("start cycle=0usec"));
    rig.say(messageOf("start cycle="));
    rig.say(messageOf("Request Info"));
    rig.say(messageOf("info rcv 1  0.0605  0.0605 -0.0084 cy=0"));
    rig.reader.finish();
    EXPECT_EQ(rig.figures.resendRequests, 2u);
    EXPECT_EQ(rig.figures.resendPackets, 15u);
    EXPECT_EQ(rig.figures.underruns, 1u);
    EXPECT_EQ(rig.figures.lateTurns, 1u);
    EXPECT_EQ(rig.figures.worstLateTurn, 1381u);
    EXPECT_EQ(rig.figures.cycle, std::nullopt);
}

// ---- how it is shown ----

Figures someFigures() {
    Rig rig;
    auto stream = rig.stream(1000, 1);
    stream.sayStart();
    for (int n = 0; n < 2000; ++n) {
        stream.turn(n % 100 == 99 ? 1500 : 10);
        if (n == 500) rig.say(messageOf("   cout resend 17   20 12"));
    }
    rig.reader.finish();
    return rig.figures;
}

TEST(LogFigures, AreToldInWords) {
    Figures figures = someFigures();
    figures.lines = 1;
    figures.programs = 1;
    figures.warnings = 20;
    figures.missing = 2;
    figures.foreign = 3;
    const std::string text = figuresText(figures);
    for (const char* words :
         {"1 line from 1 program: 0 errors, 20 warnings, 3 not of the driver's form\n",
          " of 1 stream, ", "  cycle                     1000 us\n",
          "  behind the deadline       p50 10  p90 10  p99 ", "worst 1500 us\n",
          "  late turns                20, the worst 1500 us\n",
          "  resend requests           1, for 12 packets\n", "  underruns of the host     0\n",
          "  trace records missing     2 gaps\n"}) {
        EXPECT_THAT(text, HasSubstr(words));
    }
}

TEST(LogFigures, AreToldInJson) {
    const Json json = figuresJson(someFigures());
    EXPECT_EQ(json["event"], "figures");
    EXPECT_EQ(json["cycleMicros"], 1000);
    EXPECT_EQ(json["cycleIsEstimated"], false);
    EXPECT_EQ(json["lateTurns"], 20);
    EXPECT_EQ(json["worstLateTurnMicros"], 1500);
    EXPECT_EQ(json["resendPackets"], 12);
    EXPECT_EQ(json["lateMicros"]["p50"], 10);
    EXPECT_FALSE(json.contains("none"));
}

TEST(LogPicture, IsASoundSvgWhateverThereIs) {
    const auto isSound = [](const std::string& svg) {
        EXPECT_TRUE(svg.starts_with("<svg xmlns=")) << svg.substr(0, 40);
        EXPECT_TRUE(svg.ends_with("</svg>\n"));
        EXPECT_THAT(svg, Not(HasSubstr("nan")));
        EXPECT_THAT(svg, Not(HasSubstr("inf")));
    };
    isSound(pictureOf({}));
    EXPECT_THAT(pictureOf({}), HasSubstr("No packet trace was heard"));
    const std::string svg = pictureOf(someFigures());
    isSound(svg);
    EXPECT_THAT(svg, HasSubstr("late turns 20, resend requests 1"));
    EXPECT_THAT(svg, HasSubstr("a cycle"));
    Figures packetsAlone;
    packetsAlone.packets = 5;
    isSound(pictureOf(packetsAlone));
}

TEST(LogPicture, HasNoHolesBetweenWholeMicroseconds) {
    Figures figures;
    for (std::uint32_t late = 1; late <= 20; ++late) {
        figures.late.add(late);
        figures.timeline.addLateness(0, late);
    }
    const std::string svg = pictureOf(figures);
    std::istringstream points(svg.substr(svg.rfind("points=\"") + 8));
    std::vector<double> heights;
    double x = 0, y = 0;
    for (char comma = 0; points >> x >> comma >> y;) heights.push_back(y);
    ASSERT_GT(heights.size(), 40u);
    const double bottom = heights.back();  // a second
    const auto lowest = std::find(heights.begin(), heights.end(), bottom);
    // 1 to 9 µs fall into eight steps, 10 to 20 into four.
    EXPECT_EQ(lowest - heights.begin(), 2 * (8 + 4));
    EXPECT_TRUE(std::all_of(lowest, heights.end(), [&](double h) { return h == bottom; }));
}

}  // namespace
