// The wait for a burst's acknowledgement: everything that can come, and the quiet that follows a
// loss.
#include "tests/find/TransferPeer.h"
#include "tests/wire/Hex.h"

namespace velmora_test {
namespace {

using VELMORA::TransferEnd;
using Answer = TransferPeer::Answer;

class TransferAwait : public TransferTest {
protected:
    TransferAwait() { peer.geometry = {4, 65535, 8, 8, 16}; }

    // A script for the first burst alone.
    void atFirstBurst(const TransferPeer::Script& script) {
        peer.onBurst = [script](Answer& a) {
            if (a.turn == 0) script(a);
        };
    }
    // µs from the sending of the first burst to that of the next one, or the first one again.
    std::uint64_t secondAfter() const {
        const auto first = round(0), second = round(1);
        return second.empty() ? 0 : second.at(0).time - first.at(0).time;
    }
    const Bytes data = pattern(128);  // two bursts of eight packets
    const std::uint16_t lastSeq = 7;  // of the first
};

constexpr std::uint32_t wholeWait = 100'000, quiet = 10'000, trip = 100;

TEST_F(TransferAwait, TheLastSeqEndsTheBurst) {
    EXPECT_TRUE(send(data));
    EXPECT_THAT(logged(6),
                ElementsAre("start Transfer 128 18446744073709551615", "compleat Transfer "));
    EXPECT_EQ(secondAfter(), trip) << "at once";
    EXPECT_EQ(figures.burstLimit, ~0ull) << "nothing shrinks";
}

TEST_F(TransferAwait, OneAboveTheLastSeqEndsTheBurstToo) {
    atFirstBurst([](Answer& a) { a.set(10, 8); });
    EXPECT_TRUE(send(data));
    EXPECT_THAT(logged(6), ElementsAre("start Transfer 128 18446744073709551615",
                                       "Retry Redy Pass 7 8", "compleat Transfer "));
    EXPECT_EQ(secondAfter(), trip);
    EXPECT_EQ(peer.packets.size(), 16u);
    EXPECT_EQ(figures.burstLimit, ~0ull);
}

TEST_F(TransferAwait, OneAbove65535DoesNotWrapToZero) {
    peer.geometry = {4, 65535, 1, 65536, 2};
    ZENNO::logLevel = 6;
    bool once = false;
    peer.onBurst = [&](Answer& a) {
        if (wordAt(a.request, 10) != 65535 || once) return;
        once = true;
        a.set(10, 0);
    };
    // Of zeros, for a resent packet of one byte loses it.
    EXPECT_TRUE(send(Bytes(65537)));
    EXPECT_TRUE(log.has(6, "Retry Detect err 65535 0"));
    EXPECT_EQ(log.count("resend 1024"), 1);
    EXPECT_EQ(round(64).size(), 1024u) << "none is below 0";
}

TEST_F(TransferAwait, AnyOtherSeqIsALoss) {
    for (const std::uint16_t told : Words{0, 5, 6, 9, 10, 32768, 65535}) {
        SCOPED_TRACE(told);
        peer.forget();
        atFirstBurst([told](Answer& a) { a.set(10, told); });
        EXPECT_TRUE(send(data));
        EXPECT_TRUE(log.has(6, "Retry Detect err 7 " + std::to_string(told)));
        EXPECT_EQ(secondAfter(), trip + quiet);
        EXPECT_EQ(figures.resends, 1u);
    }
}

TEST_F(TransferAwait, TellsTheLossBeforeTheResend) {
    peer.geometry = {4, 2048, 256, 16, 16};
    atFirstBurst([](Answer& a) { a.set(10, 5); });  // the last is 7
    EXPECT_TRUE(send(pattern(13 * 256)));
    const auto lines = logged(6);
    ASSERT_EQ(lines.size(), 7u);
    EXPECT_EQ(lines[0], "start Transfer 3328 2048");
    EXPECT_EQ(lines[1], "Retry Detect err 7 5");
    EXPECT_EQ(lines[2], "resend 8");
    for (std::size_t i = 3; i < 6; ++i) {
        const std::string seq = std::to_string(i + 2);
        const TransferPacket packet = round(1).at(i - 3);
        EXPECT_EQ(lines[i], "resend 0 " + seq + " " + seq +
                                " data=256 packet=" + std::to_string(packet.datagram.size()));
    }
    EXPECT_EQ(lines[6], "compleat Transfer ");
    EXPECT_EQ(secondAfter(), trip + quiet);
    EXPECT_EQ(figures.burstLimit, 1048u);
    EXPECT_EQ(round(2).size(), 5u) << "the next burst closes at 1048 bytes";
}

TEST_F(TransferAwait, SilenceIsALossWithoutALineOfItsOwn) {
    atFirstBurst([](Answer& a) { a.silence(); });
    EXPECT_TRUE(send(data));
    EXPECT_EQ(secondAfter(), wholeWait + quiet);
    const auto lines = logged(6);
    ASSERT_EQ(lines.size(), 11u);
    EXPECT_EQ(lines[1], "resend 8");
}

TEST_F(TransferAwait, ARefusalEndsTheTransfer) {
    struct Case {
        const char* why;
        std::uint16_t flags, channel, seq;
    };
    constexpr Case cases[] = {
        {"no flag at all", 0, 1, 7},
        {"every flag but bit 0", 0xfffe, 1, 7},
        {"for another channel: the refusal is seen first", 0, 2, 7},
        {"with another seq", 0, 1, 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        peer.forget();
        atFirstBurst([c](Answer& a) {
            a.set(6, c.flags);
            a.set(8, c.channel);
            a.set(10, c.seq);
        });
        EXPECT_FALSE(send(data));
        EXPECT_THAT(logged(3), ElementsAre("Transfer NAK error "));
        EXPECT_EQ(logged(6).size(), 1u);
        EXPECT_EQ(figures.end, TransferEnd::refused);
        EXPECT_EQ(peer.packets.size(), 8u);
        EXPECT_EQ(peer.requests.size(), 2u) << "nothing is closed";
    }
}

TEST_F(TransferAwait, ARefusalIsReadFromTheseBytes) {
    atFirstBurst(
        [](Answer& a) { a.datagrams = {hex("6400 1000 1d00 0000  0100 0700 0000 0000")}; });
    EXPECT_FALSE(send(data));
    EXPECT_THAT(logged(3), ElementsAre("Transfer NAK error "));
}

TEST_F(TransferAwait, AnotherChannelEndsTheTransfer) {
    for (const std::uint16_t channel : Words{0, 2, 0x8001, 65535}) {
        SCOPED_TRACE(channel);
        peer.forget();
        atFirstBurst([channel](Answer& a) { a.set(8, channel); });
        EXPECT_FALSE(send(data));
        EXPECT_THAT(logged(3), ElementsAre("Transfer NO error "));
        EXPECT_EQ(figures.end, TransferEnd::wrongChannel);
        EXPECT_EQ(peer.packets.size(), 8u);
        EXPECT_EQ(peer.requests.size(), 2u);
    }
}

TEST_F(TransferAwait, OnlyBitZeroOfTheFlagsIsRead) {
    atFirstBurst([](Answer& a) { a.set(6, 0xffff); });
    EXPECT_TRUE(send(data));
    EXPECT_EQ(figures.resends, 0u);
}

TEST_F(TransferAwait, TheSenderIsNotCompared) {
    for (const IPAddress& from : {control(9), linkLocal(1, 5), control(1, 7)}) {
        SCOPED_TRACE(from.text());
        peer.forget();
        peer.onBurst = [from](Answer& a) { a.from = from; };
        EXPECT_TRUE(send(data));
        EXPECT_EQ(figures.resends, 0u);
    }
    peer.forget();
    atFirstBurst([](Answer& a) {
        a.from = control(9);
        a.refuse();
    });
    EXPECT_FALSE(send(data)) << "a refusal of a stranger's";
    EXPECT_EQ(figures.end, TransferEnd::refused);
}

TEST_F(TransferAwait, SurplusBehindTheAcknowledgementIsAllowed) {
    atFirstBurst([](Answer& a) { a.datagrams.at(0).resize(1600, 0xee); });
    EXPECT_TRUE(send(data));
    EXPECT_EQ(figures.resends, 0u);
}

struct Noise {
    const char* why;
    Bytes datagram;
};
std::vector<Noise> noises() {
    Bytes fifteen = plainDatagram(29, 0, 9);
    fifteen.pop_back();
    Bytes magic = plainDatagram(29, 0, 9);
    magic[0] = 101;
    Bytes tooLong = plainDatagram(29, 0, 9);
    tooLong[2] = 0x18;
    return {
        {"an empty one", {}},
        {"15 bytes", fifteen},
        {"another magic", magic},
        {"a size beyond what came", tooLong},
        {"a count's answer", plainDatagram(27, 1, 4, 65535)},
        {"a refused one", plainDatagram(27, 0)},
        {"the data's own id", plainDatagram(28, 0, 1, 7)},
        {"an end's answer", plainDatagram(31, 1, 1, 0, 65535)},
        {"the id in the low byte alone", plainDatagram(0x011d, 1, 1, 7)},
    };
}

// None of them shortens or lengthens the wait.
TEST_F(TransferAwait, WhatIsNoAcknowledgementIsIgnoredWhileTheTimeRuns) {
    for (const Noise& noise : noises()) {
        SCOPED_TRACE(noise.why);
        peer.forget();
        atFirstBurst([&](Answer& a) {
            a.silence();
            for (const std::uint32_t at : Delays{0, 30'000, 60'000, 99'000, 99'899}) {
                later(at, noise.datagram, address);
            }
        });
        EXPECT_TRUE(send(data));
        EXPECT_EQ(secondAfter(), wholeWait + quiet);
        EXPECT_THAT(logged(3), IsEmpty());
        EXPECT_EQ(figures.resends, 1u);
    }
}

TEST_F(TransferAwait, TheAcknowledgementBehindNoiseIsTaken) {
    for (const Noise& noise : noises()) {
        SCOPED_TRACE(noise.why);
        peer.forget();
        atFirstBurst([&](Answer& a) {
            for (const std::uint32_t at : Delays{1'000, 50'000, 90'000}) {
                later(at, noise.datagram, address);
            }
            a.delay = 99'000;
        });
        EXPECT_TRUE(send(data));
        EXPECT_EQ(secondAfter(), 99'000 + trip);
        EXPECT_EQ(figures.resends, 0u);
    }
}

TEST_F(TransferAwait, TakesAHundredMillisecondsAndNoMore) {
    struct Case {
        const char* why;
        std::uint32_t arrival;  // µs after the burst
        std::uint64_t resends;
    };
    constexpr Case cases[] = {
        {"just in time", 99'999, 0},
        {"at the limit, which has not passed", 100'000, 0},
        {"just too late", 100'001, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        peer.forget();
        atFirstBurst([&](Answer& a) { a.delay = c.arrival - trip; });
        EXPECT_TRUE(send(data));
        EXPECT_EQ(figures.resends, c.resends);
    }
}

// A stale acknowledgement is one like any other: it tells of a loss.
TEST_F(TransferAwait, AnAcknowledgementThatCameTwiceCostsAResend) {
    atFirstBurst([](Answer& a) { a.datagrams.push_back(a.datagrams[0]); });
    EXPECT_TRUE(send(data));
    EXPECT_TRUE(log.has(6, "Retry Detect err 15 7"));
    EXPECT_EQ(figures.resends, 1u);
    EXPECT_EQ(round(2).size(), 8u) << "all of the second burst";
}

// ---- the quiet ----

TEST_F(TransferAwait, TheQuietStartsAnewWithEveryDatagram) {
    atFirstBurst([&](Answer& a) {
        a.set(10, 3);
        for (const std::uint32_t at : Delays{5'000, 14'000, 23'999}) {
            later(at, plainDatagram(29, 1, 1, 7), address);
        }
    });
    EXPECT_TRUE(send(data));
    EXPECT_EQ(secondAfter(), trip + 23'999 + quiet);
    EXPECT_THAT(logged(6).at(1), "Retry Detect err 7 3");
    EXPECT_EQ(round(1).size(), 5u) << "from 3 on: what came later was thrown away";
}

TEST_F(TransferAwait, NothingThatComesIntoTheQuietIsRead) {
    const Bytes thrown[] = {plainDatagram(29, 0, 1, 7),
                            plainDatagram(29, 1, 2, 7),
                            plainDatagram(29, 1, 1, 7),
                            plainDatagram(29, 1, 1, 8),
                            plainDatagram(31, 0),
                            Bytes{},
                            Bytes(2000)};
    for (const Bytes& datagram : thrown) {
        SCOPED_TRACE(asHex(datagram));
        peer.forget();
        atFirstBurst([&](Answer& a) {
            a.silence();
            later(wholeWait + 5'000 - trip, datagram, address);
        });
        EXPECT_TRUE(send(data));
        EXPECT_EQ(secondAfter(), wholeWait + 5'000 + quiet);
        EXPECT_EQ(round(1).size(), 8u);
        EXPECT_THAT(logged(3), IsEmpty());
    }
}

TEST_F(TransferAwait, TheQuietIsTenMilliseconds) {
    for (const std::uint32_t gap : Delays{9'999u, 10'001u}) {
        SCOPED_TRACE(gap);
        peer.forget();
        atFirstBurst([&](Answer& a) {
            a.set(10, 3);
            later(gap, plainDatagram(27, 0), address);
        });
        EXPECT_TRUE(send(data));
        EXPECT_EQ(secondAfter(), gap < quiet ? trip + gap + quiet : trip + quiet);
    }
}

TEST_F(TransferAwait, ABusyLineIsWaitedFor) {
    atFirstBurst([&](Answer& a) {
        a.set(10, 3);
        for (std::uint32_t n = 1; n <= 200; ++n) later(n * 9'000, plainDatagram(27, 0), address);
    });
    EXPECT_TRUE(send(data));
    EXPECT_EQ(secondAfter(), trip + 200 * 9'000 + quiet);
}

TEST_F(TransferAwait, ALineThatIsNeverQuietEndsTheTransfer) {
    peer.onBurst = [&](Answer& a) {
        a.set(10, 3);
        for (std::uint32_t n = 1; n <= 3000; ++n) later(n * 9'000, plainDatagram(27, 0), address);
    };
    EXPECT_FALSE(send(data));
    EXPECT_EQ(logged(6).back(), "Retry Clear Error ");
    EXPECT_EQ(figures.end, TransferEnd::waitFailed);
    EXPECT_EQ(peer.packets.size(), 8u);
}

// ---- the shrinking limit ----

TEST_F(TransferAwait, EveryLossShrinksTheLimit) {
    struct Case {
        const char* why;
        std::uint16_t limit;
        int losses;
        std::uint64_t left;
    };
    constexpr Case cases[] = {
        {"by a thousand", 2048, 1, 1048},
        {"by a thousand again", 2048, 2, 48},
        {"then by one", 2048, 3, 47},
        {"and by one again", 2048, 10, 40},
        {"above a thousand", 1001, 1, 1},
        {"a thousand is not above it", 1000, 1, 999},
        {"two", 2, 1, 1},
        {"one can shrink no further", 1, 1, 1},
        {"however often", 1, 10, 1},
        {"nor can none", 0, 3, 0},
        {"no limit is a number", 65535, 1, ~0ull - 1000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        for (const bool silent : {false, true}) {
            peer.forget();
            peer.geometry = {4, c.limit, 8, 8, 16};
            peer.onBurst = [&](Answer& a) {
                if (a.turn >= c.losses) return;
                if (silent) {
                    a.silence();
                } else {
                    a.set(10, 40'000);
                }
            };
            EXPECT_TRUE(send(data));
            EXPECT_EQ(figures.burstLimit, c.left);
        }
    }
}

TEST_F(TransferAwait, TheShrunkenLimitClosesTheNextBurstsOnly) {
    peer.geometry = {4, 2000, 500, 100, 1};
    peer.onBurst = [](Answer& a) {
        if (a.turn == 0 || a.turn == 2) a.silence();
    };
    EXPECT_TRUE(send(pattern(5000)));
    std::vector<std::size_t> rounds;
    for (std::size_t turn = 0; !round(turn).empty(); ++turn) rounds.push_back(round(turn).size());
    // 2000 bytes: 4, and 4 again; then 1000: 2, and 2 again; then 999: 2, 2.
    EXPECT_THAT(rounds, ElementsAre(4, 4, 2, 2, 2, 2));
    EXPECT_THAT(peer.marked(), ElementsAre(3, 3, 5, 5, 7, 9));
    EXPECT_EQ(figures.burstLimit, 999u);
}

TEST_F(TransferAwait, TheShrunkenLimitHoldsInTheNextBlocks) {
    peer.geometry = {4, 2000, 500, 4, 10};
    peer.onBurst = [](Answer& a) {
        if (a.turn == 0) a.silence();
    };
    EXPECT_TRUE(send(pattern(6000)));
    EXPECT_THAT(peer.marked(), ElementsAre(3, 3, 5, 7, 9, 11));
}

}  // namespace
}  // namespace velmora_test
