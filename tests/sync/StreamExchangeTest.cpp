#include "sync/StreamExchange.h"

#include <gmock/gmock.h>

#include "tests/sync/StreamHarness.h"

namespace {

using namespace velmora_test;
using testing::ElementsAre;
using VELMORA::sendAck;

const Bytes request = datagram(4, 0);
const Bytes good = datagram(5, 1, {1, 2, 3, 4});
constexpr std::uint32_t wait = 10000;

// A bound link of its own and a target that follows a script.
struct Asked {
    FakeNetwork network;
    std::unique_ptr<ZENNO::Link> link = network.makeLink();
    ScriptedTarget target;
    IPAddress control = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x77}, 5000, 3);
    IPAddress elsewhere = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 1}, 1, 3);
    Bytes answer{1, 2, 3};  // rubbish, to be emptied

    Asked() {
        network.attach(control, &target);
        IPAddress local;
        link->open(ZENNO::SocketKind::udpV6);
        link->bindV6(local);
        link->setDestination(elsewhere);
    }
    bool ask(std::uint32_t micros = wait) {
        return sendAck(*link, network.time, control, request, 5, answer, micros);
    }
    void say(std::uint64_t in, const IPAddress& from, Bytes data) {
        network.time.in(in, [this, from, data = std::move(data)] {
            const IPAddress host = network.sent.front().from;
            network.send(from, host, data);
        });
    }
    std::uint64_t elapsed() const { return network.time.time() - FakeClock::start; }
};

TEST(StreamExchange, ThreeSilentTriesAreNoAnswerAndNoFailure) {
    Asked a;
    EXPECT_TRUE(a.ask());
    EXPECT_TRUE(a.answer.empty());
    EXPECT_EQ(a.target.ids(), (std::vector<std::uint16_t>{4, 4, 4}));
    EXPECT_EQ(a.elapsed(), 3 * wait);
    EXPECT_EQ(a.link->destination(), a.elsewhere) << "the stored destination is as before";
}

TEST(StreamExchange, HandsOutTheAnswerThatCarriesData) {
    Asked a;
    a.target.on(4, good);
    EXPECT_TRUE(a.ask());
    EXPECT_EQ(a.answer, good);
    EXPECT_EQ(a.target.requests.size(), 1u);
    EXPECT_EQ(a.target.requests[0], request);
    EXPECT_EQ(a.elapsed(), 100u);
    EXPECT_EQ(a.link->destination(), a.elsewhere);
}

TEST(StreamExchange, TheSecondTryCanStillBeAnswered) {
    Asked a;
    int asked = 0;
    a.target.on(4, [&](const Bytes&) { return ++asked == 3 ? Datagrams{good} : Datagrams{}; });
    EXPECT_TRUE(a.ask());
    EXPECT_EQ(a.answer, good);
    EXPECT_EQ(a.target.requests.size(), 3u);
}

struct VerdictCase {
    const char* why;
    Bytes first;
    bool passedOver;  // the good answer behind it is taken
};

TEST(StreamExchange, JudgesWhatComes) {
    Bytes strange = good;
    strange[0] = 101;
    Bytes claims = good;
    claims[2] = 24;
    const VerdictCase cases[] = {
        {"the request's own id ends it with nothing", datagram(4, 1), false},
        {"a refusal ends it with nothing", datagram(5, 0, {1}), false},
        {"flags without bit 0 refuse, whatever else they say", datagram(5, 0xfffe), false},
        {"another id is passed over", datagram(7, 1), true},
        {"15 bytes are no packet", Bytes(15, 0), true},
        {"nor is a foreign magic", strange, true},
        {"nor one that claims more than came", claims, true},
        {"nor an empty datagram", {}, true},
    };
    for (const VerdictCase& c : cases) {
        SCOPED_TRACE(c.why);
        Asked a;
        a.target.on(4, [&](const Bytes&) { return Datagrams{c.first, good}; });
        EXPECT_TRUE(a.ask());
        EXPECT_EQ(a.answer, c.passedOver ? good : Bytes{});
        EXPECT_EQ(a.target.requests.size(), 1u);
    }
}

