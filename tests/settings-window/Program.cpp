#include "tests/settings-window/Program.h"

#include <commctrl.h>
#include <shlobj.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace velmora_test {
namespace {

namespace fs = std::filesystem;
using namespace velmora_settings;

std::wstring ownFolder() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring folder = path;
    folder.resize(folder.rfind(L'\\') + 1);
    return folder;
}

std::wstring roamingFolder() {
    wchar_t path[MAX_PATH] = {};
    SHGetSpecialFolderPathW(nullptr, path, CSIDL_APPDATA, FALSE);
    return path;
}

// Read-only marks and all.
void removeAll(const fs::path& path) {
    std::error_code ignored;
    if (fs::exists(path, ignored)) {
        for (const auto& entry : fs::recursive_directory_iterator(path, ignored)) {
            SetFileAttributesW(entry.path().c_str(), FILE_ATTRIBUTE_NORMAL);
        }
    }
    fs::remove_all(path, ignored);
}

// The folder stays: it may be a disk of its own.
void removeContents(const fs::path& path) {
    std::error_code ignored;
    if (!fs::exists(path, ignored)) return;
    for (const auto& entry : fs::directory_iterator(path, ignored)) {
        SetFileAttributesW(entry.path().c_str(), FILE_ATTRIBUTE_NORMAL);
        removeAll(entry.path());
    }
}

}  // namespace

bool comesTrue(const std::function<bool()>& isSo) {
    for (int i = 0; i < 3000; ++i) {
        if (isSo()) return true;
        Sleep(10);
    }
    return isSo();
}

std::wstring textOf(HWND window) {
    // By a message: GetWindowText does not read controls of another program.
    const auto length = static_cast<std::size_t>(SendMessageW(window, WM_GETTEXTLENGTH, 0, 0));
    std::wstring text(length + 1, L'\0');
    const auto copied = static_cast<std::size_t>(
        SendMessageW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data())));
    text.resize(copied);
    return text;
}

std::wstring wide(const std::string& utf8) {
    const int size = static_cast<int>(utf8.size());
    std::wstring out(utf8.size(), L'\0');
    out.resize(static_cast<std::size_t>(
        MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, out.data(), size)));
    return out;
}

std::string narrow(const std::wstring& text) {
    const int units = static_cast<int>(text.size());
    std::string out(text.size() * 3, '\0');
    out.resize(static_cast<std::size_t>(WideCharToMultiByte(
        CP_UTF8, 0, text.data(), units, out.data(), units * 3, nullptr, nullptr)));
    return out;
}

// ---- folders ----

Folders::Folders()
    : driver_(L"C:\\velmora-settings-test\\"), user_(roamingFolder() + L"\\KORVENTE Velmora\\") {
    removeAll(driver_);
    removeContents(user_);
    fs::create_directories(driver_);
    fs::create_directories(user_);
    for (const wchar_t* name :
         {L"velmora-settings.exe", L"velmora-find.exe", L"asio_korvente_x64.dll"}) {
        fs::copy_file(ownFolder() + name, driver_ + name);
    }
    const char* const factory = std::getenv("VELMORA_FACTORY_SETTINGS");
    if (factory == nullptr) throw std::runtime_error("VELMORA_FACTORY_SETTINGS names no file");
    fs::copy_file(wide(factory), driver_ + L"setting_org.inf");
}

Folders::~Folders() {
    removeContents(user_);
    removeAll(driver_);
}

void Folders::takeSlowFinder() const {
    fs::copy_file(ownFolder() + L"slow-finder.dll", driver_ + L"asio_korvente_x64.dll",
                  fs::copy_options::overwrite_existing);
}

void Folders::write(const std::wstring& path, const std::string& text) {
    std::ofstream(fs::path(path), std::ios::binary) << text;
}

std::string Folders::read(const std::wstring& path) {
    std::ifstream file(fs::path(path), std::ios::binary);
    if (!file.is_open()) return "(none)";
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::vector<std::wstring> Folders::entries(const std::wstring& folder) {
    std::vector<std::wstring> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename().wstring());
    }
    return names;
}

// ---- the program ----

HANDLE startProgram(const Folders& folders) {
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION made{};
    if (!CreateProcessW(folders.program().c_str(), nullptr, nullptr, nullptr, FALSE, 0, nullptr,
                        nullptr, &startup, &made)) {
        throw std::runtime_error("the program does not start");
    }
    CloseHandle(made.hThread);
    return made.hProcess;
}

Program::Program(const Folders& folders) : process_(startProgram(folders)) {
    awaitWindow();
}

Program::Program() {
    awaitWindow();
    DWORD id = 0;
    GetWindowThreadProcessId(frame_, &id);
    process_ = OpenProcess(PROCESS_ALL_ACCESS, FALSE, id);
}

void Program::awaitWindow() {
    comesTrue([this] {
        frame_ = FindWindowW(windowClass, nullptr);
        return (process_ != nullptr && hasEnded()) ||
               (frame_ != nullptr && IsWindowVisible(frame_));
    });
    if (frame_ == nullptr) {
        if (process_ != nullptr) TerminateProcess(process_, 99);  // it is in nobody's way
        throw std::runtime_error("no window came");
    }
    comeToFront();
}

// Keys that are sent before the focus has come are nobody's.
void Program::comeToFront() {
    SetForegroundWindow(frame_);
    comesTrue(
        [this] { return hasEnded() || (GetForegroundWindow() == frame_ && focus() != nullptr); });
}

Program::~Program() {
    if (!hasEnded()) {
        TerminateProcess(process_, 99);
        WaitForSingleObject(process_, INFINITE);
    }
    CloseHandle(process_);
}

