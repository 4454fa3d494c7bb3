#include "platform/Registry.h"

#include <windows.h>

#include <array>

namespace ZENNO::platform {
namespace {

constexpr REGSAM allAccess = 0xF003F;
constexpr DWORD nameLimit = 360;

HKEY rootOf(RegistryRoot root) {
    return root == RegistryRoot::classes ? HKEY_CLASSES_ROOT : HKEY_LOCAL_MACHINE;
}

HKEY keyOf(void* handle) {
    return static_cast<HKEY>(handle);
}

void* opened(HKEY parent, const std::string& path, REGSAM access) {
    HKEY key = nullptr;
    return RegOpenKeyExA(parent, path.c_str(), 0, access, &key) == ERROR_SUCCESS ? key : nullptr;
}

void* created(HKEY parent, const std::string& path) {
    HKEY key = nullptr;
    const LONG result = RegCreateKeyExA(parent, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                        allAccess, nullptr, &key, nullptr);
    return result == ERROR_SUCCESS ? key : nullptr;
}

}  // namespace

RegistryKey::~RegistryKey() {
    if (handle_ != nullptr) RegCloseKey(keyOf(handle_));
}

RegistryKey& RegistryKey::operator=(RegistryKey&& other) noexcept {
    if (this != &other) {
        if (handle_ != nullptr) RegCloseKey(keyOf(handle_));
        handle_ = other.handle_;
        other.handle_ = nullptr;
    }
    return *this;
}

RegistryKey RegistryKey::open(RegistryRoot root, const std::string& path) {
    return RegistryKey(opened(rootOf(root), path, allAccess));
}

RegistryKey RegistryKey::openForReading(RegistryRoot root, const std::string& path) {
    return RegistryKey(opened(rootOf(root), path, KEY_READ));
}

RegistryKey RegistryKey::create(RegistryRoot root, const std::string& path) {
    return RegistryKey(created(rootOf(root), path));
}

RegistryKey RegistryKey::open(const std::string& name) const {
    return RegistryKey(opened(keyOf(handle_), name, allAccess));
}

RegistryKey RegistryKey::create(const std::string& name) const {
    return RegistryKey(created(keyOf(handle_), name));
}

bool RegistryKey::setText(const std::string& name, const std::string& text) const {
    return RegSetValueExA(keyOf(handle_), name.empty() ? nullptr : name.c_str(), 0, REG_SZ,
                          reinterpret_cast<const BYTE*>(text.c_str()),
                          static_cast<DWORD>(text.size())) == ERROR_SUCCESS;
}

std::string RegistryKey::text(const std::string& name, std::uint32_t limit) const {
    std::string out(limit, '\0');
    DWORD type = 0, size = limit;
    if (RegQueryValueExA(keyOf(handle_), name.empty() ? nullptr : name.c_str(), nullptr, &type,
                         reinterpret_cast<BYTE*>(out.data()), &size) != ERROR_SUCCESS ||
        type != REG_SZ) {
        return {};
    }
    out.resize(size);
    return out.substr(0, out.find('\0'));
}

std::vector<std::string> RegistryKey::subkeys() const {
    std::vector<std::string> out;
    std::array<char, nameLimit> name{};
    for (DWORD i = 0; RegEnumKeyA(keyOf(handle_), i, name.data(), nameLimit) == ERROR_SUCCESS;
         ++i) {
        out.emplace_back(name.data());
    }
    return out;
}

bool RegistryKey::deleteTree(const std::string& name) const {
    {
        const RegistryKey key = open(name);
        if (!key) return false;
        for (const std::string& below : key.subkeys()) key.deleteTree(below);
    }
    return RegDeleteKeyA(keyOf(handle_), name.c_str()) == ERROR_SUCCESS;
}

}  // namespace ZENNO::platform
