// What registration left in the registry, held against what hosts need of it.
#pragma once

#include <string>

namespace velmora_register {

struct Registered {
    bool isAnything = false;  // the class or the entry for hosts is there, whole or not
    bool isOfFile = false;    // the class leads to the file that was asked for
    bool isWhole = false;     // ... and everything else is as hosts need it
    std::wstring path;        // where the class leads; empty when nowhere
    std::wstring fault;       // what is wrong, where it is not whole
};

Registered lookFor(const std::wstring& dll);

// A sentence, where hosts could not read the path of the DLL out of the registry; else empty.
std::wstring unfitPath(const std::wstring& dll);

// regsvr32, whose result tells nothing here: the driver's exports say 1 for success.
void runRegsvr32(const std::wstring& dll, bool removes);

// Takes the keys out by hand, for a DLL that is gone or does not do it.
void removeKeys();

}  // namespace velmora_register
