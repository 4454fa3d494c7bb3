#include "apps/velmora-settings/model/Document.h"

#include <gtest/gtest.h>

#include <fstream>

#include "tests/base/TempFolder.h"
#include "tests/settings/FilesInMemory.h"

using namespace velmora_settings;
using namespace velmora_test;
using Outcome = Files::WriteOutcome;

namespace {

const std::string mine =
    "; mine, and nobody else's\r\n\r\nVersion=1_112_1\r\nStrange=key\r\nCycleTime=500\r\n"
    "  Phase = Invert\r\n[Other]\r\nCycleTime=7\r\n";

struct Rig {
    explicit Rig(const std::string& user = mine) {
        if (!user.empty()) disk.content[userPath] = user;
        disk.content[factoryPath] = factoryText;
    }
    Document open(std::int32_t cores = 8) {
        return Document::open({"D\\", "R"}, cores, disk.files());
    }
    std::string& user() { return disk.content[userPath]; }

    FilesInMemory disk;
};

TEST(Document, ShowsWhatTheDriverTakes) {
    Rig rig;
    const Document document = rig.open();
    EXPECT_EQ(document.text(FieldId::cycleTime), "500");
    EXPECT_TRUE(document.isOn(FieldId::phase));
    EXPECT_EQ(document.text(FieldId::syncBufferCount), "6") << "the default";
    EXPECT_FALSE(document.isChanged());
}

TEST(Document, WithoutAChangeTouchesNoFile) {
    const std::string files[] = {mine,          "", "CycleTime=x", "A=1\tB", "Version=old\n",
                                 "\xef\xbb\xbf"};
    for (const std::string& text : files) {
        SCOPED_TRACE(text);
        Rig rig(text);
        Document document = rig.open();
        const SaveResult result = document.save();
        EXPECT_TRUE(result.isSaved);
        EXPECT_FALSE(result.isWritten);
        EXPECT_TRUE(rig.disk.written.empty());
    }
}

TEST(Document, SetBackToWhatItWasIsNotChanged) {
    Rig rig;
    Document document = rig.open();
    document.setText(FieldId::cycleTime, "600");
    EXPECT_TRUE(document.isChanged());
    document.setText(FieldId::cycleTime, "500");
    EXPECT_FALSE(document.isChanged());
    EXPECT_TRUE(document.save().isSaved);
    EXPECT_TRUE(rig.disk.written.empty());
}

TEST(Document, WritesTheChangeAndNothingElse) {
    Rig rig;
    Document document = rig.open();
    document.setText(FieldId::cycleTime, "2000");
    document.setOn(FieldId::phase, false);
    document.setText(FieldId::syncBufferCount, "4");
    const SaveResult result = document.save();
    EXPECT_TRUE(result.isWritten);
    EXPECT_EQ(result.sentence, "");
    EXPECT_EQ(
        rig.user(),
        "; mine, and nobody else's\r\n\r\nVersion=1_112_1\r\nStrange=key\r\nCycleTime=2000\r\n"
        "SyncBufferCount=4\r\n[Other]\r\nCycleTime=7\r\n");
    EXPECT_FALSE(document.isChanged()) << "what is written is what is loaded";
    EXPECT_TRUE(document.save().isSaved);
    EXPECT_EQ(rig.disk.written.size(), 1u);
}

TEST(Document, RefusesWhatTheDriverWouldIgnoreAndKeepsTheFile) {
    Rig rig;
    Document document = rig.open();
    document.setText(FieldId::syncBufferCount, "1");
    ASSERT_EQ(document.problems().size(), 1u);
    EXPECT_EQ(document.problems()[0].field, FieldId::syncBufferCount);
    const SaveResult result = document.save();
    EXPECT_FALSE(result.isSaved);
    EXPECT_EQ(result.sentence, "\"Ring depth\" takes 2 to 2147483647 buffers.");
    EXPECT_EQ(rig.user(), mine);
}

TEST(Document, RefusesFieldsThatContradictEachOther) {
    Rig rig;
    Document document = rig.open();
    document.setText(FieldId::targetAddress, "fe80::1,19642");
    ASSERT_EQ(document.problems().size(), 1u);
    EXPECT_FALSE(document.save().isSaved);
    document.setText(FieldId::targetPO, "1");
    EXPECT_TRUE(document.problems().empty());
}

TEST(Document, LeavesAFaultAloneThatItCameWith) {
    Rig rig("Version=1_112_1\nASIOBufferSizeMin=9999\nSyncBufferCount=1\n");
    Document document = rig.open();
    EXPECT_TRUE(document.problems().empty());
    document.setOn(FieldId::phase, true);
    EXPECT_TRUE(document.save().isSaved);
    EXPECT_EQ(rig.user(),
              "Version=1_112_1\nASIOBufferSizeMin=9999\nSyncBufferCount=1\nPhase=Invert\n");
}

TEST(Document, TellsWhatTheDriverIgnores) {
    Rig rig("Version=1_112_1\nSyncBufferCount=1\n");
    ASSERT_EQ(rig.open().notes().size(), 1u);
    EXPECT_EQ(rig.open().notes()[0],
              "The driver ignores \"SyncBufferCount=1\" in the file, and the default holds.");
}

TEST(Document, TellsWhatTheDriverTakesInPart) {
    Rig rig("Version=1_112_1\nFindIP=fe80::1;x\n");
    const Document document = rig.open();
    EXPECT_EQ(document.text(FieldId::findIP), "fe80::1");
    ASSERT_EQ(document.notes().size(), 1u);
    EXPECT_EQ(document.notes()[0],
              "The driver takes only what is an address of \"FindIP=fe80::1;x\" in the file.");
}

TEST(Document, TakesAKeyOutWhereOffIsNoValueOfIt) {
    Rig rig("Version=1_112_1\nASIOBufferSize=64\nTargetAddress=fe80::1,19642\nTargetPO=1\n");
    Document document = rig.open();
    document.setText(FieldId::bufferSize, "0");
    document.setText(FieldId::targetAddress, "");
    document.setText(FieldId::targetPO, "0");
    EXPECT_TRUE(document.save().isSaved);
    EXPECT_EQ(rig.user(), "Version=1_112_1\nTargetPO=0\n");
}

// ---- the user's first file ----

TEST(Document, MakesTheUsersFileFromTheFactorysWithItsFolder) {
    Rig rig("");
    Document document = rig.open();
    document.setOn(FieldId::phase, true);
    const SaveResult result = document.save();
    EXPECT_TRUE(result.isWritten);
    EXPECT_EQ(result.sentence, "Your own settings now lie in " + userPath +
                                   ": audio software that has the driver open reads them when it "
                                   "opens the driver anew.");
    EXPECT_EQ(rig.user(), factoryText + "Phase=Invert\r\n");
    EXPECT_EQ(rig.disk.folders.count("R\\KORVENTE Velmora\\"), 1u);
    EXPECT_EQ(rig.disk.content[factoryPath], factoryText);
}

TEST(Document, OfAnotherReleaseIsWrittenFromTheFactorys) {
    Rig rig("Version=1_100_0\nCycleTime=5\n");
    Document document = rig.open();
    EXPECT_EQ(document.text(FieldId::cycleTime), "1000");
    document.setText(FieldId::cycleTime, "700");
    EXPECT_TRUE(document.save().isSaved);
    EXPECT_NE(rig.user().find("Version=1_112_1\r\n"), std::string::npos);
    EXPECT_NE(rig.user().find("CycleTime=700\r\n"), std::string::npos);
}

TEST(Document, WithATabIsWrittenWithoutIt) {
    Rig rig("Version=1_112_1\n;\tmine\nCycleTime=5\n");
    Document document = rig.open();
    EXPECT_EQ(document.text(FieldId::cycleTime), "5");
    document.setText(FieldId::cycleTime, "700");
    EXPECT_TRUE(document.save().isSaved);
    EXPECT_EQ(rig.user(), "Version=1_112_1\n; mine\nCycleTime=700\n");
}

TEST(Document, SaysWhenAudioSoftwareHearsOfTheChanges) {
    const std::string atOnce =
        "OK writes the changes; the audio software that opened this then searches anew.";
    const std::string later =
        "OK writes the changes; audio software that has the driver open reads them when it opens "
        "the driver anew.";
    struct Case {
        const char* why;
        std::string user, pointed;
        bool isInUse;
    };
    const Case cases[] = {
        {"the user's own", mine, "", true},
        {"the user's own, which the driver has made the factory's", "Version=old\n", "", true},
        {"one that the pointer names", "", "Version=1_112_1\n", true},
        {"none yet: the driver has the factory's", "", "", false},
        {"the driver does not read it", "Version=1_112_1\n;\tmine\n", "", false},
        {"the driver does not read it, and has the pointer's", "A=\t1\n", "Version=1_112_1\n",
         false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Rig rig(c.user);
        rig.disk.content[pointerPath] = "SettingPath=X\\other.inf\n";
        if (!c.pointed.empty()) rig.disk.content["X\\other.inf"] = c.pointed;
        Document document = rig.open();
        document.setText(FieldId::infoCycle, "5");
        EXPECT_EQ(document.okSentence(), c.isInUse ? atOnce : later);
        const SaveResult result = document.save();
        EXPECT_TRUE(result.isWritten);
        EXPECT_EQ(result.sentence.empty(), c.isInUse) << result.sentence;
        EXPECT_EQ(result.sentence.find("opens the driver anew") != std::string::npos, !c.isInUse);
        // A second change finds the same driver.
        document.setText(FieldId::infoCycle, "6");
        EXPECT_EQ(document.okSentence(), c.isInUse ? atOnce : later);
    }
}

// ---- others write too ----

TEST(Document, KeepsWhatSomebodyElseWroteMeanwhile) {
    Rig rig;
    Document document = rig.open();
    document.setText(FieldId::cycleTime, "2000");
    rig.user() = "Version=1_112_1\nInfoCycle=5\nCycleTime=9\n";
    EXPECT_TRUE(document.save().isSaved);
    EXPECT_EQ(rig.user(), "Version=1_112_1\nInfoCycle=5\nCycleTime=2000\n");
    EXPECT_EQ(document.text(FieldId::infoCycle), "5");
}

TEST(Document, WritesAFileAnewThatHasGoneMeanwhile) {
    Rig rig;
    Document document = rig.open();
    document.setText(FieldId::cycleTime, "2000");
    rig.disk.content.erase(userPath);
    EXPECT_TRUE(document.save().isSaved);
    EXPECT_NE(rig.user().find("Strange=key\r\nCycleTime=2000\r\n"), std::string::npos);
}

TEST(Document, ThatSaysTheSameByNowIsNotWritten) {
    Rig rig;
    Document document = rig.open();
    document.setText(FieldId::cycleTime, "2000");
    rig.user() = "Version=1_112_1\nCycleTime=2000\n";
    EXPECT_TRUE(document.save().isSaved);
    EXPECT_TRUE(rig.disk.written.empty());
}

// ---- debug.inf and the section LOW ----

TEST(Document, NeverTouchesDebugInfAndSaysThatItWins) {
    Rig rig;
    rig.disk.content[debugPath] = "Debug=enable\nCycleTime=3\n";
    Document document = rig.open();
    EXPECT_EQ(document.text(FieldId::cycleTime), "500");
    EXPECT_EQ(document.text(FieldId::debug), "");
    ASSERT_EQ(document.notes().size(), 1u);
    EXPECT_NE(document.notes()[0].find("Debug, CycleTime"), std::string::npos);
    document.setText(FieldId::cycleTime, "600");
    EXPECT_TRUE(document.save().isSaved);
    EXPECT_EQ(rig.disk.content[debugPath], "Debug=enable\nCycleTime=3\n");
    EXPECT_EQ(rig.disk.written, std::vector<std::string>{userPath});
}

TEST(Document, OnASmallMachineEditsTheSectionThatIsRead) {
    Rig rig("Version=1_112_1\nCPULOW=2\nStartDelay=1\nCycleTime=1\n[LOW]\nCycleTime=2\n");
    Document document = rig.open(2);
    EXPECT_EQ(document.text(FieldId::cycleTime), "2");
    document.setText(FieldId::cycleTime, "3");
    document.setText(FieldId::infoCycle, "4");
    document.setText(FieldId::startDelay, "5");
    EXPECT_TRUE(document.save().isSaved);
    EXPECT_EQ(rig.user(),
              "Version=1_112_1\nCPULOW=2\nStartDelay=5\nCycleTime=1\n"
              "[LOW]\nCycleTime=3\nInfoCycle=4\n");
    EXPECT_EQ(document.notes().size(), 1u);
}

// The driver skips the mark of either file.
TEST(Document, SeesAFirstLineBehindAByteOrderMark) {
    const std::string mark = "\xef\xbb\xbf";
    Rig rig(mark + "CPULOW=2\r\nVersion=1_112_1\r\n[LOW]\r\nCycleTime=2\r\n");
    rig.disk.content[debugPath] = mark + "Debug=enable\n";
    Document document = rig.open(2);
    EXPECT_EQ(document.text(FieldId::cpuLow), "2");
    EXPECT_EQ(document.text(FieldId::cycleTime), "2") << "the machine is a small one";
    ASSERT_EQ(document.notes().size(), 2u);
    EXPECT_NE(document.notes()[0].find("what is set here for Debug:"), std::string::npos);
    EXPECT_NE(document.notes()[1].find("CPULOW"), std::string::npos);
    document.setText(FieldId::cycleTime, "3");
    EXPECT_TRUE(document.save().isWritten);
    EXPECT_EQ(rig.user(), mark + "CPULOW=2\r\nVersion=1_112_1\r\n[LOW]\r\nCycleTime=3\r\n");
}

TEST(Document, SeesADebugInfBehindAMarkMakeTheMachineASmallOne) {
    Rig rig("Version=1_112_1\nCycleTime=1\n[LOW]\nCycleTime=2\n");
    rig.disk.content[debugPath] =
        "\xef\xbb\xbf"
        "CPULOW=8\n";
    EXPECT_EQ(rig.open(4).text(FieldId::cycleTime), "2");
}

TEST(Document, OnALargerMachineLeavesTheSectionLowAlone) {
    Rig rig("Version=1_112_1\nCPULOW=2\nCycleTime=1\n[LOW]\nCycleTime=2\n");
    Document document = rig.open(3);
    document.setText(FieldId::cycleTime, "3");
    EXPECT_TRUE(document.save().isSaved);
    EXPECT_EQ(rig.user(), "Version=1_112_1\nCPULOW=2\nCycleTime=3\n[LOW]\nCycleTime=2\n");
}

TEST(Document, FollowsADebugInfThatMakesTheMachineASmallOne) {
    Rig rig("Version=1_112_1\nCycleTime=1\n");
    rig.disk.content[debugPath] = "CPULOW=8\n";
    Document document = rig.open(4);
    EXPECT_EQ(document.text(FieldId::cycleTime), "1000") << "there is no section LOW";
    document.setText(FieldId::cycleTime, "3");
    EXPECT_TRUE(document.save().isSaved);
    EXPECT_EQ(rig.user(), "Version=1_112_1\nCycleTime=1\n[LOW]\nCycleTime=3\n");
}

// ---- what goes wrong ----

TEST(Document, SaysWhyItCouldNotBeWrittenAndLosesNothing) {
    struct Case {
        Outcome outcome;
        const char* says;
    };
    const Case cases[] = {
        {Outcome::noFolder, "make it"},
        {Outcome::readOnly, "write-protected"},
        {Outcome::inUse, "held by another program"},
        {Outcome::noRoom, "no room"},
        {Outcome::refused, "no right"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.says);
        Rig rig;
        Document document = rig.open();
        document.setText(FieldId::cycleTime, "2000");
        rig.disk.outcome = c.outcome;
        const SaveResult result = document.save();
        EXPECT_FALSE(result.isSaved);
        EXPECT_NE(result.sentence.find(c.says), std::string::npos) << result.sentence;
        EXPECT_NE(result.sentence.find(userPath), std::string::npos);
        EXPECT_EQ(rig.user(), mine);
        EXPECT_EQ(document.text(FieldId::cycleTime), "2000") << "what was entered is not lost";

        rig.disk.outcome = Outcome::done;  // the user has helped
        EXPECT_TRUE(document.save().isWritten);
    }
}

TEST(Document, WithoutAFolderSaysSo) {
    Rig rig("");
    rig.disk.makesFolders = false;
    Document document = rig.open();
    document.setOn(FieldId::phase, true);
    const SaveResult result = document.save();
    EXPECT_FALSE(result.isSaved);
    EXPECT_NE(result.sentence.find("folder"), std::string::npos);
    EXPECT_TRUE(rig.disk.written.empty());
}

TEST(Document, ThatCannotBeReadIsNotWrittenOver) {
    Rig rig;
    rig.disk.unreadable = {userPath};
    Document document = rig.open();
    document.setOn(FieldId::phase, false);
    document.setText(FieldId::cycleTime, "2000");
    EXPECT_FALSE(document.save().isSaved);
    EXPECT_TRUE(rig.disk.written.empty());
    rig.disk.unreadable.clear();
    EXPECT_TRUE(document.save().isSaved);
    EXPECT_NE(rig.user().find("Strange=key\r\nCycleTime=2000\r\n"), std::string::npos);
}

// ---- on the disk ----

TEST(Document, OnRealFilesIsWholeAndLeavesNothingBeside) {
    const TempFolder root;
    const std::string driver = root.makeFolder(u8"driver");
    std::ofstream(root.native() / "driver" / "setting_org.inf", std::ios::binary) << factoryText;
    const std::string roaming = root.path() + "new\\roaming";
    Document document = Document::open({driver, roaming}, 4, Files::ofThisComputer());
    document.setOn(FieldId::phase, true);
    EXPECT_EQ(document.save().isWritten, true);
    std::string text;
    ASSERT_TRUE(Files::ofThisComputer().read(roaming + "\\KORVENTE Velmora\\setting.inf", text));
    EXPECT_EQ(text, factoryText + "Phase=Invert\r\n");
    int entries = 0;
    for (const auto& entry : std::filesystem::directory_iterator(root.native() / "new" / "roaming" /
                                                                 "KORVENTE Velmora")) {
        ++entries;
        EXPECT_EQ(entry.path().filename(), "setting.inf");
    }
    EXPECT_EQ(entries, 1);
}

}  // namespace
