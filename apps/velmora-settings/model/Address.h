// Addresses as the settings show and write them: read back, each is the same one.
#pragma once

#include <string>

#include "base/IPAddress.h"

namespace velmora_settings {

// As the log has it where that says all of it, else all eight groups. Without port and scope.
std::string addressText(const ZENNO::IPAddress& address);
// The same, a comma, the port.
std::string addressTextWithPort(const ZENNO::IPAddress& address);

}  // namespace velmora_settings
