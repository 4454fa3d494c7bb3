// The settings that a target shows to hosts: what it tells of them, what it takes, what they do.
#include <gtest/gtest.h>

#include "target/OutputChoice.h"
#include "tests/target/TargetWorld.h"

namespace {

using namespace velmora_test;
using VELMORA::wire::ITEMVALUE_ANS;
using VELMORA::wire::ITEMVALUE_REQ;
using velmora_target::KeptValues;
using Lines = std::vector<std::string>;

constexpr std::uint16_t itemName = 1, itemBuffer = 2, itemTrim = 3, itemFeedback = 4, itemPhase = 5,
                        itemAnnounce = 6, itemOutput = 7;

// A target with a state file that is no file.
class Items : public testing::Test {
protected:
    struct Answer {
        bool accepted = false;
        std::uint16_t itemNo = 0, current = 0, second = 0;
        std::string text;
    };
    Answer exchange(std::uint16_t itemNo, std::uint16_t mode, std::uint16_t value = 0,
                    const std::string& text = {}) {
        const Bytes bytes = world.ask(write(ITEMVALUE_REQ{itemNo, mode, value, text}), controlPort);
        const auto packet = VELMORA::wire::readPacket(bytes);
        EXPECT_TRUE(packet && packet->id() == 51);
        if (!packet) return {};
        return {packet->accepted(), packet->arg16(8), packet->arg16(10), packet->arg16(14),
                std::string(packet->text())};
    }
    bool put(std::uint16_t itemNo, std::uint16_t value, const std::string& text = {}) {
        return exchange(itemNo, 1, value, text).accepted;
    }
    bool keep() { return exchange(0, 1).accepted; }
    bool commit() { return exchange(0, 2).accepted; }

