#include "find/Exchange.h"

#include <functional>

#include "tests/find/FindTest.h"

namespace velmora_test {
namespace {

using VELMORA::ackAccepted;
using VELMORA::ackEcho;
using VELMORA::ackRefused;
using VELMORA::ackSilent;
using VELMORA::ackSocketFailed;

TEST(TimeLeft, RunsDownToNothingAndGrowsWhenTheClockStepsBack) {
    struct Case {
        const char* why;
        std::uint32_t limit, elapsed, left;
        bool passed;
    };
    constexpr Case cases[] = {
        {"nothing has gone by", 100'000, 0, 100'000, false},
        {"half way", 100'000, 50'000, 50'000, false},
        {"a microsecond before the limit", 100'000, 99'999, 1, false},
        {"at the limit: none left, and not passed", 100'000, 100'000, 0, false},
        {"a microsecond behind it", 100'000, 100'001, 0, true},
        {"as far behind as counts as behind", 100'000, 100'000 + 0x7fffffffu, 0, true},
        {"one further: the clock stepped back", 100'000, 100'000 + 0x80000000u, 0x80000000u, false},
        {"the clock stepped back by 5", 100'000, 0u - 5u, 100'005, false},
        {"a limit as long as can be told", 0x7fffffffu, 0, 0x7fffffffu, false},
        {"a limit too long to be told", 0x80000000u, 0, 0, true},
        {"a limit too long, until enough is gone", 0x80000000u, 1, 0x7fffffffu, false},
        {"no limit at all, at once", 0, 0, 0, false},
        {"no limit at all, later", 0, 1, 0, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(VELMORA::timeLeft(c.limit, c.elapsed), c.left);
        EXPECT_EQ(VELMORA::limitPassed(c.limit, c.elapsed), c.passed);
    }
}

TEST(TimeLimit, HasPassedOnlyBehindItsEnd) {
    FakeClock clock;  // crosses the wrap on the way
    const VELMORA::TimeLimit limit(clock, 1000);
    EXPECT_EQ(limit.left(), 1000u);
    clock.advance(1000);
    EXPECT_EQ(limit.left(), 0u);
    EXPECT_FALSE(limit.passed());
    clock.advance(1);
    EXPECT_TRUE(limit.passed());
}

// Datagrams written out by hand: HELLO_REQ without name, its accepted and its refused answer.
const Bytes helloReq = {0x64, 0, 0x10, 0, 22, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0};
const Bytes helloAns = {0x64, 0, 0x10, 0, 23, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0};
const Bytes helloNak = {0x64, 0, 0x10, 0, 23, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};

Bytes resized(Bytes data, std::size_t size, std::uint16_t sizeWord) {
    data.resize(size);
    if (size >= 4) {
        data[2] = static_cast<std::uint8_t>(sizeWord);
        data[3] = static_cast<std::uint8_t>(sizeWord >> 8);
    }
    return data;
}

struct Answer {
    std::uint64_t after = 0;  // µs from the arrival of the request
    IPAddress from{};
    Bytes data;
};

class SendAck : public FindTest, public Peer {
protected:
    void SetUp() override {
        link = network.makeLink();
        IPAddress any;
        ASSERT_TRUE(link->open(ZENNO::SocketKind::udpV6));
        ASSERT_TRUE(link->bindV6(any));
        network.delay = 0;
        network.attach(target, this);
    }
    void onDatagram(FakeNetwork& net, const Datagram& request) override {
        ++requests;
        if (onRequest) onRequest(request);
        for (const Answer& booked : answers) {
            net.time.in(booked.after, [&net, booked, to = request.from] {
                net.send(booked.from, to, booked.data);
            });
        }
    }
    int ask() { return VELMORA::sendAck(*link, network.clock(), target, helloReq, 23, answer); }

    const IPAddress target = control(1);
    const IPAddress stranger = control(2);
    std::unique_ptr<ZENNO::Link> link;
    std::vector<Answer> answers;
    std::function<void(const Datagram&)> onRequest;
    int requests = 0;
    Bytes answer{1, 2, 3};  // not empty, so that the clearing shows
};

TEST_F(SendAck, WaitsAHundredMillisecondsForNothing) {
    EXPECT_EQ(duration([&] { EXPECT_EQ(ask(), ackSilent); }), 100'000u);
    EXPECT_THAT(answer, IsEmpty());
    EXPECT_EQ(requests, 1) << "one request, nothing is sent again";
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(SendAck, SendsTheMessageAsItStandsToTheOneAsked) {
    ask();
    const auto sent = sentByHost();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].data, helloReq);
    EXPECT_EQ(sent[0].to, target);
}

TEST_F(SendAck, DecidesByIdThenFlagThenSender) {
    IPAddress otherPort = target, otherScope = target;
    otherPort.setPortNumber(19644);
    otherScope.scope = 4;
    Bytes otherId = helloAns;
    otherId[4] = 5;
    struct Case {
        const char* why;
        IPAddress from;
        Bytes data;
        int result;
        bool kept;
    };
    const Case cases[] = {
        {"accepted, from the one asked", target, helloAns, ackAccepted, true},
        {"refused, by the one asked", target, helloNak, ackRefused, true},
        {"refused, by a foreign address", stranger, helloNak, ackRefused, true},
        {"the request comes back, flag 1 and all", target, helloReq, ackEcho, false},
        {"the request comes back from anyone", stranger, helloReq, ackEcho, false},
        {"accepted, from a foreign address", stranger, helloAns, ackSilent, false},
        {"accepted, from another port", otherPort, helloAns, ackSilent, false},
        {"accepted, from the same address on another scope", otherScope, helloAns, ackSilent,
         false},
        {"another id", target, otherId, ackSilent, false},
        {"15 bytes", target, resized(helloAns, 15, 16), ackSilent, false},
        {"nothing at all", target, {}, ackSilent, false},
        {"16 bytes that claim 24", target, resized(helloAns, 16, 24), ackSilent, false},
        {"32 bytes that claim 16", target, resized(helloAns, 32, 16), ackAccepted, true},
        {"cut on arrival below what it claims", target, resized(helloAns, 1504, 1504), ackSilent,
         false},
        {"as long as can be read", target, resized(helloAns, 1496, 1496), ackAccepted, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        answers = {{10, c.from, c.data}};
        EXPECT_EQ(ask(), c.result);
        EXPECT_EQ(answer, c.kept ? c.data : Bytes{});
        network.time.advance(1000);
    }
    Bytes magic = helloAns;
    magic[0] = 0x65;
    answers = {{10, target, magic}};
    EXPECT_EQ(ask(), ackSilent) << "another magic";
}

TEST_F(SendAck, LooksAtTheEchoFirstEvenWhenThatIdIsTheAnswer) {
    answers = {{10, target, helloReq}};
    EXPECT_EQ(VELMORA::sendAck(*link, network.clock(), target, helloReq, 22, answer), ackEcho);
}

TEST_F(SendAck, ComparesTheWholeOfAnAnswerIdOf32Bits) {
    answers = {{10, target, helloAns}};
    EXPECT_EQ(VELMORA::sendAck(*link, network.clock(), target, helloReq, 0x10017, answer),
              ackSilent);
}

TEST_F(SendAck, GoesOnWaitingBehindAForeignAcceptance) {
    answers = {{10, stranger, helloAns}, {30'000, target, helloAns}};
    EXPECT_EQ(duration([&] { EXPECT_EQ(ask(), ackAccepted); }), 30'000u);
}

TEST_F(SendAck, DoesNotLetRubbishLengthenOrShortenItsTime) {
    for (std::uint64_t at = 10'000; at < 200'000; at += 10'000) {
        answers.push_back({at, stranger, Bytes(3, 0xff)});
    }
    EXPECT_EQ(duration([&] { EXPECT_EQ(ask(), ackSilent); }), 100'000u);
}

TEST_F(SendAck, TakesAnAnswerAtTheVeryEndAndNoneBehindIt) {
    answers = {{100'000, target, helloAns}};
    EXPECT_EQ(ask(), ackAccepted);
    answers = {{100'001, target, helloAns}};
    EXPECT_EQ(ask(), ackSilent);
}

TEST_F(SendAck, LogsEveryValidDatagramAtLevel7) {
    IPAddress otherScope = target;
    otherScope.scope = 9;
    answers = {{10, target, Bytes(15, 0)}, {20, otherScope, helloAns}, {30, target, helloAns}};
    ask();
    EXPECT_THAT(log.texts(), ElementsAre("sendAck[0,3,9]RCV:22", "sendAck[0,3,3]RCV:22"));
    EXPECT_EQ(log.texts(7).size(), 2u);
}

TEST_F(SendAck, TellsTheFixedScopeOfItsSocket) {
    IPAddress tied = linkLocal(0x77, 0, 3);
    ASSERT_TRUE(link->bindV6(tied));
    answers = {{10, target, helloAns}};
    ask();
    EXPECT_THAT(log.texts(), ElementsAre("sendAck[3,3,3]RCV:22"));
}

TEST_F(SendAck, FailsWithTheSocketAndSaysNothingOfIt) {
    struct Case {
        const char* why;
        std::function<void()> arm, disarm;
    };
    const Case cases[] = {
        {"sending", [&] { network.sendError = 10051; }, [&] { network.sendError = 0; }},
        {"waiting", [&] { network.waitFails = true; }, [&] { network.waitFails = false; }},
        {"receiving", [&] { network.receiveFails = true; }, [&] { network.receiveFails = false; }},
        {"waiting on, behind rubbish",
         [&] {
             answers = {{10, target, Bytes(3, 0)}};
             network.time.in(20, [&] { network.waitFails = true; });
         },
         [&] { network.waitFails = false; }},
        {"closed meanwhile, as another thread's close does",
         [&] { onRequest = [&](const Datagram&) { link->close(); }; }, [&] { onRequest = {}; }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        answers = {{10, target, helloAns}};
        answer = {1};
        c.arm();
        EXPECT_EQ(ask(), ackSocketFailed);
        EXPECT_THAT(answer, IsEmpty());
        c.disarm();
        if (link->isOpen()) {  // nothing left over for the next case
            network.time.advance(1000);
            Bytes data;
            IPAddress from;
            while (link->poll() == ZENNO::waitReady) link->receiveFrom(data, from);
        }
    }
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(SendAck, LeavesTheErrorOfAFailedSendWithTheSocket) {
    network.sendError = 10051;
    ask();
    EXPECT_EQ(link->lastError(), 10051);
}

TEST_F(SendAck, SendsAgainWhileTheSendBufferIsFull) {
    ASSERT_TRUE(link->setBlocking(false));
    network.sendFullTimes = 1;
    answers = {{10, target, helloAns}};
    EXPECT_EQ(ask(), ackAccepted);
    EXPECT_FALSE(link->isBlocking()) << "put back";
}

TEST_F(SendAck, RefusesToSendWhatIsNoDatagram) {
    EXPECT_EQ(VELMORA::sendAck(*link, network.clock(), target, Bytes(15, 0), 23, answer),
              ackSocketFailed);
    EXPECT_THAT(sentByHost(), IsEmpty());
}

// A flood that comes faster than it can be read never leaves the socket empty.
TEST_F(SendAck, IsNotHeldByAFlood) {
    network.time.tickPerRead = 20;
    for (std::uint64_t at = 0; at < 1'000'000; at += 10) {
        answers.push_back({at, stranger, helloAns});
    }
    const std::uint64_t took = duration([&] { EXPECT_EQ(ask(), ackSilent); });
    EXPECT_LT(took, 100'000u + 20u * (VELMORA::Listening::lateDatagrams + 10));
}

// The thread may not have run for a while; what came in time lies in the socket's buffer.
TEST_F(SendAck, ReadsOnThroughWhatCameInTimeWhenItIsLate) {
    for (int i = 0; i < 100; ++i) answers.push_back({99'000, stranger, helloAns});
    answers.push_back({99'500, target, helloAns});
    network.time.tickPerRead = 50;  // 100 datagrams take 5 ms
    EXPECT_EQ(ask(), ackAccepted);
}

}  // namespace
}  // namespace velmora_test
