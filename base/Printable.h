// Texts of strangers as they may be shown: whatever could move a terminal's cursor, change its
// colours or turn the direction of what stands beside it is written as an escape. The result is
// always valid UTF-8, so JSON takes it as it is.
//
//   a control character, a byte that is no UTF-8     \x1b \xff
//   U+0080 to U+009F, marks of direction, U+2028/9   \u{9b} \u{202e}
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ZENNO {

// Of the outcome at most so many bytes, no character or escape cut, and "..." where there was more.
std::string printable(std::string_view raw, std::size_t most = std::string::npos);
bool isPrintable(std::string_view raw);  // shown as it stands

}  // namespace ZENNO
