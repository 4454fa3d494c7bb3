// Texts from the network as they may be shown, and how wide they are.
#pragma once

#include <cstddef>
#include <string_view>

#include "base/Printable.h"

namespace velmora_find {

using ZENNO::printable;

// How many characters a shown text has: the columns that it takes, as far as a program can tell.
std::size_t columns(std::string_view shown);

}  // namespace velmora_find
