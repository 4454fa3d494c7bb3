// controlPanel with real programs, for systems whose programs can be scripts. What it makes of
// their work is ControlPanelTest's; here they fail in every way that a program can.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#if __has_include(<sys/wait.h>)

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "platform/System.h"
#include "tests/driver/DriverRig.h"
#include "wire/DiscoveryMessage.h"

namespace {

using namespace velmora_test;
using testing::ElementsAre;

std::string nativePath(std::string path) {
    for (char& c : path) {
        if (c == '\\') c = '/';
    }
    return path;
}

// A driver whose settings program is a script of the test's.
struct ProgramRig : DriverRig {
    explicit ProgramRig(const char* name = "panel") : DriverRig("Version=1\nCycleTime=2000\n") {
        folders.write(folders.orgPath(), std::string("Version=1\nASIOControlPanel=") + name + "\n");
        Surroundings around = surroundings();
        around.runProgramAndWait = [](const std::string& path,
                                      const std::function<void()>& onStarted) {
            return ZENNO::platform::runProgramAndWait(path, onStarted);
        };
        real = std::make_unique<AsioVelmora>(nullptr, around);
        EXPECT_EQ(real->init(nullptr), 1);
    }
    void writeProgram(const std::string& body, bool isExecutable = true) {
        const std::string path = folders.driverFolder() + "panel";
        folders.write(path, "#!/bin/sh\n" + body);
        if (!isExecutable) return;
        std::filesystem::permissions(nativePath(path), std::filesystem::perms::owner_all);
    }
    int searches() const { return target.count(VELMORA::wire::FIND_REQ::id); }

    std::unique_ptr<AsioVelmora> real;
};

TEST(ControlPanelProgram, OneThatCrashesIsOneThatHasEnded) {
    for (const char* body : {"kill -SEGV $$\n", "kill -ABRT $$\n", "kill -KILL $$\n", "exit 3\n"}) {
        SCOPED_TRACE(body);
        ProgramRig rig;
        rig.writeProgram(body);
        const int before = rig.searches();
        LogCapture log(6);
        EXPECT_EQ(rig.real->controlPanel(), ASE_OK);
        EXPECT_THAT(log.texts(6), ElementsAre(rig.folders.driverFolder() + "panel"));
        EXPECT_EQ(rig.searches(), before) << "the init stands";
    }
}

TEST(ControlPanelProgram, WhatOneHasWrittenBeforeItCrashedCounts) {
    ProgramRig rig;
    rig.writeProgram("printf 'Version=1\\nCycleTime=3000\\n' > '" +
                     nativePath(rig.folders.settingPath()) + "'\nkill -SEGV $$\n");
    const int before = rig.searches();
    EXPECT_EQ(rig.real->controlPanel(), 1) << "what the new init answers";
    EXPECT_EQ(rig.searches(), before + 3);
    EXPECT_EQ(rig.real->settings().cycleTime, 3000u);
}

TEST(ControlPanelProgram, AFileThatItLeavesHalfWrittenDoesNoHarm) {
    ProgramRig rig;
    rig.writeProgram("printf 'Version=1\\nCycleTi' > '" + nativePath(rig.folders.settingPath()) +
                     "'\nkill -SEGV $$\n");
    EXPECT_EQ(rig.real->controlPanel(), 1) << "what the new init answers";
    EXPECT_EQ(rig.real->settings().cycleTime, 1000u) << "the default";
    EXPECT_EQ(rig.real->init(nullptr), 1);
}

TEST(ControlPanelProgram, OneThatIsNotThereIsNotPresent) {
    struct Case {
        const char* why;
        const char* name;
        bool isWritten;
    };
    const Case cases[] = {
        {"no such file", "nothing", false},
        {"a file that is no program", "panel", true},
        {"none named: the folder itself", "", false},
        {"a folder that is not there", "no/such/panel", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        ProgramRig rig(c.name);
        if (c.isWritten) rig.writeProgram("exit 0\n", /*isExecutable=*/false);
        const int before = rig.searches();
        LogCapture log(6);
        EXPECT_EQ(rig.real->controlPanel(), ASE_NotPresent);
        EXPECT_THAT(log.texts(6), ElementsAre(rig.folders.driverFolder() + c.name + " ERROR"));
        EXPECT_EQ(rig.searches(), before);
        EXPECT_EQ(rig.real->init(nullptr), 1) << "the driver stands as it did";
    }
}

}  // namespace

#endif
