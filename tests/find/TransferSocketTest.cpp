// The host's own socket fails, at every place of a transfer where it can; and how it is used.
#include "find/Transfer.h"

#include <algorithm>
#include <optional>

#include "tests/find/TransferPeer.h"

namespace velmora_test {
namespace {

using VELMORA::TransferEnd;
using Answer = TransferPeer::Answer;

// A link of the network in memory that fails at a call of the test's choice.
class BreakingLink final : public ZENNO::Link {
public:
    explicit BreakingLink(FakeNetwork& network) : inner_(network.makeLink()) {
        IPAddress any{};
        inner_->open(ZENNO::SocketKind::udpV6);
        inner_->bindV6(any);
    }

    // Calls are counted from 0.
    std::optional<int> failingSend, failingWait, failingReceive;
    std::int32_t error = 0;  // of the failing send
    int sends = 0, receives = 0;
    std::vector<std::uint32_t> waits;        // µs asked for
    std::vector<std::uint64_t> bufferSizes;  // of the receives

    bool open(ZENNO::SocketKind kind) override { return inner_->open(kind); }
    void close() override { inner_->close(); }
    bool isOpen() const override { return inner_->isOpen(); }
    bool bindV6(IPAddress& address) override { return inner_->bindV6(address); }
    bool joinV6(const IPAddress& group) override { return inner_->joinV6(group); }
    bool setBlocking(bool on) override { return inner_->setBlocking(on); }
    int waitReadable(std::uint32_t micros) override {
        waits.push_back(micros);
        if (failingWait == static_cast<int>(waits.size()) - 1) return ZENNO::waitError;
        return inner_->waitReadable(micros);
    }
    bool receiveFrom(ZENNO::BufferCS buffer, std::uint64_t& length, IPAddress& from) override {
        bufferSizes.push_back(buffer.size);
        if (failingReceive == receives++) {
            length = 0;
            return false;
        }
        return inner_->receiveFrom(buffer, length, from);
    }
    using Link::receiveFrom;
    std::int64_t sendOnce(ZENNO::BufferCS_const data, const IPAddress& to,
                          bool retried) noexcept override {
        if (failingSend == sends++) {
            lastError_ = error;
            return shortSend ? static_cast<std::int64_t>(data.size) - 1 : -1;
        }
        return inner_->sendOnce(data, to, retried);
    }
    bool shortSend = false;

private:
    std::unique_ptr<ZENNO::Link> inner_;
};

class TransferSocket : public TransferTest {
protected:
    TransferSocket() { peer.geometry = {4, 65535, 16, 4, 16}; }

