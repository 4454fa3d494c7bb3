#include "platform/System.h"

#include <windows.h>

#include <shellapi.h>
#include <shlobj.h>

#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <exception>
#include <memory>
#include <string_view>

#include "platform/windows/Wide.h"

namespace ZENNO::platform {

namespace {

constexpr std::wstring_view driverModule = L"asio_korvente_x64.dll";

struct CloseFile {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

File openFile(const std::string& path, const wchar_t* mode) noexcept {
    WidePath wide;
    std::FILE* file = nullptr;
    if (!toWide(path, wide) || _wfopen_s(&file, wide.data(), mode) != 0) return nullptr;
    return File(file);
}

}  // namespace

std::string processPath() {
    std::array<wchar_t, 522> path;
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length >= path.size()) return {};  // cut: it names another file
    return toUtf8(path.data(), length);
}

std::string driverFolder() {
    const HMODULE module = GetModuleHandleW(driverModule.data());
    if (!module) {
        const std::string program = processPath();
        return program.substr(0, program.rfind('\\') + 1);
    }
    // Cut by the length of the name alone: the loader spells the path with the name in whatever
    // case and form it was asked for, but always this long.
    WidePath path;
    const std::size_t length =
        GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
    const std::size_t kept = length - driverModule.size();
    if (kept >= path.size()) std::abort();  // a loaded module without a path
    return toUtf8(path.data(), kept);
}

std::string roamingFolder() {
    WidePath path;
    if (!SHGetSpecialFolderPathW(nullptr, path.data(), CSIDL_APPDATA, FALSE)) return {};
    return toUtf8(path.data(), std::wcslen(path.data()));
}

FileKind fileKind(const std::string& path) {
    WidePath wide;
    if (!toWide(path, wide)) return FileKind::missing;
    const DWORD attributes = GetFileAttributesW(wide.data());
    if (attributes == INVALID_FILE_ATTRIBUTES) return FileKind::missing;
    return attributes & FILE_ATTRIBUTE_DIRECTORY ? FileKind::folder : FileKind::file;
}

bool readWholeFile(const std::string& path, std::vector<std::uint8_t>& data) try {
    const File file = openFile(path, L"rb");
    if (!file || _fseeki64(file.get(), 0, SEEK_END) != 0) return false;
    const std::int64_t size = _ftelli64(file.get());
    if (size < 0 || _fseeki64(file.get(), 0, SEEK_SET) != 0) return false;
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
    if (std::fread(bytes.data(), 1, bytes.size(), file.get()) != bytes.size()) return false;
    data = std::move(bytes);
    return true;
} catch (const std::exception&) {
    return false;  // larger than memory
}

bool writeWholeFile(const std::string& path, const std::uint8_t* data, std::uint64_t size) {
    File file = openFile(path, L"wb");
    if (!file) return false;
    const bool written = size == 0 || std::fwrite(data, 1, size, file.get()) == size;
    return std::fclose(file.release()) == 0 && written;
}

bool deleteFile(const std::string& path) {
    WidePath wide;
    return toWide(path, wide) && _wremove(wide.data()) == 0;
}

bool runProgramAndWait(const std::string& path, const std::function<void()>& onStarted) {
    constexpr INT_PTR lastShellError = 32;
    WidePath wide;
    if (!toWide(path, wide)) return false;
    SHELLEXECUTEINFOW what{};
    what.cbSize = sizeof what;
    what.fMask = SEE_MASK_NOCLOSEPROCESS;
    what.lpFile = wide.data();
    what.nShow = SW_SHOWNORMAL;
    if (!ShellExecuteExW(&what) || reinterpret_cast<INT_PTR>(what.hInstApp) <= lastShellError) {
        return false;
    }
    if (onStarted) onStarted();
    // No process: the shell has handed the path to a program that was running, and there is nothing
    // to wait for.
    if (what.hProcess) {
        WaitForSingleObject(what.hProcess, INFINITE);
        CloseHandle(what.hProcess);
    }
    return true;
}

std::string errorText(std::int32_t code) {
    std::array<wchar_t, 512> text;
    std::size_t length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                        nullptr, static_cast<DWORD>(code), 0, text.data(),
                                        static_cast<DWORD>(text.size()), nullptr);
    while (length > 0 && text[length - 1] <= L' ') --length;
    if (length == 0) return "error " + std::to_string(code);
    return toUtf8(text.data(), length);
}

}  // namespace ZENNO::platform
