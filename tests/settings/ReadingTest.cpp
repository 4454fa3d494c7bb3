#include "apps/velmora-settings/model/Reading.h"

#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <string>

#include "driver/Settings.h"
#include "tests/base/TempFolder.h"

using namespace velmora_settings;

namespace {

void expectSame(const DriverSettings& a, const DriverSettings& b) {
    EXPECT_EQ(a.dsdMsb, b.dsdMsb);
    EXPECT_EQ(a.pcmRequest, b.pcmRequest);
    EXPECT_EQ(a.pcmConvertS32, b.pcmConvertS32);
    EXPECT_EQ(a.startDelay, b.startDelay);
    EXPECT_EQ(a.targetAddress, b.targetAddress);
    EXPECT_EQ(a.targetPO, b.targetPO);
    EXPECT_EQ(a.findIPList, b.findIPList);
    EXPECT_EQ(a.asioBufferSize, b.asioBufferSize);
    EXPECT_EQ(a.asioBufferSizeMin, b.asioBufferSizeMin);
    EXPECT_EQ(a.asioBufferSizeMax, b.asioBufferSizeMax);
    EXPECT_EQ(a.asioBufferSizePre, b.asioBufferSizePre);
    EXPECT_EQ(a.syncBufferCount, b.syncBufferCount);
    EXPECT_EQ(a.cycleTime, b.cycleTime);
    EXPECT_EQ(a.cycleMinTime, b.cycleMinTime);
    EXPECT_EQ(a.targetProfileLimitTime, b.targetProfileLimitTime);
    EXPECT_EQ(a.fragment, b.fragment);
    EXPECT_EQ(a.fragmentOptimize, b.fragmentOptimize);
    EXPECT_EQ(a.threadMode, b.threadMode);
    EXPECT_EQ(a.infoCycle, b.infoCycle);
    EXPECT_EQ(a.flexCycle, b.flexCycle);
    EXPECT_EQ(a.fixAsio, b.fixAsio);
    EXPECT_EQ(a.randomCycle, b.randomCycle);
    EXPECT_EQ(a.bufferMulti, b.bufferMulti);
    EXPECT_EQ(a.interfaceIndex, b.interfaceIndex);
    EXPECT_EQ(a.latencyBuffer, b.latencyBuffer);
    EXPECT_EQ(a.phaseInvert, b.phaseInvert);
    EXPECT_EQ(a.nopBreak, b.nopBreak);
}

TEST(Reading, OfNothingIsTheDefaults) {
    const Reading reading = readSettings("", false);
    expectSame(reading.values, DriverSettings());
    EXPECT_EQ(reading.debug, "");
    EXPECT_TRUE(reading.ignored.empty());
}

// The driver's own reader says what is right, on files of every kind.
TEST(Reading, IsTheDriversOwn) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const velmora_test::TempFolder folder;
    const std::string values[] = {"",           "0",          "1",
                                  "2",          "100",        "101",
                                  "-1",         "65536",      "70000",
                                  "2147483648", "4294967297", "99999999999999999999",
                                  "12ms",       "x",          "enable",
                                  "Enable",     "debug",      "disable",
                                  "Optimize",   "fixAsio",    "random",
                                  "CovertS32",  "Invert",     "fe80::1,1",
                                  "fe80::1",    "::,0",       "fe80::1;x;::2",
                                  ";",          " 7 ",        "-5000000000"};
    const auto pick = [&](const auto& of) { return of[random() % std::size(of)]; };
    for (int round = 0; round < 300; ++round) {
        std::string text;
        for (const bool low : {false, true}) {
            if (low) text += "[LOW]\n";
            for (const SettingsKey& key : settingsKeys()) {
                // The log is switched for the whole process, so it is left out here.
                if (key.name == "Debug" || random() % 3 == 0) continue;
                text += std::string(key.name) + "=" + pick(values) + "\n";
            }
        }
        SCOPED_TRACE(text);
        std::ofstream(folder.native() / "s.inf", std::ios::binary) << text;
        const auto cores = static_cast<std::int32_t>(random() % 4);
        DriverSettings wanted;
        ASSERT_TRUE(loadSettings(folder.path() + "s.inf", wanted, [cores] { return cores; }));
        ZENNO::InfFile tree;
        tree.parseText(text);
        expectSame(readSettings(tree, cores).values, wanted);
        if (HasFailure()) return;
    }
}

