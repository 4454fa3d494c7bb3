// The module's four COM exports and its entry point. Names go out undecorated by exports.def.
#include <cstdint>

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

}  // extern "C"

void ZENNO::platform::onModule(bool attached) noexcept {
    for (const FactoryRow& row : factoryTable()) {
        if (row.attach != nullptr) row.attach(attached);
    }
}
