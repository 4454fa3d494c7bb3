// info: everything that a target tells.
#include "tests/apps/FindWorld.h"

namespace velmora_test {
namespace {

class FindInfo : public FindWorld {
protected:
    void offerTexts() {
        target.replies[wire::INFOA_REQ::id] = [](const wire::PacketView&) {
            return write(wire::INFOA_ANS{.text = "model A"});
        };
        target.replies[wire::INFOB_REQ::id] = [](const wire::PacketView&) {
            return write(wire::INFOB_ANS{});
        };
        target.replies[wire::INFOINDEX_REQ::id] = [](const wire::PacketView& request) {
            const auto index = request.arg16(8);
            return write(wire::INFOINDEX_ANS{.accepted = index < 2,
                                             .text = "line " + std::to_string(index)});
        };
    }
};

TEST_F(FindInfo, ShowsAllOfIt) {
    offerTexts();
    target.sinks = {{19650, 1, "Main"}, {19651, 2, ""}};
    EXPECT_EQ(run({"info", "fe80::2%eth0"}), velmora_find::exitDone);
    EXPECT_EQ(out.str(),
              "Name           DAC\n"
              "Address        fe80::2%eth0\n"
              "Product        KORVENTE\n"
              "Greeting       answered\n"
              "Sink 1         Main, port 19650, version 1\n"
              "Sink 2         port 19651, version 2\n"
              "Configuration  http://[fe80::2]/\n"
              "Info A         model A\n"
              "Info B         (empty)\n"
              "Info 0         line 0\n"
              "Info 1         line 1\n");
}

TEST_F(FindInfo, GivesTheSameAsJson) {
    offerTexts();
    EXPECT_EQ(run({"info", "fe80::2", "--json"}), velmora_find::exitDone);
    EXPECT_EQ(
        json(),
        Json({{"address", "fe80::2%eth0"},
              {"name", "DAC"},
              {"product", "KORVENTE"},
              {"hello", true},
              {"sinks", Json::array({Json(
                            {{"sink", 1}, {"name", "Main"}, {"port", 19650}, {"version", 1}})})},
              {"config", "http://[fe80::2]/"},
              {"infoA", "model A"},
              {"infoB", ""},
              {"infoIndexed", Json::array({"line 0", "line 1"})},
              {"answers",
               {{"hello", "answered"},
                {"sinks", "answered"},
                {"config", "answered"},
                {"infoA", "answered"},
                {"infoB", "answered"},
                {"infoIndexedEnd", "refused"}}}}));
}

TEST_F(FindInfo, TellsSilenceAndRefusalApart) {
    offerTexts();
    target.behave(Manner::refuses, wire::HELLO_REQ::id);
    target.behave(Manner::silent, wire::CONFIG_REQ::id);
    target.behave(Manner::refuses, wire::INFOA_REQ::id);
    target.behave(Manner::echoes, wire::INFOB_REQ::id);
    target.behave(Manner::silent, wire::INFOINDEX_REQ::id, 1);
    target.sinks.clear();
    target.product = 0;
    EXPECT_EQ(run({"info", "fe80::2", "--json"}), velmora_find::exitDone);
    EXPECT_EQ(json()["config"], nullptr);
    EXPECT_EQ(json()["infoA"], nullptr);
    EXPECT_EQ(json()["hello"], false);
    EXPECT_EQ(json()["answers"], Json({{"hello", "refused"},
                                       {"sinks", "answered"},
                                       {"config", "silent"},
                                       {"infoA", "refused"},
                                       {"infoB", "echoed"},
                                       {"infoIndexedEnd", "silent"}}));
    EXPECT_EQ(run({"info", "fe80::2"}), velmora_find::exitDone);
    EXPECT_EQ(out.str(),
              "Name           DAC\nAddress        fe80::2%eth0\nProduct        not told\n"
              "Greeting       refused\nSinks          none\nConfiguration  (not answered)\n"
              "Info A         (refused)\nInfo B         (sent back)\nInfo 0         line 0\n"
              "Info 1         (not answered)\n");
}

TEST_F(FindInfo, DoesNotCallASilentSinkNone) {
    target.sinks = {{19650, 1, "Main"}, {19651, 1, "Other"}};
    target.behave(Manner::silent, wire::SINK_REQ::id, 2);
    EXPECT_EQ(run({"info", "fe80::2", "--json"}), velmora_find::exitDone);
    EXPECT_EQ(json()["sinks"].size(), 1u);
    EXPECT_EQ(json()["answers"]["sinks"], "partly");
    EXPECT_EQ(run({"info", "fe80::2"}), velmora_find::exitDone);
    EXPECT_THAT(out.str(), HasSubstr("Sinks          (some did not answer)\n"));
    target.behave(Manner::refuses, wire::SINK_REQ::id, 2);  // it is not there
    EXPECT_EQ(run({"info", "fe80::2", "--json"}), velmora_find::exitDone);
    EXPECT_EQ(json()["answers"]["sinks"], "answered");
    target.behave(Manner::silent, wire::SINK_REQ::id, 0);
    EXPECT_EQ(run({"info", "fe80::2", "--json"}), velmora_find::exitDone);
    EXPECT_EQ(json()["answers"]["sinks"], "silent");
    EXPECT_EQ(run({"info", "fe80::2"}), velmora_find::exitDone);
    EXPECT_THAT(out.str(), HasSubstr("Sinks          (not answered)\n"));
}

TEST_F(FindInfo, EndsWithATargetThatCountsSinksWithoutEndAndIsSilent) {
    target.sinks.clear();
    target.countTold = 65535;
    for (std::uint32_t no = 1; no <= 65535; ++no) {
        target.behave(Manner::silent, wire::SINK_REQ::id, static_cast<std::uint16_t>(no));
    }
    const auto before = network.time.time();
    EXPECT_EQ(run({"info", "fe80::2", "--json"}), velmora_find::exitDone);
    EXPECT_EQ(json()["answers"]["sinks"], "partly");
    EXPECT_LT(network.time.time() - before, 40'000'000u);
}

TEST_F(FindInfo, IsTheSameWhicheverOneAnswerIsLost) {
    offerTexts();
    target.sinks = {{19650, 1, "Main"}, {19651, 2, ""}};
    EXPECT_EQ(run({"info", "fe80::2", "--json"}), velmora_find::exitDone);
    const Json whole = json();
    int answers = 1, lost = 1;
    network.fate = [&](const Datagram& datagram) -> Fate {
        if (!datagram.toPeer && ++answers == lost) return {};
        return {{50, std::nullopt}};
    };
    for (; answers >= lost; ++lost) {
        SCOPED_TRACE(lost);
        answers = 0;
        EXPECT_EQ(run({"info", "fe80::2", "--json"}), velmora_find::exitDone);
        EXPECT_EQ(json(), whole);
    }
    EXPECT_GT(lost, 10);
}

// A spell in which nothing comes through, and then all of it, in order: two answers to one
// question.
TEST_F(FindInfo, DoesNotTakeALateAnswerForTheOneToTheNextQuestion) {
    offerTexts();
    std::uint64_t until = 0;
    target.onRequest = [&](const ScriptedTarget::Seen& seen) {
        if (seen.id == wire::INFOINDEX_REQ::id && until == 0) until = seen.time + 150'000;
    };
    network.fate = [&](const Datagram& datagram) -> Fate {
        const bool isHeld = !datagram.toPeer && datagram.time < until;
        return {{isHeld ? until - datagram.time : 50, std::nullopt}};
    };
    EXPECT_EQ(run({"info", "fe80::2", "--json"}), velmora_find::exitDone);
    EXPECT_EQ(json()["infoIndexed"], Json::array({"line 0", "line 1"}));
    EXPECT_EQ(json()["answers"]["infoIndexedEnd"], "refused");
}

TEST_F(FindInfo, TellsOfATargetThatTurnsToRefuse) {
    int asked = 0;
    target.onRequest = [&](const ScriptedTarget::Seen&) {
        if (++asked == 2) target.behaveToAll(Manner::refuses);
    };
    EXPECT_EQ(run({"info", "fe80::2"}), velmora_find::exitTarget);
    EXPECT_THAT(out.str(), IsEmpty());
    EXPECT_THAT(talk.str(), HasSubstr("refuses to talk"));
}

TEST_F(FindInfo, TellsAFailureOfTheNetworkWhereverItComes) {
    offerTexts();
    for (const std::uint16_t id :
         {wire::HELLO_REQ::id, wire::SINK_REQ::id, wire::CONFIG_REQ::id, wire::INFOINDEX_REQ::id}) {
        SCOPED_TRACE(id);
        network.waitFails = false;
        target.onRequest = [&](const ScriptedTarget::Seen& seen) {
            if (seen.id == id) network.waitFails = true;
        };
        EXPECT_EQ(run({"info", "fe80::2"}), velmora_find::exitNetwork);
        EXPECT_THAT(out.str(), IsEmpty());
    }
}

TEST_F(FindInfo, EndsWithATargetThatAnswersForEveryIndex) {
    target.replies[wire::INFOINDEX_REQ::id] = [](const wire::PacketView&) {
        return write(wire::INFOINDEX_ANS{.text = "\x9b"});
    };
    EXPECT_EQ(run({"info", "fe80::2", "--json"}), velmora_find::exitDone);
    EXPECT_EQ(json()["infoIndexed"].size(), 64u);
    EXPECT_EQ(json()["infoIndexed"][0], "\\x9b");
}

TEST_F(FindInfo, TellsOfATargetThatFallsSilent) {
    int asked = 0;
    target.onRequest = [&](const ScriptedTarget::Seen&) {
        if (++asked == 2) target.behaveToAll(Manner::silent);
    };
    EXPECT_EQ(run({"info", "fe80::2"}), velmora_find::exitNobody);
    EXPECT_THAT(out.str(), IsEmpty());
    EXPECT_THAT(talk.str(), HasSubstr("fallen silent"));
}

}  // namespace
}  // namespace velmora_test
