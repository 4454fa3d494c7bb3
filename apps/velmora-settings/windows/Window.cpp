#include "apps/velmora-settings/windows/Window.h"

#include <commctrl.h>

#include "apps/velmora-settings/windows/Text.h"

namespace velmora_settings {
namespace {

constexpr UINT_PTR searchTimer = 1;
constexpr UINT searchEvery = 4000;  // ms from the end of one search to the next, about
constexpr DWORD frameStyle = WS_POPUP | WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX | DS_SETFOREGROUND;

// A dialog of the class that a second instance looks for; the tables fill it.
struct FrameTemplate {
    DLGTEMPLATE head;
    WORD menu;
    wchar_t className[std::size(windowClass)];
    WORD title;
};
const FrameTemplate* frameTemplate() {
    static FrameTemplate made = [] {
        FrameTemplate t{};
        t.head.style = frameStyle;
        t.head.dwExtendedStyle = WS_EX_APPWINDOW | WS_EX_CONTROLPARENT;
        for (std::size_t i = 0; i < std::size(windowClass); ++i) t.className[i] = windowClass[i];
        return t;
    }();
    return &made;
}

void registerClass(HINSTANCE instance) {
    WNDCLASSEXW what{};
    what.cbSize = sizeof what;
    what.lpfnWndProc = DefDlgProcW;
    what.cbWndExtra = DLGWINDOWEXTRA;
    what.hInstance = instance;
    what.hIcon = LoadIconW(nullptr, IDI_APPLICATION);
    what.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    what.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_3DFACE + 1);
    what.lpszClassName = windowClass;
    RegisterClassExW(&what);
}

// Newer systems scale dialogs by themselves when the monitor changes; here the tables do.
void keepSystemFromScaling(HWND window) {
    using Set = BOOL(WINAPI*)(HWND, int, int);
    constexpr int disableAll = 1;
    const HMODULE user = GetModuleHandleW(L"user32.dll");
    const auto set = reinterpret_cast<Set>(
        reinterpret_cast<void*>(GetProcAddress(user, "SetDialogDpiChangeBehavior")));
    if (set != nullptr) set(window, disableAll, disableAll);
}

int pageOf(FieldId field) {
    for (int page = 0; page < pageCount; ++page) {
        for (const Control& control : pageControls(page)) {
            if (control.id == fieldControl(field)) return page;
        }
    }
    return pageTransport;  // what stands there as several controls
}

}  // namespace

Window::Window(Document& document, Module& module, const std::string& folder)
    : context_{document, module, folder}, layout_(frameControls()) {
    context_.onChanged = [this] { showMessage(); };
    pages_ = {makeTargetPage(context_), makeAudioPage(context_), makeTransportPage(context_),
              makeDiagnosticsPage(context_)};
}

Window::~Window() {
    if (window_ != nullptr) DestroyWindow(window_);
    if (font_ != nullptr) DeleteObject(font_);
}

