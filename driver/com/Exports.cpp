// The module's four COM exports, the finder's, and its entry point. Names go out undecorated by
// exports.def.
#include <cstdint>

#include "base/Log.h"
#include "driver/Finder.h"
#include "driver/com/ClassFactory.h"
#include "driver/com/Registration.h"
#include "platform/ModuleEntry.h"

using ZENNO::platform::Guid;
using ZENNO::platform::HResult;

extern "C" {

HResult DllGetClassObject(const Guid& rclsid, const Guid& riid, void** ppv) {
    return getClassObject(rclsid, riid, ppv);
}

HResult DllCanUnloadNow() {
    return canUnloadNow();
}

// Success is 1 and failure 0: the reverse of what COM calls success, on purpose. Installers look at
// the registry.
HResult DllRegisterServer() {
    try {
        return registerServer() == registrationDone ? 1 : 0;
    } catch (...) {
        return 0;
    }
}

HResult DllUnregisterServer() {
    try {
        return unregisterServer() == registrationDone ? 1 : 0;
    } catch (...) {
        return 0;
    }
}

// For a program that shows which targets there are: the caller owns the object. Throws what the
// allocator throws, to a caller of the same C++ library.
VELMORA::asio_velmora_find_call* DllVelmorafind() {
    return VELMORA::makeFinder();
}

}  // extern "C"

void ZENNO::platform::onModule(bool attached) noexcept {
    for (const FactoryRow& row : factoryTable()) {
        if (row.attach != nullptr) row.attach(attached);
    }
}

void ZENNO::platform::onUnload() noexcept {
    ZENNO::freeLoggers();
}
