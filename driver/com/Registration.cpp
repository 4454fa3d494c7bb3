#include "driver/com/Registration.h"

#include <string>

#include "driver/Product.h"
#include "platform/Module.h"
#include "platform/Registry.h"

using ZENNO::platform::RegistryKey;
using ZENNO::platform::RegistryRoot;

namespace {

constexpr const char* moduleFile = "asio_korvente_x64.dll";
constexpr const char* serverKey = "InprocServer32";
constexpr std::uint32_t pathLimit = 360;
constexpr std::uint32_t classTextLimit = 100;

// What both ways need first.
struct Identity {
    std::string path;     // of the module, lower case
    std::string classId;  // in braces, upper case
};

RegistrationResult identify(Identity& out) {
    if (!ZENNO::platform::moduleIsLoaded(moduleFile)) return noModule;
    out.path =
        ZENNO::platform::toLowerCase(ZENNO::platform::loadedModulePath(moduleFile, pathLimit));
    if (out.path.empty()) return noModulePath;
    std::wstring text;
    if (!ZENNO::platform::classText(driverClassId, text)) return noClassText;
    if (!ZENNO::platform::toSystemCodePage(text, classTextLimit, out.classId)) return noClassAnsi;
    return registrationDone;
}

void registerClass(const Identity& identity) {
    const RegistryKey classes = RegistryKey::open(RegistryRoot::classes, "CLSID");
    if (!classes) return;
    if (const RegistryKey known = classes.open(identity.classId)) {
        const RegistryKey server = known.open(serverKey);
        const std::string path =
            server ? ZENNO::platform::toLowerCase(server.text("", pathLimit)) : std::string();
        if (path == identity.path) return;  // it is this file already
    }
    classes.deleteTree(identity.classId);
    const RegistryKey key = classes.create(identity.classId);
    if (!key) return;
    key.setText("", driverProductName);
    const RegistryKey server = key.create(serverKey);
    if (!server) return;
    server.setText("", identity.path);
    server.setText("ThreadingModel", "Apartment");
}

void registerForHosts(const Identity& identity) {
    const RegistryKey asio = RegistryKey::create(RegistryRoot::localMachine, "SOFTWARE\\ASIO");
    if (!asio) return;
    asio.deleteTree(driverProductName);
    const RegistryKey entry = asio.create(driverProductName);
    if (!entry) return;
    entry.setText("CLSID", identity.classId);
    entry.setText("Description", driverProductName);
}

}  // namespace

RegistrationResult registerServer() {
    Identity identity;
    if (const RegistrationResult result = identify(identity); result != registrationDone)
        return result;
    registerClass(identity);
    registerForHosts(identity);
    return registrationDone;
}

RegistrationResult unregisterServer() {
    Identity identity;
    if (const RegistrationResult result = identify(identity); result != registrationDone)
        return result;
    if (const RegistryKey classes = RegistryKey::open(RegistryRoot::classes, "CLSID")) {
        classes.deleteTree(identity.classId);
    }
    if (const RegistryKey asio = RegistryKey::open(RegistryRoot::localMachine, "SOFTWARE\\ASIO")) {
        asio.deleteTree(driverProductName);
    }
    return registrationDone;
}
