#include "base/Number.h"

#include <limits>

namespace ZENNO {

std::int64_t readInteger(std::string_view text) noexcept {
    constexpr std::uint64_t largest = std::numeric_limits<std::int64_t>::max();
    std::size_t at = text.find_first_not_of(" \t\n\v\f\r");
    if (at == std::string_view::npos) return 0;
    const bool negative = text[at] == '-';
    if (negative || text[at] == '+') ++at;

    const std::uint64_t limit = negative ? largest + 1 : largest;
    std::uint64_t value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        const auto digit = static_cast<std::uint64_t>(text[at] - '0');
        if (value > (limit - digit) / 10) {
            value = limit;
            break;
        }
        value = value * 10 + digit;
    }
    return static_cast<std::int64_t>(negative ? 0 - value : value);
}

}  // namespace ZENNO
