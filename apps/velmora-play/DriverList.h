// The ASIO drivers that this machine has, and how one is loaded. On Windows: what the registry
// lists, created through COM as every host does it. Elsewhere: this tree's driver object itself.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "driver/Asio.h"

namespace velmora_play {

struct DriverEntry {
    std::string name;     // as hosts show it
    std::string classId;  // {xxxxxxxx-...}
    std::string file;     // of the module, empty when the class is not registered
};

std::vector<DriverEntry> listDrivers();

struct DriverRelease {
    void operator()(IASIO* driver) const;
};
using DriverPointer = std::unique_ptr<IASIO, DriverRelease>;

// Null, with a sentence in `error`, when it cannot be loaded. One at a time, on one thread.
DriverPointer loadDriver(const DriverEntry& entry, std::string& error);

}  // namespace velmora_play
