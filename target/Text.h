// Texts that come from the network: what may stand in them, and how they are shown to people.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace velmora_target {

// UTF-8 without control characters, line separators, and what turns the direction of writing round.
bool isPlainText(std::string_view text);

// Any bytes at all, as they may go to a terminal, into a log or into JSON; what is not plain stands
// there as an escape. Of the outcome `mostShown` bytes, and "..." where there was more.
std::string shownText(std::string_view text);
constexpr std::size_t mostShown = 128;

}  // namespace velmora_target
