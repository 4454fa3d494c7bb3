#include "driver/Settings.h"

#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <optional>

#include "tests/driver/DriverRig.h"

namespace {

using velmora_test::LogCapture;
using velmora_test::SettingsFolders;
using ZENNO::IPAddress;

class Settings : public testing::Test {
protected:
    // What a settings file of this text gives.
    DriverSettings load(const std::string& text) {
        folders.write(folders.settingPath(), text);
        DriverSettings settings;
        EXPECT_TRUE(loadSettings(folders.settingPath(), settings, countCores));
        return settings;
    }
    SettingsFiles locate() {
        return locateSettings(folders.driverFolder(), folders.roamingFolder());
    }

    SettingsFolders folders;
    std::int32_t cores = 4;
    int coreCounts = 0;
    std::function<std::int32_t()> countCores = [this] {
        ++coreCounts;
        return cores;
    };
};

// Every number of a DriverSettings under its key, to compare with.
std::optional<std::int64_t> stored(const DriverSettings& settings, const SettingsKey& key) {
    return std::visit(
        [&](auto place) -> std::optional<std::int64_t> {
            if constexpr (std::is_same_v<decltype(place), std::monostate>) {
                return std::nullopt;
            } else {
                return static_cast<std::int64_t>(settings.*place);
            }
        },
        key.place);
}

const SettingsKey& keyNamed(std::string_view name) {
    for (const SettingsKey& key : settingsKeys()) {
        if (key.name == name) return key;
    }
    throw std::runtime_error("no key " + std::string(name));
}

TEST_F(Settings, KeysAreReadInTheirOrder) {
    const char* const order[] = {"Debug",
                                 "DSDMSB",
                                 "PCMRequest",
                                 "StartDelay",
                                 "TargetAddress",
                                 "TargetPO",
                                 "FindIP",
                                 "ASIOBufferSize",
                                 "ASIOBufferSizeMin",
                                 "ASIOBufferSizeMax",
                                 "ASIOBufferSizePre",
                                 "SyncBufferCount",
                                 "CPULOW",
                                 "CycleTime",
                                 "CycleMinTime",
                                 "TargetProfileLimitTime",
                                 "Fragment",
                                 "ThredMode",
                                 "InfoCycle",
                                 "FlexCycle",
                                 "ASIOBufferMulti",
                                 "Interface",
                                 "LatencyBuffer",
                                 "Phase",
                                 "NopBreak"};
    ASSERT_EQ(settingsKeys().size(), std::size(order));
    for (std::size_t i = 0; i < std::size(order); ++i) EXPECT_EQ(settingsKeys()[i].name, order[i]);
}

TEST_F(Settings, TheTablesDefaultsAreThoseInForce) {
    const DriverSettings defaults;
    for (const SettingsKey& key : settingsKeys()) {
        SCOPED_TRACE(key.name);
        const auto value = stored(defaults, key);
        if (!value) continue;
        if (key.kind == SettingsKey::Kind::word) {
            EXPECT_EQ(*value, 0);
        } else {
            EXPECT_EQ(key.initial, std::to_string(*value));
        }
    }
    EXPECT_EQ(defaults.pcmRequest, 32);
    EXPECT_EQ(defaults.fragment, 1);
}

TEST_F(Settings, NumbersAreStoredWhenTheirConditionHolds) {
    struct Case {
        const char* key;
        const char* text;
        std::int64_t value;
        const char* why;
    };
    const Case cases[] = {
        {"StartDelay", "50000", 50000, "a number"},
        {"StartDelay", "0", 0, "the least"},
        {"StartDelay", "-1", 0, "below the least"},
        {"TargetPO", "2", 2, "a number"},
        {"TargetPO", "65537", 1, "cut to 16 bits"},
        {"TargetPO", "-2", 0, "below the least"},
        {"ASIOBufferSize", "512", 512, "a number"},
        {"ASIOBufferSize", "1", 1, "the least"},
        {"ASIOBufferSize", "0", 0, "no size"},
        {"ASIOBufferSize", "-5", 0, "below the least"},
        {"ASIOBufferSize", "2147483648", 0, "no 32-bit size"},
        {"ASIOBufferSizeMin", "64", 64, "a number"},
        {"ASIOBufferSizeMin", "0", 1, "ignored"},
        {"ASIOBufferSizeMax", "4096", 4096, "a number"},
        {"ASIOBufferSizeMax", "0", 16384, "ignored"},
        {"ASIOBufferSizePre", "256", 256, "a number"},
        {"ASIOBufferSizePre", "-256", 512, "ignored"},
        {"SyncBufferCount", "2", 2, "the least"},
        {"SyncBufferCount", "1", 6, "one is ignored"},
        {"SyncBufferCount", "0", 6, "ignored"},
        {"CycleTime", "2000", 2000, "a number"},
        {"CycleTime", "0", 1000, "zero is ignored"},
        {"CycleTime", "-1", 0xffffffff, "not zero, so taken, as 32 bits"},
        {"CycleMinTime", "300", 300, "a number"},
        {"CycleMinTime", "0", 0, "zero is stored"},
        {"CycleMinTime", "x", 0, "a text counts as zero"},
        {"TargetProfileLimitTime", "100", 0, "100 is ignored"},
        {"TargetProfileLimitTime", "101", 101, "101 is stored"},
        {"ThredMode", "0", 0, "the least"},
        {"ThredMode", "515", 515, "a sum of bits"},
        {"ThredMode", "-1", 1, "below the least"},
        {"InfoCycle", "20000", 20000, "a number"},
        {"InfoCycle", "0", 0, "present is enough"},
        {"InfoCycle", "100ms", 100, "digits up to the first other character"},
        {"InfoCycle", "ms", 0, "no digits count as zero"},
        {"Interface", "5", 5, "a number"},
        {"Interface", "-5", 0, "below the least"},
        {"LatencyBuffer", "3000", 3000, "a number"},
        {"LatencyBuffer", "-1", 0, "below the least"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.key) + "=" + c.text + ": " + c.why);
        const SettingsKey& key = keyNamed(c.key);
        EXPECT_EQ(stored(load(std::string(c.key) + "=" + c.text + "\r\n"), key), c.value);
    }
}

