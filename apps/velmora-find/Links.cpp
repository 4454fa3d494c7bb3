#include "apps/velmora-find/Links.h"

#include <charconv>
#include <set>

#include "apps/velmora-find/ExitCode.h"
#include "apps/velmora-find/Printable.h"

namespace velmora_find {

std::optional<std::uint32_t> readNumber(std::string_view text, std::uint32_t most) {
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || value > most) {
        return std::nullopt;
    }
    return value;
}

Links Links::of(ZENNO::Environment& environment) {
    ZENNO::LocalInterfaceMap map;
    if (!environment.localAddressesV6(map)) {
        throw Stop{exitNetwork,
                   "The system gives no list of this computer's network interfaces. Is IPv6 "
                   "switched on?"};
    }
    return Links(std::move(map));
}

std::optional<std::uint32_t> Links::numberOf(const std::string& nameOrNumber) const {
    for (const auto& [address, names] : map_) {
        if (names.name == nameOrNumber) return address.scope;
    }
    const auto number = readNumber(nameOrNumber);
    for (const auto& [address, names] : map_) {
        if (number && address.scope == *number) return number;
    }
    return std::nullopt;
}

std::string Links::nameOf(std::uint32_t number) const {
    for (const auto& [address, names] : map_) {
        if (address.scope == number) return names.name;
    }
    return {};
}

std::string Links::names() const {
    std::set<std::string> known;
    for (const auto& [address, names] : map_) {
        if (address.isLinkLocal() && address.scope != 0) known.insert(printable(names.name));
    }
    std::string text;
    for (const std::string& name : known) text += (text.empty() ? "" : ", ") + name;
    return text.empty() ? "none that can be used" : text;
}

std::list<ZENNO::IPAddress> Links::linkLocal(const std::string& nameOrNumber) const {
    const auto number = numberOf(nameOrNumber);
    if (!number) {
        throw Stop{exitNetwork, "There is no interface \"" + printable(nameOrNumber) +
                                    "\" with an IPv6 address here; there are: " + names() + "."};
    }
    std::list<ZENNO::IPAddress> out;
    for (const auto& [address, names] : map_) {
        if (address.scope == *number && address.isLinkLocal()) out.push_back(address);
    }
    if (out.empty() || *number == 0) {
        throw Stop{exitNetwork, "The interface \"" + printable(nameOrNumber) +
                                    "\" has no address fe80::, so targets cannot be found on it; "
                                    "\"velmora-find doctor\" tells more."};
    }
    return out;
}

std::list<ZENNO::IPAddress> Links::chosen(const std::string& nameOrNumber) const {
    return nameOrNumber.empty() ? std::list<ZENNO::IPAddress>() : linkLocal(nameOrNumber);
}

}  // namespace velmora_find
