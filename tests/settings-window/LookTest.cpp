// How the window looks, whatever the monitor, and how it is read aloud.
#include <windows.h>

#include <gtest/gtest.h>

#include <cwctype>
#include <map>
#include <string>
#include <vector>

#include "tests/settings-window/WindowFixture.h"

namespace {

using namespace velmora_settings;
using namespace velmora_test;

std::wstring className(HWND window) {
    wchar_t name[32] = {};
    GetClassNameW(window, name, 32);
    return name;
}

std::vector<HWND> childrenOf(HWND parent) {
    std::vector<HWND> children;
    for (HWND child = GetWindow(parent, GW_CHILD); child != nullptr;
         child = GetWindow(child, GW_HWNDNEXT)) {
        children.push_back(child);
    }
    return children;
}

RECT placeOf(HWND window) {
    RECT place{};
    GetWindowRect(window, &place);
    return place;
}

// How large the text is that a control shows, in the font of dialogs.
SIZE sizeOfText(HWND window, LONG width, UINT dpi) {
    const HDC screen = GetDC(nullptr);
    NONCLIENTMETRICSW metrics{};
    metrics.cbSize = sizeof metrics;
    SystemParametersInfoForDpi(SPI_GETNONCLIENTMETRICS, sizeof metrics, &metrics, 0, dpi);
    const HFONT font = CreateFontIndirectW(&metrics.lfMessageFont);
    const HGDIOBJ before = SelectObject(screen, font);
    RECT room{0, 0, width, 0};
    DrawTextW(screen, textOf(window).c_str(), -1, &room, DT_CALCRECT | DT_WORDBREAK);
    SelectObject(screen, before);
    DeleteObject(font);
    ReleaseDC(nullptr, screen);
    return {room.right, room.bottom};
}

void expectFits(HWND window, UINT dpi) {
    const RECT place = placeOf(window);
    // Fonts differ from one system to the next: a seventh is to spare.
    const LONG width = (place.right - place.left) * 6 / 7;
    const SIZE size = sizeOfText(window, width, dpi);
    EXPECT_LE(size.cx, width) << "too narrow for its text";
    EXPECT_LE(size.cy, place.bottom - place.top) << "too low for its text";
}

void expectSoundPage(const Program& program, int page, UINT dpi) {
    const RECT inside = placeOf(program.page(page));
    const auto children = childrenOf(program.page(page));
    for (std::size_t i = 0; i < children.size(); ++i) {
        const HWND child = children[i];
        SCOPED_TRACE(std::to_string(page) + ": " + narrow(textOf(child)));
        const RECT place = placeOf(child);
        EXPECT_TRUE(place.left >= inside.left && place.top >= inside.top &&
                    place.right <= inside.right && place.bottom <= inside.bottom)
            << "beyond the page";
        if (className(child) == L"Static" || className(child) == L"Button") expectFits(child, dpi);
        for (std::size_t j = i + 1; j < children.size(); ++j) {
            RECT common{};
            const RECT other = placeOf(children[j]);
            EXPECT_FALSE(IntersectRect(&common, &place, &other))
                << "lies over " << narrow(textOf(children[j]));
        }
    }
}

TEST_F(SettingsWindow, ShowsEveryTextWholeAndNothingOverAnother) {
    use("Version=1_112_1\r\n");
    Program program(folders_);
    for (int page = 0; page < pageCount; ++page) {
        program.turnTo(page);
        expectSoundPage(program, page, GetDpiForWindow(program.frame()));
    }
}

TEST_F(SettingsWindow, ShowsEveryTextWholeOnAnotherMonitorToo) {
    use("Version=1_112_1\r\n");
    Program program(folders_);
    const UINT before = GetDpiForWindow(program.frame());
    const HWND check = program.control(pageAudio, at(F::phase));
    const LONG width = placeOf(check).right - placeOf(check).left;
    for (const UINT dpi : {192u, 120u, 96u}) {
        SCOPED_TRACE(dpi);
        program.changeMonitor(dpi);
        const LONG now = placeOf(check).right - placeOf(check).left;
        EXPECT_NEAR(static_cast<double>(now), width * static_cast<double>(dpi) / before, 1.0);
        EXPECT_EQ(placeOf(program.frame()).left, 40);
        for (int page = 0; page < pageCount; ++page) expectSoundPage(program, page, dpi);
    }
}

TEST_F(SettingsWindow, ShowsWholeWhatItSaysOfEveryChoice) {
    use("Version=1_112_1\r\nCycleMinTime=5\r\nThredMode=2052\r\n");
    Program program(folders_);
    const UINT dpi = GetDpiForWindow(program.frame());
    program.turnTo(pageTransport);
    for (int kind = 0; kind < 7; ++kind) {
        program.choose(pageTransport, idTransferKind, kind);
        for (int format = 0; format < 13; ++format) {
            program.choose(pageTransport, idFormat, format);
            SCOPED_TRACE(narrow(program.text(pageTransport, idFigures)));
            expectFits(program.control(pageTransport, idFigures), dpi);
        }
        for (int wait = 0; wait < 4; ++wait) {
            program.choose(pageTransport, idWaitMode, wait);
            SCOPED_TRACE(narrow(program.text(pageTransport, idWaitCost)));
            expectFits(program.control(pageTransport, idWaitCost), dpi);
        }
        expectFits(program.control(pageTransport, idTransferAbout), dpi);
    }
    program.turnTo(pageAudio);
    program.enter(pageAudio, at(F::bufferSize), "2147483647");
    program.enter(pageAudio, at(F::syncBufferCount), "2147483647");
    expectFits(program.control(pageAudio, idDelay44), dpi);
    expectFits(program.control(pageAudio, idDelay192), dpi);
}

TEST_F(SettingsWindow, NamesEveryControlByALabelInFrontOfIt) {
    Program program(folders_);
    for (int page = 0; page < pageCount; ++page) {
        program.turnTo(page);
        HWND before = nullptr;
        for (const HWND child : childrenOf(program.page(page))) {
            const std::wstring name = className(child);
            if (name != L"Static" && name != L"Button") {
                ASSERT_NE(before, nullptr);
                EXPECT_EQ(className(before), L"Static") << narrow(textOf(child));
                EXPECT_FALSE(textOf(before).empty());
            } else if (name == L"Button") {
                EXPECT_FALSE(textOf(child).empty());
            }
            before = child;
        }
        EXPECT_FALSE(textOf(program.page(page)).empty()) << "the page's own name";
    }
}

TEST_F(SettingsWindow, HasNoLetterTwiceOnAPage) {
    Program program(folders_);
    for (int page = 0; page < pageCount; ++page) {
        program.turnTo(page);
        std::map<wchar_t, std::wstring> letters;
        for (const HWND child : childrenOf(program.page(page))) {
            const std::wstring text = textOf(child);
            const bool hasPrefix = (GetWindowLongPtrW(child, GWL_STYLE) & SS_NOPREFIX) == 0 ||
                                   className(child) == L"Button";
            const auto mark = text.find(L'&');
            if (!hasPrefix || mark == std::wstring::npos || mark + 1 >= text.size()) continue;
            const auto letter = static_cast<wchar_t>(std::towlower(text[mark + 1]));
            EXPECT_TRUE(letters.emplace(letter, text).second)
                << narrow(text) << " and " << narrow(letters[letter]);
        }
    }
}

}  // namespace
