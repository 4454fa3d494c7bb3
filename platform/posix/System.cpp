#include "platform/System.h"

#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <system_error>

#include "platform/posix/Paths.h"

namespace ZENNO::platform {

namespace {

struct CloseFile {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

}  // namespace

std::string processPath() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    if (length <= 0 || static_cast<std::size_t>(length) == sizeof path) return {};
    return fromNative(std::string(path, static_cast<std::size_t>(length)));
}

std::string driverFolder() {
    const std::string program = processPath();
    return program.substr(0, program.rfind('\\') + 1);  // nothing, if there is none
}

std::string roamingFolder() {
    return configFolder(std::getenv("XDG_CONFIG_HOME"), std::getenv("HOME"));
}

FileKind fileKind(const std::string& path) {
    std::string native;
    struct stat status;
    if (!toNative(path, native) || stat(native.c_str(), &status) != 0) return FileKind::missing;
    return S_ISDIR(status.st_mode) ? FileKind::folder : FileKind::file;
}

bool readWholeFile(const std::string& path, std::vector<std::uint8_t>& data) try {
    std::string native;
    if (!toNative(path, native)) return false;
    const File file(std::fopen(native.c_str(), "rbe"));
    struct stat status;
    // A folder opens for reading here, and has an end that is no size.
    if (!file || fstat(fileno(file.get()), &status) != 0 || S_ISDIR(status.st_mode)) return false;
    if (fseeko(file.get(), 0, SEEK_END) != 0) return false;
    const off_t size = ftello(file.get());
    if (size < 0 || fseeko(file.get(), 0, SEEK_SET) != 0) return false;
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
    if (std::fread(bytes.data(), 1, bytes.size(), file.get()) != bytes.size()) return false;
    data = std::move(bytes);
    return true;
} catch (const std::exception&) {
    return false;  // larger than memory
}

bool writeWholeFile(const std::string& path, const std::uint8_t* data, std::uint64_t size) {
    std::string native;
    if (!toNative(path, native)) return false;
    File file(std::fopen(native.c_str(), "wbe"));
    if (!file) return false;
    const bool written = size == 0 || std::fwrite(data, 1, size, file.get()) == size;
    return std::fclose(file.release()) == 0 && written;
}

bool deleteFile(const std::string& path) {
    std::string native;
    return toNative(path, native) && unlink(native.c_str()) == 0;
}

bool runProgramAndWait(const std::string& path, const std::function<void()>& onStarted) {
    std::string native;
    if (!toNative(path, native)) return false;

    // What this thread blocks is its own affair, not the program's.
    sigset_t nothing;
    sigemptyset(&nothing);
    posix_spawnattr_t attributes;
    if (posix_spawnattr_init(&attributes) != 0) return false;
    posix_spawnattr_setsigmask(&attributes, &nothing);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    char* arguments[] = {native.data(), nullptr};
    pid_t child = 0;
    const int failure =
        posix_spawn(&child, native.c_str(), nullptr, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    if (failure != 0) return false;
    if (onStarted) onStarted();

    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    return true;
}

std::string errorText(std::int32_t code) {
    return std::generic_category().message(code);
}

}  // namespace ZENNO::platform
