#include "apps/velmora-settings/windows/Module.h"

#include <cstring>

#include "apps/velmora-settings/windows/Text.h"
#include "driver/Product.h"
#include "platform/System.h"

namespace velmora_settings {
namespace {

constexpr const char* moduleName = "asio_korvente_x64.dll";
constexpr const char* installAgain = " install KORVENTE Velmora again.";

std::string quoted(std::string_view release) {
    return "\"" + std::string(release) + "\"";
}

// "1.112.1" as the version resource has it; empty where there is none. Read from the file as data:
// nothing in it runs.
std::string fileRelease(const std::wstring& path) {
    const HMODULE data = LoadLibraryExW(path.c_str(), nullptr,
                                        LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE);
    if (data == nullptr) return {};
    std::string release;
    const HRSRC found = FindResourceW(data, MAKEINTRESOURCEW(VS_VERSION_INFO), RT_VERSION);
    const HGLOBAL loaded = found != nullptr ? LoadResource(data, found) : nullptr;
    const void* bytes = loaded != nullptr ? LockResource(loaded) : nullptr;
    constexpr std::size_t fixedInfoAt = 40;  // behind the block's head and its key
    if (bytes != nullptr && SizeofResource(data, found) >= fixedInfoAt + sizeof(VS_FIXEDFILEINFO)) {
        VS_FIXEDFILEINFO info;
        std::memcpy(&info, static_cast<const char*>(bytes) + fixedInfoAt, sizeof info);
        release = std::to_string(HIWORD(info.dwFileVersionMS)) + "_" +
                  std::to_string(LOWORD(info.dwFileVersionMS)) + "_" +
                  std::to_string(HIWORD(info.dwFileVersionLS));
        if (info.dwSignature != VS_FFI_SIGNATURE) release.clear();
    }
    FreeLibrary(data);
    return release;
}

}  // namespace

Module::~Module() {
    finder_.reset();
    if (module_ != nullptr) FreeLibrary(module_);
}

bool Module::fail(std::string sentence) {
    about_ = std::move(sentence);
    finder_.reset();
    return false;
}

bool Module::load(const std::string& folder) {
    const std::string path = folder + moduleName;
    if (ZENNO::platform::fileKind(path) != ZENNO::platform::FileKind::file) {
        return fail(
            std::string(moduleName) +
            " is not beside this program, so targets cannot be searched for:" + installAgain);
    }
    // Before anything of it runs: another release's finder may be another object.
    const std::string release = fileRelease(wide(path));
    if (release != driverReleaseText) {
        return fail(path + " is " +
                    (release.empty() ? "not this driver" : "of release " + quoted(release)) +
                    " and this program of release " + quoted(driverReleaseText) + ":" +
                    installAgain);
    }
    module_ = LoadLibraryW(wide(path).c_str());
    if (module_ == nullptr) {
        const auto error = static_cast<std::int32_t>(GetLastError());
        return fail(path + " cannot be loaded (" + ZENNO::platform::errorText(error) +
                    "):" + installAgain);
    }
    return takeFinder(path);
}

bool Module::takeFinder(const std::string& path) {
    const auto make = reinterpret_cast<VELMORA::MakeFinder>(
        reinterpret_cast<void*>(GetProcAddress(module_, VELMORA::finderExport)));
    if (make == nullptr) return fail(path + " has no finder:" + installAgain);
    finder_.reset(make());
    if (finder_ == nullptr || finder_->releaseName() != driverReleaseText) {
        return fail(path + " is of another release than this program:" + installAgain);
    }
    about_ = path + " " + finder_->releaseName();
    return true;
}

}  // namespace velmora_settings
