// A burst that goes out again: which packets, in which bytes, and how often.
#include <algorithm>
#include <set>

#include "tests/find/TransferPeer.h"

namespace velmora_test {
namespace {

using VELMORA::TransferEnd;
using Answer = TransferPeer::Answer;

class TransferResend : public TransferTest {
protected:
    TransferResend() { peer.geometry = {4, 65535, 8, 8, 16}; }

    std::vector<std::uint16_t> seqs(std::size_t turn) const {
        std::vector<std::uint16_t> out;
        for (const TransferPacket& packet : round(turn)) out.push_back(packet.seq);
        return out;
    }
    // Answers by these numbers one after another, then by the truth. Nothing: silence.
    void tell(std::vector<int> acks) {
        peer.onBurst = [acks = std::move(acks)](Answer& a) {
            if (static_cast<std::size_t>(a.turn) >= acks.size()) return;
            const int ack = acks[static_cast<std::size_t>(a.turn)];
            if (ack == silence) {
                a.silence();
            } else if (ack != truth) {
                a.set(10, static_cast<std::uint16_t>(ack));
            }
        };
    }
    static constexpr int silence = -1, truth = -2;
};

TEST_F(TransferResend, GoesFromTheAcknowledgedSeqAndTheLastAlways) {
    struct Case {
        const char* why;
        int ack;
        std::vector<std::uint16_t> resent;
    };
    const Case cases[] = {
        {"nothing was ever acknowledged", silence, {0, 1, 2, 3, 4, 5, 6, 7}},
        {"the first", 0, {0, 1, 2, 3, 4, 5, 6, 7}},
        {"the one acknowledged goes again", 3, {3, 4, 5, 6, 7}},
        {"the last but one", 6, {6, 7}},
        {"beyond the burst: the last alone", 9, {7}},
        {"far beyond", 65535, {7}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        peer.forget();
        tell({c.ack});
        EXPECT_TRUE(send(pattern(128)));
        EXPECT_EQ(seqs(1), c.resent);
        EXPECT_THAT(seqs(2), ElementsAre(8, 9, 10, 11, 12, 13, 14, 15));
        EXPECT_EQ(figures.packetsResent, c.resent.size());
    }
}

TEST_F(TransferResend, GoesByTheLastAcknowledgementThatCame) {
    tell({truth, silence, 12, silence, 10, 3, 20});
    EXPECT_TRUE(send(pattern(128)));
    EXPECT_THAT(seqs(2), ElementsAre(8, 9, 10, 11, 12, 13, 14, 15)) << "7, of the burst before";
    EXPECT_THAT(seqs(3), ElementsAre(12, 13, 14, 15));
    EXPECT_THAT(seqs(4), ElementsAre(12, 13, 14, 15)) << "12 still holds";
    EXPECT_THAT(seqs(5), ElementsAre(10, 11, 12, 13, 14, 15));
    EXPECT_THAT(seqs(6), ElementsAre(8, 9, 10, 11, 12, 13, 14, 15)) << "3 is before the burst";
    EXPECT_THAT(seqs(7), ElementsAre(15)) << "20 is behind it";
}

TEST_F(TransferResend, CarriesTheSameHeader) {
    peer.geometry.burstLimit = 24;
    tell({silence, truth, silence, truth, 4});
    EXPECT_TRUE(send(pattern(128), 0, 2));
    std::vector<Bytes> first(16);
    for (const TransferPacket& packet : peer.packets) {
        const Bytes header(packet.datagram.begin(), packet.datagram.begin() + 16);
        Bytes& before = first.at(packet.seq);
        if (before.empty()) before = header;
        EXPECT_EQ(header, before) << packet.seq;
    }
    EXPECT_EQ(peer.received(), pattern(128));
}

// The plain comparison of 16 bits, on a burst that runs over the wrap.
TEST_F(TransferResend, LeavesOutWhatStandsBehindTheWrap) {
    peer.geometry = {4, 8000, 8, 60'000, 2};
    ZENNO::logLevel = 6;
    bool once = false;
    peer.onBurst = [&](Answer& a) {
        if (wordAt(a.request, 10) != 463 || peer.packets.size() < 60'000 || once) return;
        once = true;
        a.set(10, 65500);
    };
    EXPECT_TRUE(send(pattern(66'000 * 8)));
    const auto resent = seqs(66);  // burst 65 begins at 65000
    ASSERT_EQ(resent.size(), 37u);
    for (std::size_t i = 0; i < 36; ++i) EXPECT_EQ(resent[i], 65500 + i);
    EXPECT_EQ(resent[36], 463) << "the last always goes";
    EXPECT_TRUE(log.has(6, "Retry Detect err 463 65500"));
}

// The first packet behind the wrap is below the 65535 acknowledged: it never goes again.
TEST_F(TransferResend, NeverBringsWhatIsLostRightBehindTheWrap) {
    peer.geometry = {4, 65535, 8, 65536, 2};
    ZENNO::logLevel = 6;
    bool lost = false;
    network.fate = [&](const Datagram& d) {
        if (d.toPeer && wordAt(d.data, 4) == 28 && wordAt(d.data, 14) == 1 && !lost) {
            lost = true;
            return Fate{};
        }
        return Fate{{network.delay, std::nullopt}};
    };
    EXPECT_FALSE(send(pattern(65'536 * 8 + 80)));
    EXPECT_TRUE(log.has(3, "Transfer error 11"));
    for (std::size_t turn = 65; turn < 75; ++turn) EXPECT_THAT(seqs(turn), ElementsAre(9));
    EXPECT_TRUE(seqs(75).empty());
}

// The acknowledgement of the burst before still holds where none came for this one.
TEST_F(TransferResend, InSilenceBehindTheWrapSendsTheLastAlone) {
    peer.geometry = {4, 65535, 8, 65536, 2};
    ZENNO::logLevel = 6;
    peer.onBurst = [](Answer& a) {
        if (a.turn == 64) a.silence();
    };
    EXPECT_TRUE(send(pattern(65'536 * 8 + 80)));
    EXPECT_EQ(seqs(64).size(), 10u);
    EXPECT_THAT(seqs(65), ElementsAre(9));
}

// ---- bytes ----

TEST_F(TransferResend, IsSometimesEightBytesLonger) {
    for (std::uint32_t bytes = 1; bytes <= 24; ++bytes) {
        SCOPED_TRACE(bytes);
        std::set<std::size_t> allowed;
        for (std::size_t r = 0; r < 4; ++r) allowed.insert((bytes + r + 23) & 0xfff8);
        peer.forget();
        peer.geometry = {4, 65535, bytes, 64, 1};
        tell({0, 0, 0, 0, 0});
        send(pattern(64 * bytes));
        std::set<std::size_t> seen;
        for (std::size_t turn = 1; turn < 6; ++turn) {
            ASSERT_EQ(round(turn).size(), 64u);
            for (const TransferPacket& packet : round(turn)) {
                seen.insert(packet.datagram.size());
                const std::size_t length = packet.sizeWord & 0xfff8u;
                EXPECT_EQ(length, (bytes + 23) & 0xfff8);
                EXPECT_EQ(packet.sizeWord & 7, (8 - bytes % 8) % 8);
                EXPECT_EQ(packet.data.size(), bytes);
                for (std::size_t at = length; at < packet.datagram.size(); ++at) {
                    EXPECT_EQ(packet.datagram[at], 0) << "no stranger's byte";
                }
            }
        }
        EXPECT_EQ(seen, allowed) << "of 320 packets";
    }
}

TEST_F(TransferResend, KeepsTheDataOfAPacketWithoutFiller) {
    peer.geometry.packetBytes = 24;
    tell({0, 0, silence});
    EXPECT_TRUE(send(pattern(24 * 8)));
    for (std::size_t turn = 0; turn < 4; ++turn) {
        Bytes data;
        for (const TransferPacket& packet : round(turn)) {
            data.insert(data.end(), packet.data.begin(), packet.data.end());
        }
        EXPECT_EQ(data, pattern(24 * 8)) << turn;
    }
}

// The eight bytes in front of the end of the whole length are wiped, data or not.
TEST_F(TransferResend, WipesTheTailOfAPacketWithFiller) {
    for (std::size_t size = 1; size <= 17; ++size) {
        SCOPED_TRACE(size);
        peer.forget();
        peer.geometry = {4, 65535, 32, 2, 1};
        tell({silence, silence});
        const Bytes data = pattern(32 + size);
        EXPECT_TRUE(send(data)) << "the target has the first copy";
        const std::size_t kept = size % 8 == 0 ? size : size - size % 8;
        for (const std::size_t turn : {std::size_t{1}, std::size_t{2}}) {
            ASSERT_EQ(round(turn).size(), 2u);
            EXPECT_EQ(round(turn)[0].data, Bytes(data.begin(), data.begin() + 32));
            Bytes expected(data.begin() + 32, data.end());
            std::fill(expected.begin() + static_cast<std::ptrdiff_t>(kept), expected.end(),
                      std::uint8_t{0});
            EXPECT_EQ(round(turn)[1].data, expected);
        }
    }
}

TEST_F(TransferResend, OfAShortLastPacketFailsAtTheChecksumOnPurpose) {
    peer.geometry = {4, 2048, 1024, 8, 16};
    bool lost = false;
    network.fate = [&](const Datagram& d) {
        if (d.toPeer && wordAt(d.data, 4) == 28 && wordAt(d.data, 10) == 9 && !lost) {
            lost = true;
            return Fate{};
        }
        return Fate{{network.delay, std::nullopt}};
    };
    const Bytes data = pattern(9 * 1024 + 781);
    EXPECT_FALSE(send(data));
    EXPECT_THAT(logged(3), ElementsAre("TransferFinish error "));
    EXPECT_EQ(figures.end, TransferEnd::notClosed);
    Bytes expected = data;  // 781 bytes have 3 of filler: 5 bytes of data go with them
    std::fill(expected.end() - 5, expected.end(), std::uint8_t{0});
    EXPECT_EQ(peer.received(), expected);
}

TEST_F(TransferResend, OfALastPacketWithoutFillerArrivesWhole) {
    peer.geometry = {4, 2048, 1024, 8, 16};
    bool lost = false;
    network.fate = [&](const Datagram& d) {
        if (d.toPeer && wordAt(d.data, 4) == 28 && wordAt(d.data, 10) == 9 && !lost) {
            lost = true;
            return Fate{};
        }
        return Fate{{network.delay, std::nullopt}};
    };
    EXPECT_TRUE(send(pattern(10'000)));  // 784 at the end
    EXPECT_EQ(peer.received(), pattern(10'000));
}

// ---- lines ----

TEST_F(TransferResend, IsToldPacketByPacket) {
    peer.geometry = {4, 65535, 16, 3, 4};
    tell({truth, 4});
    EXPECT_TRUE(send(pattern(48 + 32 + 8)));
    const auto lines = logged(6);
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[1], "Retry Detect err 5 4");
    EXPECT_EQ(lines[2], "resend 3") << "packets of the burst, not those that go";
    const auto size = [&](std::size_t i) { return std::to_string(round(2).at(i).datagram.size()); };
    EXPECT_EQ(lines[3], "resend 1 1 4 data=16 packet=" + size(0));
    EXPECT_EQ(lines[4], "resend 1 2 5 data=8 packet=" + size(1));
    EXPECT_EQ(lines[5], "compleat Transfer ");
}

// ---- how often ----

TEST_F(TransferResend, HappensTenTimesAtMost) {
    tell(std::vector<int>(10, silence));
    EXPECT_TRUE(send(pattern(64)));
    EXPECT_EQ(log.count("resend 8"), 10);
    EXPECT_THAT(logged(3), IsEmpty());
    EXPECT_EQ(figures.resends, 10u);

    peer.forget();
    tell(std::vector<int>(11, silence));
    EXPECT_FALSE(send(pattern(64)));
    EXPECT_THAT(logged(3), ElementsAre("Transfer error 11"));
    EXPECT_EQ(logged(6).back(), "resend 8") << "told, but nothing goes";
    EXPECT_EQ(log.count("resend 8"), 11);
    EXPECT_EQ(peer.packets.size(), 88u);
    EXPECT_EQ(figures.end, TransferEnd::unheard);
    EXPECT_EQ(figures.resends, 10u);
}

TEST_F(TransferResend, IsCountedForEachBurstAnew) {
    std::vector<int> acks(10, silence);
    acks.push_back(truth);
    acks.insert(acks.end(), 10, 9);
    tell(acks);
    EXPECT_TRUE(send(pattern(128)));
    EXPECT_EQ(figures.resends, 20u);
    EXPECT_EQ(figures.bursts, 2u);
}

TEST_F(TransferResend, InVainForSilenceTakesElevenWaitsAndElevenQuiets) {
    peer.geometry.burstLimit = 2048;
    peer.onBurst = [](Answer& a) { a.silence(); };
    Find& find = opened();
    EXPECT_EQ(duration([&] { find.Transfer(address, 0, pattern(64), 0, {}, figures); }),
              2 * 100u + 11 * (100'000u + 10'000u));
    EXPECT_THAT(logged(3), ElementsAre("Transfer error 11"));
    EXPECT_EQ(figures.burstLimit, 39u) << "2048, 1048, 48, and then by one";
    for (std::size_t turn = 1; turn < 11; ++turn) {
        EXPECT_EQ(round(turn).at(0).time - round(turn - 1).at(0).time, 110'000u);
        EXPECT_EQ(round(turn).size(), 8u) << "the burst does not shrink";
    }
}

TEST_F(TransferResend, InVainForRefusedNumbersTakesElevenQuiets) {
    peer.onBurst = [](Answer& a) { a.set(10, 100); };
    Find& find = opened();
    EXPECT_EQ(duration([&] { find.Transfer(address, 0, pattern(64), 0); }),
              2 * 100u + 11 * (100u + 10'000u));
    EXPECT_EQ(log.count("Retry Detect err 7 100"), 11);
    EXPECT_THAT(logged(3), ElementsAre("Transfer error 11"));
}

TEST_F(TransferResend, ToOneThatVanishesEndsLikeSilence) {
    peer.onBurst = [&](Answer& a) {
        if (a.turn == 1) network.attach(address, nullptr);
    };
    EXPECT_FALSE(send(pattern(64 * 5)));
    EXPECT_THAT(logged(3), ElementsAre("Transfer error 11"));
    EXPECT_EQ(figures.end, TransferEnd::unheard);
    EXPECT_EQ(figures.bursts, 3u);
}

}  // namespace
}  // namespace velmora_test
