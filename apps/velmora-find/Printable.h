// Texts from the network as they may be shown: whatever could move a terminal's cursor, change its
// colours or turn the direction of what stands beside it is written as an escape. The result is
// always valid UTF-8, so JSON takes it as it is.
//
//   a control character, a byte that is no UTF-8     \x1b \xff
//   U+0080 to U+009F, marks of direction, U+2028/9   \u{9b} \u{202e}
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace velmora_find {

std::string printable(std::string_view raw);

// How many characters a shown text has: the columns that it takes, as far as a program can tell.
std::size_t columns(std::string_view shown);

}  // namespace velmora_find
