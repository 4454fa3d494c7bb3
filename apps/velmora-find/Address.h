// Addresses as a person types and reads them. Both ways agree: what is shown can be typed.
//
//   fe80::1%eth0    fe80::1%3    fe80::1          port 19642
//   fe80::1%eth0,19700    [fe80::1%eth0]:19700    another one
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "apps/velmora-find/Links.h"
#include "base/IPAddress.h"

namespace velmora_find {

struct TypedAddress {
    ZENNO::IPAddress address{};            // with its port; scope 0
    std::optional<std::string> interface;  // what stood behind %
};
// Nothing when the text is no address, so perhaps a name.
std::optional<TypedAddress> readAddress(std::string_view text);

// The address alone, in the form of RFC 5952.
std::string addressText(const ZENNO::IPAddress& address);
// With its interface if it has one, by name where the name is one plain word, and with its port
// unless that is 19642.
std::string shownAddress(const ZENNO::IPAddress& address, const Links& links);
bool isPlainWord(std::string_view name);

}  // namespace velmora_find
