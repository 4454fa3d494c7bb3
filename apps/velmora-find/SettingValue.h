// A target's setting in words: what it holds, what it allows, and how a value that somebody typed
// becomes one that is sent.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "find/SettingItem.h"

namespace velmora_find {

// Texts longer than this cannot be read back: the host reads datagrams of 1500 bytes.
constexpr std::size_t longestSettingText = 1484;

struct SettingChange {
    std::uint16_t value = 0;  // as it goes over the wire
    std::string text;
    std::int32_t number = 0;  // the same value as the item's `current` shows it
};

const char* kindName(std::int32_t kind);
std::string valueText(const VELMORA::SettingItem& item);    // what it holds
std::string allowedText(const VELMORA::SettingItem& item);  // which values it takes

// The change, or the sentence that says what is allowed. `text` is that of a choice with text where
// it is told apart from the choice.
//
//   text               any
//   number             a whole number within the range
//   switch             one of its labels, on/off, enable/disable, 1/0
//   choice             the label, or the number where no label reads the same
//   choice with text   CHOICE, or CHOICE:TEXT
std::variant<SettingChange, std::string> readValue(const VELMORA::SettingItem& item,
                                                   const std::string& typed,
                                                   const std::optional<std::string>& text);

// Whether the item, read again, holds the change.
bool holds(const VELMORA::SettingItem& item, const SettingChange& change);

}  // namespace velmora_find
