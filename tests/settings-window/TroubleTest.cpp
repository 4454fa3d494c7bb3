// What goes wrong around the window: files, folders, disks, a second start, and modules.
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/settings-window/WindowFixture.h"

namespace {

using namespace velmora_settings;
using namespace velmora_test;
using testing::HasSubstr;

TEST_F(SettingsWindow, RefusesWhatTheDriverWouldIgnoreAndGoesToIt) {
    use(mine);
    Program program(folders_);
    program.turnTo(pageAudio);
    program.enter(pageAudio, at(F::syncBufferCount), "1");
    EXPECT_EQ(narrow(program.message()), "\"Ring depth\" takes 2 to 2147483647 buffers.");
    program.turnTo(pageTarget);
    EXPECT_EQ(refusedOk(program), "\"Ring depth\" takes 2 to 2147483647 buffers.");
    EXPECT_TRUE(comesTrue([&] { return program.shownPage() == pageAudio; }));
    EXPECT_TRUE(comesTrue(
        [&] { return program.focus() == program.control(pageAudio, at(F::syncBufferCount)); }));
    EXPECT_EQ(file(), mine);
}

TEST_F(SettingsWindow, SaysThatTheFileIsWriteProtected) {
    use(mine);
    SetFileAttributesW(folders_.settings().c_str(), FILE_ATTRIBUTE_READONLY);
    Program program(folders_);
    program.enter(pageTarget, at(F::targetPO), "5");
    EXPECT_THAT(refusedOk(program), HasSubstr("write-protected"));
    EXPECT_EQ(file(), mine);
    EXPECT_EQ(program.text(pageTarget, at(F::targetPO)), L"5") << "nothing is lost";
    SetFileAttributesW(folders_.settings().c_str(), FILE_ATTRIBUTE_NORMAL);
    endByOk(program);
    EXPECT_THAT(file(), HasSubstr("TargetPO=5"));
}

// As bytes: who may do what with a file.
std::string rightsOf(const std::wstring& path) {
    DWORD size = 0;
    GetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &size);
    std::string rights(size, '\0');
    GetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, rights.data(), size, &size);
    return rights;
}

TEST_F(SettingsWindow, KeepsTheFilesMarksAndWhoMayDoWhatWithIt) {
    use(mine);
    PSECURITY_DESCRIPTOR everybody = nullptr;
    ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(
        L"D:P(A;;FA;;;WD)", SDDL_REVISION_1, &everybody, nullptr));
    const std::string before = rightsOf(folders_.settings());
    ASSERT_TRUE(
        SetFileSecurityW(folders_.settings().c_str(), DACL_SECURITY_INFORMATION, everybody));
    LocalFree(everybody);
    const std::string rights = rightsOf(folders_.settings());
    ASSERT_NE(rights, before);
    ASSERT_TRUE(SetFileAttributesW(folders_.settings().c_str(), FILE_ATTRIBUTE_HIDDEN));
    // A write that was broken off left this, hidden too.
    Folders::write(folders_.settings() + L".new", "half");
    SetFileAttributesW((folders_.settings() + L".new").c_str(), FILE_ATTRIBUTE_HIDDEN);
    Program program(folders_);
    program.enter(pageTarget, at(F::targetPO), "5");
    endByOk(program);
    EXPECT_THAT(file(), HasSubstr("TargetPO=5"));
    EXPECT_EQ(rightsOf(folders_.settings()), rights);
    EXPECT_NE(GetFileAttributesW(folders_.settings().c_str()) & FILE_ATTRIBUTE_HIDDEN, 0u);
    EXPECT_EQ(Folders::entries(folders_.user()).size(), 1u);
}

