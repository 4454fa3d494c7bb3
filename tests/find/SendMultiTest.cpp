// One pass on all interfaces, and the three of a search.
#include "tests/find/FindTest.h"

namespace velmora_test {
namespace {

class SendMulti : public FindTest {
protected:
    using Acks = std::map<IPAddress, Bytes>;
    const Bytes request = write(wire::FIND_REQ{});
};

TEST_F(SendMulti, CarriesTheModeOfTheWatch) {
    VELMORA::FoundMap found;
    ScriptedTarget target(network, control(1));
    target.product = 5;
    target.name = "n";
    EXPECT_TRUE(opened().findMulti(found, 1));
    EXPECT_EQ(sentByHost().at(0).data,
              (Bytes{0x64, 0, 0x10, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0}));
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found.begin()->first, control(1));
    EXPECT_EQ(found.begin()->second.product, 5u);
    EXPECT_EQ(found.begin()->second.name, "n");
}

TEST_F(SendMulti, FindMultiAddsToWhatIsThere) {
    VELMORA::FoundMap found;
    found[control(9)].name = "earlier";
    ScriptedTarget target(network, control(1));
    EXPECT_TRUE(opened().findMulti(found, 0));
    EXPECT_EQ(found.size(), 2u);
}

TEST_F(SendMulti, KeepsTheLastAnswerOfEachSender) {
    VELMORA::FoundMap found;
    ScriptedTarget target(network, control(1));
    target.onRequest = [&](const ScriptedTarget::Seen&) {
        target.name = "name " + std::to_string(target.seen.size());
    };
    EXPECT_TRUE(opened().findMulti(found, 0));
    EXPECT_EQ(found.at(control(1)).name, "name 3");
}

TEST_F(SendMulti, KeepsOnlyAcceptedAnswersToFindReq) {
    struct Case {
        const char* why;
        Bytes data;
        bool kept;
    };
    const Bytes good = {0x64, 0, 0x10, 0, 1, 0, 1, 0, 7, 0, 0, 0, 0, 0, 0, 0};
    Bytes refused = good, otherId = good, otherMagic = good, cut = good, longer = good;
    refused[6] = 0;
    otherId[4] = 3;
    otherMagic[1] = 1;
    cut.pop_back();
    longer.resize(40);
    const Case cases[] = {
        {"accepted", good, true},
        {"with bytes behind its length", longer, true},
        {"refused", refused, false},
        {"another id", otherId, false},
        {"another magic", otherMagic, false},
        {"15 bytes", cut, false},
        {"nothing", {}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        ScriptedTarget target(network, control(1));
        target.replies[0] = [&](const wire::PacketView&) { return c.data; };
        Acks acks;
        EXPECT_TRUE(opened().sendMulti(request, acks));
        EXPECT_EQ(acks.size(), c.kept ? 1u : 0u);
        if (c.kept) {
            EXPECT_EQ(acks.at(control(1)), c.data);
        }
        std::vector<std::string> lines = {"Find Multi Send : 3",
                                          "Find Multi Ack Rcv : " + std::to_string(c.data.size())};
        if (c.kept) lines.push_back("FindMultiAck[0,3]Valid : fe80::1");
        EXPECT_EQ(log.texts(7), lines);
    }
}

TEST_F(SendMulti, TakesNothingThatComesBehindItsThirtyMilliseconds) {
    ScriptedTarget target(network, control(1));
    network.delay = 0;
    target.answerDelay[0] = 30'000;
    Acks acks;
    EXPECT_TRUE(opened().sendMulti(request, acks));
    EXPECT_EQ(acks.size(), 1u);
    acks.clear();
    target.answerDelay[0] = 30'001;
    EXPECT_TRUE(opened().sendMulti(request, acks));
    EXPECT_THAT(acks, IsEmpty());
}

TEST_F(SendMulti, WaitsItsTimeOutWhateverComes) {
    ScriptedTarget target(network, control(1));
    Find& find = opened();
    Acks acks;
    EXPECT_EQ(duration([&] { find.sendMulti(request, acks); }), 30'000u);
}

TEST_F(SendMulti, GoesOnWhenASendFails) {
    addInterface(linkLocal(9, 0, 5), "wlan0");
    Find& find = opened();
    network.sendError = 10051;
    Acks acks;
    EXPECT_EQ(duration([&] { EXPECT_TRUE(find.sendMulti(request, acks)); }), 60'000u);
}

TEST_F(SendMulti, FailsWithItsWait) {
    Find& find = opened();
    network.waitFails = true;
    Acks acks;
    EXPECT_FALSE(find.sendMulti(request, acks));
}

TEST_F(SendMulti, AsksExtraAddressesOncePerInterfaceAtTheirOwnPortAndScope) {
    addInterface(linkLocal(9, 0, 5), "wlan0");
    const IPAddress far = IPAddress::of({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}, 19642, 0);
    const IPAddress near = linkLocal(4, 19777, 8);
    ScriptedTarget target(network, far);
    Find& find = opened();
    find.extraAddresses = {far, near};
    Acks acks;
    EXPECT_TRUE(find.sendMulti(request, acks));
    const auto sent = sentByHost();
    ASSERT_EQ(sent.size(), 6u);
    for (const std::size_t i : {0u, 3u}) {
        EXPECT_EQ(sent[i].to.address[0], 0xff);
        EXPECT_EQ(sent[i + 1].to, far);
        EXPECT_EQ(sent[i + 2].to, near);
    }
    ASSERT_EQ(acks.size(), 1u);
    EXPECT_EQ(acks.begin()->first, far);
}

TEST_F(SendMulti, SendsToAnExtraAddressOfPortZeroAsItStands) {
    IPAddress extra;
    ASSERT_TRUE(extra.parseV6("fe80::5"));
    extra.scope = eth0;
    Find& find = opened();
    find.extraAddresses = {extra};
    Acks acks;
    find.sendMulti(request, acks);
    ASSERT_EQ(sentByHost().size(), 2u);
    EXPECT_EQ(sentByHost()[1].to.portNumber(), 0);
}

TEST_F(SendMulti, AsksNobodyWithoutAnInterface) {
    network.interfaces.clear();
    Find& find = opened();
    find.extraAddresses = {control(1)};
    Acks acks;
    EXPECT_TRUE(find.sendMulti(request, acks));
    EXPECT_THAT(sentByHost(), IsEmpty());
}

// ---- floods ----

// Sends FIND_ANS from `senders` addresses in turn, every `interval` µs, as long as the test lasts.
class Flood final : public Peer {
public:
    Flood(std::uint32_t senders, std::uint64_t interval, std::uint64_t span)
        : senders_(senders), interval_(interval), span_(span) {}
    void onDatagram(FakeNetwork& network, const Datagram& request) override {
        const Bytes answer = write(wire::FIND_ANS{});
        for (std::uint64_t i = 0; i * interval_ < span_; ++i) {
            IPAddress from = control(1);
            from.setWord(6, static_cast<std::uint16_t>(i % senders_));
            network.time.in(i * interval_, [&network, answer, from, to = request.from] {
                network.send(from, to, answer);
            });
        }
    }

private:
    std::uint64_t senders_, interval_, span_;
};

TEST_F(SendMulti, IsNotHeldByAFlood) {
    Flood flood(10, 10, 300'000);
    network.attach(control(1), &flood);
    ZENNO::logLevel = 6;
    Find& find = opened();
    network.time.tickPerRead = 20;  // reading is slower than the flood
    Acks acks;
    const std::uint64_t took = duration([&] { EXPECT_TRUE(find.sendMulti(request, acks)); });
    EXPECT_LT(took, 30'000u + 20u * (VELMORA::Listening::lateDatagrams + 10));
}

TEST_F(SendMulti, KeepsTheAnswersOfSoManySendersAndNoMore) {
    Flood flood(2000, 1, 2000);
    network.attach(control(1), &flood);
    ZENNO::logLevel = 6;
    Find& find = opened();
    Acks acks;
    EXPECT_TRUE(find.sendMulti(request, acks));
    EXPECT_EQ(acks.size(), VELMORA::mostAnswers);

    network.attach(control(1), nullptr);
    ScriptedTarget known(network, acks.begin()->first);
    known.name = "a sender that is known";
    EXPECT_TRUE(find.sendMulti(request, acks));
    EXPECT_EQ(acks.size(), VELMORA::mostAnswers);
    EXPECT_EQ(acks.begin()->second, write(wire::FIND_ANS{.targetName = known.name}));
}

}  // namespace
}  // namespace velmora_test
