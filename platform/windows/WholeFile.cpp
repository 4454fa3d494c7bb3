#include "platform/WholeFile.h"

#include <windows.h>

#include <vector>

#include "platform/windows/Wide.h"

namespace ZENNO::platform {

namespace {

// ERROR_DISK_QUOTA_EXCEEDED, which not every copy of the headers has.
constexpr DWORD quotaExceeded = 1295;

WriteOutcome outcomeOf(DWORD error) noexcept {
    switch (error) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
        case ERROR_INVALID_NAME:
            return WriteOutcome::noFolder;
        case ERROR_WRITE_PROTECT:
            return WriteOutcome::readOnly;
        case ERROR_SHARING_VIOLATION:
        case ERROR_LOCK_VIOLATION:
        case ERROR_USER_MAPPED_FILE:
            return WriteOutcome::inUse;
        case ERROR_DISK_FULL:
        case ERROR_HANDLE_DISK_FULL:
        case quotaExceeded:
            return WriteOutcome::noRoom;
        default:
            return WriteOutcome::refused;
    }
}

// 0, or the error that stopped it.
DWORD writeAll(HANDLE file, const std::uint8_t* data, std::uint64_t size) noexcept {
    constexpr std::uint64_t piece = 1u << 20;
    while (size > 0) {
        const DWORD wanted = static_cast<DWORD>(size < piece ? size : piece);
        DWORD written = 0;
        if (!WriteFile(file, data, wanted, &written, nullptr)) return GetLastError();
        if (written == 0) return ERROR_DISK_FULL;
        data += written;
        size -= written;
    }
    return FlushFileBuffers(file) ? 0 : GetLastError();
}

// Whether the file in place may be replaced; the rename itself tells less of why not.
WriteOutcome mayReplace(const wchar_t* path) noexcept {
    const DWORD attributes = GetFileAttributesW(path);
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        const DWORD error = GetLastError();
        return error == ERROR_FILE_NOT_FOUND ? WriteOutcome::done : outcomeOf(error);
    }
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) return WriteOutcome::refused;
    if (attributes & FILE_ATTRIBUTE_READONLY) return WriteOutcome::readOnly;
    constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const HANDLE held = CreateFileW(path, GENERIC_READ | GENERIC_WRITE | DELETE, shareAll, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (held == INVALID_HANDLE_VALUE) return outcomeOf(GetLastError());
    CloseHandle(held);
    return WriteOutcome::done;
}

// What a file has besides its bytes: its marks, and who may do what with it. ReplaceFileW would
// carry them over as well, but it may fail half-way, with nothing left in the place.
struct Marks {
    DWORD attributes = 0;              // 0 where there is no file
    std::vector<std::uint8_t> rights;  // a security descriptor; empty where there is none
};

Marks marksOf(const wchar_t* path) {
    constexpr DWORD kept =
        FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;
    Marks marks;
    const DWORD attributes = GetFileAttributesW(path);
    if (attributes == INVALID_FILE_ATTRIBUTES) return marks;
    marks.attributes = (attributes & kept) | FILE_ATTRIBUTE_ARCHIVE;  // as all that was written
    DWORD size = 0;
    GetFileSecurityW(path, DACL_SECURITY_INFORMATION, nullptr, 0, &size);
    marks.rights.resize(size);
    if (size == 0 ||
        !GetFileSecurityW(path, DACL_SECURITY_INFORMATION, marks.rights.data(), size, &size)) {
        marks.rights.clear();
        return marks;
    }
    // What was inherited stays so: the folder's rights rule it as before.
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    GetSecurityDescriptorControl(marks.rights.data(), &control, &revision);
    if ((control & SE_DACL_AUTO_INHERITED) != 0) {
        SetSecurityDescriptorControl(marks.rights.data(), SE_DACL_AUTO_INHERIT_REQ,
                                     SE_DACL_AUTO_INHERIT_REQ);
    }
    return marks;
}

// A medium that knows none of it refuses, and there is nothing to lose.
void setMarks(const wchar_t* path, Marks& marks) noexcept {
    if (marks.attributes != 0) SetFileAttributesW(path, marks.attributes);
    if (marks.rights.empty()) return;
    SetFileSecurityW(path, DACL_SECURITY_INFORMATION, marks.rights.data());
}

bool folderIsThere(const wchar_t* path) noexcept {
    const DWORD attributes = GetFileAttributesW(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

}  // namespace

WriteOutcome replaceWholeFile(const std::string& path, const std::uint8_t* data,
                              std::uint64_t size) {
    WidePath place, fresh;
    if (path.empty() || !toWide(path, place) || !toWide(path + ".new", fresh)) {
        return WriteOutcome::noFolder;
    }
    if (const WriteOutcome may = mayReplace(place.data()); may != WriteOutcome::done) return may;
    Marks marks = marksOf(place.data());
    DeleteFileW(fresh.data());  // of a write that was broken off: hidden, it could not be opened
    const HANDLE file = CreateFileW(fresh.data(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return outcomeOf(GetLastError());
    DWORD error = writeAll(file, data, size);
    if (!CloseHandle(file) && error == 0) error = GetLastError();
    if (error == 0) setMarks(fresh.data(), marks);
    if (error == 0 && !MoveFileExW(fresh.data(), place.data(),
                                   MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        error = GetLastError();
    }
    if (error == 0) return WriteOutcome::done;
    DeleteFileW(fresh.data());
    return outcomeOf(error);
}

bool makeFolder(const std::string& path) {
    if (path.empty()) return false;
    for (std::size_t end = path.find('\\');; end = path.find('\\', end + 1)) {
        WidePath part;
        if (!toWide(path.substr(0, end), part)) return false;
        // A drive alone is there, or nothing helps.
        const bool isDrive = end != std::string::npos && end > 0 && path[end - 1] == ':';
        if (end != 0 && !isDrive && !CreateDirectoryW(part.data(), nullptr) &&
            !folderIsThere(part.data())) {
            // A share's or another user's folder may be refused though what is below it is ours.
            if (end == std::string::npos || GetLastError() == ERROR_PATH_NOT_FOUND) return false;
        }
        if (end == std::string::npos || end + 1 == path.size()) {
            return folderIsThere(part.data());
        }
    }
}

}  // namespace ZENNO::platform
