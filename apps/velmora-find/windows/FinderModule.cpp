#include "apps/velmora-find/FinderModule.h"

#include <windows.h>

#include "apps/velmora-find/ExitCode.h"
#include "apps/velmora-find/Printable.h"
#include "driver/Product.h"
#include "platform/Module.h"
#include "platform/Registry.h"
#include "platform/System.h"
#include "platform/windows/Wide.h"

namespace velmora_find {
namespace {

using ZENNO::platform::RegistryKey;
using ZENNO::platform::RegistryRoot;

std::string besideThisProgram() {
    const std::string program = ZENNO::platform::processPath();
    const std::string path = program.substr(0, program.rfind('\\') + 1) + "asio_korvente_x64.dll";
    return ZENNO::platform::fileKind(path) == ZENNO::platform::FileKind::file ? path : "";
}

// In the system's code page, as the registration has it.
std::string registered() {
    std::wstring id;
    if (!ZENNO::platform::classText(driverClassId, id)) return {};
    const auto key = RegistryKey::openForReading(
        RegistryRoot::classes, "CLSID\\" + std::string(id.begin(), id.end()) + "\\InprocServer32");
    return key ? key.text("") : "";
}

struct Loaded {
    HMODULE module;
    DWORD error;  // read before anything else can change it
};
Loaded loaded(HMODULE module) {
    return {module, GetLastError()};
}

Loaded load(const std::string& dll, std::string& path) {
    path = dll.empty() ? besideThisProgram() : dll;
    if (path.empty()) {
        path = registered();
        if (path.empty()) {
            throw Stop{exitFile,
                       "The driver is not installed: asio_korvente_x64.dll is neither "
                       "beside this program nor registered. --dll names one."};
        }
        return loaded(LoadLibraryA(path.c_str()));
    }
    ZENNO::platform::WidePath wide;
    if (!ZENNO::platform::toWide(path, wide)) return loaded(nullptr);
    return loaded(LoadLibraryW(wide.data()));
}

}  // namespace

const bool finderIsModule = true;

FinderPointer loadFinder(const std::string& dll) {
    std::string path;
    const auto [module, error] = load(dll, path);
    if (module == nullptr) {
        throw Stop{exitFile,
                   printable(path) + " cannot be loaded: " +
                       printable(ZENNO::platform::errorText(static_cast<std::int32_t>(error)))};
    }
    const auto make = reinterpret_cast<VELMORA::MakeFinder>(
        reinterpret_cast<void*>(GetProcAddress(module, VELMORA::finderExport)));
    if (make == nullptr) {
        FreeLibrary(module);
        throw Stop{exitFile, printable(path) + " does not export " + VELMORA::finderExport +
                                 ": it is not this driver, or an old one."};
    }
    VELMORA::asio_velmora_find_call* const finder = make();
    if (finder == nullptr) {
        FreeLibrary(module);
        throw Stop{exitFile, printable(path) + " makes no finder: memory may be short."};
    }
    return {finder, [module = module](VELMORA::asio_velmora_find_call* made) {
                delete made;
                FreeLibrary(module);
            }};
}

}  // namespace velmora_find
