#include <gtest/gtest.h>

#include "apps/velmora-settings/model/TargetList.h"
#include "apps/velmora-settings/model/Transport.h"
#include "tests/settings/FilesInMemory.h"

using namespace velmora_settings;
using namespace velmora_test;

namespace {

struct ChoiceRig {
    explicit ChoiceRig(const std::string& text = "Version=1_112_1\n") {
        disk.content = {{userPath, text}, {factoryPath, factoryText}};
    }
    FilesInMemory disk;
    Document document() { return Document::open({"D\\", "R"}, 8, disk.files()); }
};

// Of the file as it was written, by the driver's own reading.
TransferCase writtenKind(ChoiceRig& rig) {
    ZENNO::InfFile tree;
    tree.parseText(rig.disk.content[userPath]);
    return transferCase(readSettings(tree, 8).values);
}

TEST(TransferChoice, LeadsFromEveryKindToEveryOther) {
    struct Case {
        const char* why;
        const char* text;
    };
    const Case files[] = {
        {"nothing is said", ""},
        {"Optimize is taken back, and would hold with another word",
         "Fragment=Optimize\nFlexCycle=random\n"},
        {"the same, behind the target's own wish",
         "Fragment=Optimize\nFlexCycle=random\nTargetProfileLimitTime=500\n"},
        {"Optimize plays no part", "Fragment=Optimize\nFlexCycle=fixAsio\n"},
        {"a count", "Fragment=3\nFlexCycle=random\n"},
    };
    for (const Case& file : files) {
        const auto rigOf = [&] { return ChoiceRig("Version=1_112_1\n" + std::string(file.text)); };
        for (const TransferKind& from : transferKinds()) {
            SCOPED_TRACE(std::string(file.why) + ": " + std::string(from.name));
            ChoiceRig straight = rigOf();
            Document chosen = straight.document();
            chosen.setText(FieldId::cycleMinTime, "1");  // random takes no less
            chooseTransfer(chosen, from.kind);
            EXPECT_EQ(transferCase(chosen.reading().values), from.kind);
            EXPECT_TRUE(chosen.save().isWritten);
            EXPECT_EQ(writtenKind(straight), from.kind);
            for (const TransferKind& to : transferKinds()) {
                SCOPED_TRACE(to.name);
                ChoiceRig rig = rigOf();
                Document document = rig.document();
                document.setText(FieldId::cycleMinTime, "1");
                chooseTransfer(document, from.kind);
                chooseTransfer(document, to.kind);
                EXPECT_EQ(transferCase(document.reading().values), to.kind);
                EXPECT_TRUE(document.save().isWritten);
                EXPECT_EQ(writtenKind(rig), to.kind);
            }
        }
    }
}

TEST(TransferChoice, ShowsThePacketsThatTheDriverThenTakes) {
    ChoiceRig rig("Version=1_112_1\nFragment=Optimize\nFlexCycle=random\n");
    Document document = rig.document();
    EXPECT_EQ(document.text(FieldId::fragment), "disable") << "Optimize is taken back";
    chooseTransfer(document, TransferCase::var);
    EXPECT_TRUE(document.save().isWritten);
    EXPECT_EQ(rig.disk.content[userPath], "Version=1_112_1\nFragment=disable\nFlexCycle=enable\n");
    EXPECT_EQ(document.text(FieldId::fragment), "disable");
}

TEST(TransferChoice, OfWhatIsChosenAlreadyChangesNothing) {
    ChoiceRig rig("Version=1_112_1\nFragment=3\nFlexCycle=enable\nTargetProfileLimitTime=0\n");
    Document document = rig.document();
    chooseTransfer(document, TransferCase::var);
    EXPECT_FALSE(document.isChanged());
    chooseTransfer(document, TransferCase::fix);
    EXPECT_EQ(document.text(FieldId::fragment), "3") << "the count stays";
    chooseTransfer(document, TransferCase::var);
    EXPECT_FALSE(document.isChanged());
}

TEST(Conversion, IsTheWordOfThatKey) {
    ChoiceRig rig("Version=1_112_1\nPCMRequest=24\n");
    Document document = rig.document();
    EXPECT_FALSE(convertsIntegers(document));
    setConvertsIntegers(document, false);
    EXPECT_FALSE(document.isChanged());
    setConvertsIntegers(document, true);
    EXPECT_EQ(document.text(FieldId::pcmRequest), "CovertS32");
    EXPECT_TRUE(document.reading().values.pcmConvertS32);
    setConvertsIntegers(document, false);
    EXPECT_FALSE(document.reading().values.pcmConvertS32);
}

// ---- targets ----

VELMORA::FinderMap::value_type target(std::uint16_t last, const char* name, std::uint16_t sink) {
    VELMORA::FinderRecord record;
    record.targetName = name;
    record.sinkNo = sink;
    record.version = 1;
    record.findAddress = ZENNO::IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, last}, 19642, 3);
    return {ZENNO::IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, last},
                                 static_cast<std::uint16_t>(19650 + sink), 3),
            record};
}

TEST(TargetList, BeginsWithoutASearch) {
    const TargetList list;
    EXPECT_TRUE(list.rows().empty());
    EXPECT_EQ(list.statusText(), "Not searched yet.");
}

