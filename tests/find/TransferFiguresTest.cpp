// What a transfer tells of itself: each way to end once, and the counts.
#include <set>

#include "tests/find/TransferPeer.h"

namespace velmora_test {
namespace {

using VELMORA::TransferEnd;
using VELMORA::TransferFigures;
using Answer = TransferPeer::Answer;

class TransferCounts : public TransferTest {
protected:
    TransferCounts() { peer.geometry = {4, 65535, 8, 8, 16}; }
};

TEST_F(TransferCounts, EveryEndIsReached) {
    struct Case {
        const char* why;
        TransferEnd end;
        std::function<void()> script;
    };
    const Case cases[] = {
        {"all is well", TransferEnd::complete, [] {}},
        {"no answer", TransferEnd::notOpened,
         [&] { peer.onCount = [](Answer& a) { a.silence(); }; }},
        {"no channels", TransferEnd::noSuchChannel, [&] { peer.geometry.channels = 0; }},
        {"a small channel", TransferEnd::tooLarge, [&] { peer.geometry.blocks = 1; }},
        {"the send", TransferEnd::sendFailed,
         [&] { progress = [&](std::uint16_t, std::uint16_t) { network.sendError = 10051; }; }},
        {"the wait", TransferEnd::waitFailed,
         [&] { peer.onBurst = [&](Answer&) { network.waitFails = true; }; }},
        {"the receive", TransferEnd::receiveFailed,
         [&] { peer.onBurst = [&](Answer&) { network.receiveFails = true; }; }},
        {"a refused burst", TransferEnd::refused,
         [&] { peer.onBurst = [](Answer& a) { a.refuse(); }; }},
        {"another channel", TransferEnd::wrongChannel,
         [&] { peer.onBurst = [](Answer& a) { a.set(8, 9); }; }},
        {"no acknowledgement", TransferEnd::unheard,
         [&] { peer.onBurst = [](Answer& a) { a.silence(); }; }},
        {"another checksum", TransferEnd::notClosed,
         [&] { peer.onEnd = [](Answer& a) { a.set(10, 1); }; }},
        {"a status", TransferEnd::notTaken, [&] { peer.status = 3; }},
    };
    std::set<TransferEnd> reached;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        peer.forget();
        peer.geometry = {4, 65535, 8, 8, 16};
        peer.status = 65535;
        peer.onCount = peer.onChannel = peer.onBurst = peer.onEnd = nullptr;
        progress = nullptr;
        c.script();
        EXPECT_EQ(send(pattern(100)), c.end == TransferEnd::complete);
        EXPECT_EQ(figures.end, c.end);
        reached.insert(figures.end);
        network.sendError = 0;
        network.waitFails = network.receiveFails = false;
    }
    EXPECT_EQ(reached.size(), 12u);
}

TEST_F(TransferCounts, FirstCopiesAndThoseSentAgainAreKeptApart) {
    peer.onBurst = [](Answer& a) {
        if (a.turn == 0) a.set(10, 5);   // 5, 6, 7 again
        if (a.turn == 1) a.silence();    // and once more
        if (a.turn == 3) a.set(10, 15);  // true: the last is 15
        if (a.turn == 4) a.set(10, 99);  // the last of 16, 17 again
    };
    EXPECT_TRUE(send(pattern(8 * 18)));
    EXPECT_EQ(figures.channels, 4);
    EXPECT_EQ(figures.capacity, 8u * 8 * 16);
    EXPECT_EQ(figures.bytesSent, 8u * 18);
    EXPECT_EQ(figures.packets, 18u);
    EXPECT_EQ(figures.bursts, 3u);
    EXPECT_EQ(figures.resends, 3u);
    EXPECT_EQ(figures.packetsResent, 3u + 3 + 1);
    EXPECT_EQ(figures.burstLimit, ~0ull - 3000);
    EXPECT_EQ(peer.packets.size(), 18u + 7);
}

TEST_F(TransferCounts, OfAnEmptyBufferAreZero) {
    EXPECT_TRUE(send({}));
    EXPECT_EQ(figures.end, TransferEnd::complete);
    EXPECT_EQ(figures.bytesSent, 0u);
    EXPECT_EQ(figures.packets, 0u);
    EXPECT_EQ(figures.bursts, 0u);
    EXPECT_EQ(figures.resends, 0u);
    EXPECT_EQ(figures.packetsResent, 0u);
}

TEST_F(TransferCounts, OfAnEarlierTransferAreForgotten) {
    peer.onBurst = [](Answer& a) {
        if (a.turn == 0) a.silence();
    };
    peer.status = 9;
    EXPECT_FALSE(send(pattern(100)));
    EXPECT_EQ(figures.resends, 1u);
    EXPECT_EQ(figures.status, 9);
    peer.onCount = [](Answer& a) { a.refuse(); };
    EXPECT_FALSE(send(pattern(100)));
    EXPECT_EQ(figures.end, TransferEnd::notOpened);
    EXPECT_EQ(figures.result, VELMORA::ackRefused);
    EXPECT_EQ(figures.channels, 0);
    EXPECT_EQ(figures.capacity, 0u);
    EXPECT_EQ(figures.status, 0);
    EXPECT_EQ(figures.bytesSent, 0u);
    EXPECT_EQ(figures.packets, 0u);
    EXPECT_EQ(figures.bursts, 0u);
    EXPECT_EQ(figures.resends, 0u);
    EXPECT_EQ(figures.packetsResent, 0u);
    EXPECT_EQ(figures.burstLimit, 0u);
}

}  // namespace
}  // namespace velmora_test