TEST(StreamExchange, DropsWhatAnotherAddressPortOrScopeSends) {
    Asked plain;
    const IPAddress target = plain.control;
    IPAddress port = target, scope = target, address = target;
    port.setPortNumber(5001);
    scope.scope = 4;
    address.setWord(7, 0x78);
    for (const IPAddress& from : {port, scope, address}) {
        SCOPED_TRACE(from.text());
        Asked a;
        a.say(100, from, good);
        EXPECT_TRUE(a.ask());
        EXPECT_TRUE(a.answer.empty());
    }
}

// Says `data` so early that it lies there before the request goes out. The target must know where
// to: one request has gone before.
void sayBefore(Asked& a, int times, const IPAddress& from, const Bytes& data) {
    const IPAddress host = a.network.sent.front().from;
    for (int i = 0; i < times; ++i) a.network.send(from, host, data);
    a.network.time.advance(1000);
    a.target.requests.clear();
}

TEST(StreamExchange, WhatAFloodLeftInTheSocketDoesNotKeepTheAnswerOut) {
    Asked a;
    a.ask();
    auto& link = static_cast<FakeLink&>(*a.link);
    link.room = 300;
    sayBefore(a, 1000, a.control, datagram(99, 1));
    ASSERT_EQ(link.unread(), 300u);
    // It goes on for 2 ms, one datagram each microsecond, and is read at a tenth of that.
    for (std::uint64_t micros = 1; micros < 2000; ++micros) {
        a.say(micros, a.control, datagram(99, 1));
    }
    a.network.time.tickPerRead = 10;
    a.target.on(4, good);
    EXPECT_TRUE(a.ask());
    EXPECT_EQ(a.answer, good);
    EXPECT_EQ(a.target.requests.size(), 1u) << "nothing had to be asked twice";
}

TEST(StreamExchange, ReadsNoEndlessBacklogBeforeItAsks) {
    Asked a;
    a.ask();
    sayBefore(a, 5000, a.control, datagram(99, 1));
    std::size_t leftWhenAsked = 0;
    a.network.fate = [&](const Datagram& datagram) {
        if (datagram.toPeer) leftWhenAsked = static_cast<FakeLink&>(*a.link).unread();
        return Fate{{.delay = 50, .cutTo = {}}};
    };
    a.target.on(4, good);
    EXPECT_TRUE(a.ask());
    EXPECT_EQ(a.answer, good);
    EXPECT_EQ(leftWhenAsked, 5000u - 4096u);
}

TEST(StreamExchange, AnAnswerFromBeforeCountsOnceTheRequestHasGone) {
    for (const Bytes& early : {good, datagram(5, 0), datagram(4, 1)}) {
        Asked a;
        a.ask();
        sayBefore(a, 1, a.control, early);
        EXPECT_TRUE(a.ask());
        EXPECT_EQ(a.answer, early == good ? good : Bytes{});
        EXPECT_EQ(a.network.sent.back().data, request) << "asked all the same";
        EXPECT_TRUE(a.network.sent.back().toPeer);
    }
}

TEST(StreamExchange, AnAnswerFromBeforeIsNoneWhereTheRequestCannotGo) {
    Asked a;
    a.ask();
    sayBefore(a, 1, a.control, good);
    a.network.sendError = 10051;
    EXPECT_FALSE(a.ask());
    EXPECT_TRUE(a.answer.empty());
}

TEST(StreamExchange, EachDatagramPassedOverRestartsTheWaitAndCountsNoTry) {
    Asked a;
    a.say(6000, a.control, datagram(7, 1));
    a.say(12000, a.control, datagram(7, 1));
    a.say(18000, a.control, good);
    EXPECT_TRUE(a.ask());
    EXPECT_EQ(a.answer, good);
    EXPECT_EQ(a.target.requests.size(), 1u) << "no wait of 10 ms was silent";
}

