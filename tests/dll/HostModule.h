// What the tests of the DLL in a host's hands share: settings of their own, the module, and a
// folder that it lies in.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <shlobj.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "driver/Asio.h"
#include "driver/Product.h"
#include "platform/Com.h"

namespace velmora_test {

namespace fs = std::filesystem;

constexpr const char* moduleName = "asio_korvente_x64.dll";

// Of the test program.
inline fs::path ownPath() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return path;
}

// Settings of this test's in the place of the user's, which come back when it ends. They name an
// interface that does not exist, so that nothing is ever sent, and a size by which a host can tell
// that they are in force.
class OwnSettings {
public:
    static constexpr std::int32_t preferred = 768;

    OwnSettings() {
        wchar_t roaming[MAX_PATH] = {};
        SHGetSpecialFolderPathW(nullptr, roaming, CSIDL_APPDATA, FALSE);
        file_ = fs::path(roaming) / "KORVENTE Velmora" / "setting.inf";
        fs::create_directories(file_.parent_path());
        hadOne_ = fs::exists(file_);
        if (hadOne_) fs::copy_file(file_, kept(), fs::copy_options::overwrite_existing);
        std::ofstream(file_, std::ios::binary)
            << "Interface=65000\nASIOBufferSizePre=" << preferred << "\n";
    }
    ~OwnSettings() {
        std::error_code ignored;
        fs::remove(file_, ignored);
        if (hadOne_) fs::rename(kept(), file_, ignored);
    }

private:
    fs::path kept() const { return file_.parent_path() / "setting.kept"; }

    fs::path file_;
    bool hadOne_ = false;
};

class Module {
public:
    explicit Module(const fs::path& path = moduleName) : handle_(LoadLibraryW(path.c_str())) {}
    ~Module() {
        if (handle_ != nullptr) FreeLibrary(handle_);
    }
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    explicit operator bool() const { return handle_ != nullptr; }
    template <class F>
    F entry(const char* name) const {
        return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(handle_, name)));
    }
    IASIO* makeDriver() const {
        const auto getClassObject = entry<ZENNO::platform::HResult (*)(
            const ZENNO::platform::Guid&, const ZENNO::platform::Guid&, void**)>(
            "DllGetClassObject");
        void* out = nullptr;
        if (getClassObject(driverClassId, ZENNO::platform::IID_IClassFactory, &out) != 0) {
            return nullptr;
        }
        auto* factory = static_cast<ZENNO::platform::IClassFactory*>(out);
        void* made = nullptr;
        factory->CreateInstance(nullptr, driverClassId, &made);
        factory->Release();
        return static_cast<IASIO*>(made);
    }
    bool canUnload() const {
        return entry<ZENNO::platform::HResult (*)()>("DllCanUnloadNow")() == 0;
    }

private:
    HMODULE handle_;
};

// A folder with a copy of the module, for a test that needs files beside it; so many levels down.
class ModuleFolder {
public:
    explicit ModuleFolder(int levels, const std::wstring& level = L"hosts") {
        folders_.push_back(ownPath().parent_path().wstring());
        for (int i = 0; i < levels; ++i) {
            folders_.push_back(folders_.back() + L"\\" + level);
            CreateDirectoryW(withoutLimit(folders_.back()).c_str(), nullptr);
        }
        copy(ownPath().parent_path() / moduleName, moduleName);
    }
    ~ModuleFolder() {
        for (const std::wstring& file : files_)
            EXPECT_TRUE(DeleteFileW(file.c_str())) << GetLastError();
        for (; folders_.size() > 1; folders_.pop_back()) {
            EXPECT_TRUE(RemoveDirectoryW(withoutLimit(folders_.back()).c_str())) << GetLastError();
        }
    }
    ModuleFolder(const ModuleFolder&) = delete;
    ModuleFolder& operator=(const ModuleFolder&) = delete;

    std::wstring module() const { return file(moduleName); }
    void copy(const fs::path& from, const char* name) {
        files_.push_back(withoutLimit(file(name)));
        EXPECT_TRUE(CopyFileW(from.c_str(), files_.back().c_str(), FALSE)) << GetLastError();
    }
    void write(const char* name, const std::string& text) {
        files_.push_back(withoutLimit(file(name)));
        std::ofstream(fs::path(files_.back()), std::ios::binary) << text;
    }

    static std::wstring withoutLimit(const std::wstring& path) { return L"\\\\?\\" + path; }

private:
    std::wstring file(const char* name) const {
        return folders_.back() + L"\\" + std::wstring(name, name + std::strlen(name));
    }
    std::vector<std::wstring> folders_, files_;
};

}  // namespace velmora_test