TEST_F(SettingsWindow, SaysThatAnotherProgramHoldsTheFile) {
    use(mine);
    Program program(folders_);
    program.enter(pageTarget, at(F::targetPO), "5");
    const HANDLE held = CreateFileW(folders_.settings().c_str(), GENERIC_READ, FILE_SHARE_READ,
                                    nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_THAT(refusedOk(program), HasSubstr("held by another program"));
    CloseHandle(held);
    EXPECT_EQ(file(), mine);
    const HANDLE locked = CreateFileW(folders_.settings().c_str(), GENERIC_READ, 0, nullptr,
                                      OPEN_EXISTING, 0, nullptr);
    EXPECT_THAT(refusedOk(program), HasSubstr("cannot be read, so nothing was written"));
    CloseHandle(locked);
    endByOk(program);
    EXPECT_THAT(file(), HasSubstr("TargetPO=5"));
}

TEST_F(SettingsWindow, MakesAFolderThatIsMissing) {
    std::filesystem::remove(folders_.user());
    Program program(folders_);
    program.enter(pageTarget, at(F::targetPO), "5");
    program.pressOk();
    EXPECT_THAT(narrow(program.readBox()), HasSubstr("Your own settings now lie in"));
    EXPECT_TRUE(program.ends());
    EXPECT_THAT(file(), HasSubstr("TargetPO=5"));
}

TEST_F(SettingsWindow, SaysThatAFolderCannotBeMade) {
    std::filesystem::remove(folders_.user());
    const std::wstring place = folders_.user().substr(0, folders_.user().size() - 1);
    Folders::write(place, "a file where the folder should be");
    {
        Program program(folders_);
        program.enter(pageTarget, at(F::targetPO), "5");
        EXPECT_THAT(refusedOk(program), HasSubstr("folder"));
    }
    std::filesystem::remove(place);
    std::filesystem::create_directories(folders_.user());
}

TEST_F(SettingsWindow, StaysWholeOnAFullDisk) {
    if (std::getenv("VELMORA_TEST_SMALL_DISK") == nullptr) {
        GTEST_SKIP() << "the settings folder is no disk of its own";
    }
    use(mine);
    const std::wstring filler = folders_.user() + L"filler";
    Folders::write(filler, std::string(1u << 20, 'x'));  // as much as there is room for
    Program program(folders_);
    program.enter(pageTarget, at(F::targetPO), "5");
    EXPECT_THAT(refusedOk(program), HasSubstr("no room"));
    EXPECT_EQ(file(), mine);
    EXPECT_EQ(Folders::entries(folders_.user()).size(), 2u);
    DeleteFileW(filler.c_str());
    endByOk(program);
    EXPECT_THAT(file(), HasSubstr("TargetPO=5"));
}

TEST_F(SettingsWindow, ASecondStartBringsTheFirstToTheFront) {
    Program program(folders_);
    ShowWindow(program.frame(), SW_MINIMIZE);
    ASSERT_TRUE(comesTrue([&] { return IsIconic(program.frame()) != 0; }));
    const HANDLE second = startProgram(folders_);
    EXPECT_TRUE(comesTrue([&] { return WaitForSingleObject(second, 0) == WAIT_OBJECT_0; }));
    DWORD code = 99;
    GetExitCodeProcess(second, &code);
    CloseHandle(second);
    EXPECT_EQ(code, 0u);
    EXPECT_FALSE(IsIconic(program.frame()));
    EXPECT_TRUE(comesTrue([&] { return GetForegroundWindow() == program.frame(); }));
    EXPECT_FALSE(program.hasEnded());
}

// A first one that has no window: one that ends by now.
TEST_F(SettingsWindow, ASecondStartTakesThePlaceOfAFirstThatEnds) {
    const HANDLE first = CreateMutexW(nullptr, TRUE, instanceMark);
    const HANDLE second = startProgram(folders_);
    Sleep(1000);  // it waits for the first by now
    EXPECT_EQ(FindWindowW(windowClass, nullptr), nullptr);
    EXPECT_NE(WaitForSingleObject(second, 0), WAIT_OBJECT_0);
    ReleaseMutex(first);
    CloseHandle(first);
    const bool hasWindow =
        comesTrue([] { return IsWindowVisible(FindWindowW(windowClass, nullptr)) != 0; });
    EXPECT_TRUE(hasWindow);
    if (hasWindow) {
        Program program;
        program.pressCancel();
        EXPECT_TRUE(program.ends());
    }
    TerminateProcess(second, 99);
    WaitForSingleObject(second, INFINITE);
    CloseHandle(second);
}

bool searches(const Program& program) {
    return comesTrue(
        [&] { return narrow(program.text(pageTarget, idTargetState)).starts_with("Searching"); });
}

// Audio software that opened the window stands still until the program ends.
TEST_F(SettingsWindow, EndsThoughASearchGoesOn) {
    folders_.takeSlowFinder();
    use("Version=1_112_1\r\n");
    Program program(folders_);
    ASSERT_TRUE(searches(program));
    program.enter(pageTarget, at(F::targetPO), "5");
    endByOk(program);
    EXPECT_EQ(file(), "Version=1_112_1\r\nTargetPO=5\r\n");
    EXPECT_EQ(Folders::entries(folders_.user()).size(), 1u);
}

TEST_F(SettingsWindow, OpensAgainWhileASearchOfBeforeGoesOn) {
    folders_.takeSlowFinder();
    Program first(folders_);
    ASSERT_TRUE(searches(first));
    first.pressCancel();
    ASSERT_TRUE(comesTrue([&] { return !IsWindowVisible(first.frame()); }));
    Program second(folders_);
    EXPECT_TRUE(first.ends());
    EXPECT_TRUE(searches(second));
    second.pressCancel();
    EXPECT_TRUE(second.ends());
}

TEST_F(SettingsWindow, WithoutTheDriversModuleSaysWhatHelps) {
    DeleteFileW((folders_.driver() + L"asio_korvente_x64.dll").c_str());
    Program program(folders_);
    EXPECT_EQ(narrow(program.text(pageTarget, idTargetState)),
              "asio_korvente_x64.dll is not beside this program, so targets cannot be searched "
              "for: install KORVENTE Velmora again.");
    EXPECT_FALSE(IsWindowEnabled(program.control(pageTarget, idSearchAgain)));
    endByOk(program);
}

TEST_F(SettingsWindow, WithAModuleOfAnotherReleaseSaysWhatHelps) {
    const std::wstring path = folders_.driver() + L"asio_korvente_x64.dll";
    std::string bytes = Folders::read(path);
    const std::string signature = {'\xbd', '\x04', '\xef', '\xfe'};  // of the version's numbers
    const auto found = bytes.find(signature);
    ASSERT_NE(found, std::string::npos);
    bytes[found + 8] = 99;  // the second number of the file's version
    Folders::write(path, bytes);
    Program program(folders_);
    EXPECT_EQ(narrow(program.text(pageTarget, idTargetState)),
              "C:\\velmora-settings-test\\asio_korvente_x64.dll is of release \"1_99_1\" and this "
              "program of release \"1_112_1\": install KORVENTE Velmora again.");
    endByOk(program);
}

TEST_F(SettingsWindow, WithAModuleThatIsNoneSaysWhatHelps) {
    Folders::write(folders_.driver() + L"asio_korvente_x64.dll", "no module");
    Program program(folders_);
    EXPECT_THAT(narrow(program.text(pageTarget, idTargetState)), HasSubstr("is not this driver"));
    endByOk(program);
}

TEST_F(SettingsWindow, WithoutAViewerSaysWhatHelps) {
    Program program(folders_);
    program.turnTo(pageDiagnostics);
    program.press(pageDiagnostics, idViewer);
    EXPECT_THAT(narrow(program.readBox()), HasSubstr("velmora-log.exe is not there: install"));
    endByOk(program);
}

}  // namespace
