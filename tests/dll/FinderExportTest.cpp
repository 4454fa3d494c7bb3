// The finder as another Windows program meets it: the module is loaded, the export called, and what
// it gives is used across the module's border.
#include <gtest/gtest.h>
#include <windows.h>

#include <memory>
#include <string>

#include "driver/FinderCall.h"

namespace {

using VELMORA::asio_velmora_find_call;
using VELMORA::FinderMap;

constexpr std::uint64_t korvente = 0x45544e4556524f4b;  // "KORVENTE", the first letter lowest

class FinderExport : public ::testing::Test {
protected:
    void SetUp() override {
        module_ = LoadLibraryA("asio_korvente_x64.dll");
        ASSERT_NE(module_, nullptr) << GetLastError();
        const auto make = reinterpret_cast<VELMORA::MakeFinder>(
            reinterpret_cast<void*>(GetProcAddress(module_, VELMORA::finderExport)));
        ASSERT_NE(make, nullptr);
        finder_.reset(make());
        ASSERT_NE(finder_, nullptr);
    }
    void TearDown() override {
        finder_.reset();
        if (module_ != nullptr) FreeLibrary(module_);
    }

    HMODULE module_ = nullptr;
    std::unique_ptr<asio_velmora_find_call> finder_;
};

TEST_F(FinderExport, TellsTheDriversIdentifiersAndNames) {
    EXPECT_EQ(finder_->findID(), korvente);
    EXPECT_EQ(finder_->productID(), korvente);
    EXPECT_EQ(finder_->releasePath(), "");
    EXPECT_EQ(finder_->releaseName(), "1_112_1");
}

TEST_F(FinderExport, TellsTheUsersSettingsFileAndTheFactorysBesideTheProgram) {
    wchar_t roaming[MAX_PATH] = {};
    ASSERT_NE(GetEnvironmentVariableW(L"APPDATA", roaming, MAX_PATH), 0u);
    char narrow[3 * MAX_PATH] = {};
    WideCharToMultiByte(CP_UTF8, 0, roaming, -1, narrow, sizeof narrow, nullptr, nullptr);
    EXPECT_EQ(finder_->settingPath(), std::string(narrow) + "\\KORVENTE Velmora\\setting.inf");

    wchar_t program[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    WideCharToMultiByte(CP_UTF8, 0, program, -1, narrow, sizeof narrow, nullptr, nullptr);
    std::string folder = narrow;
    folder.resize(folder.rfind('\\') + 1);
    EXPECT_EQ(finder_->settingOrgPath(), folder + "setting_org.inf");
}

TEST_F(FinderExport, TheFactorysFileIsSoughtBesideTheProgramEvenWhereTheModuleLiesElsewhere) {
    wchar_t module[MAX_PATH] = {};
    GetModuleFileNameW(module_, module, MAX_PATH);
    const std::wstring away = std::wstring(module, std::wstring(module).rfind(L'\\') + 1) + L"away";
    CreateDirectoryW(away.c_str(), nullptr);
    const std::wstring copy = away + L"\\asio_korvente_x64_copy.dll";
    ASSERT_TRUE(CopyFileW(module, copy.c_str(), FALSE));
    const HMODULE other = LoadLibraryW(copy.c_str());
    ASSERT_NE(other, nullptr) << GetLastError();
    const auto make = reinterpret_cast<VELMORA::MakeFinder>(
        reinterpret_cast<void*>(GetProcAddress(other, VELMORA::finderExport)));
    ASSERT_NE(make, nullptr);
    {
        const std::unique_ptr<asio_velmora_find_call> finder(make());
        EXPECT_EQ(finder->settingOrgPath(), finder_->settingOrgPath());
    }
    FreeLibrary(other);
    DeleteFileW(copy.c_str());
    RemoveDirectoryW(away.c_str());
}

// On an interface that does not exist, so that nothing is sent.
TEST_F(FinderExport, SearchesWithSocketsOfItsOwnAndEmptiesTheMapOfTheCaller) {
    constexpr std::uint32_t noInterface = 65000;
    FinderMap out;
    out[ZENNO::IPAddress::loopbackV6(1)].targetName = "from before, long enough to be on the heap";
    finder_->find(out, {}, noInterface);
    EXPECT_TRUE(out.empty());
}

TEST_F(FinderExport, GivesAnObjectToEachCaller) {
    const auto make = reinterpret_cast<VELMORA::MakeFinder>(
        reinterpret_cast<void*>(GetProcAddress(module_, VELMORA::finderExport)));
    const std::unique_ptr<asio_velmora_find_call> second(make());
    EXPECT_NE(second.get(), finder_.get());
}

}  // namespace
