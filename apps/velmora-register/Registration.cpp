#include "apps/velmora-register/Registration.h"

#include <utility>

namespace velmora_register {
namespace {

Answer needsRights() {
    return {exitNoRights,
            L"This needs the rights of an administrator: choose \"Run as administrator\"."};
}

// What was registered before an attempt that failed.
std::wstring lossOf(const Registered& before) {
    if (!before.isAnything) return {};
    const std::wstring which = before.path.empty() ? L"" : L", of " + before.path + L",";
    return L" The earlier registration" + which + L" is gone, too.";
}

}  // namespace

Answer status(System& system, const std::wstring& dll) {
    const Registered now = system.lookFor(dll);
    if (now.isWhole) return {exitDone, L"Registered: " + now.path};
    if (!now.isAnything) return {exitAbsent, L"Not registered."};
    if (!now.isOfFile && !now.path.empty()) {
        return {exitElsewhere, L"Registered from another file: " + now.path};
    }
    return {exitNotHeld, L"Registered badly: " + now.fault + L"."};
}

Answer doRegister(System& system, const std::wstring& dll) {
    if (!system.isFile(dll)) return {exitFolder, L"There is no file " + dll + L"."};
    if (std::wstring why = system.unfitPath(dll); !why.empty()) {
        return {exitFolder, std::move(why)};
    }
    if (!system.isAdministrator()) return needsRights();
    const Registered before = system.lookFor(dll);
    // What is found afterwards is of this registration and of none before; and a class that leads
    // to this file already would be left as it is by the driver, damaged or not.
    system.removeKeys();
    if (system.lookFor(dll).isAnything) {
        return {exitNotHeld, L"An older registration of the driver could not be taken out."};
    }
    system.callDriver(dll, /*removes=*/false);
    const Registered now = system.lookFor(dll);
    if (now.isWhole) return {exitDone, L"Registered: " + now.path};
    std::wstring sentence = L"The driver could not be registered: " + now.fault + L".";
    // Half a driver would be listed by hosts, and fail in them.
    if (now.isAnything) {
        system.removeKeys();
        if (system.lookFor(dll).isAnything) {
            sentence += L" What it wrote into the registry could not be taken out.";
        }
    }
    return {exitNotHeld, sentence + lossOf(before)};
}

Answer doUnregister(System& system, const std::wstring& dll) {
    const Registered before = system.lookFor(dll);
    if (!before.isAnything) return {exitDone, L"Not registered."};
    if (!before.path.empty() && !before.isOfFile) {
        return {exitElsewhere,
                L"Left alone, since it is registered from another file: " + before.path};
    }
    if (!system.isAdministrator()) return needsRights();
    if (system.isFile(dll)) system.callDriver(dll, /*removes=*/true);
    if (system.lookFor(dll).isAnything) system.removeKeys();
    if (system.lookFor(dll).isAnything) {
        return {exitNotHeld, L"The driver's registration could not be taken out of the registry."};
    }
    return {exitDone, L"No longer registered."};
}

}  // namespace velmora_register
