// From the system's list of adapters to the map of local addresses.
#pragma once

#include <vector>

#include "platform/Net.h"
#include "src/Network/LocalInterfaces.h"

namespace ZENNO {

// One entry for each address of each adapter; of two adapters that share number and address the
// later one's names stay.
LocalInterfaceMap interfaceMap(const std::vector<platform::Adapter>& adapters);

// Drops every address whose first group is not fe80; with `keepLoopback` ::1 stays.
void keepLinkLocal(LocalInterfaceMap& map, bool keepLoopback);

}  // namespace ZENNO
