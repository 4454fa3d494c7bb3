#include "target/Text.h"

#include <cstddef>
#include <cstdint>

namespace velmora_target {

namespace {

struct Form {
    std::uint8_t lead, mask;  // a first byte with these bits ...
    std::size_t more;         // ... is followed by so many
    std::uint32_t least;      // code point; a smaller one is written too long
};
constexpr Form forms[] = {
    {0x00, 0x80, 0, 0}, {0xc0, 0xe0, 1, 0x80}, {0xe0, 0xf0, 2, 0x800}, {0xf0, 0xf8, 3, 0x10000}};

bool isPlain(std::uint32_t point) noexcept {
    const bool control = point < 0x20 || (point >= 0x7f && point < 0xa0);
    const bool surrogate = point >= 0xd800 && point < 0xe000;
    return !control && !surrogate && point <= 0x10ffff;
}

// The bytes of the character in front; 0 if it is none that may stand here.
std::size_t plainCharacter(std::string_view text) noexcept {
    const auto first = static_cast<std::uint8_t>(text.front());
    for (const Form& form : forms) {
        if ((first & form.mask) != form.lead) continue;
        if (text.size() <= form.more) return 0;
        std::uint32_t point = first & static_cast<std::uint8_t>(~form.mask);
        for (std::size_t i = 1; i <= form.more; ++i) {
            const auto byte = static_cast<std::uint8_t>(text[i]);
            if ((byte & 0xc0) != 0x80) return 0;
            point = point << 6 | (byte & 0x3fu);
        }
        return point >= form.least && isPlain(point) ? form.more + 1 : 0;
    }
    return 0;
}

}  // namespace

bool isPlainText(std::string_view text) noexcept {
    while (!text.empty()) {
        const std::size_t bytes = plainCharacter(text);
        if (bytes == 0) return false;
        text.remove_prefix(bytes);
    }
    return true;
}

}  // namespace velmora_target
