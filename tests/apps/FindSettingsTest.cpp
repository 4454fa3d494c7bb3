// settings and set.
#include <functional>

#include "tests/apps/FindWorld.h"

namespace velmora_test {
namespace {

using testing::ElementsAre;

class FindSettings : public FindWorld {
protected:
    FindSettings() {
        items = {
            {4, 0, 0, "Name", 0, 0, "DAC", {}},
            {1, 0, 600, "Buffer length", 20, 0, "", {}},
            {2, 0xfc18, 1000, "Clock trim", 0xfffd, 0, "", {}},  // -1000 to 1000, -3
            {3, 0, 0, "Phase", 1, 0, "", {}},
            {5, 1, 2, "Feedback", 2, 0, "", {"coarse", "fine"}},
            {6, 0, 1, "Output", 1, 1, "", {"none", "file"}},
            {9, 0, 0, "Riddle", 7, 0, "", {}},
        };
        offerItems();
    }
    int set(const std::string& label, const std::string& value,
            const std::vector<std::string>& more = {}) {
        std::vector<std::string> arguments{"set", "fe80::2", label, value};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run(arguments);
    }
    // Value requests that write, of item 0 those that commit.
    int writes() const {
        int count = 0;
        for (const auto& seen : target.seen) {
            const bool isRead = seen.arg[0] != 0 && seen.arg[1] != 1;
            count += seen.id == wire::ITEMVALUE_REQ::id && !isRead ? 1 : 0;
        }
        return count;
    }
};

TEST_F(FindSettings, ShowEveryKindWithItsRange) {
    EXPECT_EQ(run({"settings", "fe80::2"}), velmora_find::exitDone);
    EXPECT_EQ(out.str(),
              "NO  LABEL          VALUE   KIND              ALLOWED\n"
              "#1  Name           DAC     text              any text\n"
              "#2  Buffer length  20      number            0 to 600\n"
              "#3  Clock trim     -3      number            -1000 to 1000\n"
              "#4  Phase          enable  switch            0 = disable; 1 = enable\n"
              "#5  Feedback       fine    choice            1 = coarse; 2 = fine\n"
              "#6  Output         file    choice with text  0 = none; 1 = file; each alone or as "
              "CHOICE:TEXT\n"
              "#7  Riddle         7       unknown           nothing that this program knows\n");
}

TEST_F(FindSettings, AreGivenAsJson) {
    EXPECT_EQ(run({"settings", "fe80::2", "--json"}), velmora_find::exitDone);
    ASSERT_EQ(json().size(), 7u);
    EXPECT_EQ(json()[2]["current"], -3);
    EXPECT_EQ(json()[2]["lower"], -1000);
    EXPECT_EQ(json()[4]["kind"], "choice");
    EXPECT_EQ(json()[4]["shown"], "fine");
    EXPECT_EQ(json()[4]["choices"][1], Json({{"value", 2}, {"label", "fine"}}));
}

TEST_F(FindSettings, AreReadInTheirOtherFormWithKept) {
    EXPECT_EQ(run({"settings", "fe80::2", "--kept"}), velmora_find::exitDone);
    bool alternative = false;
    for (const auto& seen : target.seen) {
        alternative = alternative || (seen.id == wire::ITEMVALUE_REQ::id && seen.arg[1] == 2);
    }
    EXPECT_TRUE(alternative);
}

TEST_F(FindSettings, OfATargetWithoutAnyAreToldSo) {
    items.clear();
    EXPECT_EQ(run({"settings", "fe80::2"}), velmora_find::exitDone);
    EXPECT_THAT(out.str(), IsEmpty());
    EXPECT_THAT(talk.str(), HasSubstr("no settings"));
    EXPECT_EQ(set("Name", "x"), velmora_find::exitUsage);
    EXPECT_THAT(talk.str(), HasSubstr("It has none at all."));
}

struct ItemChange {
    const char *label, *value;
    std::size_t item;
    std::uint16_t current;
    const char *text, *shown;
};
TEST_F(FindSettings, TakeAValueOfEveryKind) {
    const ItemChange changes[] = {
        {"Name", "Küche", 0, 0, "Küche", "Name = Küche\n"},
        {"Name", "", 0, 0, "", "Name = (empty)\n"},
        {"Buffer length", "600", 1, 600, "", "Buffer length = 600\n"},
        {"#2", "0", 1, 0, "", "Buffer length = 0\n"},
        {"Clock trim", "-1000", 2, 0xfc18, "", "Clock trim = -1000\n"},
        {"Phase", "off", 3, 0, "", "Phase = disable\n"},
        {"Feedback", "coarse", 4, 1, "", "Feedback = coarse\n"},
        {"Output", "none:a.wav", 5, 0, "a.wav", "Output = none: a.wav\n"},
    };
    for (const ItemChange& change : changes) {
        SCOPED_TRACE(change.value);
        EXPECT_EQ(set(change.label, change.value), velmora_find::exitDone) << talk.str();
        EXPECT_EQ(items[change.item].current, change.current);
        EXPECT_EQ(items[change.item].text, change.text);
        EXPECT_EQ(out.str(), change.shown);
    }
}

TEST_F(FindSettings, AreCommittedForNowOrForGood) {
    EXPECT_EQ(set("Phase", "0"), velmora_find::exitDone);
    EXPECT_THAT(talk.str(), HasSubstr("until the target starts anew"));
    EXPECT_EQ(set("Phase", "1", {"--keep"}), velmora_find::exitDone);
    EXPECT_THAT(commits, ElementsAre(2, 1));
    EXPECT_EQ(set("Phase", "0", {"--json"}), velmora_find::exitDone);
    EXPECT_EQ(json()["shown"], "disable");
}

TEST_F(FindSettings, AreNotWrittenWithAValueThatIsNotAllowed) {
    for (const auto& [label, value] :
         std::vector<std::pair<const char*, const char*>>{{"Buffer length", "601"},
                                                          {"Clock trim", "-1001"},
                                                          {"Phase", "maybe"},
                                                          {"Feedback", "3"},
                                                          {"Output", "disk:a"},
                                                          {"Riddle", "7"},
                                                          {"Nothing", "1"},
                                                          {"#0", "1"},
                                                          {"#8", "1"},
                                                          {"#x", "1"}}) {
        SCOPED_TRACE(label);
        EXPECT_EQ(set(label, value), velmora_find::exitUsage);
        EXPECT_THAT(out.str(), IsEmpty());
    }
    EXPECT_EQ(set("Buffer length", "601"), velmora_find::exitUsage);
    EXPECT_THAT(talk.str(), HasSubstr("Allowed: 0 to 600."));
    EXPECT_EQ(set("Nothing", "1"), velmora_find::exitUsage);
    EXPECT_THAT(talk.str(), HasSubstr("It has \"Name\", \"Buffer length\""));
    EXPECT_EQ(writes(), 0);
}

TEST_F(FindSettings, OfOneLabelAreToldApartByNumber) {
    items[1].label = items[2].label = "Same";
    EXPECT_EQ(set("Same", "1"), velmora_find::exitUsage);
    EXPECT_THAT(talk.str(), HasSubstr("#2, #3"));
    EXPECT_EQ(writes(), 0);
    EXPECT_EQ(set("#3", "1"), velmora_find::exitDone);
}

TEST_F(FindSettings, MayBeLabelledLikeANumber) {
    items[0].label = "#2";
    EXPECT_EQ(set("#2", "new"), velmora_find::exitDone);
    EXPECT_EQ(items[0].text, "new");
}

TEST_F(FindSettings, NeverReachTheTerminalRaw) {
    items[0].label = "\x1b[2J";
    items[0].text = "\xff\xe2\x80\xae";
    items[4].choices[1] = "\x9b";
    EXPECT_EQ(run({"settings", "fe80::2", "--json"}), velmora_find::exitDone);
    EXPECT_EQ(json()[0]["label"], "\\x1b[2J");
    EXPECT_EQ(json()[0]["value"], "\\xff\\u{202e}");
    EXPECT_EQ(run({"settings", "fe80::2"}), velmora_find::exitDone);
    EXPECT_THAT(out.str(), Not(HasSubstr("\x1b")));
    EXPECT_EQ(set("\\x1b[2J", "x"), velmora_find::exitDone);
}

// ---- a target that lies, refuses or falls silent ----

TEST_F(FindSettings, WhoseCountLiesAreShownAsFarAsTheyGo) {
    target.replies[wire::ITEM_REQ::id] =
        [inner = target.replies[wire::ITEM_REQ::id]](const wire::PacketView& request) {
            return request.arg16(8) == 0 ? write(wire::ITEM_ANS{.itemNo = 65535}) : inner(request);
        };
    EXPECT_EQ(run({"settings", "fe80::2"}), velmora_find::exitTarget);
    EXPECT_THAT(out.str(), HasSubstr("#7"));
    EXPECT_THAT(talk.str(), HasSubstr("breaks off behind item 7"));
    EXPECT_EQ(run({"settings", "fe80::2", "--json"}), velmora_find::exitTarget);
    EXPECT_EQ(json().size(), 7u);
    EXPECT_EQ(set("Name", "x"), velmora_find::exitTarget);
    EXPECT_EQ(writes(), 0);
}

TEST_F(FindSettings, WithAnotherNumberThanAskedForAreNotTaken) {
    target.replies[wire::ITEM_REQ::id] = [](const wire::PacketView&) {
        return write(wire::ITEM_ANS{.itemNo = 3, .type = 1});
    };
    EXPECT_EQ(run({"settings", "fe80::2"}), velmora_find::exitTarget);
    EXPECT_THAT(talk.str(), HasSubstr("cannot be read"));
}

TEST_F(FindSettings, WithBoundsTheWrongWayRoundAreToldSo) {
    items[1].lower = 9;
    items[1].upper = 3;
    items[4].lower = 9;
    items[4].upper = 3;
    EXPECT_EQ(run({"settings", "fe80::2"}), velmora_find::exitDone);
    EXPECT_THAT(out.str(), HasSubstr("nothing: the target tells an empty range"));
    EXPECT_EQ(set("Buffer length", "5"), velmora_find::exitUsage);
    EXPECT_EQ(set("Feedback", "5"), velmora_find::exitUsage);
}

TEST_F(FindSettings, WithAValueOutsideTheirOwnRangeAreShown) {
    items[4].current = 77;
    EXPECT_EQ(run({"settings", "fe80::2"}), velmora_find::exitDone);
    EXPECT_THAT(out.str(), HasSubstr("77 (outside its range)"));
}

TEST_F(FindSettings, OfATargetThatKnowsNoneCannotBeRead) {
    target.replies.erase(wire::ITEM_REQ::id);
    EXPECT_EQ(run({"settings", "fe80::2"}), velmora_find::exitNobody);
    EXPECT_THAT(out.str(), IsEmpty());
    EXPECT_THAT(talk.str(), HasSubstr("does not answer what it is asked"));
    EXPECT_EQ(run({"settings", "fe80::2", "--json"}), velmora_find::exitNobody);
    EXPECT_EQ(json(), Json::array());
    EXPECT_EQ(set("Name", "x"), velmora_find::exitNobody);
    EXPECT_THAT(talk.str(), HasSubstr("Nothing was set."));
}

TEST_F(FindSettings, ThatBreakOffAreToldWithTheReason) {
    struct Case {
        const char* why;
        std::function<void(const ScriptedTarget::Seen&)> at;  // at each question for item 3
        int code;
        const char* words;
    };
    const Case cases[] = {
        {"silence", [&](const ScriptedTarget::Seen& s) { target.behave(Manner::silent, s.id, 3); },
         velmora_find::exitNobody, "the target does not answer"},
        {"a refusal",
         [&](const ScriptedTarget::Seen& s) { target.behave(Manner::refuses, s.id, 3); },
         velmora_find::exitTarget, "refuses to tell more"},
        {"an echo", [&](const ScriptedTarget::Seen& s) { target.behave(Manner::echoes, s.id, 3); },
         velmora_find::exitTarget, "sends the question back"},
        {"the socket", [&](const ScriptedTarget::Seen&) { network.waitFails = true; },
         velmora_find::exitNetwork, "the network socket failed"},
    };
    for (const std::uint16_t id : {wire::ITEM_REQ::id, wire::ITEMVALUE_REQ::id}) {
        for (const Case& c : cases) {
            SCOPED_TRACE(c.why);
            network.waitFails = false;
            for (const std::uint16_t other : {wire::ITEM_REQ::id, wire::ITEMVALUE_REQ::id}) {
                target.behave(Manner::answers, other, 3);
            }
            target.onRequest = [&](const ScriptedTarget::Seen& seen) {
                if (seen.id == id && seen.arg[0] == 3) c.at(seen);
            };
            EXPECT_EQ(run({"settings", "fe80::2"}), c.code);
            EXPECT_THAT(talk.str(), HasSubstr("breaks off behind item 2"));
            EXPECT_THAT(talk.str(), HasSubstr(c.words));
            EXPECT_THAT(out.str(), HasSubstr("#2"));
        }
    }
}

TEST_F(FindSettings, AreReadAndSetWhicheverOneAnswerIsLost) {
    int answers = 0, lost = 0;
    network.fate = [&](const Datagram& datagram) -> Fate {
        if (!datagram.toPeer && ++answers == lost) return {};
        return {{50, std::nullopt}};
    };
    for (lost = 1; lost == 1 || answers >= lost; ++lost) {
        SCOPED_TRACE(lost);
        answers = 0;
        EXPECT_EQ(set("Buffer length", std::to_string(lost)), velmora_find::exitDone) << talk.str();
        EXPECT_EQ(items[1].current, lost);
    }
    EXPECT_GT(lost, 40);
    for (lost = 1, answers = 1; answers >= lost; ++lost) {
        SCOPED_TRACE(lost);
        answers = 0;
        EXPECT_EQ(run({"settings", "fe80::2"}), velmora_find::exitDone) << talk.str();
        EXPECT_THAT(out.str(), HasSubstr("#7"));
    }
}

TEST_F(FindSettings, ClaimNothingThatIsNotKnownWhenAnAnswerIsMissing) {
    struct Case {
        const char* why;
        bool atCommit;
        std::function<void()> make;
        int code, asked;
        const char* words;
    };
    const auto silent = [&] { target.behave(Manner::silent, wire::ITEMVALUE_REQ::id); };
    const auto echoes = [&] { target.behave(Manner::echoes, wire::ITEMVALUE_REQ::id); };
    const auto broken = [&] { network.waitFails = true; };
    const Case cases[] = {
        {"silent to the write", false, silent, velmora_find::exitNobody, 3,
         "does not answer any more: whether it took the value for \"Buffer length\" is not known"},
        {"silent to the commit", true, silent, velmora_find::exitNobody, 4,
         "but whether that is in force is not known"},
        {"the write echoed", false, echoes, velmora_find::exitTarget, 1,
         "sends questions back instead of answering them: whether it took"},
        {"the socket, at the write", false, broken, velmora_find::exitNetwork, 1,
         "The network socket failed: whether it took"},
        {"the socket, at the commit", true, broken, velmora_find::exitNetwork, 2,
         "but whether that is in force is not known"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        network.waitFails = false;
        target.behave(Manner::answers, wire::ITEMVALUE_REQ::id);
        target.seen.clear();
        target.onRequest = [&](const ScriptedTarget::Seen& seen) {
            if (seen.id != wire::ITEMVALUE_REQ::id) return;
            const bool isWrite = seen.arg[0] != 0 && seen.arg[1] == 1;
            if (c.atCommit ? seen.arg[0] == 0 : isWrite) c.make();
        };
        EXPECT_EQ(set("Buffer length", "40"), c.code);
        EXPECT_THAT(talk.str(), HasSubstr(c.words));
        EXPECT_THAT(out.str(), IsEmpty());
        EXPECT_EQ(writes(), c.asked);
    }
}

TEST_F(FindSettings, ThatCannotBeReadBackAreToldSo) {
    target.onRequest = [&](const ScriptedTarget::Seen& seen) {
        if (seen.id == wire::ITEM_REQ::id && !commits.empty()) {
            target.behave(Manner::silent, wire::ITEM_REQ::id);
        }
    };
    EXPECT_EQ(set("Buffer length", "40"), velmora_find::exitNobody);
    EXPECT_THAT(talk.str(), HasSubstr("said that it is in force, but it cannot be read back"));
    EXPECT_EQ(items[1].current, 40);
}

struct Step {
    const char* why;
    bool (*refused)(const wire::ITEMVALUE_REQ&);
    const char* words;
};
TEST_F(FindSettings, ThatTheTargetRefusesAreToldSo) {
    const Step steps[] = {
        {"the write", [](const wire::ITEMVALUE_REQ& r) { return r.mode == 1 && r.itemNo != 0; },
         "does not take this value"},
        {"the commit", [](const wire::ITEMVALUE_REQ& r) { return r.itemNo == 0; },
         "refused to put it in force; look"},
    };
    const auto inner = target.replies[wire::ITEMVALUE_REQ::id];
    for (const Step& step : steps) {
        SCOPED_TRACE(step.why);
        target.replies[wire::ITEMVALUE_REQ::id] = [&](const wire::PacketView& packet) {
            const auto request = *wire::read<wire::ITEMVALUE_REQ>(packet);
            if (!step.refused(request)) return inner(packet);
            return write(wire::ITEMVALUE_ANS{.accepted = false, .itemNo = request.itemNo});
        };
        EXPECT_EQ(set("Buffer length", "40"), velmora_find::exitTarget);
        EXPECT_THAT(talk.str(), HasSubstr(step.words));
        EXPECT_THAT(out.str(), IsEmpty());
        EXPECT_EQ(items[1].current, 20);
        EXPECT_EQ(set("Buffer length", "40", {"--keep"}), velmora_find::exitTarget);
        const bool isCommit = step.words[0] == 'r';
        EXPECT_EQ(talk.str().find("try without --keep") != std::string::npos, isCommit);
    }
}

TEST_F(FindSettings, ThatComeBackOtherwiseAreToldSo) {
    const auto inner = target.replies[wire::ITEMVALUE_REQ::id];
    target.replies[wire::ITEMVALUE_REQ::id] = [&](const wire::PacketView& packet) {
        const Bytes answer = inner(packet);
        items[1].current = 30;  // whatever was asked for
        return answer;
    };
    EXPECT_EQ(set("Buffer length", "40"), velmora_find::exitTarget);
    EXPECT_EQ(out.str(), "Buffer length = 30\n");
    EXPECT_THAT(talk.str(), HasSubstr("another value"));
}

}  // namespace
}  // namespace velmora_test
