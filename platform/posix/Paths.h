// Paths of the system ("\home\u\.config") and of POSIX ("/home/u/.config"), and the way between
// them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

namespace ZENNO::platform {

constexpr std::size_t longestPath = 259;  // UTF-16 units

// A byte that begins a character is one unit, one that begins a character of four bytes is two.
inline std::size_t utf16Length(const std::string& text) noexcept {
    std::size_t units = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte & 0xc0) != 0x80) units += byte >= 0xf0 ? 2 : 1;
    }
    return units;
}

// False for a path that is too long.
inline bool toNative(const std::string& path, std::string& native) {
    if (utf16Length(path) > longestPath) return false;
    native = path;
    std::replace(native.begin(), native.end(), '\\', '/');
    return true;
}

inline std::string fromNative(std::string path) {
    std::replace(path.begin(), path.end(), '/', '\\');
    return path;
}

// $XDG_CONFIG_HOME, which counts only when it is absolute (XDG Base Directory Specification), else
// ~/.config; empty without a home. The values are those of the environment and may be null.
inline std::string configFolder(const char* xdgConfigHome, const char* home) {
    std::string folder;
    if (xdgConfigHome && *xdgConfigHome == '/') {
        folder = xdgConfigHome;
    } else if (home && *home) {
        folder = std::string(home) + "/.config";
    }
    while (folder.ends_with('/')) folder.pop_back();
    return fromNative(folder);
}

}  // namespace ZENNO::platform
