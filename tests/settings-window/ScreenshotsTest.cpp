// The pictures of the guide: each page as it is on the screen, with a target in the list. Taken
// only where VELMORA_TEST_SHOTS names a folder for them (./dev screenshots).
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "apps/velmora-settings/windows/Ids.h"
#include "tests/settings-window/Program.h"

namespace {

using namespace velmora_settings;
using namespace velmora_test;

// What the screen shows of a window, as a bitmap file of 24 bits.
std::string pictureOf(HWND window) {
    RECT place{};
    GetWindowRect(window, &place);
    const LONG width = place.right - place.left, height = place.bottom - place.top;
    const HDC screen = GetDC(nullptr);
    const HDC copy = CreateCompatibleDC(screen);
    BITMAPINFO info{};
    info.bmiHeader = {sizeof(BITMAPINFOHEADER), width, height, 1, 24, BI_RGB, 0, 0, 0, 0, 0};
    void* bits = nullptr;
    const HBITMAP bitmap = CreateDIBSection(screen, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    const HGDIOBJ before = SelectObject(copy, bitmap);
    BitBlt(copy, 0, 0, width, height, screen, place.left, place.top, SRCCOPY);
    GdiFlush();
    const auto lineBytes = static_cast<std::size_t>((width * 3 + 3) / 4 * 4);
    const std::size_t size = lineBytes * static_cast<std::size_t>(height);

    BITMAPFILEHEADER head{};
    head.bfType = 0x4d42;
    head.bfOffBits = sizeof head + sizeof info.bmiHeader;
    head.bfSize = static_cast<DWORD>(head.bfOffBits + size);
    std::string file(reinterpret_cast<const char*>(&head), sizeof head);
    file.append(reinterpret_cast<const char*>(&info.bmiHeader), sizeof info.bmiHeader);
    file.append(static_cast<const char*>(bits), size);
    SelectObject(copy, before);
    DeleteObject(bitmap);
    DeleteDC(copy);
    ReleaseDC(nullptr, screen);
    return file;
}

TEST(Screenshots, OfEveryPage) {
    const char* const shots = std::getenv("VELMORA_TEST_SHOTS");
    const char* const signals = std::getenv("VELMORA_TEST_SIGNALS");
    if (shots == nullptr || signals == nullptr) GTEST_SKIP() << "nobody asks for pictures";
    const std::wstring asked = wide(signals) + L"\\start-target";
    Folders::write(asked, "please");
    ASSERT_TRUE(comesTrue([&] { return Folders::read(asked) == "(none)"; }));

    Folders folders;
    Folders::write(folders.settings(),
                   "Version=1_112_1\r\nDSDMSB=enable\r\nThredMode=3\r\nDebug=enable\r\n");
    Program program(folders);
    const char* const names[] = {"target", "audio", "transport", "diagnostics"};
    for (int page = 0; page < pageCount; ++page) {
        program.turnTo(page);
        if (page == pageTarget) {
            ASSERT_TRUE(comesTrue([&] {
                return program.text(pageTarget, idTargetState).find(L"found.") !=
                       std::wstring::npos;
            }));
        }
        if (page == pageDiagnostics) {
            program.press(page, idDoctor);
            ASSERT_TRUE(comesTrue([&] {
                return program.text(page, idDoctorSays).find(L"The driver will") !=
                       std::wstring::npos;
            }));
        }
        Sleep(500);  // all is drawn
        Folders::write(wide(shots) + L"\\settings-" + wide(names[page]) + L".bmp",
                       pictureOf(program.frame()));
    }
    program.pressCancel();
    EXPECT_TRUE(program.ends());
    Folders::write(wide(signals) + L"\\stop-target", "please");
}

}  // namespace
