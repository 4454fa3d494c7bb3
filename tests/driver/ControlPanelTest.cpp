#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/driver/DriverRig.h"
#include "wire/DiscoveryMessage.h"

namespace {

using namespace velmora_test;
using testing::ElementsAre;

struct PanelRig : DriverRig {
    explicit PanelRig(const std::string& settings = "Version=1\nCycleTime=2000\n")
        : DriverRig(settings) {
        folders.write(folders.orgPath(), "Version=1\nASIOControlPanel=panel.exe\n");
    }
    std::string panel() const { return folders.driverFolder() + "panel.exe"; }
    int searches() const { return target.count(VELMORA::wire::FIND_REQ::id); }
};

TEST(ControlPanel, AProgramThatChangesNothingChangesNothing) {
    PanelRig rig;
    ASSERT_TRUE(rig.init());
    const int before = rig.searches();
    LogCapture log(6);
    rig.program = [&] {
        EXPECT_THAT(log.texts(6), ElementsAre(rig.panel()))
            << "told when it starts, not when it ends";
        return true;
    };
    EXPECT_EQ(rig.driver().controlPanel(), ASE_OK);
    EXPECT_THAT(rig.programsRun, ElementsAre(rig.panel()));
    EXPECT_THAT(log.texts(6), ElementsAre(rig.panel()));
    EXPECT_EQ(rig.searches(), before);
}

TEST(ControlPanel, TheSameKeysInAnotherOrderAreNoChange) {
    PanelRig rig;
    ASSERT_TRUE(rig.init());
    rig.program = [&] {
        rig.setSettings("; a comment\r\n[global]\r\nCycleTime = 2000\r\nVersion=1\r\n");
        return true;
    };
    const int before = rig.searches();
    EXPECT_EQ(rig.driver().controlPanel(), ASE_OK);
    EXPECT_EQ(rig.searches(), before);
}

TEST(ControlPanel, AProgramThatCannotStartIsTold) {
    PanelRig rig;
    rig.driver();
    rig.programStarts = false;
    LogCapture log(6);
    EXPECT_EQ(rig.driver().controlPanel(), ASE_NotPresent);
    EXPECT_THAT(log.texts(6), ElementsAre(rig.panel() + " ERROR"));
}

TEST(ControlPanel, AChangeIsAWholeNewInit) {
    PanelRig rig;
    ASSERT_TRUE(rig.init());
    rig.target.pcm |= VELMORA::SinkConfig::pcm24;
    rig.program = [&] {
        rig.setSettings("Version=1\nPCMRequest=24\n");
        return true;
    };
    const int before = rig.searches();
    EXPECT_EQ(rig.driver().controlPanel(), 1) << "what init answers";
    EXPECT_EQ(rig.searches(), before + 3);
    EXPECT_EQ(rig.driver().settings().pcmRequest, 24);
    EXPECT_EQ(rig.driver().settings().cycleTime, 1000u) << "taken out, so back to its default";
    EXPECT_EQ(rig.driver().pcmFormatBit(), VELMORA::SinkConfig::pcm24);
}

TEST(ControlPanel, AChangeInASectionOfItsOwnCounts) {
    PanelRig rig;
    ASSERT_TRUE(rig.init());
    rig.program = [&] {
        rig.setSettings("Version=1\nCycleTime=2000\n[LOW]\nCycleTime=1\n");
        return true;
    };
    EXPECT_EQ(rig.driver().controlPanel(), 1);
}

TEST(ControlPanel, ANewInitThatFailsAnswersSo) {
    PanelRig rig;
    ASSERT_TRUE(rig.init());
    rig.detachTarget();
    rig.program = [&] {
        rig.setSettings("Version=1\nCycleTime=3000\n");
        return true;
    };
    EXPECT_EQ(rig.driver().controlPanel(), 0);
    EXPECT_EQ(rig.errorMessage(), "Velmora can not Find");
    // and the host's next init tries again
    rig.attachTarget();
    EXPECT_TRUE(rig.init());
}

TEST(ControlPanel, AFileThatIsGoneIsNotPresent) {
    PanelRig rig;
    ASSERT_TRUE(rig.init());
    rig.program = [&] {
        rig.setSettings("\t");  // unreadable as a whole
        return true;
    };
    EXPECT_EQ(rig.driver().controlPanel(), ASE_NotPresent);
    EXPECT_EQ(rig.driver().settings().cycleTime, 1000u);
}

}  // namespace