TEST(StreamExchange, AFloodOfOtherIdsKeepsItWaitingButNotForEver) {
    for (const std::uint64_t every : {1000u, 5000u, 9999u}) {
        SCOPED_TRACE(every);
        Asked a;
        for (std::uint64_t t = 100; t < 6000000; t += every) {
            a.say(t, a.control, datagram(7, 1));
        }
        EXPECT_TRUE(a.ask());
        EXPECT_TRUE(a.answer.empty());
        EXPECT_EQ(a.target.requests.size(), 1u);
        EXPECT_GE(a.elapsed(), 5000000 + 3 * wait);
        EXPECT_LE(a.elapsed(), 5000000 + 4 * wait);
    }
}

TEST(StreamExchange, AFailingSocketIsAFailure) {
    struct Case {
        const char* why;
        void (*fault)(Asked&);
    };
    const Case cases[] = {
        {"the send", [](Asked& a) { a.network.sendError = 10051; }},
        {"the wait", [](Asked& a) { a.network.waitFails = true; }},
        {"the read",
         [](Asked& a) {
             a.network.receiveFails = true;
             a.target.on(4, good);
         }},
        {"a closed socket", [](Asked& a) { a.link->close(); }},
        {"a socket that closes during the wait",
         [](Asked& a) { a.network.time.in(500, [&a] { a.link->close(); }); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Asked a;
        c.fault(a);
        EXPECT_FALSE(a.ask());
        EXPECT_TRUE(a.answer.empty());
        EXPECT_EQ(a.link->destination(), a.elsewhere);
    }
}

TEST(StreamExchange, AFullBufferOnANonBlockingSocketMakesTheSendBlock) {
    Asked a;
    a.link->setBlocking(false);
    a.network.sendFullTimes = 1;
    a.target.on(4, good);
    EXPECT_TRUE(a.ask());
    EXPECT_EQ(a.answer, good);
    EXPECT_FALSE(a.link->isBlocking()) << "and it is put back";
}

TEST(StreamExchange, LogsWhatItReadsAtLevel7Alone) {
    Asked a;
    a.target.on(4, [&](const Bytes&) { return Datagrams{Bytes(15, 0), datagram(7, 1), good}; });
    {
        const LogCapture quiet(6);
        Asked b;
        b.target.answers = a.target.answers;
        EXPECT_TRUE(b.ask());
        EXPECT_TRUE(quiet.lines().empty());
    }
    const LogCapture log(7);
    EXPECT_TRUE(a.ask());
    EXPECT_THAT(log.texts(7), ElementsAre("sendAck RCV errpacket:15", "sendAck[0,3,3]RCV:7",
                                          "sendAck[0,3,3]RCV:5"));
}

TEST(StreamExchange, ALinkThatIsBoundToAScopeSeesItsTargetUnderThatScopeOrNone) {
    struct Case {
        const char* why;
        std::uint32_t bound, from, to;
        bool same;
    };
    const Case cases[] = {
        {"not bound: the scopes must agree", 0, 3, 3, true},
        {"not bound: another scope", 0, 4, 3, false},
        {"not bound: no scope", 0, 0, 3, false},
        {"bound: none told", 3, 0, 3, true},
        {"bound: the bound one", 3, 3, 9, true},
        {"bound: another", 3, 9, 9, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        FakeNetwork network;
        const auto link = network.makeLink();
        IPAddress local = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 1, 2}, 0, c.bound);
        link->bindV6(local);
        IPAddress from = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 7}, 5000, c.from), to = from;
        to.scope = c.to;
        EXPECT_EQ(VELMORA::isFrom(*link, from, to), c.same);
    }
}

}  // namespace
