// The step between the system's UTF-8 and the wide text of the operating system.
#pragma once

#include <windows.h>

#include <array>
#include <string>

namespace ZENNO::platform {

using WidePath = std::array<wchar_t, 260>;  // with its NUL

// False for a path that does not fit.
inline bool toWide(const std::string& path, WidePath& wide) noexcept {
    return MultiByteToWideChar(CP_UTF8, 0, path.c_str(), -1, wide.data(),
                               static_cast<int>(wide.size())) != 0;
}

inline std::string toUtf8(const wchar_t* wide, std::size_t length) {
    const int units = static_cast<int>(length);
    const int size = WideCharToMultiByte(CP_UTF8, 0, wide, units, nullptr, 0, nullptr, nullptr);
    if (size <= 0) return {};
    std::string text(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide, units, text.data(), size, nullptr, nullptr);
    return text;
}

}  // namespace ZENNO::platform
