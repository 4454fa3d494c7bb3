// list: a row a sink.
#include "tests/apps/FindWorld.h"

namespace velmora_test {
namespace {

using FindList = FindWorld;

TEST_F(FindList, SaysWhatToTryWhereNobodyIs) {
    target.behaveToAll(Manner::silent);
    EXPECT_EQ(run({"list"}), velmora_find::exitNobody);
    EXPECT_THAT(out.str(), IsEmpty());
    EXPECT_THAT(talk.str(), HasSubstr("velmora-find doctor"));
    EXPECT_THAT(talk.str(), HasSubstr("list --all"));
    EXPECT_EQ(run({"list", "--json"}), velmora_find::exitNobody);
    EXPECT_EQ(json(), Json::array());
}

TEST_F(FindList, ShowsARowForEachSinkByTheNameThatTheDriverShows) {
    target.sinks = {{19650, 1, "Main"}, {0, 0, ""}, {19652, 0, ""}};
    EXPECT_EQ(run({"list"}), velmora_find::exitDone);
    EXPECT_EQ(out.str(),
              "NAME       ADDRESS       SINK  PORT   VERSION  PRODUCT   CONFIGURATION\n"
              "DAC(Main)  fe80::2%eth0  1     19650  1        KORVENTE  http://[fe80::2]/\n"
              "DAC        fe80::2%eth0  3     19652  0        KORVENTE  http://[fe80::2]/\n");
    EXPECT_THAT(talk.str(), IsEmpty());
}

TEST_F(FindList, GivesTheSameAsJson) {
    EXPECT_EQ(run({"list", "--json"}), velmora_find::exitDone);
    const Json rows = json();
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0], Json({{"name", "DAC(Main)"},
                             {"address", "fe80::2%eth0"},
                             {"interface", "eth0"},
                             {"interfaceNumber", 3},
                             {"sink", 1},
                             {"port", 19650},
                             {"version", 1},
                             {"product", "KORVENTE"},
                             {"productId", "0x45544e4556524f4b"},
                             {"config", "http://[fe80::2]/"}}));
}

TEST_F(FindList, LeavesOtherProductsAndNewerVersionsToAll) {
    ScriptedTarget other(network, onLink(4));
    other.name = "other";
    other.product = 0x1;
    other.sinks = {{19650, 1, ""}};
    target.sinks.push_back({19651, 2, "New"});
    EXPECT_EQ(run({"list"}), velmora_find::exitDone);
    EXPECT_THAT(out.str(), Not(HasSubstr("other")));
    EXPECT_THAT(out.str(), Not(HasSubstr("New")));
    EXPECT_EQ(run({"list", "--all"}), velmora_find::exitDone);
    EXPECT_THAT(out.str(), HasSubstr("other"));
    EXPECT_THAT(out.str(), HasSubstr("0x0000000000000001"));
    EXPECT_THAT(out.str(), HasSubstr("DAC(New)"));
}

TEST_F(FindList, AsksOnTheInterfaceThatIsNamed) {
    network.interfaces[onLink(9, 0, 5)] = {"Local Area Connection", ""};
    ScriptedTarget far(network, onLink(4, 19642, 5));
    far.product = ProductID;
    far.name = "far";
    far.sinks = {{19650, 1, ""}};
    for (const bool all : {false, true}) {
        SCOPED_TRACE(all);
        std::vector<std::string> arguments{"list", "--interface", "Local Area Connection"};
        if (all) arguments.push_back("--all");
        target.seen.clear();
        EXPECT_EQ(run(arguments), velmora_find::exitDone);
        EXPECT_THAT(out.str(), HasSubstr("fe80::4%5"));
        EXPECT_THAT(out.str(), HasSubstr("Local Area Connection"));
        EXPECT_TRUE(target.seen.empty());
    }
    EXPECT_EQ(run({"list", "--interface", "5"}), velmora_find::exitDone);
    EXPECT_EQ(run({"list", "--interface", "eth9"}), velmora_find::exitNetwork);
    EXPECT_THAT(talk.str(), HasSubstr("there are: Local Area Connection, eth0."));
    network.interfaces[IPAddress::of({0x2001, 0xdb8, 0, 0, 0, 0, 0, 5}, 0, 6)] = {"wan0", ""};
    EXPECT_EQ(run({"list", "--interface", "wan0"}), velmora_find::exitNetwork);
    EXPECT_THAT(talk.str(), HasSubstr("\"wan0\" has no address fe80::"));
}

