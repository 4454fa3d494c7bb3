// The list of targets, with a target in another network namespace: scripts/settings-e2e.sh has one
// come and go when a file in VELMORA_TEST_SIGNALS asks for it.
#include <windows.h>

#include <commctrl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>

#include "apps/velmora-settings/windows/Ids.h"
#include "tests/dll/HostModule.h"
#include "tests/settings-window/Program.h"

namespace {

using namespace velmora_settings;
using namespace velmora_test;

// Asks the script for something, and waits until it has done it.
void ask(const wchar_t* what) {
    const char* const folder = std::getenv("VELMORA_TEST_SIGNALS");
    ASSERT_NE(folder, nullptr) << "nobody has a target come and go";
    const std::wstring path = wide(folder) + L"\\" + what;
    Folders::write(path, "please");
    ASSERT_TRUE(comesTrue([&] { return Folders::read(path) == "(none)"; }));
}

class Targets : public testing::Test {
protected:
    void SetUp() override {
        if (std::getenv("VELMORA_TEST_SIGNALS") == nullptr) {
            GTEST_SKIP() << "there is no target that comes and goes";
        }
    }
    void TearDown() override {
        if (std::getenv("VELMORA_TEST_SIGNALS") != nullptr) ask(L"stop-target");
    }
    static int rows(const Program& program) {
        return static_cast<int>(
            SendMessageW(program.control(pageTarget, idTargets), LVM_GETITEMCOUNT, 0, 0));
    }
    static std::string state(const Program& program) {
        return narrow(program.text(pageTarget, idTargetState));
    }
    static bool says(const Program& program, const std::string& text) {
        return comesTrue([&] { return state(program).find(text) != std::string::npos; });
    }

    Folders folders_;
};

TEST_F(Targets, NobodyIsSaidWithWhatHelps) {
    Program program(folders_);
    EXPECT_TRUE(says(program, "No target was found: is one switched on"));
    EXPECT_EQ(rows(program), 0);
}

TEST_F(Targets, ComeIntoTheListAndAreMarkedWhenTheyVanish) {
    Program program(folders_);
    ASSERT_TRUE(says(program, "No target was found"));
    ask(L"start-target");
    ASSERT_TRUE(says(program, "1 sink found.")) << "without a press: the list lives";
    EXPECT_EQ(program.cell(0, 0), L"Kitchen(Main)");
    EXPECT_THAT(narrow(program.cell(0, 1)), testing::StartsWith("fe80::"));
    EXPECT_EQ(program.cell(0, 3), L"1");
    EXPECT_EQ(program.cell(0, 5), L"here");
    ask(L"stop-target");
    ASSERT_TRUE(says(program, "Kitchen(Main) answers no more: is it switched on and connected?"));
    EXPECT_EQ(program.cell(0, 5), L"gone");
    EXPECT_EQ(rows(program), 1);
}

TEST_F(Targets, AreForgottenWhereSomethingElseIsAsked) {
    ask(L"start-target");
    Program program(folders_);
    ASSERT_TRUE(says(program, "1 sink found."));
    ask(L"stop-target");
    ASSERT_TRUE(says(program, "answers no more"));
    program.enter(pageTarget, fieldControl(FieldId::findIP), "fe80::7");
    EXPECT_TRUE(says(program, "No target was found"));
    EXPECT_EQ(rows(program), 0);
}

TEST_F(Targets, AlwaysThisOneWritesAddressAndSink) {
    Folders::write(folders_.settings(), "Version=1_112_1\r\n");
    ask(L"start-target");
    Program program(folders_);
    ASSERT_TRUE(says(program, "1 sink found."));
    EXPECT_FALSE(IsWindowEnabled(program.control(pageTarget, idUseAlways))) << "none is selected";
    SetForegroundWindow(program.frame());
    program.keys({VK_MENU, 'T'});
    program.keys({VK_DOWN});
    program.keys({VK_SPACE});
    ASSERT_TRUE(
        comesTrue([&] { return IsWindowEnabled(program.control(pageTarget, idUseAlways)) != 0; }));
    program.keys({VK_MENU, 'A'});
    EXPECT_EQ(program.cell(0, 5), L"used always");
    EXPECT_TRUE(IsWindowEnabled(program.focus()))
        << "the button that has done its work is disabled";
    program.pressOk();
    EXPECT_TRUE(program.ends());
    const std::string file = Folders::read(folders_.settings());
    EXPECT_THAT(file, testing::StartsWith("Version=1_112_1\r\nTargetAddress=fe80::"));
    EXPECT_THAT(file, testing::EndsWith(",19642\r\nTargetPO=1\r\n"));
}

TEST_F(Targets, AreSearchedForAgainByThePress) {
    ask(L"start-target");
    Program program(folders_);
    ASSERT_TRUE(says(program, "1 sink found."));
    ask(L"stop-target");
    ASSERT_TRUE(says(program, "answers no more"));
    program.press(pageTarget, idSearchAgain);
    ASSERT_TRUE(says(program, "No target was found"));
    EXPECT_EQ(rows(program), 0);
}

TEST_F(Targets, AreToldByTheDoctor) {
    ask(L"start-target");
    Program program(folders_);
    program.turnTo(pageDiagnostics);
    program.press(pageDiagnostics, idDoctor);
    EXPECT_TRUE(comesTrue([&] {
        return program.text(pageDiagnostics, idDoctorSays).find(L"will find one target") !=
               std::wstring::npos;
    })) << narrow(program.text(pageDiagnostics, idDoctorSays));
    // A program that is closed while the doctor looks ends it.
    program.press(pageDiagnostics, idDoctor);
    program.pressCancel();
    EXPECT_TRUE(program.ends());
}

// ---- from the audio software's side ----

TEST_F(Targets, TheDriverSearchesAnewOnlyWhereSomethingWasChanged) {
    ask(L"start-target");
    const std::string before = "Version=1_112_1\r\n; mine\r\n";
    Folders::write(folders_.settings(), before);
    const velmora_test::Module module(folders_.driver() + L"asio_korvente_x64.dll");
    ASSERT_TRUE(module);
    IASIO* const driver = module.makeDriver();
    ASSERT_NE(driver, nullptr);
    struct Case {
        const char* why;
        bool changes;
        ASIOError answer;
    };
    for (const Case& c : {Case{"OK without a change: nothing is done", false, ASE_OK},
                          Case{"a change: what the new init answers", true, ASIOTrue}}) {
        SCOPED_TRACE(c.why);
        ASIOError answer = -1;
        std::thread host([&] { answer = driver->controlPanel(); });
        {
            Program program;
            if (c.changes) program.enter(pageTarget, fieldControl(FieldId::findIP), "fe80::7");
            program.pressOk();
            EXPECT_TRUE(program.ends());
        }
        host.join();
        EXPECT_EQ(answer, c.answer);
    }
    EXPECT_EQ(Folders::read(folders_.settings()),
              "Version=1_112_1\r\nFindIP=fe80::7\r\n; mine\r\n");
    driver->Release();
}

}  // namespace
