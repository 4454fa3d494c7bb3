// The stream: where it is found, which packets are new, come again or are missing, what answers
// what.
#include <gtest/gtest.h>

#include "tests/dissector/Talk.h"

namespace velmora_test {
namespace {

using namespace VELMORA::wire;
using VELMORA::SinkConfig;

// "new", "again", "fills" and what is missing in front: "new 3@5" is three from 5 on.
std::string verdict(const Shown& shown) {
    std::string out = shown["stream.new"] == "1" ? "new" : "again";
    EXPECT_EQ(shown["stream.again"], shown["stream.new"] == "1" ? "0" : "1");
    if (shown.has("stream.fills_gap")) out = "fills";
    if (shown.has("stream.gap")) out += " " + shown["stream.gap"] + "@" + shown["stream.gap_from"];
    EXPECT_EQ(shown.isMarked("gap"), shown.has("stream.gap"));
    EXPECT_EQ(shown.isMarked("again"), out == "again");
    EXPECT_EQ(shown.isMarked("fills_gap"), out == "fills");
    return out;
}

struct Step {
    const char* why;
    unsigned sequence;
    const char* verdict;
    const char* firstIn;  // "-" for none; counted from the first step as frame 1
};
// Behind CONNECT_ANS, or as the first thing that the capture holds.
void expectSteps(const std::vector<Step>& steps, bool isConnected) {
    Talk talk;
    talk.target.setPortNumber(streamPort);
    if (isConnected) talk.connect();
    const std::size_t before = talk.capture.count();
    for (const Step& step : steps) talk.audio(static_cast<std::uint16_t>(step.sequence));
    const auto shown = talk.dissect();
    for (std::size_t i = 0; i < steps.size(); ++i) {
        SCOPED_TRACE(steps[i].why);
        const Shown& one = shown[before + i];
        EXPECT_EQ(verdict(one), steps[i].verdict);
        const std::string first = steps[i].firstIn;
        EXPECT_EQ(one["stream.first_in"],
                  first == "-" ? first : std::to_string(std::stoul(first) + before));
    }
}

TEST(DissectorStream, NumbersThatFollowAreNew) {
    expectSteps({{"the first", 0, "new", "-"}, {"", 1, "new", "-"}, {"", 2, "new", "-"}}, true);
}

TEST(DissectorStream, AGapIsMarkedAndWhatFillsItToo) {
    expectSteps({{"", 0, "new", "-"},
                 {"1, 2 and 3 are missing", 4, "new 3@1", "-"},
                 {"one of them", 2, "fills", "-"},
                 {"and again", 2, "again", "3"},
                 {"", 1, "fills", "-"},
                 {"", 3, "fills", "-"},
                 {"", 4, "again", "2"},
                 {"", 5, "new", "-"}},
                true);
}

TEST(DissectorStream, TheFirstBehindConnectIsNumberZero) {
    expectSteps({{"two were lost", 2, "new 2@0", "-"}, {"", 0, "fills", "-"}}, true);
}

TEST(DissectorStream, NumbersWrap) {
    expectSteps({{"the capture begins here", 65534, "new", "-"},
                 {"", 65535, "new", "-"},
                 {"", 0, "new", "-"},
                 {"again over the wrap", 65535, "again", "2"},
                 {"", 2, "new 1@1", "-"},
                 {"", 1, "fills", "-"},
                 {"", 0, "again", "3"}},
                false);
    expectSteps({{"", 65530, "new", "-"},
                 {"a gap over the wrap", 3, "new 8@65531", "-"},
                 {"", 65535, "fills", "-"},
                 {"", 65535, "again", "3"}},
                false);
    expectSteps({{"", 65535, "new", "-"}, {"a gap that begins with the wrap", 2, "new 2@0", "-"}},
                false);
}

TEST(DissectorStream, WhatLiesInFrontOfTheCaptureWasNotMissed) {
    expectSteps({{"the first that the capture holds", 1000, "new", "-"},
                 {"sent again from before", 998, "again", "-"},
                 {"and once more", 998, "again", "2"},
                 {"", 1001, "new", "-"}},
                false);
}

// A number of the last lap is another packet.
TEST(DissectorStream, ALapLaterTheSameNumberIsAnotherPacket) {
    Talk talk;
    talk.connect();
    for (unsigned n = 0; n <= 65536; n += 64) talk.audio(static_cast<std::uint16_t>(n), 0, 0);
    talk.audio(128, 0, 0);  // 64 came in the last lap, and is missing in this one
    talk.audio(64, 0, 0);
    talk.audio(64, 0, 0);
    const auto lines = dissectedLines(talk.capture,
                                      "-T fields -e velmora.stream.new -e velmora.stream.gap "
                                      "-e velmora.stream.fills_gap -e velmora.stream.first_in");
    ASSERT_EQ(lines.size(), 2 + 1025u + 3);
    EXPECT_EQ(lines[2], "1\t\t\t");
    for (std::size_t i = 3; i < 2 + 1025; ++i) ASSERT_EQ(lines[i], "1\t63\t\t") << i;
    EXPECT_EQ(lines[1027], "1\t127\t\t");
    EXPECT_EQ(lines[1028], "0\t\t1\t");
    EXPECT_EQ(lines[1029], "0\t\t\t1029");
}

TEST(DissectorStream, StreamsAreKeptApart) {
    Talk both;
    both.target = targetAt(streamPort);
    for (int i = 0; i < 3; ++i) {
        both.host = hostAt(hostPort);
        both.audio(static_cast<std::uint16_t>(10 + i));
        both.host = hostAt(hostPort + 1);
        both.audio(static_cast<std::uint16_t>(500 + i));
    }
    for (const Shown& shown : both.dissect()) EXPECT_EQ(verdict(shown), "new");
}

TEST(DissectorStream, ANewConnectBeginsAnew) {
    Talk talk;
    talk.connect();
    talk.audio(0), talk.audio(1);
    talk.connect();
    talk.audio(0);
    const auto shown = talk.dissect();
    EXPECT_EQ(verdict(shown[6]), "new");

    Talk twice;
    twice.connect();
    twice.audio(0), twice.audio(1);
    // The answer comes a second time: the stream goes on.
    twice.say(targetAt(talkSinkPort), twice.host, write(CONNECT_ANS{.streamPort = streamPort}));
    twice.audio(2);
    EXPECT_EQ(verdict(twice.dissect()[5]), "new");
}

TEST(DissectorStream, ResendRequestsSayHowManyAndAreNamedByWhatComes) {
    Talk talk;
    talk.connect();
    for (std::uint16_t n = 0; n < 10; ++n) talk.audio(n);  // frames 3 to 12
    talk.askAgain(7, 8);                                   // frame 13
    talk.audio(7, 0, 8, 8), talk.audio(8, 0, 8, 8), talk.audio(9, 0, 8, 8), talk.audio(10);
    talk.audio(6);          // nobody asked for this one
    talk.askAgain(11, 11);  // nothing
    talk.askAgain(12, 12);  // ahead
    const auto shown = talk.dissect();
    EXPECT_EQ(shown[12]["info.resend_count"], "3");
    EXPECT_EQ(shown[12].markNames(), "asks_again");
    for (std::size_t i = 13; i < 16; ++i) {
        EXPECT_EQ(verdict(shown[i]), "again");
        EXPECT_EQ(shown[i]["stream.asked_in"], "13");
        EXPECT_EQ(shown[i]["stream.first_in"], std::to_string(i - 3));
        EXPECT_TRUE(shown[i].isMarked("long_form"));
    }
    EXPECT_EQ(verdict(shown[16]), "new");
    EXPECT_FALSE(shown[16].has("stream.asked_in"));
    EXPECT_EQ(verdict(shown[17]), "again");
    EXPECT_FALSE(shown[17].has("stream.asked_in"));
    EXPECT_EQ(shown[18]["info.resend_count"], "0");
    EXPECT_EQ(shown[18].markNames(), "asks_again");
    EXPECT_EQ(shown[19]["info.resend_count"], "65535");
    EXPECT_EQ(shown[19].markNames(), "asks_ahead");
}

TEST(DissectorStream, FeedbackAnswersWhoAskedAndMoreMayCome) {
    Talk talk;
    talk.connect();
    talk.audio(0, 0x60);    // frame 3 asks
    talk.askAgain(0, 0);    // no answer to that
    talk.feedback(0x3000);  // frame 5 is
    talk.feedback(0x3001);  // and this was not asked for
    talk.audio(1, 0x40);
    const auto shown = talk.dissect();
    EXPECT_EQ(shown[2]["response_in"], "5");
    EXPECT_FALSE(shown[3].has("request_in"));
    EXPECT_EQ(shown[4]["request_in"], "3");
    EXPECT_EQ(shown[4]["response_time"], "0.002000000");
    EXPECT_EQ(shown[4]["feedback"], "0.5");
    EXPECT_FALSE(shown[5].has("request_in"));
    EXPECT_EQ(shown[5].markNames(), "");
}

TEST(DissectorStream, BurstsAreCountedAndTheirTimeTaken) {
    Talk talk;
    talk.connect();
    talk.audio(0, 0x40);
    for (const std::uint16_t flags : words({0, 0, 0x40})) {
        talk.audio(static_cast<std::uint16_t>(talk.capture.count() - 2), flags);
    }
    const auto shown = talk.dissect();
    EXPECT_EQ(shown[2]["stream.burst_packets"], "1");
    EXPECT_FALSE(shown[2].has("stream.cycle"));
    EXPECT_FALSE(shown[4].has("stream.burst_packets"));
    EXPECT_EQ(shown[5]["stream.burst_packets"], "3");
    EXPECT_EQ(shown[5]["stream.cycle"], "0.003000000");
}

TEST(DissectorStream, AudioIsCountedInFramesOfTheFormatThatWasAgreedOn) {
    Talk talk;
    talk.connect(SinkConfig(0x0000'000c'0000'0402));
    talk.audio(0, 0x40, 60), talk.audio(1, 0x40, 61), talk.audio(2, 0x40, 0);
    const auto shown = talk.dissect();
    EXPECT_EQ(shown[2]["stream.frames"], "10");
    EXPECT_EQ(shown[2]["format.text"], "PCM 24, 2 channels, 48000 Hz");
    EXPECT_EQ(shown[2].markNames(), "");
    EXPECT_EQ(shown[3]["stream.frames"], "10");
    EXPECT_EQ(shown[3].markNames(), "part_frame");
    EXPECT_EQ(shown[4]["stream.frames"], "0");
}

TEST(DissectorStream, TheTargetMayEndIt) {
    Talk talk;
    talk.connect();
    talk.audio(0);
    talk.answer(DSICONNECT_ANS{});
    talk.ask(DSICONNECT_REQ{});
    talk.answer(DSICONNECT_ANS{});
    const auto shown = talk.dissect();
    EXPECT_EQ(shown[3].markNames(), "target_ends");
    EXPECT_EQ(shown[5].markNames(), "");
    EXPECT_EQ(shown[5]["request_in"], "5");
}

// ---- where it is found ----

// Ports that others have registered: the name service, and one of a media protocol.
TEST(DissectorStream, IsFoundAtWhateverPortConnectNames) {
    for (const std::uint16_t port : words({53, 5004, 161, 20002})) {
        SCOPED_TRACE(port);
        Talk talk;
        talk.connect(SinkConfig(0x0000'000c'0000'0202), port);
        talk.audio(0), talk.audio(1, 0x60);
        talk.feedback(0x2000);
        talk.say(talk.host, talk.target, Bytes(5));
        const auto shown = talk.dissect();
        for (const Shown& one : shown) EXPECT_TRUE(one.isOurs) << one.protocols;
        EXPECT_EQ(shown[4]["request_in"], "4");
        EXPECT_TRUE(shown[5].isMalformed())
            << "what comes there is ours, and marked where it is bad";
    }
}

TEST(DissectorStream, ARefusedConnectNamesNoPort) {
    Talk talk;
    talk.target.setPortNumber(talkSinkPort);
    talk.ask(CONNECT_REQ{});
    talk.say(talk.target, talk.host, refused(write(CONNECT_ANS{.streamPort = 53})));
    talk.say(talk.host, targetAt(53), Bytes(30, 1));
    const auto shown = talk.dissect();
    EXPECT_FALSE(shown[2].isOurs);
}

TEST(DissectorStream, NegotiationIsFoundAtThePortOfTheSinkOnceItIsNamed) {
    Talk talk;
    talk.say(hostAt(hostPort + 2), targetAt(talkSinkPort), Bytes{1, 2, 3});
    talk.ask(SINK_REQ{1});
    talk.answer(SINK_ANS{true, 1, talkSinkPort, 1, "Main"});
    talk.target.setPortNumber(talkSinkPort);
    talk.say(talk.host, talk.target, Bytes{1, 2, 3});
    talk.ask(SUPPORT_REQ{0});
    talk.say(talk.target, hostAt(hostPort + 1), Bytes{1, 2, 3});
    const auto shown = talk.dissect();
    EXPECT_FALSE(shown[0].isOurs) << "whose port that is was told later";
    EXPECT_TRUE(shown[3].isMarked("too_short"));
    EXPECT_TRUE(shown[4].isOurs);
    EXPECT_TRUE(shown[5].isMarked("too_short"));
}

// The capture begins in mid-stream: nothing named the ports.
TEST(DissectorStream, IsRecognisedWithoutItsBeginning) {
    Talk talk;
    talk.target = targetAt(33333);
    talk.audio(4000, 0, 0), talk.audio(4001, 0x60, 1428), talk.feedback(0x8000);
    talk.audio(4001, 0x40, 1424, 8);
    talk.say(talk.host, talk.target, Bytes(20, 0xff));
    const auto shown = talk.dissect();
    for (const Shown& one : shown) EXPECT_TRUE(one.isOurs) << one.protocols;
    EXPECT_EQ(shown[2]["request_in"], "2");
    EXPECT_TRUE(shown[4].isMarked("bad_magic")) << "the two have been recognised before";
}

TEST(DissectorStream, OthersDatagramsAreLeftToThem) {
    const Bytes sound = makePacket(STREAM_DATA::id, 0x40, {7}, Bytes(9, 1));
    const auto changed = [&](std::size_t at, std::uint8_t value) {
        Bytes out = sound;
        out[at] = value;
        return out;
    };
    Bytes longer = sound;
    longer.resize(longer.size() + 9);
    Bytes cut = sound;
    cut.resize(cut.size() - 1);
    const auto header = [&](std::uint8_t sizeWord) {
        Bytes out = changed(2, sizeWord);
        out.resize(headerBytes);
        return out;
    };
    const std::pair<const char*, Bytes> cases[] = {
        {"8 bytes, and 8 more", header(0x08)},
        {"a header, but with filler", header(0x13)},
        {"another magic", changed(0, 101)},
        {"a length of less than a header", changed(2, 0x08)},
        {"no filler, but longer than it says", longer},
        {"shorter than it says", cut},
        {"no message of ours", changed(4, 99)},
        {"flags that it cannot have", changed(6, 0x41)},
        {"bytes where there are none", changed(12, 1)},
        {"filler that is not zero", changed(31, 1)},
        {"nothing", {}},
        {"zeros", Bytes(32)},
    };
    Capture capture;
    std::uint16_t port = 33000;
    for (const auto& [why, datagram] : cases) capture.add(hostAt(), targetAt(port++), datagram);
    capture.add(hostAt(), targetAt(port++), sound);
    const auto shown = dissect(capture);
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_FALSE(shown[i].isOurs) << cases[i].first;
    }
    EXPECT_TRUE(shown.back().isOurs);
    const auto without = dissect(capture, "-o velmora.guess:FALSE");
    EXPECT_FALSE(without.back().isOurs);
}

TEST(DissectorStream, PortsCanBeSet) {
    Capture capture;
    capture.add(hostAt(), targetAt(talkControlPort), Bytes(3));
    capture.add(hostAt(), targetAt(7777), Bytes(3));
    const auto shown = dissect(capture, "-o velmora.ports:7777");
    EXPECT_FALSE(shown[0].isOurs);
    EXPECT_TRUE(shown[1].isOurs);
}

TEST(DissectorStream, TheDriversOwnLogIsReadAsSyslog) {
    Capture capture;
    const std::string line = "<14>Jan  1 00:00:00 host velmora: start SPEED=48000";
    capture.add(IPAddress::loopbackV6(40001), IPAddress::loopbackV6(19640),
                Bytes(line.begin(), line.end()));
    EXPECT_NE(dissect(capture)[0].protocols.find("syslog"), std::string::npos);
}

}  // namespace
}  // namespace velmora_test