TEST_F(FindList, DoesNotAskOnAnotherInterfaceWhereANumberIsTooLargeForTheFinder) {
    network.interfaces[onLink(9, 0, 65536 + 3)] = {"far0", ""};
    network.interfaces[onLink(9, 0, 65535)] = {"last0", ""};
    EXPECT_EQ(run({"list", "--interface", "far0"}), velmora_find::exitNetwork);
    EXPECT_THAT(talk.str(), HasSubstr("up to 65535, and \"far0\" has 65539"));
    EXPECT_TRUE(target.seen.empty());
    ScriptedTarget far(network, onLink(4, 19642, 65536 + 3));
    far.sinks = {{19650, 1, ""}};
    EXPECT_EQ(run({"list", "--all", "--interface", "far0"}), velmora_find::exitDone);
    EXPECT_EQ(run({"list", "--interface", "last0"}), velmora_find::exitNobody);
}

TEST_F(FindList, ShowsOneTargetOnTwoLinksTwice) {
    network.interfaces[onLink(9, 0, 5)] = {"eth1", ""};
    target.alsoAt(onLink(2, 19642, 5));
    EXPECT_EQ(run({"list", "--json"}), velmora_find::exitDone);
    ASSERT_EQ(json().size(), 2u);
    EXPECT_EQ(json()[0]["interface"], "eth0");
    EXPECT_EQ(json()[1]["interface"], "eth1");
}

TEST_F(FindList, NeverLetsATargetsTextReachTheTerminalRaw) {
    target.name = "\x1b]0;owned\x07\xff";
    target.sinks[0].name = "\xe2\x80\xaegnp";
    target.configText = "a\nb\xc2\x9b";
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"list"}, {"list", "--json"}, {"list", "--all"}}) {
        EXPECT_EQ(run(arguments), velmora_find::exitDone);
        EXPECT_THAT(out.str(), Not(HasSubstr("\x1b")));
        EXPECT_THAT(out.str(), Not(HasSubstr("\xff")));
        EXPECT_THAT(out.str(), Not(HasSubstr("\xe2\x80\xae")));
        EXPECT_THAT(out.str(), Not(HasSubstr("\xc2\x9b")));
        EXPECT_THAT(out.str(), Not(HasSubstr("a\nb")));
    }
    EXPECT_EQ(run({"list", "--json"}), velmora_find::exitDone);
    EXPECT_EQ(json()[0]["name"], "\\x1b]0;owned\\x07\\xff(\\u{202e}gnp)");
    EXPECT_EQ(json()[0]["config"], "a\\x0ab\\u{9b}");
}

TEST_F(FindList, TellsAFailureOfTheNetwork) {
    network.waitFails = true;
    EXPECT_EQ(run({"list"}), velmora_find::exitNetwork);
    EXPECT_THAT(talk.str(), HasSubstr("The search failed"));
    // Here the finder logs to this program's own log.
    EXPECT_THAT(talk.str(), HasSubstr("--verbose tells more"));
    EXPECT_EQ(run({"list", "--all"}), velmora_find::exitNetwork);
    EXPECT_THAT(talk.str(), HasSubstr("--verbose tells more"));
    network.waitFails = false;
    network.openFails = true;
    EXPECT_EQ(run({"list", "--all"}), velmora_find::exitNetwork);
    network.interfacesFail = true;
    EXPECT_EQ(run({"list"}), velmora_find::exitNetwork);
}

TEST_F(FindList, LogsWhatTheSystemDoesWhenAsked) {
    EXPECT_EQ(run({"list", "--verbose"}), velmora_find::exitDone);
    EXPECT_THAT(talk.str(), HasSubstr("Velmora Find Sink Out: DAC 1 1 [3]\n"));
    EXPECT_THAT(talk.str(), Not(HasSubstr("Find Multi Send")));
    EXPECT_EQ(run({"--verbose", "--verbose", "list"}), velmora_find::exitDone);
    EXPECT_THAT(talk.str(), HasSubstr("Find Multi Send : 3\n"));
    EXPECT_EQ(run({"list"}), velmora_find::exitDone);
    EXPECT_THAT(talk.str(), IsEmpty());
}

}  // namespace
}  // namespace velmora_test
