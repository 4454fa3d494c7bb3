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
              {"infoIndexed", Json::array({"line 0", "line 1"})}}));
}

TEST_F(FindInfo, LeavesOutWhatATargetDoesNotTell) {
    target.behave(Manner::silent, wire::HELLO_REQ::id);
    target.behave(Manner::silent, wire::CONFIG_REQ::id);
    target.sinks.clear();
    target.product = 0;
    EXPECT_EQ(run({"info", "fe80::2", "--json"}), velmora_find::exitDone);
    EXPECT_EQ(json()["config"], nullptr);
    EXPECT_EQ(json()["infoA"], nullptr);
    EXPECT_EQ(json()["hello"], false);
    EXPECT_EQ(run({"info", "fe80::2"}), velmora_find::exitDone);
    EXPECT_EQ(out.str(),
              "Name           DAC\nAddress        fe80::2%eth0\nProduct        not told\n"
              "Greeting       not answered\nSinks          none\n");
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
