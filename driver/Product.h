// What this product is called and how it introduces itself: the names, the two identifiers and the
// class identifier, for the driver and the finder alike.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "driver/TargetInfo.h"
#include "platform/Com.h"

// Also the interface identifier under which the driver hands out IASIO: hosts ask with the one that
// they found in the registry.
// {5D2C7A14-9B3E-4C61-8E0F-2A7B41C9D063}
inline constexpr ZENNO::platform::Guid driverClassId{
    0x5D2C7A14, 0x9B3E, 0x4C61, {0x8E, 0x0F, 0x2A, 0x7B, 0x41, 0xC9, 0xD0, 0x63}};

inline constexpr const char* driverProductName = "KORVENTE Velmora";
inline constexpr const char* driverReleaseText = "1_112_1";

// The first eight characters of a text, the first in the lowest byte; all ones for a shorter text.
constexpr std::uint64_t packIdentifier(std::string_view text) noexcept {
    constexpr std::size_t characters = 8;
    if (text.size() < characters) return ~0ull;
    std::uint64_t id = 0;
    for (std::size_t i = characters; i-- > 0;) {
        id = id << 8 | static_cast<std::uint8_t>(text[i]);
    }
    return id;
}

// Two constants of the program, filled from one text: what the driver says it is, and what it looks
// for.
inline constexpr std::uint64_t ProductID = packIdentifier("KORVENTE");
inline constexpr std::uint64_t FindID = packIdentifier("KORVENTE");

// What discovery is asked for: targets of `findID` and of `productID`; all of them where `findID`
// is 0. `ownID` is what the targets are told.
VELMORA::FindSetting makeFindSetting(std::uint64_t productID, std::uint64_t findID,
                                     std::uint64_t ownID, std::string clientName, bool nopBreak);

// The name that a person sees: the target's, and the sink's in brackets behind it if it has one.
std::string displayName(const std::string& targetName, const std::string& sinkName);
