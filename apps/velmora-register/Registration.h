// Registers the driver and takes that back, and judges by what the registry says alone. The system
// is behind a seam, so that a registration that fails halfway can be tested.
#pragma once

#include <string>

#include "apps/velmora-register/ExitCode.h"

namespace velmora_register {

// What registration left in the registry, held against what hosts need of it.
struct Registered {
    bool isAnything = false;  // the class or the entry for hosts is there, whole or not
    bool isOfFile = false;    // the class leads to the file that was asked for
    bool isWhole = false;     // ... and everything else is as hosts need it
    std::wstring path;        // where the class leads; empty when nowhere
    std::wstring fault;       // what is wrong, where it is not whole
};

class System {
public:
    virtual ~System() = default;
    virtual bool isFile(const std::wstring& path) = 0;
    virtual bool isAdministrator() = 0;
    // A sentence, where hosts could not read the path of the DLL out of the registry; else empty.
    virtual std::wstring unfitPath(const std::wstring& dll) = 0;
    virtual Registered lookFor(const std::wstring& dll) = 0;
    // Has the DLL write its keys, or remove them. Whether it did, the registry tells.
    virtual void callDriver(const std::wstring& dll, bool removes) = 0;
    // Takes the keys out by hand, for a DLL that is gone or does not do it.
    virtual void removeKeys() = 0;
};

// What the program ends with, and says.
struct Answer {
    ExitCode code;
    std::wstring sentence;
};

Answer status(System& system, const std::wstring& dll);
// Takes any older registration out first; when the DLL cannot register itself, none is left.
Answer doRegister(System& system, const std::wstring& dll);
// Leaves a registration alone that leads to another file.
Answer doUnregister(System& system, const std::wstring& dll);

}  // namespace velmora_register
