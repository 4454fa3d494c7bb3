// The guide and the factory's file say what the code does.
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "base/InfFile.h"
#include "driver/Product.h"
#include "driver/Settings.h"
#include "sync/ThreadMode.h"
#include "tests/driver/DriverRig.h"

namespace {

std::string readSource(const std::string& path) {
    std::ifstream file(VELMORA_SOURCE_DIR "/" + path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

TEST(SettingsGuide, HasARowForEveryKeyWithItsValuesAndDefault) {
    const std::string guide = readSource("docs/settings.md");
    for (const SettingsKey& key : settingsKeys()) {
        const std::string row = "\n| `" + std::string(key.name) + "` | " + std::string(key.values) +
                                " | " + std::string(key.initial) + " | ";
        EXPECT_NE(guide.find(row), std::string::npos) << row;
    }
}

TEST(SettingsGuide, HasNoRowForAKeyThatThereIsNot) {
    // Rows of the keys have four columns.
    std::istringstream guide(readSource("docs/settings.md"));
    std::set<std::string> known;
    for (const SettingsKey& key : settingsKeys()) known.insert(std::string(key.name));
    int rows = 0;
    for (std::string line; std::getline(guide, line);) {
        if (line.rfind("| `", 0) != 0 || std::count(line.begin(), line.end(), '|') != 5) continue;
        ++rows;
        EXPECT_EQ(known.count(line.substr(3, line.find('`', 3) - 3)), 1u) << line;
    }
    EXPECT_EQ(rows, static_cast<int>(known.size()));
}

TEST(SettingsGuide, NamesEveryBitOfThredMode) {
    struct Bit {
        const char* numbers;
        const char* name;
        std::uint32_t flag;
    };
    const Bit bits[] = {
        {"1", "CRITICAL", VELMORA::CRITICAL},
        {"2", "NOSHORTSLEEP", VELMORA::NOSHORTSLEEP},
        {"4", "NOSLEEP4CORE", VELMORA::NOSLEEP4CORE},
        {"8", "SOCKETNOBLOCK", VELMORA::SOCKETNOBLOCK},
        {"16", "OCCUPIED", VELMORA::OCCUPIED},
        {"32, 64, 128", "FEEDBACK", VELMORA::FEEDBACK},
        {"256", "NOFASTFEEDBACK", VELMORA::NOFASTFEEDBACK},
        {"512", "SLEEP0ONCE", VELMORA::SLEEP0ONCE},
        {"1024", "SLEEP0ALWAYS", VELMORA::SLEEP0ALWAYS},
        {"2048", "NOSLEEPFORCE", VELMORA::NOSLEEPFORCE},
    };
    const std::string guide = readSource("docs/settings.md");
    for (const Bit& bit : bits) {
        SCOPED_TRACE(bit.name);
        std::uint32_t sum = 0;
        std::istringstream numbers(bit.numbers);
        for (std::string number; std::getline(numbers, number, ',');) {
            sum += static_cast<std::uint32_t>(std::stoul(number));
        }
        EXPECT_EQ(sum, bit.flag);
        const std::string row = std::string("\n| ") + bit.numbers + " | `" + bit.name + "` | ";
        EXPECT_NE(guide.find(row), std::string::npos) << row;
    }
}

TEST(SettingsGuide, NamesTheKeysAndFilesBesideTheTable) {
    const std::string guide = readSource("docs/settings.md");
    for (const char* name : {"`Version`", "`SettingPath`", "`ASIOControlPanel`",
                             "`setting_org.inf`", "`setting_path.inf`", "`debug.inf`", "`[LOW]`"}) {
        EXPECT_NE(guide.find(name), std::string::npos) << name;
    }
}

// ---- the factory's file ----

TEST(FactorySettings, CarryTheVersionAndTheProgram) {
    ZENNO::InfFile factory;
    const std::string text = readSource("packaging/setting_org.inf");
    factory.parseText(text);
    EXPECT_EQ(factory.get("Version"), driverReleaseText);
    EXPECT_FALSE(factory.get("ASIOControlPanel").empty());
    EXPECT_EQ(text.find('\t'), std::string::npos);
}

TEST(FactorySettings, HaveKnownKeysOnlyAndAreTheDefaultsButForDsd) {
    const std::string text = readSource("packaging/setting_org.inf");
    ZENNO::InfFile factory;
    factory.parseText(text);
    std::set<std::string> known = {"Version", "ASIOControlPanel"};
    for (const SettingsKey& key : settingsKeys()) known.insert(std::string(key.name));
    for (const auto& [section, entries] : factory.sections()) {
        for (const auto& [key, entry] : entries) EXPECT_EQ(known.count(key), 1u) << key;
    }

    velmora_test::SettingsFolders folders;
    folders.write(folders.settingPath(), text);
    DriverSettings settings;
    ASSERT_TRUE(loadSettings(folders.settingPath(), settings, [] { return 4; }));
    const DriverSettings defaults;
    EXPECT_TRUE(settings.dsdMsb);
    EXPECT_EQ(settings.pcmRequest, defaults.pcmRequest);
    EXPECT_EQ(settings.asioBufferSizeMin, defaults.asioBufferSizeMin);
    EXPECT_EQ(settings.asioBufferSizeMax, defaults.asioBufferSizeMax);
    EXPECT_EQ(settings.asioBufferSizePre, defaults.asioBufferSizePre);
    EXPECT_EQ(settings.syncBufferCount, defaults.syncBufferCount);
    EXPECT_EQ(settings.cycleTime, defaults.cycleTime);
    EXPECT_EQ(settings.fragment, defaults.fragment);
    EXPECT_EQ(settings.threadMode, defaults.threadMode);
    EXPECT_EQ(settings.infoCycle, defaults.infoCycle);

    ASSERT_TRUE(loadSettings(folders.settingPath(), settings, [] { return 2; }));
    EXPECT_EQ(settings.cycleTime, 2000u);
    EXPECT_EQ(settings.fragment, 0);
}

}  // namespace
