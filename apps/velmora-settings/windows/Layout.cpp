#include "apps/velmora-settings/windows/Layout.h"

#include <commctrl.h>

#include <initguid.h>
#include <oleacc.h>

#include <string>

#include "apps/velmora-settings/windows/Text.h"

namespace velmora_settings {
namespace {

using Kind = Control::Kind;

struct Look {
    const wchar_t* className;
    DWORD style, exStyle;
};

constexpr DWORD tab = WS_TABSTOP;
// A combo's height is that of its list dropped down.
constexpr int droppedHeight = 240;

Look lookOf(Kind kind) {
    switch (kind) {
        case Kind::label:
            return {L"STATIC", SS_LEFT, 0};
        case Kind::hint:
        case Kind::text:
            return {L"STATIC", SS_LEFT | SS_NOPREFIX, 0};
        case Kind::edit:
            return {L"EDIT", ES_AUTOHSCROLL | tab, WS_EX_CLIENTEDGE};
        case Kind::number:
            return {L"EDIT", ES_AUTOHSCROLL | ES_NUMBER | tab, WS_EX_CLIENTEDGE};
        case Kind::combo:
            return {L"COMBOBOX", CBS_DROPDOWNLIST | WS_VSCROLL | tab, 0};
        case Kind::comboEdit:
            return {L"COMBOBOX", CBS_DROPDOWN | CBS_AUTOHSCROLL | WS_VSCROLL | tab, 0};
        case Kind::check:
            return {L"BUTTON", BS_AUTOCHECKBOX | tab, 0};
        case Kind::button:
            return {L"BUTTON", BS_PUSHBUTTON | tab, 0};
        case Kind::defaultButton:
            return {L"BUTTON", BS_DEFPUSHBUTTON | tab, 0};
        case Kind::list:
            return {WC_LISTVIEWW, LVS_REPORT | LVS_SINGLESEL | LVS_SHOWSELALWAYS | tab,
                    WS_EX_CLIENTEDGE};
        case Kind::progress:
            return {PROGRESS_CLASSW, PBS_MARQUEE, 0};
        case Kind::memo:
            return {L"EDIT", ES_MULTILINE | ES_READONLY | ES_AUTOVSCROLL | WS_VSCROLL | tab,
                    WS_EX_CLIENTEDGE};
    }
    return {};
}

std::wstring withoutMnemonic(std::string_view text) {
    std::wstring out;
    for (const wchar_t c : wide(text)) {
        if (c != L'&' && c != L':') out += c;
    }
    return out;
}

bool isNamedByLabel(Kind kind) {
    return kind == Kind::edit || kind == Kind::number || kind == Kind::combo ||
           kind == Kind::comboEdit || kind == Kind::list || kind == Kind::progress ||
           kind == Kind::memo;
}

}  // namespace

HFONT makeDialogFont(UINT dpi) {
    NONCLIENTMETRICSW metrics{};
    metrics.cbSize = sizeof metrics;
    if (!SystemParametersInfoForDpi(SPI_GETNONCLIENTMETRICS, sizeof metrics, &metrics, 0, dpi)) {
        return nullptr;  // the system's own font is drawn
    }
    return CreateFontIndirectW(&metrics.lfMessageFont);
}

UINT dpiOf(HWND window) noexcept {
    constexpr UINT usual = 96;
    const UINT dpi = GetDpiForWindow(window);
    return dpi == 0 ? usual : dpi;
}

int scaled(int value, UINT dpi) noexcept {
    return MulDiv(value, static_cast<int>(dpi), 96);
}

void Layout::create(HWND parent) {
    for (const Control& control : controls_) {
        const Look look = lookOf(control.kind);
        windows_.push_back(CreateWindowExW(
            look.exStyle, look.className, wide(control.text).c_str(),
            look.style | WS_CHILD | WS_VISIBLE, 0, 0, 0, 0, parent,
            reinterpret_cast<HMENU>(static_cast<INT_PTR>(control.id)), nullptr, nullptr));
    }
}

void Layout::place(UINT dpi, HFONT font) {
    for (std::size_t i = 0; i < windows_.size(); ++i) {
        const Control& c = controls_[i];
        const bool isCombo = c.kind == Kind::combo || c.kind == Kind::comboEdit;
        SendMessageW(windows_[i], WM_SETFONT, reinterpret_cast<WPARAM>(font), FALSE);
        SetWindowPos(windows_[i], nullptr, scaled(c.x, dpi), scaled(c.y, dpi), scaled(c.w, dpi),
                     scaled(isCombo ? droppedHeight : c.h, dpi), SWP_NOZORDER | SWP_NOACTIVATE);
    }
}

void Layout::nameForReaders() const {
    IAccPropServices* services = nullptr;
    if (FAILED(CoCreateInstance(CLSID_AccPropServices, nullptr, CLSCTX_INPROC_SERVER,
                                IID_IAccPropServices, reinterpret_cast<void**>(&services)))) {
        return;  // the labels in front of the controls name them all the same
    }
    for (std::size_t i = 1; i < windows_.size(); ++i) {
        if (!isNamedByLabel(controls_[i].kind)) continue;
        std::wstring name = withoutMnemonic(controls_[i - 1].text);
        const bool hasHint =
            i + 1 < windows_.size() && controls_[i + 1].kind == Control::Kind::hint;
        if (hasHint) name += L", " + wide(textOf(windows_[i + 1]));
        services->SetHwndPropStr(windows_[i], static_cast<DWORD>(OBJID_CLIENT), CHILDID_SELF,
                                 PROPID_ACC_NAME, name.c_str());
    }
    services->Release();
}

}  // namespace velmora_settings
