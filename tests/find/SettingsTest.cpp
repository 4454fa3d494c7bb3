// A target's own settings: how its list is read, and how one of them is written.
#include <functional>
#include <vector>

#include "tests/find/FindTest.h"

namespace velmora_test {
namespace {

using VELMORA::SettingItem;
using VELMORA::SettingList;

// What a target tells of one setting.
struct Told {
    std::uint16_t type = 0, lower = 0, upper = 0;
    std::string label{};
    std::uint16_t current = 0, second = 0;
    std::string text{};
    std::map<std::uint16_t, std::string> labels{};  // of its values
};

class Settings : public FindTest {
protected:
    Settings() {
        network.delay = 0;
        target.replies[wire::ITEM_REQ::id] = [this](const wire::PacketView& request) {
            const std::uint16_t no = request.arg16(8);
            if (no == 0) {
                return write(wire::ITEM_ANS{
                    .itemNo = countTold.value_or(static_cast<std::uint16_t>(items.size()))});
            }
            const Told& item = items.at((no - 1u) % items.size());
            return write(wire::ITEM_ANS{.itemNo = no,
                                        .type = item.type,
                                        .lower = item.lower,
                                        .upper = item.upper,
                                        .label = item.label});
        };
        target.replies[wire::ITEMVALUE_REQ::id] = [this](const wire::PacketView& request) {
            const std::uint16_t no = request.arg16(8);
            wire::ITEMVALUE_ANS answer{.itemNo = no};
            if (request.arg16(10) == wire::ITEMVALUE_REQ::modeLabel) {
                const auto& labels = items.at((no - 1u) % items.size()).labels;
                const auto label = labels.find(request.arg16(12));
                if (label != labels.end()) answer.text = label->second;
            } else if (no != 0 && !items.empty()) {
                const Told& item = items.at((no - 1u) % items.size());
                answer.current = item.current;
                answer.second = item.second;
                answer.text = item.text;
            }
            return write(answer);
        };
    }
    // The one item of a list of one.
    SettingItem read(const Told& told, bool alternative = false) {
        items = {told};
        SettingList out;
        EXPECT_TRUE(opened().getItems(control(1), out, alternative));
        if (out.size() != 1) {
            ADD_FAILURE() << out.size() << " items";
            return {};
        }
        return out.front();
    }
    // What was asked: "ITEM 1", "VALUE 1 mode 3 of 7".
    std::vector<std::string> asked() const {
        std::vector<std::string> out;
        for (const auto& seen : target.seen) {
            if (seen.id == wire::ITEM_REQ::id) {
                out.push_back("ITEM " + std::to_string(seen.arg[0]));
            } else if (seen.id == wire::ITEMVALUE_REQ::id) {
                out.push_back("VALUE " + std::to_string(seen.arg[0]) + " mode " +
                              std::to_string(seen.arg[1]) + " of " + std::to_string(seen.arg[2]));
            } else {
                out.push_back("id " + std::to_string(seen.id));
            }
        }
        return out;
    }
    // Every answer to the n-th request (from 1) is changed in this way.
    void spoil(int nth, const std::function<void(Bytes&)>& how) {
        auto number = std::make_shared<int>(0);
        for (const std::uint16_t id : {wire::ITEM_REQ::id, wire::ITEMVALUE_REQ::id}) {
            target.replies[id] = [honest = target.replies[id], number, nth,
                                  how](const wire::PacketView& request) {
                Bytes answer = honest(request);
                if (++*number == nth) how(answer);
                return answer;
            };
        }
    }

