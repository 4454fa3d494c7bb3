// How a stream ends when its caller says so.
#include <gmock/gmock.h>

#include "tests/sync/StreamHarness.h"

namespace {

using namespace velmora_test;
using testing::ElementsAre;

// Answers each request for feedback, and the end.
struct Ending : Session {
    explicit Ending(std::uint32_t infoCycle = 3000) : Session(1, infoCycle) {
        prepare(fixRow(1000, 1));
        target.on(10, [](const Bytes& packet) {
            return (word16(packet, 6) & 0x20) != 0 ? Datagrams{feedbackSays(0)} : Datagrams{};
        });
        target.on(12, datagram(13, 1));
    }
    void disconnectAt(std::uint64_t t) {
        at(t, [this] { sync.enterDisconnecting(); });
    }
    int requests(std::uint16_t id) const {
        int n = 0;
        for (const Bytes& request : target.requests) n += word16(request, 4) == id ? 1 : 0;
        return n;
    }
};

// Of all lines, those that tell the end.
std::vector<std::string> endLines(const LogCapture& log) {
    std::vector<std::string> out;
    for (const std::string& text : log.texts()) {
        if (text.starts_with("buffer") || text.starts_with("DSI") || text.starts_with("   time")) {
            out.push_back(text);
        }
    }
    return out;
}

TEST(StreamDrain, PlaysWhatThereIsThenClosesAsksAndParts) {
    Ending s;
    s.sync.playing = 1;
    s.sync.blocks = {Bytes(16, 1), Bytes(16, 2), Bytes(8, 3)};
    s.disconnectAt(600);
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.sync.state, Sync::Idle);
    const auto packets = s.packets();
    // 0 prefill, 1 and 2 audio, 3 the closing packet (built at 1500, sent at 2500), then silence;
    // the request of 3500 is the first behind it.
    ASSERT_EQ(packets.size(), 5u);
    const Bytes closing{3, 3, 3, 3, 3, 3, 3, 3, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(packets[3].payload, closing);
    EXPECT_EQ(packets[4].payload, Bytes(16, 0));
    EXPECT_EQ(packets[4].flags, 0x60);
    EXPECT_EQ(packets[4].at, 3500u);
    EXPECT_EQ(s.requests(12), 1);
    EXPECT_EQ(s.target.requests.back(), datagram(12, 0));
    EXPECT_EQ(s.network.time.time() - s.begin, 3700u);
    EXPECT_THAT(endLines(log), ElementsAre("buffer Final "));
    EXPECT_EQ(s.sync.fetches, 4) << "no more audio is asked for behind the end";
}

TEST(StreamDrain, AStreamThatDoesNotPlayEndsWithAPacketOfSilence) {
    Ending s;
    s.disconnectAt(600);
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.sync.state, Sync::Idle);
    EXPECT_EQ(s.sync.fetches, 0);
    EXPECT_EQ(s.requests(12), 1);
    EXPECT_THAT(endLines(log), ElementsAre("buffer disconnect "));
    for (const auto& packet : s.packets()) EXPECT_EQ(packet.payload, Bytes(16, 0));
}

TEST(StreamDrain, AnAnswerToAnEarlierRequestIsNotTheLast) {
    Ending s(100000);
    s.target.answers.erase(10);
    s.disconnectAt(600);
    s.say(1600, feedbackSays(0));  // built, not sent
    s.say(2600, feedbackSays(0));  // sent, not asked
    s.say(101600, feedbackSays(0));
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.network.time.time() - s.begin, 101700u) << "asked for at 100500";
}

TEST(StreamDrain, AResendRequestIsAnAnswerToo) {
    Ending s;
    s.target.on(10, [](const Bytes& packet) {
        return (word16(packet, 6) & 0x20) != 0 ? Datagrams{resendFrom(word16(packet, 8))}
                                               : Datagrams{};
    });
    s.disconnectAt(600);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.requests(12), 1);
}

TEST(StreamDrain, ASilentTargetCannotHoldUpTheEnd) {
    Ending s;
    s.target.answers.erase(10);
    s.disconnectAt(600);
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.sync.state, Sync::Idle);
    EXPECT_THAT(endLines(log), ElementsAre("buffer disconnect ", "   timeout 1000500"));
}

