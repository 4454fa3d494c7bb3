// How a buffer is cut into packets, bursts and blocks, and the bytes that leave.
#include <thread>

#include "tests/find/TransferPeer.h"
#include "tests/wire/Hex.h"

namespace velmora_test {
namespace {

using VELMORA::TransferEnd;

class TransferSend : public TransferTest {
protected:
    // TRANSFER_DATA as it left the host.
    std::vector<Bytes> leaving() const {
        std::vector<Bytes> out;
        for (const Datagram& datagram : sentByHost()) {
            if (wordAt(datagram.data, 4) == 28) out.push_back(datagram.data);
        }
        return out;
    }
    std::vector<std::uint16_t> column(std::uint16_t TransferPacket::*field) const {
        std::vector<std::uint16_t> out;
        for (const TransferPacket& packet : peer.packets) out.push_back(packet.*field);
        return out;
    }
    std::vector<std::size_t> sizes() const {
        std::vector<std::size_t> out;
        for (const TransferPacket& packet : peer.packets) out.push_back(packet.data.size());
        return out;
    }
};

// ---- the bytes ----

// Channel number 2, packets of 8 bytes, two in a block: the bytes 1 to 19.
TEST_F(TransferSend, DataLeavesInTheseBytes) {
    peer.geometry = {4, 65535, 8, 2, 4};
    Bytes data;
    for (std::uint8_t byte = 1; byte <= 19; ++byte) data.push_back(byte);
    EXPECT_TRUE(send(data, 0, 2));
    const auto sent = leaving();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[0], hex("6400 1800 1c00 0000  0300 0000 0000 0000  0102030405060708"));
    EXPECT_EQ(sent[1], hex("6400 1800 1c00 0000  0380 0100 0100 0000  090a0b0c0d0e0f10"))
        << "the last of its burst";
    EXPECT_EQ(sent[2], hex("6400 1d00 1c00 0000  0380 0200 0000 0100  111213 0000000000"))
        << "short, with five bytes of filler, in the second block";
}

TEST_F(TransferSend, TheEndLeavesInTheseBytes) {
    EXPECT_TRUE(send(Bytes{'1', '2', '3', '4', '5', '6', '7', '8', '9'}, 0, 2));
    EXPECT_EQ(sentByHost().back().data, hex("6400 1000 1e00 0000  0300 c8b4 ffff 0000"));
}

TEST_F(TransferSend, AcknowledgementAndEndAreReadFromTheseBytes) {
    peer.onBurst = [](TransferPeer::Answer& a) {
        a.datagrams = {hex("6400 1000 1d00 0100  0300 0000 0000 0000")};
    };
    peer.onEnd = [](TransferPeer::Answer& a) {
        a.datagrams = {hex("6400 1000 1f00 0100  0300 c8b4 ffff 0000")};
    };
    EXPECT_TRUE(send(Bytes{'1', '2', '3', '4', '5', '6', '7', '8', '9'}, 0, 2));
    EXPECT_EQ(peer.packets.size(), 1u);
}

// ---- the cut ----

TEST_F(TransferSend, CutsTenThousandBytes) {
    peer.geometry = {4, 2048, 1024, 8, 16};
    EXPECT_TRUE(opened().Transfer(address, 0, pattern(10'000), 0));
    EXPECT_THAT(column(&TransferPacket::seq), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9));
    EXPECT_THAT(column(&TransferPacket::index), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 0, 1));
    EXPECT_THAT(column(&TransferPacket::block), ElementsAre(0, 0, 0, 0, 0, 0, 0, 0, 1, 1));
    EXPECT_THAT(column(&TransferPacket::word),
                ElementsAre(1, 0x8001, 1, 0x8001, 1, 0x8001, 1, 0x8001, 1, 0x8001));
    EXPECT_THAT(sizes(), ElementsAre(1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024, 784));
    for (const TransferPacket& packet : peer.packets) {
        EXPECT_EQ(packet.sizeWord, packet.data.size() + 16);
        EXPECT_EQ(packet.datagram.size(), packet.data.size() + 16);
    }
    EXPECT_EQ(peer.received(), pattern(10'000));
    EXPECT_THAT(logged(), ElementsAre("6 start Transfer 10000 2048", "7 Transfer 0/16",
                                      "7 Transfer 1/16", "6 compleat Transfer "));
}

TEST_F(TransferSend, SendsNoDataOfAnEmptyBuffer) {
    EXPECT_TRUE(opened().Transfer(address, 0, ZENNO::BufferCS_const{}, 0));
    EXPECT_THAT(peer.packets, IsEmpty());
    ASSERT_EQ(peer.requests.size(), 3u);
    EXPECT_EQ(peer.requests[2], hex("6400 1000 1e00 0000  0100 0000 ffff 0000"));
    EXPECT_THAT(logged(),
                ElementsAre("6 start Transfer 0 18446744073709551615", "6 compleat Transfer "))
        << "and no block begins";
}

TEST_F(TransferSend, ABurstWaitsForTheAcknowledgementOfTheOneBefore) {
    peer.geometry = {4, 2048, 1024, 8, 16};
    EXPECT_TRUE(send(pattern(10'000)));
    std::vector<int> order;  // 28 out, 29 in
    for (const Datagram& datagram : network.sent) {
        const int id = wordAt(datagram.data, 4);
        if (id == 28 || id == 29) order.push_back(id);
    }
    EXPECT_THAT(order, ElementsAre(28, 28, 29, 28, 28, 29, 28, 28, 29, 28, 28, 29, 28, 28, 29));
}

TEST_F(TransferSend, ABurstClosesWhenItsBytesReachTheLimit) {
    struct Case {
        const char* why;
        std::uint16_t limit;
        std::vector<std::uint16_t> marked;
    };
    const Case cases[] = {
        {"no bytes: every packet is a burst", 0, {0, 1, 2, 3, 4, 5, 6, 7}},
        {"one byte", 1, {0, 1, 2, 3, 4, 5, 6, 7}},
        {"a packet", 100, {0, 1, 2, 3, 4, 5, 6, 7}},
        {"one more takes two", 101, {1, 3, 4, 6, 7}},
        {"two packets", 200, {1, 3, 4, 6, 7}},
        {"one more takes three", 201, {2, 4, 7}},
        {"a block", 500, {4, 7}},
        {"more than a block", 65534, {4, 7}},
        {"no limit", 65535, {4, 7}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        peer.packets.clear();
        TransferPeer fresh(network, address);
        fresh.geometry = {4, c.limit, 100, 5, 16};
        EXPECT_TRUE(send(pattern(730)));
        EXPECT_EQ(fresh.marked(), c.marked);
        EXPECT_EQ(fresh.received(), pattern(730));
    }
}

TEST_F(TransferSend, ABurstClosesAtTheStoresEnd) {
    peer.geometry = {4, 65535, 8, 65536, 1};
    EXPECT_TRUE(send(pattern(3000 * 8 - 4)));
    EXPECT_THAT(peer.marked(), ElementsAre(1023, 2047, 2999));
    for (std::size_t i = 0; i < peer.packets.size(); ++i) {
        ASSERT_EQ(peer.packets[i].seq, i);
        ASSERT_EQ(peer.packets[i].index, i) << "the block goes on";
        ASSERT_EQ(peer.packets[i].block, 0);
    }
    EXPECT_EQ(peer.received(), pattern(3000 * 8 - 4));
}

TEST_F(TransferSend, ABlockOfTheStoresSizeIsOneBurst) {
    peer.geometry = {4, 65535, 8, 1024, 4};
    EXPECT_TRUE(send(pattern(2048 * 8)));
    EXPECT_THAT(peer.marked(), ElementsAre(1023, 2047));
    EXPECT_EQ(figures.bursts, 2u);
}

TEST_F(TransferSend, ABlockOfOnePacketIsABurst) {
    peer.geometry = {4, 65535, 16, 1, 100};
    EXPECT_TRUE(send(pattern(70)));
    EXPECT_THAT(column(&TransferPacket::index), ElementsAre(0, 0, 0, 0, 0));
    EXPECT_THAT(column(&TransferPacket::block), ElementsAre(0, 1, 2, 3, 4));
    EXPECT_THAT(peer.marked(), ElementsAre(0, 1, 2, 3, 4));
    EXPECT_THAT(sizes(), ElementsAre(16, 16, 16, 16, 6));
}

TEST_F(TransferSend, PacketsOfOneByteHaveSevenOfFiller) {
    peer.geometry = {4, 65535, 1, 4, 2};
    EXPECT_TRUE(send(pattern(5)));
    EXPECT_EQ(peer.received(), pattern(5));
    for (const TransferPacket& packet : peer.packets) {
        EXPECT_EQ(packet.sizeWord, 0x1f);
        ASSERT_EQ(packet.datagram.size(), 24u);
        for (std::size_t at = 17; at < 24; ++at) EXPECT_EQ(packet.datagram[at], 0);
    }
    EXPECT_THAT(peer.marked(), ElementsAre(3, 4));
}

TEST_F(TransferSend, FillerIsZeroInASlotThatHeldMoreBefore) {
    peer.geometry = {4, 65535, 32, 1, 4};
    EXPECT_TRUE(send(pattern(32 + 17)));
    const auto sent = leaving();
    ASSERT_EQ(sent.size(), 2u);
    ASSERT_EQ(sent[1].size(), 40u);
    EXPECT_EQ(wordAt(sent[1], 2), 0x2f);
    for (std::size_t at = 33; at < 40; ++at) EXPECT_EQ(sent[1][at], 0) << at;
}

TEST_F(TransferSend, AnEndOnTheEdgeOfABlockOpensNoFurtherOne) {
    peer.geometry = {4, 65535, 8, 4, 4};
    EXPECT_TRUE(opened().Transfer(address, 0, pattern(64), 0));
    EXPECT_THAT(logged(7), ElementsAre("Transfer 0/4", "Transfer 1/4"));
    EXPECT_THAT(peer.marked(), ElementsAre(3, 7));
}

// ---- numbers at their ends ----

// 65536 packets in block 0, the rest in block 1: index runs to its end, seq wraps.
TEST_F(TransferSend, NumbersRunToSixteenBits) {
    peer.geometry = {4, 65535, 1, 65536, 2};
    ZENNO::logLevel = 6;
    const Bytes data = pattern(65536 + 1500);
    // The one that ends at 65535 is among them, so the acknowledgement there is the same number.
    EXPECT_TRUE(send(data));
    ASSERT_EQ(peer.packets.size(), data.size());
    for (std::size_t i = 0; i < data.size(); ++i) {
        ASSERT_EQ(peer.packets[i].seq, i & 0xffff);
        ASSERT_EQ(peer.packets[i].index, i & 0xffff);
        ASSERT_EQ(peer.packets[i].block, i >> 16);
    }
    EXPECT_EQ(peer.received(), data);
    EXPECT_EQ(figures.packets, data.size());
}

TEST_F(TransferSend, SeqRunsOverTheBlocks) {
    peer.geometry = {4, 65535, 8, 3, 5};
    EXPECT_TRUE(send(pattern(8 * 14)));
    EXPECT_THAT(peer.seqs(), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13));
    EXPECT_THAT(column(&TransferPacket::index),
                ElementsAre(0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1));
    EXPECT_THAT(column(&TransferPacket::block),
                ElementsAre(0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4));
}

// ---- progress ----

TEST_F(TransferSend, ProgressTakesThePlaceOfTheLogLine) {
    peer.geometry = {4, 1024, 1024, 2, 7};
    std::vector<std::pair<int, int>> calls;
    std::vector<std::size_t> packetsThen;
    progress = [&](std::uint16_t block, std::uint16_t blocks) {
        calls.emplace_back(block, blocks);
        packetsThen.push_back(peer.packets.size());
    };
    EXPECT_TRUE(opened().Transfer(address, 0, pattern(5000), 0, progress));
    EXPECT_THAT(calls, ElementsAre(std::pair(0, 7), std::pair(1, 7), std::pair(2, 7)));
    EXPECT_THAT(packetsThen, ElementsAre(0, 2, 4)) << "at the start of each block";
    EXPECT_THAT(logged(), ElementsAre("6 start Transfer 5000 1024", "6 compleat Transfer "));
}

TEST_F(TransferSend, ProgressRunsOnTheCallersThread) {
    std::thread::id caller;
    progress = [&](std::uint16_t, std::uint16_t) { caller = std::this_thread::get_id(); };
    EXPECT_TRUE(send(pattern(10)));
    EXPECT_EQ(caller, std::this_thread::get_id());
}

TEST_F(TransferSend, ProgressSeesTheLowSixteenBitsOfTheBlocks) {
    peer.geometry = {4, 65535, 8, 1, 65536};
    std::vector<std::pair<int, int>> calls;
    progress = [&](std::uint16_t block, std::uint16_t blocks) {
        calls.emplace_back(block, blocks);
    };
    EXPECT_TRUE(send(pattern(16)));
    EXPECT_THAT(calls, ElementsAre(std::pair(0, 0), std::pair(1, 0)));

    TransferPeer fresh(network, address);
    fresh.geometry = peer.geometry;
    log.clear();
    EXPECT_TRUE(opened().Transfer(address, 0, pattern(8), 0));
    EXPECT_THAT(logged(7), ElementsAre("Transfer 0/0"));
}

TEST_F(TransferSend, ProgressMayLookAtTheFigures) {
    peer.geometry = {4, 1024, 1024, 2, 7};
    std::vector<std::uint64_t> bytes, bursts;
    progress = [&](std::uint16_t, std::uint16_t) {
        bytes.push_back(figures.bytesSent);
        bursts.push_back(figures.bursts);
    };
    EXPECT_TRUE(send(pattern(5000)));
    EXPECT_THAT(bytes, ElementsAre(0, 2048, 4096));
    EXPECT_THAT(bursts, ElementsAre(0, 2, 4));
    EXPECT_EQ(figures.bytesSent, 5000u);
    EXPECT_EQ(figures.bursts, 5u);
}

// ---- again ----

TEST_F(TransferSend, MayBeRepeatedFromTheStart) {
    peer.geometry = {4, 2048, 1024, 8, 16};
    Find& find = opened();
    EXPECT_TRUE(find.Transfer(address, 0, pattern(10'000), 0, {}, figures));
    TransferPeer second(network, address);
    second.geometry = peer.geometry;
    EXPECT_TRUE(find.Transfer(address, 3, pattern(5000), 0, {}, figures));
    EXPECT_EQ(second.received(), pattern(5000));
    EXPECT_THAT(second.seqs(), ElementsAre(0, 1, 2, 3, 4));
    EXPECT_EQ(second.packets.at(0).word, 4);
    EXPECT_EQ(figures.bytesSent, 5000u) << "of this transfer alone";
    EXPECT_EQ(figures.packets, 5u);
    EXPECT_EQ(figures.bursts, 3u);
}

TEST_F(TransferSend, MayBeRepeatedAfterAFailure) {
    peer.geometry = {4, 2048, 1024, 8, 16};
    peer.onBurst = [](TransferPeer::Answer& a) {
        if (a.turn > 1) a.refuse();
    };
    Find& find = opened();
    EXPECT_FALSE(find.Transfer(address, 0, pattern(10'000), 0, {}, figures));
    TransferPeer second(network, address);
    EXPECT_TRUE(find.Transfer(address, 0, pattern(5000), 0, {}, figures));
    EXPECT_EQ(second.received(), pattern(5000));
    EXPECT_EQ(figures.end, TransferEnd::complete);
}

}  // namespace
}  // namespace velmora_test
