// velmora-register: registers the driver, takes that back, looks at what is registered, and says
// which program has a file open. Judges by the registry alone.

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

#include "apps/velmora-register/ExitCode.h"
#include "apps/velmora-register/Registration.h"
#include "apps/velmora-register/windows/Files.h"
#include "apps/velmora-register/windows/WindowsSystem.h"

namespace velmora_register {
namespace {

constexpr const wchar_t* usage =
    L"velmora-register status [DLL]      what the registry says of the driver\n"
    L"velmora-register register [DLL]    register it, and look whether that holds\n"
    L"velmora-register unregister [DLL]  take that out again; another file's is left alone\n"
    L"velmora-register users FILE...     which programs have a file open\n"
    L"velmora-register fits DLL          whether audio software can read this path\n"
    L"\n"
    L"DLL: asio_korvente_x64.dll beside this program, without a name. --report FILE in front "
    L"writes\n"
    L"the sentence into a file instead, in UTF-16. Exit codes: 0 as it should be; 1 not "
    L"registered;\n"
    L"2 wrong arguments; 3 a program has a file open; 4 a path that does not serve; 5 registered\n"
    L"from another file; 6 the registry does not say what it should; 7 no administrator's "
    L"rights.\n";

Answer users(const std::vector<std::wstring>& paths) {
    std::vector<std::wstring> held;
    for (const std::wstring& path : paths) {
        if (isFile(path) && isHeld(path)) held.push_back(path);
    }
    if (held.empty()) return {exitDone, {}};
    std::wstring who;
    for (const std::wstring& name : holdersOf(held)) who += (who.empty() ? L"" : L", ") + name;
    return {exitInUse, (who.empty() ? L"A program" : who) + L" has " + leafOf(held.front()) +
                           L" open. Close it and try again."};
}

Answer fits(const std::wstring& dll) {
    std::wstring why = WindowsSystem().unfitPath(dll);
    return {why.empty() ? exitDone : exitFolder, std::move(why)};
}

Answer answer(std::vector<std::wstring> words) {
    if (words.empty()) words.emplace_back(L"status");
    const std::wstring command = words.front();
    std::vector<std::wstring> paths;
    for (auto word = words.begin() + 1; word != words.end(); ++word)
        paths.push_back(fullPath(*word));
    if (command == L"users" && !paths.empty()) return users(paths);
    if (paths.size() > 1 || (paths.empty() && command == L"fits")) return {exitUsage, usage};
    if (paths.empty()) {
        wchar_t program[32768] = {};
        GetModuleFileNameW(nullptr, program, 32768);
        const std::wstring path = program;
        paths.push_back(path.substr(0, path.size() - leafOf(path).size()) +
                        L"asio_korvente_x64.dll");
    }
    WindowsSystem system;
    if (command == L"status") return status(system, paths.front());
    if (command == L"register") return doRegister(system, paths.front());
    if (command == L"unregister") return doUnregister(system, paths.front());
    if (command == L"fits") return fits(paths.front());
    return {command == L"--help" ? exitDone : exitUsage, usage};
}

void put(HANDLE to, const void* bytes, std::size_t count) {
    DWORD written = 0;
    WriteFile(to, bytes, static_cast<DWORD>(count), &written, nullptr);
}

// A console takes wide text, everything else UTF-8.
void print(std::wstring text) {
    if (text.empty()) return;
    if (text.back() != L'\n') text += L"\n";
    const HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0, written = 0;
    if (GetConsoleMode(out, &mode)) {
        WriteConsoleW(out, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
        return;
    }
    const int size = static_cast<int>(text.size());
    const int length =
        WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
    std::string bytes(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), size, bytes.data(), length, nullptr, nullptr);
    put(out, bytes.data(), bytes.size());
}

bool report(const std::wstring& path, const std::wstring& text) {
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    const std::wstring marked = L"\xFEFF" + text;
    put(file, marked.data(), marked.size() * sizeof(wchar_t));
    CloseHandle(file);
    return true;
}

int run(std::vector<std::wstring> words) {
    std::wstring reportPath;
    if (words.size() >= 2 && words.front() == L"--report") {
        reportPath = words[1];
        words.erase(words.begin(), words.begin() + 2);
    }
    const Answer said = answer(std::move(words));
    if (reportPath.empty() || !report(reportPath, said.sentence)) print(said.sentence);
    return said.code;
}

}  // namespace
}  // namespace velmora_register

int wmain(int count, wchar_t** values) {
    return velmora_register::run({values + 1, values + count});
}
