// The settings program as it runs: started from a folder of the test's own, looked at and pressed
// through its windows, as a person at the screen does.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "apps/velmora-settings/windows/Ids.h"

namespace velmora_test {

// Waits until it is so; false after half a minute.
bool comesTrue(const std::function<bool()>& isSo);

std::wstring textOf(HWND window);
std::wstring wide(const std::string& utf8);
std::string narrow(const std::wstring& text);

// Where the program under test and the user's settings lie.
class Folders {
public:
    Folders();   // the program with all beside it; no settings
    ~Folders();  // everything as it was before

    std::wstring program() const { return driver_ + L"velmora-settings.exe"; }
    const std::wstring& driver() const { return driver_; }
    const std::wstring& user() const { return user_; }
    std::wstring settings() const { return user_ + L"setting.inf"; }
    void takeSlowFinder() const;  // a driver's module whose search comes to no end

    static void write(const std::wstring& path, const std::string& text);
    static std::string read(const std::wstring& path);  // "(none)" where there is none
    static std::vector<std::wstring> entries(const std::wstring& folder);

private:
    std::wstring driver_, user_;
};

class Program {
public:
    explicit Program(const Folders& folders);  // started by the test
    Program();                                 // started by somebody else, in a moment
    ~Program();                                // ends it, if it still runs
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    HWND frame() const { return frame_; }
    HWND page(int number) const { return GetDlgItem(frame_, velmora_settings::idPages + number); }
    HWND control(int page, int id) const { return GetDlgItem(this->page(page), id); }
    std::wstring text(int page, int id) const { return textOf(control(page, id)); }
    std::wstring message() const { return textOf(GetDlgItem(frame_, velmora_settings::idMessage)); }
    int shownPage() const;

    // By messages, as a program that reads windows aloud does it.
    void turnTo(int page);
    void enter(int page, int id, const std::string& text);
    void choose(int page, int id, int line);
    void typeInto(int page, int id, const std::string& text);  // the edit of a combo
    void press(int page, int id);                              // does not wait for what comes of it
    void pressOk() { PostMessageW(frame_, WM_COMMAND, IDOK, 0); }
    void pressCancel() { PostMessageW(frame_, WM_COMMAND, IDCANCEL, 0); }

    // As the system does it when the window comes to another monitor.
    void changeMonitor(UINT dpi);

    // By keys, as the focus is.
    void keys(const std::vector<WORD>& together);
    void type(const std::wstring& text);
    HWND focus() const;

    // A box that the program shows: its sentence, once it is there; then it is closed.
    std::wstring readBox();

    bool hasEnded() const { return WaitForSingleObject(process_, 0) == WAIT_OBJECT_0; }
    bool ends();  // within the patience of comesTrue
    DWORD exitCode() const;

    // A cell of the list of targets, which lies in the other program's memory.
    std::wstring cell(int line, int column) const;

private:
    void awaitWindow();
    void comeToFront();
    void awaitInputRead() const;

    HANDLE process_ = nullptr;
    HWND frame_ = nullptr;
};

// Starts the program without waiting for a window.
HANDLE startProgram(const Folders& folders);

}  // namespace velmora_test