TEST_F(Settings, EveryNumberHasACaseOfItsOwn) {
    int numbers = 0;
    for (const SettingsKey& key : settingsKeys()) {
        numbers += key.kind == SettingsKey::Kind::number ? 1 : 0;
    }
    EXPECT_EQ(numbers, 14);  // as many keys as the table above names
}

TEST_F(Settings, SwitchesTakeTheirWordAndNoOther) {
    struct Case {
        const char* key;
        const char* word;
        bool DriverSettings::*place;
    };
    const Case cases[] = {
        {"DSDMSB", "enable", &DriverSettings::dsdMsb},
        {"ASIOBufferMulti", "enable", &DriverSettings::bufferMulti},
        {"Phase", "Invert", &DriverSettings::phaseInvert},
        {"NopBreak", "Enable", &DriverSettings::nopBreak},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.key);
        const std::string key = c.key;
        EXPECT_TRUE(load(key + "=" + c.word).*c.place);
        EXPECT_FALSE(load(key + "=" + c.word + "d").*c.place);
        std::string other = c.word;
        other[0] = static_cast<char>(other[0] ^ 0x20);  // the other case
        EXPECT_FALSE(load(key + "=" + other).*c.place);
        EXPECT_FALSE(load(key + "=1").*c.place);
        EXPECT_FALSE(load(key + "=").*c.place);
    }
}

TEST_F(Settings, PcmRequestIsANumberOrTheWordForIntegers) {
    struct Case {
        const char* text;
        std::int32_t request;
        bool convert;
    };
    const Case cases[] = {
        {"CovertS32", 32, true},  {"24", 24, false},       {"0", 0, false}, {"-1", 32, false},
        {"ConvertS32", 0, false}, {"coverts32", 0, false}, {"", 32, false}, {"64 bit", 64, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const DriverSettings settings = load(std::string("PCMRequest=") + c.text);
        EXPECT_EQ(settings.pcmRequest, c.request);
        EXPECT_EQ(settings.pcmConvertS32, c.convert);
    }
}

TEST_F(Settings, ATargetAddressThatDoesNotParseIsNone) {
    IPAddress expected = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 1}, 19640);
    EXPECT_EQ(load("TargetAddress=fe80::1,19640").targetAddress, expected);
    for (const char* text : {"fe80::1", "fe80::1,19x", "x,1", ",", "fe80::1 ,5"}) {
        SCOPED_TRACE(text);
        EXPECT_TRUE(load(std::string("TargetAddress=") + text).targetAddress.isNone());
        EXPECT_TRUE(load(std::string("TargetAddress=") + text).targetAddress.isZeroAddress());
    }
}