int Program::shownPage() const {
    for (int i = 0; i < pageCount; ++i) {
        if (IsWindowVisible(page(i))) return i;
    }
    return -1;
}

void Program::turnTo(int page) {
    comeToFront();
    for (int i = 0; i < pageCount && shownPage() != page; ++i) {
        const int before = shownPage();
        keys({VK_CONTROL, VK_NEXT});
        comesTrue([&] { return shownPage() != before; });
    }
}

void Program::enter(int page, int id, const std::string& text) {
    SendMessageW(control(page, id), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(wide(text).c_str()));
}

void Program::choose(int page, int id, int line) {
    const HWND combo = control(page, id);
    SendMessageW(combo, CB_SETCURSEL, static_cast<WPARAM>(line), 0);
    SendMessageW(this->page(page), WM_COMMAND, MAKEWPARAM(static_cast<WORD>(id), CBN_SELCHANGE),
                 reinterpret_cast<LPARAM>(combo));
}

void Program::typeInto(int page, int id, const std::string& text) {
    const HWND combo = control(page, id);
    SendMessageW(combo, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(wide(text).c_str()));
    SendMessageW(this->page(page), WM_COMMAND, MAKEWPARAM(static_cast<WORD>(id), CBN_EDITCHANGE),
                 reinterpret_cast<LPARAM>(combo));
}

void Program::press(int page, int id) {
    PostMessageW(control(page, id), BM_CLICK, 0, 0);
}

void Program::changeMonitor(UINT dpi) {
    auto* const there = static_cast<RECT*>(
        VirtualAllocEx(process_, nullptr, sizeof(RECT), MEM_COMMIT, PAGE_READWRITE));
    const RECT here{40, 30, 1000, 900};
    WriteProcessMemory(process_, there, &here, sizeof here, nullptr);
    SendMessageW(frame_, WM_DPICHANGED, MAKEWPARAM(dpi, dpi), reinterpret_cast<LPARAM>(there));
    VirtualFreeEx(process_, there, 0, MEM_RELEASE);
}

void Program::keys(const std::vector<WORD>& together) {
    std::vector<INPUT> inputs;
    const auto add = [&](WORD key, DWORD flags) {
        INPUT input{};
        input.type = INPUT_KEYBOARD;
        input.ki.wVk = key;
        input.ki.dwFlags = flags;
        const bool isExtended = key == VK_NEXT || key == VK_PRIOR;
        if (isExtended) input.ki.dwFlags |= KEYEVENTF_EXTENDEDKEY;
        inputs.push_back(input);
    };
    for (const WORD key : together) add(key, 0);
    for (auto key = together.rbegin(); key != together.rend(); ++key) add(*key, KEYEVENTF_KEYUP);
    SendInput(static_cast<UINT>(inputs.size()), inputs.data(), sizeof(INPUT));
    awaitInputRead();
}

// A window is painted when its program has read all keys; a message sent is handled behind what it
// does at that moment.
void Program::awaitInputRead() const {
    RedrawWindow(frame_, nullptr, nullptr, RDW_INVALIDATE | RDW_NOCHILDREN);
    comesTrue([this] { return hasEnded() || GetUpdateRect(frame_, nullptr, FALSE) == 0; });
    SendMessageW(frame_, WM_NULL, 0, 0);
}

void Program::type(const std::wstring& text) {
    for (const wchar_t c : text) keys({static_cast<WORD>(VkKeyScanW(c) & 0xff)});
}

HWND Program::focus() const {
    GUITHREADINFO info{};
    info.cbSize = sizeof info;
    GetGUIThreadInfo(GetWindowThreadProcessId(frame_, nullptr), &info);
    return info.hwndFocus;
}

std::wstring Program::readBox() {
    HWND box = nullptr;
    comesTrue([&] {
        box = GetLastActivePopup(frame_);
        return box != frame_ && IsWindowVisible(box);
    });
    if (box == frame_) return L"(no box)";
    std::wstring sentence;
    for (HWND child = GetWindow(box, GW_CHILD); child != nullptr;
         child = GetWindow(child, GW_HWNDNEXT)) {
        wchar_t name[16] = {};
        GetClassNameW(child, name, 16);
        if (std::wstring(name) == L"Static" && !textOf(child).empty()) sentence = textOf(child);
    }
    PostMessageW(box, WM_COMMAND, IDOK, 0);
    comesTrue([&] { return !IsWindow(box); });
    return sentence;
}

bool Program::ends() {
    return comesTrue([this] { return hasEnded(); });
}

DWORD Program::exitCode() const {
    DWORD code = STILL_ACTIVE;
    GetExitCodeProcess(process_, &code);
    return code;
}

std::wstring Program::cell(int line, int column) const {
    struct There {
        LVITEMW item;
        wchar_t text[128];
    };
    auto* const there = static_cast<There*>(
        VirtualAllocEx(process_, nullptr, sizeof(There), MEM_COMMIT, PAGE_READWRITE));
    There here{};
    here.item.iSubItem = column;
    here.item.pszText = there->text;
    here.item.cchTextMax = 128;
    WriteProcessMemory(process_, there, &here, sizeof here, nullptr);
    SendMessageW(control(pageTarget, idTargets), LVM_GETITEMTEXTW, static_cast<WPARAM>(line),
                 reinterpret_cast<LPARAM>(&there->item));
    ReadProcessMemory(process_, there, &here, sizeof here, nullptr);
    VirtualFreeEx(process_, there, 0, MEM_RELEASE);
    return here.text;
}

}  // namespace velmora_test
