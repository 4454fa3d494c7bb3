// The module's coming and going. The DLL links the body in platform/windows/entry/ and defines
// onModule and onUnload.
#pragma once

#include <cstdint>

namespace ZENNO::platform {

// Called with true when the module is loaded into a process and with false when it goes.
void onModule(bool attached) noexcept;
// Called behind that when the module goes and the process stays: what it holds of the system must
// go with it. The loader waits meanwhile, so nothing here may wait for a thread.
void onUnload() noexcept;

// The system's version as the entry point read it: major, minor, build. Zero before.
struct SystemVersion {
    std::uint32_t major = 0, minor = 0, build = 0;
};
extern SystemVersion systemVersion;

}  // namespace ZENNO::platform