TEST_F(Settings, FindIpTakesTheAddressesThatParse) {
    const IPAddress one = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 1});
    const IPAddress two = IPAddress::of({0x2001, 0xdb8, 0, 0, 0, 0, 0, 2});
    using List = std::list<IPAddress>;
    EXPECT_EQ(load("FindIP=fe80::1;;nothing;2001:db8::2").findIPList, (List{one, two}));
    EXPECT_EQ(load("FindIP=fe80::1").findIPList, List{one});
    EXPECT_EQ(load("FindIP=;;").findIPList, List{});
    EXPECT_EQ(load("FindIP=fe80::1;").findIPList, List{one});
    EXPECT_EQ(load("FindIP=fe80::1,5;fe80::1").findIPList, List{one});  // no ports here
}

TEST_F(Settings, FragmentIsAWordOrANumber) {
    struct Case {
        const char* text;
        std::uint16_t fragment;
        bool optimize;
    };
    const Case cases[] = {
        {"disable", 1, false}, {"enable", 0, false}, {"Optimize", 1, true}, {"optimize", 0, false},
        {"3", 3, false},       {"0", 0, false},      {"-3", 1, false},      {"65538", 2, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const DriverSettings settings = load(std::string("Fragment=") + c.text);
        EXPECT_EQ(settings.fragment, c.fragment);
        EXPECT_EQ(settings.fragmentOptimize, c.optimize);
    }
}

TEST_F(Settings, FlexCycleIsOneOfThreeWords) {
    struct Case {
        const char* text;
        bool flex, fixAsio, random;
    };
    const Case cases[] = {
        {"enable", true, false, false},   {"fixAsio", false, true, false},
        {"random", true, false, true},    {"Enable", false, false, false},
        {"disable", false, false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const DriverSettings settings = load(std::string("FlexCycle=") + c.text);
        EXPECT_EQ(settings.flexCycle, c.flex);
        EXPECT_EQ(settings.fixAsio, c.fixAsio);
        EXPECT_EQ(settings.randomCycle, c.random);
    }
}

TEST_F(Settings, ARandomCycleClearsOptimize) {
    const DriverSettings settings = load("FlexCycle=random\nFragment=Optimize\n");
    EXPECT_FALSE(settings.fragmentOptimize);
    EXPECT_TRUE(settings.randomCycle);
}

TEST_F(Settings, ThreadModeIsNoKey) {
    EXPECT_EQ(load("ThreadMode=4\n").threadMode, 1u);
    EXPECT_EQ(load("ThredMode=4\n").threadMode, 4u);
}

TEST_F(Settings, ASmallMachineReadsTheSectionLow) {
    const std::string text =
        "CPULOW=4\nSyncBufferCount=3\nCycleTime=2000\nASIOBufferMulti=enable\n"
        "[LOW]\nCycleTime=5000\nSyncBufferCount=9\n";
    LogCapture log(6);
    const DriverSettings low = load(text);
    EXPECT_EQ(low.syncBufferCount, 3) << "read before CPULOW";
    EXPECT_EQ(low.cycleTime, 5000u);
    EXPECT_FALSE(low.bufferMulti) << "global is not asked again";
    EXPECT_TRUE(log.has(6, "Change Low Profile : 4"));

    log.clear();
    cores = 5;
    EXPECT_EQ(load(text).cycleTime, 2000u);
    EXPECT_FALSE(log.has("Change Low Profile : 5"));

    cores = 0;  // it could not be told: a small machine
    EXPECT_EQ(load(text).cycleTime, 5000u);
    EXPECT_TRUE(log.has(6, "Change Low Profile : 0"));
}

TEST_F(Settings, ASmallMachineWithoutASectionLowKeepsTheDefaults) {
    const DriverSettings settings = load(
        "CPULOW=4\nCycleTime=2000\nCycleMinTime=1\nTargetProfileLimitTime=500\nFragment=enable\n"
        "ThredMode=4\nInfoCycle=1\nFlexCycle=enable\nASIOBufferMulti=enable\nInterface=2\n"
        "LatencyBuffer=3000\nPhase=Invert\nNopBreak=Enable\n");
    const DriverSettings defaults;
    EXPECT_EQ(settings.cycleTime, defaults.cycleTime);
    EXPECT_EQ(settings.cycleMinTime, defaults.cycleMinTime);
    EXPECT_EQ(settings.targetProfileLimitTime, defaults.targetProfileLimitTime);
    EXPECT_EQ(settings.fragment, defaults.fragment);
    EXPECT_EQ(settings.threadMode, defaults.threadMode);
    EXPECT_EQ(settings.infoCycle, defaults.infoCycle);
    EXPECT_FALSE(settings.flexCycle || settings.bufferMulti || settings.phaseInvert ||
                 settings.nopBreak);
    EXPECT_EQ(settings.interfaceIndex, 0u);
    EXPECT_EQ(settings.latencyBuffer, 0u);
}

TEST_F(Settings, CoresAreCountedOnlyWhereTheyMatter) {
    load("CPULOW=0\nCycleTime=2000\n");
    load("CycleTime=2000\n");
    EXPECT_EQ(coreCounts, 0);
    EXPECT_EQ(load("CPULOW=-1\nCycleTime=2000\n").cycleTime, 2000u);
    EXPECT_EQ(coreCounts, 1);
}

TEST_F(Settings, DebugSetsTheLogLevelAndLeavesItOtherwise) {
    LogCapture log(3);  // puts the level back when it goes
    load("Debug=no\n");
    EXPECT_EQ(ZENNO::logLevel, 3);
    load("\n");
    EXPECT_EQ(ZENNO::logLevel, 3);
    load("Debug=debug\n");
    EXPECT_EQ(ZENNO::logLevel, 7);
    load("Debug=enable\n");
    EXPECT_EQ(ZENNO::logLevel, 6);
    load("\n");
    EXPECT_EQ(ZENNO::logLevel, 6) << "nothing takes it back";
}

TEST_F(Settings, SaysWhichFilesItRead) {
    LogCapture log(7);
    load("CycleTime=2000\n");
    EXPECT_EQ(log.texts(7), std::vector<std::string>{"load : " + folders.settingPath()});
    EXPECT_EQ(log.texts(6), std::vector<std::string>{"LoadInf : " + folders.settingPath()});
    log.clear();
    const std::string debugPath = folders.userFolder() + "debug.inf";
    folders.write(debugPath, "CycleTime=3000\n");
    load("CycleTime=2000\n");
    EXPECT_EQ(log.texts(6), (std::vector<std::string>{"LoadInf : " + folders.settingPath(),
                                                      "load debug: " + debugPath}));
}

TEST_F(Settings, ADebugFileTurnsTheLogOnWithoutTouchingTheUsersFile) {
    const std::string text = "Debug=off\nCycleTime=2000\nInfoCycle=7\n";
    folders.write(folders.userFolder() + "debug.inf", "Debug=enable\nCycleTime=3000\n");
    LogCapture log(-1);
    const DriverSettings settings = load(text);
    EXPECT_EQ(ZENNO::logLevel, 6);
    EXPECT_TRUE(log.has(6, "LoadInf : " + folders.settingPath())) << "the first line of all";
    EXPECT_EQ(settings.cycleTime, 3000u) << "its keys win";
    EXPECT_EQ(settings.infoCycle, 7u) << "the others stay";
    EXPECT_EQ(folders.read(folders.settingPath()), text);
}

TEST_F(Settings, AMissingFileLeavesTheDefaults) {
    DriverSettings settings;
    settings.cycleTime = 5;
    settings.findIPList.push_back({});
    LogCapture log(7);
    EXPECT_FALSE(loadSettings(folders.settingPath(), settings, countCores));
    EXPECT_EQ(settings.cycleTime, 1000u);
    EXPECT_TRUE(settings.findIPList.empty());
    EXPECT_TRUE(log.lines().empty());
    folders.write(folders.settingPath(), "CycleTime=2000\n\tno tabs here\n");
    EXPECT_FALSE(loadSettings(folders.settingPath(), settings, countCores));
    EXPECT_EQ(settings.cycleTime, 1000u);
}

TEST_F(Settings, AKeyTakenOutGoesBackToItsDefault) {
    DriverSettings settings = load("CycleTime=2000\nPhase=Invert\nFindIP=fe80::1\n");
    folders.write(folders.settingPath(), "\n");
    EXPECT_TRUE(loadSettings(folders.settingPath(), settings, countCores));
    EXPECT_EQ(settings.cycleTime, 1000u);
    EXPECT_FALSE(settings.phaseInvert);
    EXPECT_TRUE(settings.findIPList.empty());
}

// ---- where the files lie ----

TEST_F(Settings, TheUsersFileComesFirst) {
    folders.write(folders.settingPath(), "Version=1\n");
    folders.write(folders.driverFolder() + "setting_path.inf",
                  "SettingPath=" + folders.orgPath() + "\n");
    folders.write(folders.orgPath(), "Version=1\nASIOControlPanel=panel.exe\n");
    const SettingsFiles files = locate();
    EXPECT_EQ(files.settingPath, folders.settingPath());
    EXPECT_EQ(files.controlPanelPath, folders.driverFolder() + "panel.exe");
}

TEST_F(Settings, WithoutOneTheRedirectionNamesAFile) {
    const std::string elsewhere = folders.driverFolder() + "elsewhere.inf";
    folders.write(elsewhere, "Version=1\n");
    folders.write(folders.driverFolder() + "setting_path.inf", "SettingPath=" + elsewhere + "\n");
    folders.write(folders.orgPath(), "Version=1\n");
    EXPECT_EQ(locate().settingPath, elsewhere);
    EXPECT_EQ(folders.read(elsewhere), "Version=1\n") << "of the same version: untouched";
}

TEST_F(Settings, ARedirectedFileOfAnotherVersionIsReplacedToo) {
    const std::string elsewhere = folders.driverFolder() + "elsewhere.inf";
    folders.write(elsewhere, "Version=1\nCycleTime=5\n");
    folders.write(folders.driverFolder() + "setting_path.inf", "SettingPath=" + elsewhere + "\n");
    folders.write(folders.orgPath(), "Version=2\n");
    locate();
    EXPECT_EQ(folders.read(elsewhere), "[global]\r\nVersion=2\r\n\r\n");
}

TEST_F(Settings, WithoutEitherTheFactoryFileIsInUseAndStays) {
    const std::string factory = "; the factory's\nVersion=2\nASIOControlPanel=panel.exe\n";
    folders.write(folders.orgPath(), factory);
    SettingsFiles files = locate();
    EXPECT_EQ(files.settingPath, folders.orgPath());
    EXPECT_EQ(files.controlPanelPath, folders.driverFolder() + "panel.exe");
    EXPECT_EQ(folders.read(folders.orgPath()), factory) << "no version is compared";
    // a redirection to nowhere is none
    folders.write(folders.driverFolder() + "setting_path.inf", "SettingPath=nowhere.inf\n");
    EXPECT_EQ(locate().settingPath, folders.orgPath());
}

TEST_F(Settings, AFileOfAnotherVersionIsReplacedByTheFactorys) {
    folders.write(folders.settingPath(), "Version=1\nCycleTime=5\n[MINE]\na=b\n");
    folders.write(folders.orgPath(), "Version=2\nCycleTime=1000\n[LOW]\nCycleTime=2000\n");
    locate();
    EXPECT_EQ(folders.read(folders.settingPath()),
              "[LOW]\r\nCycleTime=2000\r\n\r\n[global]\r\nCycleTime=1000\r\nVersion=2\r\n\r\n");
    DriverSettings settings;
    EXPECT_TRUE(loadSettings(folders.settingPath(), settings, countCores));
    EXPECT_EQ(settings.cycleTime, 1000u);
}

TEST_F(Settings, VersionsAreComparedAsTexts) {
    folders.write(folders.settingPath(), "Version=01\nCycleTime=5\n");
    folders.write(folders.orgPath(), "Version=1\n");
    locate();
    EXPECT_EQ(folders.read(folders.settingPath()), "[global]\r\nVersion=1\r\n\r\n");
    // none on either side is the same version
    folders.write(folders.settingPath(), "CycleTime=5\n");
    folders.write(folders.orgPath(), "CycleTime=7\n");
    locate();
    EXPECT_EQ(folders.read(folders.settingPath()), "CycleTime=5\n");
}

TEST_F(Settings, WithoutAFactoryFileTheControlPanelIsTheBareFolder) {
    folders.write(folders.settingPath(), "Version=1\n");
    const SettingsFiles files = locate();
    EXPECT_EQ(files.settingPath, folders.settingPath());
    EXPECT_EQ(files.controlPanelPath, folders.driverFolder());
    EXPECT_EQ(folders.read(folders.settingPath()), "Version=1\n");
}

TEST_F(Settings, WithNoFileAtAllTheFactorysPathStands) {
    const SettingsFiles files = locate();
    EXPECT_EQ(files.settingPath, folders.orgPath());
    EXPECT_EQ(files.controlPanelPath, folders.driverFolder());
}

TEST_F(Settings, AValueOfTheControlPanelIsTakenAsItStands) {
    folders.write(folders.orgPath(), "ASIOControlPanel=tools\\panel.exe\n");
    EXPECT_EQ(locate().controlPanelPath, folders.driverFolder() + "tools\\panel.exe");
}

}  // namespace