    KeptValues state;  // what the state file holds
    int saves = 0;
    std::string failure;  // of saving
    velmora_target::TargetSettings settings = plainSettings();
    velmora_target::KeepValues keepValues = [this](const KeptValues& values) {
        ++saves;
        if (failure.empty()) state = values;
        return failure;
    };
    TargetWorld world{[] {
                          auto s = plainSettings();
                          s.output = "/music/take.wav";
                          s.outputFolder = "/music";
                          return s;
                      }(),
                      {{}, keepValues, {}}};
};

TEST_F(Items, AreShownWithTypeBoundsAndLabel) {
    struct Row {
        const char* why;
        const char* request;
        const char* answer;
    };
    const Row rows[] = {
        {"how many", "0000", "6400 1000 3100 0100 0700 0000 0000 0000"},
        {"a text", "0100", "6400 1c00 3100 0100 0100 0400 0000 0000 4e616d65 00000000"},
        {"a number, 0 to 60000", "0200",
         "6400 2300 3100 0100 0200 0100 0000 60ea 427566666572206c656e677468 000000"},
        {"a signed number, -1000 to 1000", "0300",
         "6400 2600 3100 0100 0300 0200 18fc e803 436c6f636b207472696d 000000000000"},
        {"a choice, 1 to 3", "0400",
         "6400 2f00 3100 0100 0400 0500 0100 0300 466565646261636b20656e636f64696e67 "
         "00000000000000"},
        {"a switch", "0500",
         "6400 2100 3100 0100 0500 0300 0000 0100 506861736520696e76657273696f6e 00"},
        {"a switch with words of its own", "0600",
         "6400 2000 3100 0100 0600 0300 0000 0100 416e6e6f756e6365206368616e676573"},
        {"a choice with a text, 0 to 4", "0700",
         "6400 1a00 3100 0100 0700 0600 0000 0400 4f7574707574 0000"},
        {"none of that number", "0800", "6400 1000 3100 0000 0000 0000 0000 0000"},
        {"nor of the greatest", "ffff", "6400 1000 3100 0000 0000 0000 0000 0000"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.why);
        const std::string request =
            "6400 1000 3000 0000 " + std::string(row.request) + " 0000 0000 0000";
        EXPECT_EQ(world.ask(hex(request), controlPort), hex(row.answer));
    }
}

TEST_F(Items, AreReadAsTheyAre) {
    struct Row {
        const char* why;
        const char* request;
        const char* answer;
    };
    const Row rows[] = {
        {"the name", "0100 0000 0000", "6400 1b00 3300 0100 0100 0000 0000 0000 62656e6368 000000"},
        {"the buffer: the latency granted", "0200 0000 0000",
         "6400 1000 3300 0100 0200 0000 0000 0000"},
        {"the encoding", "0400 0000 0000", "6400 1000 3300 0100 0400 0100 0000 0000"},
        {"announcing", "0600 0000 0000", "6400 1000 3300 0100 0600 0100 0000 0000"},
        {"the output: second is the choice again", "0700 0000 0000",
         "6400 1800 3300 0100 0700 0100 0000 0100 74616b652e776176"},
        {"mode 2: nothing is kept, so the command line's", "0100 0200 0000",
         "6400 1b00 3300 0100 0100 0000 0000 0000 62656e6368 000000"},
        {"a label", "0600 0300 0100", "6400 1e00 3300 0100 0600 0100 0000 0000 6f6e 000000000000"},
        {"a label that hosts have", "0500 0300 0100", "6400 1000 3300 0100 0500 0100 0000 0000"},
        {"a label of a number", "0200 0300 1400",
         "6400 1b00 3300 0100 0200 1400 0000 0000 3230206d73 000000"},
        {"a label of a negative one", "0300 0300 ffff",
         "6400 1a00 3300 0100 0300 ffff 0000 0000 2d312070706d 0000"},
        {"a label below the choices", "0400 0300 0000", "6400 1000 3300 0000 0000 0000 0000 0000"},
        {"a label above them", "0400 0300 0400", "6400 1000 3300 0000 0000 0000 0000 0000"},
        {"an item that is not there", "0800 0000 0000", "6400 1000 3300 0000 0000 0000 0000 0000"},
        {"a mode that is not there", "0100 0400 0000", "6400 1000 3300 0000 0000 0000 0000 0000"},
        {"item 0 has no label", "0000 0300 0000", "6400 1000 3300 0000 0000 0000 0000 0000"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(world.ask(hex("6400 1000 3200 0000 " + std::string(row.request) + " 0000"),
                            controlPort),
                  hex(row.answer));
    }
}

TEST_F(Items, TakeOnlyWhatIsSound) {
    struct Case {
        const char* why;
        std::uint16_t itemNo, value;
        std::string text;
        bool taken;
    };
    const Case cases[] = {
        {"a name", itemName, 0, "Kitchen", true},
        {"a name whose number is of no account", itemName, 9, "Kitchen", true},
        {"a name of 64 bytes", itemName, 0, std::string(64, 'x'), true},
        {"a name of 65 bytes", itemName, 0, std::string(65, 'x'), false},
        {"no name", itemName, 0, "", false},
        {"a name in UTF-8", itemName, 0,
         "K\xc3\xbc"
         "che",
         true},
        {"a name in Latin-1", itemName, 0,
         "K\xfc"
         "che",
         false},
        {"a name with a line feed", itemName, 0, "a\nb", false},
        {"the longest buffer", itemBuffer, 60000, "", true},
        {"a longer buffer", itemBuffer, 60001, "", false},
        {"a number's text is of no account", itemBuffer, 20, "20\n", true},
        {"the highest trim", itemTrim, 1000, "", true},
        {"a higher one", itemTrim, 1001, "", false},
        {"the lowest trim", itemTrim, 0xfc18, "", true},
        {"a lower one", itemTrim, 0xfc17, "", false},
        {"encoding 0", itemFeedback, 0, "", false},
        {"encoding 3", itemFeedback, 3, "", true},
        {"encoding 4", itemFeedback, 4, "", false},
        {"a switch at 2", itemPhase, 2, "", false},
        {"a file", itemOutput, 1, "b.wav", true},
        {"a file without a name", itemOutput, 2, "", true},
        {"no such choice", itemOutput, 5, "", false},
        {"a name for nothing", itemOutput, 0, "b", false},
        {"a folder", itemOutput, 1, "/etc/b.wav", false},
        {"the folder above", itemOutput, 1, "..", false},
        {"a hidden file", itemOutput, 1, ".b.wav", false},
        {"another system's folder", itemOutput, 1, "x\\b.wav", false},
        {"a device for a file", itemOutput, 4, "alsa:file", false},
        {"a stream of a file, on another system", itemOutput, 2, "b:c", false},
        {"an extension where the format gives it", itemOutput, 4, "b.sh", false},
        {"a name where the format gives the extension", itemOutput, 4, "b", true},
        {"a name of 129 bytes", itemOutput, 1, std::string(129, 'x'), false},
        {"the default device", itemOutput, 3, "", true},
        {"a sound device", itemOutput, 3, "hw:CARD=DAC,DEV=0", true},
        {"a device that writes files", itemOutput, 3, "file:x", false},
        {"a device that runs a program", itemOutput, 3, "default:|halt", false},
        {"no item 8", 8, 0, "x", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const Answer before = exchange(c.itemNo, 0);
        EXPECT_EQ(put(c.itemNo, c.value, c.text), c.taken);
        const Answer after = exchange(c.itemNo, 0);
        if (!c.taken) {
            EXPECT_EQ(after.current, before.current);
            EXPECT_EQ(after.text, before.text);
        }
    }
    EXPECT_EQ(world.target.settings().name, "bench") << "nothing was committed";
}

TEST_F(Items, KeepOnlyTheFormThatTheirTypeHas) {
    EXPECT_TRUE(put(itemName, 9, "Kitchen"));
    EXPECT_EQ(exchange(itemName, 0).current, 0);
    EXPECT_TRUE(put(itemBuffer, 20, "twenty"));
    EXPECT_EQ(exchange(itemBuffer, 0).text, "");
}

TEST_F(Items, SayWhatTheyRefuse) {
    put(itemTrim, 2000);
    EXPECT_EQ(world.mail.lines, Lines{"refused a value for Clock trim: not from -1000 to 1000"});
}

TEST_F(Items, HoldWhatIsWrittenUntilTheCommit) {
    EXPECT_TRUE(put(itemName, 0, "Kitchen"));
    EXPECT_EQ(exchange(itemName, 0).text, "Kitchen") << "read: what is written";
    EXPECT_EQ(exchange(itemName, 2).text, "bench") << "kept: still the command line's";
    EXPECT_EQ(world.ask(hex("6400 1000 0000 0000 0000 0000 0000 0000"), controlPort),
              hex("6400 1b00 0100 0100 4b4f5256454e5445 62656e6368 000000"));
    EXPECT_TRUE(commit());
    EXPECT_EQ(world.mail.lines, Lines{"Name is now \"Kitchen\""});
    EXPECT_EQ(world.ask(hex("6400 1000 0000 0000 0000 0000 0000 0000"), controlPort),
              hex("6400 1900 0100 0100 4b4f5256454e5445 4b69746368656e 00"))
        << "found by its new name";
    EXPECT_EQ(exchange(itemName, 2).text, "bench") << "in force, not kept";
    EXPECT_EQ(saves, 0);
}

TEST_F(Items, AreKeptByACommitThatKeeps) {
    put(itemBuffer, 20);
    EXPECT_TRUE(keep());
    EXPECT_EQ(state, (KeptValues{{"buffer", {20, {}}}})) << "the command line's stays its own";
    put(itemName, 0, "Kitchen");
    EXPECT_TRUE(keep());
    EXPECT_EQ(world.mail.lines, Lines{"Name is now \"Kitchen\", kept"});
    EXPECT_EQ(state, (KeptValues{{"name", {0, "Kitchen"}}, {"buffer", {20, {}}}}))
        << "beside what is kept already";
    EXPECT_EQ(exchange(itemName, 2).text, "Kitchen");
    EXPECT_EQ(exchange(itemBuffer, 2).current, 20);
    EXPECT_EQ(saves, 2);
}

TEST_F(Items, ThatWereCommittedWithoutKeepingAreLostAtTheNextStart) {
    put(itemBuffer, 20);
    put(itemTrim, 5);
    EXPECT_TRUE(commit());
    put(itemName, 0, "Kitchen");
    EXPECT_TRUE(keep());
    EXPECT_EQ(state, (KeptValues{{"name", {0, "Kitchen"}}})) << "what this commit wrote alone";
    EXPECT_EQ(world.target.settings().bufferMicros, 20'000u) << "in force as before";
    EXPECT_EQ(exchange(itemBuffer, 2).current, 0) << "and not kept";
    put(itemBuffer, 20);
    EXPECT_TRUE(keep());
    EXPECT_EQ(state, (KeptValues{{"name", {0, "Kitchen"}}, {"buffer", {20, {}}}}))
        << "written again, and kept now";
    EXPECT_EQ(exchange(itemBuffer, 2).current, 20);

    put(itemName, 0, "Hall");
    EXPECT_TRUE(commit());
    put(itemPhase, 1);
    EXPECT_TRUE(keep());
    EXPECT_EQ(state.at("name").text, "Kitchen") << "what was kept stays, whatever is in force";
    EXPECT_EQ(world.target.settings().name, "Hall");
}

TEST_F(Items, AreNotSavedAgainWhenTheyAreKeptAlready) {
    EXPECT_TRUE(keep()) << "nothing written, nothing kept";
    EXPECT_EQ(saves, 0);
    put(itemBuffer, 20);
    EXPECT_TRUE(keep());
    EXPECT_EQ(saves, 1);
    failure = "no room left";
    EXPECT_TRUE(keep()) << "nothing written";
    put(itemBuffer, 20);
    EXPECT_TRUE(keep()) << "what is kept, once more";
    EXPECT_EQ(saves, 1);
    EXPECT_EQ(world.mail.lines, Lines{});
    put(itemBuffer, 30);
    EXPECT_TRUE(commit());
    put(itemBuffer, 20);
    EXPECT_TRUE(keep()) << "back to what is kept";
    EXPECT_EQ(saves, 1);
    EXPECT_EQ(world.target.settings().bufferMicros, 20'000u);
}

TEST_F(Items, ChangeNothingWhenTheyCannotBeKept) {
    failure = "no room left";
    put(itemName, 0, "Kitchen");
    EXPECT_FALSE(keep());
    EXPECT_EQ(world.mail.lines, Lines{"settings are not kept: no room left"});
    EXPECT_EQ(world.target.settings().name, "bench");
    EXPECT_EQ(exchange(itemName, 0).text, "Kitchen") << "still written";
    EXPECT_EQ(exchange(itemName, 2).text, "bench");
    failure.clear();
    EXPECT_TRUE(keep()) << "again, once there is room";
    EXPECT_EQ(world.target.settings().name, "Kitchen");
}

TEST_F(Items, CannotBeKeptWithoutAStateFile) {
    TargetWorld bare;
    bare.ask(write(ITEMVALUE_REQ{itemName, 1, 0, "Kitchen"}), controlPort);
    EXPECT_EQ(bare.ask(write(ITEMVALUE_REQ{0, 1, 0, {}}), controlPort),
              hex("6400 1000 3300 0000 0000 0000 0000 0000"));
    EXPECT_EQ(bare.mail.lines, Lines{"settings are not kept: there is no state file"});
    EXPECT_EQ(bare.ask(write(ITEMVALUE_REQ{0, 2, 0, {}}), controlPort),
              hex("6400 1000 3300 0100 0000 0000 0000 0000"));
    EXPECT_EQ(bare.target.settings().name, "Kitchen");
}

TEST_F(Items, ForgetWhatNobodyCommitsForAMinute) {
    put(itemName, 0, "Kitchen");
    world.pass(59'999'999);
    EXPECT_EQ(exchange(itemName, 0).text, "Kitchen");
    put(itemBuffer, 20);  // another write: the minute starts anew
    world.pass(59'999'999);
    EXPECT_EQ(exchange(itemName, 0).text, "Kitchen");
    world.pass(1);
    EXPECT_EQ(exchange(itemName, 0).text, "bench");
    EXPECT_EQ(exchange(itemBuffer, 0).current, 0);
    EXPECT_TRUE(commit());
    EXPECT_EQ(world.target.settingChanges(), 0u);
}

TEST_F(Items, StandAsKeptAtTheNextStart) {
    const KeptValues kept{{"name", {0, "Kitchen"}},
                          {"clockTrim", {0xffff, {}}},
                          {"output", {2, "night"}},
                          {"feedback", {9, {}}},
                          {"of a later release", {1, {}}}};
    auto given = plainSettings();
    given.outputFolder = ".";
    TargetWorld next(given, {kept, keepValues, {}});
    EXPECT_EQ(next.target.settings().name, "Kitchen");
    EXPECT_EQ(next.target.settings().clockPpm, -1);
    EXPECT_EQ(next.target.settings().output, "./night.dsf");
    EXPECT_EQ(next.target.settings().feedbackEncoding, 1) << "what cannot be is passed over";
    EXPECT_EQ(next.target.keptLines(),
              (Lines{"Name is \"Kitchen\", kept", "Clock trim is -1 ppm, kept",
                     "Output is DSF file \"night\", kept"}));
    EXPECT_EQ(world.target.keptLines(), Lines{});
}

TEST_F(Items, ShowTheNearestOfWhatOnlyTheCommandLineCanSay) {
    auto given = plainSettings();
    given.clockPpm = 40000;
    given.bufferMicros = 400;
    given.name = std::string(70, 'x');
    TargetWorld odd(given, {{}, keepValues, {}});
    EXPECT_EQ(odd.ask(write(ITEMVALUE_REQ{itemTrim, 0, 0, {}}), controlPort),
              hex("6400 1000 3300 0100 0300 e803 0000 0000"));
    EXPECT_EQ(odd.ask(write(ITEMVALUE_REQ{itemBuffer, 0, 0, {}}), controlPort),
              hex("6400 1000 3300 0100 0200 0100 0000 0000"));
    // Written back as shown, nothing changes, and what no host could have set is not kept.
    odd.ask(write(ITEMVALUE_REQ{itemTrim, 1, 1000, {}}), controlPort);
    const Bytes back = odd.ask(write(ITEMVALUE_REQ{itemName, 1, 0, given.name}), controlPort);
    EXPECT_EQ(back.at(6), 1);
    odd.ask(write(ITEMVALUE_REQ{0, 1, 0, {}}), controlPort);
    EXPECT_EQ(odd.target.settings().clockPpm, 40000);
    EXPECT_FALSE(state.contains("name"));
}

// ---- what they do ----

TEST_F(Items, RuleTheNextStream) {
    EXPECT_TRUE(world.connect());
    EXPECT_EQ(world.tape.output, "/music/take.wav");
    put(itemPhase, 1);
    put(itemFeedback, 3);
    put(itemBuffer, 50);
    put(itemOutput, 3, "hw:1");
    EXPECT_TRUE(commit());
    EXPECT_EQ(world.mail.lines,
              (Lines{"Buffer length is now 50 ms", "Feedback encoding is now fill and its target",
                     "Phase inversion is now on", "Output is now ALSA device \"hw:1\""}));
    world.data(0, Bytes(1920), 0x60);
    EXPECT_EQ(world.mail.datagrams.at(0).data, hex("6400 1000 0b00 0100 0020 0000 0000 0000"))
        << "the running one goes on as it began";
    EXPECT_EQ(world.figures().targetMicros, 20'000);

    world.ask(hex("6400 1000 0c00 0000 0000 0000 0000 0000"), sinkPort);
    EXPECT_EQ(world.ask(hex("6400 1000 0800 0000 0202 0000 0c00 0000"), sinkPort),
              hex("6400 1000 0900 0101 214e 0000 0000 0000"));
    EXPECT_EQ(world.tape.output, "alsa:hw:1");
    world.data(0, Bytes(1920), 0x60);
    EXPECT_EQ(world.mail.datagrams.at(0).data, hex("6400 1000 0b00 0101 0000 0040 0040 0000"));
    EXPECT_EQ(world.figures().targetMicros, 50'000);
}

TEST_F(Items, SetBufferAndTrimBackToo) {
    put(itemBuffer, 50);
    put(itemTrim, 0xffff);
    commit();
    EXPECT_EQ(world.target.settings().bufferMicros, 50'000u);
    EXPECT_EQ(world.target.settings().clockPpm, -1);
    put(itemBuffer, 0);
    put(itemTrim, 0);
    commit();
    EXPECT_EQ(world.target.settings().bufferMicros, std::nullopt);
    EXPECT_EQ(world.target.settings().clockPpm, 0);
}

TEST_F(Items, PutAnOutputIntoItsFolderAndForm) {
    struct Case {
        const char* why;
        std::uint16_t kind;
        const char* name;
        const char* output;
    };
    const Case cases[] = {
        {"nothing", 0, "", "none"},
        {"with its extension", 1, "b.wav", "/music/b.wav"},
        {"without", 1, "b", "/music/b.wav"},
        {"with another's", 2, "b.wav", "/music/b.wav.dsf"},
        {"without a name", 2, "", "/music/audio.dsf"},
        {"by the format", 4, "b", "/music/b"},
        {"by the format, without a name", 4, "", "/music/audio"},
        {"the default device", 3, "", "alsa:default"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_TRUE(put(itemOutput, c.kind, c.name));
        EXPECT_TRUE(commit());
        EXPECT_EQ(world.target.settings().output, c.output);
        const Answer shown = exchange(itemOutput, 0);
        EXPECT_EQ(shown.current, c.kind);
        EXPECT_EQ(shown.second, c.kind) << "what a host shows where the text is empty";
        EXPECT_EQ(shown.text, c.name);
    }
}

TEST_F(Items, NameNoFilesWhereTheCommandLineGaveNoFolder) {
    TargetWorld bare(plainSettings(), {{{"output", {1, "night"}}}, keepValues, {}});
    EXPECT_EQ(bare.target.settings().output, "none") << "nor by what was kept";
    for (const std::uint16_t kind : std::initializer_list<std::uint16_t>{1, 2, 4}) {
        SCOPED_TRACE(kind);
        const Bytes answer = bare.ask(write(ITEMVALUE_REQ{itemOutput, 1, kind, "b"}), controlPort);
        EXPECT_EQ(answer.at(6), 0);
        EXPECT_EQ(bare.mail.lines,
                  Lines{"refused a value for Output: hosts name no files here, for there is no "
                        "--output-folder"});
    }
    for (const std::uint16_t kind : std::initializer_list<std::uint16_t>{0, 3}) {
        EXPECT_EQ(bare.ask(write(ITEMVALUE_REQ{itemOutput, 1, kind, {}}), controlPort).at(6), 1);
    }
}

TEST(OutputText, NamesAFileWhereThereIsNoFolder) {
    using velmora_target::outputText;
    EXPECT_EQ(outputText({4, "none"}, ""), "./none");
    EXPECT_EQ(outputText({1, "b"}, ""), "./b.wav");
    EXPECT_EQ(outputText({0, ""}, ""), "none");
}

TEST_F(Items, DoNotTakeWhatTurnsALineRound) {
    put(itemName, 0,
        "a\xe2\x80\xae"
        "b");
    commit();
    EXPECT_EQ(world.mail.lines, Lines{});
}

TEST_F(Items, OfNoAnswerNorRequestBreakNothing) {
    for (const char* odd : {"6400 1700 3200 0000 0100 0100 0000 0000",     // filler, no payload
                            "6400 0000 3200 0000 0100 0100 0000 0000"}) {  // less than a header
        const Bytes answer = world.ask(hex(odd), controlPort);
        ASSERT_GE(answer.size(), 16u);
        EXPECT_EQ(answer[6], 0) << "an empty name is refused";
    }
}

}  // namespace
