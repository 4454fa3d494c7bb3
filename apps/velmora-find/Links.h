// This computer's interfaces as addresses name them: by number, or by the name that the user knows.
#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <string>

#include "src/Network/Environment.h"

namespace velmora_find {

class Links {
public:
    explicit Links(ZENNO::LocalInterfaceMap map) : map_(std::move(map)) {}
    // Throws Stop when the system gives no list.
    static Links of(ZENNO::Environment& environment);

    const ZENNO::LocalInterfaceMap& map() const { return map_; }
    // By name first, then by number; nothing when there is no such interface.
    std::optional<std::uint32_t> numberOf(const std::string& nameOrNumber) const;
    std::string nameOf(std::uint32_t number) const;  // as the system has it; empty when unknown

    // The link-local addresses of one interface, on which discovery can work. Throws Stop, with a
    // sentence, when there is no such interface or it has none.
    std::list<ZENNO::IPAddress> linkLocal(const std::string& nameOrNumber) const;
    // The same; an empty name asks for no choice at all, which is the empty list.
    std::list<ZENNO::IPAddress> chosen(const std::string& nameOrNumber) const;

private:
    std::string names() const;  // of those that discovery can use

    ZENNO::LocalInterfaceMap map_;
};

// As a whole text, without sign or blanks; nothing when it is none or above `most`.
std::optional<std::uint32_t> readNumber(std::string_view text, std::uint32_t most = 0xffffffff);

}  // namespace velmora_find
