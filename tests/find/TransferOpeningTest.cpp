// What a transfer asks before it sends a byte of data, and what each answer makes of it.
#include <climits>

#include "tests/find/TransferPeer.h"
#include "tests/wire/Hex.h"

namespace velmora_test {
namespace {

using VELMORA::TransferEnd;

class TransferOpening : public TransferTest {
protected:
    // Failed before its first log line, without a byte of data or an end.
    void expectNothingBegun(std::size_t requests) {
        EXPECT_THAT(logged(), IsEmpty());
        EXPECT_THAT(peer.packets, IsEmpty());
        ASSERT_EQ(peer.requests.size(), requests);
        EXPECT_EQ(sentByHost().size(), requests);
        for (const Bytes& request : peer.requests) EXPECT_EQ(wordAt(request, 4), 26);
    }
};

struct Failure {
    const char* why;
    VELMORA::AckResult result;
    TransferPeer::Script script;
};
std::vector<Failure> failures() {
    using Answer = TransferPeer::Answer;
    return {
        {"silence", VELMORA::ackSilent, [](Answer& a) { a.silence(); }},
        {"a refusal", VELMORA::ackRefused, [](Answer& a) { a.refuse(); }},
        {"an echo", VELMORA::ackEcho, [](Answer& a) { a.echo(); }},
        {"another sender", VELMORA::ackSilent, [](Answer& a) { a.from = control(9); }},
        {"another id", VELMORA::ackSilent, [](Answer& a) { a.set(4, 31); }},
        {"too late", VELMORA::ackSilent, [](Answer& a) { a.delay = 100'001; }},
    };
}

TEST_F(TransferOpening, AsksInTheseBytes) {
    send(pattern(10), 0, 2);
    ASSERT_GE(peer.requests.size(), 2u);
    EXPECT_EQ(peer.requests[0], hex("6400 1000 1a00 0000  0000 0000 0000 0000"));
    EXPECT_EQ(peer.requests[1], hex("6400 1000 1a00 0000  0300 0000 0000 0000"));
    for (const Datagram& datagram : sentByHost()) EXPECT_EQ(datagram.to, address);
}

// Four channels, bursts of 2048 bytes; channel 3 of packets of 1024, blocks of 8, 16 of them.
TEST_F(TransferOpening, ReadsTheseBytes) {
    peer.onCount = [](TransferPeer::Answer& a) {
        a.datagrams = {hex("6400 1000 1b00 0100 0400 0008 0000 0000")};
    };
    peer.onChannel = [](TransferPeer::Answer& a) {
        a.datagrams = {hex("6400 1000 1b00 0100 0300 ff03 0700 0f00")};
    };
    EXPECT_TRUE(send(pattern(10'000), 0, 2));
    EXPECT_THAT(logged(6), ElementsAre("start Transfer 10000 2048", "compleat Transfer "));
    EXPECT_EQ(figures.channels, 4);
    EXPECT_EQ(figures.capacity, 16u * 8 * 1024);
    EXPECT_THAT(peer.marked(), ElementsAre(1, 3, 5, 7, 9));
}

TEST_F(TransferOpening, EndsWhenTheFirstAnswerFails) {
    for (const Failure& failure : failures()) {
        SCOPED_TRACE(failure.why);
        peer.forget();
        peer.onCount = failure.script;
        EXPECT_FALSE(send(pattern(10)));
        expectNothingBegun(1);
        EXPECT_EQ(figures.end, TransferEnd::notOpened);
        EXPECT_EQ(figures.result, failure.result);
    }
}

TEST_F(TransferOpening, EndsWhenTheSecondAnswerFails) {
    for (const Failure& failure : failures()) {
        SCOPED_TRACE(failure.why);
        peer.forget();
        peer.onChannel = failure.script;
        EXPECT_FALSE(send(pattern(10)));
        expectNothingBegun(2);
        EXPECT_EQ(figures.end, TransferEnd::notOpened);
        EXPECT_EQ(figures.result, failure.result);
    }
}

TEST_F(TransferOpening, EndsWithTheSocketInEitherStep) {
    for (const int step : {1, 2}) {
        SCOPED_TRACE(step);
        peer.forget();
        const auto fail = [&](TransferPeer::Answer&) { network.waitFails = true; };
        peer.onCount = step == 1 ? TransferPeer::Script(fail) : nullptr;
        peer.onChannel = fail;
        EXPECT_FALSE(send(pattern(10)));
        network.waitFails = false;
        expectNothingBegun(static_cast<std::size_t>(step));
        EXPECT_EQ(figures.end, TransferEnd::notOpened);
        EXPECT_EQ(figures.result, VELMORA::ackSocketFailed);
    }
}

TEST_F(TransferOpening, EndsWithAFailingSend) {
    Find& find = opened();
    network.sendError = 10051;
    EXPECT_FALSE(find.Transfer(address, 0, pattern(10), 0, {}, figures));
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(figures.end, TransferEnd::notOpened);
    EXPECT_EQ(figures.result, VELMORA::ackSocketFailed);
}

TEST_F(TransferOpening, EndsWithAFindThatIsNotOpen) {
    Find find(setting, network);
    EXPECT_FALSE(find.Transfer(address, 0, pattern(10), 0));
    std::uint16_t crc = 0, status = 0;
    EXPECT_FALSE(find.transferStatus(address, 0, crc, status));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(TransferOpening, TakesOnlyNumbersBelowTheCount) {
    struct Case {
        const char* why;
        std::uint16_t channels;
        int no;
        bool asked;
    };
    constexpr Case cases[] = {
        {"no channels at all", 0, 0, false},
        {"no channels, a number below that", 0, -1, false},
        {"the number is the count", 4, 4, false},
        {"far above", 4, 70'000, false},
        {"the largest number", 65535, INT_MAX, false},
        {"the first of one", 1, 0, true},
        {"the last", 4, 3, true},
        {"a count that is negative in 16 bits", 65535, 3, true},
        {"the last of the most, the last mark in its number", 65535, 65534, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        peer.forget();
        peer.geometry.channels = c.channels;
        log.clear();
        EXPECT_EQ(send(pattern(10), 0, c.no), c.asked);
        if (c.asked) {
            ASSERT_GE(peer.requests.size(), 2u);
            EXPECT_EQ(wordAt(peer.requests[1], 8), static_cast<std::uint16_t>(c.no + 1));
        } else {
            expectNothingBegun(1);
            EXPECT_EQ(figures.end, TransferEnd::noSuchChannel);
        }
    }
}

// The comparison is signed, so a negative number passes it and goes out as number + 1 in 16 bits.
TEST_F(TransferOpening, AsksForANegativeNumberInSixteenBits) {
    EXPECT_FALSE(send(pattern(10), 0, -1)) << "answered as the count is: another channel";
    expectNothingBegun(2);
    EXPECT_EQ(wordAt(peer.requests[1], 8), 0);

    peer.forget();
    EXPECT_TRUE(send(pattern(10), 0, -2));
    EXPECT_EQ(wordAt(peer.requests.at(1), 8), 0xffff);

    peer.forget();
    send(pattern(10), 0, INT_MIN);
    EXPECT_EQ(wordAt(peer.requests.at(1), 8), 1);
}

TEST_F(TransferOpening, EndsWhenTheAnswerNamesAnotherChannel) {
    for (const std::uint16_t named : Words{0, 2, 4, 0x8003}) {
        SCOPED_TRACE(named);
        peer.forget();
        peer.onChannel = [named](TransferPeer::Answer& a) { a.set(8, named); };
        EXPECT_FALSE(send(pattern(10), 0, 2));
        expectNothingBegun(2);
        EXPECT_EQ(figures.end, TransferEnd::noSuchChannel);
    }
}

TEST_F(TransferOpening, TakesASizeUpToTheCapacity) {
    struct Case {
        std::uint32_t packetBytes, blockPackets, blocks;
    };
    constexpr Case cases[] = {{1, 1, 1}, {8, 4, 2}, {1024, 3, 5}, {7, 65536, 1}};
    for (const Case& c : cases) {
        const std::size_t capacity = std::size_t{c.packetBytes} * c.blockPackets * c.blocks;
        SCOPED_TRACE(capacity);
        TransferPeer fresh(network, address);
        fresh.geometry = {4, 65535, c.packetBytes, c.blockPackets, c.blocks};
        EXPECT_TRUE(send(pattern(capacity)));
        EXPECT_EQ(fresh.received(), pattern(capacity));
        EXPECT_EQ(figures.capacity, capacity);
    }
}

TEST_F(TransferOpening, EndsWhenTheSizeIsAboveTheCapacityByOne) {
    peer.geometry = {4, 65535, 8, 4, 2};
    EXPECT_FALSE(send(pattern(65)));
    expectNothingBegun(2);
    EXPECT_EQ(figures.end, TransferEnd::tooLarge);
    EXPECT_EQ(figures.capacity, 64u);
}

// 65536 of each: 2 to the power of 48, and a packet that no datagram holds when it is full.
TEST_F(TransferOpening, TakesTheLargestGeometry) {
    peer.geometry = {4, 65535, 65536, 65536, 65536};
    EXPECT_TRUE(send(pattern(1000)));
    EXPECT_EQ(peer.received(), pattern(1000));
    EXPECT_EQ(figures.capacity, 1ull << 48);
}

TEST_F(TransferOpening, EndsWhenItsPacketsFitInNoDatagram) {
    peer.geometry.packetBytes = 65536;
    EXPECT_FALSE(send(pattern(70'000)));
    EXPECT_THAT(peer.packets, IsEmpty());
    EXPECT_EQ(figures.end, TransferEnd::tooLarge);
}

TEST_F(TransferOpening, LogsSizeAndBurstLimit) {
    struct Case {
        const char* why;
        std::uint16_t told;
        std::uint64_t limit;
        std::uint64_t used;
    };
    constexpr Case cases[] = {
        {"no limit at all is all ones", 65535, 0, ~0ull},
        {"the target's", 2048, 0, 2048},
        {"the target's highest", 65534, 0, 65534},
        {"the target's lowest", 0, 0, 0},
        {"the caller's lowers it", 2048, 2047, 2047},
        {"the caller's lowest", 2048, 1, 1},
        {"the caller's is the same", 2048, 2048, 2048},
        {"the caller's is greater", 2048, 2049, 2048},
        {"the caller's is the greatest", 2048, ~0ull, 2048},
        {"the caller's lowers no limit", 65535, 5000, 5000},
        {"65535 of the caller's is a limit", 65535, 65535, 65535},
        {"above 65535 too", 65535, 1'000'000, 1'000'000},
        {"no bytes cannot be lowered", 0, 5, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        TransferPeer fresh(network, address);
        fresh.geometry.burstLimit = c.told;
        EXPECT_TRUE(send(pattern(3000), c.limit));
        EXPECT_THAT(logged(6), ElementsAre("start Transfer 3000 " + std::to_string(c.used),
                                           "compleat Transfer "));
        EXPECT_EQ(figures.burstLimit, c.used);
    }
}

TEST_F(TransferOpening, LeavesTheTargetTableAlone) {
    Find& find = opened();
    EXPECT_TRUE(find.Transfer(address, 0, pattern(10), 0));
    EXPECT_EQ(find.targetCount(), 0u);
}

}  // namespace
}  // namespace velmora_test
