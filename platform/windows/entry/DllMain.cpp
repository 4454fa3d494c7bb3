#include <windows.h>

#include "platform/ModuleEntry.h"

namespace ZENNO::platform {

SystemVersion systemVersion;

}  // namespace ZENNO::platform

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
    using namespace ZENNO::platform;
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(module);
        OSVERSIONINFOA version{};
        version.dwOSVersionInfoSize = 148;
        static_assert(sizeof version == 148);
        if (GetVersionExA(&version) != 0) {
            systemVersion = {version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber};
        }
        onModule(true);
    } else if (reason == DLL_PROCESS_DETACH) {
        onModule(false);
    }
    return TRUE;
}
