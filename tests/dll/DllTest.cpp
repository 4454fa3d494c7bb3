// The built DLL as Windows sees it: loaded, asked, registered and removed. Runs under Wine, in a
// registry of its own.
#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "driver/Asio.h"
#include "driver/Product.h"
#include "platform/Com.h"
#include "platform/Registry.h"

namespace {

using ZENNO::platform::Guid;
using ZENNO::platform::HResult;
using ZENNO::platform::IClassFactory;
using ZENNO::platform::RegistryKey;
using ZENNO::platform::RegistryRoot;

constexpr const char* classKey = "CLSID\\{5D2C7A14-9B3E-4C61-8E0F-2A7B41C9D063}";
constexpr const char* serverKey = "CLSID\\{5D2C7A14-9B3E-4C61-8E0F-2A7B41C9D063}\\InprocServer32";
constexpr const char* hostKey = "SOFTWARE\\ASIO\\KORVENTE Velmora";

template <class F>
F exported(HMODULE module, const char* name) {
    return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

class Dll : public ::testing::Test {
protected:
    void SetUp() override {
        module_ = LoadLibraryA("asio_korvente_x64.dll");
        ASSERT_NE(module_, nullptr) << GetLastError();
    }
    void TearDown() override { FreeLibrary(module_); }

    const std::uint8_t* at(std::uint32_t offset) const {
        return reinterpret_cast<const std::uint8_t*>(module_) + offset;
    }
    const IMAGE_DATA_DIRECTORY& directory(int index) const {
        const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(at(0));
        const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(
            at(static_cast<std::uint32_t>(dos->e_lfanew)));
        return headers->OptionalHeader.DataDirectory[index];
    }
    std::string modulePath() const {
        char path[MAX_PATH] = {};
        GetModuleFileNameA(module_, path, MAX_PATH);
        return path;
    }

    HMODULE module_ = nullptr;
};

TEST_F(Dll, ExportsTheComEntriesAndTheFinderAndNothingElse) {
    const auto* table = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(
        at(directory(IMAGE_DIRECTORY_ENTRY_EXPORT).VirtualAddress));
    const auto* names = reinterpret_cast<const DWORD*>(at(table->AddressOfNames));
    std::set<std::string> found;
    for (DWORD i = 0; i < table->NumberOfNames; ++i)
        found.insert(reinterpret_cast<const char*>(at(names[i])));
    EXPECT_EQ(found,
              (std::set<std::string>{"DllCanUnloadNow", "DllGetClassObject", "DllRegisterServer",
                                     "DllUnregisterServer", "DllVelmorafind"}));
    EXPECT_EQ(table->NumberOfFunctions, 5u) << "nothing goes out by number alone";
}

TEST_F(Dll, NeedsOnlyWhatEveryWindowsHas) {
    const std::set<std::string> everyWindows = {"kernel32.dll", "user32.dll",  "advapi32.dll",
                                                "msvcrt.dll",   "ws2_32.dll",  "iphlpapi.dll",
                                                "winmm.dll",    "shell32.dll", "ole32.dll"};
    const auto* import = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(
        at(directory(IMAGE_DIRECTORY_ENTRY_IMPORT).VirtualAddress));
    int count = 0;
    for (; import->Name != 0; ++import, ++count) {
        const std::string name = lower(reinterpret_cast<const char*>(at(import->Name)));
        EXPECT_TRUE(everyWindows.contains(name)) << name;
    }
    EXPECT_GT(count, 0);
}

TEST_F(Dll, BearsItsVersion) {
    const HRSRC resource = FindResourceA(module_, MAKEINTRESOURCEA(1), MAKEINTRESOURCEA(16));
    ASSERT_NE(resource, nullptr);
    const auto* bytes = static_cast<const char*>(LockResource(LoadResource(module_, resource)));
    const std::wstring text(reinterpret_cast<const wchar_t*>(bytes),
                            SizeofResource(module_, resource) / 2);
    EXPECT_NE(text.find(L"1_112_1"), std::wstring::npos);
    EXPECT_NE(text.find(L"asio_korvente_x64.dll"), std::wstring::npos);
}

TEST_F(Dll, MakesADriverThatHoldsTheModule) {
    const auto getClassObject =
        exported<HResult (*)(const Guid&, const Guid&, void**)>(module_, "DllGetClassObject");
    const auto canUnload = exported<HResult (*)()>(module_, "DllCanUnloadNow");
    ASSERT_NE(getClassObject, nullptr);
    ASSERT_NE(canUnload, nullptr);
    void* out = nullptr;
    const Guid foreign{1, 2, 3, {}};
    EXPECT_EQ(getClassObject(foreign, foreign, &out), static_cast<HResult>(0x80004002u));
    EXPECT_EQ(getClassObject(foreign, ZENNO::platform::IID_IClassFactory, &out),
              static_cast<HResult>(0x80040111u));
    ASSERT_EQ(getClassObject(driverClassId, ZENNO::platform::IID_IClassFactory, &out), 0);
    auto* factory = static_cast<IClassFactory*>(out);
    void* made = nullptr;
    ASSERT_EQ(factory->CreateInstance(nullptr, driverClassId, &made), 0);
    EXPECT_EQ(canUnload(), 1);
    EXPECT_EQ(static_cast<IASIO*>(made)->getDriverVersion(), 1);
    EXPECT_EQ(static_cast<IASIO*>(made)->outputReady(), -1000);
    EXPECT_EQ(static_cast<IASIO*>(made)->Release(), 0u);
    EXPECT_EQ(canUnload(), 0);
    EXPECT_EQ(factory->LockServer(1), 0);
    EXPECT_EQ(canUnload(), 1);
    EXPECT_EQ(factory->LockServer(0), 0);
    EXPECT_EQ(factory->Release(), 0u);
    EXPECT_EQ(canUnload(), 0);
}

// Registration: what stands in the registry, step by step.
class Registration : public Dll {
protected:
    void SetUp() override {
        Dll::SetUp();
        register_ = exported<HResult (*)()>(module_, "DllRegisterServer");
        unregister_ = exported<HResult (*)()>(module_, "DllUnregisterServer");
        unregister_();
    }
    void TearDown() override {
        unregister_();
        Dll::TearDown();
    }
    static std::string classes(const char* key, const char* name) {
        const RegistryKey k = RegistryKey::open(RegistryRoot::classes, key);
        return k ? k.text(name) : "(no key)";
    }
    static std::string machine(const char* key, const char* name) {
        const RegistryKey k = RegistryKey::open(RegistryRoot::localMachine, key);
        return k ? k.text(name) : "(no key)";
    }
    HResult (*register_)() = nullptr;
    HResult (*unregister_)() = nullptr;
};

TEST_F(Registration, WritesEveryKeyAndGivesOne) {
    EXPECT_EQ(register_(), 1);
    EXPECT_EQ(classes(classKey, ""), "KORVENTE Velmora");
    EXPECT_EQ(classes(serverKey, ""), lower(modulePath()));
    EXPECT_EQ(classes(serverKey, "ThreadingModel"), "Apartment");
    EXPECT_EQ(machine(hostKey, "CLSID"), "{5D2C7A14-9B3E-4C61-8E0F-2A7B41C9D063}");
    EXPECT_EQ(machine(hostKey, "Description"), "KORVENTE Velmora");
}

TEST_F(Registration, TwiceFromOnePathLeavesTheClassAndRebuildsTheHostsEntry) {
    ASSERT_EQ(register_(), 1);
    RegistryKey::open(RegistryRoot::classes, classKey).setText("Mark", "still here");
    RegistryKey::open(RegistryRoot::localMachine, hostKey).setText("Mark", "old");
    EXPECT_EQ(register_(), 1);
    EXPECT_EQ(classes(classKey, "Mark"), "still here");
    EXPECT_EQ(machine(hostKey, "Mark"), "");
    EXPECT_EQ(machine(hostKey, "Description"), "KORVENTE Velmora");
}

TEST_F(Registration, FromAnotherPathReplacesTheClass) {
    ASSERT_EQ(register_(), 1);
    {
        const RegistryKey server = RegistryKey::open(RegistryRoot::classes, serverKey);
        server.setText("", "c:\\elsewhere\\asio_korvente_x64.dll");
        server.create("Deep").create("Deeper").setText("", "to be deleted with all");
    }
    EXPECT_EQ(register_(), 1);
    EXPECT_EQ(classes(serverKey, ""), lower(modulePath()));
    EXPECT_FALSE(
        RegistryKey::open(RegistryRoot::classes, (std::string(serverKey) + "\\Deep").c_str()));
}

TEST_F(Registration, IsTheSamePathWhateverItsCase) {
    ASSERT_EQ(register_(), 1);
    std::string shouted = modulePath();
    for (char& c : shouted) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    RegistryKey::open(RegistryRoot::classes, serverKey).setText("", shouted);
    EXPECT_EQ(register_(), 1);
    EXPECT_EQ(classes(serverKey, ""), shouted) << "left as it stands";
}

TEST_F(Registration, RemovalTakesOutBothKeysAndNoOthers) {
    ASSERT_EQ(register_(), 1);
    RegistryKey::create(RegistryRoot::localMachine, "SOFTWARE\\ASIO\\Another driver")
        .setText("CLSID", "{0}");
    EXPECT_EQ(unregister_(), 1);
    EXPECT_EQ(classes(classKey, ""), "(no key)");
    EXPECT_EQ(machine(hostKey, "CLSID"), "(no key)");
    EXPECT_EQ(machine("SOFTWARE\\ASIO\\Another driver", "CLSID"), "{0}");
    EXPECT_EQ(unregister_(), 1) << "what is not there needs no removing";
    RegistryKey::open(RegistryRoot::localMachine, "SOFTWARE\\ASIO").deleteTree("Another driver");
}

TEST_F(Registration, GivesZeroWhereTheModuleIsNotFoundByItsName) {
    // A copy under another name: the server looks for itself by its file name.
    FreeLibrary(module_);
    const std::filesystem::path self = [] {
        char path[MAX_PATH] = {};
        GetModuleFileNameA(nullptr, path, MAX_PATH);
        return std::filesystem::path(path).parent_path();
    }();
    const std::filesystem::path copy = self / "renamed_copy.dll";
    std::filesystem::copy_file(self / "asio_korvente_x64.dll", copy,
                               std::filesystem::copy_options::overwrite_existing);
    HMODULE renamed = LoadLibraryA(copy.string().c_str());
    ASSERT_NE(renamed, nullptr);
    EXPECT_EQ(exported<HResult (*)()>(renamed, "DllRegisterServer")(), 0);
    EXPECT_EQ(exported<HResult (*)()>(renamed, "DllUnregisterServer")(), 0);
    FreeLibrary(renamed);
    std::filesystem::remove(copy);
    Dll::SetUp();
}

}  // namespace