TEST(TargetList, ShowsEverySinkInTheDriversOrder) {
    TargetList list;
    list.onSearch({});
    EXPECT_EQ(list.statusText(), "Searching: 0 sinks so far.");
    list.onFound({target(9, "Attic", 1), target(1, "Kitchen(A)", 1), target(1, "Kitchen(B)", 2)});
    ASSERT_EQ(list.rows().size(), 3u);
    EXPECT_EQ(list.rows()[0].record.targetName, "Kitchen(A)");
    EXPECT_EQ(list.rows()[1].record.targetName, "Kitchen(B)");
    EXPECT_EQ(list.rows()[2].record.targetName, "Attic");
    EXPECT_EQ(list.rows()[0].addressText(), "fe80::1");
    EXPECT_EQ(list.rows()[0].interfaceText(), "3");
    EXPECT_EQ(list.statusText(), "3 sinks found.");
}

TEST(TargetList, SaysWhatHelpsWhereNobodyIsThere) {
    TargetList list;
    list.onFound({});
    EXPECT_EQ(list.statusText().find("No target was found: "), 0u);
    list.onFailed();
    EXPECT_EQ(list.statusText().find("The search could not run"), 0u);
}

TEST(TargetList, KeepsOneThatVanishesAndSaysSo) {
    TargetList list;
    list.onFound({target(1, "Kitchen", 1), target(2, "Attic", 1)});
    list.onFound({target(2, "Attic", 1)});
    ASSERT_EQ(list.rows().size(), 2u);
    EXPECT_FALSE(list.rows()[0].isHere);
    EXPECT_TRUE(list.rows()[1].isHere);
    EXPECT_EQ(list.statusText().find("Kitchen answers no more: "), 0u);
    list.onFound({target(1, "Kitchen", 1), target(2, "Attic", 1)});
    EXPECT_TRUE(list.rows()[0].isHere) << "it is back";
    list.onFound({});
    list.forgetGone();
    EXPECT_TRUE(list.rows().empty());
}

TEST(TargetList, KeepsItsRowsThroughASearchThatCouldNotRun) {
    TargetList list;
    list.onFound({target(1, "Kitchen", 1)});
    list.onSearch({});
    list.onFailed();
    EXPECT_EQ(list.rows().size(), 1u);
}

TEST(TargetList, BeginsAnewWhereSomethingElseIsAsked) {
    const std::list<ZENNO::IPAddress> further = {ZENNO::IPAddress::loopbackV6()};
    struct Case {
        const char* why;
        SearchQuestion before, after;
        bool isKept;
    };
    const Case cases[] = {
        {"the same", {}, {}, true},
        {"the same, with more", {further, 3}, {further, 3}, true},
        {"another interface", {{}, 3}, {{}, 4}, false},
        {"all interfaces", {{}, 3}, {}, false},
        {"an address more", {}, {further, 0}, false},
        {"an address less", {further, 0}, {}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        TargetList list;
        list.onSearch(c.before);
        list.onFound({target(1, "Kitchen", 1), target(2, "Attic", 1)});
        EXPECT_EQ(list.onSearch(c.after), !c.isKept);
        EXPECT_EQ(list.rows().size(), c.isKept ? 2u : 0u);
        list.onFound({target(2, "Attic", 1)});
        EXPECT_EQ(list.statusText().find("Kitchen answers no more") == 0, c.isKept);
    }
}

TEST(TargetList, ShowsNoStrangersNameUnescapedInASentence) {
    TargetList list;
    list.onFound({target(1, "Bad\x1b[2J", 1)});
    list.onFound({});
    EXPECT_EQ(list.statusText().find('\x1b'), std::string::npos);
}

TEST(AlwaysThisOne, WritesItsAddressAndItsSink) {
    ChoiceRig rig;
    Document document = rig.document();
    TargetList list;
    list.onFound({target(1, "Kitchen(B)", 2)});
    EXPECT_FALSE(isUsedAlways(document, list.rows()[0]));
    useAlways(document, list.rows()[0]);
    EXPECT_TRUE(isUsedAlways(document, list.rows()[0]));
    EXPECT_TRUE(document.problems().empty());
    EXPECT_TRUE(document.save().isWritten);
    EXPECT_EQ(rig.disk.content[userPath],
              "Version=1_112_1\nTargetAddress=fe80::1,19642\nTargetPO=2\n");
    useAny(document);
    EXPECT_FALSE(isUsedAlways(document, list.rows()[0]));
    EXPECT_TRUE(document.save().isWritten);
    EXPECT_EQ(rig.disk.content[userPath], "Version=1_112_1\nTargetPO=0\n");
}

TEST(FurtherAddresses, AreThoseOfTheFieldWhenItIsSound) {
    ChoiceRig rig;
    Document document = rig.document();
    EXPECT_TRUE(furtherAddresses(document).empty());
    document.setText(FieldId::findIP, "fe80::1;fe80::2");
    EXPECT_EQ(furtherAddresses(document).size(), 2u);
    document.setText(FieldId::networkInterface, "7");
    EXPECT_EQ(searchQuestion(document), (SearchQuestion{furtherAddresses(document), 7}));
    document.setText(FieldId::findIP, "fe80::1;x");
    EXPECT_TRUE(furtherAddresses(document).empty());
}

}  // namespace
