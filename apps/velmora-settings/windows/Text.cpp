#include "apps/velmora-settings/windows/Text.h"

namespace velmora_settings {

std::wstring wide(std::string_view text) {
    const int size = static_cast<int>(text.size());
    const int units = MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
    std::wstring out(static_cast<std::size_t>(units > 0 ? units : 0), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), size, out.data(), units);
    return out;
}

std::string narrow(std::wstring_view text) {
    const int units = static_cast<int>(text.size());
    const int size =
        WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
    std::string out(static_cast<std::size_t>(size > 0 ? size : 0), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), units, out.data(), size, nullptr, nullptr);
    return out;
}

std::string textOf(HWND window) {
    const int length = GetWindowTextLengthW(window);
    std::wstring text(static_cast<std::size_t>(length) + 1, L'\0');
    const int copied = GetWindowTextW(window, text.data(), length + 1);
    text.resize(static_cast<std::size_t>(copied));
    return narrow(text);
}

void showText(HWND window, std::string_view text) {
    if (textOf(window) != text) SetWindowTextW(window, wide(text).c_str());
}

}  // namespace velmora_settings
