// What may stand in a text that comes from the network and is shown to people.
#pragma once

#include <string_view>

namespace velmora_target {

// Well-formed UTF-8 (RFC 3629) without control characters: none below U+0020, nor U+007F to U+009F.
bool isPlainText(std::string_view text) noexcept;

}  // namespace velmora_target
