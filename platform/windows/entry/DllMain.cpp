#include <windows.h>

#include "platform/ModuleEntry.h"

// What the compiler's libraries take for a module, and do not give back when it goes.

// The C++ library's own: frees what is kept for exceptions that find no memory, 73 KB.
namespace __gnu_cxx {
void __freeres();
}

// The linker's: what the loader calls when threads come and go.
extern "C" const IMAGE_TLS_DIRECTORY _tls_used;

namespace {

// The thread library has a record with two handles of every thread that it has met here, until that
// thread ends. The one that unloads the module lives on.
void forgetThisThread(HINSTANCE module) {
    const auto* callback =
        reinterpret_cast<const PIMAGE_TLS_CALLBACK*>(_tls_used.AddressOfCallBacks);
    for (; *callback != nullptr; ++callback) (*callback)(module, DLL_THREAD_DETACH, nullptr);
}

}  // namespace

namespace ZENNO::platform {

SystemVersion systemVersion;

}  // namespace ZENNO::platform

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID processEnds) {
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
        // At the end of the process its other threads have been stopped wherever they were, and the
        // system takes everything back.
        if (processEnds == nullptr) {
            onUnload();
            __gnu_cxx::__freeres();
            forgetThisThread(module);
        }
    }
    return TRUE;
}
