#include "apps/velmora-register/windows/Files.h"

#include <windows.h>

#include <restartmanager.h>
#include <tlhelp32.h>

#include <algorithm>
#include <cwchar>
#include <memory>

namespace velmora_register {
namespace {

struct Closer {
    using pointer = HANDLE;
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<HANDLE, Closer>;

Handle owned(HANDLE handle) {
    return Handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

bool sameLetters(const std::wstring& a, const std::wstring& b) {
    return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(),
                                static_cast<int>(b.size()), TRUE) == CSTR_EQUAL;
}

bool numbersOf(const std::wstring& path, BY_HANDLE_FILE_INFORMATION& out) {
    const Handle file =
        owned(CreateFileW(path.c_str(), 0, shareAll, nullptr, OPEN_EXISTING, 0, nullptr));
    return file != nullptr && GetFileInformationByHandle(file.get(), &out) != 0;
}

std::wstring named(const std::wstring& program, DWORD process) {
    return program + L" (process " + std::to_wstring(process) + L")";
}

std::wstring programOf(DWORD process) {
    const Handle handle = owned(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process));
    std::wstring path(32768, L'\0');
    auto length = static_cast<DWORD>(path.size());
    if (handle == nullptr || !QueryFullProcessImageNameW(handle.get(), 0, path.data(), &length)) {
        return {};
    }
    path.resize(length);
    return leafOf(path);
}

// The system's own book of who uses what: files that are open, too, and programs of other users.
std::vector<std::wstring> askRestartManager(const std::vector<std::wstring>& paths) {
    std::vector<std::wstring> out;
    DWORD session = 0;
    wchar_t key[CCH_RM_SESSION_KEY + 1] = {};
    if (RmStartSession(&session, 0, key) != ERROR_SUCCESS) return out;
    std::vector<LPCWSTR> names;
    for (const std::wstring& path : paths) names.push_back(path.c_str());
    UINT needed = 0, count = 0;
    DWORD reasons = 0, result = RmRegisterResources(session, static_cast<UINT>(names.size()),
                                                    names.data(), 0, nullptr, 0, nullptr);
    std::vector<RM_PROCESS_INFO> found;
    // More programs may come between two questions.
    for (int tries = 0; tries < 5 && (result == ERROR_SUCCESS || result == ERROR_MORE_DATA);
         ++tries) {
        count = static_cast<UINT>(found.size());
        result =
            RmGetList(session, &needed, &count, found.empty() ? nullptr : found.data(), &reasons);
        if (result == ERROR_SUCCESS) break;
        found.resize(needed + 4);
    }
    if (result == ERROR_SUCCESS) {
        found.resize(std::min<std::size_t>(count, found.size()));
        for (const RM_PROCESS_INFO& info : found) {
            const DWORD process = info.Process.dwProcessId;
            const std::wstring program = programOf(process);
            out.push_back(named(program.empty() ? info.strAppName : program, process));
        }
    }
    RmEndSession(session);
    return out;
}

bool hasLoaded(DWORD process, const std::vector<std::wstring>& paths) {
    HANDLE taken = INVALID_HANDLE_VALUE;
    // A program that is just loading modules has no list of them for a moment.
    for (int tries = 0; tries < 10 && taken == INVALID_HANDLE_VALUE; ++tries) {
        taken = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, process);
        if (taken == INVALID_HANDLE_VALUE && GetLastError() != ERROR_BAD_LENGTH) return false;
    }
    const Handle modules = owned(taken);
    if (modules == nullptr) return false;
    MODULEENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Module32FirstW(modules.get(), &entry); more;
         more = Module32NextW(modules.get(), &entry)) {
        for (const std::wstring& path : paths) {
            if (isSameFile(path, entry.szExePath)) return true;
        }
    }
    return false;
}

std::vector<std::wstring> walkModules(const std::vector<std::wstring>& paths) {
    std::vector<std::wstring> out;
    const Handle processes = owned(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (processes == nullptr) return out;
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(processes.get(), &entry); more;
         more = Process32NextW(processes.get(), &entry)) {
        // Number 0 would be this program itself.
        if (entry.th32ProcessID == 0 || entry.th32ProcessID == GetCurrentProcessId()) continue;
        if (hasLoaded(entry.th32ProcessID, paths)) {
            out.push_back(named(leafOf(entry.szExeFile), entry.th32ProcessID));
        }
    }
    return out;
}

}  // namespace

std::wstring fullPath(const std::wstring& path) {
    std::wstring out(32768, L'\0');
    const DWORD length =
        GetFullPathNameW(path.c_str(), static_cast<DWORD>(out.size()), out.data(), nullptr);
    if (length == 0 || length >= out.size()) return path;
    out.resize(length);
    return out;
}

std::wstring leafOf(const std::wstring& path) {
    const auto slash = path.find_last_of(L"\\/");
    return slash == std::wstring::npos ? path : path.substr(slash + 1);
}

bool isSameFile(const std::wstring& a, const std::wstring& b) {
    if (sameLetters(a, b)) return true;
    // What runs has its own name, or a short one with a tilde: no other file needs to be opened.
    if (!sameLetters(leafOf(a), leafOf(b)) && leafOf(b).find(L'~') == std::wstring::npos) {
        return false;
    }
    BY_HANDLE_FILE_INFORMATION one{}, other{};
    return numbersOf(a, one) && numbersOf(b, other) &&
           one.dwVolumeSerialNumber == other.dwVolumeSerialNumber &&
           one.nFileIndexHigh == other.nFileIndexHigh && one.nFileIndexLow == other.nFileIndexLow;
}

bool isFile(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool isHeld(const std::wstring& path) {
    const Handle file = owned(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, shareAll,
                                          nullptr, OPEN_EXISTING, 0, nullptr));
    if (file != nullptr) return false;
    const DWORD error = GetLastError();
    return error == ERROR_SHARING_VIOLATION || error == ERROR_USER_MAPPED_FILE ||
           error == ERROR_LOCK_VIOLATION;
}

std::vector<std::wstring> holdersOf(const std::vector<std::wstring>& paths) {
    std::vector<std::wstring> out = askRestartManager(paths);
    // Not every system keeps that book.
    if (out.empty()) out = walkModules(paths);
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end()), out.end());
    return out;
}

}  // namespace velmora_register
