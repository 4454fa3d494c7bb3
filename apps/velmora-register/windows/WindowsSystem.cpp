#include "apps/velmora-register/windows/WindowsSystem.h"

#include <windows.h>

#include <shlobj.h>

#include "apps/velmora-register/PathFit.h"
#include "apps/velmora-register/windows/CodePage.h"
#include "apps/velmora-register/windows/Files.h"
#include "driver/Product.h"
#include "platform/Module.h"
#include "platform/Registry.h"

namespace velmora_register {
namespace {

using ZENNO::platform::RegistryKey;
using ZENNO::platform::RegistryRoot;

// The driver registers itself by the calls of the system's code page.
std::wstring wide(const std::string& text) {
    if (text.empty()) return {};
    const int size = static_cast<int>(text.size());
    const int length = MultiByteToWideChar(CP_ACP, 0, text.data(), size, nullptr, 0);
    std::wstring out(static_cast<std::size_t>(length), L'\0');
    MultiByteToWideChar(CP_ACP, 0, text.data(), size, out.data(), length);
    return out;
}

std::string classId() {
    std::wstring id;
    ZENNO::platform::classText(driverClassId, id);
    return std::string(id.begin(), id.end());  // digits and braces
}

std::string classKey() {
    return "CLSID\\" + classId();
}
std::string entryKey() {
    return std::string("SOFTWARE\\ASIO\\") + driverProductName;
}

}  // namespace

bool WindowsSystem::isFile(const std::wstring& path) {
    return velmora_register::isFile(path);
}

bool WindowsSystem::isAdministrator() {
    return IsUserAnAdmin() != 0;
}

Registered WindowsSystem::lookFor(const std::wstring& dll) {
    Registered out;
    const auto known = RegistryKey::openForReading(RegistryRoot::classes, classKey());
    const auto server =
        RegistryKey::openForReading(RegistryRoot::classes, classKey() + "\\InprocServer32");
    const auto entry = RegistryKey::openForReading(RegistryRoot::localMachine, entryKey());
    out.isAnything = known || entry;
    if (server) out.path = wide(server.text(""));
    out.isOfFile = !out.path.empty() && isSameFile(dll, out.path);

    if (!known) {
        out.fault = L"the class is not there";
    } else if (out.path.empty()) {
        out.fault = L"the class leads to no file";
    } else if (!out.isOfFile) {
        out.fault = L"the class leads to " + out.path;
    } else if (!isFile(out.path)) {
        out.fault = L"there is no file " + out.path;
    } else if (known.text("") != driverProductName) {
        out.fault = L"the class has another name";
    } else if (server.text("ThreadingModel") != "Apartment") {
        out.fault = L"the class has another threading model";
    } else if (!entry) {
        out.fault = L"the entry for audio software is not there";
    } else if (entry.text("CLSID") != classId()) {
        out.fault = L"the entry for audio software leads to another class";
    } else if (entry.text("Description") != driverProductName) {
        out.fault = L"the entry for audio software has another name";
    } else {
        out.isWhole = true;
    }
    return out;
}

std::wstring WindowsSystem::unfitPath(const std::wstring& dll) {
    return velmora_register::unfitPath(dll, GetACP(), bytesInCodePage);
}

// By regsvr32, whose result tells nothing here: the driver's exports say 1 for success.
void WindowsSystem::callDriver(const std::wstring& dll, bool removes) {
    wchar_t system[MAX_PATH] = {};
    const UINT length = GetSystemDirectoryW(system, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) return;
    const std::wstring program = std::wstring(system) + L"\\regsvr32.exe";
    std::wstring line =
        L"\"" + program + L"\" /s " + (removes ? L"/u " : L"") + L"\"" + dll + L"\"";
    STARTUPINFOW start{};
    start.cb = sizeof start;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW,
                        nullptr, nullptr, &start, &process)) {
        return;
    }
    WaitForSingleObject(process.hProcess, INFINITE);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
}

void WindowsSystem::removeKeys() {
    if (const auto classes = RegistryKey::open(RegistryRoot::classes, "CLSID")) {
        classes.deleteTree(classId());
    }
    if (const auto asio = RegistryKey::open(RegistryRoot::localMachine, "SOFTWARE\\ASIO")) {
        asio.deleteTree(driverProductName);
    }
}

}  // namespace velmora_register
