// The end of a transfer, with its checksum, and the status that is asked for by itself.
#include "tests/find/TransferPeer.h"
#include "tests/wire/Hex.h"

namespace velmora_test {
namespace {

using VELMORA::TransferEnd;
using Answer = TransferPeer::Answer;

class TransferClosing : public TransferTest {
protected:
    // After data of two bursts that went well.
    bool closes(const TransferPeer::Script& script) {
        peer.forget();
        peer.geometry = {4, 65535, 16, 4, 16};
        peer.onEnd = script;
        return send(data, 0, 1);
    }
    const Bytes data = pattern(100);
    const std::uint16_t crc = slowCrc(data);
};

TEST_F(TransferClosing, TellsTheChecksumOfTheWholeBuffer) {
    EXPECT_TRUE(closes(nullptr));
    const Bytes& end = peer.requests.at(2);
    EXPECT_EQ(wordAt(end, 4), 30);
    EXPECT_EQ(wordAt(end, 6), 0);
    EXPECT_EQ(wordAt(end, 8), 2) << "number + 1";
    EXPECT_EQ(wordAt(end, 10), crc);
    EXPECT_EQ(wordAt(end, 12), 65535);
    EXPECT_EQ(wordAt(end, 14), 0);
    EXPECT_EQ(logged().back(), "6 compleat Transfer ");
    EXPECT_EQ(figures.end, TransferEnd::complete);
}

TEST_F(TransferClosing, FailsWhenTheEndIsNotConfirmed) {
    struct Case {
        const char* why;
        VELMORA::AckResult result;
        TransferPeer::Script script;
    };
    const Case cases[] = {
        {"silence", VELMORA::ackSilent, [](Answer& a) { a.silence(); }},
        {"a refusal", VELMORA::ackRefused, [](Answer& a) { a.refuse(); }},
        {"an echo", VELMORA::ackEcho, [](Answer& a) { a.echo(); }},
        {"another sender", VELMORA::ackSilent, [](Answer& a) { a.from = control(9); }},
        {"the socket", VELMORA::ackSocketFailed, [&](Answer&) { network.waitFails = true; }},
        {"another channel", VELMORA::ackAccepted, [](Answer& a) { a.set(8, 1); }},
        {"no channel", VELMORA::ackAccepted, [](Answer& a) { a.set(8, 0); }},
        {"another checksum", VELMORA::ackAccepted,
         [this](Answer& a) { a.set(10, static_cast<std::uint16_t>(crc ^ 0x8000)); }},
        {"another checksum in its low byte", VELMORA::ackAccepted,
         [this](Answer& a) { a.set(10, static_cast<std::uint16_t>(crc ^ 1)); }},
        {"another checksum, and a status", VELMORA::ackAccepted,
         [this](Answer& a) {
             a.set(10, static_cast<std::uint16_t>(~crc));
             a.set(12, 0);
         }},
        {"another channel, and a status", VELMORA::ackAccepted,
         [](Answer& a) {
             a.set(8, 3);
             a.set(12, 0);
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_FALSE(closes(c.script));
        network.waitFails = false;
        EXPECT_THAT(logged(3), ElementsAre("TransferFinish error "));
        EXPECT_EQ(logged(6).size(), 1u) << "nothing but the start";
        EXPECT_EQ(figures.end, TransferEnd::notClosed);
        EXPECT_EQ(figures.result, c.result);
        EXPECT_EQ(peer.requests.size(), 3u) << "asked once";
        EXPECT_EQ(peer.received(), data) << "though all had arrived";
    }
}

TEST_F(TransferClosing, FailsWithAnyOtherStatus) {
    for (const std::uint16_t status : Words{0, 1, 0x7fff, 65534}) {
        SCOPED_TRACE(status);
        peer.status = status;
        EXPECT_FALSE(closes(nullptr));
        EXPECT_THAT(logged(3), ElementsAre("TransferStrp error "));
        EXPECT_EQ(logged(6).size(), 1u);
        EXPECT_EQ(figures.end, TransferEnd::notTaken);
        EXPECT_EQ(figures.status, status);
    }
}

TEST_F(TransferClosing, ReadsARefusedStatusFromTheseBytes) {
    peer.onEnd = [](Answer& a) { a.datagrams = {hex("6400 1000 1f00 0100  0100 0000 0000 0000")}; };
    EXPECT_FALSE(send({}));
    EXPECT_THAT(logged(3), ElementsAre("TransferStrp error "));
}

TEST_F(TransferClosing, FailsForAnEmptyBufferToo) {
    peer.onEnd = [](Answer& a) { a.set(10, 1); };
    EXPECT_FALSE(send({}));
    EXPECT_THAT(logged(3), ElementsAre("TransferFinish error "));
}

TEST_F(TransferClosing, IsNotDisturbedByLateAcknowledgements) {
    EXPECT_TRUE(closes([this](Answer& a) {
        a.datagrams.insert(a.datagrams.begin(), plainDatagram(29, 1, 2, 6));
        a.datagrams.insert(a.datagrams.begin(), plainDatagram(29, 0, 2, 6));
        EXPECT_EQ(wordAt(a.request, 10), crc);
    }));
}

TEST_F(TransferClosing, WaitsAHundredMilliseconds) {
    EXPECT_TRUE(closes([](Answer& a) { a.delay = 99'900; }));
    EXPECT_FALSE(closes([](Answer& a) { a.delay = 99'901; }));
}

// ---- transferStatus ----

class TransferStatus : public TransferTest {};

TEST_F(TransferStatus, AsksAndAnswersInTheseBytes) {
    peer.onEnd = [](Answer& a) { a.datagrams = {hex("6400 1000 1f00 0100  0300 3412 7856 ffff")}; };
    std::uint16_t crc = 0x1234, status = 0xabcd;
    EXPECT_TRUE(opened().transferStatus(address, 2, crc, status));
    ASSERT_EQ(sentByHost().size(), 1u);
    EXPECT_EQ(sentByHost()[0].data, hex("6400 1000 1e00 0000  0300 3412 cdab 0000"));
    EXPECT_EQ(sentByHost()[0].to, address);
    EXPECT_EQ(crc, 0x1234);
    EXPECT_EQ(status, 0x5678);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(TransferStatus, TakesEveryStatusWord) {
    Find& find = opened();
    for (const std::uint16_t told : Words{0, 1, 65534, 65535}) {
        peer.onEnd = [told](Answer& a) {
            a.set(10, wordAt(a.request, 10));
            a.set(12, told);
        };
        std::uint16_t crc = 7, status = 9;
        EXPECT_TRUE(find.transferStatus(address, 0, crc, status));
        EXPECT_EQ(status, told);
        EXPECT_EQ(crc, 7);
    }
}

TEST_F(TransferStatus, IsFalseForEveryOtherAnswer) {
    struct Case {
        const char* why;
        TransferPeer::Script script;
    };
    const Case cases[] = {
        {"silence", [](Answer& a) { a.silence(); }},
        {"a refusal", [](Answer& a) { a.refuse(); }},
        {"an echo", [](Answer& a) { a.echo(); }},
        {"another sender", [](Answer& a) { a.from = control(9); }},
        {"another channel", [](Answer& a) { a.set(8, 2); }},
        {"another checksum", [](Answer& a) { a.set(10, 0x1235); }},
        {"the socket", [&](Answer&) { network.waitFails = true; }},
    };
    Find& find = opened();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        peer.onEnd = [&](Answer& a) {
            a.set(10, 0x1234);
            a.set(12, 0x5678);
            c.script(a);
        };
        std::uint16_t crc = 0x1234, status = 9;
        EXPECT_FALSE(find.transferStatus(address, 0, crc, status));
        network.waitFails = false;
        EXPECT_EQ(crc, 0x1234);
        EXPECT_EQ(status, 9) << "as it was";
        EXPECT_THAT(logged(), IsEmpty());
    }
}

TEST_F(TransferStatus, AsksForEveryNumberInSixteenBits) {
    Find& find = opened();
    for (const int no : {0, 65534, 65535, -1, -2}) {
        SCOPED_TRACE(no);
        peer.onEnd = [](Answer& a) { a.set(10, wordAt(a.request, 10)); };
        std::uint16_t crc = 7, status = 9;
        EXPECT_TRUE(find.transferStatus(address, no, crc, status));
        EXPECT_EQ(wordAt(peer.requests.back(), 8), static_cast<std::uint16_t>(no + 1));
    }
}

TEST_F(TransferStatus, OfTheLargestNumberWrapsToo) {
    peer.onEnd = [](Answer& a) { a.set(10, wordAt(a.request, 10)); };
    std::uint16_t crc = 7, status = 9;
    EXPECT_TRUE(opened().transferStatus(address, 0x7fffffff, crc, status));
    EXPECT_EQ(wordAt(peer.requests.back(), 8), 0);
}

}  // namespace
}  // namespace velmora_test
