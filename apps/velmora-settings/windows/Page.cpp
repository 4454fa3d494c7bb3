#include "apps/velmora-settings/windows/Page.h"

#include <windows.h>

#include <commctrl.h>
#include <uxtheme.h>

#include <algorithm>
#include <array>

#include "apps/velmora-settings/windows/Tables.h"
#include "apps/velmora-settings/windows/Text.h"

namespace velmora_settings {
namespace {

// An empty dialog: the table fills it.
struct EmptyTemplate {
    DLGTEMPLATE head;
    std::array<WORD, 3> none;  // no menu, the usual class, no title
};
constexpr EmptyTemplate emptyPage = {
    {static_cast<DWORD>(DS_CONTROL) | WS_CHILD, WS_EX_CONTROLPARENT, 0, 0, 0, 0, 0}, {0, 0, 0}};

constexpr int firstField = fieldControl(FieldId::debug);
constexpr int afterFields = firstField + static_cast<int>(fieldCount);
constexpr int hintOffset = 100;

bool isField(int id) noexcept {
    return id >= firstField && id < afterFields;
}

bool isEdit(Control::Kind kind) noexcept {
    return kind == Control::Kind::edit || kind == Control::Kind::number;
}

}  // namespace

void tell(HWND owner, const std::string& sentence, bool isFault) {
    MessageBoxW(owner, wide(sentence).c_str(), L"KORVENTE Velmora settings",
                static_cast<UINT>(MB_OK | (isFault ? MB_ICONWARNING : MB_ICONINFORMATION)));
}

Page::Page(Context& context, int number)
    : context_(context), number_(number), layout_(pageControls(number)) {}

void Page::create(HWND frame) {
    window_ = CreateDialogIndirectParamW(GetModuleHandleW(nullptr), &emptyPage.head, frame,
                                         procedure, reinterpret_cast<LPARAM>(this));
    SetWindowLongPtrW(window_, GWLP_ID, idPages + number_);
    // The page's name, for programs that read windows aloud.
    SetWindowTextW(window_, wide(pageTitle(number_)).c_str());
    EnableThemeDialogTexture(window_, ETDT_ENABLETAB);
    layout_.create(window_);
    for (const Control& c : pageControls(number_)) {
        if (c.kind != Control::Kind::hint || !isField(c.id - hintOffset)) continue;
        show(c.id, rangeText(fields()[static_cast<std::size_t>(c.id - hintOffset - firstField)]));
    }
    isFilling_ = true;
    prepare();
    isFilling_ = false;
    layout_.nameForReaders();
}

void Page::place(UINT dpi, HFONT font) {
    layout_.place(dpi, font);
    onPlaced(dpi);
}

void Page::show(bool isShown) {
    // A page that is not seen takes no keys either.
    EnableWindow(window_, isShown);
    if (isShown) fill();
    ShowWindow(window_, isShown ? SW_SHOW : SW_HIDE);
    if (!isShown) return;
    // With their frames: what was enabled or disabled unseen has not drawn them.
    RedrawWindow(window_, nullptr, nullptr,
                 RDW_INVALIDATE | RDW_ERASE | RDW_FRAME | RDW_ALLCHILDREN);
    onShown();
}

void Page::fill() {
    isFilling_ = true;
    for (const Control& c : pageControls(number_)) {
        if (!isField(c.id)) continue;
        const FieldId id = static_cast<FieldId>(c.id - firstField);
        if (isEdit(c.kind)) show(c.id, context_.document.text(id));
        if (c.kind == Control::Kind::check) setChecked(c.id, context_.document.isOn(id));
    }
    fillRest();
    refresh();
    isFilling_ = false;
}

bool Page::takeField(int id) {
    const auto controls = pageControls(number_);
    const auto row = std::find_if(controls.begin(), controls.end(),
                                  [id](const Control& c) { return c.id == id; });
    if (row == controls.end()) return false;
    const FieldId field = static_cast<FieldId>(id - firstField);
    if (isEdit(row->kind)) {
        context_.document.setText(field, textOf(control(id)));
    } else if (row->kind == Control::Kind::check) {
        context_.document.setOn(field, isChecked(id));
    } else {
        return false;
    }
    return true;
}

void Page::onCommand(int id, int code) {
    if (isFilling_) return;
    if (code == BN_CLICKED && press(id)) return;
    const bool isChange =
        code == BN_CLICKED || code == EN_CHANGE || code == CBN_SELCHANGE || code == CBN_EDITCHANGE;
    if (!isChange) return;
    if (!takeRest(id, code) && !(isField(id) && takeField(id))) return;
    isFilling_ = true;
    refresh();
    isFilling_ = false;
    context_.onChanged();
}

INT_PTR CALLBACK Page::procedure(HWND window, UINT message, WPARAM wide, LPARAM longer) {
    if (message == WM_INITDIALOG) {
        SetWindowLongPtrW(window, DWLP_USER, longer);
        return FALSE;
    }
    Page* const page = reinterpret_cast<Page*>(GetWindowLongPtrW(window, DWLP_USER));
    if (page == nullptr) return FALSE;
    switch (message) {
        case WM_COMMAND:
            if (longer == 0 || LOWORD(wide) == IDOK || LOWORD(wide) == IDCANCEL) return FALSE;
            page->onCommand(LOWORD(wide), HIWORD(wide));
            return TRUE;
        case WM_NEXTDLGCTL:
            // A memo asks the page alone; the way of the Tab key goes on behind it.
            if (LOWORD(longer) != 0) return FALSE;
            SendMessageW(page->context_.frame, message, wide, longer);
            return TRUE;
        case WM_NOTIFY:
            page->onNotify(*reinterpret_cast<const NMHDR*>(longer));
            return FALSE;
        default:
            return FALSE;
    }
}

void Page::show(int id, std::string_view text) const {
    showText(control(id), text);
}

void Page::enable(int id, bool isEnabled) const noexcept {
    const HWND window = control(id);
    // A control that is switched off takes no keys: they go to the next one.
    if (!isEnabled && GetFocus() == window) SendMessageW(context_.frame, WM_NEXTDLGCTL, 0, FALSE);
    EnableWindow(window, isEnabled);
}

void Page::setChecked(int id, bool isChecked) const noexcept {
    SendMessageW(control(id), BM_SETCHECK, isChecked ? BST_CHECKED : BST_UNCHECKED, 0);
}

bool Page::isChecked(int id) const noexcept {
    return SendMessageW(control(id), BM_GETCHECK, 0, 0) == BST_CHECKED;
}

void Page::setChoices(int id, const Choices& choices, std::string_view meant) {
    auto known = std::find_if(choices_.begin(), choices_.end(),
                              [id](const auto& entry) { return entry.first == id; });
    if (known == choices_.end()) known = choices_.insert(known, {id, {}});
    if (known->second != choices) {
        known->second = choices;
        SendMessageW(control(id), CB_RESETCONTENT, 0, 0);
        for (const auto& [shown, unused] : choices) {
            SendMessageW(control(id), CB_ADDSTRING, 0,
                         reinterpret_cast<LPARAM>(wide(shown).c_str()));
        }
    }
    const auto line = std::find_if(choices.begin(), choices.end(),
                                   [meant](const auto& choice) { return choice.second == meant; });
    const auto number = line == choices.end() ? -1 : line - choices.begin();
    SendMessageW(control(id), CB_SETCURSEL, static_cast<WPARAM>(number), 0);
}

std::string Page::chosen(int id) const {
    const auto known = std::find_if(choices_.begin(), choices_.end(),
                                    [id](const auto& entry) { return entry.first == id; });
    const LRESULT line = SendMessageW(control(id), CB_GETCURSEL, 0, 0);
    if (known == choices_.end() || line < 0) return {};
    const auto number = static_cast<std::size_t>(line);
    return number < known->second.size() ? known->second[number].second : std::string();
}

}  // namespace velmora_settings
