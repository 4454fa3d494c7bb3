// The machine's own addresses with their interface numbers, read fresh at each call.
#pragma once

#include <map>
#include <string>

#include "base/IPAddress.h"

namespace ZENNO {

struct InterfaceNames {
    std::string name;         // UTF-8, as the user knows the adapter
    std::string description;  // UTF-8
};

// Key: the address, port 0, scope = the adapter's interface number.
using LocalInterfaceMap = std::map<IPAddress, InterfaceNames>;

bool getMyLocalAddresV6(LocalInterfaceMap& out);
bool getMyLocalAddresV4(LocalInterfaceMap& out);
// Only addresses whose first group is fe80; with `keepLoopback`, ::1 too.
bool getMyLinkLocalAddresV6(LocalInterfaceMap& out, bool keepLoopback);

}  // namespace ZENNO
