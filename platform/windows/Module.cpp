#include "platform/Module.h"

#include <objbase.h>
#include <windows.h>

#include <cstring>

namespace ZENNO::platform {

bool moduleIsLoaded(const char* fileName) noexcept {
    return GetModuleHandleA(fileName) != nullptr;
}

std::string loadedModulePath(const char* fileName, std::uint32_t limit) {
    std::string path(limit, '\0');
    const DWORD length = GetModuleFileNameA(GetModuleHandleA(fileName), path.data(), limit);
    path.resize(length < limit ? length : 0);
    return path;
}

std::string toLowerCase(std::string text) {
    CharLowerBuffA(text.data(), static_cast<DWORD>(text.size()));
    return text;
}

bool classText(const Guid& id, std::wstring& out) {
    CLSID classId{};
    static_assert(sizeof classId == sizeof id);
    std::memcpy(&classId, &id, sizeof id);
    LPOLESTR text = nullptr;
    if (FAILED(StringFromCLSID(classId, &text))) return false;
    out = text;
    CoTaskMemFree(text);
    return true;
}

bool toSystemCodePage(const std::wstring& text, std::uint32_t limit, std::string& out) {
    out.assign(limit, '\0');
    const int length = WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, out.data(),
                                           static_cast<int>(limit), nullptr, nullptr);
    if (length <= 0) return false;
    out.resize(static_cast<std::size_t>(length) - 1);
    return true;
}

}  // namespace ZENNO::platform
