// A settings file as the text that its owner sees: one key is changed, and every other byte
// (comments, order, line ends, keys that nobody knows) stays.
#pragma once

#include <string>
#include <string_view>

namespace velmora_settings {

// The section of the keys that stand before the first heading.
inline constexpr std::string_view globalSection = "global";

// A file may begin with a byte-order mark, which is none of its text: the driver's reader of files
// skips it, while InfFile::parseText does not know of any.
std::string_view withoutMark(std::string_view text) noexcept;

// What the driver refuses a whole file for: control characters other than line ends.
bool hasControlCharacters(std::string_view text) noexcept;
// Tabs become blanks, the others are gone.
std::string withoutControlCharacters(std::string_view text);

// The text with `key` of `section` ("global" for what stands in front of all sections) set, where
// the driver's reader will find it; an empty value takes the key out. `value` is one line.
std::string withValue(std::string_view text, std::string_view section, std::string_view key,
                      std::string_view value);

}  // namespace velmora_settings