TEST(Reading, TakesOptimizeBackWhereCyclesAreDrawnAtRandom) {
    const DriverSettings values =
        readSettings("Fragment=Optimize\nFlexCycle=random\n", false).values;
    EXPECT_FALSE(values.fragmentOptimize);
    EXPECT_TRUE(values.randomCycle && values.flexCycle);
    EXPECT_EQ(values.fragment, 1) << "as the driver has it without";
}

TEST(Reading, TellsWhatHoldsForNothing) {
    const Reading reading = readSettings(
        "SyncBufferCount=1\nDebug=on\nPhase=invert\nFragment=-1\nFindIP=x;;fe80::1%3\n"
        "CycleTime=500\nUnknown=1\n",
        false);
    const std::vector<std::string> wanted = {"Debug=on", "FindIP=x;;fe80::1%3", "SyncBufferCount=1",
                                             "Fragment=-1", "Phase=invert"};
    EXPECT_EQ(reading.ignored, wanted);
    EXPECT_TRUE(reading.partly.empty());
    EXPECT_EQ(reading.values.cycleTime, 500u);
}

TEST(Reading, TellsWhatHoldsInPart) {
    struct Case {
        const char* why;
        const char* addresses;
        std::size_t taken, ignored, partly;
    };
    const Case cases[] = {
        {"all of them", "fe80::1;fe80::2", 2, 0, 0},
        {"a separator at the end", "fe80::1;", 1, 0, 0},
        {"one that does not parse", "fe80::1;x", 1, 0, 1},
        {"an empty one", "fe80::1;;fe80::2", 2, 0, 1},
        {"the last alone is good", "x;y;fe80::2", 1, 0, 1},
        {"none is", "x", 0, 1, 0},
        {"nothing between", ";", 0, 1, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const std::string line = "FindIP=" + std::string(c.addresses);
        const Reading reading = readSettings(line, false);
        EXPECT_EQ(reading.values.findIPList.size(), c.taken);
        EXPECT_EQ(reading.ignored, std::vector<std::string>(c.ignored, line));
        EXPECT_EQ(reading.partly, std::vector<std::string>(c.partly, line));
    }
}

TEST(Reading, OfASmallMachineIsOfTheSectionLow) {
    ZENNO::InfFile tree;
    tree.parseText("CPULOW=2\nCycleTime=500\nStartDelay=7\n[LOW]\nCycleTime=2000\nStartDelay=9\n");
    EXPECT_FALSE(readSettings(tree, 3).isLow);
    EXPECT_EQ(readSettings(tree, 3).values.cycleTime, 500u);
    EXPECT_TRUE(readSettings(tree, 2).isLow);
    EXPECT_EQ(readSettings(tree, 2).values.cycleTime, 2000u);
    EXPECT_EQ(readSettings(tree, 0).values.startDelay, 7u) << "in front of CPULOW";
}

TEST(Reading, FindsWhatContradictsItself) {
    DriverSettings settings;
    EXPECT_TRUE(contradictions(settings).empty());
    settings.targetAddress.parseV6WithPort("fe80::1,19642");
    ASSERT_EQ(contradictions(settings).size(), 1u);
    settings.targetPO = 1;
    settings.asioBufferSizeMin = 1024;
    ASSERT_EQ(contradictions(settings).size(), 1u);
    settings.asioBufferSizeMin = 1;
    settings.asioBufferSizeMax = 511;
    ASSERT_EQ(contradictions(settings).size(), 1u);
    settings.asioBufferSize = 64;
    EXPECT_TRUE(contradictions(settings).empty()) << "a fixed size has no range";
    settings.flexCycle = settings.randomCycle = true;
    ASSERT_EQ(contradictions(settings).size(), 1u);
    settings.cycleMinTime = settings.cycleTime;
    ASSERT_EQ(contradictions(settings).size(), 1u);
    settings.cycleMinTime = settings.cycleTime - 1;
    EXPECT_TRUE(contradictions(settings).empty());
}

}  // namespace
