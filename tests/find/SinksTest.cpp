// The questions that one target is asked, and what each makes of every kind of answer.
#include <functional>

#include "tests/find/FindTest.h"

namespace velmora_test {
namespace {

class Sinks : public FindTest {
protected:
    const IPAddress address = control(1);
    ScriptedTarget target{network, address};
};

constexpr Manner unanswered[] = {Manner::silent,        Manner::refuses,   Manner::echoes,
                                 Manner::foreignSender, Manner::otherPort, Manner::otherScope};

const char* nameOf(Manner manner) {
    switch (manner) {
        case Manner::answers:
            return "answers";
        case Manner::silent:
            return "silent";
        case Manner::refuses:
            return "refuses";
        case Manner::echoes:
            return "echoes";
        case Manner::foreignSender:
            return "foreign sender";
        case Manner::otherPort:
            return "other port";
        case Manner::otherScope:
            return "other scope";
    }
    return "";
}

// ---- the bytes on the wire ----

TEST_F(Sinks, RequestsGoOutInTheseBytes) {
    setting.ownID = 0x45544e4556524f4b;  // "KORVENTE"
    setting.clientName = "A";
    setting.nopBreak = true;
    Find& find = opened();
    find.ping(address);
    find.hello(address);
    IPAddress key;
    std::uint16_t version = 0;
    std::string name;
    find.getSink(address, 0x1234, key, version, name);

    const auto sent = sentByHost();
    ASSERT_EQ(sent.size(), 4u);
    EXPECT_EQ(sent[0].data, (Bytes{0x64, 0, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(sent[1].data, (Bytes{0x64, 0,   0x1f, 0,   22,  0, 1, 0, 'K', 'O', 'R', 'V',
                                   'E',  'N', 'T',  'E', 'A', 0, 0, 0, 0,   0,   0,   0}));
    EXPECT_EQ(sent[2].data, (Bytes{0x64, 0, 0x10, 0, 42, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(sent[3].data, (Bytes{0x64, 0, 0x10, 0, 2, 0, 0, 0, 0x34, 0x12, 0, 0, 0, 0, 1, 0}));
    for (const Datagram& datagram : sent) EXPECT_EQ(datagram.to, address);
}

TEST_F(Sinks, ANameOfEightCharactersNeedsNoFiller) {
    setting.clientName = "Velmora1";
    opened().hello(address);
    EXPECT_EQ(sentByHost().at(0).data,
              (Bytes{0x64, 0, 0x18, 0, 22,  0,   1,   0,   0,   0,   0,   0,
                     0,    0, 0,    0, 'V', 'e', 'l', 'm', 'o', 'r', 'a', '1'}));
}

// A SINK_ANS by hand: port 6000 (0x1770) little-endian, version 3, the name "a".
TEST_F(Sinks, AnswersAreReadFromTheseBytes) {
    target.replies[wire::SINK_REQ::id] = [](const wire::PacketView&) {
        return Bytes{0x64, 0,    0x1f, 0, 3,   0, 1, 0, 0, 0, 0, 0,
                     0x70, 0x17, 3,    0, 'a', 0, 0, 0, 0, 0, 0, 0};
    };
    IPAddress key;
    std::uint16_t version = 0;
    std::string name;
    EXPECT_TRUE(opened().getSink(address, 1, key, version, name));
    EXPECT_EQ(key, linkLocal(1, 6000));
    EXPECT_EQ(key.port, (std::array<std::uint8_t, 2>{0x17, 0x70}));
    EXPECT_EQ(version, 3);
    EXPECT_EQ(name, "a");
}

// ---- ping, hello ----

TEST_F(Sinks, PingIsTrueOnlyForAnAcceptedAnswer) {
    Find& find = opened();
    EXPECT_TRUE(find.ping(address));
    for (const Manner manner : unanswered) {
        SCOPED_TRACE(nameOf(manner));
        target.behaveToAll(manner);
        EXPECT_FALSE(find.ping(address));
    }
    network.waitFails = true;
    EXPECT_FALSE(find.ping(address));
}

TEST_F(Sinks, HelloIsFalseOnlyForAFailureOfTheSocket) {
    Find& find = opened();
    EXPECT_TRUE(find.hello(address));
    for (const Manner manner : unanswered) {
        SCOPED_TRACE(nameOf(manner));
        target.behaveToAll(manner);
        EXPECT_TRUE(find.hello(address));
    }
    network.waitFails = true;
    EXPECT_FALSE(find.hello(address));
}

// ---- getSinkCount ----

TEST_F(Sinks, CountIsTakenFromAnAcceptedAnswerOfPortZero) {
    target.countTold = 0x1234;
    std::uint16_t count = 9, second = 9;
    EXPECT_TRUE(opened().getSinkCount(address, count, second));
    EXPECT_EQ(count, 0x1234);
    EXPECT_EQ(second, 0);
    EXPECT_THAT(target.order(), ElementsAre("SINK_REQ 0"));
    EXPECT_EQ(target.seen[0].arg[3], 1) << "+14 is always 1";
}

TEST_F(Sinks, CountOfAnAnswerWithAPortIsNone) {
    target.countTold = 4;
    target.portInCount = 1;
    std::uint16_t count = 9, second = 9;
    EXPECT_TRUE(opened().getSinkCount(address, count, second));
    EXPECT_EQ(count, 0);
    EXPECT_EQ(second, 0);
}

TEST_F(Sinks, CountOfWhoDoesNotAnswerIsNone) {
    target.countTold = 4;
    Find& find = opened();
    for (const Manner manner : unanswered) {
        SCOPED_TRACE(nameOf(manner));
        target.behaveToAll(manner);
        std::uint16_t count = 9, second = 9;
        EXPECT_TRUE(find.getSinkCount(address, count, second));
        EXPECT_EQ(count, 0);
        EXPECT_EQ(second, 0);
    }
    network.waitFails = true;
    std::uint16_t count = 9, second = 9;
    EXPECT_FALSE(find.getSinkCount(address, count, second));
    EXPECT_EQ(count, 0);
    EXPECT_EQ(second, 0);
}

// ---- getSink ----

TEST_F(Sinks, ASinkHasTheTargetsAddressAndScopeAndItsOwnPort) {
    target.sinks = {{6000, 1, "left"}, {6001, 0, ""}};
    Find& find = opened();
    IPAddress key;
    std::uint16_t version = 9;
    std::string name = "before";
    EXPECT_TRUE(find.getSink(address, 1, key, version, name));
    EXPECT_EQ(key, linkLocal(1, 6000));
    EXPECT_EQ(version, 1);
    EXPECT_EQ(name, "left");
    EXPECT_TRUE(find.getSink(address, 2, key, version, name));
    EXPECT_EQ(key, linkLocal(1, 6001));
    EXPECT_EQ(version, 0);
    EXPECT_EQ(name, "");
}

TEST_F(Sinks, ASinkThatIsNotThereHasNoAddress) {
    target.sinks = {{0, 5, "gap"}};
    IPAddress key = address;
    std::uint16_t version = 9;
    std::string name = "before";
    EXPECT_TRUE(opened().getSink(address, 1, key, version, name));
    EXPECT_EQ(key, IPAddress());
    EXPECT_EQ(version, 9);
    EXPECT_EQ(name, "before");
}

TEST_F(Sinks, ASinkOfWhoDoesNotAnswerHasNoAddress) {
    target.sinks = {{6000, 1, "left"}};
    Find& find = opened();
    for (const Manner manner : unanswered) {
        SCOPED_TRACE(nameOf(manner));
        target.behaveToAll(manner);
        IPAddress key = address;
        std::uint16_t version = 0;
        std::string name;
        EXPECT_TRUE(find.getSink(address, 1, key, version, name));
        EXPECT_EQ(key, IPAddress());
    }
    network.waitFails = true;
    IPAddress key = address;
    std::uint16_t version = 0;
    std::string name;
    EXPECT_FALSE(find.getSink(address, 1, key, version, name));
    EXPECT_EQ(key, IPAddress());
}

TEST_F(Sinks, AreSkippedWhenTheirProtocolIsNewerThanTheHostKnows) {
    struct Case {
        const char* why;
        std::uint16_t most, version;
        bool taken;
        const char* log;
    };
    constexpr Case cases[] = {
        {"older", 1, 0, true, ""},
        {"the same", 1, 1, true, ""},
        {"newer by one", 1, 2, false, "Velmora Find protocol version not much : 1<2"},
        {"the newest", 1, 65535, false, "Velmora Find protocol version not much : 1<65535"},
        {"no limit", 0, 65535, true, ""},
        {"the highest limit", 65535, 65535, true, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        setting.maxVersion = c.most;
        target.sinks = {{6000, c.version, "s"}};
        Find& find = opened();
        IPAddress key;
        std::uint16_t version = 0;
        std::string name;
        EXPECT_TRUE(find.getSink(address, 1, key, version, name));
        EXPECT_EQ(key, c.taken ? linkLocal(1, 6000) : IPAddress());
        EXPECT_EQ(version, c.version) << "told even of a sink that is skipped";
        EXPECT_EQ(name, "s");
        if (c.taken) {
            EXPECT_THAT(log.texts(6), IsEmpty());
        } else {
            EXPECT_THAT(log.texts(6), ElementsAre(c.log));
        }
    }
}

// ---- NOPBREAK_REQ ----

TEST_F(Sinks, OnlyAnAcceptedNopBreakStopsTheRequestBehindIt) {
    setting.nopBreak = true;
    target.sinks = {{6000, 1, "left"}};
    Find& find = opened();
    std::uint16_t count = 9, second = 9, version = 0;
    std::string name;
    IPAddress key = address;
    target.behave(Manner::answers, wire::NOPBREAK_REQ::id);
    EXPECT_FALSE(find.getSinkCount(address, count, second));
    EXPECT_EQ(count, 0);
    EXPECT_FALSE(find.getSink(address, 1, key, version, name));
    EXPECT_EQ(key, IPAddress());
    EXPECT_THAT(target.order(), ElementsAre("NOPBREAK_REQ", "NOPBREAK_REQ"));

    for (const Manner manner : unanswered) {
        SCOPED_TRACE(nameOf(manner));
        target.behave(manner, wire::NOPBREAK_REQ::id);
        target.seen.clear();
        EXPECT_TRUE(find.getSinkCount(address, count, second));
        EXPECT_EQ(count, 1);
        EXPECT_TRUE(find.getSink(address, 1, key, version, name));
        EXPECT_EQ(key, linkLocal(1, 6000));
        EXPECT_THAT(target.order(),
                    ElementsAre("NOPBREAK_REQ", "SINK_REQ 0", "NOPBREAK_REQ", "SINK_REQ 1"));
    }
}

TEST_F(Sinks, ASilentNopBreakCostsAHundredMilliseconds) {
    setting.nopBreak = true;
    Find& find = opened();
    std::uint16_t count = 0, second = 0;
    EXPECT_EQ(duration([&] { find.getSinkCount(address, count, second); }), 100'000u + 2 * 50);
}

// The probe's own failure is not looked at: the request behind it tells.
TEST_F(Sinks, AFailingNopBreakGoesOnToTheRequest) {
    setting.nopBreak = true;
    target.sinks = {{6000, 1, "left"}};
    Find& find = opened();
    target.onRequest = [&](const ScriptedTarget::Seen& seen) {
        network.waitFails = seen.id == wire::NOPBREAK_REQ::id;
    };
    network.fate = [&](const Datagram&) {  // until the next datagram goes out
        network.waitFails = false;
        return Fate{{network.delay, std::nullopt}};
    };
    std::uint16_t count = 0, second = 0;
    EXPECT_TRUE(find.getSinkCount(address, count, second));
    EXPECT_EQ(count, 1);
    EXPECT_THAT(target.order(), ElementsAre("NOPBREAK_REQ", "SINK_REQ 0"));
}

// ---- getSinks ----

TEST_F(Sinks, AllOfATargetLeaveOutGapsAndNewerOnes) {
    setting.maxVersion = 1;
    target.sinks = {{6002, 1, "one"}, {0, 1, "gap"}, {6001, 2, "newer"}, {6000, 0, "four"}};
    VELMORA::SinkMap sinks;
    EXPECT_TRUE(opened().getSinks(address, sinks));
    ASSERT_EQ(sinks.size(), 2u);
    const auto& four = sinks.at(linkLocal(1, 6000));
    EXPECT_EQ(four.sinkNo, 4);
    EXPECT_EQ(four.version, 0);
    EXPECT_EQ(four.name, "four");
    const auto& one = sinks.at(linkLocal(1, 6002));
    EXPECT_EQ(one.sinkNo, 1);
    EXPECT_EQ(one.version, 1);
    EXPECT_EQ(one.name, "one");
    EXPECT_THAT(target.order(),
                ElementsAre("SINK_REQ 0", "SINK_REQ 1", "SINK_REQ 2", "SINK_REQ 3", "SINK_REQ 4"));
}

TEST_F(Sinks, AllOfATargetFailWithAnyOfThem) {
    target.sinks = {{6000, 1, "one"}, {6001, 1, "two"}};
    for (const std::uint16_t failing : {std::uint16_t{0}, std::uint16_t{2}}) {
        SCOPED_TRACE(failing);
        Find& find = opened();
        target.onRequest = [&](const ScriptedTarget::Seen& seen) {
            network.waitFails = seen.arg[0] == failing;
        };
        VELMORA::SinkMap sinks;
        EXPECT_FALSE(find.getSinks(address, sinks));
        network.waitFails = false;
    }
}

TEST_F(Sinks, OfTheHighestCountAreAllAsked) {
    target.countTold = 65535;
    target.replies[wire::SINK_REQ::id] = [](const wire::PacketView& request) {
        if (request.arg16(8) == 0) return write(wire::SINK_ANS{.count = 65535});
        return write(wire::SINK_ANS{.port = request.arg16(8) == 65535 ? std::uint16_t{6000}
                                                                      : std::uint16_t{0}});
    };
    log.clear();
    ZENNO::logLevel = 6;  // a hundred thousand lines less
    VELMORA::SinkMap sinks;
    EXPECT_TRUE(opened().getSinks(address, sinks));
    EXPECT_EQ(target.seen.size(), 65536u);
    ASSERT_EQ(sinks.size(), 1u);
    EXPECT_EQ(sinks.begin()->second.sinkNo, 65535);
}

// ---- identify ----

TEST_F(Sinks, IdentifyTellsProductAndNameAndGreets) {
    target.product = 0x1122334455667788;
    target.name = "living room";
    std::uint64_t product = 0;
    std::string name;
    EXPECT_TRUE(opened().identify(address, product, name));
    EXPECT_EQ(product, 0x1122334455667788u);
    EXPECT_EQ(name, "living room");
    EXPECT_THAT(target.order(), ElementsAre("FIND_REQ", "HELLO_REQ"));
    EXPECT_TRUE(log.has(6, "Find Target: 1234605616436508552"));
}

TEST_F(Sinks, IdentifyTellsTheNameOfARefusedProductToo) {
    setting.filterID = 9;
    target.product = 8;
    target.name = "stranger";
    std::uint64_t product = 0;
    std::string name;
    EXPECT_TRUE(opened().identify(address, product, name));
    EXPECT_EQ(product, Find::refusedProduct);
    EXPECT_EQ(name, "stranger");
}

TEST_F(Sinks, IdentifyOfWhoDoesNotAnswerGreetsAndLeavesTheName) {
    Find& find = opened();
    for (const Manner manner : unanswered) {
        SCOPED_TRACE(nameOf(manner));
        target.behave(manner, wire::FIND_REQ::id);
        target.seen.clear();
        log.clear();
        std::uint64_t product = 0;
        std::string name = "before";
        EXPECT_TRUE(find.identify(address, product, name));
        EXPECT_EQ(product, ~0ull);
        EXPECT_EQ(name, "before");
        EXPECT_THAT(target.order(), ElementsAre("FIND_REQ", "HELLO_REQ"));
        EXPECT_THAT(log.texts(6), IsEmpty()) << "the filter is not asked";
    }
}

TEST_F(Sinks, IdentifyFailsWithTheSocketInEitherStep) {
    for (const std::uint16_t failing : {wire::FIND_REQ::id, wire::HELLO_REQ::id}) {
        SCOPED_TRACE(failing);
        Find& find = opened();
        target.onRequest = [&](const ScriptedTarget::Seen& seen) {
            network.waitFails = seen.id == failing;
        };
        std::uint64_t product = 5;
        std::string name = "before";
        EXPECT_FALSE(find.identify(address, product, name));
        EXPECT_EQ(product, 5u);
        EXPECT_EQ(name, "before");
        network.waitFails = false;
    }
}

}  // namespace
}  // namespace velmora_test