    bool run() { return run(link); }
    bool run(BreakingLink& on) {
        return VELMORA::transfer(on, network.time, address, 0, data, 0, progress, figures);
    }
    const Bytes data = pattern(128);  // two bursts of four
    BreakingLink link{network};
    static constexpr int opening = 2;  // sends, waits and receives of it
};

// ---- how it is used ----

TEST_F(TransferSocket, IsWaitedOnForAHundredMillisecondsAndThenForTheRest) {
    peer.onBurst = [&](Answer& a) {
        if (a.turn != 0) return;
        a.silence();
        later(29'900, plainDatagram(27, 0), address);
        later(79'900, Bytes{}, address);
    };
    EXPECT_TRUE(run());
    EXPECT_THAT(link.waits,
                ElementsAre(100'000u, 100'000u,          // the opening
                            100'000u, 70'000u, 20'000u,  // the burst, with noise at 30 and 80 ms
                            10'000u,                     // the quiet
                            100'000u, 100'000u,          // again, and the second burst
                            100'000u));                  // the end
}

TEST_F(TransferSocket, IsListenedToForTenMillisecondsOfQuietAtATime) {
    peer.onBurst = [&](Answer& a) {
        if (a.turn != 0) return;
        a.set(10, 1);
        later(4'000, plainDatagram(27, 0), address);
        later(9'000, plainDatagram(29, 0), address);
    };
    EXPECT_TRUE(run());
    EXPECT_THAT(link.waits, ElementsAre(100'000u, 100'000u, 100'000u, 10'000u, 10'000u, 10'000u,
                                        100'000u, 100'000u, 100'000u));
}

TEST_F(TransferSocket, IsReadWithItsReaderSize) {
    link.readerSize = 900;
    peer.onBurst = [](Answer& a) {
        if (a.turn == 0) a.datagrams.push_back(a.datagrams[0]);
    };
    EXPECT_TRUE(run());
    for (const std::uint64_t size : link.bufferSizes) EXPECT_EQ(size, 900u);
}

TEST_F(TransferSocket, WorksAcrossTheWrapOfTheClock) {
    // A FakeClock stands 256 µs before the wrap: the first burst's silence runs over it.
    peer.onBurst = [](Answer& a) {
        if (a.turn == 0) a.silence();
    };
    const std::uint64_t before = network.time.time();
    EXPECT_LE(before, 0xffff'ffffu);
    EXPECT_TRUE(run());
    EXPECT_GT(network.time.time(), 0x1'0000'0000u);
    EXPECT_EQ(network.time.time() - before, 200u + 110'000 + 100 + 100 + 100);
}

// ---- 1001: a burst ----

TEST_F(TransferSocket, FailingInABurstIs1001) {
    for (int packet = 0; packet < 8; ++packet) {
        SCOPED_TRACE(packet);
        peer.forget();
        log.clear();
        BreakingLink broken(network);
        broken.failingSend = opening + packet;
        broken.error = 10054;
        EXPECT_FALSE(run(broken));
        network.time.advance(1000);
        EXPECT_THAT(logged(3), ElementsAre("UDP stream send error 1001:10054"));
        EXPECT_EQ(figures.end, TransferEnd::sendFailed);
        EXPECT_EQ(peer.packets.size(), static_cast<std::size_t>(packet));
        EXPECT_EQ(broken.sends, opening + packet + 1) << "nothing goes after it";
    }
}

TEST_F(TransferSocket, WithAFullBufferIs1001WithoutARetry) {
    for (const std::int32_t full : {10035, 10055}) {
        log.clear();
        BreakingLink broken(network);
        broken.failingSend = opening;
        broken.error = full;
        EXPECT_FALSE(run(broken));
        EXPECT_THAT(logged(3), ElementsAre("UDP stream send error 1001:" + std::to_string(full)));
        EXPECT_EQ(broken.sends, opening + 1);
    }
}

TEST_F(TransferSocket, SendingShortIs1001) {
    link.failingSend = opening + 1;
    link.shortSend = true;
    EXPECT_FALSE(run());
    EXPECT_THAT(logged(3), ElementsAre("UDP stream send error 1001:0"));
}

// ---- 1021: a burst sent again ----

TEST_F(TransferSocket, FailingInAResendIs1021) {
    for (int packet = 0; packet < 4; ++packet) {
        SCOPED_TRACE(packet);
        peer.forget();
        log.clear();
        peer.onBurst = [](Answer& a) { a.set(10, 99); };
        if (packet != 0) {
            peer.onBurst = [](Answer& a) { a.silence(); };
        }
        BreakingLink broken(network);
        broken.failingSend = opening + 4 + packet;
        broken.error = 10050;
        const bool lastAlone = packet == 0;
        EXPECT_FALSE(run(broken));
        network.time.advance(1000);
        EXPECT_THAT(logged(3), ElementsAre("UDP stream send error 1021:10050"));
        EXPECT_EQ(figures.end, TransferEnd::sendFailed);
        const auto lines = logged(6);
        const std::string last = lines.back();
        EXPECT_TRUE(last.starts_with(lastAlone ? "resend 0 3 3 data=16 packet="
                                               : "resend 0 " + std::to_string(packet) + " " +
                                                     std::to_string(packet) + " data=16 packet="))
            << last << ": told before it is sent";
    }
}

TEST_F(TransferSocket, WithAFullBufferInAResendIs1021WithoutARetry) {
    peer.onBurst = [](Answer& a) { a.silence(); };
    link.failingSend = opening + 4;
    link.error = 10035;
    EXPECT_FALSE(run());
    EXPECT_THAT(logged(3), ElementsAre("UDP stream send error 1021:10035"));
    EXPECT_EQ(link.sends, opening + 5);
}

// ---- receives: 1048, 1090. The error told is that of the last failed send ----

TEST_F(TransferSocket, FailingToReceiveAnAcknowledgementIs1048) {
    link.failingReceive = opening;
    EXPECT_FALSE(run());
    EXPECT_THAT(logged(), ElementsAre("6 start Transfer 128 18446744073709551615",
                                      "7 Transfer 0/16", "3 UDP stream send error 1048:0"));
    EXPECT_EQ(figures.end, TransferEnd::receiveFailed);
}

TEST_F(TransferSocket, FailingToReceiveTellsTheLastError) {
    link.failingSend = 0;  // the first request, which is sent again
    link.error = 10035;
    link.failingReceive = opening;
    EXPECT_FALSE(run());
    EXPECT_THAT(logged(3), ElementsAre("UDP stream send error 1048:10035"));

    peer.forget();
    log.clear();
    peer.onBurst = [&](Answer& a) {
        a.set(10, 99);
        later(5'000, plainDatagram(29, 1, 1, 3), address);
    };
    BreakingLink broken(network);
    broken.failingSend = 0;
    broken.error = 10055;
    broken.failingReceive = opening + 1;
    EXPECT_FALSE(run(broken));
    EXPECT_THAT(logged(3), ElementsAre("UDP stream send error 1090:10055"));
}

TEST_F(TransferSocket, FailingToReceiveInTheQuietIs1090) {
    peer.onBurst = [&](Answer& a) {
        a.silence();
        later(103'000, plainDatagram(29, 1, 1, 3), address);
    };
    link.failingReceive = opening;  // nothing came before
    EXPECT_FALSE(run());
    EXPECT_THAT(logged(), ElementsAre("6 start Transfer 128 18446744073709551615",
                                      "7 Transfer 0/16", "3 UDP stream send error 1090:0"));
    EXPECT_EQ(figures.end, TransferEnd::receiveFailed);
    EXPECT_EQ(figures.burstLimit, ~0ull) << "shrinks only after the quiet";
}

// ---- waits ----

TEST_F(TransferSocket, FailingToWaitForAnAcknowledgementIsTold) {
    link.failingWait = opening;
    EXPECT_FALSE(run());
    EXPECT_THAT(logged(), ElementsAre("6 start Transfer 128 18446744073709551615",
                                      "7 Transfer 0/16", "6 Retry Detect Error "));
    EXPECT_EQ(figures.end, TransferEnd::waitFailed);
}

TEST_F(TransferSocket, FailingToWaitForTheRestOfTheTimeIsTold) {
    peer.onBurst = [&](Answer& a) {
        a.silence();
        later(1'000, Bytes{}, address);
    };
    link.failingWait = opening + 1;
    EXPECT_FALSE(run());
    EXPECT_THAT(logged(6),
                ElementsAre("start Transfer 128 18446744073709551615", "Retry Detect Error "));
}

TEST_F(TransferSocket, FailingInTheQuietIsTold) {
    for (const int wait : {0, 1}) {
        SCOPED_TRACE(wait);
        peer.forget();
        log.clear();
        peer.onBurst = [&](Answer& a) {
            a.set(10, 99);
            later(5'000, Bytes{}, address);
        };
        BreakingLink broken(network);
        broken.failingWait = opening + 1 + wait;
        EXPECT_FALSE(run(broken));
        network.time.advance(100'000);
        EXPECT_THAT(logged(),
                    ElementsAre("6 start Transfer 128 18446744073709551615", "7 Transfer 0/16",
                                "6 Retry Detect err 3 99", "6 Retry Clear Error "));
        EXPECT_EQ(figures.end, TransferEnd::waitFailed);
        EXPECT_EQ(figures.burstLimit, ~0ull);
    }
}

TEST_F(TransferSocket, ClosedByAnotherHandEndsTheTransfer) {
    peer.onBurst = [&](Answer& a) {
        if (a.turn == 1) link.close();
    };
    EXPECT_FALSE(run());
    EXPECT_EQ(logged().back(), "6 Retry Detect Error ");
}

// ---- a Find's own socket fails in the same words ----

TEST_F(TransferSocket, OfAFindTellsItsError) {
    progress = [&](std::uint16_t block, std::uint16_t) {
        if (block == 1) network.sendError = 10065;
    };
    EXPECT_FALSE(send(data));
    EXPECT_THAT(logged(3), ElementsAre("UDP stream send error 1001:10065"));
    EXPECT_EQ(peer.packets.size(), 4u);
}

}  // namespace
}  // namespace velmora_test
