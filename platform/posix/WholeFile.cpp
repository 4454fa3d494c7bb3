#include "platform/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/posix/Paths.h"

namespace ZENNO::platform {

namespace {

WriteOutcome outcomeOf(int error) noexcept {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
        case ENAMETOOLONG:
            return WriteOutcome::noFolder;
        case EROFS:
            return WriteOutcome::readOnly;
        case ETXTBSY:
        case EBUSY:
            return WriteOutcome::inUse;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return WriteOutcome::noRoom;
        default:
            return WriteOutcome::refused;
    }
}

// 0, or the error that stopped it.
int writeAll(int file, const std::uint8_t* data, std::uint64_t size) noexcept {
    while (size > 0) {
        const ssize_t written = write(file, data, size);
        if (written < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        data += written;
        size -= static_cast<std::uint64_t>(written);
    }
    return fsync(file) == 0 ? 0 : errno;
}

bool folderIsThere(const std::string& native) noexcept {
    struct stat status;
    return stat(native.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

WriteOutcome replaceWholeFile(const std::string& path, const std::uint8_t* data,
                              std::uint64_t size) {
    std::string native;
    if (path.empty() || !toNative(path, native)) return WriteOutcome::noFolder;
    mode_t mode = 0644;
    struct stat status;
    if (stat(native.c_str(), &status) == 0) {
        mode = status.st_mode & 07777;
        // A rename asks for no right to the file that it replaces, so it is asked here.
        if ((mode & 0222) == 0) return WriteOutcome::readOnly;
    }
    const std::string fresh = native + ".new";
    const int file = open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file < 0) return outcomeOf(errno);
    int error = writeAll(file, data, size);
    if (error == 0 && fchmod(file, mode) != 0) error = errno;
    if (close(file) != 0 && error == 0) error = errno;
    if (error == 0 && std::rename(fresh.c_str(), native.c_str()) != 0) error = errno;
    if (error == 0) return WriteOutcome::done;
    unlink(fresh.c_str());
    return outcomeOf(error);
}

bool makeFolder(const std::string& path) {
    std::string native;
    if (path.empty() || !toNative(path, native)) return false;
    while (native.size() > 1 && native.ends_with('/')) native.pop_back();
    for (std::size_t end = native.find('/', 1);; end = native.find('/', end + 1)) {
        const std::string part = native.substr(0, end);
        if (mkdir(part.c_str(), 0755) != 0 && !folderIsThere(part)) return false;
        if (end == std::string::npos) return true;
    }
}

}  // namespace ZENNO::platform