bool Window::run() {
    if (!create()) return false;
    isOpen_ = true;
    MSG message;
    while (isOpen_ && GetMessageW(&message, nullptr, 0, 0) > 0) {
        if (takesKey(message) || IsDialogMessageW(window_, &message)) continue;
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    KillTimer(window_, searchTimer);
    ShowWindow(window_, SW_HIDE);
    endWithoutTheSearch();
    return true;
}

// Audio software may stand still until this process ends, and a search may go on for minutes. What
// was to be written is written, and a search leaves nothing behind: the process ends with it.
void Window::endWithoutTheSearch() {
    constexpr std::chrono::seconds patience(1);
    context_.doctor.end();
    if (!context_.searcher.endsWithin(patience)) TerminateProcess(GetCurrentProcess(), 0);
}

bool Window::create() {
    const HINSTANCE instance = GetModuleHandleW(nullptr);
    registerClass(instance);
    CreateDialogIndirectParamW(instance, &frameTemplate()->head, nullptr, procedure,
                               reinterpret_cast<LPARAM>(this));
    if (window_ == nullptr) return false;
    keepSystemFromScaling(window_);
    SetWindowTextW(window_, L"KORVENTE Velmora settings");
    context_.frame = window_;
    createTabs();
    for (const auto& page : pages_) page->create(window_);
    layout_.create(window_);
    place(dpiOf(window_));
    turnTo(pageTarget, /*toFirstControl=*/false);
    showMessage();
    SetTimer(window_, searchTimer, searchEvery, nullptr);
    ShowWindow(window_, SW_SHOW);
    SetForegroundWindow(window_);
    SetFocus(tabs_);
    return true;
}

void Window::createTabs() {
    tabs_ = CreateWindowExW(
        0, WC_TABCONTROLW, L"Pages", WS_CHILD | WS_VISIBLE | WS_TABSTOP | WS_CLIPSIBLINGS, 0, 0, 0,
        0, window_, reinterpret_cast<HMENU>(static_cast<INT_PTR>(idTabs)), nullptr, nullptr);
    for (int page = 0; page < pageCount; ++page) {
        std::wstring title = wide(pageTitle(page));
        TCITEMW item{};
        item.mask = TCIF_TEXT;
        item.pszText = title.data();
        SendMessageW(tabs_, TCM_INSERTITEMW, static_cast<WPARAM>(page),
                     reinterpret_cast<LPARAM>(&item));
    }
}

void Window::place(UINT dpi) {
    const HFONT before = font_;
    font_ = makeDialogFont(dpi);
    RECT outside{0, 0, scaled(frameWidth, dpi), scaled(frameHeight, dpi)};
    AdjustWindowRectExForDpi(&outside, frameStyle, FALSE, 0, dpi);
    SetWindowPos(window_, nullptr, 0, 0, outside.right - outside.left, outside.bottom - outside.top,
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    SendMessageW(tabs_, WM_SETFONT, reinterpret_cast<WPARAM>(font_), FALSE);
    SetWindowPos(tabs_, nullptr, scaled(tabsX, dpi), scaled(tabsY, dpi), scaled(tabsW, dpi),
                 scaled(tabsH, dpi), SWP_NOZORDER | SWP_NOACTIVATE);
    layout_.place(dpi, font_);
    placePages(dpi);
    if (before != nullptr) DeleteObject(before);
    InvalidateRect(window_, nullptr, TRUE);
}

void Window::placePages(UINT dpi) {
    RECT inside{scaled(tabsX, dpi), scaled(tabsY, dpi), scaled(tabsX + tabsW, dpi),
                scaled(tabsY + tabsH, dpi)};
    SendMessageW(tabs_, TCM_ADJUSTRECT, FALSE, reinterpret_cast<LPARAM>(&inside));
    for (const auto& page : pages_) {
        // In front of the tabs, behind nothing: they share a place.
        SetWindowPos(page->window(), HWND_TOP, inside.left, inside.top, inside.right - inside.left,
                     inside.bottom - inside.top, SWP_NOACTIVATE | SWP_NOZORDER);
        page->place(dpi, font_);
    }
}

void Window::onDpiChanged(UINT dpi, const RECT& suggested) {
    SetWindowPos(window_, nullptr, suggested.left, suggested.top, 0, 0,
                 SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    place(dpi);
}

void Window::turnTo(int page, bool toFirstControl) {
    page_ = page;
    SendMessageW(tabs_, TCM_SETCURSEL, static_cast<WPARAM>(page), 0);
    for (int i = 0; i < pageCount; ++i) {
        if (i != page) pages_[static_cast<std::size_t>(i)]->show(false);
    }
    const auto& shown = pages_[static_cast<std::size_t>(page)];
    shown->show(true);
    if (!toFirstControl) return;
    const HWND first = GetNextDlgTabItem(shown->window(), nullptr, FALSE);
    SendMessageW(window_, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(first), TRUE);
}

bool Window::takesKey(const MSG& message) {
    if (message.message != WM_KEYDOWN) return false;
    if (message.hwnd != window_ && !IsChild(window_, message.hwnd)) return false;
    return GetKeyState(VK_CONTROL) < 0 ? turnsByKey(message.wParam) : endsByKey(message);
}

// Ctrl+Tab and Ctrl+Page Down turn to the next page, with Shift and Page Up to the one before.
bool Window::turnsByKey(WPARAM key) {
    int step = 0;
    if (key == VK_TAB) step = GetKeyState(VK_SHIFT) < 0 ? -1 : 1;
    if (key == VK_NEXT) step = 1;
    if (key == VK_PRIOR) step = -1;
    if (step == 0) return false;
    const bool wasOnTabs = GetFocus() == tabs_;
    turnTo((page_ + step + pageCount) % pageCount, /*toFirstControl=*/!wasOnTabs);
    return true;
}

// A memo keeps Enter and Escape to itself, and then asks the page, which has no such buttons.
bool Window::endsByKey(const MSG& message) {
    if (message.wParam != VK_RETURN && message.wParam != VK_ESCAPE) return false;
    if ((SendMessageW(message.hwnd, WM_GETDLGCODE, 0, 0) & DLGC_WANTALLKEYS) == 0) return false;
    PostMessageW(window_, WM_COMMAND, message.wParam == VK_RETURN ? IDOK : IDCANCEL, 0);
    return true;
}

void Window::showMessage() {
    const Document& document = context_.document;
    const auto problems = document.problems();
    std::string text;
    if (!problems.empty()) {
        text = problems[0].sentence;
    } else if (document.isChanged()) {
        text = document.okSentence();
    } else if (!document.notes().empty()) {
        text = document.notes()[0];
    }
    showText(GetDlgItem(window_, idMessage), text);
}

void Window::onOk() {
    const SaveResult result = context_.document.save();
    if (!result.isSaved) {
        tell(window_, result.sentence, /*isFault=*/true);
        const auto problems = context_.document.problems();
        if (!problems.empty()) goTo(problems[0].field);
        return;
    }
    if (!result.sentence.empty()) tell(window_, result.sentence, /*isFault=*/false);
    isOpen_ = false;
}

void Window::goTo(FieldId field) {
    const int page = pageOf(field);
    if (page != page_) turnTo(page, /*toFirstControl=*/true);
    const HWND control =
        GetDlgItem(pages_[static_cast<std::size_t>(page)]->window(), fieldControl(field));
    if (control != nullptr && IsWindowEnabled(control)) {
        SendMessageW(window_, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(control), TRUE);
    }
}

INT_PTR CALLBACK Window::procedure(HWND window, UINT message, WPARAM wide, LPARAM longer) {
    if (message == WM_INITDIALOG) {
        SetWindowLongPtrW(window, DWLP_USER, longer);
        reinterpret_cast<Window*>(longer)->window_ = window;
        return FALSE;
    }
    Window* const self = reinterpret_cast<Window*>(GetWindowLongPtrW(window, DWLP_USER));
    return self != nullptr ? self->onMessage(message, wide, longer) : FALSE;
}

INT_PTR Window::onMessage(UINT message, WPARAM wide, LPARAM longer) {
    switch (message) {
        case WM_COMMAND:
            if (LOWORD(wide) == IDOK) onOk();
            if (LOWORD(wide) == IDCANCEL) isOpen_ = false;
            return TRUE;
        case WM_CLOSE:
            isOpen_ = false;
            return TRUE;
        case WM_NOTIFY: {
            const NMHDR& what = *reinterpret_cast<const NMHDR*>(longer);
            if (what.hwndFrom == tabs_ && what.code == TCN_SELCHANGE) {
                turnTo(static_cast<int>(SendMessageW(tabs_, TCM_GETCURSEL, 0, 0)),
                       /*toFirstControl=*/false);
            }
            return FALSE;
        }
        case WM_TIMER:
            pages_[pageTarget]->onTimer();
            return TRUE;
        case WM_DPICHANGED:
            onDpiChanged(HIWORD(wide), *reinterpret_cast<const RECT*>(longer));
            return TRUE;
        case messageFound:
            pages_[pageTarget]->onFound();
            return TRUE;
        case messageDoctorDone:
            pages_[pageDiagnostics]->onDoctorDone();
            return TRUE;
        default:
            return FALSE;
    }
}

}  // namespace velmora_settings