TEST(StreamDrain, NorATargetThatOnlyMakesNoise) {
    Ending s;
    s.target.answers.erase(10);
    s.disconnectAt(600);
    for (std::uint64_t t = 1000; t < 3000000; t += 10000) s.say(t, datagram(99, 0));
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_LE(s.network.time.time() - s.begin, 1010000u);
    EXPECT_EQ(endLines(log).size(), 2u);
}

TEST(StreamDrain, DisconnectAnsEndsADrainAtOnce) {
    Ending s;
    s.target.answers.erase(10);
    s.disconnectAt(600);
    s.say(700, datagram(13, 1));
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.network.time.time() - s.begin, 700u);
    EXPECT_THAT(endLines(log), ElementsAre("DSICONNECT_ANS "));
}

TEST(StreamDrain, PartingIsTriedFourTimesHalfASecondEach) {
    Ending s;
    s.target.answers.erase(12);
    s.disconnectAt(600);
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.sync.state, Sync::Idle);
    EXPECT_EQ(s.requests(12), 4);
    EXPECT_EQ(s.network.time.time() - s.begin, 3600u + 2000000u);
    EXPECT_THAT(endLines(log), ElementsAre("buffer disconnect ", "DSICONNECT_REQ ERROR "));
}

TEST(StreamDrain, EachDatagramThatIsNoAnswerCostsATry) {
    struct Case {
        const char* why;
        std::vector<int> words;  // 0 noise of the target, 1 a stranger's 13, 2 the answer
        bool good;
    };
    const Case cases[] = {
        {"noise, then the answer", {0, 0, 0, 2}, true},
        {"too much noise", {0, 0, 0, 0, 2}, false},
        {"a stranger does not end it", {1, 1, 1, 1}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Ending s;
        std::size_t next = 0;
        s.target.on(12, [&](const Bytes&) -> Datagrams {
            const int word = next < c.words.size() ? c.words[next++] : 0;
            if (word == 1) {
                s.network.send(s.stranger, s.hostAddress(), datagram(13, 1));
                return {};
            }
            return {datagram(word == 2 ? 13 : 99, 1)};
        });
        s.disconnectAt(600);
        const LogCapture log(6);
        EXPECT_TRUE(s.sync.streamWorker());
        EXPECT_EQ(!log.has("DSICONNECT_REQ ERROR "), c.good);
        EXPECT_EQ(s.requests(12), 4);
    }
}

TEST(StreamDrain, AFailingSocketEndsThePartingAtOnce) {
    struct Case {
        const char* why;
        void (*fault)(FakeNetwork&);
    };
    const Case cases[] = {
        {"the send", [](FakeNetwork& n) { n.sendError = 10051; }},
        {"the wait", [](FakeNetwork& n) { n.waitFails = true; }},
        {"the read", [](FakeNetwork& n) { n.receiveFails = true; }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Ending s;
        if (c.why == std::string("the send")) s.target.answers.erase(12);  // the second one's
        s.disconnectAt(600);
        bool armed = false;
        s.network.fate = [&](const Datagram& d) -> Fate {
            if (d.toPeer && word16(d.data, 4) == 12) armed = true;
            if (armed) c.fault(s.network);
            return {{50, {}}};
        };
        const LogCapture log(6);
        EXPECT_TRUE(s.sync.streamWorker());
        EXPECT_EQ(s.sync.state, Sync::Idle);
        EXPECT_EQ(log.texts().back(), "DSICONNECT_REQ ERROR ");
        EXPECT_FALSE(log.has(3, "wth udp send error 10051"));
    }
}

TEST(StreamDrain, AClosingPacketThatPassesAgainAsksAnew) {
    // A ring of 32, a turn every 32 ms from 16 ms on. The closing packet goes out at 48 ms and its
    // slot again at 1072 ms; feedback is asked for at 208, 432, 656, 880 and 1104 ms.
    Ending s(200000);
    s.sync.profiles[0] = Session::fixRow(32000, 1);
    s.target.answers.erase(10);
    s.disconnectAt(600);
    s.say(1080000, feedbackSays(0));  // to the request of 880 ms, which no longer counts
    s.say(1110000, feedbackSays(0));
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.requests(12), 1);
    EXPECT_EQ(s.network.time.time() - s.begin, 1110100u);
}

}  // namespace
