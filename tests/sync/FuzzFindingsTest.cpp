// What the fuzzers of the stream found, each by its symptom.
#include "sync/StreamExchange.h"
#include "tests/sync/StreamHarness.h"

namespace {

using namespace velmora_test;

TEST(FuzzFindings, StrangersThatSpeakNowAndThenMadeTheConnectOutlastWhoeverWaitsForIt) {
    FakeNetwork network;
    const auto link = network.makeLink();
    IPAddress local;
    ASSERT_TRUE(link->open(ZENNO::SocketKind::udpV6) && link->bindV6(local));
    const IPAddress target = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x77}, 5000, 3);
    IPAddress stranger = target;
    stranger.setWord(7, 0x99);
    // Each starts a wait of 10 s anew; the last one comes just before the patience with them ends,
    // and three silent tries would follow.
    for (const std::uint64_t second : {9u, 18u, 27u}) {
        network.time.in(second * 1000000, [&] {
            network.send(stranger, network.sent.front().from, datagram(99, 1));
        });
    }
    network.time.in(34900000,
                    [&] { network.send(stranger, network.sent.front().from, datagram(99, 1)); });
    Bytes answer;
    EXPECT_TRUE(VELMORA::sendAck(*link, network.time, target, datagram(8, 0), 9, answer, 10000000));
    EXPECT_TRUE(answer.empty());
    EXPECT_LT(network.time.time() - FakeClock::start, 50000000u);
}

TEST(FuzzFindings, OneNewPacketASecondHeldUpTheEndOfAStreamForMinutes) {
    Session s(1, 3000);
    s.prepare(Session::varRow(5000, 1, 4));  // a ring of 256
    s.sync.playing = 1;
    s.sync.blocks.push_back(Bytes(2000, 1));  // 500 packets, less the one of silence
    std::uint16_t newest = 0;
    s.target.on(10, [&](const Bytes& packet) -> Datagrams {
        const std::uint16_t sequence = word16(packet, 8);
        if (static_cast<std::int16_t>(sequence - newest) <= 0) return {};
        newest = sequence;
        return {resendFrom(static_cast<std::uint16_t>(sequence - 200))};  // as long as a second
    });
    s.at(600, [&s] { s.sync.enterDisconnecting(); });
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.sync.state, Sync::Idle);
    EXPECT_LT(s.network.time.time() - s.begin, 10000000u);
}

TEST(FuzzFindings, AnEndWithLossesIsStillWaitedFor) {
    // Behind every second packet the last two are asked for again, for longer than a silent target
    // would be given.
    Session s(1, 3000);
    s.prepare(Session::varRow(5000, 1, 4));
    s.sync.playing = 1;
    s.sync.blocks.push_back(Bytes(1600, 1));  // 400 packets, two seconds of them
    std::uint16_t newest = 0;
    s.target.on(10, [&](const Bytes& packet) -> Datagrams {
        const std::uint16_t sequence = word16(packet, 8);
        if (static_cast<std::int16_t>(sequence - newest) <= 0) return {};
        newest = sequence;
        return {sequence % 2 == 0 ? resendFrom(static_cast<std::uint16_t>(sequence - 1))
                                  : feedbackSays(0)};
    });
    s.target.on(12, datagram(13, 1));
    s.at(600, [&s] { s.sync.enterDisconnecting(); });
    EXPECT_TRUE(s.sync.streamWorker());
    std::uint64_t audio = 0;
    std::uint16_t next = 0;
    for (const Session::Sent& packet : s.packets()) {
        if (packet.sequence != next) continue;
        ++next;
        for (const std::uint8_t byte : packet.payload) audio += byte;
    }
    EXPECT_EQ(audio, 1600u) << "all of it went out";
}

}  // namespace
