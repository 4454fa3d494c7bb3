// doctor: why a target is not found.
#include "tests/apps/FindWorld.h"

namespace velmora_test {
namespace {

class FindDoctor : public FindWorld {
protected:
    // Of the JSON's findings, those that say `words`.
    std::size_t findings(const std::string& words) {
        std::size_t count = 0;
        const Json all = json();
        for (const Json& finding : all["findings"]) {
            const std::string wrong = finding["wrong"];
            EXPECT_THAT(std::string(finding["helps"]), Not(IsEmpty()));
            count += wrong.find(words) != std::string::npos ? 1u : 0u;
        }
        return count;
    }
    int examine() { return run({"doctor", "--json"}); }
};

TEST_F(FindDoctor, FindsNothingWrongWhereAllIsWell) {
    EXPECT_EQ(run({"doctor"}), velmora_find::exitDone);
    EXPECT_EQ(out.str(),
              "Interface eth0, number 3, fe80::1:2: asked, 1 answered\n"
              "    DAC  fe80::2 port 19642, product KORVENTE, 1 sink, the largest datagram "
              "it answered has 8952 bytes\n"
              "A long datagram that is answered has arrived, whole or in fragments, which this "
              "computer cannot\ntell; whether the way back takes as much is not seen.\n"
              "\nThe driver will find one target.\n");
    EXPECT_EQ(examine(), velmora_find::exitDone);
    EXPECT_EQ(json()["findings"], Json::array());
    EXPECT_EQ(json()["targets"], 1);
}

TEST_F(FindDoctor, SaysWhatHelpsWhereNobodyAnswers) {
    target.behaveToAll(Manner::silent);
    EXPECT_EQ(examine(), velmora_find::exitNobody);
    EXPECT_EQ(findings("nobody answered"), 1u);
    EXPECT_EQ(json()["interfaces"][0]["usable"], true);
    EXPECT_EQ(run({"doctor"}), velmora_find::exitNobody);
    EXPECT_THAT(out.str(), HasSubstr("Helps: Is the target on"));
    EXPECT_THAT(out.str(), HasSubstr("The driver will find no target that it can use."));
}

TEST_F(FindDoctor, TellsWhyInterfacesAreLeftOut) {
    network.interfaces[IPAddress::of({0, 0, 0, 0, 0, 0, 0, 1}, 0, 1)] = {"lo", ""};
    network.interfaces[IPAddress::of({0x2001, 0xdb8, 0, 0, 0, 0, 0, 5}, 0, 6)] = {"wan0", ""};
    network.interfaces[IPAddress::of({0xfe81, 0, 0, 0, 0, 0, 0, 5}, 0, 7)] = {"odd0", ""};
    // A global address beside a link-local one takes nothing away.
    network.interfaces[IPAddress::of({0x2001, 0xdb8, 0, 0, 0, 0, 0, 6}, 0, 3)] = {"eth0", ""};
    context.adapters = [](std::vector<ZENNO::platform::Adapter>& all) {
        all = {{3, "eth0", "", {}}, {8, "off0", "", {}}};
        return true;
    };
    EXPECT_EQ(examine(), velmora_find::exitDone);
    ASSERT_EQ(json()["interfaces"].size(), 1u);
    const Json left = json()["leftOut"];
    ASSERT_EQ(left.size(), 4u);
    const std::vector<std::pair<const char*, const char*>> expected = {
        {"lo", "loopback"},
        {"wan0", "only the global address 2001:db8::5"},
        {"odd0", "fe81::5 is link-local, but does not begin with fe80"},
        {"off0", "no IPv6 address"}};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(left[i]["name"], expected[i].first);
        EXPECT_THAT(std::string(left[i]["why"]), HasSubstr(expected[i].second));
    }
    EXPECT_EQ(run({"doctor"}), velmora_find::exitDone);
    EXPECT_THAT(out.str(), HasSubstr("Left out: lo, for it is this computer's loopback"));
}

TEST_F(FindDoctor, SaysWhereNoInterfaceCanBeUsed) {
    network.interfaces = {{IPAddress::of({0, 0, 0, 0, 0, 0, 0, 1}, 0, 1), {"lo", ""}}};
    EXPECT_EQ(examine(), velmora_find::exitNetwork);
    EXPECT_EQ(findings("No interface has an address fe80::"), 1u);
    network.interfacesFail = true;
    EXPECT_EQ(examine(), velmora_find::exitNetwork);
    EXPECT_THAT(talk.str(), HasSubstr("gives no list"));
}

TEST_F(FindDoctor, LooksAtOneInterfaceAlone) {
    network.interfaces[onLink(9, 0, 5)] = {"eth1", ""};
    network.interfaces[IPAddress::of({0, 0, 0, 0, 0, 0, 0, 1}, 0, 1)] = {"lo", ""};
    EXPECT_EQ(run({"doctor", "--json", "--interface", "eth1"}), velmora_find::exitNobody);
    ASSERT_EQ(json()["interfaces"].size(), 1u);
    EXPECT_EQ(json()["interfaces"][0]["number"], 5);
    EXPECT_EQ(json()["leftOut"], Json::array());
    EXPECT_EQ(run({"doctor", "--json", "--interface", "lo"}), velmora_find::exitNetwork);
    EXPECT_EQ(json()["leftOut"].size(), 1u);
    EXPECT_EQ(run({"doctor", "--interface", "eth9"}), velmora_find::exitNetwork);
    EXPECT_THAT(out.str(), IsEmpty());
}

TEST_F(FindDoctor, TellsAnAddressThatCannotBeUsed) {
    network.bindFails = true;
    EXPECT_EQ(examine(), velmora_find::exitNetwork);
    EXPECT_EQ(findings("eth0: its address cannot be used"), 1u);
    EXPECT_EQ(json()["interfaces"][0]["bindError"], 10048);
    network.openFails = true;
    EXPECT_EQ(examine(), velmora_find::exitNetwork);
    EXPECT_EQ(network.openLinks(), 0);
}

TEST_F(FindDoctor, TellsAQuestionThatCannotBeSentWithItsError) {
    network.sendError = 10065;
    EXPECT_EQ(examine(), velmora_find::exitNetwork);
    EXPECT_EQ(findings("error 10065"), 1u);
    EXPECT_EQ(json()["interfaces"][0]["sendError"], 10065);
}

TEST_F(FindDoctor, TellsWhatATargetHasAgainstIt) {
    struct Case {
        const char* why;
        std::function<void()> make;
        const char* words;
        int code;
    };
    const Case cases[] = {
        {"a refusal", [&] { target.behave(Manner::refuses, wire::FIND_REQ::id); },
         "refuses to be found", velmora_find::exitNobody},
        {"late", [&] { target.answerDelay[wire::FIND_REQ::id] = 120'000; }, "later than the driver",
         velmora_find::exitNobody},
        {"another port", [&] { target.behave(Manner::otherPort, wire::FIND_REQ::id); },
         "answers from port 19643", velmora_find::exitNobody},
        {"another product", [&] { target.product = 1; }, "product 0x0000000000000001",
         velmora_find::exitNobody},
        {"no sinks", [&] { target.sinks.clear(); }, "no sink", velmora_find::exitNobody},
        {"no unicast", [&] { target.behave(Manner::silent, wire::SINK_REQ::id); }, "no sink",
         velmora_find::exitNobody},
        {"newer sinks alone",
         [&] {
             target.sinks = {{19650, 2, ""}};
         },
         "newer protocol", velmora_find::exitNobody},
        {"a newer one beside one that fits",
         [&] {
             target.sinks.push_back({19651, 2, ""});
         },
         "", velmora_find::exitDone},
        {"no product told", [&] { target.product = 0; }, "", velmora_find::exitDone},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        target.product = ProductID;
        target.sinks = {{19650, 1, "Main"}};
        target.answerDelay.clear();
        target.behaveToAll(Manner::answers);
        c.make();
        EXPECT_EQ(examine(), c.code);
        if (*c.words == 0) {
            EXPECT_EQ(json()["findings"], Json::array());
        }
        if (*c.words != 0) {
            EXPECT_GE(findings(c.words), 1u) << out.str();
        }
    }
}

TEST_F(FindDoctor, FindsTheLargestDatagramThatIsAnswered) {
    struct Case {
        std::size_t largest;
        Json answered;
    };
    const Case cases[] = {{8952, 8952}, {8951, 4030},    {4030, 4030}, {4029, 1452},
                          {1452, 1452}, {1451, nullptr}, {16, nullptr}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.largest);
        network.fate = [&](const Datagram& datagram) -> Fate {
            if (datagram.data.size() > c.largest && datagram.toPeer) return {};
            return {{50, std::nullopt}};
        };
        EXPECT_EQ(examine(), velmora_find::exitDone);
        EXPECT_EQ(json()["interfaces"][0]["targets"][0]["largestAnswered"], c.answered);
        EXPECT_EQ(findings("does not answer datagrams of 1452"), c.answered == nullptr ? 1u : 0u);
    }
}

TEST_F(FindDoctor, DoesNotTakeALateAnswerForTheOneToASmallerQuestion) {
    network.fate = [&](const Datagram& datagram) -> Fate {
        if (datagram.toPeer && datagram.data.size() > 8000) return {{350'000, std::nullopt}};
        if (datagram.toPeer && datagram.data.size() > 1000) return {};
        return {{50, std::nullopt}};
    };
    EXPECT_EQ(examine(), velmora_find::exitDone);
    EXPECT_EQ(json()["interfaces"][0]["targets"][0]["largestAnswered"], 8952);
}

TEST_F(FindDoctor, DoesNotTakeAStrangersAnswerForTheTargets) {
    network.fate = [&](const Datagram& datagram) -> Fate {
        if (!datagram.toPeer || datagram.data.size() < 1000) return {{50, std::nullopt}};
        network.time.in(50, [this, to = datagram.from] {
            network.send(onLink(7), to, write(wire::FIND_ANS{.targetName = "stranger"}));
        });
        return {};
    };
    EXPECT_EQ(examine(), velmora_find::exitDone);
    EXPECT_EQ(json()["interfaces"][0]["targets"][0]["largestAnswered"], nullptr);
}

TEST_F(FindDoctor, CountsWhatIsNoAnswer) {
    target.onRequest = [&](const ScriptedTarget::Seen& seen) {
        if (seen.multicast) network.send(onLink(7, 5000), seen.from, Bytes(20, 0x41));
    };
    EXPECT_EQ(examine(), velmora_find::exitDone);
    EXPECT_EQ(json()["interfaces"][0]["strays"], 3);
    EXPECT_EQ(findings("3 datagrams came that are no answer"), 1u);
}

TEST_F(FindDoctor, DoesNotCountEmptyDatagrams) {
    target.onRequest = [&](const ScriptedTarget::Seen& seen) {
        if (seen.multicast) network.send(onLink(7, 5000), seen.from, Bytes());
    };
    EXPECT_EQ(examine(), velmora_find::exitDone);
    EXPECT_EQ(json()["interfaces"][0]["strays"], 0);
    EXPECT_EQ(json()["findings"], Json::array());
}

// Takes a part of every datagram, which no system counts as an error.
class ShortLink final : public ZENNO::Link {
public:
    explicit ShortLink(FakeClock& time) : time_(time) {}
    bool open(ZENNO::SocketKind) override { return true; }
    void close() override {}
    bool isOpen() const override { return true; }
    bool bindV6(IPAddress&) override { return true; }
    bool joinV6(const IPAddress&) override { return true; }
    bool setBlocking(bool) override { return true; }
    int waitReadable(std::uint32_t micros) override {
        time_.advance(micros);
        return ZENNO::waitTimedOut;
    }
    bool receiveFrom(ZENNO::BufferCS, std::uint64_t&, IPAddress&) override { return false; }
    std::int64_t sendOnce(ZENNO::BufferCS_const data, const IPAddress&, bool) noexcept override {
        return static_cast<std::int64_t>(data.size) - 1;
    }

private:
    FakeClock& time_;
};

class ShortNetwork final : public ZENNO::Environment {
public:
    ZENNO::Clock& clock() noexcept override { return time; }
    std::unique_ptr<ZENNO::Link> makeLink() override { return std::make_unique<ShortLink>(time); }
    bool localAddressesV6(ZENNO::LocalInterfaceMap& out) override {
        out = {{onLink(1, 0), {"eth0", ""}}};
        return true;
    }
    FakeClock time;
};

TEST_F(FindDoctor, TellsAQuestionThatCannotBeSentWithoutAnError) {
    ShortNetwork shorts;
    velmora_find::Context there{shorts, out, talk};
    EXPECT_EQ(velmora_find::run({"doctor", "--json"}, there), velmora_find::exitNetwork);
    EXPECT_EQ(json()["interfaces"][0]["usable"], false);
    EXPECT_EQ(json()["interfaces"][0]["sendError"], -1);
    EXPECT_EQ(findings("without an error number"), 1u);
}

TEST_F(FindDoctor, NeverLetsATargetsTextReachTheTerminalRaw) {
    target.name = "\x1b[31m\xff";
    target.product = 1;
    EXPECT_EQ(examine(), velmora_find::exitNobody);
    EXPECT_EQ(json()["interfaces"][0]["targets"][0]["name"], "\\x1b[31m\\xff");
    EXPECT_EQ(run({"doctor"}), velmora_find::exitNobody);
    EXPECT_THAT(out.str(), Not(HasSubstr("\x1b")));
}

TEST_F(FindDoctor, EndsWhereOneAnswersInAThousandNames) {
    target.onRequest = [&](const ScriptedTarget::Seen& seen) {
        if (!seen.multicast) return;
        for (std::uint16_t i = 0; i < 1000; ++i) {
            const IPAddress name = onLink(static_cast<std::uint16_t>(0x1000 + i));
            network.send(name, seen.from, write(wire::FIND_ANS{.targetName = "ghost"}));
        }
    };
    const auto before = network.time.time();
    EXPECT_EQ(examine(), velmora_find::exitDone);
    EXPECT_EQ(findings("there are too many"), 1u);
    EXPECT_LT(network.time.time() - before, 150'000'000u);
}

TEST_F(FindDoctor, EndsInAFloodOfStrangers) {
    network.delay = 0;
    std::function<void()> flood = [&] {
        if (network.time.time() > FakeClock::start + 3'000'000) return;
        network.send(onLink(7, 5000), onLink(1, 50000), Bytes(20, 0x41));
        network.time.in(100, flood);
    };
    flood();
    EXPECT_NE(examine(), velmora_find::exitFault);
}

}  // namespace
}  // namespace velmora_test
