#include "base/Printable.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>

namespace ZENNO {
namespace {

struct Range {
    std::uint32_t first, last;
};
// Characters that are sound UTF-8 and are not shown as they stand.
constexpr Range hidden[] = {
    {0x0080, 0x009f},                                      // a terminal's commands in one character
    {0x061c, 0x061c}, {0x200e, 0x200f}, {0x202a, 0x202e},  // direction
    {0x2066, 0x2069}, {0x2028, 0x2029},                    // direction; line and paragraph
};

struct Form {
    std::uint8_t mask, lead;  // of the first byte
    std::size_t bytes;
    std::uint32_t least;  // below it a shorter form exists, and this one is no UTF-8
};
constexpr Form forms[] = {
    {0x80, 0x00, 1, 0}, {0xe0, 0xc0, 2, 0x80}, {0xf0, 0xe0, 3, 0x800}, {0xf8, 0xf0, 4, 0x10000}};

struct Character {
    std::uint32_t code = 0;
    std::size_t bytes = 0;  // 0: what stands there is no UTF-8
};

Character characterAt(std::string_view text) {
    const auto first = static_cast<std::uint8_t>(text.front());
    for (const Form& form : forms) {
        if ((first & form.mask) != form.lead) continue;
        if (text.size() < form.bytes) return {};
        std::uint32_t code = first & static_cast<std::uint8_t>(~form.mask);
        for (std::size_t i = 1; i < form.bytes; ++i) {
            const auto next = static_cast<std::uint8_t>(text[i]);
            if ((next & 0xc0) != 0x80) return {};
            code = code << 6 | (next & 0x3fu);
        }
        const bool isSurrogate = code >= 0xd800 && code <= 0xdfff;
        if (code < form.least || code > 0x10ffff || isSurrogate) return {};
        return {code, form.bytes};
    }
    return {};
}

std::string escaped(const char* format, unsigned value) {
    char text[16];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

bool isHidden(std::uint32_t code) {
    return std::any_of(std::begin(hidden), std::end(hidden),
                       [=](const Range& r) { return code >= r.first && code <= r.last; });
}

}  // namespace

std::string printable(std::string_view raw, std::size_t most) {
    std::string out;
    while (!raw.empty()) {
        const Character c = characterAt(raw);
        const std::size_t bytes = std::max<std::size_t>(c.bytes, 1);
        std::string next(raw.substr(0, bytes));
        if (c.bytes == 0 || c.code < 0x20 || c.code == 0x7f) {
            next = escaped("\\x%02x", static_cast<std::uint8_t>(raw.front()));
        } else if (isHidden(c.code)) {
            next = escaped("\\u{%x}", c.code);
        }
        if (most - out.size() < next.size()) return out + "...";
        out += next;
        raw.remove_prefix(bytes);
    }
    return out;
}

bool isPrintable(std::string_view raw) {
    return printable(raw) == raw;
}

}  // namespace ZENNO
