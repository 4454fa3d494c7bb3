#include "apps/velmora-settings/model/Location.h"

#include <gtest/gtest.h>

#include <fstream>

#include "driver/Settings.h"
#include "tests/base/TempFolder.h"
#include "tests/settings/FilesInMemory.h"

using namespace velmora_settings;
using namespace velmora_test;
using Source = Location::Source;

namespace {

const Places places{"D\\", "R"};

TEST(Location, IsTheUsersOwnFileWhereItCanBeRead) {
    FilesInMemory disk;
    disk.content = {{userPath, "Version=1_112_1\nCycleTime=5\n"},
                    {factoryPath, factoryText},
                    {pointerPath, "SettingPath=X\\other.inf\n"},
                    {"X\\other.inf", "Version=1_112_1\n"}};
    const Location found = locate(places, disk.files());
    EXPECT_EQ(found.source, Source::user);
    EXPECT_EQ(found.path, userPath);
    EXPECT_EQ(found.baseText, disk.content[userPath]);
    EXPECT_TRUE(found.notes.empty());
}

TEST(Location, IsTheFileThatThePointerNamesWhereTheUserHasNone) {
    FilesInMemory disk;
    disk.content = {{factoryPath, factoryText},
                    {pointerPath, "SettingPath=X\\other.inf\n"},
                    {"X\\other.inf", "Version=1_112_1\nA=1\n"}};
    const Location found = locate(places, disk.files());
    EXPECT_EQ(found.source, Source::redirected);
    EXPECT_EQ(found.path, "X\\other.inf");
    EXPECT_EQ(found.baseText, disk.content["X\\other.inf"]);
}

TEST(Location, IsTheUsersOwnToBeMadeFromTheFactorysWhereNothingElseIsThere) {
    struct Case {
        const char* why;
        std::map<std::string, std::string> more;
        std::size_t notes;
    };
    const Case cases[] = {
        {"no pointer", {}, 0},
        {"a pointer that says nothing", {{pointerPath, "; nothing\n"}}, 0},
        {"a pointer that cannot be read", {{pointerPath, "SettingPath=X\\other.inf\t\n"}}, 0},
        {"a pointer to nothing", {{pointerPath, "SettingPath=X\\other.inf\n"}}, 1},
        {"a pointer to what the driver refuses",
         {{pointerPath, "SettingPath=X\\other.inf\n"}, {"X\\other.inf", "A=\t1\n"}},
         1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        FilesInMemory disk;
        disk.content = c.more;
        disk.content[factoryPath] = factoryText;
        const Location found = locate(places, disk.files());
        EXPECT_EQ(found.source, Source::factory);
        EXPECT_EQ(found.path, userPath);
        EXPECT_EQ(found.baseText, factoryText);
        EXPECT_FALSE(found.isThere);
        EXPECT_EQ(found.notes.size(), c.notes);
    }
}

TEST(Location, WithoutTheFactorysFileBeginsWithThisRelease) {
    FilesInMemory disk;
    const Location found = locate(places, disk.files());
    EXPECT_EQ(found.source, Source::nothing);
    EXPECT_EQ(found.baseText, "Version=1_112_1\r\n");
    ASSERT_EQ(found.notes.size(), 1u);
    EXPECT_NE(found.notes[0].find("install KORVENTE Velmora again"), std::string::npos);
}

TEST(Location, OfAnotherReleaseShowsTheFactorysAsTheDriverDoes) {
    FilesInMemory disk;
    disk.content = {{userPath, "Version=1_100_0\nCycleTime=5\n"}, {factoryPath, factoryText}};
    const Location found = locate(places, disk.files());
    EXPECT_EQ(found.source, Source::user);
    EXPECT_EQ(found.baseText, factoryText);
    EXPECT_EQ(found.foundText, disk.content[userPath]);
    EXPECT_EQ(found.notes.size(), 1u);
}

TEST(Location, WithControlCharactersShowsWhatAWrittenFileWouldSay) {
    FilesInMemory disk;
    disk.content = {{userPath, "Version=1_112_1\n;\tmine\nCycleTime=5\n"},
                    {factoryPath, factoryText}};
    const Location found = locate(places, disk.files());
    EXPECT_EQ(found.source, Source::user);
    EXPECT_EQ(found.baseText, "Version=1_112_1\n; mine\nCycleTime=5\n");
    ASSERT_EQ(found.notes.size(), 1u);
    EXPECT_NE(found.notes[0].find("tab"), std::string::npos);
}

TEST(Location, OfAnotherReleaseThatTheDriverCannotReadStaysUntilItIsWritten) {
    struct Case {
        const char* why;
        std::string text;
    };
    std::string utf16 = "\xff\xfe";
    for (const char c : std::string("Version=1_112_1\r\n")) utf16 += {c, '\0'};
    const Case cases[] = {
        {"a tab", "Version=1_100_0\n;\tmine\nCycleTime=5\n"},
        {"a tab and no Version", ";\tmine\nCycleTime=5\n"},
        {"two bytes a character", utf16},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const TempFolder root;
        const std::string driver = root.makeFolder(u8"driver");
        const std::string roaming = root.makeFolder(u8"roaming");
        root.makeFolder(u8"roaming/KORVENTE Velmora");
        const auto user = root.native() / "roaming" / "KORVENTE Velmora" / "setting.inf";
        std::ofstream(user, std::ios::binary) << c.text;
        std::ofstream(root.native() / "driver" / "setting_org.inf", std::ios::binary)
            << factoryText;
        const std::string roamingFolder = roaming.substr(0, roaming.size() - 1);
        const Location found = locate({driver, roamingFolder}, Files::ofThisComputer());
        EXPECT_EQ(found.source, Source::user);
        EXPECT_EQ(found.baseText, factoryText);
        ASSERT_EQ(found.notes.size(), 1u);
        EXPECT_NE(found.notes[0].find("leaves it alone"), std::string::npos) << found.notes[0];
        EXPECT_EQ(found.notes[0].find("in its place: what"), std::string::npos);

        // So does the driver.
        EXPECT_EQ(locateSettings(driver, roamingFolder).settingPath, driver + "setting_org.inf");
        std::string after;
        ASSERT_TRUE(Files::ofThisComputer().read(found.path, after));
        EXPECT_EQ(after, c.text);
    }
}

TEST(Location, ThatIsHeldByAnotherProgramIsStillTheUsersOwn) {
    FilesInMemory disk;
    disk.content = {{userPath, "x"}, {factoryPath, factoryText}};
    disk.unreadable = {userPath};
    const Location found = locate(places, disk.files());
    EXPECT_EQ(found.source, Source::user);
    EXPECT_EQ(found.path, userPath);
    EXPECT_TRUE(found.isUnread);
    EXPECT_EQ(found.notes.size(), 1u);
}

// On real folders, beside the driver's own search.
TEST(Location, IsWhereTheDriverLooks) {
    for (int bits = 0; bits < 16; ++bits) {
        SCOPED_TRACE(bits);
        const TempFolder root;
        const std::string driver = root.makeFolder(u8"driver");
        const std::string roaming = root.makeFolder(u8"roaming");
        root.makeFolder(u8"roaming/KORVENTE Velmora");
        const auto write = [&](const char* name, const std::string& text) {
            std::ofstream(root.native() / name, std::ios::binary) << text;
        };
        if (bits & 1) write("roaming/KORVENTE Velmora/setting.inf", "Version=1_112_1\n");
        if (bits & 2) write("driver/setting_path.inf", "SettingPath=" + root.path() + "o.inf\n");
        if (bits & 4) write("o.inf", "Version=1_112_1\n");
        if (bits & 8) write("driver/setting_org.inf", factoryText);

        const std::string roamingFolder = roaming.substr(0, roaming.size() - 1);
        const Location found = locate({driver, roamingFolder}, Files::ofThisComputer());
        const SettingsFiles drivers = locateSettings(driver, roamingFolder);
        const bool driverHasNone = drivers.settingPath == driver + "setting_org.inf";
        EXPECT_EQ(found.isToBeMade(), driverHasNone);
        EXPECT_EQ(found.path,
                  driverHasNone ? roaming + "KORVENTE Velmora\\setting.inf" : drivers.settingPath);
    }
}

}  // namespace
