#include "apps/velmora-find/Printable.h"

#include <algorithm>
#include <cstdint>

namespace velmora_find {

std::size_t columns(std::string_view shown) {
    return static_cast<std::size_t>(std::count_if(shown.begin(), shown.end(), [](char c) {
        return (static_cast<std::uint8_t>(c) & 0xc0) != 0x80;
    }));
}

}  // namespace velmora_find
