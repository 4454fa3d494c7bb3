// The settings program from outside: what is pressed and typed, and the file that comes of it.
// scripts/settings-e2e.sh runs this under Wine, on a screen that nobody sees.
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/settings-window/WindowFixture.h"

namespace {

using namespace velmora_settings;
using namespace velmora_test;
using testing::HasSubstr;
using testing::StartsWith;

// ---- nothing is changed ----

TEST_F(SettingsWindow, OkWithoutAChangeLeavesEveryByte) {
    use(mine);
    Program program(folders_);
    for (int page = 0; page < pageCount; ++page) program.turnTo(page);
    endByOk(program);
    EXPECT_EQ(file(), mine);
    EXPECT_EQ(Folders::entries(folders_.user()).size(), 1u);
}

TEST_F(SettingsWindow, OkWithoutAChangeMakesNoFile) {
    Program program(folders_);
    endByOk(program);
    EXPECT_TRUE(Folders::entries(folders_.user()).empty());
}

TEST_F(SettingsWindow, CancelLeavesEveryByteOfAFileThatWasChangedInTheWindow) {
    use(mine);
    Program program(folders_);
    program.turnTo(pageAudio);
    program.enter(pageAudio, at(F::syncBufferCount), "4");
    program.pressCancel();
    EXPECT_TRUE(program.ends());
    EXPECT_EQ(file(), mine);
}

// ---- every page writes what it shows ----

TEST_F(SettingsWindow, AudioWritesWhatIsEntered) {
    use("; kept\r\nVersion=1_112_1\r\n");
    Program program(folders_);
    program.turnTo(pageAudio);
    EXPECT_EQ(program.text(pageAudio, at(F::syncBufferCount)), L"6");
    program.choose(pageAudio, at(F::pcmRequest), 1);
    program.enter(pageAudio, at(F::bufferSize), "441");
    program.enter(pageAudio, at(F::syncBufferCount), "4");
    SendMessageW(program.control(pageAudio, at(F::phase)), BM_CLICK, 0, 0);
    EXPECT_THAT(narrow(program.text(pageAudio, idDelay44)),
                StartsWith("At 44.1 kHz: 10.0 ms a buffer, 40.0 ms in the ring, 50.0 ms in all"));
    endByOk(program);
    EXPECT_EQ(file(),
              "; kept\r\nVersion=1_112_1\r\nPCMRequest=24\r\nASIOBufferSize=441\r\n"
              "SyncBufferCount=4\r\nPhase=Invert\r\n");
}

TEST_F(SettingsWindow, ConversionPutsItsWordAndTakesItBack) {
    use("Version=1_112_1\r\nPCMRequest=24\r\n");
    {
        Program program(folders_);
        program.turnTo(pageAudio);
        SendMessageW(program.control(pageAudio, idConvert), BM_CLICK, 0, 0);
        EXPECT_FALSE(IsWindowEnabled(program.control(pageAudio, at(F::pcmRequest))));
        SendMessageW(program.control(pageAudio, idConvert), BM_CLICK, 0, 0);
        EXPECT_EQ(program.message(), L"") << "as it was";
        SendMessageW(program.control(pageAudio, idConvert), BM_CLICK, 0, 0);
        endByOk(program);
    }
    EXPECT_EQ(file(), "Version=1_112_1\r\nPCMRequest=CovertS32\r\n");
}

TEST_F(SettingsWindow, TransportWritesAKindByItsThreeKeys) {
    use("Version=1_112_1\r\n");
    Program program(folders_);
    program.turnTo(pageTransport);
    program.choose(pageTransport, idTransferKind, 5);  // drawn at random
    EXPECT_TRUE(IsWindowEnabled(program.control(pageTransport, at(F::cycleMinTime))));
    EXPECT_THAT(narrow(program.text(pageTransport, idFigures)), StartsWith("Nothing plays"));
    program.enter(pageTransport, at(F::cycleTime), "2000");
    program.enter(pageTransport, at(F::cycleMinTime), "500");
    EXPECT_THAT(narrow(program.text(pageTransport, idFigures)),
                StartsWith("Cycles of 500 to 2000 µs, 1 packet of up to"));
    program.choose(pageTransport, idWaitMode, 1);
    EXPECT_THAT(narrow(program.text(pageTransport, idWaitCost)), HasSubstr("5.0 % of one core"));
    program.typeInto(pageTransport, at(F::fragment), "3");
    endByOk(program);
    EXPECT_EQ(file(),
              "Version=1_112_1\r\nCycleTime=2000\r\nCycleMinTime=500\r\nFragment=3\r\n"
              "ThredMode=3\r\nFlexCycle=random\r\n");
}

TEST_F(SettingsWindow, PacketsAreWhatWasTypedLast) {
    use("Version=1_112_1\r\n");
    {
        Program program(folders_);
        program.turnTo(pageTransport);
        program.choose(pageTransport, at(F::fragment), 3);  // its line stays chosen in the list
        program.typeInto(pageTransport, at(F::fragment), "7");
        endByOk(program);
    }
    EXPECT_EQ(file(), "Version=1_112_1\r\nFragment=7\r\n");
    {
        Program program(folders_);
        program.turnTo(pageTransport);
        program.typeInto(pageTransport, at(F::fragment), "9");
        program.choose(pageTransport, at(F::fragment), 3);
        endByOk(program);
    }
    EXPECT_EQ(file(), "Version=1_112_1\r\nFragment=4\r\n");
}

TEST_F(SettingsWindow, DiagnosticsWritesTheLog) {
    use("Version=1_112_1\r\n");
    Program program(folders_);
    program.turnTo(pageDiagnostics);
    program.choose(pageDiagnostics, at(F::debug), 2);
    endByOk(program);
    EXPECT_EQ(file(), "Version=1_112_1\r\nDebug=debug\r\n");
}

TEST_F(SettingsWindow, TargetWritesWhatIsEntered) {
    use("Version=1_112_1\r\n");
    Program program(folders_);
    program.enter(pageTarget, at(F::targetAddress), "fe80::12,19642");
    EXPECT_THAT(refusedOk(program), HasSubstr("A target has no sink 0"));
    program.enter(pageTarget, at(F::targetPO), "2");
    program.enter(pageTarget, at(F::findIP), "fe80::1;fe80::2");
    endByOk(program);
    EXPECT_EQ(file(),
              "Version=1_112_1\r\nTargetAddress=fe80::12,19642\r\nTargetPO=2\r\n"
              "FindIP=fe80::1;fe80::2\r\n");
}

TEST_F(SettingsWindow, KeepsKeysThatItDoesNotKnowOtherSectionsAndDebugInf) {
    use(mine);
    Folders::write(folders_.user() + L"debug.inf", "Debug=enable\nCycleTime=3\n");
    Program program(folders_);
    EXPECT_THAT(narrow(program.message()), HasSubstr("debug.inf"));
    program.turnTo(pageTransport);
    EXPECT_EQ(program.text(pageTransport, at(F::cycleTime)), L"500");
    program.enter(pageTransport, at(F::cycleTime), "750");
    endByOk(program);
    std::string wanted = mine;
    wanted.replace(wanted.find("500"), 3, "750");
    EXPECT_EQ(file(), wanted);
    EXPECT_EQ(Folders::read(folders_.user() + L"debug.inf"), "Debug=enable\nCycleTime=3\n");
}

TEST_F(SettingsWindow, MakesTheUsersFirstFileFromTheFactorys) {
    Program program(folders_);
    program.turnTo(pageAudio);
    SendMessageW(program.control(pageAudio, at(F::phase)), BM_CLICK, 0, 0);
    program.pressOk();
    EXPECT_THAT(narrow(program.readBox()), HasSubstr("Your own settings now lie in"));
    EXPECT_TRUE(program.ends());
    const std::string made = file();
    EXPECT_THAT(made, HasSubstr("Phase=Invert"));
    EXPECT_THAT(made, HasSubstr("ASIOControlPanel=velmora-settings.exe"));
    EXPECT_THAT(made, StartsWith("; KORVENTE Velmora: the factory settings."));
}

// ---- keys alone ----

TEST_F(SettingsWindow, IsUsedByKeysAlone) {
    use("Version=1_112_1\r\n");
    Program program(folders_);
    EXPECT_EQ(program.shownPage(), pageTarget);
    program.keys({VK_CONTROL, VK_TAB});
    EXPECT_EQ(program.shownPage(), pageAudio);
    program.keys({VK_MENU, 'G'});  // the ring
    EXPECT_EQ(program.focus(), program.control(pageAudio, at(F::syncBufferCount)));
    program.type(L"9");
    EXPECT_EQ(program.text(pageAudio, at(F::syncBufferCount)), L"9") << "the old one was selected";
    program.keys({VK_MENU, 'I'});  // the polarity
    program.keys({VK_CONTROL, VK_NEXT});
    EXPECT_EQ(program.shownPage(), pageTransport);
    program.keys({VK_CONTROL, VK_PRIOR});
    program.keys({VK_CONTROL, VK_SHIFT, VK_TAB});
    EXPECT_EQ(program.shownPage(), pageTarget);
    program.keys({VK_CONTROL, VK_PRIOR});
    EXPECT_EQ(program.shownPage(), pageDiagnostics) << "around the corner";
    program.keys({VK_RETURN});
    EXPECT_TRUE(program.ends());
    EXPECT_EQ(file(), "Version=1_112_1\r\nSyncBufferCount=9\r\nPhase=Invert\r\n");
}

TEST_F(SettingsWindow, EnterAndEscapeAreTakenFromAMemoToo) {
    use("Version=1_112_1\r\n");
    for (const bool isOk : {true, false}) {
        SCOPED_TRACE(isOk);
        Program program(folders_);
        program.enter(pageTarget, at(F::targetPO), isOk ? "5" : "6");
        program.turnTo(pageDiagnostics);
        program.keys({VK_MENU, 'K'});
        EXPECT_EQ(program.focus(), program.control(pageDiagnostics, idNotes));
        program.keys({isOk ? static_cast<WORD>(VK_RETURN) : static_cast<WORD>(VK_ESCAPE)});
        EXPECT_TRUE(program.ends());
        EXPECT_EQ(file(), "Version=1_112_1\r\nTargetPO=5\r\n");
    }
}

TEST_F(SettingsWindow, EscapeCancels) {
    use("Version=1_112_1\r\n");
    Program program(folders_);
    program.enter(pageTarget, at(F::targetPO), "5");
    program.keys({VK_ESCAPE});
    EXPECT_TRUE(program.ends());
    EXPECT_EQ(file(), "Version=1_112_1\r\n");
}

TEST_F(SettingsWindow, TabGoesRoundEveryControlInTheirOrder) {
    use("Version=1_112_1\r\n");
    // No list comes in meanwhile.
    DeleteFileW((folders_.driver() + L"asio_korvente_x64.dll").c_str());
    Program program(folders_);
    for (int page = 0; page < pageCount; ++page) {
        SCOPED_TRACE(page);
        program.turnTo(page);
        std::vector<HWND> wanted;  // enabled ones, in the order in which they were made
        for (HWND child = GetWindow(program.page(page), GW_CHILD); child != nullptr;
             child = GetWindow(child, GW_HWNDNEXT)) {
            const LONG_PTR style = GetWindowLongPtrW(child, GWL_STYLE);
            if ((style & WS_TABSTOP) != 0 && (style & WS_DISABLED) == 0) wanted.push_back(child);
        }
        wanted.push_back(GetDlgItem(program.frame(), IDOK));
        wanted.push_back(GetDlgItem(program.frame(), IDCANCEL));
        wanted.push_back(GetDlgItem(program.frame(), idTabs));

        program.keys({VK_TAB});
        std::vector<HWND> seen;
        const HWND start = program.focus();
        do {
            seen.push_back(program.focus());
            program.keys({VK_TAB});
        } while (program.focus() != start && seen.size() < 60);
        // A combo's edit has the focus in the combo's place.
        for (HWND& window : seen) {
            const HWND parent = GetParent(window);
            if (parent != program.page(page) && parent != program.frame()) window = parent;
        }
        const auto first = std::find(seen.begin(), seen.end(), wanted[0]);
        ASSERT_NE(first, seen.end());
        std::rotate(seen.begin(), first, seen.end());
        EXPECT_EQ(seen, wanted);
    }
}

// ---- diagnostics ----

TEST_F(SettingsWindow, CopiesAReport) {
    use(mine);
    Program program(folders_);
    program.turnTo(pageDiagnostics);
    program.press(pageDiagnostics, idCopyReport);
    EXPECT_THAT(narrow(program.readBox()), HasSubstr("on the clipboard"));
    ASSERT_TRUE(OpenClipboard(nullptr));
    const HANDLE data = GetClipboardData(CF_UNICODETEXT);
    const std::string text =
        data != nullptr ? narrow(static_cast<const wchar_t*>(GlobalLock(data))) : "";
    CloseClipboard();
    EXPECT_THAT(text, StartsWith("KORVENTE Velmora 1_112_1\r\nSystem: Windows "));
    EXPECT_THAT(text, HasSubstr("Strange = key"));
    EXPECT_THAT(text, HasSubstr("asio_korvente_x64.dll 1_112_1"));
}

TEST_F(SettingsWindow, AsksTheDoctor) {
    Program program(folders_);
    program.turnTo(pageDiagnostics);
    program.press(pageDiagnostics, idDoctor);
    EXPECT_TRUE(comesTrue([&] {
        const std::wstring says = program.text(pageDiagnostics, idDoctorSays);
        return says.find(L"The doctor looks") == std::wstring::npos && !says.empty();
    }));
    EXPECT_THAT(narrow(program.text(pageDiagnostics, idDoctorSays)), HasSubstr("nterface"));
    EXPECT_TRUE(comesTrue(
        [&] { return IsWindowEnabled(program.control(pageDiagnostics, idDoctor)) != 0; }));
    endByOk(program);
}

}  // namespace
