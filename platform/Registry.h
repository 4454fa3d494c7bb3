// The registry, by the ANSI calls that installers and hosts of audio drivers use. Windows alone has
// a body; what stands on it is built for Windows alone.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ZENNO::platform {

enum class RegistryRoot { classes, localMachine };  // HKEY_CLASSES_ROOT, HKEY_LOCAL_MACHINE

// A key opened with all access, or created; closed with its object.
class RegistryKey {
public:
    RegistryKey() = default;
    ~RegistryKey();
    RegistryKey(RegistryKey&& other) noexcept : handle_(other.handle_) { other.handle_ = nullptr; }
    RegistryKey& operator=(RegistryKey&& other) noexcept;
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;

    static RegistryKey open(RegistryRoot root, const std::string& path);
    static RegistryKey openForReading(RegistryRoot root, const std::string& path);
    static RegistryKey create(RegistryRoot root, const std::string& path);
    RegistryKey open(const std::string& name) const;
    RegistryKey create(const std::string& name) const;
    explicit operator bool() const { return handle_ != nullptr; }

    // A value as REG_SZ, its length without the NUL. The empty name is the key's default value.
    bool setText(const std::string& name, const std::string& text) const;
    // Empty when absent; at most `limit` bytes.
    std::string text(const std::string& name, std::uint32_t limit = 360) const;
    std::vector<std::string> subkeys() const;
    // The key `name` below this one with all that is below it, the deepest first.
    bool deleteTree(const std::string& name) const;

private:
    explicit RegistryKey(void* handle) : handle_(handle) {}
    void* handle_ = nullptr;
};

}  // namespace ZENNO::platform
