#include "apps/velmora-play/DriverList.h"

#include <objbase.h>
#include <windows.h>

#include "platform/Registry.h"

namespace velmora_play {
namespace {

using ZENNO::platform::RegistryKey;
using ZENNO::platform::RegistryRoot;

std::string hex(HRESULT result) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08lx", static_cast<unsigned long>(result));
    return text;
}

}  // namespace

std::vector<DriverEntry> listDrivers() {
    std::vector<DriverEntry> drivers;
    const RegistryKey asio =
        RegistryKey::openForReading(RegistryRoot::localMachine, "SOFTWARE\\ASIO");
    if (!asio) return drivers;
    for (const std::string& name : asio.subkeys()) {
        const RegistryKey key =
            RegistryKey::openForReading(RegistryRoot::localMachine, "SOFTWARE\\ASIO\\" + name);
        if (!key) continue;
        DriverEntry entry;
        entry.name = key.text("Description");
        if (entry.name.empty()) entry.name = name;
        entry.classId = key.text("CLSID");
        const RegistryKey server = RegistryKey::openForReading(
            RegistryRoot::classes, "CLSID\\" + entry.classId + "\\InprocServer32");
        if (server) entry.file = server.text("");
        drivers.push_back(entry);
    }
    return drivers;
}

void DriverRelease::operator()(IASIO* driver) const {
    driver->Release();
    CoFreeUnusedLibraries();
    CoUninitialize();
}

DriverPointer loadDriver(const DriverEntry& entry, std::string& error) {
    // Hosts live in an apartment, and so does every ASIO driver.
    HRESULT result = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    if (FAILED(result)) {
        error = "COM does not start (" + hex(result) + ").";
        return nullptr;
    }
    CLSID id{};
    std::wstring wide(entry.classId.begin(), entry.classId.end());
    result = CLSIDFromString(wide.c_str(), &id);
    if (SUCCEEDED(result)) {
        void* driver = nullptr;
        // The class identifier is the interface identifier as well: so every host asks.
        result = CoCreateInstance(id, nullptr, CLSCTX_INPROC_SERVER, id, &driver);
        if (SUCCEEDED(result)) return DriverPointer(static_cast<IASIO*>(driver));
    }
    CoUninitialize();
    error = "The driver cannot be created (" + hex(result) + "); its module is " +
            (entry.file.empty() ? "not registered." : entry.file + ".");
    return nullptr;
}

}  // namespace velmora_play