    std::vector<Told> items;
    std::optional<std::uint16_t> countTold;
    ScriptedTarget target{network, control(1)};
};

// ---- the bytes on the wire ----

TEST_F(Settings, AreAskedForInTheseBytes) {
    items = {{.type = 3, .label = "s"}, {.type = 2, .label = "n"}};
    SettingList out;
    ASSERT_TRUE(opened().getItems(control(1), out, /*alternative=*/true));
    const auto sent = sentByHost();
    ASSERT_EQ(sent.size(), 7u);
    const Bytes expected[] = {
        {0x64, 0, 0x10, 0, 48, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
        {0x64, 0, 0x10, 0, 48, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0},
        {0x64, 0, 0x10, 0, 50, 0, 0, 0, 1, 0, 2, 0, 0, 0, 0, 0},
        {0x64, 0, 0x10, 0, 50, 0, 0, 0, 1, 0, 3, 0, 0, 0, 0, 0},
        {0x64, 0, 0x10, 0, 50, 0, 0, 0, 1, 0, 3, 0, 1, 0, 0, 0},
        {0x64, 0, 0x10, 0, 48, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0},
        {0x64, 0, 0x10, 0, 50, 0, 0, 0, 2, 0, 2, 0, 0, 0, 0, 0},
    };
    for (std::size_t i = 0; i < sent.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(sent[i].data, expected[i]);
        EXPECT_EQ(sent[i].to, control(1));
    }
}

// An item and its value by hand: type 6, bounds 2 and 2, label "ab"; current 0x1234, second 0x5678.
TEST_F(Settings, AreReadFromTheseBytes) {
    target.replies[wire::ITEM_REQ::id] = [](const wire::PacketView& request) {
        if (request.arg16(8) == 0) {
            return Bytes{0x64, 0, 0x10, 0, 49, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0};
        }
        return Bytes{0x64, 0, 0x1e, 0, 49,  0,   1, 0, 1, 0, 6, 0,
                     2,    0, 2,    0, 'a', 'b', 0, 0, 0, 0, 0, 0};
    };
    target.replies[wire::ITEMVALUE_REQ::id] = [](const wire::PacketView& request) {
        if (request.arg16(10) == 3) {
            return Bytes{0x64, 0, 0x1f, 0, 51,  0, 1, 0, 1, 0, 0, 0,
                         0,    0, 0,    0, 'c', 0, 0, 0, 0, 0, 0, 0};
        }
        return Bytes{0x64, 0,    0x18, 0,    51,  0,   1,   0,   1,   0,   0x34, 0x12,
                     0xff, 0xff, 0x78, 0x56, 'l', 'o', 'n', 'g', 't', 'e', 'x',  't'};
    };
    SettingList out;
    ASSERT_TRUE(opened().getItems(control(1), out, false));
    ASSERT_EQ(out.size(), 1u);
    const SettingItem& item = out.front();
    EXPECT_EQ(item.kind, 5);
    EXPECT_EQ(item.label, "ab");
    EXPECT_EQ(item.value, "longtext");
    EXPECT_THAT(item.choices, ElementsAre("c"));
    EXPECT_EQ(item.current, 0x1234);
    EXPECT_EQ(item.lower, 2);
    EXPECT_EQ(item.upper, 2);
    EXPECT_EQ(item.second, 0x5678);
}

TEST_F(Settings, AreWrittenInTheseBytes) {
    Find& find = opened();
    EXPECT_TRUE(find.setItem(control(1), 0x0102, "abc", 0x0304));
    EXPECT_TRUE(find.setItem(control(1), 2, std::string("12345678")));
    EXPECT_TRUE(find.setItem(control(1), 3, std::uint16_t{0xfffe}));
    EXPECT_TRUE(find.setItem(control(1), 4, "", 5));
    EXPECT_TRUE(find.commitItems(control(1), /*keep=*/true));
    EXPECT_TRUE(find.commitItems(control(1), /*keep=*/false));
    const auto sent = sentByHost();
    ASSERT_EQ(sent.size(), 6u);
    const Bytes expected[] = {
        {0x64, 0, 0x1d, 0, 50, 0, 0, 0, 2, 1, 1, 0, 4, 3, 0, 0, 'a', 'b', 'c', 0, 0, 0, 0, 0},
        {0x64, 0, 0x18, 0, 50,  0,   0,   0,   2,   0,   1,   0,
         0,    0, 0,    0, '1', '2', '3', '4', '5', '6', '7', '8'},
        {0x64, 0, 0x10, 0, 50, 0, 0, 0, 3, 0, 1, 0, 0xfe, 0xff, 0, 0},
        {0x64, 0, 0x10, 0, 50, 0, 0, 0, 4, 0, 1, 0, 5, 0, 0, 0},
        {0x64, 0, 0x10, 0, 50, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0},
        {0x64, 0, 0x10, 0, 50, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0},
    };
    for (std::size_t i = 0; i < sent.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(sent[i].data, expected[i]);
        EXPECT_EQ(sent[i].to, control(1));
    }
}

// ---- the list ----

TEST_F(Settings, OfATargetWithoutAnyTakeOneExchange) {
    SettingList out(3);
    EXPECT_TRUE(opened().getItems(control(1), out, false));
    EXPECT_THAT(out, IsEmpty());
    EXPECT_THAT(asked(), ElementsAre("ITEM 0"));
}

TEST_F(Settings, AreReadInTheOrderOfTheirNumbers) {
    items = {{.type = 1, .upper = 9, .label = "number"},
             {.type = 5, .lower = 4, .upper = 5, .label = "choice"},
             {.type = 4, .label = "text", .text = "t"}};
    SettingList out(3);
    EXPECT_TRUE(opened().getItems(control(1), out, false));
    EXPECT_THAT(asked(), ElementsAre("ITEM 0", "ITEM 1", "VALUE 1 mode 0 of 0", "ITEM 2",
                                     "VALUE 2 mode 0 of 0", "VALUE 2 mode 3 of 4",
                                     "VALUE 2 mode 3 of 5", "ITEM 3", "VALUE 3 mode 0 of 0"));
    std::vector<std::string> labels;
    for (const SettingItem& item : out) labels.push_back(item.label);
    EXPECT_THAT(labels, ElementsAre("number", "choice", "text"));
}

// ---- the types ----

TEST_F(Settings, FollowTheirTypeOnTheWire) {
    struct Case {
        const char* why;
        std::uint16_t type;
        std::int32_t kind, lower, upper, current, second;
        const char* value;
    };
    // Each is told with the bounds 0xfffe and 3, current 0xffff, second 0x8000, the text "t".
    constexpr Case cases[] = {
        {"number", 1, 2, 0xfffe, 3, 0xffff, 0x8000, ""},
        {"signed number", 2, 2, -2, 3, -1, -0x8000, ""},
        {"switch", 3, 3, 0, 1, 0xffff, 0x8000, ""},
        {"text", 4, 1, 0, 0, 0xffff, 0x8000, "t"},
        {"choice", 5, 4, 0xfffe, 3, 0xffff, 0x8000, ""},
        {"choice with text", 6, 5, 0xfffe, 3, 0xffff, 0x8000, "t"},
        {"none", 0, 0, 0, 0, 0xffff, 0x8000, ""},
        {"one behind the last", 7, 0, 0, 0, 0xffff, 0x8000, ""},
        {"the highest", 0xffff, 0, 0, 0, 0xffff, 0x8000, ""},
        {"its low byte is a type", 0x0102, 0, 0, 0, 0xffff, 0x8000, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const SettingItem item = read({.type = c.type,
                                       .lower = 0xfffe,
                                       .upper = 3,
                                       .label = "name",
                                       .current = 0xffff,
                                       .second = 0x8000,
                                       .text = "t"});
        EXPECT_EQ(item.kind, c.kind);
        EXPECT_EQ(item.lower, c.lower);
        EXPECT_EQ(item.upper, c.upper);
        EXPECT_EQ(item.current, c.current);
        EXPECT_EQ(item.second, c.second);
        EXPECT_EQ(item.value, c.value);
        EXPECT_EQ(item.label, "name");
        EXPECT_EQ(item.choices.size(), c.kind == 3 ? 2u : 0u);
    }
}

TEST_F(Settings, OfASignedTypeHaveSignedBounds) {
    const SettingItem item =
        read({.type = 2, .lower = 0xffff, .upper = 1, .current = 0xfffe, .second = 1});
    EXPECT_EQ(item.lower, -1);
    EXPECT_EQ(item.upper, 1);
    EXPECT_EQ(item.current, -2);
    EXPECT_EQ(item.second, 1);
    EXPECT_THAT(item.choices, IsEmpty());
}

TEST_F(Settings, AreReadAlternativelyButForAChoiceWithText) {
    struct Case {
        std::uint16_t type;
        const char* asked;
    };
    constexpr Case cases[] = {
        {0, "VALUE 1 mode 2 of 0"}, {1, "VALUE 1 mode 2 of 0"}, {2, "VALUE 1 mode 2 of 0"},
        {3, "VALUE 1 mode 2 of 0"}, {4, "VALUE 1 mode 2 of 0"}, {5, "VALUE 1 mode 2 of 0"},
        {6, "VALUE 1 mode 0 of 0"}, {7, "VALUE 1 mode 2 of 0"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.type);
        target.seen.clear();
        read({.type = c.type, .lower = 1}, /*alternative=*/true);
        EXPECT_EQ(asked().at(2), c.asked);
        target.seen.clear();
        read({.type = c.type, .lower = 1}, /*alternative=*/false);
        EXPECT_EQ(asked().at(2), "VALUE 1 mode 0 of 0");
    }
}

// ---- choices ----

TEST_F(Settings, SwitchWithoutLabelsIsDisableAndEnable) {
    EXPECT_THAT(read({.type = 3}).choices, ElementsAre("disable", "enable"));
    EXPECT_THAT(asked(), ElementsAre("ITEM 0", "ITEM 1", "VALUE 1 mode 0 of 0",
                                     "VALUE 1 mode 3 of 0", "VALUE 1 mode 3 of 1"));
}

TEST_F(Settings, SwitchKeepsTheLabelsOfTheTarget) {
    EXPECT_THAT(read({.type = 3, .labels = {{0, "off"}, {1, "on"}}}).choices,
                ElementsAre("off", "on"));
    EXPECT_THAT(read({.type = 3, .labels = {{1, "on"}}}).choices, ElementsAre("disable", "on"));
    EXPECT_THAT(read({.type = 3, .labels = {{0, "off"}}}).choices, ElementsAre("off", "enable"));
}

TEST_F(Settings, ChoiceWithoutLabelsHasEmptyOnes) {
    EXPECT_THAT(read({.type = 5, .upper = 1}).choices, ElementsAre("", ""));
    EXPECT_THAT(read({.type = 6, .upper = 1, .text = "t"}).choices, ElementsAre("", ""));
}

TEST_F(Settings, ChoiceHasALabelForEachValueOfItsBounds) {
    const SettingItem item = read({.type = 5,
                                   .lower = 0xfffe,
                                   .upper = 0xffff,
                                   .current = 0xffff,
                                   .labels = {{0xfffe, "a"}, {0xffff, "b"}, {0, "c"}}});
    EXPECT_THAT(item.choices, ElementsAre("a", "b"));
    EXPECT_EQ(item.value, "") << "a plain choice has no text";
    EXPECT_THAT(asked(), ElementsAre("ITEM 0", "ITEM 1", "VALUE 1 mode 0 of 0",
                                     "VALUE 1 mode 3 of 65534", "VALUE 1 mode 3 of 65535"));
}

TEST_F(Settings, ChoiceOfOneValueHasOneLabel) {
    EXPECT_THAT(read({.type = 5, .lower = 7, .upper = 7, .labels = {{7, "seven"}}}).choices,
                ElementsAre("seven"));
}

TEST_F(Settings, ChoiceWithItsLowerBoundAboveTheUpperHasNone) {
    for (const std::uint16_t type : {std::uint16_t{5}, std::uint16_t{6}}) {
        target.seen.clear();
        EXPECT_THAT(read({.type = type, .lower = 2, .upper = 1, .text = "t"}).choices, IsEmpty());
        EXPECT_THAT(asked(), ElementsAre("ITEM 0", "ITEM 1", "VALUE 1 mode 0 of 0"));
    }
}

TEST_F(Settings, NumbersAndTextsHaveNoChoices) {
    for (const std::uint16_t type : std::initializer_list<std::uint16_t>{0, 1, 2, 4, 7}) {
        target.seen.clear();
        EXPECT_THAT(read({.type = type, .lower = 0, .upper = 5}).choices, IsEmpty());
        EXPECT_EQ(target.seen.size(), 3u);
    }
}

TEST_F(Settings, ChoiceWithTextFallsBackToTheChoiceThatItNames) {
    struct Case {
        const char* why;
        std::uint16_t second;
        const char* text;
        const char* value;
    };
    constexpr Case cases[] = {
        {"the first", 0, "", "a"},
        {"the second", 1, "", "b"},
        {"the last", 2, "", "c"},
        {"one behind the last", 3, "", "unknown"},
        {"far behind", 0xffff, "", "unknown"},
        {"a text of its own", 1, "own", "own"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const SettingItem item = read({.type = 6,
                                       .lower = 10,
                                       .upper = 12,
                                       .current = 11,
                                       .second = c.second,
                                       .text = c.text,
                                       .labels = {{10, "a"}, {11, "b"}, {12, "c"}}});
        EXPECT_EQ(item.value, c.value);
        EXPECT_THAT(item.choices, ElementsAre("a", "b", "c"));
        EXPECT_EQ(item.second, c.second);
    }
    EXPECT_EQ(read({.type = 6, .lower = 1, .upper = 0}).value, "unknown") << "no choice at all";
    EXPECT_EQ(read({.type = 6, .upper = 1}).value, "") << "the choice has an empty label";
}

TEST_F(Settings, OtherKindsDoNotFallBack) {
    EXPECT_EQ(read({.type = 4}).value, "");
    EXPECT_EQ(read({.type = 5, .upper = 1, .labels = {{0, "a"}}}).value, "");
    EXPECT_EQ(read({.type = 3}).value, "");
}

TEST_F(Settings, StartEachItemCleared) {
    items = {{.type = 6, .upper = 1, .label = "full", .current = 1, .second = 1, .text = "t"},
             {.type = 9}};
    SettingList out;
    ASSERT_TRUE(opened().getItems(control(1), out, false));
    const SettingItem& item = out.back();
    EXPECT_EQ(item.kind, 0);
    EXPECT_EQ(item.label, "");
    EXPECT_EQ(item.value, "");
    EXPECT_THAT(item.choices, IsEmpty());
    EXPECT_EQ(item.upper, 0);
}

// ---- failures ----

// The steps of a list of a text and a switch, and how many items are read before each.
struct Step {
    int nth;
    std::size_t itemsBefore;
};
constexpr Step steps[] = {{1, 0}, {2, 0}, {3, 0}, {4, 1}, {5, 1}, {6, 1}, {7, 1}};

TEST_F(Settings, FailWhereAStepIsNotAccepted) {
    struct Case {
        const char* why;
        std::function<void(Bytes&)> how;
        std::uint64_t micros;
    };
    const Case cases[] = {
        {"refused", [](Bytes& answer) { answer[6] = 0; }, 0},
        {"no answer", [](Bytes& answer) { answer.clear(); }, VELMORA::ackWait},
        {"another id", [](Bytes& answer) { answer[4] = 1; }, VELMORA::ackWait},
        {"the request itself", [](Bytes& answer) { --answer[4]; }, 0},
    };
    items = {{.type = 4, .label = "text"}, {.type = 3, .label = "switch"}};
    const auto honest = target.replies;
    for (const Case& c : cases) {
        for (const Step& step : steps) {
            SCOPED_TRACE(std::string(c.why) + " at step " + std::to_string(step.nth));
            target.replies = honest;
            target.seen.clear();
            spoil(step.nth, c.how);
            Find& find = opened();
            SettingList out(5);
            EXPECT_EQ(duration([&] { EXPECT_FALSE(find.getItems(control(1), out, false)); }),
                      c.micros);
            EXPECT_EQ(out.size(), step.itemsBefore);
            EXPECT_EQ(static_cast<int>(target.seen.size()), step.nth) << "and no retry";
        }
    }
}

TEST_F(Settings, FailWhereTheNumberComesBackWrong) {
    items = {{.type = 4, .label = "text"}, {.type = 3, .label = "switch"}};
    const auto honest = target.replies;
    for (const Step& step : steps) {
        if (step.nth == 1) continue;  // told there is the count
        for (const std::size_t offset : {8u, 9u}) {
            SCOPED_TRACE(step.nth);
            target.replies = honest;
            target.seen.clear();
            spoil(step.nth, [offset](Bytes& answer) { answer[offset] ^= 0x40; });
            SettingList out;
            EXPECT_FALSE(opened().getItems(control(1), out, false));
            EXPECT_EQ(out.size(), step.itemsBefore);
            EXPECT_EQ(static_cast<int>(target.seen.size()), step.nth);
        }
    }
}

TEST_F(Settings, FailWithTheSocket) {
    items = {{.type = 4}};
    Find& find = opened();
    network.waitFails = true;
    SettingList out(2);
    EXPECT_FALSE(find.getItems(control(1), out, false));
    EXPECT_THAT(out, IsEmpty());
    EXPECT_FALSE(find.setItem(control(1), 1, "t", 1));
    EXPECT_FALSE(find.commitItems(control(1), true));
}

TEST_F(Settings, AreWrittenOnlyWhereTheTargetAccepts) {
    Find& find = opened();
    for (const Manner manner : {Manner::silent, Manner::refuses, Manner::echoes,
                                Manner::foreignSender, Manner::otherPort, Manner::otherScope}) {
        SCOPED_TRACE(static_cast<int>(manner));
        target.behave(manner, wire::ITEMVALUE_REQ::id);
        target.seen.clear();
        EXPECT_FALSE(find.setItem(control(1), 1, "t", 1));
        EXPECT_FALSE(find.setItem(control(1), 1, std::string("t")));
        EXPECT_FALSE(find.setItem(control(1), 1, std::uint16_t{1}));
        EXPECT_FALSE(find.commitItems(control(1), true));
        EXPECT_EQ(target.seen.size(), 4u) << "none is tried again";
    }
}

TEST_F(Settings, AreWrittenWhateverNumberComesBack) {
    target.replies[wire::ITEMVALUE_REQ::id] = [](const wire::PacketView&) {
        return write(wire::ITEMVALUE_ANS{.itemNo = 99});
    };
    Find& find = opened();
    EXPECT_TRUE(find.setItem(control(1), 1, "t", 1));
    EXPECT_TRUE(find.commitItems(control(1), true));
}

// ---- lists that lie ----

TEST_F(Settings, OfAnEndlessListFailWithinTheLimit) {
    items = {{.type = 1}};
    countTold = 65535;
    for (const auto id : {wire::ITEM_REQ::id, wire::ITEMVALUE_REQ::id}) {
        target.answerDelay[id] = 99'000;  // each just in time
    }
    Find& find = opened();
    SettingList out;
    const std::uint64_t taken =
        duration([&] { EXPECT_FALSE(find.getItems(control(1), out, false)); });
    // The limit may pass while one item is asked for, and the count comes ahead of it.
    EXPECT_LE(taken, VELMORA::settingsLimit + 4 * VELMORA::ackWait);
    EXPECT_GE(taken, VELMORA::settingsLimit - VELMORA::ackWait) << "and not long before";
    EXPECT_GE(out.size(), 500u) << "what was read stays";
}

TEST_F(Settings, OfEndlessChoicesFailWithinTheLimit) {
    items = {{.type = 5, .lower = 0, .upper = 65535}};
    target.answerDelay[wire::ITEMVALUE_REQ::id] = 99'000;
    Find& find = opened();
    SettingList out;
    EXPECT_LE(duration([&] { EXPECT_FALSE(find.getItems(control(1), out, false)); }),
              VELMORA::settingsLimit + 2 * VELMORA::ackWait);
    EXPECT_THAT(out, IsEmpty());
}

TEST_F(Settings, HaveNoMoreChoicesThanAWordCanCount) {
    items = {{.type = 5, .lower = 0, .upper = 65535, .labels = {{65535, "last"}}},
             {.type = 5, .lower = 3, .upper = 3}};
    // Of so many exchanges nothing is kept.
    ZENNO::logLevel = -1;
    target.onRequest = [this](const ScriptedTarget::Seen&) {
        network.clearSent();
        target.seen.clear();
    };
    SettingList out;
    EXPECT_FALSE(opened().getItems(control(1), out, false));
    ASSERT_EQ(out.size(), 1u) << "so many are taken, and one more is not";
    EXPECT_EQ(out.front().lower, 0);
    EXPECT_EQ(out.front().upper, 65535);
    ASSERT_EQ(out.front().choices.size(), VELMORA::mostChoices);
    EXPECT_EQ(out.front().choices.back(), "last");
}

}  // namespace
}  // namespace velmora_test
